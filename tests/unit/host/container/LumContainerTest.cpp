#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/container/LumContainer.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kSingle = kLumSingleValue;

/// Names in the order of a whole walk.
std::vector<std::string> Walk(LumContainer& container) {
    std::vector<std::string> names;
    LumString name;
    while (container.GetNextName(name)) {
        names.emplace_back(name.View());
    }
    return names;
}

/// One value of each kind, each under the name of its kind.
LumContainer OneOfEach() {
    LumContainer inner;
    inner.SetInt32("Depth", 2);
    LumContainer container;
    container.SetString("Text", "a text");
    container.SetInt32("Int", -7);
    container.SetBool("Bool", true);
    container.SetDouble("Double", 2.5);
    container.SetContainer("Container", inner);
    return container;
}

/// True where no getter but the one of `kind` answers, and none of the others touches its output.
void ExpectOnlyKind(const LumContainer& container, const LumString& name, const std::string& kind,
                    uint32_t index = kSingle) {
    LumString text("untouched");
    int32_t number = -99;
    uint32_t bits = 99;
    bool flag = true;
    double real = 9.5;
    LumContainer inner;
    inner.SetBool("Untouched", true);
    const LumContainer before = inner;
    EXPECT_EQ(container.GetString(name, text, index), kind == "Text");
    EXPECT_EQ(container.FindString(name, index) != nullptr, kind == "Text");
    EXPECT_EQ(container.GetInt32(name, number, index), kind == "Int");
    EXPECT_EQ(container.GetInt32(name, bits, index), kind == "Int");
    EXPECT_EQ(container.GetDouble(name, real, index), kind == "Double");
    EXPECT_EQ(container.GetContainer(name, inner, index), kind == "Container");
    EXPECT_EQ(container.GetBool(name, flag, index), kind == "Bool");
    EXPECT_EQ(text == "untouched", kind != "Text");
    EXPECT_EQ(number == -99, kind != "Int");
    EXPECT_EQ(bits == 99, kind != "Int");
    EXPECT_EQ(real == 9.5, kind != "Double");
    EXPECT_EQ(inner == before, kind != "Container");
}

}  // namespace

static_assert(std::is_nothrow_copy_constructible_v<LumContainer>);
static_assert(std::is_nothrow_move_constructible_v<LumContainer>);
static_assert(std::is_nothrow_move_assignable_v<LumContainer>);

TEST(LumContainer, EachKindIsReadByItsOwnGetterAlone) {
    const LumContainer container = OneOfEach();
    for (const char* kind : {"Text", "Int", "Bool", "Double", "Container"}) {
        SCOPED_TRACE(kind);
        ExpectOnlyKind(container, kind, kind);
    }
    ExpectOnlyKind(container, "Absent", "none");
    ExpectOnlyKind(LumContainer(), "Text", "none");
}

TEST(LumContainer, GivesBackWhatWasSet) {
    const LumContainer container = OneOfEach();
    LumString text;
    EXPECT_TRUE(container.GetString("Text", text));
    EXPECT_EQ(text, "a text");
    EXPECT_EQ(*container.FindString("Text"), "a text");
    int32_t number = 0;
    EXPECT_TRUE(container.GetInt32("Int", number));
    EXPECT_EQ(number, -7);
    bool flag = false;
    EXPECT_TRUE(container.GetBool("Bool", flag));
    EXPECT_TRUE(flag);
    double real = 0;
    EXPECT_TRUE(container.GetDouble("Double", real));
    EXPECT_EQ(real, 2.5);
    LumContainer inner;
    EXPECT_TRUE(container.GetContainer("Container", inner));
    EXPECT_TRUE(inner.GetInt32("Depth", number));
    EXPECT_EQ(number, 2);
}

TEST(LumContainer, SignedAndUnsignedReadTheSameBits) {
    LumContainer container;
    container.SetInt32("Signed", int32_t{-1});
    container.SetInt32("Unsigned", uint32_t{0x80000000});
    uint32_t bits = 0;
    EXPECT_TRUE(container.GetInt32("Signed", bits));
    EXPECT_EQ(bits, 0xFFFFFFFFU);
    int32_t number = 0;
    EXPECT_TRUE(container.GetInt32("Unsigned", number));
    EXPECT_EQ(number, std::numeric_limits<int32_t>::min());
    EXPECT_TRUE(container.GetInt32("Unsigned", bits));
    EXPECT_EQ(bits, 0x80000000U);
}

