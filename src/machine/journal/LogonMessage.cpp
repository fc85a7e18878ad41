#include "machine/journal/LogonMessage.h"

#include <algorithm>
#include <cstddef>

namespace {

/// What stands in `text` between the end of the first `from` and the following `to`; empty where one is
/// missing.
std::string_view Between(std::string_view text, std::string_view from, std::string_view to) {
    const std::size_t begin = text.find(from);
    if (begin == std::string_view::npos) {
        return {};
    }
    text.remove_prefix(begin + from.size());
    const std::size_t end = text.find(to);
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end);
}

bool IsNumber(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Takes `prefix` from the beginning of `text`; false where it does not begin so.
bool Skip(std::string_view& text, std::string_view prefix) {
    const bool isThere = text.starts_with(prefix);
    text.remove_prefix(isThere ? prefix.size() : 0);
    return isThere;
}

}  // namespace

bool ParseRemoteShell(std::string_view message, Logon& logon) {
    constexpr std::string_view kFor = " for ";
    constexpr std::string_view kFrom = " from ";
    constexpr std::string_view kPort = " port ";
    const bool isSuccess = Skip(message, "Accepted ");
    if (!isSuccess && !Skip(message, "Failed ")) {
        return false;
    }
    const std::size_t method = message.find(' ');
    const std::size_t from = message.rfind(kFrom);
    if (method == std::string_view::npos || message.substr(0, method) == "none" ||
        message.substr(method, kFor.size()) != kFor || from == std::string_view::npos ||
        from < method + kFor.size()) {
        return false;
    }
    const std::string_view source = message.substr(from + kFrom.size());
    const std::size_t port = source.find(kPort);
    if (port == std::string_view::npos || source.find(' ') != port ||
        !IsNumber(source.substr(port + kPort.size(),
                                source.find(' ', port + kPort.size()) - port - kPort.size()))) {
        return false;
    }
    logon.user = message.substr(method + kFor.size(), from - method - kFor.size());
    Skip(logon.user, "invalid user ");
    logon.isSuccess = isSuccess;
    logon.terminal = "ssh";
    logon.origin = source.substr(0, port);
    return true;
}

bool ParseLogin(std::string_view message, Logon& logon) {
    constexpr std::string_view kFor = " FOR '";
    constexpr std::string_view kReason = "', ";
    const std::size_t name = message.find(kFor);
    const std::size_t reason = message.rfind(kReason);
    if (!message.starts_with("FAILED LOGIN (") || name == std::string_view::npos ||
        reason == std::string_view::npos || reason < name + kFor.size()) {
        return false;
    }
    const std::string_view place = message.substr(0, name);
    logon.user = message.substr(name + kFor.size(), reason - name - kFor.size());
    logon.isSuccess = false;
    logon.terminal = Between(place, " on '", "'");
    logon.origin = Between(place, " from '", "'");
    return true;
}

bool ParseAuthentication(std::string_view message, Logon& logon) {
    constexpr std::string_view kUser = " user=";
    const std::size_t user = message.find(kUser);
    if (!message.starts_with("pam_") ||
        message.find(":auth): authentication failure; ") == std::string_view::npos ||
        user == std::string_view::npos) {
        return false;
    }
    const std::string_view place = message.substr(0, user + 1);
    logon.user = message.substr(user + kUser.size());
    logon.isSuccess = false;
    logon.terminal = Between(place, " tty=", " ");
    logon.origin = Between(place, " rhost=", " ");
    return true;
}
