#include <cstdint>
#include <memory>
#include <string_view>

#include "FuzzTarget.h"
#include "model/ModelLoader.h"
#include "support/TempDirectory.h"

/// Any bytes as a definition file: refused with no model, or a model that is complete and the same whenever
/// it is read.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const TempDirectory directory;
    const LumString path(std::string_view(directory.Write("Any.xml", FuzzInput(data, size))));
    std::shared_ptr<Model_t> model;
    if (!LoadModel(path, model)) {
        Require(model == nullptr);
        return 0;
    }
    Require(model != nullptr);
    Require(model->GetParams().GetCount() > 0);
    std::shared_ptr<Model_t> again;
    Require(LoadModel(path, again));
    Require(again->GetName() == model->GetName());
    Require(again->GetChecksum() == model->GetChecksum());
    return 0;
}