TEST(LumContainer, TextKeepsEveryByte) {
    const std::string bytes("a\0'\xFF\n", 5);
    LumContainer container;
    container.SetString("Text", LumString(std::string_view(bytes)));
    container.SetString("Long", LumString(std::string(1000000, 'x')));
    EXPECT_EQ(container.FindString("Text")->View(), bytes);
    EXPECT_EQ(container.FindString("Long")->GetLength(), 1000000U);
}

TEST(LumContainer, NamesAreComparedByteByByteAndMayBeAnything) {
    LumContainer container;
    const std::string odd("a\0b", 3);
    std::vector<LumString> names{LumString(""),
                                 LumString("a"),
                                 LumString("A"),
                                 LumString(std::string_view(odd)),
                                 LumString("abcdefg"),
                                 LumString("abcdefx"),
                                 LumString("xbcdefg"),
                                 LumString("abxdefg"),
                                 LumString("12345678"),
                                 LumString("12345x78"),
                                 LumString("x2345678"),
                                 LumString("1234567x"),
                                 LumString("0123456789abcdef"),
                                 LumString("x123456789abcdef"),
                                 LumString("0123456789abcdex"),
                                 LumString("0123456789abcdefg"),
                                 LumString("0123456789abcdefx")};
    for (uint32_t i = 0; i < names.size(); ++i) {
        container.SetInt32(names[i], i);
    }
    EXPECT_EQ(container.CountNames(), names.size());
    for (uint32_t i = 0; i < names.size(); ++i) {
        uint32_t value = 0;
        EXPECT_TRUE(container.GetInt32(names[i], value));
        EXPECT_EQ(value, i);
    }
    EXPECT_FALSE(container.Contains("b"));
}

TEST(LumContainer, SingleIndexReplacesWhateverTheNameHolds) {
    LumContainer container;
    container.SetInt32("N", 1);
    container.SetString("N", "two");
    EXPECT_EQ(container.CountNames(), 1U);
    ExpectOnlyKind(container, "N", "Text");
    container.SetDouble("N", 3.0, 4);
    container.SetBool("N", false);
    EXPECT_EQ(container.CountPositions("N"), 1U);
    EXPECT_FALSE(container.IsList("N"));
    ExpectOnlyKind(container, "N", "none", 4);
}

TEST(LumContainer, SingleIndexReadsPositionZero) {
    LumContainer container;
    container.SetInt32("N", 10, 0);
    container.SetInt32("N", 11, 1);
    int32_t value = 0;
    EXPECT_TRUE(container.GetInt32("N", value));
    EXPECT_EQ(value, 10);
    container.SetInt32("M", 12);
    EXPECT_TRUE(container.GetInt32("M", value, 0));
    EXPECT_EQ(value, 12);
    ExpectOnlyKind(container, "M", "none", 1);
}

TEST(LumContainer, SetAtAPositionMakesASingleValueTheFirstOfAList) {
    LumContainer container;
    container.SetString("N", "first");
    EXPECT_FALSE(container.IsList("N"));
    container.SetString("N", "third", 2);
    EXPECT_TRUE(container.IsList("N"));
    EXPECT_EQ(*container.FindString("N", 0), "first");
    ExpectOnlyKind(container, "N", "none", 1);
    EXPECT_EQ(*container.FindString("N", 2), "third");
    ExpectOnlyKind(container, "N", "none", 3);
}

TEST(LumContainer, AListOfOneValueIsAList) {
    LumContainer container;
    container.SetInt32("N", 1, 0);
    EXPECT_TRUE(container.IsList("N"));
    container.SetInt32("M", 1);
    container.SetInt32("M", 2, 0);
    EXPECT_TRUE(container.IsList("M"));
    EXPECT_EQ(container.CountPositions("M"), 1U);
    EXPECT_FALSE(container.IsList("Absent"));
}

