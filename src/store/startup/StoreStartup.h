#pragma once

/// The steps of a start that need the database, and what brings them about later where the database could not
/// be used then.

/// Sets the database up, loads the registered models, takes in the dropped ones and runs the upgrades around
/// that, in their order. Called by ModuleInitialise. Each step tells its own failure, and the next ones are
/// tried all the same.
void BringStoreUp();

/// Looks, once a cycle, whether something is to be made good: the registered models that could not be read,
/// definitions that could not, or a database that has taken the place of the one before. True where the
/// registered models are loaded and dropped definitions may be taken in, which an upgrade that could not
/// begin forbids. May be called from any thread.
bool KeepStoreUp();
