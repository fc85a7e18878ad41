#include <cstdio>
#include <ctime>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/log/LumDebug.h"
#include "model/ModelLoader.h"
#include "model/ModuleLog.h"
#include "support/LogReader.h"
#include "support/ModelText.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ModelLoader : public testing::Test {
protected:
    ModelLoader() { ModuleDebug.SetContext(&lines_.Context()); }
    ~ModelLoader() override { ModuleDebug.SetContext(nullptr); }

    /// Loads a file of that content.
    std::shared_ptr<Model_t> Load(const std::string& definition) {
        directory_.Write("model.xml", definition);
        std::shared_ptr<Model_t> model;
        const bool loaded = LoadModel(path_, model);
        EXPECT_EQ(loaded, model != nullptr);
        return model;
    }

    /// Loads a definition in which `from` was replaced, and says what was logged, the routine and the file
    /// left out.
    std::vector<std::string> Failing(std::string definition, const std::string& from, const std::string& to) {
        const std::size_t at = definition.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        definition.replace(at, from.size(), to);
        EXPECT_EQ(Load(definition), nullptr);
        return Said();
    }

    std::vector<std::string> Said() {
        const std::string prefix = "EventLogManager LoadModel: ";
        const std::string file = "While parsing '" + std::string(path_.View()) + "', ";
        std::vector<std::string> said;
        for (std::string line : lines_.Said()) {
            for (const std::string& part : {prefix, file}) {
                const std::size_t at = line.find(part);
                if (at != std::string::npos) {
                    line.erase(at, part.size());
                }
            }
            said.push_back(line);
        }
        return said;
    }

    TempDirectory directory_;
    LogLines lines_;
    const LumString path_ = directory_.At("model.xml");
};

const std::string kAutomatic = Definition({
    .name = "Sums",
    .type = ModelType::kAutomatic,
    .source = "Logon",
    .aggregation = Policy::kHourly,
    .upload = Policy::kDaily,
    .deletion = Policy::kMonthly,
    .params = {{"Total", ParamType::kInteger, "Count", AggregationOperation::kSum}},
    .groupedBy = {"User"},
    .modelClass = "Security",
});

TEST_F(ModelLoader, LoadsAUserModel) {
    const auto model = Load(Definition(kLogon));
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->GetName(), "Logon");
    EXPECT_EQ(model->GetClass(), "Security");
    EXPECT_EQ(model->GetNote(), "A note");
    EXPECT_EQ(model->GetSeverity(), "1");
    EXPECT_EQ(model->GetType(), ModelType::kUser);
    EXPECT_EQ(model->GetUploadPolicy(), Policy::kDaily);
    EXPECT_EQ(model->GetDeletionPolicy(), Policy::kMonthly);
    EXPECT_EQ(model->GetAggregationPolicy(), Policy::kUnknown);
    std::shared_ptr<ModelParam_t> param;
    ASSERT_TRUE(model->GetParams().GetAt(0, param));
    EXPECT_EQ(param->GetName(), "Count");
    EXPECT_EQ(param->GetType(), ParamType::kInteger);
    EXPECT_EQ(param->GetDefault(), "0");
    ASSERT_TRUE(model->GetParams().GetAt(1, param));
    EXPECT_EQ(param->GetName(), "User");
    EXPECT_TRUE(param->GetDefault().IsEmpty());
    EXPECT_FALSE(model->GetChecksum().IsEmpty());
    EXPECT_THAT(Said(), ElementsAre("print Model 'Logon' has been loaded with success"));
    EXPECT_THAT(lines_.Said(LumLogLevel::kTrace),
                testing::Contains("trace EventLogManager LoadModel: Entering"));
}

TEST_F(ModelLoader, LoadsAnAutomaticModel) {
    const auto model = Load(kAutomatic);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->GetSource(), "Logon");
    EXPECT_EQ(model->GetAggregationPolicy(), Policy::kHourly);
    std::shared_ptr<ModelParam_t> param;
    ASSERT_TRUE(model->GetParams().Get("Total", param));
    EXPECT_EQ(param->GetSource(), "Count");
    EXPECT_EQ(param->GetOperation(), AggregationOperation::kSum);
    EXPECT_TRUE(model->GetAggregations().Contains("User"));
}