TEST(LumContainer, CountsValuesWithoutAndPositionsWithTheEmptyOnes) {
    LumContainer container;
    EXPECT_EQ(container.CountValues("N"), 0U);
    EXPECT_EQ(container.CountPositions("N"), 0U);
    container.SetInt32("N", 1);
    EXPECT_EQ(container.CountValues("N"), 1U);
    EXPECT_EQ(container.CountPositions("N"), 1U);
    container.SetInt32("N", 1, 5);
    EXPECT_EQ(container.CountValues("N"), 2U);
    EXPECT_EQ(container.CountPositions("N"), 6U);
    container.SetInt32("N", 1, 3);
    EXPECT_EQ(container.CountValues("N"), 3U);
    EXPECT_EQ(container.CountPositions("N"), 6U);
}

TEST(LumContainer, OnePositionsOfAListMayDifferInKind) {
    LumContainer container;
    container.SetString("N", "text", 0);
    container.SetInt32("N", 1, 1);
    container.SetBool("N", true, 2);
    container.SetDouble("N", 1.0, 3);
    container.SetContainer("N", OneOfEach(), 4);
    const std::vector<std::string> kinds{"Text", "Int", "Bool", "Double", "Container"};
    for (uint32_t i = 0; i < kinds.size(); ++i) {
        ExpectOnlyKind(container, "N", kinds[i], i);
    }
}

TEST(LumContainer, APositionBehindTheLastPossibleOneIsRefusedAndChangesNothing) {
    constexpr uint32_t kTooFar = LumContainer::kMaxPositions;
    LumContainer container;
    container.SetInt32("N", 1);
    const LumContainer before = container;
    for (const uint32_t index : {kTooFar, kTooFar + 1, kSingle - 1}) {
        EXPECT_FALSE(container.SetString("N", "x", index));
        EXPECT_FALSE(container.SetInt32("N", int32_t{2}, index));
        EXPECT_FALSE(container.SetInt32("N", uint32_t{2}, index));
        EXPECT_FALSE(container.SetBool("N", true, index));
        EXPECT_FALSE(container.SetDouble("N", 2.0, index));
        EXPECT_FALSE(container.SetContainer("N", before, index));
        EXPECT_FALSE(container.SetContainer("M", LumContainer(before), index));
    }
    EXPECT_EQ(container, before);
    ExpectOnlyKind(container, "N", "none", kTooFar);
}

TEST(LumContainer, ARefusedContainerIsNotMovedAway) {
    LumContainer value = OneOfEach();
    LumContainer container;
    EXPECT_FALSE(container.SetContainer("N", std::move(value), LumContainer::kMaxPositions));
    EXPECT_EQ(value, OneOfEach());
}

TEST(LumContainer, WalksNamesInTheOrderInWhichTheyWereFirstSet) {
    LumContainer container;
    container.SetInt32("Z", 1);
    container.SetInt32("A", 1);
    container.SetInt32("M", 1, 3);
    container.SetString("Z", "again");
    EXPECT_THAT(Walk(container), ElementsAre("Z", "A", "M"));
    LumString name;
    for (const char* expected : {"Z", "A", "M"}) {
        EXPECT_TRUE(container.GetNextName(name));
        EXPECT_EQ(name, expected);
    }
    EXPECT_EQ(container.CountNames(), 3U);
}

TEST(LumContainer, AWalkEndsOnceAndThenStartsFromTheFirstNameAgain) {
    LumContainer container;
    container.SetInt32("A", 1);
    LumString name("untouched");
    EXPECT_TRUE(container.GetNextName(name));
    name = "untouched";
    EXPECT_FALSE(container.GetNextName(name));
    EXPECT_EQ(name, "untouched");
    EXPECT_TRUE(container.GetNextName(name));
    EXPECT_EQ(name, "A");
    EXPECT_THAT(Walk(container), IsEmpty()) << "the end, seen from past the last name";
    LumContainer none;
    EXPECT_FALSE(none.GetNextName(name));
}

