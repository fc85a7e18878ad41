#include <gtest/gtest.h>

#include "contract/ContainerKeys.h"
#include "contract/ParamTypeTokens.h"
#include "fleet/collect/batch/Content.h"
#include "fleet/collect/batch/CopyRow.h"

namespace {

struct Parameter {
    std::string_view name;
    std::string_view type;  ///< empty: none
};

ParameterType Typed(std::string_view name, std::string_view type) {
    return {std::string(name), std::string(type)};
}

LumContainer ModelOf(const std::vector<Parameter>& parameters, std::string_view name) {
    LumContainer variables;
    for (uint32_t i = 0; i < parameters.size(); ++i) {
        variables.SetString(keys::kModelVarName, LumString(parameters[i].name), i);
        if (!parameters[i].type.empty()) {
            variables.SetString(keys::kModelVarType, LumString(parameters[i].type), i);
        }
    }
    LumContainer model;
    model.SetString(keys::kModelName, LumString(name));
    model.SetString(keys::kModelChecksum, "c1");
    model.SetContainer(keys::kModelVars, std::move(variables));
    return model;
}

/// An upload file with `events` events of this model; values are set by the test.
LumContainer FileOf(const std::vector<Parameter>& parameters, uint32_t events = 1,
                    std::string_view name = "Reading") {
    LumContainer file;
    file.SetContainer(keys::kModelDef, ModelOf(parameters, name));
    for (uint32_t event = 0; event < events; ++event) {
        file.SetInt32(keys::kEventDate, 1'000 + static_cast<int32_t>(event), event);
    }
    return file;
}

std::string WhyNot(const LumContainer& file) {
    EventContent content;
    std::string reason;
    EXPECT_FALSE(ReadEvents(file, "alpha", content, reason));
    return reason;
}

TEST(Content, IsRowsWithTheFixedColumnsAndOneForEachParameter) {
    LumContainer file = FileOf({{"Count", kTypeInteger}, {"Text", kTypeString}}, 2);
    file.SetInt32("Count", 7, 0U);
    file.SetString("Text", "second", 1U);
    file.SetInt32(keys::kEventGmtOffset, 3'600, 0U);
    file.SetInt32(keys::kEventGroupId, 5, 1U);
    EventContent content;
    std::string reason;
    ASSERT_TRUE(ReadEvents(file, "alpha", content, reason)) << reason;
    EXPECT_EQ(content.model, "Reading");
    EXPECT_EQ(content.checksum, "c1");
    EXPECT_EQ(content.parameters,
              (std::vector<ParameterType>{Typed("Count", kTypeInteger), Typed("Text", kTypeString)}));
    EXPECT_EQ(content.dates, (std::vector<int32_t>{1'000, 1'001}));
    CopyRows expected;
    expected.BeginRow(9);
    expected.Timestamp(1'000);
    expected.Int64(0);
    expected.Int32(0);
    expected.Text("alpha");
    expected.Int32(3'600);
    expected.Int32(0);
    expected.Int32(0);
    expected.Int32(7);
    expected.Null();
    expected.BeginRow(9);
    expected.Timestamp(1'001);
    expected.Int64(0);
    expected.Int32(1);
    expected.Text("alpha");
    expected.Int32(0);
    expected.Int32(0);
    expected.Int32(5);
    expected.Null();
    expected.Text("second");
    EXPECT_EQ(content.rows.GetBytes(), expected.GetBytes());
}

TEST(Content, KnowsWhereTheBatchsNumberStands) {
    EventContent content;
    std::string reason;
    ASSERT_TRUE(ReadEvents(FileOf({}, 2), "alpha", content, reason)) << reason;
    ASSERT_EQ(content.batchFields.size(), 2U);
    for (const std::size_t field : content.batchFields) {
        OverwriteInt64(content.rows.GetBytes(), field, 0x0102030405060708);
    }
    CopyRows expected;
    for (int32_t event = 0; event < 2; ++event) {
        expected.BeginRow(7);
        expected.Timestamp(1'000 + event);
        expected.Int64(0x0102030405060708);
        expected.Int32(event);
        expected.Text("alpha");
        expected.Int32(0);
        expected.Int32(0);
        expected.Int32(0);
    }
    EXPECT_EQ(content.rows.GetBytes(), expected.GetBytes());
}

TEST(Content, HasAColumnTypeForEachToken) {
    EXPECT_EQ(ColumnType(kTypeString), "text");
    EXPECT_EQ(ColumnType(kTypeEnum), "text");
    EXPECT_EQ(ColumnType(kTypeInteger), "integer");
    EXPECT_EQ(ColumnType(kTypeTimestamp), "timestamptz");
    EXPECT_EQ(ColumnType(kTypeDouble), "double precision");
    EXPECT_EQ(ColumnType(kTypeBoolean), "boolean");
    EXPECT_EQ(ColumnType("_BLOB_"), "");
}

TEST(Content, TakesAValueOfEachType) {
    LumContainer file =
        FileOf({{"T", kTypeTimestamp}, {"D", kTypeDouble}, {"B", kTypeBoolean}, {"E", kTypeEnum}});
    file.SetInt32("T", 60, 0U);
    file.SetDouble("D", 1.5, 0U);
    file.SetBool("B", true, 0U);
    file.SetString("E", "red", 0U);
    EventContent content;
    std::string reason;
    ASSERT_TRUE(ReadEvents(file, "alpha", content, reason)) << reason;
    CopyRows end;
    end.Timestamp(60);
    end.Double(1.5);
    end.Bool(true);
    end.Text("red");
    EXPECT_TRUE(content.rows.GetBytes().ends_with(end.GetBytes()));
}

TEST(Content, LeavesOutAParameterWithoutAType) {
    EventContent content;
    std::string reason;
    ASSERT_TRUE(ReadEvents(FileOf({{"Old", ""}, {"New", kTypeInteger}}), "alpha", content, reason));
    EXPECT_EQ(content.parameters, (std::vector<ParameterType>{Typed("New", kTypeInteger)}));
}

TEST(Content, SaysWhatIsWrongWithAModel) {
    LumContainer nameless;
    nameless.SetInt32(keys::kEventDate, 1, 0U);
    EXPECT_EQ(WhyNot(nameless), "it does not name its model");
    EXPECT_EQ(WhyNot(FileOf({}, 1, "")), "its model's name '' cannot be used");
    EXPECT_EQ(WhyNot(FileOf({}, 1, "\xff")), "its model's name '\xEF\xBF\xBD' cannot be used");
    EXPECT_EQ(WhyNot(FileOf({}, 1, std::string(256, 'x'))),
              "its model's name '" + std::string(60, 'x') + "...' cannot be used");
    EXPECT_EQ(WhyNot(FileOf({{"", kTypeInteger}})), "parameter 0 of its model has no name that can be used");
    EXPECT_EQ(WhyNot(FileOf({{"A", kTypeInteger}, {"A", kTypeString}})),
              "its model has the parameter 'A' twice");
    EXPECT_EQ(WhyNot(FileOf({{"A", "_BLOB_"}})), "its parameter 'A' is of the unknown type '_BLOB_'");
    std::vector<std::string> names;
    std::vector<Parameter> many;
    for (uint32_t i = 0; i <= kMaxParameters; ++i) {
        names.push_back("p" + std::to_string(i));
    }
    for (const std::string& name : names) {
        many.push_back({name, kTypeInteger});
    }
    EXPECT_EQ(WhyNot(FileOf(many)), "its model has 1001 parameters, more than 1000");
}

TEST(Content, HoldsOneToAHundredEvents) {
    EXPECT_EQ(WhyNot(FileOf({}, 0)), "it holds 0 events, not 1 to 100");
    EXPECT_EQ(WhyNot(FileOf({}, 101)), "it holds 101 events, not 1 to 100");
    EventContent content;
    std::string reason;
    EXPECT_TRUE(ReadEvents(FileOf({}, 100), "alpha", content, reason));
}

TEST(Content, RefusesValuesThatHaveNoPlace) {
    LumContainer unknown = FileOf({{"A", kTypeInteger}});
    unknown.SetInt32("B", 1, 0U);
    EXPECT_EQ(WhyNot(unknown), "it holds 'B', which its model does not have");
    LumContainer more = FileOf({{"A", kTypeInteger}});
    more.SetInt32("A", 1, 1U);
    EXPECT_EQ(WhyNot(more), "it holds more values of 'A' than events");
    LumContainer other = FileOf({{"A", kTypeInteger}});
    other.SetString("A", "text", 0U);
    EXPECT_EQ(WhyNot(other), "a value of 'A' is not of the type _INTEGER_");
    LumContainer undated = FileOf({}, 2);
    undated.SetString(keys::kEventDate, "today", 1U);
    EXPECT_EQ(WhyNot(undated), "its event 1 has no date");
}

TEST(Content, AnAlertIsOneRowWithAllThatItSays) {
    LumContainer alert;
    std::string reason;
    AlertContent content;
    EXPECT_FALSE(ReadAlert(alert, "alpha", content, reason));
    EXPECT_EQ(reason, "it has no date");
    alert.SetInt32(keys::kEventDate, 1'000);
    alert.SetString(keys::kAlertDescription, "disk");
    alert.SetString("More", LumString(std::string_view("a\0b", 3)));
    AlertContent read;
    ASSERT_TRUE(ReadAlert(alert, "alpha", read, reason)) << reason;
    EXPECT_EQ(read.batchFields.size(), 1U);
    // The database's JSON has no null character.
    EXPECT_NE(read.rows.GetBytes().find("a\\ufffdb"), std::string::npos);
    EXPECT_EQ(read.rows.GetBytes().find("\\u0000"), std::string::npos);
}

}  // namespace
