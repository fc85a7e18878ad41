#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/ModuleHost.h"

/// The answer to one request: an HTTP status and a JSON text. `allow` names the methods of the path after a
/// 405 and is empty otherwise.
struct HttpAnswer {
    unsigned status = 200;
    std::string body;
    std::string_view allow;
};

/// An answer {"error": "<sentence>"}.
[[nodiscard]] HttpAnswer MakeErrorAnswer(unsigned status, std::string_view sentence);

/// Answers one request of the control socket, and runs the action that it names on this thread. `target` is
/// the request's target as it stands, percent-encoded. May be called from several threads at once.
[[nodiscard]] HttpAnswer RouteRequest(const std::vector<ModuleInfo>& modules, std::string_view method,
                                      std::string_view target, std::string_view body);

/// True where RouteRequest may take its time, because it would run an action.
[[nodiscard]] bool IsActionRequest(std::string_view method);
