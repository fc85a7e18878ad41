#include <gtest/gtest.h>

#include "events/EventUpload.h"
#include "host/container/LumContainer.h"
#include "host/core/LumMetrics.h"
#include "module/UploadStatus.h"
#include "support/StartedModule.h"

namespace {

TEST(UploadStatus, ShowsWhatIsOutstanding) {
    StartedModule module;
    const auto model = module.Add({.name = "Logon"});
    module.Change("INSERT INTO Event_Logon (E_Date, E_DeviceId, E_GroupId) VALUES (50, 0, 0)");
    BeginUploadStatus();
    EXPECT_TRUE(UploadEvents(model, 0, 60, false));  // there is no file store
    LumContainer status;
    LumStatusCollect(status);
    LumContainer uploads;
    ASSERT_TRUE(status.GetContainer("uploads", uploads));
    EXPECT_EQ(uploads.ToJson(), R"({"Model":["Logon"],"Start":[0],"End":[60],"HandedOver":[0],"Left":[1],)"
                                R"("Reason":["the file store did not take a file"]})");
    EndUploadStatus();
    LumContainer without;
    LumStatusCollect(without);
    EXPECT_FALSE(without.Contains("uploads"));
}

}  // namespace
