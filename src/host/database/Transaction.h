#pragma once

#include <vector>

#include "host/database/Database.h"

/// Runs `body() -> bool` in one transaction: true where it and the commit succeeded; else, and where the body
/// throws, all is rolled back. A lock that keeps other threads out is the caller's.
template <class Body>
[[nodiscard]] bool InTransaction(DBConnection& connection, Body&& body) {
    if (!connection.BeginTransaction()) {
        return false;
    }
    try {
        if (body() && connection.CommitTransaction()) {
            return true;
        }
    } catch (...) {
        // Now, under the caller's lock: what other threads store next must not belong to this transaction.
        static_cast<void>(connection.RollbackTransaction());
        throw;
    }
    // The failure that led here was reported; a rollback that fails too has a line of its own.
    static_cast<void>(connection.RollbackTransaction());
    return false;
}

/// Runs the statements in one transaction, in order, up to the first failure: all of them or none.
[[nodiscard]] inline bool RunInTransaction(DBConnection& connection,
                                           const std::vector<LumString>& statements) {
    return InTransaction(connection, [&] {
        for (const LumString& statement : statements) {
            if (connection.Query(statement) == nullptr) {
                return false;
            }
        }
        return true;
    });
}
