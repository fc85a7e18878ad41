#include <string>

#include <gtest/gtest.h>

#include "client/check/DefinitionFile.h"
#include "support/ModelText.h"
#include "support/TempDirectory.h"

namespace {

/// The definition of a good model, a user's or an automatic one.
const ModelText kUser{.name = "Visit", .params = {{"Who"}, {.name = "Long", .type = ParamType::kInteger}}};
const ModelText kAutomatic{
    .name = "Visits",
    .type = ModelType::kAutomatic,
    .source = "Visit",
    .aggregation = Policy::kHourly,
    .params = {{.name = "Sum", .source = "Long", .operation = AggregationOperation::kSum}},
    .groupedBy = {"Who"}};

class DefinitionReader : public testing::Test {
protected:
    /// Reads the definition in which `from` stands as `to`.
    [[nodiscard]] DefinitionFile Read(const ModelText& model, const std::string& from = "",
                                      const std::string& to = "") const {
        std::string text = Definition(model);
        const std::size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << text;
        return ReadDefinition(scratch_.Write("model.xml", text.replace(at, from.size(), to)));
    }
    /// The faults of the same, a line each.
    [[nodiscard]] std::string FaultsOf(const ModelText& model, const std::string& from = "",
                                       const std::string& to = "") const {
        return TextOf(Read(model, from, to));
    }
    [[nodiscard]] static std::string TextOf(const DefinitionFile& file) {
        std::string faults;
        for (const DefinitionFault& fault : file.faults) {
            faults += fault.text + "\n";
        }
        return faults;
    }

private:
    const TempDirectory scratch_;
};

TEST_F(DefinitionReader, FindsNoFaultInAGoodDefinition) {
    EXPECT_EQ(FaultsOf(kUser), "");
    EXPECT_EQ(FaultsOf(kAutomatic), "");
    EXPECT_EQ(Read(kAutomatic).references.size(), 2U);
}

TEST_F(DefinitionReader, MissesWhatMustBeThere) {
    ModelText model = kUser;
    model.type = ModelType::kUnknown;
    model.params = {{.name = "P", .type = ParamType::kUnknown, .defaultText = "1"}};
    EXPECT_EQ(FaultsOf(model), "TYPE is missing in MODEL\nTYPE is missing in PARAM\n");
    model = kAutomatic;
    model.source = "";
    model.params[0].source = "";
    EXPECT_EQ(FaultsOf(model), "SOURCE is missing in MODEL\nSOURCE is missing in PARAM\n");
    model = kUser;
    model.params = {};
    EXPECT_EQ(FaultsOf(model), "PARAMS is missing in MODEL\n");
    EXPECT_EQ(FaultsOf(model, "</MODEL>", "<PARAMS> </PARAMS></MODEL>"), "PARAMS holds no PARAM\n");
    EXPECT_EQ(FaultsOf(model, "</MODEL>", "<PARAMS><PARM/></PARAMS></MODEL>"),
              "PARAMS holds no PARAM\n"
              "unknown element 'PARM' in PARAMS, which is not read; did you mean 'PARAM'?\n");
}

TEST_F(DefinitionReader, WantsTextWhereTextBelongs) {
    EXPECT_EQ(FaultsOf(kUser, "<CLASS>Test</CLASS>", "<CLASS><X/>Test</CLASS>"),
              "CLASS holds an element before its text\n");
    EXPECT_EQ(FaultsOf(kAutomatic, "<NAME>Who</NAME>", "<NAME/>"),
              "a NAME without text ends the list of AGGREGATION\n");
    EXPECT_EQ(FaultsOf(kAutomatic, "<NAME>Who</NAME>", "<NAME><X/></NAME>"),
              "a NAME without text ends the list of AGGREGATION\n");
    EXPECT_EQ(FaultsOf(kAutomatic, "<NAME>Who</NAME>", "<NAM>Who</NAM>"),
              "unknown element 'NAM' in AGGREGATION, which is not read; did you mean 'NAME'?\n");
}

TEST_F(DefinitionReader, ChecksADefaultByItsType) {
    const auto faultOf = [this](ParamType type, const std::string& text) {
        ModelText model = kUser;
        model.params = {{.name = "P", .type = type, .defaultText = text}};
        return FaultsOf(model);
    };
    EXPECT_EQ(faultOf(ParamType::kString, "any text"), "");
    EXPECT_EQ(faultOf(ParamType::kTimestamp, "86400"), "");
    EXPECT_EQ(faultOf(ParamType::kTimestamp, "now"),
              "the default does not fit _TIMESTAMP_: 'now' is not a whole number\n");
    EXPECT_EQ(faultOf(ParamType::kDouble, "-1.5e3"), "");
    EXPECT_EQ(faultOf(ParamType::kDouble, "1,5"),
              "the default does not fit _DOUBLE_: '1,5' is not a number\n");
    EXPECT_EQ(faultOf(ParamType::kBoolean, "0"), "");
    EXPECT_EQ(faultOf(ParamType::kBoolean, "1"), "");
    EXPECT_EQ(faultOf(ParamType::kBoolean, "true"),
              "the default does not fit _BOOLEAN_: 'true' is not 0 or 1\n");
}

TEST_F(DefinitionReader, KnowsWhatOnlyTheOtherKindOfModelReads) {
    EXPECT_EQ(FaultsOf(kUser, "<PARAMS>",
                       "<AGGREGATION-POLICY>_HOURLY_</AGGREGATION-POLICY><AGGREGATION/><PARAMS>"),
              "AGGREGATION-POLICY is not read in a user model\nAGGREGATION is not read in a user model\n");
    EXPECT_EQ(FaultsOf(kAutomatic, "<OPERATION>", "<DEFAULT>1</DEFAULT><OPERATION>"),
              "DEFAULT is not read in an automatic model\n");
}

TEST_F(DefinitionReader, LooksForReferencesAmongTheModelsThatAreKnown) {
    DefinitionFile file = Read(kAutomatic);
    CheckReferences(file, {{"Visit", {"Who", "Long"}}});
    EXPECT_EQ(TextOf(file), "");
    CheckReferences(file, {{"Visit", {"Whom", "Long"}}});
    EXPECT_EQ(TextOf(file), "the source model 'Visit' has no parameter 'Who'; did you mean 'Whom'?\n");
    DefinitionFile unnamed = Read(kAutomatic, "<SOURCE>Visit</SOURCE>", "");
    CheckReferences(unnamed, {});
    EXPECT_EQ(TextOf(unnamed), "SOURCE is missing in MODEL\n") << "said once";
}

}  // namespace
