#include <algorithm>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "fleet/forward/OutboxDirectory.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Subjects.h"
#include "support/TempDirectory.h"

namespace {

constexpr const char* kDescription = "20261121T011025Z-7-Logon.json";
constexpr const char* kFile = "20261121T011025Z-7-Logon.cbor";
constexpr const char* kContent = "content";
constexpr std::size_t kMaxBytes = 1000;

bool IsControl(char letter) {
    const auto byte = static_cast<unsigned char>(letter);
    return byte < 0x20 || byte == 0x7F;
}

/// What is made of the entry is a message that the broker takes and a collector reads back.
void CheckMessage(const OutboxEntry& entry) {
    const std::string subject = BatchSubject("device", entry.label);
    BatchSubjectParts parts;
    Require(ParseBatchSubject(subject, parts));
    Require(parts.device == "device" && parts.label == SubjectLabel(entry.label));
    const std::string digest(kDigestLength, 'a');
    const Headers headers = MakeHeaders({{"device", digest}, entry.name, entry.label, entry.receivedAt});
    for (const auto& [name, value] : headers) {
        Require(std::none_of(value.begin(), value.end(), IsControl));
    }
    const auto lookup = [&headers](const char* wanted) {
        const auto found = std::find_if(headers.begin(), headers.end(),
                                        [wanted](const auto& header) { return header.first == wanted; });
        return found != headers.end() ? std::string_view(found->second) : std::string_view();
    };
    BatchInfo batch;
    std::string error;
    Require(ReadHeaders(lookup, batch, error));
    Require(batch.name == entry.name && batch.key.digest == digest);
}

}  // namespace

/// Any bytes as the description of a file in the outbox: the entry is ready with exactly that file, or stays,
/// or is refused with a reason, and nothing outside of the outbox is read.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const TempDirectory directory;
    static const std::string secret = directory.Write("secret.cbor", "not for anybody");
    static const std::string file = directory.Write(std::string("outbox/") + kFile, kContent);
    static const OutboxDirectory outbox(directory / "outbox");
    directory.Write(std::string("outbox/") + kDescription, FuzzInput(data, size));
    OutboxEntry entry;
    std::string reason;
    switch (outbox.Load(kDescription, kMaxBytes, entry, reason)) {
        case LoadResult::kReady:
            Require(entry.name == kFile && entry.content == kContent);
            CheckMessage(entry);
            break;
        case LoadResult::kStays:
            Require(reason.empty() && entry.content.empty());
            break;
        case LoadResult::kBad:
            Require(!reason.empty() && entry.content.empty());
            break;
        default:
            Require(false);
    }
    return 0;
}