TEST_F(ModelLoader, PassesOverWhatBelongsToAutomaticModels) {
    const auto model =
        Load(Definition({.source = "Other",
                         .aggregation = Policy::kDaily,
                         .params = {{"User", ParamType::kString, "x", static_cast<AggregationOperation>(99)}},
                         .groupedBy = {"User"}}));
    ASSERT_NE(model, nullptr);
    EXPECT_TRUE(model->GetSource().IsEmpty());
    EXPECT_EQ(model->GetAggregationPolicy(), Policy::kUnknown);
    EXPECT_EQ(model->GetAggregations().GetCount(), 0U);
    std::shared_ptr<ModelParam_t> param;
    ASSERT_TRUE(model->GetParams().Get("User", param));
    EXPECT_TRUE(param->GetSource().IsEmpty());
    EXPECT_EQ(param->GetOperation(), AggregationOperation::kNone);
}

TEST_F(ModelLoader, PassesOverTheDefaultOfAnAutomaticParameterAndLoadsOneWithoutOperation) {
    const auto model = Load(
        Definition({.name = "Sums",
                    .type = ModelType::kAutomatic,
                    .source = "Logon",
                    .aggregation = Policy::kHourly,
                    .params = {{"User", ParamType::kString, "User", AggregationOperation::kNone, "x"}}}));
    ASSERT_NE(model, nullptr);
    std::shared_ptr<ModelParam_t> param;
    ASSERT_TRUE(model->GetParams().Get("User", param));
    EXPECT_TRUE(param->GetDefault().IsEmpty());
    EXPECT_EQ(param->GetOperation(), AggregationOperation::kNone);
}

TEST_F(ModelLoader, TakesAnEmptyElementForAMissingOne) {
    EXPECT_THAT(Failing(Definition(kLogon), "<CLASS>Security</CLASS>", "<CLASS></CLASS>"),
                ElementsAre("warning failed to get model class"));
}

TEST_F(ModelLoader, TakesAnElementWithoutLeadingTextForAMissingOne) {
    EXPECT_THAT(Failing(Definition(kLogon), "<NOTE>A note</NOTE>", "<NOTE><B/>A note</NOTE>"),
                ElementsAre("warning failed to get model note"));
}

TEST_F(ModelLoader, RefusesAnotherRoot) {
    EXPECT_EQ(Load("<model><NAME>x</NAME></model>"), nullptr);
    EXPECT_THAT(Said(), ElementsAre("warning unexpected root node 'model'"));
}

TEST_F(ModelLoader, SaysNothingOfAFileThatIsNoDocument) {
    HostLogLines host;
    EXPECT_EQ(Load("<MODEL><NAME>x</MODEL>"), nullptr);
    EXPECT_THAT(Said(), IsEmpty());
    EXPECT_EQ(host.Said().size(), 1U);
}

TEST_F(ModelLoader, LeavesThePointerAloneWhereTheHeadFails) {
    directory_.Write("model.xml", "<MODEL/>");
    auto model = std::make_shared<Model_t>("kept", "", "", "", "", ModelType::kUser, Policy::kUnknown,
                                           Policy::kUnknown, Policy::kUnknown);
    EXPECT_FALSE(LoadModel(path_, model));
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->GetName(), "kept");
}

TEST_F(ModelLoader, ClearsThePointerWhereTheParametersFail) {
    directory_.Write("model.xml", Definition({.name = "Logon"}));
    auto model = std::make_shared<Model_t>("gone", "", "", "", "", ModelType::kUser, Policy::kUnknown,
                                           Policy::kUnknown, Policy::kUnknown);
    EXPECT_FALSE(LoadModel(path_, model));
    EXPECT_EQ(model, nullptr);
    EXPECT_THAT(Said(), ElementsAre("error failed to get parameters"));
}

TEST_F(ModelLoader, EndsTheListAtAParameterWithoutName) {
    const auto model = Load(Definition({.params = {{"A"}, {""}, {"B"}}}));
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->GetParams().GetCount(), 1U);
}

TEST_F(ModelLoader, DropsARepeatedAggregationEntryInSilence) {
    const auto model = Load(Definition({.name = "Sums",
                                        .type = ModelType::kAutomatic,
                                        .source = "Logon",
                                        .aggregation = Policy::kHourly,
                                        .params = {{"U", ParamType::kString, "User"}},
                                        .groupedBy = {"User", "User", "Count"}}));
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->GetAggregations().GetCount(), 2U);
    EXPECT_THAT(Said(), ElementsAre("print Model 'Sums' has been loaded with success"));
}

TEST_F(ModelLoader, ReadsTheFirstAggregationElementAlone) {
    std::string definition = kAutomatic;
    definition.replace(definition.find("</MODEL>"), 0, "<AGGREGATION><NAME>Count</NAME></AGGREGATION>");
    const auto model = Load(definition);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->GetAggregations().GetCount(), 1U);
}

struct Defect {
    const char* from;
    const char* to;
    const char* line;
};

class ModelLoaderDefects : public ModelLoader, public testing::WithParamInterface<Defect> {};

