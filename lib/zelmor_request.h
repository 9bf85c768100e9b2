#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "aes256_cbc.h"
#include "cobs.h"
#include "zelmor.h"

/// The request engine: turns every request of the Zelmor interface into one
/// command frame, queues it, sends it through the transport hooks of the
/// derived connection class, waits for the answer with a per-command time-out
/// and hands the decoded record to the caller's callback on its worker thread.
///
/// One command is in flight at a time, in the order the requests were queued.
/// The connection feeds received bytes to receiveBytes() on its own thread.
class ZelmorRequest : public Zelmor {
public:
    /// Handler of one request item: code, answer payload (null when none) and length.
    using ResponseHandler = std::function<void(ResponseCode, uint8_t const*, size_t)>;

    static constexpr uint32_t kDefaultTimeoutMs = 8000;
    /// The throwaway request of link encryption start: command 0, 1 ms.
    static constexpr uint32_t kThrowawayTimeoutMs = 1;
    /// An answer larger than this (continuation frames included) is dropped.
    static constexpr size_t kMaxAnswerSize = 1 << 20;

    ZelmorRequest();
    ~ZelmorRequest() override;

    bool isDirectConnection() const override;
    void setConnectedCallback(ConnectedCallback callback) override;
    void setDisconnectCallback(DisconnectCallback callback) override;
    void setMonitorDataCallback(MonitorDataCallback callback) override;
    void setScanResultHandler(ScanResultHandler handler) override;
    DeviceInfo getDeviceInfo() const override;

    void requestGetInfo(RecordCallback<DeviceInfo> callback) override;
    void requestGetMonitorData(RecordCallback<MonitorData> callback) override;
    void requestGetStatistics(RecordCallback<MonitorStatistics> callback) override;
    void requestGetFgStatistics(RecordCallback<FuelgaugeStatistics> callback) override;
    void requestUnlock(AuthKey const& key, DoneCallback callback) override;
    void requestSetUserPasswordLock(AuthKey const& key, DoneCallback callback) override;
    void requestSetMasterPasswordLock(AuthKey const& key, DoneCallback callback) override;
    void requestClearUserPasswordLock(DoneCallback callback) override;
    void requestClearMasterPasswordLock(DoneCallback callback) override;
    void requestGetAuthKey(RecordCallback<AuthKey> callback) override;
    void requestResetAuthKey(DoneCallback callback) override;
    void requestResetEnergyMeter(DoneCallback callback) override;
    void requestResetCoulombMeter(DoneCallback callback) override;
    void requestResetStatistics(DoneCallback callback) override;
    void requestSetPowerState(bool on, DoneCallback callback) override;
    void requestGetConfig(RecordCallback<ZelmorConfig> callback) override;
    void requestSetConfig(ZelmorConfig const& config, DoneCallback callback) override;
    void requestResetConfig(DoneCallback callback) override;
    void requestRename(std::string const& name, DoneCallback callback) override;
    void requestSetTime(uint32_t time, DoneCallback callback) override;
    void requestFgSynchronize(DoneCallback callback) override;
    void requestStartWifiScan(DoneCallback callback) override;
    void requestWifiConfigure(WifiNetwork const& network, DoneCallback callback) override;
    void requestGetWifiNetworks(RecordCallback<std::vector<WifiNetwork>> callback) override;
    void requestAddWifiNetwork(WifiNetwork const& network, DoneCallback callback) override;
    void requestRemoveWifiNetwork(uint8_t index, DoneCallback callback) override;
    void requestGetAccessKeys(RecordCallback<WifiAccessKey> callback) override;
    void requestResetAccessKeys(DoneCallback callback) override;
    void requestZeroCurrentOffset(DoneCallback callback) override;
    void requestCalibrateCurrent(float current, DoneCallback callback) override;
    void requestGetSchedules(RecordCallback<std::vector<ZelmorSchedule>> callback) override;
    void requestAddSchedules(std::vector<ZelmorSchedule> const& schedules, DoneCallback callback) override;
    void requestUpdateSchedule(uint64_t index, ZelmorSchedule const& schedule, DoneCallback callback) override;
    void requestDeleteSchedule(uint64_t index, DoneCallback callback) override;
    void requestClearSchedules(DoneCallback callback) override;
    void requestCommitSchedules(DoneCallback callback) override;
    void requestGetFileList(RecordCallback<std::vector<LogFileDescriptor>> callback) override;
    void requestReadLogFile(uint32_t fileId, uint32_t offset, uint32_t length, BytesCallback callback) override;
    void requestClearLog(DoneCallback callback) override;
    void requestUpdateFirmware(uint8_t const* image, uint32_t size, ProgressCallback progress,
                               DoneCallback callback) override;
    void requestReadDebug(uint32_t offset, uint32_t length, BytesCallback callback) override;
    void requestEraseDebug(DoneCallback callback) override;
    void requestReboot(DoneCallback callback) override;

protected:
    /// Queues one command. Never blocks on the link.
    void enqueue(uint16_t command, std::vector<uint8_t> payload, uint32_t timeoutMs, ResponseHandler handler);

