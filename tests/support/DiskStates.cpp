#include "support/DiskStates.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "support/TempDirectory.h"
#include "support/TestAgent.h"

namespace {

namespace fs = std::filesystem;
using Kind = DiskCall::Kind;

constexpr std::size_t kSector = 512;

uint64_t InodeOf(const fs::path& path) {
    struct stat status {};
    Require(lstat(path.c_str(), &status) == 0, "look at " + path.string());
    return status.st_ino;
}

void WriteBytes(std::string& content, uint64_t offset, std::string_view bytes) {
    content.resize(std::max<std::size_t>(content.size(), offset + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), content.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

/// One loss of power.
class DiskStates::Loss {
public:
    Loss(const DiskStates& states, std::size_t count, uint64_t seed)
        : states_(states), count_(count), random_(seed) {
        constexpr Fate kFates[] = {Fate::kNothing, Fate::kEverything, Fate::kParts, Fate::kTorn};
        const uint64_t choice = random_() % 6;
        isMixed_ = choice >= 4;
        fate_ = kFates[choice % 4];
    }

    void Build(const fs::path& target) {
        names_.resize(states_.objects_.size());
        for (std::size_t i = 0; i < names_.size(); ++i) {
            names_[i] = states_.objects_[i].names;
        }
        ApplyNames();
        Materialise(0, target);
    }

private:
    [[nodiscard]] Fate PickFate() {
        constexpr Fate kFates[] = {Fate::kNothing, Fate::kEverything, Fate::kParts, Fate::kTorn};
        return isMixed_ ? kFates[random_() % 4] : fate_;
    }

    [[nodiscard]] bool Toss() { return random_() % 2 == 0; }

    void ApplyNames() {
        const Fate fate = PickFate();
        const std::size_t torn = fate == Fate::kTorn ? random_() % (count_ + 1) : 0;
        std::vector<std::size_t> certain(states_.objects_.size(), 0);
        for (std::size_t i = 0; i < certain.size(); ++i) {
            certain[i] = states_.objects_[i].isDirectory ? states_.CertainCalls(i, count_) : 0;
        }
        for (std::size_t i = 0; i < count_; ++i) {
            const Parties& parties = states_.parties_[i];
            const bool isCertain = (parties.from != kNobody && i < certain[parties.from]) ||
                                   (parties.to != kNobody && i < certain[parties.to]);
            if (parties.from == kNobody && parties.to == kNobody) {
                continue;
            }
            if (isCertain || fate == Fate::kEverything || (fate == Fate::kTorn && i < torn) ||
                (fate == Fate::kParts && Toss())) {
                Apply(states_.calls_[i], parties);
            }
        }
    }

    void Apply(const DiskCall& call, const Parties& parties) {
        if (parties.from != kNobody) {
            Names& names = names_[parties.from];
            const auto found = names.find(call.fromName);
            if (found != names.end() && (call.kind != Kind::kRename || found->second == parties.file)) {
                names.erase(found);
            }
        }
        if (parties.to != kNobody) {
            names_[parties.to][call.toName] = parties.file;
        }
    }

    [[nodiscard]] std::string ContentOf(std::size_t object) {
        const Object& file = states_.objects_[object];
        const std::size_t certain = states_.CertainCalls(object, count_);
        const Fate fate = PickFate();
        std::string content = file.content;
        const auto end = std::lower_bound(file.calls.begin(), file.calls.end(), count_);
        const auto begin = std::lower_bound(file.calls.begin(), end, certain);
        for (auto call = file.calls.begin(); call != begin; ++call) {
            ApplyWhole(states_.calls_[*call], content);
        }
        const auto left = static_cast<std::size_t>(end - begin);
        const std::size_t whole = fate == Fate::kEverything ? left
                                  : fate == Fate::kTorn     ? random_() % (left + 1)
                                                            : 0;
        for (std::size_t i = 0; i < left; ++i) {
            const DiskCall& call = states_.calls_[begin[static_cast<std::ptrdiff_t>(i)]];
            if (i < whole) {
                ApplyWhole(call, content);
            } else if (fate == Fate::kParts) {
                ApplyParts(call, content);
            } else if (fate == Fate::kTorn && i == whole && call.kind == Kind::kWrite) {
                WriteBytes(content, call.offset,
                           std::string_view(call.bytes).substr(0, random_() % (call.bytes.size() + 1)));
            }
        }
        return content;
    }

    static void ApplyWhole(const DiskCall& call, std::string& content) {
        if (call.kind == Kind::kTruncate) {
            content.resize(call.offset);
        } else {
            WriteBytes(content, call.offset, call.bytes);
        }
    }

    void ApplyParts(const DiskCall& call, std::string& content) {
        if (call.kind == Kind::kTruncate) {
            if (Toss()) {
                content.resize(call.offset);
            }
            return;
        }
        for (std::size_t at = 0; at < call.bytes.size();) {
            const std::size_t length =
                std::min<std::size_t>(kSector - (call.offset + at) % kSector, call.bytes.size() - at);
            if (Toss()) {
                WriteBytes(content, call.offset + at, std::string_view(call.bytes).substr(at, length));
            }
            at += length;
        }
    }

    void Materialise(std::size_t object, const fs::path& target) {
        if (!states_.objects_[object].isDirectory) {
            const FileDescriptor made(open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
            Require(made.IsOpen() && FileWriteAll(made.Get(), ContentOf(object)), "write " + target.string());
            return;
        }
        Require(mkdir(target.c_str(), 0700) == 0, "make " + target.string());
        for (const auto& [name, entry] : names_[object]) {
            if (!name.ends_with("-shm")) {
                Materialise(entry, target / name);
            }
        }
    }

    const DiskStates& states_;
    const std::size_t count_;
    std::mt19937_64 random_;
    bool isMixed_ = false;
    Fate fate_ = Fate::kNothing;
    std::vector<Names> names_;
};

DiskStates::DiskStates(const fs::path& directory) {
    static_cast<void>(AddExisting(directory));
}

std::size_t DiskStates::AddExisting(const fs::path& path) {
    const std::size_t object = objects_.size();
    byInode_[InodeOf(path)] = object;
    const bool isDirectory = fs::is_directory(path);
    objects_.push_back({.isDirectory = isDirectory});
    if (!isDirectory) {
        objects_.back().content = ReadWholeFile(path.string());
        return object;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        const std::size_t added = AddExisting(entry.path());
        objects_[object].names[entry.path().filename().string()] = added;
    }
    return object;
}

std::size_t DiskStates::Find(uint64_t inode) const {
    const auto found = byInode_.find(inode);
    return found == byInode_.end() ? kNobody : found->second;
}

void DiskStates::Take(std::vector<DiskCall> calls, bool ignoreSyncs) {
    calls_ = std::move(calls);
    for (std::size_t i = 0; i < calls_.size(); ++i) {
        const DiskCall& call = calls_[i];
        const bool makes = call.kind == Kind::kMake || call.kind == Kind::kMakeDirectory;
        if (makes) {
            byInode_[call.file] = objects_.size();
            objects_.push_back({.isDirectory = call.kind == Kind::kMakeDirectory});
        }
        const bool moves = call.kind == Kind::kRename || call.kind == Kind::kLink;
        const std::size_t file = Find(call.file);
        parties_.push_back({file, moves || call.kind == Kind::kRemove ? Find(call.from) : kNobody,
                            moves || makes ? Find(call.to) : kNobody});
        if (file == kNobody) {
            continue;
        }
        if (call.kind == Kind::kWrite || call.kind == Kind::kTruncate) {
            objects_[file].calls.push_back(i);
        } else if (call.kind == Kind::kSync && !ignoreSyncs) {
            objects_[file].syncs.push_back(i);
        }
    }
}

std::size_t DiskStates::CertainCalls(std::size_t object, std::size_t count) const {
    std::size_t certain = 0;
    for (const std::size_t sync : objects_[object].syncs) {
        if (sync < count) {
            certain = std::max<std::size_t>(certain, calls_[sync].offset);
        }
    }
    return certain;
}

void DiskStates::Build(std::size_t count, uint64_t seed, const fs::path& target) const {
    Loss(*this, count, seed).Build(target);
}
