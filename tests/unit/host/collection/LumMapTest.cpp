#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/collection/LumMap.h"
#include "host/text/LumString.h"

using testing::ElementsAre;

namespace {

using Map = LumMap<LumString, int>;

std::vector<int> Values(const Map& map) {
    std::vector<int> values;
    int value = 0;
    for (uint32_t i = 0; map.GetAt(i, value); ++i) {
        values.push_back(value);
    }
    return values;
}

/// Counts the comparisons that a search takes.
struct CountedKey {
    int number;
    static inline int comparisons = 0;
    bool operator<(const CountedKey& other) const {
        ++comparisons;
        return number < other.number;
    }
};

}  // namespace

TEST(LumMap, KeepsItsEntriesInAscendingOrderOfTheirKeys) {
    Map map;
    map.Set("b", 2);
    map.Set("\u00e4", 5);
    map.Set("a", 1);
    map.Set("Z", 0);
    map.Set("ba", 3);
    EXPECT_THAT(Values(map), ElementsAre(0, 1, 2, 3, 5));
    EXPECT_EQ(map.Find("Z"), 0);
    EXPECT_EQ(map.Find("ba"), 3);
    EXPECT_EQ(map.Find("c"), -1);
    EXPECT_EQ(map.GetCount(), 5U);
}

TEST(LumMap, OverwritesAValueInItsPlace) {
    Map map;
    map.Set("a", 1);
    map.Set("b", 2);
    map.Set("a", 9);
    EXPECT_THAT(Values(map), ElementsAre(9, 2));
}

TEST(LumMap, SetsOnlyWhatIsAbsentWhereAskedTo) {
    LumMap<LumString, std::unique_ptr<int>> map;
    EXPECT_TRUE(map.SetIfAbsent("a", std::make_unique<int>(1)));
    auto second = std::make_unique<int>(2);
    EXPECT_FALSE(map.SetIfAbsent("a", std::move(second)));
    ASSERT_NE(second, nullptr) << "moved from although it was not taken";
    EXPECT_EQ(**map.Remove("a"), 1);
    EXPECT_TRUE(map.SetIfAbsent("a", std::move(second)));
}

TEST(LumMap, CopiesValuesOutAndLeavesTheOutputWhereThereIsNone) {
    Map map;
    map.Set("a", 1);
    int value = 7;
    EXPECT_TRUE(map.Get("a", value));
    EXPECT_EQ(value, 1);
    EXPECT_FALSE(map.Get("b", value));
    EXPECT_FALSE(map.GetAt(1, value));
    EXPECT_FALSE(map.GetAt(0xFFFFFFFF, value));
    EXPECT_EQ(value, 1);
}

TEST(LumMap, TakesEntriesOut) {
    Map map;
    for (const char* key : {"a", "b", "c"}) {
        map.Set(key, key[0]);
    }
    EXPECT_EQ(map.Remove("b"), 'b');
    EXPECT_EQ(map.Remove("b"), std::nullopt);
    EXPECT_THAT(Values(map), ElementsAre('a', 'c'));
}

TEST(LumMap, GivesAllValuesUpInTheOrderOfTheirKeys) {
    std::string order;
    const auto noted = [&order](char name) {
        return std::shared_ptr<char>(new char(name), [&order](const char* gone) {
            order += *gone;
            delete gone;
        });
    };
    LumMap<int, std::shared_ptr<char>> map;
    for (const char name : {'c', 'a', 'b'}) {
        map.Set(name, noted(name));
    }
    map.Clear();
    EXPECT_EQ(order, "abc");
    EXPECT_EQ(map.GetCount(), 0U);
    EXPECT_EQ(map.Find('a'), -1);
    map.Set(1, noted('d'));
    EXPECT_EQ(map.GetCount(), 1U);
}

TEST(LumMap, FindsByHalving) {
    LumMap<CountedKey, int> map;
    for (int i = 0; i < 1000; ++i) {
        map.Set({2 * i}, i);
    }
    for (int i = 0; i < 1000; ++i) {
        CountedKey::comparisons = 0;
        ASSERT_EQ(map.Find({2 * i}), i);
        ASSERT_EQ(map.Find({2 * i + 1}), -1);
        ASSERT_LE(CountedKey::comparisons, 40);
    }
    EXPECT_EQ(map.Find({-1}), -1);
}

TEST(LumMap, FindsThePlaceOfANewKeyByHalving) {
    LumMap<CountedKey, int> map;
    CountedKey::comparisons = 0;
    constexpr int kKeys = 2000;
    for (int i = 0; i < kKeys; ++i) {
        map.Set({i * 7919 % kKeys}, i);  // 7919 is a prime: each key once, in no order
    }
    EXPECT_EQ(map.GetCount(), static_cast<uint32_t>(kKeys));
    EXPECT_LE(CountedKey::comparisons, kKeys * 2 * 12);
    for (uint32_t i = 0; i < map.GetCount(); ++i) {
        int value = 0;
        ASSERT_TRUE(map.GetAt(i, value));
        ASSERT_EQ(value * 7919 % kKeys, static_cast<int>(i));
    }
}

TEST(LumMap, WithLockingTakesManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kKeys = 100;
    LumMap<int, int> map;
    map.EnableLocking();
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&map, i] {
            for (int j = 0; j < kKeys; ++j) {
                map.Set(j * kThreads + i, j);
                int value = -1;
                EXPECT_TRUE(map.Get(j * kThreads + i, value));
                EXPECT_EQ(value, j);
                static_cast<void>(map.GetAt(0, value));
                if (j % 2 == 0) {
                    EXPECT_TRUE(map.Remove(j * kThreads + i).has_value());
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(map.GetCount(), static_cast<uint32_t>(kThreads * kKeys / 2));
}

TEST(LumMap, OnlyOneOfManyThreadsSetsWhatIsAbsent) {
    LumMap<int, int> map;
    map.EnableLocking();
    std::atomic<int> set{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int key = 0; key < 100; ++key) {
                set += map.SetIfAbsent(key, int{key}) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(set, 100);
}
