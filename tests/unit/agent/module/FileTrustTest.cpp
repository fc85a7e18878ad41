#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/module/FileTrust.h"
#include "support/TempDirectory.h"

namespace {

class FileTrust : public testing::Test {
protected:
    [[nodiscard]] LumString Make(const char* name, mode_t mode) const {
        const std::string path = scratch_.Write(name, "x");
        EXPECT_EQ(::chmod(path.c_str(), mode), 0);
        return LumString(std::string_view(path));
    }
    /// What is wrong with it; empty for nothing.
    [[nodiscard]] static std::string Wrong(const LumString& path) {
        LumString error;
        return IsTrustworthy(path, error) ? "" : std::string(error.View());
    }

    TempDirectory scratch_;
};

TEST_F(FileTrust, HasWhatOnlyTheOwnerMayWrite) {
    EXPECT_EQ(Wrong(Make("a", 0644)), "");
    EXPECT_EQ(Wrong(Make("b", 0600)), "");
    EXPECT_EQ(Wrong(Make("c", 0664)), "") << "the agent's own group";
    EXPECT_EQ(Wrong(LumString("/etc/passwd")), "") << "root's";
}

TEST_F(FileTrust, HasNotWhatOthersMayWrite) {
    const LumString path = Make("a", 0666);
    const std::string text(path.View());
    EXPECT_EQ(Wrong(path), text + " may be written by every user: take that away (chmod o-w '" + text + "')");
    EXPECT_NE(Wrong(path + "x").find(" cannot be looked at: "), std::string::npos);
}

TEST_F(FileTrust, HasNotWhatBelongsToSomebodyElse) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    const LumString path = Make("a", 0600);
    ASSERT_EQ(::chown(path.GetString(), 4242, 0), 0);
    const std::string text(path.View());
    EXPECT_EQ(Wrong(path),
              text + " belongs to user 4242, who could change it: give it to the agent's own (chown 0 '" +
                  text + "')");
    const LumString shared = Make("b", 0660);
    ASSERT_EQ(::chown(shared.GetString(), 0, 4343), 0);
    EXPECT_NE(Wrong(shared).find("may be written by the members of group 4343"), std::string::npos);
}

TEST_F(FileTrust, CoversEveryIniFileOfTheConfiguration) {
    static_cast<void>(Make("config/agent.ini", 0600));
    static_cast<void>(Make("config/notes", 0666));
    const LumString directory(std::string_view(scratch_ / "config"));
    LumString error;
    EXPECT_TRUE(IsTrustworthyConfiguration(directory, error)) << error.GetString();
    static_cast<void>(Make("config/Other.ini", 0602));
    EXPECT_FALSE(IsTrustworthyConfiguration(directory, error));
    EXPECT_NE(error.View().find("config/Other.ini may be written by every user"), std::string::npos);
    ASSERT_EQ(::chmod(directory.GetString(), 0777), 0);
    EXPECT_FALSE(IsTrustworthyConfiguration(directory, error));
    EXPECT_NE(error.View().find("config may be written by every user"), std::string::npos);
}

}  // namespace
