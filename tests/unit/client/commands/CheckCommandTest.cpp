#include <string>

#include <gtest/gtest.h>

#include "support/ModelText.h"
#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

const ModelText kVisits{.name = "Visits",
                        .type = ModelType::kAutomatic,
                        .source = "Visit",
                        .aggregation = Policy::kHourly,
                        .params = {{.name = "N", .source = "Who", .operation = AggregationOperation::kCount}},
                        .groupedBy = {"Who"}};

TEST(CheckCommand, FindsASourceModelWhereverItIs) {
    const TempDirectory data;
    const std::string source = Definition({.name = "Visit", .params = {{.name = "Who"}}});
    const std::string file = data.Write("drafts/Visits.xml", Definition(kVisits));
    const auto check = [&] { return RunClient(data / "agent.sock", {"check", file}).exit; };
    EXPECT_EQ(check(), ExitStatus::kFailed);
    data.Write("drafts/notes.txt", source);
    data.Write("EventLogManager/models/Visit.xml", source);
    EXPECT_EQ(check(), ExitStatus::kFailed) << "neither a definition nor registered";
    data.Write("EventLogManager/models/Visit/CHECKSUM/Visit.xml", source);
    EXPECT_EQ(check(), ExitStatus::kDone) << "registered";
    data.Write("drafts/Visit.xml", Definition({.name = "Visit", .params = {{.name = "Whom"}}}));
    EXPECT_EQ(check(), ExitStatus::kFailed) << "the one beside it comes first";
    EXPECT_EQ(RunClient(data / "agent.sock", {"check", file, data.Write("Visit.xml", source)}).exit,
              ExitStatus::kDone)
        << "and the one that is given before that";
}

}  // namespace
