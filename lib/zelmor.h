#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "zelmor_config.h"
#include "zelmor_schedule.h"

/// The abstract interface through which the application talks to one battery
/// monitor, whatever the transport. Every request returns at once and reports
/// later, on a worker thread, through its callback.
///
/// The order of the virtual operations is part of the interface and is kept by
/// ZelmorRequest and every connection class: transport hooks first, then the
/// accessors, then the requests, then the two late transport hooks.
class Zelmor {
public:
    /// Result of a request. Raw device values outside the named ones are kept as
    /// they arrive (the enumeration is 16 bits wide).
    enum class ResponseCode : uint16_t {
        Success = 0,
        InvalidRequest = 1,
        InvalidParameter = 2,
        RequestFailed = 3,
        LockedByUserPassword = 4,
        LockedByMasterPassword = 5,
        // A device refuses a wrong password in the second step of an unlock
        // with 6; the code has no message text of its own.
        PasswordRejected = 6,
        RequestTimeout = 8,
        InvalidDeviceResponse = 9,
        Cancelled = 10,
    };

    /// Why a link ended; reported once per link through the disconnect callback.
    enum class DisconnectReason : uint8_t {
        ClosedLocally = 0,
        ConnectFailed = 1,
        ConnectionLost = 2,
        DeviceProtocolError = 3,
        UnexpectedProtocolData = 4,
        WriteFailed = 5,
        Reserved = 6,
    };

    /// Answer to command 0x01.
    struct DeviceInfo {
        std::string name;
        uint16_t firmwareVersion = 0;
        uint8_t hardwareRevision = 0;
        std::array<uint8_t, 6> bluetoothAddress{};
        uint64_t serial = 0;
        uint8_t wifiStatus = 0;
        std::string wifiNetwork;
        uint8_t lockStatus = 0;
        uint8_t extraStatus = 255;
        // The four address bytes as the device sends them (most significant
        // first), so the value is in network byte order, as connectLan takes it.
        uint32_t ipAddress = 0;
    };

    /// Answer to command 0x04 (network models) and the live-data record pushed
    /// by the Bluetooth LE models.
    struct MonitorData {
        uint16_t firmwareVersion = 0;
        uint8_t hardwareRevision = 0;
        uint32_t time = 0;
        uint32_t status = 0;
        float voltage1 = 0;
        float voltage2 = 0;
        float current = 0;
        float power = 0;
        float temperature = 0;
        int64_t coulombMeter = 0;  // mAh
        int64_t energyMeter = 0;   // mWh
        uint8_t powerStatus = 0;
        uint8_t stateOfCharge = 255;
        uint16_t runtime = 65535;  // minutes
        int16_t rssi = -32768;     // dBm; -32768 = not available
    };

    /// Answer to command 0x02.
    struct MonitorStatistics {
        uint32_t timeSincePowerOn = 0;  // seconds
        float minVoltage1 = 0;
        float maxVoltage1 = 0;
        float minVoltage2 = 0;
        float maxVoltage2 = 0;
        float peakDischargeCurrent = 0;
        float peakChargeCurrent = 0;
        float minTemperature = 0;
        float maxTemperature = 0;
    };

    /// Answer to command 0x03.
    struct FuelgaugeStatistics {
        static constexpr uint32_t kTimeUnknown = 0xFFFFFFFF;
        uint32_t timeSinceFullCharge = kTimeUnknown;  // seconds
        float fullChargeCapacity = 0;                 // Ah
        uint64_t totalDischargedCapacity = 0;         // mAh
        uint64_t totalDischargedEnergy = 0;           // mWh
        uint64_t totalChargedCapacity = 0;            // mAh
        uint64_t totalChargedEnergy = 0;              // mWh
        float minBatteryVoltage = 0;
        float maxBatteryVoltage = 0;
        float maxDischargeCurrent = 0;
        float maxChargeCurrent = 0;
        float lastDischargeDepth = 0;  // Ah
        float deepestDischarge = 0;    // Ah
        uint32_t fullDischargeCycles = 0;
    };

