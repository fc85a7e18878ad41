// Whoever can log can write anything: what each source that reads the journal makes of it.

#include <ctime>
#include <functional>
#include <memory>
#include <ostream>
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

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

/// A source, and an entry that it believes, whose writer chose the text in one of the fields.
struct Kind {
    const char* name;
    std::function<std::unique_ptr<JournalSource>(const JournalPlace&)> make;
    std::function<JournalFile::Fields(const std::string& text)> entry;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

template <class Made>
std::unique_ptr<JournalSource> Make(const JournalPlace& place) {
    return std::make_unique<Made>(place, 0);
}

const Kind kKinds[] = {
    {"Sessions", Make<SessionSource>,
     [](const std::string& text) {
         return JournalFile::Fields{
             {"_UID", "0"},
             {"_COMM", "sshd"},
             {"_PID", "7"},
             {"MESSAGE", "Failed password for " + text + " from 192.0.2.8 port 5 ssh2"}};
     }},
    {"Machine", Make<StateSource>,
     [](const std::string& text) {
         return JournalFile::Fields{{"_UID", "0"},
                                    {"_COMM", "systemd-sleep"},
                                    {"_PID", "7"},
                                    {"MESSAGE_ID", SD_MESSAGE_SLEEP_START_STR},
                                    {"SLEEP", text}};
     }},
    {"Services", Make<ServiceSource>,
     [](const std::string& text) {
         return JournalFile::Fields{{"_UID", "0"},
                                    {"_PID", "1"},
                                    {"MESSAGE_ID", SD_MESSAGE_UNIT_FAILURE_RESULT_STR},
                                    {"UNIT", text}};
     }},
};

class JournalSourceHostile : public JournalSourceTest, public testing::WithParamInterface<Kind> {
protected:
    /// The events of what was added.
    std::vector<std::string> Events() {
        Write();
        source_ = GetParam().make(Place());
        EXPECT_TRUE(source_->Open(error_)) << error_.GetString();
        return New();
    }
    void AddWith(const std::string& text, int64_t seconds = kMoment) { Add(GetParam().entry(text), seconds); }
};

TEST_P(JournalSourceHostile, OrdinaryTextIsAnEvent) {
    AddWith("ann");
    const std::vector<std::string> events = Events();
    ASSERT_THAT(events, SizeIs(1));
    EXPECT_THAT(events[0], HasSubstr("\"ann\""));
}

TEST_P(JournalSourceHostile, AMegabyteIsCutWithAMarkOrIsNoEvent) {
    AddWith(std::string(1 << 20, 'x'));
    AddWith(std::string(1000, 'y'));
    const std::vector<std::string> events = Events();
    ASSERT_THAT(events, Not(IsEmpty()));
    for (const std::string& event : events) {
        EXPECT_LT(event.size(), 600U);
        EXPECT_THAT(event, HasSubstr("…\""));
    }
}

TEST_P(JournalSourceHostile, ControlCharactersAndBrokenUtf8AreReplaced) {
    AddWith(std::string("a\0b\n\x1b[2J\xff\xc3(\u202E", 14));
    const std::vector<std::string> events = Events();
    ASSERT_THAT(events, SizeIs(1));
    EXPECT_THAT(events[0], HasSubstr("a\uFFFDb\uFFFD\uFFFD[2J\uFFFD\uFFFD(\uFFFD"));
}

TEST_P(JournalSourceHostile, AnEntryWithoutOneOfItsFieldsIsNoEventOrLessOfOne) {
    const JournalFile::Fields whole = GetParam().entry("ann");
    for (std::size_t i = 0; i < whole.size(); ++i) {
        JournalFile::Fields fields = whole;
        fields.erase(fields.begin() + static_cast<std::ptrdiff_t>(i));
        Add(fields);
    }
    for (const std::string& event : Events()) {
        EXPECT_LT(event.size(), 200U);
    }
}

TEST_P(JournalSourceHostile, AnEntryThatNamesItsWriterTwiceIsNotBelieved) {
    for (const auto& [name, value] : GetParam().entry("ann")) {
        if (name == "_UID" || name == "_COMM" || (name == "_PID" && value == "1") || name == "MESSAGE_ID") {
            JournalFile::Fields fields = GetParam().entry("ann");
            fields.emplace_back(name, "other");
            Add(fields);
        }
    }
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_P(JournalSourceHostile, AnEntryOfAnOrdinaryUserIsNotBelieved) {
    JournalFile::Fields fields = GetParam().entry("ann");
    fields[0].second = "1000";
    Add(fields);
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_P(JournalSourceHostile, AMomentOfAWrongClockIsTheTimeOfReading) {
    const std::time_t before = std::time(nullptr);
    AddWith("ann", int64_t{before} + 30 * 86400);
    AddWith("bob", 20'000'000'000);
    EXPECT_THAT(Events(), SizeIs(2));
    for (const int32_t time : times_) {
        EXPECT_GE(time, before);
        EXPECT_LE(time, std::time(nullptr));
    }
}

INSTANTIATE_TEST_SUITE_P(Sources, JournalSourceHostile, testing::ValuesIn(kKinds),
                         [](const testing::TestParamInfo<Kind>& kind) { return kind.param.name; });

}  // namespace
