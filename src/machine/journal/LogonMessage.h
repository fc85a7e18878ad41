#pragma once

#include <string_view>

/// What the programs that let users in write of it. The parts are parts of the message. A user's name is
/// whatever somebody typed: where it looks like the rest of a message, the rest still counts from its end.
struct Logon {
    std::string_view user;
    bool isSuccess = false;
    std::string_view terminal;  ///< empty where none is known
    std::string_view origin;    ///< the host that the user came from; empty for the device itself
};

/// "Accepted publickey for ann from 192.0.2.7 port 50022 ssh2: ..." and "Failed password for invalid user bob
/// from 192.0.2.7 port 50022 ssh2". An attempt without any credential is not one.
[[nodiscard]] bool ParseRemoteShell(std::string_view message, Logon& logon);

/// "FAILED LOGIN (1) on '/dev/tty1' from 'host' FOR 'ann', Authentication failure"; the host may be missing.
[[nodiscard]] bool ParseLogin(std::string_view message, Logon& logon);

/// "pam_unix(gdm-password:auth): authentication failure; logname= uid=0 euid=0 tty=/dev/tty1 ruser= rhost=
/// user=ann"
[[nodiscard]] bool ParseAuthentication(std::string_view message, Logon& logon);
