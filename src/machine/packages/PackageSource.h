#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/file/FileDescriptor.h"
#include "host/text/LumString.h"
#include "machine/packages/LogFile.h"
#include "machine/source/Models.h"
#include "machine/source/Source.h"

/// The package manager's log with its rotations (`<log>.1`, `<log>.2.gz`, ...): one event a package that was
/// installed, upgraded, removed or purged.
///
/// The position is where a line ends, in a file that is known by its content: so it is found again when the
/// file has been given another name or was compressed. Where it is found nowhere the log was replaced or cut,
/// and the source begins anew.
class PackageSource : public Source {
public:
    /// `log` is the path of the log; lines of before `oldest` are left out.
    PackageSource(const LumString& log, std::time_t oldest);

    [[nodiscard]] const char* GetName() const override { return "Packages"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override { return {models::kPackageHistory}; }
    [[nodiscard]] bool Open(LumString& error) override;
    [[nodiscard]] bool ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                                 LumString& error) override;
    [[nodiscard]] int GetDescriptor() const override { return notify_.Get(); }
    [[nodiscard]] uint32_t GetWaitMs() const override;

private:
    /// A place in the log; see PackageSource.cpp for its text.
    struct Place;

    /// The paths of the log's files, the oldest first.
    [[nodiscard]] std::vector<LumString> ListFiles() const;
    [[nodiscard]] bool EnsurePlace(const std::string& position, SourceBatch& batch, LumString& error);
    [[nodiscard]] bool OpenAt(const LumString& path, const Place& place);
    [[nodiscard]] bool OpenOldest(LumString& error);
    /// True where the file at hand is no longer what it was when the position was made.
    [[nodiscard]] bool IsCut();
    void ReadLines(std::size_t limit, SourceBatch& batch);
    /// Goes on with the file after the present one; false where that is the newest with a line in it.
    [[nodiscard]] bool GoToNextFile(SourceBatch& batch);
    void TakeLine(std::string_view line, uint64_t begin, SourceBatch& batch);
    /// How often the very same line has been in its second, with this one; 0 for a line of no concern.
    [[nodiscard]] uint32_t CountLine(std::string_view line, uint64_t begin);
    [[nodiscard]] std::string PositionText();
    void WatchFile();
    void ForgetNews() const;

    const LumString log_;
    const std::time_t oldest_;

    FileDescriptor notify_;
    int fileWatch_ = -1;

    std::unique_ptr<LogFile> file_;
    std::string position_;  ///< that of file_; another one makes the source look for its place
    /// Lines may be the same to the second: how often each stood in the present second, and where it began.
    std::string second_;
    uint64_t secondBegin_ = 0;
    std::unordered_map<uint64_t, uint32_t> timesInSecond_;
    bool isAstray_ = false;  ///< the file's place is to be looked for anew
    uint64_t skipped_ = 0;
};
