#pragma once

#include "host/text/LumString.h"

/// What a start that upgrades says and keeps: the version that it found, a copy of the database and of the
/// filed definitions that are replaced, and the version that it reached. Silent where there is nothing to
/// upgrade, as on a new database.
class UpgradeRecord {
public:
    /// To be called before the first step of an upgrade, once the database is set up. A copy that an earlier
    /// start made of the same version is kept as it is: it is from before the first attempt. A failure is a
    /// warning.
    void Begin();
    /// To be called after the last step.
    void End() const;

private:
    bool upgrading_ = false;
};
