// A journal that the system's own daemon writes while it is read.

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/journal/SessionSource.h"
#include "support/JournalDaemon.h"
#include "unit/machine/journal/JournalSourceFixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class JournalSourceLive : public JournalSourceTest {
protected:
    void SetUp() override {
        JournalSourceTest::SetUp();
        std::string whyNot;
        if (!daemon_.Start(whyNot)) {
            GTEST_SKIP() << whyNot;
        }
    }
    void Fail(const std::string& user) const {
        ASSERT_TRUE(daemon_.Log("sshd", "Failed password for " + user + " from 192.0.2.8 port 5 ssh2"));
    }
    void OpenLive() {
        LumString error;
        source_ = std::make_unique<SessionSource>(
            JournalPlace{LumString(daemon_.GetDirectory()), Place().reader}, 0);
        ASSERT_TRUE(source_->Open(error)) << error.GetString();
    }
    /// The users of what has come, once something has.
    std::vector<std::string> NewUsers() {
        std::vector<std::string> events = New();
        while (events.empty() && HasNews()) {
            events = New();
        }
        std::vector<std::string> users;
        for (const std::string& event : events) {
            const std::size_t from = event.find(R"("User":")") + 8;
            users.push_back(event.substr(from, event.find('"', from) - from));
        }
        return users;
    }
    /// Removes what the daemon has put aside.
    [[nodiscard]] std::size_t RemoveArchived() const {
        std::vector<std::filesystem::path> archived;
        for (const auto& entry : std::filesystem::directory_iterator(daemon_.GetDirectory())) {
            if (entry.path().filename().string().starts_with("system@")) {
                archived.push_back(entry.path());
            }
        }
        for (const std::filesystem::path& path : archived) {
            std::filesystem::remove(path);
        }
        return archived.size();
    }

    JournalDaemon daemon_;
};

TEST_F(JournalSourceLive, WhatIsLoggedIsToldAtOnce) {
    Fail("before");
    OpenLive();
    EXPECT_THAT(NewUsers(), ElementsAre("before"));
    Fail("ann");
    EXPECT_THAT(NewUsers(), ElementsAre("ann"));
    ASSERT_TRUE(daemon_.Log("cron", "Failed password for nobody from 192.0.2.8 port 5 ssh2"));
    Fail("bob");
    EXPECT_THAT(NewUsers(), ElementsAre("bob"));
}

TEST_F(JournalSourceLive, ARotationLosesNothingAndGivesNothingTwice) {
    Fail("ann");
    OpenLive();
    EXPECT_THAT(NewUsers(), ElementsAre("ann"));
    daemon_.Rotate();
    Fail("bob");
    EXPECT_THAT(NewUsers(), ElementsAre("bob"));
    OpenLive();
    Fail("eve");
    EXPECT_THAT(NewUsers(), ElementsAre("eve"));
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(JournalSourceLive, WhatTheJournalHasRemovedUnreadIsCounted) {
    Fail("ann");
    OpenLive();
    EXPECT_THAT(NewUsers(), ElementsAre("ann"));
    source_.reset();
    for (const char* const user : {"b", "c", "d"}) {
        Fail(user);
    }
    daemon_.Rotate();
    Fail("eve");
    ASSERT_EQ(RemoveArchived(), 1U);
    OpenLive();
    EXPECT_THAT(NewUsers(), ElementsAre("eve"));
    EXPECT_THAT(
        log_.Said(),
        ElementsAre("warning MachineEvents Sessions: the journal has removed 3 entries before they were "
                    "looked at"));
}

}  // namespace
