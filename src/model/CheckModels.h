#pragma once

/// Drops from ModelCollection every automatic model that refers to a model or to a parameter of its source
/// model that is not there, one error line each, until every reference holds, and keeps it in
/// IncompleteModels. Only memory changes: the registry and the event tables stay. May be called from any
/// thread.
void CheckModels();

/// Puts the models that CheckModels has dropped back into ModelCollection, as they were, where all that they
/// refer to is there now: their sources may have been unreadable for a moment, or taken in later. Says so of
/// each. May be called from any thread.
void TakeBackModels();
