#include "fleet/collect/batch/Incoming.h"

#include "fleet/wire/Subjects.h"
#include "host/container/LumContainer.h"
#include "host/text/LumSha256.h"

namespace {

/// What the modules that make the files call them.
constexpr std::string_view kEventsLabel = "EventLogManagerEvents";
constexpr std::string_view kAlertLabel = "EventManagerEvent";

/// The subject's device is the one that the broker has let in; a key may claim anything.
bool CheckKey(const BatchSubjectParts& subject, std::string_view payload, Incoming& incoming) {
    if (incoming.info.key.device != subject.device) {
        incoming.info.key = {subject.device, Sha256Hex(payload)};
        incoming.Reject("it came from this device and its key names another one");
        return false;
    }
    if (SubjectLabel(incoming.info.label) != subject.label) {
        incoming.Reject("its label is not that of its subject");
        return false;
    }
    if (Sha256Hex(payload) != incoming.info.key.digest) {
        incoming.Reject("its digest is not that of its content");
        return false;
    }
    return true;
}

void ReadContent(std::string_view payload, Incoming& incoming) {
    LumContainer container;
    LumString error;
    std::string reason;
    const std::string& device = incoming.info.key.device;
    if (!container.FromCbor(payload, error)) {
        incoming.Reject("it is not a container: " + std::string(error.View()));
    } else if (incoming.info.label == kEventsLabel) {
        if (!ReadEvents(container, device, incoming.content.emplace<EventContent>(), reason)) {
            incoming.Reject(reason);
        }
    } else if (incoming.info.label == kAlertLabel) {
        if (!ReadAlert(container, device, incoming.content.emplace<AlertContent>(), reason)) {
            incoming.Reject(reason);
        }
    } else {
        incoming.Reject("nobody knows what its label stands for");
    }
}

}  // namespace

Incoming ReadMessage(std::string_view subject, const HeaderLookup& headers, std::string_view payload,
                     std::size_t maxBytes) {
    Incoming incoming;
    incoming.subject = subject;
    incoming.bytes = payload.size();
    incoming.payload = payload;
    BatchSubjectParts parts;
    std::string reason;
    if (!ParseBatchSubject(subject, parts)) {
        incoming.info.key.digest = Sha256Hex(payload);
        incoming.Reject("its subject is not that of a batch");
    } else if (!ReadHeaders(headers, incoming.info, reason)) {
        incoming.info.key = {parts.device, Sha256Hex(payload)};
        incoming.Reject(reason);
    } else if (payload.size() > maxBytes) {
        incoming.info.key.device = parts.device;
        incoming.Reject("it has " + std::to_string(payload.size()) + " bytes, more than " +
                        std::to_string(maxBytes));
    } else if (CheckKey(parts, payload, incoming)) {
        ReadContent(payload, incoming);
    }
    return incoming;
}
