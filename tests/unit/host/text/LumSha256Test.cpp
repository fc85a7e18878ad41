#include <cerrno>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/text/LumSha256.h"
#include "support/TempDirectory.h"

namespace {

class LumSha256 : public testing::Test {
protected:
    /// The digest of a file with this content.
    std::string Of(const std::string& content) {
        const FileDescriptor file(open(directory_.Write("file", content).c_str(), O_RDONLY));
        std::string digest;
        EXPECT_TRUE(Sha256OfFile(file.Get(), digest));
        return digest;
    }

    TempDirectory directory_;
};

// The examples of FIPS 180-4.
TEST_F(LumSha256, IsThatOfTheStandardsExamples) {
    EXPECT_EQ(Of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(Of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Of(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST_F(LumSha256, OfBytesIsThatOfAFileWithThem) {
    EXPECT_EQ(Sha256Hex("abc"), Of("abc"));
    EXPECT_EQ(Sha256Hex(""), Of(""));
}

TEST_F(LumSha256, LeavesThePositionWhereItIs) {
    const FileDescriptor file(open(directory_.Write("file", "abc").c_str(), O_RDONLY));
    ASSERT_EQ(lseek(file.Get(), 2, SEEK_SET), 2);
    std::string digest;
    EXPECT_TRUE(Sha256OfFile(file.Get(), digest));
    EXPECT_EQ(digest, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(lseek(file.Get(), 0, SEEK_CUR), 2);
}

TEST_F(LumSha256, FailsForWhatCannotBeRead) {
    const FileDescriptor directory(open(directory_.Path().c_str(), O_RDONLY | O_DIRECTORY));
    std::string digest;
    errno = 0;
    EXPECT_FALSE(Sha256OfFile(directory.Get(), digest));
    EXPECT_EQ(errno, EISDIR);
}

}  // namespace
