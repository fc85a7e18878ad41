#pragma once

/// Drops from ModelCollection every automatic model that refers to a model or to a parameter of its source
/// model that is not there, one error line each, until every reference holds. Only memory changes: the
/// registry and the event tables stay. May be called from any thread.
void CheckModels();
