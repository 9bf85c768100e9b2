// Every request of the device interface, end to end: the request engine on one
// side, the simulated device on the other, over a plain link (as to a LAN
// device) and over an encrypted one (as through the hub). Answers longer than
// 64 bytes are split into continuation frames throughout.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "auth_key.h"
#include "callback_result.h"
#include "command_codes.h"
#include "firmware_image.h"
#include "in_process_zelmor.h"
#include "log_record.h"
#include "simulated_device.h"

using Code = Zelmor::ResponseCode;
using E = ZelmorRequest;

namespace {

constexpr int64_t kNow = 1763800000;  // the device's clock stands still: readings compare exactly

sim::SimulatedDeviceConfig deviceConfig(std::string userPassword = {}) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x41;
    config.firmwareVersion = 0x0132;
    config.serial = 0x00A1B2C3D4E5F607;
    config.name = "Cabin bank";
    config.userPassword = std::move(userPassword);
    config.historyDays = 20;
    config.maxFramePayload = 64;
    config.clock = [] { return kNow; };
    return config;
}

/// The in-process connection, its queue open for requests with a time-out of
/// their own, telling when a frame has gone to the device.
class Engine : public InProcessZelmor {
public:
    using InProcessZelmor::InProcessZelmor;

    std::function<void()> onSent;

    void sendData(uint8_t const* data, unsigned long length) override {
        InProcessZelmor::sendData(data, length);
        if (onSent) onSent();
    }

    /// Queues command `command` with no payload; `done` gets the code it ends with.
    void request(uint16_t command, uint32_t timeoutMs, std::function<void(Code)> done) {
        enqueue(command, {}, timeoutMs, [done](Code code, uint8_t const*, size_t) { done(code); });
    }
};

/// A connected engine and its device; each request waits for its result.
class Link {
public:
    Link(bool encrypted, sim::SimulatedDeviceConfig config = deviceConfig())
        : device(std::move(config)), engine(device) {
        CallbackResult<> connected;
        engine.setConnectedCallback(connected.callback());
        if (encrypted)
            engine.connectHub(device.accessKey());
        else
            engine.connectLan(0x0100007F);
        connected.get();
    }

    template <class... Params, class... Args>
    Code done(void (E::*request)(Params...), Args&&... args) {
        CallbackResult<Code> result;
        (engine.*request)(std::forward<Args>(args)..., result.callback());
        return std::get<0>(result.get());
    }

    template <class Record>
    std::pair<Code, Record> record(void (E::*request)(Zelmor::RecordCallback<Record>)) {
        CallbackResult<Code, Record> result;
        (engine.*request)(result.callback());
        return std::make_from_tuple<std::pair<Code, Record>>(result.get());
    }

    /// The record of a request that must succeed.
    template <class Record>
    Record ok(void (E::*request)(Zelmor::RecordCallback<Record>)) {
        auto [code, value] = record(request);
        EXPECT_EQ(code, Code::Success);
        return value;
    }

    template <class... Params, class... Args>
    std::pair<Code, std::vector<uint8_t>> bytes(void (E::*request)(Params...), Args... args) {
        CallbackResult<Code, std::vector<uint8_t>> result;
        (engine.*request)(args..., [done = result.callback()](Code code, uint8_t const* data, size_t length) {
            done(code, std::vector<uint8_t>(data, data + length));
        });
        return std::make_from_tuple<std::pair<Code, std::vector<uint8_t>>>(result.get());
    }

    sim::SimulatedDevice device;
    Engine engine;
};

class EngineDevice : public testing::TestWithParam<bool> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Links, EngineDevice, testing::Values(false, true),
                         [](auto const& info) { return info.param ? "Encrypted" : "Plain"; });

TEST_P(EngineDevice, ReadsInformationLiveDataAndStatistics) {
    Link link(GetParam());
    EXPECT_EQ(link.engine.isDirectConnection(), !GetParam());

    auto const info = link.ok(&E::requestGetInfo);
    EXPECT_EQ(std::tie(info.name, info.serial, info.firmwareVersion, info.hardwareRevision, info.wifiNetwork),
              std::make_tuple("Cabin bank", 0x00A1B2C3D4E5F607u, 0x0132, 0x41, "HarbourNet"));
    EXPECT_EQ(link.engine.getDeviceInfo().serial, info.serial);

    auto const live = link.ok(&E::requestGetMonitorData);
    auto const readings = [](auto const& m) {
        return std::tie(m.time, m.voltage1, m.voltage2, m.current, m.power, m.temperature, m.coulombMeter,
                        m.energyMeter, m.stateOfCharge, m.runtime, m.rssi);
    };
    EXPECT_EQ(readings(live), readings(link.device.readings()));

    auto const stats = link.ok(&E::requestGetStatistics);
    EXPECT_LE(stats.minVoltage1, live.voltage1);
    EXPECT_GE(stats.maxVoltage1, live.voltage1);
    EXPECT_GE(stats.timeSincePowerOn, 20u * 86400u);

    auto const fg = link.ok(&E::requestGetFgStatistics);
    EXPECT_FLOAT_EQ(fg.fullChargeCapacity, 200.0f);
    EXPECT_GT(fg.totalDischargedCapacity, 0u);
}

