#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "client/model/ModelDefinition.h"

namespace {

using Json = nlohmann::ordered_json;

TEST(ModelDefinition, KeepsAParameterWhoseTypeTheAgentDoesNotTell) {
    const Json answer = Json::parse(R"({"Result": {"ModelDef": {"ModelName": "Logon", "ModelVars":
        {"ModelVarName": ["User", "Time"], "ModelVarType": [null, "_TIMESTAMP_"]}}}})");
    const std::optional<ModelDefinition> definition = ModelDefinitionFromAnswer(answer);
    ASSERT_TRUE(definition);
    ASSERT_NE(definition->Find("User"), nullptr);
    EXPECT_EQ(definition->Find("User")->type, "");
    EXPECT_EQ(definition->Find("user"), nullptr);
    EXPECT_EQ(ModelDefinitionToJson(*definition)["ModelVars"],
              Json::parse(
                  R"([{"ModelVarName": "User"}, {"ModelVarName": "Time", "ModelVarType": "_TIMESTAMP_"}])"));
}

TEST(ModelDefinition, IsInNoOtherAnswer) {
    for (const char* const answer :
         {"{}", "[]", R"({"Result": 1})", R"({"Result": {"ModelDef": "Logon"}})"}) {
        EXPECT_FALSE(ModelDefinitionFromAnswer(Json::parse(answer))) << answer;
    }
}

}  // namespace
