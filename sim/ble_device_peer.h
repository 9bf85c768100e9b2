#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "att_server.h"
#include "device_session.h"
#include "output_pacer.h"

namespace sim {

class SimulatedDevice;

/// How one simulated Bluetooth LE device presents itself on a link.
struct BlePeerOptions {
    /// What the device offers when the host exchanges MTUs; below 23 it is
    /// a faulty device's offer.
    uint16_t mtu = AttServer::kDefaultMtu;
    /// A third characteristic in the device's service, as a device running
    /// firmware of another make would have.
    bool extraCharacteristic = false;
    /// How often live data goes out while its notifications are on.
    uint32_t liveDataIntervalMs = 1000;
};

/// One simulated device on one ATT link, as its Bluetooth LE radio serves a
/// host: a Generic Access service with the device name, then the device's
/// service with the live-data characteristic (notify) and the command
/// characteristic (write without response, notify).
///
/// Bytes the host writes to the command characteristic go to a plain session
/// of the device; its answers go back as notifications of that characteristic
/// in pieces of at most MTU - 3 bytes, honouring the device's transport faults
/// (answers held back, output paced, input lost while stalled) and dropped
/// while the host has not enabled them. While live-data notifications are on,
/// a line-coded live-data record goes out every interval, on a schedule kept
/// from a monotonic clock. When the session ends itself, the device drops the
/// link once its last answer is out.
///
/// One thread serves the link; it ends when the host hangs up or on close().
/// Every public member is thread-safe. The device must outlive the peer.
class BleDevicePeer {
public:
    using Clock = std::chrono::steady_clock;

    /// Takes the connected socket over and starts serving it.
    BleDevicePeer(int socket, SimulatedDevice& device, BlePeerOptions options = {});
    /// Closes the link and joins the thread.
    ~BleDevicePeer();
    BleDevicePeer(BleDevicePeer const&) = delete;
    BleDevicePeer& operator=(BleDevicePeer const&) = delete;

    /// Drops the link and waits for the thread. Idempotent.
    void close();
    /// True once the thread has ended: the host hung up, the device dropped
    /// the link, or close().
    bool closed() const { return closed_.load(); }

    /// The MTU in force on the link.
    uint16_t mtu() const { return server_.mtu(); }
    uint16_t liveDataHandle() const { return liveDataHandle_; }
    uint16_t commandHandle() const { return commandHandle_; }
    /// Live-data records sent whole.
    uint64_t liveFramesSent() const { return liveFramesSent_.load(); }

    /// The length of every write the host made to the command characteristic, in order.
    std::vector<size_t> commandWriteSizes() const;
    /// Sends `bytes` as notifications of a characteristic from the calling
    /// thread, in pieces of at most MTU - 3 bytes as the device cuts its own;
    /// true when every piece went out. Pieces the device sends on the same
    /// characteristic meanwhile may come in between.
    bool notify(uint16_t valueHandle, std::vector<uint8_t> const& bytes);

private:
    struct Answer {
        std::vector<uint8_t> bytes;
        size_t sent = 0;
        Clock::time_point due;
    };

    void buildDatabase();
    void run();
    void takeCommand(uint8_t const* data, size_t length);
    void queueAnswer(uint8_t const* data, size_t length);
    // Sends what is due; returns when the next piece may go, or the time point max when nothing waits.
    Clock::time_point sendAnswers(Clock::time_point now);
    void sendLiveData(Clock::time_point now);
    bool sendPieces(uint16_t valueHandle, uint8_t const* data, size_t length);

    SimulatedDevice& device_;
    BlePeerOptions const options_;
    AttServer server_;
    // Set before the thread starts, read-only afterwards.
    uint16_t liveDataHandle_ = 0;
    uint16_t commandHandle_ = 0;
    std::atomic<uint64_t> liveFramesSent_{0};
    std::atomic<bool> closed_{false};
    mutable std::mutex writesMutex_;
    std::vector<size_t> commandWriteSizes_;

    // The serving thread's own.
    std::unique_ptr<DeviceSession> session_;
    std::deque<Answer> answers_;
    OutputPacer pacer_;
    Clock::time_point nextLiveData_;

    std::mutex joinMutex_;
    std::thread thread_;
};

}  // namespace sim
