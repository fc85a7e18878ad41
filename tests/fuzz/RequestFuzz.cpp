#include <nlohmann/json.hpp>

#include "FuzzTarget.h"
#include "host/container/LumContainer.h"
#include "host/text/LumUtf8.h"

/// Any bytes as the body of a request: refused with a sentence and nothing changed, or JSON that comes back
/// the same from JSON and from a container file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view body = FuzzInput(data, size);
    LumContainer container;
    container.SetBool("Kept", true);
    const LumContainer before = container;
    LumString error;
    if (!container.FromJson(body, error)) {
        Require(container == before);
        Require(!error.IsEmpty() && LumIsUtf8(error.View()));
        return 0;
    }
    Require(body.empty() || nlohmann::json::accept(body));
    const std::string json = container.ToJson();
    Require(nlohmann::json::accept(json));
    LumContainer again;
    Require(again.FromJson(json, error));
    Require(again == container);
    Require(again.ToJson() == json);
    LumContainer fromFile;
    Require(fromFile.FromCbor(container.ToCbor(), error));
    Require(fromFile == container);
    Require(fromFile.ToJson() == json);
    return 0;
}
