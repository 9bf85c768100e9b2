// A link to a zelmor-sim device as a device window holds it, for the dialogs
// that the window opens with its device.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "callback_result.h"
#include "zelmor_impl.h"

/// Connects over the LAN and reads the information record (the dialogs
/// consult it).
struct ConnectedDevice {
    ZelmorImpl device;

    explicit ConnectedDevice(std::string const& address) {
        CallbackResult<> connected;
        device.setConnectedCallback(connected.callback());
        device.connectLan(inet_addr(address.c_str()));
        connected.get();
        device.setConnectedCallback({});
        CallbackResult<Zelmor::ResponseCode, Zelmor::DeviceInfo> info;
        device.requestGetInfo(info.callback());
        EXPECT_EQ(std::get<0>(info.get()), Zelmor::ResponseCode::Success);
    }
};
