#include <gtest/gtest.h>

#include "model/Model.h"
#include "model/ModelElement.h"

namespace {

std::shared_ptr<ModelParam_t> MakeParam(const char* name, ParamType type = ParamType::kString) {
    return std::make_shared<ModelParam_t>(name, "", type, AggregationOperation::kNone, "");
}

TEST(ModelElementColl, RefusesNullAndATakenName) {
    PtrModelElementColl_t collection;
    EXPECT_FALSE(collection.Add(nullptr));
    const auto first = MakeParam("a");
    EXPECT_TRUE(collection.Add(first));
    EXPECT_FALSE(collection.Add(MakeParam("a")));
    std::shared_ptr<ModelParam_t> found;
    ASSERT_TRUE(collection.Get("a", found));
    EXPECT_EQ(found, first);
    EXPECT_EQ(collection.GetCount(), 1U);
}

TEST(ModelElementColl, WalksInAscendingByteOrderOfTheNames) {
    PtrModelElementColl_t collection;
    for (const char* name : {"b", "a", "c", "B", "\xc3\xa4"}) {
        EXPECT_TRUE(collection.Add(MakeParam(name)));
    }
    std::string names;
    std::shared_ptr<ModelParam_t> param;
    for (uint32_t i = 0; collection.GetAt(i, param); ++i) {
        names.append(param->GetName().View()).append(" ");
    }
    EXPECT_EQ(names, "B a b c \xc3\xa4 ");
    EXPECT_FALSE(collection.GetAt(collection.GetCount(), param));
}

TEST(ModelElementColl, LeavesTheOutputAloneWhereNothingIsFound) {
    const PtrModelElementColl_t collection;
    auto param = MakeParam("kept");
    const auto* const before = param.get();
    EXPECT_FALSE(collection.Get("none", param));
    EXPECT_FALSE(collection.GetAt(0, param));
    EXPECT_EQ(param.get(), before);
}

TEST(ModelElementColl, TellsNamesApartByLetterCase) {
    PtrModelElementColl_t collection;
    EXPECT_TRUE(collection.Add(MakeParam("Logon")));
    EXPECT_TRUE(collection.Add(MakeParam("logon")));
    EXPECT_FALSE(collection.Contains("LOGON"));
}

TEST(ModelElementColl, RemovesByNameAndClearsTheCallersPointer) {
    PtrModelElementColl_t collection;
    EXPECT_TRUE(collection.Add(MakeParam("a")));
    auto other = MakeParam("a");
    EXPECT_TRUE(collection.Remove(other));
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(collection.GetCount(), 0U);
    auto absent = MakeParam("a");
    EXPECT_FALSE(collection.Remove(absent));
    EXPECT_NE(absent, nullptr);
}

TEST(ModelElementColl, KeepsARemovedElementAliveForItsUsers) {
    PtrModelElementColl_t collection;
    EXPECT_TRUE(collection.Add(MakeParam("a")));
    std::shared_ptr<ModelParam_t> used;
    ASSERT_TRUE(collection.Get("a", used));
    auto removed = used;
    EXPECT_TRUE(collection.Remove(removed));
    EXPECT_EQ(used->GetName(), "a");
    EXPECT_EQ(used.use_count(), 1);
}

TEST(ModelElementColl, DestroysWhatIsLeft) {
    std::weak_ptr<ModelParam_t> watched;
    {
        PtrModelElementColl_t collection;
        const auto param = MakeParam("a");
        watched = param;
        EXPECT_TRUE(collection.Add(param));
    }
    EXPECT_TRUE(watched.expired());
}

TEST(ModelElement, HasNoNameOfItsOwn) {
    const ModelElement_t element;
    EXPECT_TRUE(element.GetName().IsEmpty());
}

Model_t MakeModel(const char* name) {
    return {
        name,           "class",         "source", "severity", "note", ModelType::kAutomatic, Policy::kHourly,
        Policy::kDaily, Policy::kMonthly};
}

TEST(Model, KeepsWhatItWasMadeOf) {
    const Model_t model = MakeModel("Logon");
    EXPECT_EQ(model.GetName(), "Logon");
    EXPECT_EQ(model.GetClass(), "class");
    EXPECT_EQ(model.GetSource(), "source");
    EXPECT_EQ(model.GetSeverity(), "severity");
    EXPECT_EQ(model.GetNote(), "note");
    EXPECT_EQ(model.GetType(), ModelType::kAutomatic);
    EXPECT_EQ(model.GetAggregationPolicy(), Policy::kHourly);
    EXPECT_EQ(model.GetUploadPolicy(), Policy::kDaily);
    EXPECT_EQ(model.GetDeletionPolicy(), Policy::kMonthly);
    EXPECT_TRUE(model.IsEnabled());
    EXPECT_TRUE(model.GetChecksum().IsEmpty());
    EXPECT_EQ(model.GetLastAggregationTime(), 0U);
    EXPECT_EQ(model.GetLastUploadTime(), 0U);
}

TEST(Model, DigestsItsNameAndItsParametersInOrder) {
    Model_t model = MakeModel("Logon");
    EXPECT_TRUE(model.GetParams().Add(MakeParam("User", ParamType::kString)));
    EXPECT_TRUE(model.GetParams().Add(MakeParam("Count", ParamType::kInteger)));
    ASSERT_TRUE(model.ComputeChecksum());
    // md5sum of "Logon Count 2 User 1"
    EXPECT_EQ(model.GetChecksum(), "bec7e93239e63517d026dfda6936d340");
}

TEST(Model, DigestsItsNameAloneWithoutParameters) {
    Model_t model = MakeModel("Logon");
    ASSERT_TRUE(model.ComputeChecksum());
    EXPECT_EQ(model.GetChecksum(), "e245ad2bb801b285a62cd0accab6607f");
}

}  // namespace
