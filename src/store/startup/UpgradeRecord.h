#pragma once

#include "host/text/LumString.h"

/// What a start that upgrades says and keeps: the version that it found, a copy of the database and of the
/// filed definitions that are replaced, and the version that it reached. Silent where there is nothing to
/// upgrade, as on a new database, and where an upgrade that an earlier start began is tried again.
class UpgradeRecord {
public:
    /// To be called before the first step of an upgrade, once the database is set up. False where an upgrade
    /// is due and must not begin: no copy can be kept, there is no room for its steps, or the agent is to
    /// stop. That is an error line and a reason in the agent's health. A copy that an earlier start made of
    /// the same version is kept as it is: it is from before the first attempt.
    [[nodiscard]] bool Begin();
    /// True where Begin has found something to do and let it begin.
    [[nodiscard]] bool IsUnderWay() const { return !versionBefore_.IsEmpty(); }
    /// To be called after the last step.
    void End() const;

private:
    LumString versionBefore_;  ///< empty where nothing is due
    bool isAnnounced_ = false;
};
