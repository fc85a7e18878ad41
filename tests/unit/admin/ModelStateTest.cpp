#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "model/ModelElement.h"
#include "support/TestHost.h"

namespace {

TEST(ModelState, AgreesInMemoryAndInTheDatabaseHoweverManySwitchAtOnce) {
    const TestHost host;
    host.StartWith(kLogonDefinition);
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    for (int round = 0; round < 25; ++round) {
        std::vector<std::thread> clients;
        for (int i = 0; i < 8; ++i) {
            clients.emplace_back([i] {
                EXPECT_EQ(TestHost::CallWith(
                              i % 2 == 0 ? "EventLogManagerEnableModel" : "EventLogManagerDisableModel",
                              R"({"ModelName":"Logon"})"),
                          0U);
            });
        }
        for (std::thread& client : clients) {
            client.join();
        }
        ASSERT_EQ(host.Rows("SELECT RM_Enabled FROM RegisteredModel"), model->IsEnabled() ? "1" : "0");
    }
}

}  // namespace
