#include <memory>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/collection/LumVector.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

/// Counts those that are alive.
struct Entry {
    explicit Entry(int number) : value(number) { ++alive; }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() { --alive; }

    int value;
    static inline int alive = 0;
};

std::vector<int> Values(const LumVector<Entry>& vector) {
    std::vector<int> values;
    for (uint32_t i = 0; i < vector.GetCount(); ++i) {
        values.push_back(vector[i].value);
    }
    return values;
}

void Fill(LumVector<Entry>& vector, int count) {
    for (int i = 0; i < count; ++i) {
        vector.Append(std::make_unique<Entry>(static_cast<int>(vector.GetCount())));
    }
}

}  // namespace

TEST(LumVector, InsertsAtAnyPlace) {
    LumVector<Entry> vector;
    vector.Append(std::make_unique<Entry>(2));
    vector.InsertAt(0, std::make_unique<Entry>(0));
    vector.InsertAt(1, std::make_unique<Entry>(1));
    vector.InsertAt(3, std::make_unique<Entry>(3));
    EXPECT_THAT(Values(vector), ElementsAre(0, 1, 2, 3));
    vector[1].value = 9;
    EXPECT_THAT(Values(vector), ElementsAre(0, 9, 2, 3));
}

TEST(LumVector, DestroysWhatIsRemovedAndWhatIsLeft) {
    {
        LumVector<Entry> vector;
        Fill(vector, 30);
        EXPECT_EQ(Entry::alive, 30);
        vector.RemoveAt(0);
        vector.RemoveAt(28);
        vector.RemoveAt(10);
        EXPECT_EQ(Entry::alive, 27);
        EXPECT_EQ(vector.GetCount(), 27U);
    }
    EXPECT_EQ(Entry::alive, 0);
}

TEST(LumVector, DoublesWhenItIsFull) {
    LumVector<Entry> vector;
    EXPECT_EQ(vector.GetCapacity(), 10U);
    Fill(vector, 10);
    EXPECT_EQ(vector.GetCapacity(), 10U);
    Fill(vector, 1);
    EXPECT_EQ(vector.GetCapacity(), 20U);
    Fill(vector, 9);
    EXPECT_EQ(vector.GetCapacity(), 20U);
    Fill(vector, 1);
    EXPECT_EQ(vector.GetCapacity(), 40U);
    EXPECT_EQ(Values(vector).back(), 20);
}

TEST(LumVector, ShrinksWhenItIsMoreThanThreeTimesTooLarge) {
    LumVector<Entry> vector;
    Fill(vector, 81);
    ASSERT_EQ(vector.GetCapacity(), 160U);
    const auto shrinkTo = [&vector](uint32_t count) {
        while (vector.GetCount() > count) {
            vector.RemoveAt(vector.GetCount() - 1);
        }
        return vector.GetCapacity();
    };
    EXPECT_EQ(shrinkTo(54), 160U) << "160 is not more than 3 times 54";
    EXPECT_EQ(shrinkTo(53), 53U);
    EXPECT_EQ(shrinkTo(18), 53U);
    EXPECT_EQ(shrinkTo(17), 17U);
    EXPECT_EQ(shrinkTo(6), 17U);
    EXPECT_EQ(shrinkTo(5), 10U) << "back to the places inside the object";
    EXPECT_EQ(shrinkTo(0), 10U);
}

TEST(LumVector, GoesBackInsideAndOutAgain) {
    LumVector<Entry> vector;
    Fill(vector, 11);
    while (vector.GetCount() > 3) {
        vector.RemoveAt(0);
    }
    EXPECT_EQ(vector.GetCapacity(), 10U);
    EXPECT_THAT(Values(vector), ElementsAre(8, 9, 10));
    Fill(vector, 8);
    EXPECT_EQ(vector.GetCapacity(), 20U);
    EXPECT_THAT(Values(vector), ElementsAre(8, 9, 10, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST(LumVector, AnEntryStaysWhereItIs) {
    LumVector<Entry> vector;
    Fill(vector, 1);
    const Entry* const entry = &vector[0];
    Fill(vector, 100);
    vector.InsertAt(0, std::make_unique<Entry>(-1));
    EXPECT_EQ(&vector[1], entry);
}

TEST(LumVector, BehavesAsAnyVectorDoes) {
    std::mt19937 random(7);
    LumVector<Entry> vector;
    std::vector<int> expected;
    for (int i = 0; i < 3000; ++i) {
        // It mostly grows for a while, then mostly shrinks.
        const unsigned inserted = i / 500 % 2 == 0 ? 3 : 1;
        if (expected.empty() || random() % 4 < inserted) {
            const auto at = random() % (expected.size() + 1);
            vector.InsertAt(static_cast<uint32_t>(at), std::make_unique<Entry>(i));
            expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(at), i);
        } else {
            const auto at = random() % expected.size();
            vector.RemoveAt(static_cast<uint32_t>(at));
            expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(at));
        }
        ASSERT_EQ(vector.GetCount(), expected.size());
        ASSERT_GE(vector.GetCapacity(), vector.GetCount());
    }
    EXPECT_THAT(Values(vector), ElementsAreArray(expected));
}
