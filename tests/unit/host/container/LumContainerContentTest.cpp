#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/container/LumContainer.h"

// What the content shared by copies must stand: threads, many names, long lists, deep nesting.

namespace {

LumString NameOf(uint32_t number) {
    return LumString("Name" + std::to_string(number));
}

LumContainer Numbered(uint32_t names) {
    LumContainer container;
    for (uint32_t i = 0; i < names; ++i) {
        container.SetInt32(NameOf(i), i);
    }
    return container;
}

/// True where the names first, first + step, ... below `end` are there in order with their own numbers.
bool IsNumbered(const LumContainer& container, uint32_t first, uint32_t end, uint32_t step) {
    uint32_t at = 0;
    for (uint32_t i = first; i < end; i += step, ++at) {
        LumString name;
        uint32_t value = 0;
        if (!container.GetNameAt(at, name) || name != NameOf(i) || !container.GetInt32(name, value) ||
            value != i) {
            return false;
        }
    }
    return container.CountNames() == at;
}

LumContainer Nested(uint32_t depth) {
    LumContainer container;
    for (uint32_t i = 0; i < depth; ++i) {
        LumContainer outer;
        outer.SetContainer("Inner", std::move(container), i % 2 == 0 ? kLumSingleValue : 0);
        container = std::move(outer);
    }
    return container;
}

}  // namespace

TEST(LumContainerContent, CopiesOnTwoThreadsChangeApart) {
    LumContainer original = Numbered(30);
    original.SetString("Text", "shared by both threads at first, then changed by each");
    original.SetContainer("Inner", Numbered(5));
    const auto change = [](LumContainer container, uint32_t thread) {
        for (uint32_t round = 0; round < 300; ++round) {
            LumContainer copy = container;
            copy.SetInt32("Name3", thread);
            copy.SetString("Text", NameOf(thread));
            LumContainer inner;
            ASSERT_TRUE(copy.GetContainer("Inner", inner));
            inner.SetInt32("Name0", thread);
            copy.SetContainer("Inner", std::move(inner));
            uint32_t value = 0;
            ASSERT_TRUE(copy.GetInt32("Name3", value));
            ASSERT_EQ(value, thread);
            ASSERT_EQ(*copy.FindString("Text"), NameOf(thread));
            container = round % 10 == 9 ? copy : container;
        }
    };
    const LumContainer before = Numbered(30);
    std::vector<std::thread> threads;
    for (uint32_t i = 1; i <= 4; ++i) {
        threads.emplace_back(change, original, 1000 + i);
    }
    original.ClearName("Text");
    original.ClearName("Inner");
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(original, before);
}

TEST(LumContainerContent, TheLastOwnerChangesInPlaceWhatOthersHaveRead) {
    for (uint32_t round = 0; round < 200; ++round) {
        LumContainer container = Numbered(3);
        std::thread reader([copy = container]() mutable {
            uint32_t value = 0;
            EXPECT_TRUE(copy.GetInt32("Name1", value));
            EXPECT_EQ(value, 1U);
            copy = LumContainer();
        });
        container.SetInt32("Name1", round);
        reader.join();
        container.SetInt32("Name2", round);
    }
}