    /// Starts the worker for a new link: joins a finished worker of an earlier
    /// link, forgets what that link left behind and switches encryption off.
    void startThread();
    /// The stop operation of a link: the worker ends within one wait, the
    /// request in flight and everything still queued end with code 8. Safe on
    /// any thread, the worker's own included; does not wait.
    void stopThread();
    /// Waits for the worker to end. Never call it on the worker thread. A
    /// connection class calls stopThread() and joinThread() in its destructor,
    /// before its transport hooks go away.
    void joinThread();

    /// Link encryption start of LAN-with-key and hub links: keys both frame
    /// ciphers with the access key, sends the 17-byte hello through sendData,
    /// switches encryption on and queues the three throwaway requests.
    void startLinkEncryption(WifiAccessKey const& accessKey);

    /// The receive path: bytes as they arrive from the link, in order.
    void receiveBytes(uint8_t const* data, size_t length);
    /// The receive rules for one frame with its COBS coding removed.
    void receiveFrame(uint8_t* frame, size_t length);

    /// Whether the link goes through the hub (see isDirectConnection).
    void setRemoteLink(bool remote) { remoteLink_ = remote; }

    /// Callbacks installed by the application, for the connection to call.
    void notifyConnected();
    void notifyDisconnected(DisconnectReason reason);
    void notifyMonitorData(MonitorData const& data);
    bool hasMonitorDataCallback() const;

    /// The file list paging of requestGetFileList.
    void requestGetFileListInternal(bool firstPage, RecordCallback<std::vector<LogFileDescriptor>> callback,
                                    std::shared_ptr<std::vector<LogFileDescriptor>> files);

private:
    struct RequestItem {
        uint16_t command = 0;
        uint16_t sequence = 0;
        bool inFlight = false;
        std::vector<uint8_t> payload;
        uint32_t timeoutMs = kDefaultTimeoutMs;
        ResponseHandler handler;
    };
    struct Answer {
        uint16_t sequence = 0;
        ResponseCode code = ResponseCode::Success;
        std::vector<uint8_t> payload;
    };
    struct FirmwareTransfer;

    void workerLoop();
    void failPending();
    template <class Record, class Decoder>
    void enqueueRecord(uint16_t command, RecordCallback<Record> callback, Decoder decode);
    void enqueueDone(uint16_t command, std::vector<uint8_t> payload, DoneCallback callback);
    void lockExchange(uint16_t secondCommand, AuthKey const& key, DoneCallback callback);
    void sendFirmwareBlock(std::shared_ptr<FirmwareTransfer> transfer);

    // Request queue; the front item stays there while it is in flight.
    std::mutex queueMutex_;
    std::condition_variable queueCondition_;
    std::deque<RequestItem> queue_;
    std::atomic<bool> running_{false};
    std::thread worker_;
    uint32_t sendCounter_ = 0;  // worker only; its low 16 bits are the sequence number

    // Link ciphers: the encryption context is the worker's, the decryption
    // context the receive thread's. The authentication context seals blocks.
    std::atomic<bool> encryptionOn_{false};
    Aes256Cbc encryptCipher_;
    Aes256Cbc decryptCipher_;
    std::mutex authMutex_;
    Aes256Cbc authCipher_;

    // Receive side: COBS stream decoder (receive thread only) and the answer in progress.
    CobsStreamDecoder decoder_;
    std::mutex accumulationMutex_;
    std::vector<uint8_t> accumulation_;
    bool discardingAnswer_ = false;

    std::mutex answerMutex_;
    std::condition_variable answerCondition_;
    std::deque<Answer> answers_;

    mutable std::mutex callbackMutex_;
    ConnectedCallback connectedCallback_;
    DisconnectCallback disconnectCallback_;
    MonitorDataCallback monitorDataCallback_;
    ScanResultHandler scanResultHandler_;

    mutable std::mutex infoMutex_;
    DeviceInfo deviceInfo_;
    std::atomic<bool> remoteLink_{false};
};
