#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-messages.h>

#include "machine/journal/ServiceSource.h"
#include "machine/journal/SessionSource.h"
#include "machine/journal/StateSource.h"
#include "unit/machine/journal/JournalSourceFixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(JournalSourceTest, LogonsAndFailedLogonsBecomeEvents) {
    AddShell("Accepted publickey for ann from 192.0.2.7 port 50022 ssh2: ED25519 SHA256:abc");
    AddShell("Failed password for root from 192.0.2.8 port 5 ssh2");
    AddShell("Connection closed by 192.0.2.8 port 5");
    AddSession("bob", "4711");
    Write();
    Open<SessionSource>();
    EXPECT_THAT(
        New(),
        ElementsAre(R"(Logon{"User":"ann","Outcome":"success","Terminal":"ssh","Origin":"192.0.2.7"})",
                    R"(Logon{"User":"root","Outcome":"failure","Terminal":"ssh","Origin":"192.0.2.8"})",
                    R"(Logon{"User":"bob","Outcome":"success"})"));
    EXPECT_THAT(New(), IsEmpty());
}

TEST_F(JournalSourceTest, TheSessionOfARemoteLogonIsTheSameLogon) {
    AddShell("Accepted publickey for ann from 192.0.2.7 port 50022 ssh2", "815");
    Write("a.journal");
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 1U);
    AddSession("ann", "815");
    Write("b.journal");
    Open<SessionSource>();
    EXPECT_THAT(New(), IsEmpty()) << "the logon was forgotten with the restart";
}

TEST_F(JournalSourceTest, NobodyButRootAndItsServicesIsBelieved) {
    const std::string message = "Accepted password for root from 192.0.2.7 port 1 ssh2";
    Add({{"_UID", "1000"}, {"_COMM", "sshd"}, {"MESSAGE", message}});
    Add({{"_UID", "1000"}, {"_COMM", "logger"}, {"SYSLOG_IDENTIFIER", "sshd"}, {"MESSAGE", message}});
    Add({{"_UID", "0"}, {"_UID", "1000"}, {"_COMM", "sshd"}, {"MESSAGE", message}});
    Add({{"_COMM", "sshd"}, {"MESSAGE", message}});
    Add({{"_UID", "0"},
         {"_SYSTEMD_UNIT", "user@1000.service"},
         {"MESSAGE_ID", SD_MESSAGE_SESSION_START_STR},
         {"USER_ID", "root"},
         {"LEADER", "1"}});
    Write();
    Open<SessionSource>();
    EXPECT_THAT(New(), IsEmpty());
}

TEST_F(JournalSourceTest, WhatTheJournalItselfLeftOutOfTheRemoteShellIsSaid) {
    const auto dropped = [&](const std::string& transport, const std::string& unit) {
        Add({{"_UID", "0"},
             {"_TRANSPORT", transport},
             {"MESSAGE_ID", SD_MESSAGE_JOURNAL_DROPPED_STR},
             {"N_DROPPED", "90000"},
             {"MESSAGE", "Suppressed 90000 messages from " + unit}});
    };
    dropped("driver", "ssh.service");
    dropped("driver", "chatter.service");
    dropped("journal", "ssh.service");
    Write();
    Open<SessionSource>();
    EXPECT_THAT(New(), IsEmpty());
    EXPECT_THAT(
        log_.Said(),
        ElementsAre(
            "warning MachineEvents Sessions: the journal did not take in 90000 messages, logons among "
            "them perhaps: Suppressed 90000 messages from ssh.service"));
}

TEST_F(JournalSourceTest, StatesOfTheMachineBecomeEvents) {
    Add({{"_UID", "0"},
         {"_PID", "1"},
         {"_COMM", "systemd"},
         {"MESSAGE_ID", SD_MESSAGE_STARTUP_FINISHED_STR}});
    Add({{"_UID", "0"},
         {"_COMM", "systemd-sleep"},
         {"MESSAGE_ID", SD_MESSAGE_SLEEP_START_STR},
         {"SLEEP", "suspend"}});
    Add({{"_UID", "0"},
         {"_COMM", "systemd-sleep"},
         {"MESSAGE_ID", SD_MESSAGE_SLEEP_STOP_STR},
         {"SLEEP", "suspend"}});
    Add({{"_UID", "0"}, {"_COMM", "systemd-timedat"}, {"MESSAGE_ID", SD_MESSAGE_TIME_CHANGE_STR}});
    Add({{"_UID", "0"},
         {"_COMM", "systemd-logind"},
         {"MESSAGE_ID", SD_MESSAGE_SHUTDOWN_STR},
         {"SHUTDOWN", "reboot"}});
    Add({{"_UID", "0"},
         {"_PID", "77"},
         {"_COMM", "systemd"},
         {"MESSAGE_ID", SD_MESSAGE_STARTUP_FINISHED_STR}});
    Add({{"_UID", "1000"},
         {"_PID", "1"},
         {"_COMM", "systemd"},
         {"MESSAGE_ID", SD_MESSAGE_STARTUP_FINISHED_STR}});
    Write();
    Open<StateSource>();
    EXPECT_THAT(
        New(),
        ElementsAre(R"(MachineState{"State":"start"})", R"(MachineState{"State":"sleep","Detail":"suspend"})",
                    R"(MachineState{"State":"wake","Detail":"suspend"})", R"(MachineState{"State":"clock"})",
                    R"(MachineState{"State":"stop","Detail":"reboot"})"));
}