    /// SHA-256 of a password: what stands for the password on the wire.
    using AuthKey = std::array<uint8_t, 32>;

    /// The key of a paired device: channel identifier, then the AES-256 link key.
    struct WifiAccessKey {
        std::array<uint8_t, 16> keyId{};
        std::array<uint8_t, 32> key{};
        bool operator==(WifiAccessKey const&) const = default;
    };

    /// A network the device may join (payload of 0x61 and 0x71, 100 bytes),
    /// or one entry of the device's list of known networks (0x70).
    struct WifiNetwork {
        static constexpr int8_t kNeverSeen = -127;
        std::string ssid;      // at most 32 bytes
        std::string password;  // at most 64 bytes; the list never carries it
        uint8_t security = 0;  // 0 open; any other value needs a password
        bool metered = false;  // a mobile hotspot or a link with limited data
        // What the list tells about an entry; not sent with 0x61 and 0x71.
        bool inUse = false;
        bool failed = false;             // the device failed to join it the last time it tried
        int8_t lastSignal = kNeverSeen;  // dBm
        bool operator==(WifiNetwork const&) const = default;
    };

    /// One network seen by a scan, pushed as a notification frame; taken whole
    /// from its 42-byte payload, so every member is a byte.
    struct WifiScanResult {
        char ssid[32];
        int8_t rssi;
        uint8_t security;
        uint8_t channel;
        uint8_t bssid[6];
        uint8_t flags;
    };

    /// How a device is known, stored and reopened (the device link carries
    /// name, serial, revision and the access key).
    struct DeviceIdentifier {
        std::string name;
        uint64_t serial = 0;
        uint8_t hardwareRevision = 0;
        std::array<uint8_t, 16> channelId{};
        std::array<uint8_t, 32> key{};
        // Where a local device was seen; not part of the device link.
        uint64_t bluetoothAddress = 0;
        uint32_t ipAddress = 0;  // network byte order; 0 = none
        bool operator==(DeviceIdentifier const&) const = default;
    };

    /// One file of the device's data log (8 bytes on the wire).
    struct LogFileDescriptor {
        uint32_t fileId = 0;
        uint32_t size = 0;
        bool operator==(LogFileDescriptor const&) const = default;
    };

    using DoneCallback = std::function<void(ResponseCode)>;
    template <class Record>
    using RecordCallback = std::function<void(ResponseCode, Record const&)>;
    using BytesCallback = std::function<void(ResponseCode, uint8_t const* data, size_t length)>;
    using ProgressCallback = std::function<bool(uint32_t sent, uint32_t total)>;
    using ConnectedCallback = std::function<void()>;
    using DisconnectCallback = std::function<void(DisconnectReason)>;
    using MonitorDataCallback = std::function<void(MonitorData const&)>;
    using ScanResultHandler = std::function<void(WifiScanResult const*)>;

    // Transport hooks.
    virtual ~Zelmor() = default;
    virtual bool openBluetooth() = 0;
    virtual void connectHub(WifiAccessKey const& accessKey) = 0;
    virtual void connectLan(unsigned int ip) = 0;
    virtual void connectBle(unsigned long address) = 0;
    virtual void disconnect() = 0;

    // Accessors.
    /// True for a direct link (LAN or Bluetooth LE), false through the hub.
    virtual bool isDirectConnection() const = 0;
    virtual void setConnectedCallback(ConnectedCallback callback) = 0;
    virtual void setDisconnectCallback(DisconnectCallback callback) = 0;
    virtual void setMonitorDataCallback(MonitorDataCallback callback) = 0;
    virtual void setScanResultHandler(ScanResultHandler handler) = 0;
    /// The information record last read from the device (a snapshot).
    virtual DeviceInfo getDeviceInfo() const = 0;

