#include <string>

#include <gtest/gtest.h>

#include "machine/journal/LogonMessage.h"

namespace {

/// What was understood, as "outcome user terminal origin"; "none" where nothing was.
std::string Told(bool isUnderstood, const Logon& logon) {
    return !isUnderstood ? "none"
                         : std::string(logon.isSuccess ? "success " : "failure ") + std::string(logon.user) +
                               "|" + std::string(logon.terminal) + "|" + std::string(logon.origin);
}
std::string RemoteShell(std::string_view message) {
    Logon logon;
    const bool isUnderstood = ParseRemoteShell(message, logon);
    return Told(isUnderstood, logon);
}
std::string Login(std::string_view message) {
    Logon logon;
    const bool isUnderstood = ParseLogin(message, logon);
    return Told(isUnderstood, logon);
}
std::string Authentication(std::string_view message) {
    Logon logon;
    const bool isUnderstood = ParseAuthentication(message, logon);
    return Told(isUnderstood, logon);
}

TEST(LogonMessage, RemoteShellLetsIn) {
    EXPECT_EQ(RemoteShell("Accepted publickey for ann from 192.0.2.7 port 50022 ssh2: ED25519 SHA256:abc"),
              "success ann|ssh|192.0.2.7");
    EXPECT_EQ(RemoteShell("Accepted password for ann from 2001:db8::1 port 22"),
              "success ann|ssh|2001:db8::1");
}

TEST(LogonMessage, RemoteShellRefuses) {
    EXPECT_EQ(RemoteShell("Failed password for root from 192.0.2.7 port 50022 ssh2"),
              "failure root|ssh|192.0.2.7");
    EXPECT_EQ(RemoteShell("Failed password for invalid user bob from 192.0.2.7 port 1 ssh2"),
              "failure bob|ssh|192.0.2.7");
}

TEST(LogonMessage, AUserNameThatLooksLikeTheRestIsAUserName) {
    EXPECT_EQ(RemoteShell(
                  "Failed password for invalid user x from 10.0.0.1 port 22 ssh2 from 192.0.2.7 port 5 ssh2"),
              "failure x from 10.0.0.1 port 22 ssh2|ssh|192.0.2.7");
    EXPECT_EQ(Login("FAILED LOGIN (1) on '/dev/tty1' FOR 'x' FOR 'y', z', Authentication failure"),
              "failure x' FOR 'y', z|/dev/tty1|");
    EXPECT_EQ(
        Authentication("pam_unix(lightdm:auth): authentication failure; logname= uid=0 euid=0 tty=:0 ruser= "
                       "rhost=  user=x tty=y rhost=z user=w"),
        "failure x tty=y rhost=z user=w|:0|");
}

TEST(LogonMessage, OtherMessagesOfTheRemoteShellAreNone) {
    EXPECT_EQ(RemoteShell(""), "none");
    EXPECT_EQ(RemoteShell("Failed none for bob from 192.0.2.7 port 5 ssh2"), "none");
    EXPECT_EQ(RemoteShell("Failed password for bob"), "none");
    EXPECT_EQ(RemoteShell("Failed password from 192.0.2.7 port 5"), "none");
    EXPECT_EQ(RemoteShell("Failed password for bob from 192.0.2.7 port x ssh2"), "none");
    EXPECT_EQ(RemoteShell("Failed password for bob from 192.0.2.7"), "none");
    EXPECT_EQ(RemoteShell("Connection closed by 192.0.2.7 port 5"), "none");
    EXPECT_EQ(RemoteShell("Accepted"), "none");
    EXPECT_EQ(RemoteShell("Accepted password"), "none");
    EXPECT_EQ(RemoteShell("Accepted password for from 192.0.2.7 port 5"), "none");
    EXPECT_EQ(RemoteShell("Failed password for bob from 192.0.2.7 port "), "none");
    EXPECT_EQ(RemoteShell("Failed password for bob from 192.0.2.7 port 5x ssh2"), "none");
    EXPECT_EQ(RemoteShell("Failed password for bob from 192.0.2.7 or so port 5 ssh2"), "none");
}

TEST(LogonMessage, LoginRefuses) {
    EXPECT_EQ(Login("FAILED LOGIN (1) on '/dev/tty1' FOR 'ann', Authentication failure"),
              "failure ann|/dev/tty1|");
    EXPECT_EQ(Login("FAILED LOGIN (2) on 'pts/0' from 'host' FOR 'UNKNOWN', User not known"),
              "failure UNKNOWN|pts/0|host");
    EXPECT_EQ(Login("FAILED LOGIN (1) on '/dev/tty1' FOR 'ann"), "none");
    EXPECT_EQ(Login("ROOT LOGIN on '/dev/tty1'"), "none");
    EXPECT_EQ(Login("ROOT LOGIN on '/dev/tty1' FOR 'ann', Authentication failure"), "none");
    EXPECT_EQ(Login("FAILED LOGIN (1) on '/dev/tty1', Authentication failure"), "none");
    EXPECT_EQ(Login("FAILED LOGIN (1) on 'x', y FOR 'ann"), "none");
    EXPECT_EQ(Login("FAILED LOGIN (1) on '/dev/tty1 FOR 'ann', Authentication failure"), "failure ann||");
}

TEST(LogonMessage, ADisplayManagerRefuses) {
    EXPECT_EQ(Authentication("pam_unix(gdm-password:auth): authentication failure; logname= uid=0 euid=0 "
                             "tty=/dev/tty1 ruser= rhost=  user=ann"),
              "failure ann|/dev/tty1|");
    EXPECT_EQ(Authentication("pam_unix(gdm-password:session): session opened for user ann"), "none");
    EXPECT_EQ(Authentication("pam_unix(x:auth): authentication failure; tty=:0"), "none");
    EXPECT_EQ(Authentication("pam_unix(x:auth): check passed; user=ann"), "none");
    EXPECT_EQ(Authentication("say pam_unix(x:auth): authentication failure; user=ann"), "none");
}

}  // namespace