TEST(LumContainer, AnyChangeStartsTheWalkAnew) {
    const auto changesTheWalk = [](auto&& change) {
        LumContainer container;
        container.SetInt32("A", 1);
        container.SetInt32("B", 1, 0);
        LumString name;
        EXPECT_TRUE(container.GetNextName(name));
        change(container);
        return container.GetNextName(name) && name == "A";
    };
    EXPECT_TRUE(changesTheWalk([](LumContainer& c) { c.SetInt32("A", 2); }));
    EXPECT_TRUE(changesTheWalk([](LumContainer& c) { c.SetInt32("B", 2, 1); }));
    EXPECT_TRUE(changesTheWalk([](LumContainer& c) { c.SetString("C", "new"); }));
    EXPECT_TRUE(changesTheWalk([](LumContainer& c) { c.SetContainer("C", LumContainer()); }));
    EXPECT_TRUE(changesTheWalk([](LumContainer& c) { c.ClearName("B"); }));
    EXPECT_TRUE(changesTheWalk([](LumContainer& c) { c = LumContainer(c); }));
    EXPECT_FALSE(changesTheWalk([](LumContainer& c) { static_cast<void>(c.CountNames()); }));
    EXPECT_FALSE(changesTheWalk([](LumContainer& c) { c.ClearName("Absent"); }));
}

TEST(LumContainer, ACopyIsWalkedFromItsFirstName) {
    LumContainer container;
    container.SetInt32("A", 1);
    container.SetInt32("B", 1);
    LumString name;
    EXPECT_TRUE(container.GetNextName(name));
    LumContainer copy(container);
    EXPECT_THAT(Walk(copy), ElementsAre("A", "B"));
    EXPECT_THAT(Walk(container), ElementsAre("B"));
}

TEST(LumContainer, NamesAreReachedByTheirNumber) {
    LumContainer container;
    container.SetInt32("B", 1);
    container.SetInt32("A", 1);
    LumString name("untouched");
    EXPECT_FALSE(container.GetNameAt(2, name));
    EXPECT_EQ(name, "untouched");
    EXPECT_TRUE(container.GetNameAt(1, name));
    EXPECT_EQ(name, "A");
    EXPECT_TRUE(container.GetNameAt(0, name));
    EXPECT_EQ(name, "B");
    EXPECT_FALSE(LumContainer().GetNameAt(0, name));
}

TEST(LumContainer, ClearNameRemovesOneNameWithAllItsValues) {
    LumContainer container;
    container.SetInt32("A", 1);
    container.SetInt32("B", 1, 0);
    container.SetInt32("B", 2, 1);
    container.SetInt32("C", 3);
    container.ClearName("B");
    container.ClearName("Absent");
    EXPECT_THAT(Walk(container), ElementsAre("A", "C"));
    EXPECT_FALSE(container.Contains("B"));
    EXPECT_EQ(container.CountPositions("B"), 0U);
    container.SetInt32("B", 4);
    EXPECT_THAT(Walk(container), ElementsAre("A", "C", "B"));
    EXPECT_FALSE(container.IsList("B"));
    int32_t value = 0;
    EXPECT_TRUE(container.GetInt32("C", value));
    EXPECT_EQ(value, 3);
    LumContainer none;
    none.ClearName("A");
    EXPECT_EQ(none.CountNames(), 0U);
}

TEST(LumContainer, ClearRemovesEveryName) {
    LumContainer container = OneOfEach();
    const LumContainer copy = container;
    container.Clear();
    EXPECT_EQ(container.CountNames(), 0U);
    EXPECT_THAT(Walk(container), IsEmpty());
    ExpectOnlyKind(container, "Text", "none");
    EXPECT_EQ(container, LumContainer());
    EXPECT_EQ(copy, OneOfEach());
    container.Clear();
    EXPECT_EQ(container, LumContainer());
}

TEST(LumContainer, NothingOfAnEarlierUseShowsAfterClear) {
    LumContainer container;
    for (uint32_t i = 0; i < 10; ++i) {
        container.SetString("A", "old", i);
        container.SetContainer("B", OneOfEach(), i);
        container.SetInt32("C", i, i);
    }
    container.Clear();
    container.SetInt32("C", 7, 4);
    container.SetString("A", "new");
    container.SetBool("B", true, 1);
    EXPECT_THAT(Walk(container), ElementsAre("C", "A", "B"));
    EXPECT_EQ(container.CountPositions("C"), 5U);
    EXPECT_EQ(container.CountValues("C"), 1U);
    for (const uint32_t index : {0U, 1U, 2U, 3U, 5U}) {
        ExpectOnlyKind(container, "C", "none", index);
    }
    EXPECT_EQ(container.CountPositions("A"), 1U);
    ExpectOnlyKind(container, "A", "none", 1);
    ExpectOnlyKind(container, "B", "none", 0);
    ExpectOnlyKind(container, "B", "Bool", 1);
    EXPECT_EQ(container.ToJson(), R"({"C":[null,null,null,null,7],"A":"new","B":[null,true]})");
}

