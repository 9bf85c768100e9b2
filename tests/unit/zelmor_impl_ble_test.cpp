// The device connection over Bluetooth LE, end to end: ZelmorImpl's GATT link
// on one end of a socket pair, a simulated Bluetooth LE model's ATT server on
// the other. Everything above the socket is the production code.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "ble_radio.h"
#include "callback_result.h"
#include "cobs.h"
#include "simulated_device.h"
#include "zelmor_impl.h"

namespace {

using Code = Zelmor::ResponseCode;
using Reason = Zelmor::DisconnectReason;

constexpr uint64_t kAddress = 0xC25A4C000001;
constexpr int64_t kNow = 1763800000;  // the device's clock stands still: readings compare exactly

sim::SimulatedDeviceConfig bleConfig(uint8_t revision) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.firmwareVersion = 0x0250;
    config.serial = kAddress;
    config.name = "Van";
    config.historyDays = 2;
    config.logIntervalSeconds = 60;
    config.bluetoothAddress = {0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01};
    config.clock = [] { return kNow; };
    return config;
}

/// Live records as the monitor-data callback delivers them.
class LiveRecords {
public:
    Zelmor::MonitorDataCallback callback() {
        return [this](Zelmor::MonitorData const& data) {
            std::lock_guard lock(mutex_);
            records_.push_back(data);
            arrived_.notify_all();
        };
    }
    /// All records once there are `count`; fewer when they do not come in time.
    std::vector<Zelmor::MonitorData> wait(size_t count) {
        std::unique_lock lock(mutex_);
        arrived_.wait_for(lock, std::chrono::seconds(20), [&] { return records_.size() >= count; });
        return records_;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<Zelmor::MonitorData> records_;
};

template <class Condition>
bool waitUntil(Condition condition) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// A simulated device on the air and a connection object that reaches it.
class BleLink : public ::testing::Test {
protected:
    void start(sim::SimulatedDeviceConfig config, sim::BlePeerOptions options = {}) {
        options.liveDataIntervalMs = 20;
        device_ = std::make_unique<sim::SimulatedDevice>(std::move(config));
        radio_.addDevice(kAddress, *device_, options);
        zelmor_ = std::make_unique<ZelmorImpl>("127.0.0.1", radio_.host());
        zelmor_->setMonitorDataCallback(live_.callback());
        ASSERT_TRUE(zelmor_->openBluetooth());
    }
    /// Connects with fresh link callbacks; waits for the link unless told not to.
    void connect(uint64_t address = kAddress, bool wait = true) {
        connected_ = {};
        disconnected_ = {};
        zelmor_->setConnectedCallback(connected_.callback());
        zelmor_->setDisconnectCallback(disconnected_.callback());
        zelmor_->connectBle(address);
        if (wait) connected_.get();
    }
    void TearDown() override {
        if (!zelmor_) return;
        zelmor_->setMonitorDataCallback({});
        zelmor_.reset();
    }

