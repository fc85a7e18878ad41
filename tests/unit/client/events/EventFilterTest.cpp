#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "client/events/EventFilter.h"

namespace {

/// Which of the rows a filter takes, by their positions.
std::string Taken(const std::vector<std::string>& filters, std::optional<int32_t> device = std::nullopt,
                  std::optional<int32_t> group = std::nullopt) {
    const ModelDefinition model{"Visit",
                                "",
                                "",
                                "",
                                true,
                                {{"Who", std::string(kTypeString)},
                                 {"Long", std::string(kTypeInteger)},
                                 {"Real", std::string(kTypeDouble)},
                                 {"Flag", std::string(kTypeBoolean)}}};
    EventPage page;
    EXPECT_TRUE(page.Parse(R"({"status":0,"container":{"Result":{"EventCount":4,"EventDeviceId":[1,2,1,2],)"
                           R"("EventGroupId":[0,0,1,1],"Who":["ann","5",5,true],"Long":[5,7,"5",null],)"
                           R"("Real":[0.50,5,"0.5",true],"Flag":[true,false,1,"true"]}}})"));
    EventsQuery query;
    query.filters = filters;
    query.device = device;
    query.group = group;
    const EventFilter filter(model, query);
    std::string taken;
    for (std::size_t row = 0; row < page.GetRowCount(); ++row) {
        taken += filter.Takes(page, row) ? std::to_string(row) : "";
    }
    return taken;
}

TEST(EventFilter, ComparesValuesOfTheSameKindAlone) {
    EXPECT_EQ(Taken({"Who=ann"}), "0");
    EXPECT_EQ(Taken({"Who=5"}), "1");
    EXPECT_EQ(Taken({"Long=5"}), "0");
    EXPECT_EQ(Taken({"Real=0.5"}), "0");
    EXPECT_EQ(Taken({"Real=5"}), "1") << "a whole number is a real one";
    EXPECT_EQ(Taken({"Flag=yes"}), "0");
    EXPECT_EQ(Taken({"Flag=no"}), "1");
}

TEST(EventFilter, TakesARowThatFitsAltogether) {
    EXPECT_EQ(Taken({}), "0123");
    EXPECT_EQ(Taken({}, 2), "13");
    EXPECT_EQ(Taken({}, 2, 1), "3");
    EXPECT_EQ(Taken({"Who=ann"}, 2), "");
}

}  // namespace
