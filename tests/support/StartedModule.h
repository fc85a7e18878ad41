#pragma once

#include <string>

#include "support/LinkedModule.h"

/// The linked module after its start, of which nothing is told any more; errors stay lines, without an alert
/// for each.
class StartedModule : public LinkedModule {
public:
    StartedModule() {
        Initialise();
        KeepErrorsFromAlerts();
        Log().Forget();
        HostLog().Forget();
    }

    /// A column of the model's row in the registry.
    [[nodiscard]] std::string StoredTime(const std::string& column, const std::string& model) const {
        return Rows("SELECT " + column + " FROM RegisteredModel WHERE RM_ModelName = '" + model + "'");
    }
};
