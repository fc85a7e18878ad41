#include <string>

#include <gtest/gtest.h>

#include "model/CheckModels.h"
#include "model/ModelElement.h"
#include "support/StartedModule.h"

namespace {

class CheckModelsTest : public testing::Test, protected StartedModule {
protected:
    /// A user model called `name` with one parameter for each of the names.
    static void AddUser(const char* name, std::initializer_list<const char*> params,
                        const char* source = "") {
        ModelText text{.name = name, .source = source};
        for (const char* const param : params) {
            text.params.push_back({param});
        }
        ASSERT_TRUE(ModelCollection.Add(MakeModel(text)));
    }
    /// An automatic model with a parameter "P" over the parameter `from` of `source`.
    static void AddAutomatic(const char* name, const char* source, const char* from,
                             std::vector<std::string> groupedBy = {}) {
        ASSERT_TRUE(ModelCollection.Add(MakeModel({.name = name,
                                                   .type = ModelType::kAutomatic,
                                                   .source = source,
                                                   .params = {{"P", ParamType::kString, from}},
                                                   .groupedBy = std::move(groupedBy)})));
    }
    [[nodiscard]] std::size_t Errors(const std::string& text) const {
        return Log().Count("error CheckModels: " + text + "\n");
    }
};

TEST_F(CheckModelsTest, KeepsWhatRefersToWhatIsThere) {
    AddUser("Source", {"A", "B"});
    AddAutomatic("Plain", "Source", "A");
    AddAutomatic("Grouped", "Source", "A", {"A", "B"});
    CheckModels();
    EXPECT_EQ(ModelCollection.GetCount(), 3U);
    EXPECT_EQ(Log().Count("trace CheckModels: Entering\n"), 1U);
}

TEST_F(CheckModelsTest, DropsAModelWithoutItsSource) {
    AddAutomatic("Lost", "Nowhere", "A");
    CheckModels();
    EXPECT_FALSE(ModelCollection.Contains("Lost"));
    EXPECT_EQ(Errors("Model 'Lost' makes reference to unknown model 'Nowhere'"), 1U);
}

TEST_F(CheckModelsTest, DropsAChainFromItsEnd) {
    AddAutomatic("A", "B", "P");
    AddAutomatic("B", "C", "P");
    CheckModels();
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
    EXPECT_EQ(Errors("Model 'B' makes reference to unknown model 'C'"), 1U);
    EXPECT_EQ(Errors("Model 'A' makes reference to unknown model 'B'"), 1U);
    EXPECT_EQ(Log().Count("trace CheckModels: Entering\n"), 3U);
}

TEST_F(CheckModelsTest, TakesAModelForItsOwnSource) {
    AddAutomatic("Good", "Good", "P");
    AddAutomatic("Bad", "Bad", "Q");
    CheckModels();
    EXPECT_TRUE(ModelCollection.Contains("Good"));
    EXPECT_FALSE(ModelCollection.Contains("Bad"));
    EXPECT_EQ(Errors("Model 'Bad' makes reference to unknown parameter 'Q' from model 'Bad'"), 1U);
}

TEST_F(CheckModelsTest, NeverLooksAtAUserModel) {
    AddUser("User", {"A"}, "Nowhere");
    CheckModels();
    EXPECT_TRUE(ModelCollection.Contains("User"));
}

TEST_F(CheckModelsTest, DropsAModelOfAMissingParameterWhateverItIsGroupedBy) {
    AddUser("Source", {"A"});
    AddAutomatic("Lost", "Source", "Missing", {"A"});
    CheckModels();
    EXPECT_FALSE(ModelCollection.Contains("Lost"));
    EXPECT_EQ(Errors("Model 'Lost' makes reference to unknown parameter 'Missing' from model 'Source'"), 1U);
}

TEST_F(CheckModelsTest, DropsAModelThatIsGroupedByAMissingParameter) {
    AddUser("Source", {"A"});
    AddAutomatic("Lost", "Source", "A", {"A", "Missing"});
    CheckModels();
    EXPECT_FALSE(ModelCollection.Contains("Lost"));
    EXPECT_EQ(Errors("Model 'Lost' makes reference to unknown parameter 'Missing' from model 'Source'"), 1U);
}

TEST_F(CheckModelsTest, TellsNamesApartByTheirCase) {
    AddUser("Source", {"User"});
    AddAutomatic("Lost", "Source", "user");
    CheckModels();
    EXPECT_FALSE(ModelCollection.Contains("Lost"));
    EXPECT_EQ(Errors("Model 'Lost' makes reference to unknown parameter 'user' from model 'Source'"), 1U);
}

TEST_F(CheckModelsTest, ChangesMemoryAlone) {
    Add({.name = "Lost",
         .type = ModelType::kAutomatic,
         .source = "Nowhere",
         .aggregation = Policy::kDaily,
         .params = {{"P", ParamType::kString, "A"}}});
    CheckModels();
    EXPECT_FALSE(ModelCollection.Contains("Lost"));
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel WHERE RM_ModelName = 'Lost'"), "1");
    EXPECT_EQ(Rows("SELECT count(*) FROM Event_Lost"), "0");
}

TEST_F(CheckModelsTest, TakesAChainBackOnceEverythingIsThere) {
    AddAutomatic("A", "B", "P");
    AddAutomatic("B", "C", "P");
    CheckModels();
    ASSERT_EQ(ModelCollection.GetCount(), 0U);
    TakeBackModels();
    EXPECT_EQ(ModelCollection.GetCount(), 0U) << "its source is still missing";
    AddUser("C", {"P"});
    TakeBackModels();
    EXPECT_TRUE(ModelCollection.Contains("A"));
    EXPECT_TRUE(ModelCollection.Contains("B"));
    EXPECT_EQ(IncompleteModels.GetCount(), 0U);
    EXPECT_EQ(Log().Count("print TakeBackModels: Model 'A' has everything that it refers to again"), 1U);
    CheckModels();
    EXPECT_EQ(ModelCollection.GetCount(), 3U);
}

TEST_F(CheckModelsTest, LeavesAModelToTheOneThatHasTakenItsPlace) {
    AddAutomatic("A", "Nowhere", "P");
    CheckModels();
    AddUser("Nowhere", {"P"});
    AddUser("A", {"P"});
    TakeBackModels();
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("A", model));
    EXPECT_EQ(model->GetType(), ModelType::kUser);
    EXPECT_EQ(IncompleteModels.GetCount(), 0U);
}

}  // namespace
