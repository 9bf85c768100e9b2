// The device connection over Bluetooth LE, end to end: ZelmorImpl's GATT link
// on one end of a socket pair, a simulated Bluetooth LE model's ATT server on
// the other. Everything above the socket is the production code.
#include <gtest/gtest.h>

#include <cmath>
#include <mutex>
#include <thread>
#include <vector>

#include "auth_key.h"
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

sim::SimulatedDeviceConfig bleConfig(uint8_t revision, std::string userPassword = {}) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.firmwareVersion = 0x0250;
    config.serial = kAddress;
    config.name = "Van";
    config.userPassword = std::move(userPassword);
    config.historyDays = 2;
    config.logIntervalSeconds = 60;
    config.bluetoothAddress = {0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01};
    config.clock = [] { return kNow; };
    return config;
}

/// Live records as the monitor-data callback delivers them.
struct LiveRecords {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Zelmor::MonitorData> records;

    Zelmor::MonitorDataCallback callback() {
        return [this](Zelmor::MonitorData const& data) {
            std::lock_guard lock(mutex);
            records.push_back(data);
            arrived.notify_all();
        };
    }
    bool waitFor(size_t count) {
        std::unique_lock lock(mutex);
        return arrived.wait_for(lock, std::chrono::seconds(20), [&] { return records.size() >= count; });
    }
    size_t count() {
        std::lock_guard lock(mutex);
        return records.size();
    }
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
        zelmor_->setConnectedCallback(connected_.callback());
        zelmor_->setDisconnectCallback(disconnected_.callback());
        zelmor_->setMonitorDataCallback(live_.callback());
        ASSERT_TRUE(zelmor_->openBluetooth());
    }
    void connect(uint64_t address = kAddress) {
        zelmor_->connectBle(address);
        connected_.get();
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

TEST_F(BleLink, LockedDeviceRefusesUntilUnlocked) {
    start(bleConfig(0x23, "kingfisher"));
    connect();
    CallbackResult<Code, Zelmor::MonitorStatistics> locked;
    zelmor_->requestGetStatistics(locked.callback());
    EXPECT_EQ(std::get<0>(locked.get()), Code::LockedByUserPassword);

    CallbackResult<Code> wrong;
    zelmor_->requestUnlock(makeAuthKey("heron"), wrong.callback());
    EXPECT_NE(std::get<0>(wrong.get()), Code::Success);
    CallbackResult<Code> right;
    zelmor_->requestUnlock(makeAuthKey("kingfisher"), right.callback());
    EXPECT_EQ(std::get<0>(right.get()), Code::Success);

    CallbackResult<Code, Zelmor::MonitorStatistics> unlocked;
    zelmor_->requestGetStatistics(unlocked.callback());
    EXPECT_EQ(std::get<0>(unlocked.get()), Code::Success);
}

TEST_F(BleLink, LiveDataCarriesTheDeviceReadingsAndTheLinkRssi) {
    start(bleConfig(0x23));
    radio_.host().setRssi(-71);
    connect();
    ASSERT_TRUE(live_.waitFor(2));
    sim::MonitorReadings const expected = device_->readings();
    Zelmor::MonitorData const got = live_.records.back();
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
    size_t const before = live_.count();
    ASSERT_TRUE(live_.waitFor(before + 2));
    std::lock_guard lock(live_.mutex);
    EXPECT_EQ(live_.records.back().rssi, -32768);
}

TEST_F(BleLink, ShortFormOfTheSevenTModelHasNoSecondVoltage) {
    start(bleConfig(0x30));
    connect();
    ASSERT_TRUE(live_.waitFor(1));
    std::lock_guard lock(live_.mutex);
    EXPECT_EQ(live_.records.front().hardwareRevision, 0x30);
    EXPECT_TRUE(std::isnan(live_.records.front().voltage2));
    EXPECT_FLOAT_EQ(live_.records.front().voltage1, device_->readings().voltage1);
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

TEST_F(BleLink, FrameThatDoesNotFitItsRevisionAbandonsTheNotification) {
    start(bleConfig(0x30), {.mtu = 247, .extraCharacteristic = false, .liveDataIntervalMs = 0});
    connect();
    std::shared_ptr<sim::BleDevicePeer> const peer = radio_.latestPeer(kAddress);
    ASSERT_TRUE(peer);
    ASSERT_TRUE(live_.waitFor(1));
    size_t const before = live_.count();

    // A 51-byte frame from a 0x3_ model: the good frame behind it in the same
    // notification is not decoded; the next notification is.
    std::vector<uint8_t> notification = liveFrame(0x30, 51, 11.0f);
    std::vector<uint8_t> const good = liveFrame(0x30, 47, 12.5f);
    notification.insert(notification.end(), good.begin(), good.end());
    ASSERT_TRUE(peer->notify(peer->liveDataHandle(), notification));
    ASSERT_TRUE(peer->notify(peer->liveDataHandle(), liveFrame(0x30, 47, 13.25f)));

    ASSERT_TRUE(live_.waitFor(before + 1));
    std::unique_lock lock(live_.mutex);
    auto const pushed = std::find_if(live_.records.begin() + static_cast<long>(before), live_.records.end(),
                                     [](Zelmor::MonitorData const& m) { return m.voltage1 != 0 && m.time == 0; });
    ASSERT_NE(pushed, live_.records.end());
    EXPECT_FLOAT_EQ(pushed->voltage1, 13.25f);
    EXPECT_TRUE(std::isnan(pushed->voltage2));
}

TEST_F(BleLink, DeviceServiceWithAThirdCharacteristicIsClosedLocally) {
    start(bleConfig(0x23), {.mtu = 247, .extraCharacteristic = true, .liveDataIntervalMs = 1000});
    zelmor_->connectBle(kAddress);
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ClosedLocally);
}

TEST_F(BleLink, LinkEndsAreReportedWithTheDeviceInterfaceReasons) {
    start(bleConfig(0x23));
    // Nobody at that address: the connection never comes up.
    zelmor_->connectBle(0xC25A4C0000FF);
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ConnectFailed);

    // The device goes away: a lost link; pending requests fail first.
    disconnected_ = {};
    connected_ = {};
    zelmor_->setConnectedCallback(connected_.callback());
    zelmor_->setDisconnectCallback(disconnected_.callback());
    connect();
    // Live data flows once both notification enables are through, so no
    // write of the client's is under way when the device goes.
    ASSERT_TRUE(live_.waitFor(1));
    radio_.latestPeer(kAddress)->close();
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ConnectionLost);

    disconnected_ = {};
    connected_ = {};
    zelmor_->setConnectedCallback(connected_.callback());
    zelmor_->setDisconnectCallback(disconnected_.callback());
    connect();
    zelmor_->disconnect();
    EXPECT_EQ(std::get<0>(disconnected_.get()), Reason::ClosedLocally);
}

TEST_F(BleLink, FramesAreWrittenInPiecesOfTheMtuLessThree) {
    start(bleConfig(0x23));
    radio_.host().holdConnections(true);
    zelmor_->connectBle(kAddress);
    ASSERT_TRUE(waitUntil([&] { return radio_.host().connectionHeld(); }));
    std::vector<uint8_t> const frame(600, 0x55);
    zelmor_->sendData(frame.data(), frame.size());  // still connecting: nothing goes out
    radio_.host().holdConnections(false);
    connected_.get();
    ASSERT_TRUE(live_.waitFor(1));
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