TEST_F(JournalSourceTest, FailuresAndCrashesBecomeEvents) {
    Add({{"_UID", "0"},
         {"_PID", "1"},
         {"MESSAGE_ID", SD_MESSAGE_UNIT_FAILURE_RESULT_STR},
         {"UNIT", "web.service"},
         {"UNIT_RESULT", "exit-code"}});
    Add({{"_UID", "0"},
         {"_PID", "1"},
         {"MESSAGE_ID", SD_MESSAGE_UNIT_OUT_OF_MEMORY_STR},
         {"UNIT", "db.service"}});
    Add({{"_UID", "1000"},
         {"_SYSTEMD_UNIT", "systemd-coredump@3-77-0.service"},
         {"MESSAGE_ID", SD_MESSAGE_COREDUMP_STR},
         {"COREDUMP_EXE", "/usr/bin/prog"},
         {"COREDUMP_COMM", "prog"},
         {"COREDUMP_SIGNAL_NAME", "SIGSEGV"},
         {"COREDUMP_UNIT", "web.service"},
         {"COREDUMP_UID", "1000"}});
    Add({{"_UID", "1000"},
         {"_PID", "77"},
         {"MESSAGE_ID", SD_MESSAGE_UNIT_FAILURE_RESULT_STR},
         {"UNIT", "ssh.service"},
         {"UNIT_RESULT", "signal"}});
    Add({{"_UID", "1000"},
         {"_SYSTEMD_UNIT", "user@1000.service"},
         {"MESSAGE_ID", SD_MESSAGE_COREDUMP_STR},
         {"COREDUMP_EXE", "/usr/sbin/sshd"}});
    Write();
    Open<ServiceSource>();
    EXPECT_THAT(
        New(),
        ElementsAre(
            R"(ServiceFailure{"Unit":"web.service","Result":"exit-code"})",
            R"(Crash{"Kind":"memory","Unit":"db.service"})",
            R"(Crash{"Kind":"crash","Program":"/usr/bin/prog","Signal":"SIGSEGV","Unit":"web.service","User":"1000"})"));
}

TEST_F(JournalSourceTest, HostileFieldsAreCutAndCleaned) {
    Add({{"_UID", "0"},
         {"_PID", "1"},
         {"MESSAGE_ID", SD_MESSAGE_UNIT_FAILURE_RESULT_STR},
         {"UNIT", std::string(1 << 20, 'x')},
         {"UNIT_RESULT", std::string("a\0b\n\xff", 5)}});
    Add({{"_UID", "0"}, {"_PID", "1"}, {"MESSAGE_ID", SD_MESSAGE_UNIT_FAILURE_RESULT_STR}});
    Write();
    Open<ServiceSource>();
    const std::vector<std::string> events = New();
    ASSERT_EQ(events.size(), 1U) << "a failure without a unit is one of nobody";
    EXPECT_THAT(events[0], HasSubstr(std::string(256, 'x') + "…"));
    EXPECT_THAT(events[0], HasSubstr("\"Result\":\"a\uFFFDb\uFFFD\uFFFD\""));
}

TEST_F(JournalSourceTest, EntriesOfBeforeTheOldestWantedAreLeftOut) {
    AddShell("Failed password for old from 192.0.2.8 port 5 ssh2");
    journal_.Add(kMoment + 10, {{"_UID", "0"},
                                {"_COMM", "sshd"},
                                {"MESSAGE", "Failed password for new from 192.0.2.8 port 5 ssh2"}});
    Write();
    Open<SessionSource>(kMoment + 5);
    const std::vector<std::string> events = New();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_THAT(events[0], HasSubstr("\"new\""));
}

TEST_F(JournalSourceTest, BatchesEndAtTheirLimitAndAreReadOnAfterARestart) {
    for (int i = 0; i < 25; ++i) {
        AddShell("Failed password for user" + std::to_string(i) + " from 192.0.2.8 port 5 ssh2");
    }
    Write();
    Open<SessionSource>();
    for (int batches = 0; batches < 2; ++batches) {
        const std::size_t before = records_.size();
        ReadSome(10);
        EXPECT_LE(records_.size(), before + 10);
        Open<SessionSource>();
    }
    static_cast<void>(New(10));
    EXPECT_EQ(records_.size(), 25U);
    EXPECT_EQ(std::set<uint64_t>(records_.begin(), records_.end()).size(), 25U);
    EXPECT_THAT(New(), IsEmpty());
}