TEST_P(ModelLoaderDefects, IsRefusedWithOneLine) {
    EXPECT_THAT(Failing(kAutomatic, GetParam().from, GetParam().to), ElementsAre(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Elements, ModelLoaderDefects,
    testing::Values(
        Defect{"<NAME>Sums</NAME>", "", "warning failed to get model name"},
        Defect{"<CLASS>Security</CLASS>", "", "warning failed to get model class"},
        Defect{"<NOTE>A note</NOTE>", "", "warning failed to get model note"},
        Defect{"<SEVERITY>1</SEVERITY>", "", "warning failed to get model severity"},
        Defect{"<TYPE>_EVENTLOG_MODELTYPE_AUTO_</TYPE>", "", "warning failed to get model type"},
        Defect{"_EVENTLOG_MODELTYPE_AUTO_", "_AUTO_", "warning unknown model type '_AUTO_'"},
        Defect{"<UPLOAD-POLICY>_DAILY_</UPLOAD-POLICY>", "", "warning failed to get model upload policy"},
        Defect{"<UPLOAD-POLICY>_DAILY_", "<UPLOAD-POLICY>_daily_",
               "warning unknown model upload policy '_daily_'"},
        Defect{"<DELETION-POLICY>_MONTHLY_</DELETION-POLICY>", "",
               "warning failed to get model deletion policy"},
        Defect{"_MONTHLY_", " _MONTHLY_", "warning unknown model deletion policy ' _MONTHLY_'"},
        Defect{"<SOURCE>Logon</SOURCE>", "", "warning failed to get model source"},
        Defect{"<AGGREGATION-POLICY>_HOURLY_</AGGREGATION-POLICY>", "",
               "warning failed to get model aggregation policy"},
        Defect{"_HOURLY_", "_SECONDLY_", "warning unknown model aggregation policy '_SECONDLY_'"},
        Defect{"<PARAMS>",
               "<PARAMS><PARAM><NAME>Total</NAME><TYPE>_INTEGER_</TYPE><SOURCE>a</SOURCE></PARAM>",
               "error multiple definition for parameter 'Total'"},
        Defect{"<TYPE>_INTEGER_</TYPE>", "", "error failed to get type for parameter ''"},
        Defect{"_INTEGER_", "_INT_", "error unknown parameter type '_INT_'"},
        Defect{"<SOURCE>Count</SOURCE>", "", "error failed to get source for parameter 'Total'"},
        Defect{"_SUM_", "_TOTAL_", "error unknown parameter operation '_TOTAL_'"},
        Defect{"<PARAM>", "<PARAM/><PARAM>", "error failed to get parameters"}));

/// A definition of the largest size that is read, its names in the order that costs most to sort in.
std::string DefinitionOfNames(int count) {
    std::string names;
    for (int i = count; i > 0; --i) {
        const std::string number = std::to_string(i);
        names += "<NAME>" + std::string(7 - number.size(), '0') + number + "</NAME>";
    }
    return "<MODEL><NAME>N</NAME><CLASS>c</CLASS><NOTE>n</NOTE><SEVERITY>1</SEVERITY>"
           "<TYPE>_EVENTLOG_MODELTYPE_AUTO_</TYPE><SOURCE>S</SOURCE>"
           "<AGGREGATION-POLICY>_DAILY_</AGGREGATION-POLICY><UPLOAD-POLICY>_DAILY_</UPLOAD-POLICY>"
           "<DELETION-POLICY>_DAILY_</DELETION-POLICY><PARAMS><PARAM><NAME>P</NAME>"
           "<TYPE>_STRING_</TYPE><SOURCE>P</SOURCE></PARAM></PARAMS><AGGREGATION>" +
           names + "</AGGREGATION></MODEL>";
}

TEST_F(ModelLoader, ReadsTwoHundredThousandNamesInATimeThatGrowsWithTheirNumber) {
    const auto secondsFor = [this](int count) {
        const std::string definition = DefinitionOfNames(count);
        timespec begin{};
        timespec end{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
        const std::shared_ptr<Model_t> model = Load(definition);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
        EXPECT_NE(model, nullptr);
        EXPECT_EQ(model->GetAggregations().GetCount(), static_cast<uint32_t>(count));
        return static_cast<double>(end.tv_sec - begin.tv_sec) +
               static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e9;
    };
    constexpr int kNames = 200000;
    const double quarter = secondsFor(kNames / 4);
    const double whole = secondsFor(kNames);
    // Four times as much; sorted in one by one it would be sixteen times.
    EXPECT_LT(whole, 9 * quarter);
    RecordProperty("seconds", std::to_string(whole));
    std::printf("%d names: %.2f s\n", kNames, whole);
}

}  // namespace
