#pragma once

/// Has /status show the uploads that are outstanding, under "uploads": arrays with a position for each. To be
/// called at the start and at the end of the module's activity.
void BeginUploadStatus();
void EndUploadStatus();
