#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/collection/NodeList.h"

TEST(NodeList, GivesEntriesBackInTheirOrder) {
    int entries[3] = {};
    NodeList list;
    for (int& entry : entries) {
        list.AddEntry(&entry);
    }
    EXPECT_EQ(list.GetCount(), 3U);
    for (int& entry : entries) {
        EXPECT_EQ(list.RemoveEntry(1), &entry);
    }
    EXPECT_EQ(list.GetCount(), 0U);
    EXPECT_EQ(list.RemoveEntry(1), nullptr);
}

TEST(NodeList, CountsPlacesFromOne) {
    int entries[3] = {};
    NodeList list;
    list.SetMtSafeEnable(true);
    for (int& entry : entries) {
        list.AddEntry(&entry);
    }
    EXPECT_EQ(list.RemoveEntry(0), nullptr);
    EXPECT_EQ(list.RemoveEntry(4), nullptr);
    EXPECT_EQ(list.RemoveEntry(0xFFFFFFFF), nullptr);
    EXPECT_EQ(list.RemoveEntry(2), &entries[1]);
    EXPECT_EQ(list.RemoveEntry(2), &entries[2]);
    EXPECT_EQ(list.RemoveEntry(1), &entries[0]);
}

TEST(NodeList, LosesNothingBetweenThreads) {
    constexpr int kEntries = 1000;
    std::vector<std::atomic<int>> taken(2 * kEntries);
    NodeList list;
    list.SetMtSafeEnable(true);
    const auto add = [&](int from) {
        for (int i = from; i < from + kEntries; ++i) {
            list.AddEntry(&taken[static_cast<std::size_t>(i)]);
        }
    };
    std::atomic<int> left{2 * kEntries};
    const auto take = [&] {
        while (left > 0) {
            if (void* const entry = list.RemoveEntry(1)) {
                ++*static_cast<std::atomic<int>*>(entry);
                --left;
            }
        }
    };
    std::thread threads[] = {std::thread(add, 0), std::thread(add, kEntries), std::thread(take),
                             std::thread(take)};
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::atomic<int>& count : taken) {
        EXPECT_EQ(count, 1);
    }
    EXPECT_EQ(list.GetCount(), 0U);
}