TEST(LumContainer, OneObjectIsFilledAgainAndAgain) {
    LumContainer container;
    const std::vector<LumString> names{LumString("EventDate"), LumString("Group"), LumString("A"),
                                       LumString("ANameOfMoreThanSixteenBytes"), LumString("ModelDef")};
    for (int32_t file = 0; file < 5; ++file) {
        container.Clear();
        LumContainer fresh;
        for (uint32_t row = 0; row < 100; ++row) {
            for (LumContainer* filled : {&container, &fresh}) {
                filled->SetInt32(names[0], file, row);
                filled->SetInt32(names[1], static_cast<int32_t>(row), row);
                filled->SetDouble(names[2], 0.5 * file, row);
                filled->SetString(names[3], LumString(std::to_string(row * 1000003)), row);
            }
        }
        for (LumContainer* filled : {&container, &fresh}) {
            filled->SetContainer(names[4], OneOfEach());
            if (file % 2 == 0) {
                filled->ClearName(names[1]);
            }
        }
        ASSERT_EQ(container, fresh);
        ASSERT_EQ(container.ToCbor(), fresh.ToCbor());
    }
}

TEST(LumContainer, ACopyAndItsOriginalChangeApart) {
    LumContainer original = OneOfEach();
    LumContainer copy = original;
    copy.SetString("Text", "changed");
    copy.SetInt32("New", 1);
    EXPECT_EQ(original, OneOfEach());
    original.SetInt32("Int", 8);
    LumString text;
    int32_t number = 0;
    EXPECT_TRUE(copy.GetString("Text", text) && copy.GetInt32("Int", number));
    EXPECT_EQ(text, "changed");
    EXPECT_EQ(number, -7);
    LumContainer assigned;
    assigned.SetBool("Old", true);
    assigned = original;
    EXPECT_EQ(assigned, original);
    assigned.ClearName("Int");
    EXPECT_TRUE(original.Contains("Int"));
}

TEST(LumContainer, WhatIsInsideIsCopiedToo) {
    LumContainer inner;
    inner.SetInt32("N", 1);
    LumContainer outer;
    outer.SetContainer("Inner", inner);
    outer.SetContainer("List", inner, 1);
    const LumContainer outerCopy = outer;
    inner.SetInt32("N", 2);
    LumContainer taken;
    EXPECT_TRUE(outer.GetContainer("Inner", taken));
    int32_t value = 0;
    EXPECT_TRUE(taken.GetInt32("N", value));
    EXPECT_EQ(value, 1);
    taken.SetInt32("N", 3);
    EXPECT_EQ(outer, outerCopy);
    EXPECT_TRUE(outer.GetContainer("List", taken, 1));
    EXPECT_TRUE(taken.GetInt32("N", value));
    EXPECT_EQ(value, 1);
}

TEST(LumContainer, TakenValuesOutliveTheContainer) {
    LumContainer taken;
    {
        LumContainer arguments;
        arguments.SetContainer("Values", OneOfEach());
        EXPECT_TRUE(arguments.GetContainer("Values", taken));
        arguments.Clear();
        arguments.SetInt32("Result", 1);
    }
    EXPECT_EQ(taken, OneOfEach());
}

TEST(LumContainer, AMovedFromContainerIsEmptyAndUsable) {
    LumContainer from = OneOfEach();
    LumString name;
    EXPECT_TRUE(from.GetNextName(name));
    LumContainer to(std::move(from));
    EXPECT_EQ(to, OneOfEach());
    EXPECT_EQ(from, LumContainer());
    from.SetInt32("N", 1);
    EXPECT_THAT(Walk(from), ElementsAre("N"));
    from = std::move(to);
    EXPECT_EQ(from, OneOfEach());
    EXPECT_EQ(to.CountNames(), 0U);
    LumContainer holder;
    EXPECT_TRUE(holder.SetContainer("Inner", std::move(from)));
    EXPECT_EQ(from, LumContainer());
    ExpectOnlyKind(holder, "Inner", "Container");
}