TEST(LumContainerContent, ManyThreadsReadOneContainerThatNobodyChanges) {
    LumContainer shared = Numbered(100);
    shared.SetContainer("Inner", Numbered(10));
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < 4; ++i) {
        threads.emplace_back([&shared] {
            for (uint32_t round = 0; round < 200; ++round) {
                LumContainer inner;
                ASSERT_TRUE(std::as_const(shared).GetContainer("Inner", inner));
                ASSERT_TRUE(IsNumbered(inner, 0, 10, 1));
                ASSERT_TRUE(shared.Contains("Name99"));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(LumContainerContent, FindsNamesWhetherFewOrMany) {
    for (const uint32_t names : {1U, 15U, 16U, 17U, 18U, 64U, 65U, 1000U}) {
        const LumContainer container = Numbered(names);
        EXPECT_TRUE(IsNumbered(container, 0, names, 1)) << names;
        EXPECT_FALSE(container.Contains(NameOf(names))) << names;
        const LumContainer copy = container;
        LumContainer changed = container;
        changed.SetInt32(NameOf(names), names);
        EXPECT_TRUE(IsNumbered(changed, 0, names + 1, 1)) << names;
        EXPECT_TRUE(IsNumbered(copy, 0, names, 1)) << names;
    }
}

TEST(LumContainerContent, RemovesNamesWhetherFewOrMany) {
    for (const uint32_t names : {2U, 17U, 18U, 40U, 200U}) {
        LumContainer container = Numbered(names);
        for (uint32_t i = 1; i < names; i += 2) {
            container.ClearName(NameOf(i));
        }
        EXPECT_TRUE(IsNumbered(container, 0, names, 2)) << names;
        EXPECT_FALSE(container.Contains(NameOf(1))) << names;
    }
}

TEST(LumContainerContent, IsUsedAgainAfterManyNamesAndAfterFew) {
    LumContainer container;
    for (const uint32_t names : {40U, 3U, 200U, 17U, 64U}) {
        container.Clear();
        for (uint32_t i = 0; i < names; ++i) {
            container.SetInt32(NameOf(i), i);
        }
        EXPECT_TRUE(IsNumbered(container, 0, names, 1)) << names;
    }
    container.SetInt32("Long", 1, 5000);
    container.Clear();
    container.SetInt32("Long", 1, 2);
    EXPECT_EQ(container.CountPositions("Long"), 3U);
    EXPECT_EQ(container.CountValues("Long"), 1U);
}

TEST(LumContainerContent, TakesAMillionNames) {
    constexpr uint32_t kMillion = 1000000;
    const LumContainer container = Numbered(kMillion);
    EXPECT_EQ(container.CountNames(), kMillion);
    for (uint32_t i = 0; i < kMillion; i += 9973) {
        uint32_t value = 0;
        ASSERT_TRUE(container.GetInt32(NameOf(i), value));
        ASSERT_EQ(value, i);
    }
}

TEST(LumContainerContent, TakesAMillionPositions) {
    constexpr uint32_t kMillion = 1000000;
    LumContainer container;
    for (uint32_t i = 0; i < kMillion; ++i) {
        container.SetInt32("N", i, i);
    }
    EXPECT_EQ(container.CountValues("N"), kMillion);
    uint32_t value = 0;
    EXPECT_TRUE(container.GetInt32("N", value, kMillion - 1));
    EXPECT_EQ(value, kMillion - 1);
    container.SetInt32("N", 5);
    EXPECT_EQ(container.CountPositions("N"), 1U);
}

TEST(LumContainerContent, ThereIsRoomForTheLastPosition) {
    LumContainer container;
    EXPECT_TRUE(container.SetBool("N", true, LumContainer::kMaxPositions - 1));
    EXPECT_EQ(container.CountPositions("N"), LumContainer::kMaxPositions);
    EXPECT_EQ(container.CountValues("N"), 1U);
}

TEST(LumContainerContent, NestingOfAnyDepthIsCopiedComparedWrittenAndDestroyed) {
    constexpr uint32_t kDepth = 100000;
    LumContainer container = Nested(kDepth);
    const LumContainer copy = Nested(kDepth);
    EXPECT_EQ(container, copy);
    EXPECT_NE(container, Nested(kDepth - 1));
    const std::string json = container.ToJson();
    EXPECT_EQ(json.substr(0, 20), R"({"Inner":[{"Inner":{)");
    EXPECT_GT(container.ToCbor().size(), std::size_t{kDepth} * 7);
    container.SetInt32("Inner", 1);
    container = copy;
    container.Clear();
    EXPECT_EQ(container, LumContainer());
}

TEST(LumContainerContent, SharedInnerContainersOutliveOneOuter) {
    LumContainer inner = Nested(3);
    const LumContainer expected = inner;
    LumContainer one;
    LumContainer other;
    for (uint32_t i = 0; i < 3; ++i) {
        one.SetContainer("List", inner, 2 * i);
        other.SetContainer("List", inner, i);
    }
    one = LumContainer();
    inner = LumContainer();
    EXPECT_TRUE(other.GetContainer("List", inner, 2));
    EXPECT_EQ(inner, expected);
}
