#include "fleet/broker/Stream.h"

#include <algorithm>

#include "fleet/broker/internal/Handles.h"

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kMostReplicas = 3;

using StreamInfo = NatsOwner<jsStreamInfo, jsStreamInfo_Destroy>;
using ConsumerInfo = NatsOwner<jsConsumerInfo, jsConsumerInfo_Destroy>;

bool OpenJetStream(Broker& broker, JetStream& context, std::string& error) {
    jsCtx* opened = nullptr;
    const natsStatus status = natsConnection_JetStream(&opened, broker.GetHandle().connection.get(), nullptr);
    context.reset(opened);
    if (status != NATS_OK) {
        error = NatsFailure("Cannot use the broker's streams", status);
    }
    return status == NATS_OK;
}

/// The configuration of the stream; `subject` must live as long as it.
jsStreamConfig StreamConfig(const StreamSettings& settings, const char** subject, int64_t replicas) {
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = settings.name.c_str();
    config.Subjects = subject;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Retention = js_LimitsPolicy;
    config.Discard = js_DiscardOld;
    config.MaxBytes = settings.maxBytes;
    config.MaxAge = settings.maxAgeSeconds * kNsPerSecond;
    config.MaxMsgSize = settings.maxMessageBytes;
    config.MaxMsgsPerSubject = settings.maxMessagesOfSubject;
    config.Duplicates = settings.duplicateSeconds * kNsPerSecond;
    config.Replicas = replicas;
    return config;
}

jsConsumerConfig ReaderConfig(const StreamSettings& settings) {
    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.Durable = settings.consumer.c_str();
    config.AckPolicy = js_AckExplicit;
    config.AckWait = settings.ackWaitSeconds * kNsPerSecond;
    config.MaxAckPending = settings.maxUnacknowledged;
    return config;
}

bool MakeConsumer(jsCtx* context, const StreamSettings& settings, jsConsumerConfig& config,
                  std::string& error) {
    jsConsumerInfo* info = nullptr;
    const natsStatus status =
        js_AddConsumer(&info, context, settings.name.c_str(), &config, nullptr, nullptr);
    const ConsumerInfo owner(info);
    if (status != NATS_OK) {
        error = NatsFailure("Cannot make the consumer " + settings.consumer, status);
    }
    return status == NATS_OK;
}

/// Makes the stream with as many replicas as the cluster takes.
bool MakeStream(jsCtx* context, const StreamSettings& settings, std::string& error) {
    const char* subject = settings.subjects.c_str();
    int64_t replicas = settings.replicas > 0 ? settings.replicas : kMostReplicas;
    for (;; --replicas) {
        jsStreamConfig config = StreamConfig(settings, &subject, replicas);
        const natsStatus status = js_AddStream(nullptr, context, &config, nullptr, nullptr);
        if (status == NATS_OK) {
            return true;
        }
        if (settings.replicas > 0 || replicas == 1) {
            error = NatsFailure("Cannot make the stream " + settings.name, status);
            return false;
        }
    }
}

}  // namespace

bool SetUpStream(Broker& broker, const StreamSettings& settings, bool& made, std::string& error) {
    JetStream context;
    if (!OpenJetStream(broker, context, error)) {
        return false;
    }
    jsStreamInfo* found = nullptr;
    const natsStatus status =
        js_GetStreamInfo(&found, context.get(), settings.name.c_str(), nullptr, nullptr);
    const StreamInfo info(found);
    made = status == NATS_NOT_FOUND;
    if (status != NATS_OK && !made) {
        error = NatsFailure("Cannot ask for the stream " + settings.name, status);
        return false;
    }
    if (made) {
        if (!MakeStream(context.get(), settings, error)) {
            return false;
        }
    } else {
        const char* subject = settings.subjects.c_str();
        const int64_t replicas = settings.replicas > 0 ? settings.replicas : info->Config->Replicas;
        jsStreamConfig config = StreamConfig(settings, &subject, replicas);
        if (const natsStatus updated = js_UpdateStream(nullptr, context.get(), &config, nullptr, nullptr);
            updated != NATS_OK) {
            error = NatsFailure("Cannot change the stream " + settings.name, updated);
            return false;
        }
    }
    jsConsumerInfo* consumer = nullptr;
    const natsStatus known = js_GetConsumerInfo(&consumer, context.get(), settings.name.c_str(),
                                                settings.consumer.c_str(), nullptr, nullptr);
    const ConsumerInfo owner(consumer);
    jsConsumerConfig config = ReaderConfig(settings);
    return known == NATS_OK || MakeConsumer(context.get(), settings, config, error);
}

bool ReadStreamState(Broker& broker, const std::string& stream, const std::string& consumer,
                     StreamState& state, std::string& error) {
    JetStream context;
    if (!OpenJetStream(broker, context, error)) {
        return false;
    }
    jsStreamInfo* foundStream = nullptr;
    jsConsumerInfo* foundConsumer = nullptr;
    natsStatus status =
        js_GetConsumerInfo(&foundConsumer, context.get(), stream.c_str(), consumer.c_str(), nullptr, nullptr);
    const ConsumerInfo reader(foundConsumer);
    if (status == NATS_OK) {
        // Asked for last: its numbers are then not older than the consumer's.
        status = js_GetStreamInfo(&foundStream, context.get(), stream.c_str(), nullptr, nullptr);
    }
    const StreamInfo info(foundStream);
    if (status != NATS_OK) {
        error = NatsFailure("Cannot ask for the stream " + stream, status);
        return false;
    }
    state.firstSequence = info->State.FirstSeq;
    state.lastSequence = info->State.LastSeq;
    state.createdNs = info->Created;
    state.replicas = info->Config->Replicas;
    state.doneSequence = reader->AckFloor.Stream;
    state.pending = reader->NumPending + static_cast<uint64_t>(std::max<int64_t>(reader->NumAckPending, 0));
    return true;
}

bool RewindConsumer(Broker& broker, const StreamSettings& settings, uint64_t sequence, std::string& error) {
    JetStream context;
    if (!OpenJetStream(broker, context, error)) {
        return false;
    }
    const natsStatus status =
        js_DeleteConsumer(context.get(), settings.name.c_str(), settings.consumer.c_str(), nullptr, nullptr);
    if (status != NATS_OK && status != NATS_NOT_FOUND) {
        error = NatsFailure("Cannot take the consumer " + settings.consumer + " away", status);
        return false;
    }
    jsConsumerConfig config = ReaderConfig(settings);
    config.DeliverPolicy = js_DeliverByStartSequence;
    config.OptStartSeq = std::max<uint64_t>(sequence, 1);
    return MakeConsumer(context.get(), settings, config, error);
}
