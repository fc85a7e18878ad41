#pragma once

/// Hands the whole container files over that wait in the temporary directory: those of alerts and events that
/// the file store could not take, or that the process left when it ended. A file that an upload in the
/// backlog makes again is deleted, and so is half a file; what is not the module's stays. Files that are
/// younger than a minute belong to somebody who is about to hand them over. Runs on the processor thread.
void HandOverLeftOvers();
