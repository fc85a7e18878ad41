#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "host/log/LumDebug.h"
#include "model/ModelLoader.h"
#include "model/ModuleLog.h"
#include "support/LogLines.h"

namespace {

/// Allocations of this size are counted, and the one whose turn it is fails; none fails while that is 0.
std::atomic<std::size_t> watchedSize{0};
std::atomic<uint32_t> watchedCount{0};
std::atomic<uint32_t> failingTurn{0};
std::atomic<std::size_t> largestSize{0};

void* Allocate(std::size_t size) {
    if (size > largestSize) {
        largestSize = size;
    }
    const bool fails = size == watchedSize && ++watchedCount == failingTurn;
    void* const memory = fails ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

// The program's own allocator, so that memory can run out where a test wants it. Inlined, the two halves of a
// pair would look to the compiler as if they did not belong together.
[[gnu::noinline]] void* operator new(std::size_t size) {
    return Allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

/// How much memory std::make_shared asks for when it makes a T.
template <class T, class... Args>
std::size_t SizeOf(const Args&... args) {
    largestSize = 0;
    static_cast<void>(std::make_shared<T>(args...));
    return largestSize;
}

struct Unwatched {
    ~Unwatched() { watchedSize = 0; }
};

class ModelLoaderMemory : public testing::Test {
protected:
    ModelLoaderMemory() { ModuleDebug.SetContext(&lines_.Context()); }
    ~ModelLoaderMemory() override { ModuleDebug.SetContext(nullptr); }

    /// Loads a model again and again, each time without another one of the blocks of `size` bytes that it
    /// asks for, the last one first, until a line says so. How many did.
    std::size_t MemoryErrors(std::size_t size) {
        directory_.Write(
            "model.xml",
            "<MODEL><NAME>N</NAME><CLASS>c</CLASS><NOTE>n</NOTE><SEVERITY>1</SEVERITY>"
            "<TYPE>_EVENTLOG_MODELTYPE_AUTO_</TYPE><SOURCE>S</SOURCE>"
            "<AGGREGATION-POLICY>_DAILY_</AGGREGATION-POLICY><UPLOAD-POLICY>_DAILY_</UPLOAD-POLICY>"
            "<DELETION-POLICY>_DAILY_</DELETION-POLICY><PARAMS><PARAM><NAME>P</NAME>"
            "<TYPE>_STRING_</TYPE><SOURCE>P</SOURCE></PARAM></PARAMS>"
            "<AGGREGATION><NAME>P</NAME></AGGREGATION></MODEL>");
        EXPECT_TRUE(LoadWithout(size, 0));
        for (uint32_t turn = watchedCount; turn > 0; --turn) {
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
    bool LoadWithout(std::size_t size, uint32_t turn) const {
        const LumString path = directory_.At("model.xml");
        auto model = std::make_shared<Model_t>("before", "", "", "", "", ModelType::kUser, Policy::kUnknown,
                                               Policy::kUnknown, Policy::kUnknown);
        watchedCount = 0;
        failingTurn = turn;
        watchedSize = size;
        const Unwatched afterwards;
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
