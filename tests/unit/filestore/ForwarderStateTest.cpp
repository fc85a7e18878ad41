#include <string>

#include <gtest/gtest.h>

#include "filestore/ForwarderState.h"
#include "support/TempDirectory.h"

namespace {

/// What is read from a state file of that content; "nothing" where it is not taken.
std::string StateOf(std::string_view content) {
    const TempDirectory outbox;
    outbox.Write(".lumforward.json", content);
    LumContainer state;
    if (!ReadForwarderState(outbox / ".", state)) {
        return "nothing";
    }
    return state.ToJson();
}

TEST(ForwarderState, IsReadWhole) {
    EXPECT_EQ(
        StateOf(R"({"Device": "alpha", "Connected": true, "Entries": 4, "Bytes": 5000000000, "Oldest": 7,
                          "Unconfirmed": 3, "Confirmed": 5000000000, "SetAside": 1, "LastReceipt": 1795000000,
                          "LastError": "none", "UpdatedAt": 1795000001})"),
        R"({"device":"alpha","connected":true,"unconfirmed":3,"confirmed":5000000000.0,"setAside":1,)"
        R"("lastReceipt":1795000000,"lastError":"none","updatedAt":1795000001})");
}

TEST(ForwarderState, LeavesOutWhatIsNotThereOrOfAnotherKind) {
    EXPECT_EQ(
        StateOf(R"({"Connected": false, "Device": 5, "Unconfirmed": "3", "Confirmed": -1, "LastError": ""})"),
        R"({"connected":false})");
}

TEST(ForwarderState, IsNothingInAFileOfAnotherKind) {
    for (const char* content : {"", "{", "[]", "5", "{}", R"({"Connected": 1})"}) {
        EXPECT_EQ(StateOf(content), "nothing") << content;
    }
    EXPECT_EQ(StateOf(R"({"Connected": true, "Device": ")" + std::string(70'000, 'x') + "\"}"), "nothing");
}

TEST(ForwarderState, IsNothingWhereNoForwarderHasRun) {
    const TempDirectory outbox;
    LumContainer state;
    EXPECT_FALSE(ReadForwarderState(outbox / ".", state));
}

}  // namespace