    // The device outlives the radio, whose links use it.
    std::unique_ptr<sim::SimulatedDevice> device_;
    sim::BleRadio radio_;
    std::unique_ptr<ZelmorImpl> zelmor_;
    CallbackResult<> connected_;
    CallbackResult<Reason> disconnected_;
    LiveRecords live_;
};

TEST_F(BleLink, RunsTheDeviceProtocol) {
    start(bleConfig(0x23));
    connect();

    CallbackResult<Code, Zelmor::DeviceInfo> info;
    zelmor_->requestGetInfo(info.callback());
    auto const [infoCode, record] = info.get();
    ASSERT_EQ(infoCode, Code::Success);
    EXPECT_EQ(record.hardwareRevision, 0x23);
    EXPECT_EQ(record.name, "Van");
    EXPECT_EQ(record.bluetoothAddress, (std::array<uint8_t, 6>{0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01}));

    // A whole log file, read in pieces longer than one write command.
    CallbackResult<Code, std::vector<Zelmor::LogFileDescriptor>> list;
    zelmor_->requestGetFileList(list.callback());
    auto const [listCode, files] = list.get();
    ASSERT_EQ(listCode, Code::Success);
    ASSERT_FALSE(files.empty());
    Zelmor::LogFileDescriptor const file = files.front();
    std::vector<uint8_t> copy;
    while (copy.size() < file.size) {
        CallbackResult<Code, std::vector<uint8_t>> chunk;
        auto done = chunk.callback();
        zelmor_->requestReadLogFile(file.fileId, static_cast<uint32_t>(copy.size()), 4096,
                                    [done](Code code, uint8_t const* data, size_t length) {
                                        done(code, std::vector<uint8_t>(data, data + length));
                                    });
        auto const [code, bytes] = chunk.get();
        ASSERT_EQ(code, Code::Success);
        ASSERT_FALSE(bytes.empty());
        copy.insert(copy.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(copy, device_->logFile(file.fileId));
}

TEST_F(BleLink, LiveDataCarriesTheDeviceReadingsAndTheLinkRssi) {
    start(bleConfig(0x23));
    radio_.host().setRssi(-71);
    connect();
    std::vector<Zelmor::MonitorData> records = live_.wait(2);
    ASSERT_GE(records.size(), 2u);
    sim::MonitorReadings const expected = device_->readings();
    Zelmor::MonitorData const& got = records.back();
    EXPECT_EQ(got.hardwareRevision, 0x23);
    EXPECT_EQ(got.firmwareVersion, 0x0250);
    EXPECT_EQ(got.time, expected.time);
    EXPECT_EQ(got.status, expected.status);
    EXPECT_FLOAT_EQ(got.voltage1, expected.voltage1);
    EXPECT_FLOAT_EQ(got.voltage2, expected.voltage2);
    EXPECT_FLOAT_EQ(got.current, expected.current);
    EXPECT_FLOAT_EQ(got.power, expected.power);
    EXPECT_FLOAT_EQ(got.temperature, expected.temperature);
    EXPECT_EQ(got.coulombMeter, expected.coulombMeter);
    EXPECT_EQ(got.energyMeter, expected.energyMeter);
    EXPECT_EQ(got.powerStatus, static_cast<uint8_t>(expected.powerStatus));
    EXPECT_EQ(got.stateOfCharge, expected.stateOfCharge);
    EXPECT_EQ(got.runtime, expected.runtime);
    EXPECT_EQ(got.rssi, -71);

    // An adapter that cannot tell the signal strength leaves it "not available".
    radio_.host().setRssi(0, false);
    records = live_.wait(records.size() + 2);
    EXPECT_EQ(records.back().rssi, -32768);
}

/// One live-data frame of `length` bytes naming `revision`, COBS-framed.
std::vector<uint8_t> liveFrame(uint8_t revision, size_t length, float voltage1) {
    std::vector<uint8_t> frame(length, 0);
    frame[2] = revision;
    std::memcpy(&frame[11], &voltage1, sizeof voltage1);
    std::vector<uint8_t> encoded;
    cobsEncode(frame.data(), frame.size(), encoded);
    return encoded;
}

// The short form of the 0x3_ models, and a frame that does not fit it: the
// notification is abandoned, so the good frame behind it is not decoded, but
// the next notification is.
TEST_F(BleLink, SevenTModelSendsTheShortFormAndAMisfitAbandonsItsNotification) {
    start(bleConfig(0x30));
    connect();
    std::vector<Zelmor::MonitorData> const first = live_.wait(1);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first[0].hardwareRevision, 0x30);
    EXPECT_TRUE(std::isnan(first[0].voltage2));
    EXPECT_FLOAT_EQ(first[0].voltage1, device_->readings().voltage1);

    std::shared_ptr<sim::BleDevicePeer> const peer = radio_.latestPeer(kAddress);
    ASSERT_TRUE(peer);
    std::vector<uint8_t> notification = liveFrame(0x30, 51, 11.0f);
    std::vector<uint8_t> const good = liveFrame(0x30, 47, 12.5f);
    notification.insert(notification.end(), good.begin(), good.end());
    ASSERT_TRUE(peer->notify(peer->liveDataHandle(), notification));
    ASSERT_TRUE(peer->notify(peer->liveDataHandle(), liveFrame(0x30, 47, 13.25f)));

    // The device's own records carry its clock; the crafted ones a time of 0.
    std::vector<Zelmor::MonitorData> pushed;
    ASSERT_TRUE(waitUntil([&] {
        pushed.clear();
        for (Zelmor::MonitorData const& m : live_.wait(0))
            if (m.time == 0) pushed.push_back(m);
        return !pushed.empty();
    }));
    ASSERT_EQ(pushed.size(), 1u);
    EXPECT_FLOAT_EQ(pushed[0].voltage1, 13.25f);
    EXPECT_TRUE(std::isnan(pushed[0].voltage2));
}

TEST_F(BleLink, DeviceServiceWithAThirdCharacteristicIsClosedLocally) {
    start(bleConfig(0x23), {.extraCharacteristic = true});
    connect(kAddress, false);
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ClosedLocally);
}

TEST_F(BleLink, LinkEndsAreReportedWithTheDeviceInterfaceReasons) {
    start(bleConfig(0x23));
    // Nobody at that address: the connection never comes up.
    connect(0xC25A4C0000FF, false);
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ConnectFailed);
    // Live data flows once both notification enables are through, so no
    // write of the client's is under way when the device goes.
    connect();
    ASSERT_FALSE(live_.wait(1).empty());
    radio_.latestPeer(kAddress)->close();
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ConnectionLost);
    connect();
    zelmor_->disconnect();
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ClosedLocally);
}

TEST_F(BleLink, FramesAreWrittenInPiecesOfTheMtuLessThree) {
    start(bleConfig(0x23));
    radio_.host().holdConnections(true);
    connect(kAddress, false);
    ASSERT_TRUE(waitUntil([&] { return radio_.host().connectionHeld(); }));
    std::vector<uint8_t> const frame(600, 0x55);
    zelmor_->sendData(frame.data(), frame.size());  // still connecting: nothing goes out
    radio_.host().holdConnections(false);
    connected_.get();
    ASSERT_FALSE(live_.wait(1).empty());
    std::shared_ptr<sim::BleDevicePeer> const peer = radio_.latestPeer(kAddress);
    ASSERT_EQ(peer->mtu(), 247);
    EXPECT_TRUE(peer->commandWriteSizes().empty());

    zelmor_->sendData(frame.data(), frame.size());
    ASSERT_TRUE(waitUntil([&] { return peer->commandWriteSizes().size() >= 3; }));
    EXPECT_EQ(peer->commandWriteSizes(), (std::vector<size_t>{244, 244, 112}));
}

TEST_F(BleLink, NoAdapterNoLink) {
    start(bleConfig(0x23));
    ZelmorImpl other("127.0.0.1", radio_.host());
    radio_.host().setAdapterPresent(false);
    EXPECT_FALSE(other.openBluetooth());
    EXPECT_THROW(other.getRssi(), BluetoothLE::Exception);
}

}  // namespace