    // Requests.
    virtual void requestGetInfo(RecordCallback<DeviceInfo> callback) = 0;
    virtual void requestGetMonitorData(RecordCallback<MonitorData> callback) = 0;
    virtual void requestGetStatistics(RecordCallback<MonitorStatistics> callback) = 0;
    virtual void requestGetFgStatistics(RecordCallback<FuelgaugeStatistics> callback) = 0;
    virtual void requestUnlock(AuthKey const& key, DoneCallback callback) = 0;
    virtual void requestSetUserPasswordLock(AuthKey const& key, DoneCallback callback) = 0;
    virtual void requestSetMasterPasswordLock(AuthKey const& key, DoneCallback callback) = 0;
    virtual void requestClearUserPasswordLock(DoneCallback callback) = 0;
    virtual void requestClearMasterPasswordLock(DoneCallback callback) = 0;
    virtual void requestGetAuthKey(RecordCallback<AuthKey> callback) = 0;
    virtual void requestResetAuthKey(DoneCallback callback) = 0;
    virtual void requestResetEnergyMeter(DoneCallback callback) = 0;
    virtual void requestResetCoulombMeter(DoneCallback callback) = 0;
    virtual void requestResetStatistics(DoneCallback callback) = 0;
    virtual void requestSetPowerState(bool on, DoneCallback callback) = 0;
    virtual void requestGetConfig(RecordCallback<ZelmorConfig> callback) = 0;
    virtual void requestSetConfig(ZelmorConfig const& config, DoneCallback callback) = 0;
    virtual void requestResetConfig(DoneCallback callback) = 0;
    virtual void requestRename(std::string const& name, DoneCallback callback) = 0;
    virtual void requestSetTime(uint32_t time, DoneCallback callback) = 0;
    virtual void requestFgSynchronize(DoneCallback callback) = 0;
    virtual void requestStartWifiScan(DoneCallback callback) = 0;
    virtual void requestWifiConfigure(WifiNetwork const& network, DoneCallback callback) = 0;
    virtual void requestGetWifiNetworks(RecordCallback<std::vector<WifiNetwork>> callback) = 0;
    virtual void requestAddWifiNetwork(WifiNetwork const& network, DoneCallback callback) = 0;
    virtual void requestRemoveWifiNetwork(uint8_t index, DoneCallback callback) = 0;
    virtual void requestGetAccessKeys(RecordCallback<WifiAccessKey> callback) = 0;
    virtual void requestResetAccessKeys(DoneCallback callback) = 0;
    virtual void requestZeroCurrentOffset(DoneCallback callback) = 0;
    virtual void requestCalibrateCurrent(float current, DoneCallback callback) = 0;
    virtual void requestGetSchedules(RecordCallback<std::vector<ZelmorSchedule>> callback) = 0;
    virtual void requestAddSchedules(std::vector<ZelmorSchedule> const& schedules, DoneCallback callback) = 0;
    virtual void requestUpdateSchedule(uint64_t index, ZelmorSchedule const& schedule, DoneCallback callback) = 0;
    virtual void requestDeleteSchedule(uint64_t index, DoneCallback callback) = 0;
    virtual void requestClearSchedules(DoneCallback callback) = 0;
    virtual void requestCommitSchedules(DoneCallback callback) = 0;
    virtual void requestGetFileList(RecordCallback<std::vector<LogFileDescriptor>> callback) = 0;
    virtual void requestReadLogFile(uint32_t fileId, uint32_t offset, uint32_t length, BytesCallback callback) = 0;
    virtual void requestClearLog(DoneCallback callback) = 0;
    /// The image is not copied: it must stay alive until the callback has run.
    virtual void requestUpdateFirmware(uint8_t const* image, uint32_t size, ProgressCallback progress,
                                       DoneCallback callback) = 0;
    virtual void requestReadDebug(uint32_t offset, uint32_t length, BytesCallback callback) = 0;
    virtual void requestEraseDebug(DoneCallback callback) = 0;
    virtual void requestReboot(DoneCallback callback) = 0;

    // Late transport hooks.
    /// Writes one encoded frame to the link.
    virtual void sendData(uint8_t const* data, unsigned long length) = 0;
    /// Signal strength of a Bluetooth LE link.
    virtual int16_t getRssi() = 0;
};