TEST_F(JournalSourceTest, AnEntryKeepsItsRecordInACopyOfTheJournal) {
    AddShell("Failed password for ann from 192.0.2.8 port 5 ssh2");
    Write();
    Open<SessionSource>();
    static_cast<void>(New());
    const std::vector<uint64_t> first = records_;
    TempDirectory other;
    std::filesystem::remove(directory_ / "journal/a.journal");
    Write("copy.journal");
    records_.clear();
    position_.clear();
    Open<SessionSource>();
    static_cast<void>(New());
    EXPECT_EQ(records_, first);
}

TEST_F(JournalSourceTest, APositionWhoseEntryHasGoneGoesOnAfterIt) {
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    Open<SessionSource>();
    static_cast<void>(New());
    std::filesystem::remove(directory_ / "journal/a.journal");
    journal_ = JournalFile();
    journal_.Add(
        kMoment + 10,
        {{"_UID", "0"}, {"_COMM", "sshd"}, {"MESSAGE", "Failed password for b from 192.0.2.8 port 5 ssh2"}});
    Write("later.journal");
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 1U);
    EXPECT_THAT(log_.Said(),
                ElementsAre("print MachineEvents Sessions: the journal no longer holds the entry that was "
                            "read last; entries after it may be gone with it"));
}

TEST_F(JournalSourceTest, APositionThatIsNoneIsReadAnew) {
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    for (const std::string position : {"nonsense", "s=1;t=ffffffffffffff", "\xff\x01\n\n", ";"}) {
        position_ = position;
        begunAnew_ = false;
        Open<SessionSource>();
        EXPECT_EQ(New().size(), 1U) << position;
        EXPECT_TRUE(begunAnew_) << position;
    }
    position_ = std::string(1 << 20, 'x');
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 1U);
}

TEST_F(JournalSourceTest, AnEntryFromTheFutureBearsTheTimeOfItsReading) {
    const std::time_t before = std::time(nullptr);
    Add({{"_UID", "0"}, {"_COMM", "sshd"}, {"MESSAGE", "Failed password for a from 192.0.2.8 port 5 ssh2"}},
        int64_t{before} + 30 * 86400);
    Write();
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 1U);
    EXPECT_GE(times_.at(0), before);
    EXPECT_LE(times_.at(0), std::time(nullptr));
}

TEST_F(JournalSourceTest, AJournalThatIsReplacedIsReadOn) {
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 1U);
    journal_ = JournalFile();
    Add({{"_UID", "0"}, {"_COMM", "sshd"}, {"MESSAGE", "Failed password for b from 192.0.2.8 port 5 ssh2"}},
        kMoment + 1);
    ASSERT_TRUE(journal_.Write(directory_ / "new.journal"));
    std::filesystem::rename(directory_ / "new.journal", directory_ / "journal/a.journal");
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 1U);
}

TEST_F(JournalSourceTest, AJournalThatVanishesIsGoneUntilItIsBack) {
    AddShell("Failed password for a from 192.0.2.8 port 5 ssh2");
    Write();
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 1U);
    std::filesystem::copy(directory_ / "journal/a.journal", directory_ / "copy");
    std::filesystem::remove(directory_ / "journal/a.journal");
    ASSERT_TRUE(HasNews());
    EXPECT_THAT(New(), ElementsAre("gone"));
    EXPECT_EQ(error_, "the journal has gone");
    EXPECT_FALSE(source_->Open(error_));
    EXPECT_EQ(error_, "there is no journal");
    std::filesystem::rename(directory_ / "copy", directory_ / "journal/a.journal");
    Open<SessionSource>();
    EXPECT_THAT(New(), IsEmpty());
}

TEST_F(JournalSourceTest, WithoutAJournalItSaysSo) {
    LumString error;
    EXPECT_FALSE(SessionSource(Place(), 0).Open(error));
    EXPECT_EQ(error, "there is no journal");
    EXPECT_FALSE(SessionSource(Place("nowhere"), 0).Open(error));
    EXPECT_EQ(error, "the journal cannot be opened: No such file or directory");
}

TEST_F(JournalSourceTest, AJournalThatIsNotOneIsNotThere) {
    directory_.Write("journal/a.journal", std::string(1 << 16, 'x'));
    LumString error;
    EXPECT_FALSE(SessionSource(Place(), 0).Open(error));
}

TEST_F(JournalSourceTest, RemembersTheLastRemoteLogonsAlone) {
    for (int i = 0; i < 70; ++i) {
        AddShell("Accepted password for ann from 192.0.2.8 port 5 ssh2", std::to_string(1000 + i));
    }
    Write();
    Open<SessionSource>();
    EXPECT_EQ(New().size(), 70U);
    EXPECT_EQ(CountIn(position_, ":10"), 64U);
    EXPECT_EQ(CountIn(position_, ":1005"), 0U);
    EXPECT_EQ(CountIn(position_, ":1006"), 1U);
}

}  // namespace
