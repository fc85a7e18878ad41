#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "filestore/OutboxHealth.h"
#include "support/TempDirectory.h"
#include "support/WaitFor.h"

namespace fs = std::filesystem;

namespace {

class OutboxHealthTest : public testing::Test {
protected:
    void Open() {
        Outbox::LeftOvers leftOvers;
        LumString error;
        static_cast<void>(outbox_.Open(directory_.At("outbox"), directory_.At("number"), leftOvers, error));
    }
    /// Hands a file over and tells the outcome, as the action does.
    void Receive(const std::string& content = "abc") {
        ReceivedFile file;
        file.movePath = LumString(directory_.Write("made", content));
        if (outbox_.Receive(file).outcome == Received::Outcome::kDone) {
            health_.NoteTaken();
        } else {
            health_.NoteFailure(file);
        }
    }
    std::string Check() { return health_.Check().GetString(); }

    TempDirectory directory_;
    Outbox outbox_;
    OutboxHealth health_{outbox_};
};

TEST_F(OutboxHealthTest, IsBackWithoutAFileOnceTheCauseIsGone) {
    Open();
    EXPECT_EQ(Check(), "");
    fs::remove(directory_ / "outbox");
    const std::string inTheWay = directory_.Write("outbox", "");
    Receive();
    EXPECT_EQ(Check(), "The outbox cannot take files: " + inTheWay + ": it cannot be made: Not a directory.");
    fs::remove(inTheWay);
    EXPECT_EQ(Check(), "");
    EXPECT_EQ(Check(), "");
}

TEST_F(OutboxHealthTest, LooksForANumberForTheNextFile) {
    Open();
    fs::create_directories(directory_ / "number/in/the/way");
    Receive();
    EXPECT_NE(Check().find("The outbox cannot take files: "), std::string::npos);
    fs::remove_all(directory_ / "number");
    EXPECT_EQ(Check(), "");
}

TEST_F(OutboxHealthTest, IsFullUntilFilesWereTaken) {
    outbox_.SetMaxBytes(5200);
    Open();
    const std::string kilobyte(1000, 'x');
    for (int i = 0; i < 3; ++i) {
        Receive(kilobyte);
    }
    EXPECT_EQ(Check(), "");
    Receive(kilobyte);
    EXPECT_EQ(Check(), "The outbox cannot take files: it is full.");
    for (const fs::directory_entry& entry : fs::directory_iterator(directory_ / "outbox")) {
        fs::remove(entry.path());
    }
    EXPECT_TRUE(WaitFor([this] { return Check().empty(); })) << Check();
}

TEST_F(OutboxHealthTest, IsWellOnceAFileWasTaken) {
    Open();
    health_.NoteFailure({});
    Receive();
    EXPECT_EQ(Check(), "");
}

}  // namespace
