#include <nlohmann/json.hpp>

#include "FuzzTarget.h"
#include "host/container/LumContainer.h"
#include "host/text/LumUtf8.h"

/// Any bytes as a container file: refused with a sentence and nothing changed, or read into a container that
/// survives being written and read again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    LumContainer container;
    container.SetBool("Kept", true);
    const LumContainer before = container;
    LumString error;
    if (!container.FromCbor(FuzzInput(data, size), error)) {
        Require(container == before);
        Require(!error.IsEmpty() && LumIsUtf8(error.View()));
        return 0;
    }
    const std::string bytes = container.ToCbor();
    Require(bytes.size() <= size);
    LumContainer again;
    Require(again.FromCbor(bytes, error));
    Require(again == container);
    Require(again.ToCbor() == bytes);
    const std::string json = container.ToJson();
    Require(nlohmann::json::accept(json));
    Require(again.FromJson(json, error));
    return 0;
}