TEST_P(EngineDevice, CommandsChangeTheDevice) {
    Link link(GetParam());
    EXPECT_EQ(link.done(&E::requestSetPowerState, false), Code::Success);
    EXPECT_FALSE(link.device.snapshot().relayOn);
    EXPECT_EQ(link.done(&E::requestSetPowerState, true), Code::Success);
    EXPECT_TRUE(link.device.snapshot().relayOn);
    EXPECT_EQ(link.done(&E::requestRename, std::string("Van house")), Code::Success);
    EXPECT_EQ(link.device.snapshot().name, "Van house");
    EXPECT_EQ(link.done(&E::requestSetTime, 1800000000u), Code::Success);
    EXPECT_EQ(link.device.snapshot().deviceTime, 1800000000u);

    ZelmorConfig config = link.ok(&E::requestGetConfig);
    config.image()[10] ^= 0xFF;
    EXPECT_EQ(link.done(&E::requestSetConfig, config), Code::Success);
    EXPECT_EQ(link.record(&E::requestGetConfig).second, config);
    EXPECT_EQ(link.done(&E::requestResetConfig), Code::Success);
    EXPECT_NE(link.record(&E::requestGetConfig).second, config);

    for (auto request : {&E::requestResetEnergyMeter, &E::requestResetCoulombMeter, &E::requestResetStatistics,
                         &E::requestFgSynchronize, &E::requestZeroCurrentOffset, &E::requestEraseDebug,
                         &E::requestResetAuthKey, &E::requestReboot})
        EXPECT_EQ(link.done(request), Code::Success);
    EXPECT_EQ(link.done(&E::requestCalibrateCurrent, 25.0f), Code::Success);
    EXPECT_EQ(link.done(&E::requestCalibrateCurrent, NAN), Code::InvalidParameter);

    auto const live = link.ok(&E::requestGetMonitorData);
    EXPECT_EQ(live.energyMeter, 0);
    EXPECT_EQ(live.coulombMeter, 0);
    EXPECT_EQ(live.stateOfCharge, 100);

    auto [debugCode, debug] = link.bytes(&E::requestReadDebug, 0u, 4096u);
    EXPECT_EQ(debugCode, Code::Success);
    EXPECT_EQ(std::string(debug.begin(), debug.end()), link.device.debugText().substr(0, debug.size()));
}

