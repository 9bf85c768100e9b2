// The device connection over Bluetooth LE, end to end: ZelmorImpl's GATT link
// on one end of a socket pair, a simulated Bluetooth LE model's ATT server on
// the other. Everything above the socket is the production code.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <tuple>
#include <vector>

#include "auth_key.h"
#include "ble_radio.h"
#include "callback_result.h"
#include "cobs.h"
#include "reports.h"
#include "simulated_device.h"
#include "zelmor_impl.h"

namespace {

using Code = Zelmor::ResponseCode;
using Reason = Zelmor::DisconnectReason;

constexpr uint64_t kAddress = 0xC25A4C000001;

/// A simulated device on the air and a connection object that reaches it.
class BleLink : public ::testing::Test {
protected:
    void SetUp() override {
        sim::SimulatedDeviceConfig config;
        config.hardwareRevision = 0x23;
        config.firmwareVersion = 0x0250;
        config.name = "Van";
        config.userPassword = "bilge";
        config.historyDays = 2;
        config.bluetoothAddress = {0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01};
        config.clock = [] { return int64_t{1763800000}; };  // the clock stands still: readings compare exactly
        device_ = std::make_unique<sim::SimulatedDevice>(std::move(config));
        offer({});
        zelmor_->setMonitorDataCallback(live_.callback());
        ASSERT_TRUE(zelmor_->openBluetooth());
    }
    void offer(sim::BlePeerOptions options) {
        options.liveDataIntervalMs = 20;
        radio_.addDevice(kAddress, *device_, options);
    }
    void connect(uint64_t address = kAddress, bool wait = true) {
        connected_ = {};
        disconnected_ = {};
        zelmor_->setConnectedCallback(connected_.callback());
        zelmor_->setDisconnectCallback(disconnected_.callback());
        zelmor_->connectBle(address);
        if (wait) connected_.get();
    }

