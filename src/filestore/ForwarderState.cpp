#include "filestore/ForwarderState.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "contract/FileStore.h"
#include "host/core/LumMetrics.h"
#include "host/file/LumFile.h"

namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxBytes = 64U << 10U;

void PutText(const Json& from, const char* key, LumContainer& state, const char* name) {
    const auto text = from.find(key);
    if (text != from.end() && text->is_string() && !text->get_ref<const std::string&>().empty()) {
        state.SetString(name, LumString(text->get_ref<const std::string&>()));
    }
}

void PutNumber(const Json& from, const char* key, LumContainer& state, const char* name) {
    const auto number = from.find(key);
    if (number != from.end() && number->is_number_unsigned()) {
        LumStatusSetNumber(state, name, number->get<uint64_t>());
    }
}

}  // namespace

bool ReadForwarderState(const std::string& outbox, LumContainer& state) {
    std::string text;
    LumString error;
    if (!FileRead(LumString(outbox + "/" + kForwarderStateName), kMaxBytes, text, error)) {
        return false;
    }
    const Json from = Json::parse(text, nullptr, false);
    const auto connected = from.is_object() ? from.find("Connected") : from.end();
    if (connected == from.end() || !connected->is_boolean()) {
        return false;
    }
    PutText(from, "Device", state, "device");
    state.SetBool("connected", connected->get<bool>());
    PutNumber(from, "Unconfirmed", state, "unconfirmed");
    PutNumber(from, "Confirmed", state, "confirmed");
    PutNumber(from, "SetAside", state, "setAside");
    PutNumber(from, "LastReceipt", state, "lastReceipt");
    PutText(from, "LastError", state, "lastError");
    PutNumber(from, "UpdatedAt", state, "updatedAt");
    return true;
}