TEST_P(EngineDevice, SchedulesAndWifiNetworks) {
    Link link(GetParam());
    ZelmorSchedule morning, evening;
    morning.setStartHour(6);
    morning.setName("Morning pump");
    evening.setStartHour(18);
    evening.setEndHour(23);
    EXPECT_EQ(link.done(&E::requestAddSchedules, std::vector{morning, evening}), Code::Success);
    morning.setEndMinute(30);
    EXPECT_EQ(link.done(&E::requestUpdateSchedule, 0u, morning), Code::Success);
    EXPECT_EQ(link.done(&E::requestUpdateSchedule, 7u, morning), Code::InvalidParameter);
    // Edits are read back only once committed.
    EXPECT_TRUE(link.ok(&E::requestGetSchedules).empty());
    EXPECT_EQ(link.done(&E::requestCommitSchedules), Code::Success);
    auto const schedules = link.ok(&E::requestGetSchedules);
    ASSERT_EQ(schedules.size(), 2u);
    EXPECT_EQ(schedules[0].bytes(), morning.bytes());
    EXPECT_EQ(schedules[1].bytes(), evening.bytes());
    EXPECT_EQ(link.done(&E::requestDeleteSchedule, 0u), Code::Success);
    EXPECT_EQ(link.done(&E::requestCommitSchedules), Code::Success);
    EXPECT_EQ(link.device.snapshot().schedules.size(), 1u);
    EXPECT_EQ(link.done(&E::requestClearSchedules), Code::Success);
    EXPECT_EQ(link.done(&E::requestCommitSchedules), Code::Success);
    EXPECT_TRUE(link.record(&E::requestGetSchedules).second.empty());

    std::atomic<int> named{0};
    std::atomic<int> unnamed{0};
    link.engine.setScanResultHandler([&](Zelmor::WifiScanResult const* r) { ++(r && r->ssid[0] ? named : unnamed); });
    EXPECT_EQ(link.done(&E::requestStartWifiScan), Code::Success);
    // The scan results follow the answer on the same link: one more exchange flushes them.
    EXPECT_EQ(link.done(&E::requestAddWifiNetwork, Zelmor::WifiNetwork{"Marina guest", "tide-2024", 3, true}),
              Code::Success);
    EXPECT_GE(named, 3);
    EXPECT_EQ(unnamed, 0);
    // Name, security, metered, in use, failed, and whether a signal was seen
    // (the scan saw the network in use).
    using Row = std::tuple<std::string, int, bool, bool, bool, bool>;
    auto const rows = [](std::vector<Zelmor::WifiNetwork> const& networks) {
        std::vector<Row> out;
        for (auto const& n : networks)
            out.emplace_back(n.ssid, n.security, n.metered, n.inUse, n.failed,
                             n.lastSignal != Zelmor::WifiNetwork::kNeverSeen);
        return out;
    };
    Row const harbour{"HarbourNet", 3, false, true, false, true};
    Row const marina{"Marina guest", 3, true, false, false, false};
    EXPECT_EQ(rows(link.ok(&E::requestGetWifiNetworks)), (std::vector<Row>{harbour, marina}));
    EXPECT_EQ(link.done(&E::requestWifiConfigure, Zelmor::WifiNetwork{"Cabin AP", "pinecone", 3}), Code::Success);
    EXPECT_EQ(link.device.snapshot().wifiNetwork, "Cabin AP");
    auto const networks = link.ok(&E::requestGetWifiNetworks);
    // The device's clock stands still: it is still connecting, to no network in use.
    Row leftHarbour = harbour;
    std::get<3>(leftHarbour) = false;
    EXPECT_EQ(rows(networks), (std::vector<Row>{leftHarbour, marina, {"Cabin AP", 3, false, false, false, false}}));
    EXPECT_EQ(link.done(&E::requestRemoveWifiNetwork, uint8_t{0}), Code::Success);
    EXPECT_EQ(link.record(&E::requestGetWifiNetworks).second.size(), networks.size() - 1);
    EXPECT_EQ(link.done(&E::requestRemoveWifiNetwork, uint8_t{200}), Code::InvalidParameter);

    auto const key = link.ok(&E::requestGetAccessKeys);
    EXPECT_EQ(key, link.device.accessKey());
    EXPECT_EQ(link.done(&E::requestResetAccessKeys), Code::Success);
    EXPECT_NE(link.record(&E::requestGetAccessKeys).second, key);
}

TEST_P(EngineDevice, PasswordLocks) {
    Link link(GetParam(), deviceConfig("bilge"));
    auto const info = link.ok(&E::requestGetInfo);
    EXPECT_TRUE(info.lockStatus & 0x10);
    EXPECT_EQ(link.record(&E::requestGetMonitorData).first, Code::LockedByUserPassword);
    EXPECT_EQ(link.done(&E::requestUnlock, makeAuthKey("bulge")), Code::PasswordRejected);
    EXPECT_EQ(link.done(&E::requestUnlock, makeAuthKey("bilge")), Code::Success);
    EXPECT_EQ(link.record(&E::requestGetMonitorData).first, Code::Success);
    EXPECT_FALSE(link.record(&E::requestGetInfo).second.lockStatus & 0x10);

    EXPECT_EQ(link.done(&E::requestSetMasterPasswordLock, makeAuthKey("keel")), Code::Success);
    EXPECT_EQ(link.record(&E::requestGetAuthKey).second, makeAuthKey("bilge"));
    EXPECT_EQ(link.done(&E::requestSetUserPasswordLock, makeAuthKey("hull")), Code::Success);
    EXPECT_EQ(link.done(&E::requestClearUserPasswordLock), Code::Success);
    EXPECT_EQ(link.done(&E::requestClearMasterPasswordLock), Code::Success);
    auto const state = link.device.snapshot();
    EXPECT_FALSE(state.userPasswordSet);
    EXPECT_FALSE(state.masterPasswordSet);
}

TEST_P(EngineDevice, LogFilesArePagedAndReadWhole) {
    Link link(GetParam());
    auto const files = link.ok(&E::requestGetFileList);
    auto const deviceFiles = link.device.logFiles();
    ASSERT_EQ(files.size(), deviceFiles.size());
    ASSERT_GT(files.size(), 16u) << "the listing must take more than one page";
    for (size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(files[i].fileId, deviceFiles[i].id);
        EXPECT_EQ(files[i].size, deviceFiles[i].size);
    }

    // Read the newest full day in network-sized blocks, as the log sync does.
    auto const& file = files[files.size() - 2];
    std::vector<uint8_t> local;
    while (local.size() < file.size) {
        auto [readCode, block] =
            link.bytes(&E::requestReadLogFile, file.fileId, static_cast<uint32_t>(local.size()), 0x20000u);
        ASSERT_EQ(readCode, Code::Success);
        ASSERT_FALSE(block.empty());
        local.insert(local.end(), block.begin(), block.end());
    }
    EXPECT_EQ(local, link.device.logFile(file.fileId));
    std::vector<LogRecord> records;
    decodeLogRecords(0x41, local.data(), local.size(), records);
    EXPECT_EQ(records.size(), 1440u);
    for (size_t i = 1; i < records.size(); ++i) EXPECT_EQ(records[i].time - records[i - 1].time, 60u);

    EXPECT_EQ(link.done(&E::requestClearLog), Code::Success);
    EXPECT_TRUE(link.record(&E::requestGetFileList).second.empty());
}