TEST(LumContainer, SelfAssignmentKeepsTheContent) {
    LumContainer container = OneOfEach();
    LumContainer& same = container;
    container = same;
    EXPECT_EQ(container, OneOfEach());
}

TEST(LumContainer, AContainerMayBePutIntoAndTakenOutOfItself) {
    LumContainer container = OneOfEach();
    container.SetContainer("Self", container);
    LumContainer inner;
    EXPECT_TRUE(container.GetContainer("Self", inner));
    EXPECT_EQ(inner, OneOfEach());
    EXPECT_TRUE(container.GetContainer("Self", container));
    EXPECT_EQ(container, OneOfEach());
    container.SetContainer("Self", std::move(container));
    EXPECT_THAT(Walk(container), ElementsAre("Self"));
    EXPECT_TRUE(container.GetContainer("Self", inner));
    EXPECT_EQ(inner, OneOfEach());
}

TEST(LumContainer, AValueAndANameMayLieInTheContainerItself) {
    const LumString longText(std::string(100, 'v'));
    LumContainer container;
    container.SetString("N", longText, 0);
    container.SetString("N", "other", 3);
    container.SetString("N", *container.FindString("N", 0));
    EXPECT_EQ(*container.FindString("N"), longText);
    container.SetString("N", "x", 70);
    container.SetString("N", *container.FindString("N", 0), 3000);
    container.SetString("M", *container.FindString("N", 3000));
    container.SetInt32(*container.FindString("M"), 1);
    EXPECT_TRUE(container.Contains(longText));
    {
        const LumContainer sharer = container;
        container.SetString("M", *container.FindString("M"), 1);
        EXPECT_EQ(*container.FindString("M", 1), longText);
    }
    LumContainer* const sharer = new LumContainer(container);
    const LumString* const text = sharer->FindString("M", 1);
    *sharer = LumContainer();
    container.SetString("M", *text);
    EXPECT_EQ(*container.FindString("M"), longText);
    delete sharer;
}

TEST(LumContainer, EmptyContainersAreValues) {
    LumContainer container;
    container.SetContainer("Never filled", LumContainer());
    LumContainer cleared = OneOfEach();
    cleared.Clear();
    container.SetContainer("Cleared", cleared);
    for (const char* name : {"Never filled", "Cleared"}) {
        LumContainer inner = OneOfEach();
        EXPECT_TRUE(container.GetContainer(name, inner));
        EXPECT_EQ(inner.CountNames(), 0U);
        EXPECT_EQ(container.CountValues(name), 1U);
    }
}

TEST(LumContainer, EqualMeansSameNamesOrderPlacesAndValues) {
    const LumContainer one = OneOfEach();
    const auto differsAfter = [&one](auto&& change) {
        LumContainer other = one;
        change(other);
        return !(other == one) && other != one;
    };
    EXPECT_EQ(one, OneOfEach());
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetString("Text", "b text"); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetInt32("Int", 7); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetBool("Bool", false); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetDouble("Double", 2.25); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetContainer("Container", LumContainer()); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetDouble("Int", -7); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetInt32("Int", -7, 0); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetInt32("Int", 1, 2); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.SetInt32("New", 1); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) { c.ClearName("Int"); }));
    EXPECT_TRUE(differsAfter([](LumContainer& c) {
        c.ClearName("Int");
        c.SetInt32("Int", -7);
    })) << "another order";
    EXPECT_TRUE(differsAfter([](LumContainer& c) {
        LumContainer inner;
        inner.SetInt32("Depth", 3);
        c.SetContainer("Container", inner);
    })) << "a difference inside";
}

TEST(LumContainer, NumbersAreEqualByTheirBits) {
    LumContainer one;
    LumContainer other;
    one.SetInt32("N", int32_t{-1});
    other.SetInt32("N", uint32_t{0xFFFFFFFF});
    EXPECT_EQ(one, other);
    one.SetDouble("N", std::nan(""));
    other.SetDouble("N", -std::nan("1"));
    EXPECT_EQ(one, other);
    other.SetDouble("N", 0.0);
    EXPECT_NE(one, other);
    one.SetDouble("N", -0.0);
    EXPECT_EQ(one, other);
}
