#pragma once

#include <cstdint>

#include "fleet/collect/database/Database.h"

/// The layout of the database, made and changed in numbered steps. Each step only adds, so that collectors of
/// the release before go on while it is taken. docs/fleet.md describes the tables to those who read them.

/// The roles: the first owns everything and is what collectors act as, the second may read everything.
inline constexpr char kWriterRole[] = "lum_writer";
inline constexpr char kReaderRole[] = "lum_reader";

/// One lock for all changes of the layout, by set-up and collectors alike; the number is arbitrary.
inline constexpr char kLockLayout[] = "SELECT pg_advisory_xact_lock(7302915588241)";

/// The last step that this program knows.
[[nodiscard]] int32_t LastSchemaStep();

/// Takes the steps that the database has not had, each in a transaction of its own, and says how many. To be
/// run by a role that may make roles and schemas. Throws an SqlError that names the step where one fails.
[[nodiscard]] int32_t SetUpSchema(Database& database);

/// Throws an SqlError that says what to do where the database has not had all steps that this program needs.
void CheckSchema(Database& database);