TEST_P(EngineDevice, FirmwareTransferWithProgressAndCancel) {
    Link link(GetParam());
    ASSERT_EQ(link.record(&E::requestGetInfo).first, Code::Success);
    std::vector<uint8_t> payload(10000);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 7);
    auto const image = buildFirmwareImage(0x41, 0x0140, 0x0001, payload);
    ASSERT_EQ(checkFirmwareImage(image.data(), image.size(), 0x41), 0x0140);

    // Sends the image, going on after each block while `proceed`; gives the result and the progress reported.
    auto const update = [&](bool proceed) {
        std::vector<uint32_t> progress;
        CallbackResult<Code> result;
        link.engine.requestUpdateFirmware(
            image.data(), static_cast<uint32_t>(image.size()),
            [&](uint32_t sent, uint32_t total) {
                EXPECT_EQ(total, image.size());
                progress.push_back(sent);
                return proceed;
            },
            result.callback());
        return std::pair(std::get<0>(result.get()), progress);
    };
    EXPECT_EQ(update(false), std::pair(Code::Cancelled, std::vector<uint32_t>{4096}));
    auto state = link.device.firmwareUpdate();
    EXPECT_EQ(state.blocksReceived, 1u);
    EXPECT_FALSE(state.finished);
    EXPECT_EQ(link.device.snapshot().firmwareVersion, 0x0132);

    EXPECT_EQ(update(true), std::pair(Code::Success, std::vector<uint32_t>{4096, 8192, 10020}));
    state = link.device.firmwareUpdate();
    EXPECT_TRUE(state.finished);
    EXPECT_EQ(state.bytesReceived, image.size());
    EXPECT_EQ(link.device.snapshot().firmwareVersion, 0x0140);
}

// The silent request waits a fifth of a second, not the default eight: the
// device never answers it, however long it is given.
TEST_P(EngineDevice, SilentDeviceTimesOutAndTheNextRequestIsServed) {
    Link link(GetParam());
    ASSERT_EQ(link.record(&E::requestGetInfo).first, Code::Success);
    sim::FaultSettings faults;
    faults.silentCommands = 1;
    link.device.faults().configure(faults);
    CallbackResult<Code> silent;
    link.engine.request(command::kGetMonitorData, 200, silent.callback());
    EXPECT_EQ(std::get<0>(silent.get()), Code::RequestTimeout);
    EXPECT_EQ(link.record(&E::requestGetMonitorData).first, Code::Success);
}

// The pending request would wait two minutes for an answer the device never
// sends: only the disconnect can end it within the result's limit.
TEST(EngineDeviceLink, DisconnectReportsOnceAndEndsWhatIsPending) {
    Link link(false);
    std::atomic<int> disconnects{0};
    CallbackResult<Zelmor::DisconnectReason> reason;
    link.engine.setDisconnectCallback([&, report = reason.callback()](Zelmor::DisconnectReason r) {
        ++disconnects;
        report(r);
    });
    CallbackResult<> sent;
    link.engine.onSent = sent.callback();  // read by the worker only once the request below is queued
    sim::FaultSettings faults;
    faults.silentCommands = 1;
    link.device.faults().configure(faults);
    CallbackResult<Code> pending;
    link.engine.request(command::kReboot, 120000, pending.callback());
    sent.get();
    link.engine.disconnect();
    EXPECT_EQ(std::get<0>(reason.get()), Zelmor::DisconnectReason::ClosedLocally);
    EXPECT_EQ(std::get<0>(pending.get()), Code::RequestTimeout);
    EXPECT_EQ(disconnects, 1);
}

TEST(EngineDeviceLink, HubLinkWithAStaleKeyIsClosedByTheDevice) {
    sim::SimulatedDevice device(deviceConfig());
    InProcessZelmor engine(device);
    CallbackResult<Zelmor::DisconnectReason> reason;
    engine.setDisconnectCallback(reason.callback());
    Zelmor::WifiAccessKey stale = device.accessKey();
    stale.keyId[0] ^= 1;
    engine.connectHub(stale);
    EXPECT_EQ(std::get<0>(reason.get()), Zelmor::DisconnectReason::ConnectionLost);
}
