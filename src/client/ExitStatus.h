#pragma once

/// How lumctl ends.
enum class ExitStatus : int {
    kDone = 0,              ///< the action's status was 0
    kFailed = 1,            ///< it was not, or the agent refused the request
    kWrongCommandLine = 2,  ///< nothing was asked of the agent
    kNoAgent = 3,           ///< no agent answers
    kInterrupted = 130,     ///< Ctrl-C ended the command, which said how far it came
};
