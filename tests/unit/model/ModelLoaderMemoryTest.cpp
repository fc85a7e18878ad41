#include <new>

#include <gtest/gtest.h>

#include "host/log/LumDebug.h"
#include "model/ModelLoader.h"
#include "model/ModuleLog.h"
#include "support/LogReader.h"
#include "support/MemoryFault.h"
#include "support/ModelText.h"

namespace {

/// How much memory std::make_shared asks for when it makes a T.
template <class T, class... Args>
std::size_t SizeOf(const Args&... args) {
    const MemoryFault none(0);
    static_cast<void>(std::make_shared<T>(args...));
    return MemoryFault::LargestSize();
}

class ModelLoaderMemory : public testing::Test {
protected:
    ModelLoaderMemory() { ModuleDebug.SetContext(&lines_.Context()); }
    ~ModelLoaderMemory() override { ModuleDebug.SetContext(nullptr); }

    /// Loads a model again and again, each time without another one of the blocks of `size` bytes that it
    /// asks for, the last one first, until a line says so. How many did.
    std::size_t MemoryErrors(std::size_t size) {
        directory_.Write("model.xml", Definition({.name = "N",
                                                  .type = ModelType::kAutomatic,
                                                  .source = "S",
                                                  .aggregation = Policy::kDaily,
                                                  .params = {{"P", ParamType::kString, "P"}},
                                                  .groupedBy = {"P"}}));
        EXPECT_TRUE(LoadWithout(size, 0));
        for (uint64_t turn = MemoryFault::Count(); turn > 0; --turn) {
            try {
                EXPECT_FALSE(LoadWithout(size, turn));
            } catch (const std::bad_alloc&) {
                continue;  // a text or a node of that size: the caller of the module answers for those
            }
            return lines_.Count("error EventLogManager LoadModel: Memory error\n");
        }
        return 0;
    }

    /// Loads the model without the `turn`th of its blocks of `size` bytes.
    bool LoadWithout(std::size_t size, uint64_t turn) const {
        const LumString path = directory_.At("model.xml");
        auto model = std::make_shared<Model_t>("before", "", "", "", "", ModelType::kUser, Policy::kUnknown,
                                               Policy::kUnknown, Policy::kUnknown);
        const MemoryFault fault(turn, size);
        const bool loaded = LoadModel(path, model);
        EXPECT_EQ(loaded, model != nullptr);
        return loaded;
    }

    TempDirectory directory_;
    LogLines lines_;
    const LumString empty_;
};

TEST_F(ModelLoaderMemory, IsMissingForTheModel) {
    EXPECT_EQ(MemoryErrors(SizeOf<Model_t>(empty_, empty_, empty_, empty_, empty_, ModelType::kUser,
                                           Policy::kUnknown, Policy::kUnknown, Policy::kUnknown)),
              1U);
}

TEST_F(ModelLoaderMemory, IsMissingForAParameter) {
    EXPECT_EQ(MemoryErrors(SizeOf<ModelParam_t>(empty_, empty_, ParamType::kString,
                                                AggregationOperation::kNone, empty_)),
              1U);
}

TEST_F(ModelLoaderMemory, IsMissingForAnAggregationEntry) {
    EXPECT_EQ(MemoryErrors(SizeOf<ModelParamAgg_t>(empty_)), 1U);
}

}  // namespace