    // The device outlives the radio, whose links use it.
    std::unique_ptr<sim::SimulatedDevice> device_;
    sim::BleRadio radio_;
    std::unique_ptr<ZelmorImpl> zelmor_ = std::make_unique<ZelmorImpl>("127.0.0.1", radio_.host());
    CallbackResult<> connected_;
    CallbackResult<Reason> disconnected_;
    Reports<Zelmor::MonitorData> live_;
};

TEST_F(BleLink, RunsTheDeviceProtocol) {
    connect();
    CallbackResult<Code, Zelmor::DeviceInfo> info;
    zelmor_->requestGetInfo(info.callback());
    auto const [infoCode, record] = info.get();
    ASSERT_EQ(infoCode, Code::Success);
    EXPECT_EQ(record.hardwareRevision, 0x23);
    EXPECT_EQ(record.name, "Van");
    EXPECT_EQ(record.bluetoothAddress, (std::array<uint8_t, 6>{0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01}));
    for (auto const& [password, code] : {std::pair{"bulge", Code::PasswordRejected}, {"bilge", Code::Success}}) {
        CallbackResult<Code> unlock;
        zelmor_->requestUnlock(makeAuthKey(password), unlock.callback());
        EXPECT_EQ(std::get<0>(unlock.get()), code) << password;
    }

    // A whole log file, read in pieces longer than one write command.
    CallbackResult<Code, std::vector<Zelmor::LogFileDescriptor>> list;
    zelmor_->requestGetFileList(list.callback());
    auto const [listCode, files] = list.get();
    ASSERT_EQ(listCode, Code::Success);
    ASSERT_FALSE(files.empty());
    std::vector<uint8_t> copy;
    while (copy.size() < files[0].size) {
        CallbackResult<Code, std::vector<uint8_t>> chunk;
        zelmor_->requestReadLogFile(files[0].fileId, static_cast<uint32_t>(copy.size()), 4096,
                                    [done = chunk.callback()](Code code, uint8_t const* data, size_t length) {
                                        done(code, std::vector<uint8_t>(data, data + length));
                                    });
        auto const [code, bytes] = chunk.get();
        ASSERT_EQ(code, Code::Success);
        ASSERT_FALSE(bytes.empty());
        copy.insert(copy.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(copy, device_->logFile(files[0].fileId));
}

TEST_F(BleLink, LiveDataCarriesTheDeviceReadingsAndTheLinkRssi) {
    radio_.host().setRssi(-71);
    connect();
    std::vector<Zelmor::MonitorData> records = live_.wait(2);
    ASSERT_GE(records.size(), 2u);
    sim::MonitorReadings const expected = device_->readings();
    Zelmor::MonitorData const& got = records.back();
    // Floats travel in their own bits, so they compare exactly.
    EXPECT_EQ(
        std::tie(got.hardwareRevision, got.firmwareVersion, got.time, got.status, got.voltage1, got.voltage2,
                 got.current, got.power, got.temperature, got.coulombMeter, got.energyMeter, got.powerStatus,
                 got.stateOfCharge, got.runtime, got.rssi),
        std::tuple(0x23, 0x0250, expected.time, expected.status, expected.voltage1, expected.voltage2, expected.current,
                   expected.power, expected.temperature, expected.coulombMeter, expected.energyMeter,
                   static_cast<uint8_t>(expected.powerStatus), expected.stateOfCharge, expected.runtime, -71));
    // An adapter that cannot tell the signal strength leaves it "not available".
    radio_.host().setRssi(0, false);
    records = live_.wait(records.size() + 2);
    EXPECT_EQ(records.back().rssi, -32768);
}

/// A notification of COBS-framed live-data frames, each of its length in bytes
/// and, when long enough, from a 0x30 model with its voltage 1.
std::vector<uint8_t> liveFrames(std::vector<std::pair<size_t, float>> const& frames) {
    std::vector<uint8_t> encoded;
    for (auto const& [length, voltage1] : frames) {
        std::vector<uint8_t> frame(length, 0);
        if (length > 15) {
            frame[2] = 0x30;
            std::memcpy(&frame[11], &voltage1, sizeof voltage1);
        }
        cobsEncode(frame.data(), frame.size(), encoded);
    }
    return encoded;
}

// The 0x3_ models send the short form of 47 bytes, without voltage 2. A frame
// that does not fit it abandons its notification, so the good frame behind it
// is not decoded, but the next notification is; there a frame too short to
// name a revision is only skipped.
TEST_F(BleLink, AMisfitFrameAbandonsItsNotification) {
    connect();
    ASSERT_FALSE(live_.wait(1).empty());
    std::shared_ptr<sim::BleDevicePeer> const peer = radio_.latestPeer(kAddress);
    ASSERT_TRUE(peer->notify(peer->liveDataHandle(), liveFrames({{51, 11.0f}, {47, 12.5f}})));
    ASSERT_TRUE(peer->notify(peer->liveDataHandle(), liveFrames({{2, 0.0f}, {47, 13.25f}})));
    // The device's own records carry its revision; the crafted ones 0x30.
    auto const crafted = [](Zelmor::MonitorData const& m) { return m.hardwareRevision == 0x30; };
    std::vector<Zelmor::MonitorData> const pushed = live_.wait(1, crafted);
    ASSERT_EQ(pushed.size(), 1u);
    EXPECT_FLOAT_EQ(pushed[0].voltage1, 13.25f);
    EXPECT_TRUE(std::isnan(pushed[0].voltage2));
}

TEST_F(BleLink, LinkEndsAreReportedWithTheDeviceInterfaceReasons) {
    struct Case {
        char const* name;
        sim::BlePeerOptions options;
        uint64_t address;
        std::function<void()> end;
        Reason reason;
    } const cases[] = {
        {"a device service with a third characteristic",
         {.extraCharacteristic = true},
         kAddress,
         nullptr,
         Reason::ClosedLocally},
        {"nobody at the address", {}, 0xC25A4C0000FF, nullptr, Reason::ConnectFailed},
        // Live data flows once both notification enables are through, so no
        // write of the client's is under way when the device goes.
        {"the device goes",
         {},
         kAddress,
         [this] {
             ASSERT_FALSE(live_.wait(1).empty());
             radio_.latestPeer(kAddress)->close();
         },
         Reason::ConnectionLost},
        {"disconnect()", {}, kAddress, [this] { zelmor_->disconnect(); }, Reason::ClosedLocally},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        offer(c.options);
        connect(c.address, c.end != nullptr);
        if (c.end) c.end();
        EXPECT_EQ(std::get<0>(disconnected_.get()), c.reason);
    }
}

// 600 bytes at the MTU of 247 the device offers; nothing while still connecting.
TEST_F(BleLink, FramesAreWrittenInPiecesOfTheMtuLessThree) {
    radio_.host().holdConnections(true);
    connect(kAddress, false);
    ASSERT_TRUE(eventually([&] { return radio_.host().connectionHeld(); }));
    std::vector<uint8_t> const frame(600, 0x55);
    zelmor_->sendData(frame.data(), frame.size());
    EXPECT_THROW(zelmor_->getRssi(), BluetoothLE::Exception);
    radio_.host().holdConnections(false);
    connected_.get();
    ASSERT_FALSE(live_.wait(1).empty());
    std::shared_ptr<sim::BleDevicePeer> const peer = radio_.latestPeer(kAddress);
    EXPECT_TRUE(peer->commandWriteSizes().empty());
    zelmor_->sendData(frame.data(), frame.size());
    ASSERT_TRUE(eventually([&] { return peer->commandWriteSizes().size() >= 3; }));
    EXPECT_EQ(peer->commandWriteSizes(), (std::vector<size_t>{244, 244, 112}));
}

// A second connect while the link is up leaves it as it is: requests are
// still answered and live data still comes.
TEST_F(BleLink, ConnectOnALiveLinkChangesNothing) {
    connect();
    size_t const seen = live_.wait(1).size();
    std::shared_ptr<sim::BleDevicePeer> const peer = radio_.latestPeer(kAddress);
    zelmor_->connectBle(kAddress);
    CallbackResult<Code, Zelmor::DeviceInfo> info;
    zelmor_->requestGetInfo(info.callback());
    EXPECT_EQ(std::get<0>(info.get()), Code::Success);
    EXPECT_GE(live_.wait(seen + 2).size(), seen + 2);
    EXPECT_EQ(radio_.latestPeer(kAddress), peer);
}

TEST_F(BleLink, NoAdapterNoLink) {
    radio_.host().setAdapterPresent(false);
    EXPECT_FALSE(ZelmorImpl("127.0.0.1", radio_.host()).openBluetooth());
}

}  // namespace
