// A device window whose device does not answer at its address: closing the
// window abandons the connect at once, and left alone the link gives up after
// its own time-out and says so.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "gui_device.h"
#include "gui_user.h"
#include "unanswered_address.h"
#include "zelmor_impl.h"

namespace {

GuiDevice* openLanDeviceAt(char const* address) {
    Zelmor::DeviceIdentifier id;
    id.name = "Cabin";
    id.hardwareRevision = 0x10;
    id.ipAddress = inet_addr(address);
    auto* window = new GuiDevice(nullptr, id, nullptr);
    window->Show();
    return window;
}

// The address answers again just before the window closes, so a connect the
// window left running would get through with the system's next SYN, about a
// second later; the device sees none.
TEST(GuiDeviceLinkTest, ClosingTheWindowAbandonsAConnectNobodyAnswers) {
    UnansweredAddress device("127.0.0.40", ZelmorImpl::kDevicePort);
    GuiDevice* window = openLanDeviceAt("127.0.0.40");
    ASSERT_TRUE(waitFor([&] { return device.connectPending(); }));
    EXPECT_EQ(statusOf(*window), "Connecting ...");
    device.answerAgain();
    window->Close(true);
    EXPECT_TRUE(allWindowsGone());
    EXPECT_FALSE(device.connectPending());
    EXPECT_FALSE(device.reached());
}

TEST(GuiDeviceLinkTest, LeftAloneTheConnectFailsAfterItsTimeOut) {
    UnansweredAddress device("127.0.0.41", ZelmorImpl::kDevicePort);
    ::setenv(ZelmorImpl::kConnectTimeoutVariable, "300", 1);
    openLanDeviceAt("127.0.0.41");
    ::unsetenv(ZelmorImpl::kConnectTimeoutVariable);
    // The window closes itself once the message is read.
    wxTEST_DIALOG(EXPECT_TRUE(waitForMessage(ExpectMessage::answered())),
                  ExpectMessage("Info", "Device failed to connect"));
    EXPECT_TRUE(allWindowsGone());
    EXPECT_FALSE(device.connectPending());
}

}  // namespace
