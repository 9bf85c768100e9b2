#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "zelmor_request.h"

namespace sim {
class SimulatedDevice;
class DeviceSession;
}  // namespace sim

/// A device connection without sockets: the request engine talks to a
/// SimulatedDevice in the same process. Frames go to the device on the engine's
/// worker thread; the device's answers come back on a link thread of this
/// object, as they would from a socket, so the engine runs exactly as it does
/// over a real link. Serves the demo, the benchmarks and the engine's tests.
class InProcessZelmor : public ZelmorRequest {
public:
    explicit InProcessZelmor(sim::SimulatedDevice& device);
    ~InProcessZelmor() override;

    bool openBluetooth() override { return false; }
    /// An encrypted link, as through the hub: hello, link encryption start.
    void connectHub(WifiAccessKey const& accessKey) override;
    /// A plain link, as to a LAN device; the address is not used.
    void connectLan(unsigned int ip) override;
    /// A plain link, as to a Bluetooth LE device; the address is not used.
    void connectBle(unsigned long address) override;
    void disconnect() override;
    void sendData(uint8_t const* data, unsigned long length) override;
    /// No radio here: the signal strength is never available.
    int16_t getRssi() override { return -32768; }

    /// Hands bytes to the receive path on the link thread, behind whatever the
    /// device has sent so far, as if they had come from the device.
    void injectFromDevice(std::vector<uint8_t> bytes);

private:
    void connect(bool hub, WifiAccessKey const& accessKey);
    void linkLoop(bool hub, WifiAccessKey accessKey);

    sim::SimulatedDevice& device_;
    std::thread link_;

    std::mutex sessionMutex_;
    std::unique_ptr<sim::DeviceSession> session_;

    std::mutex inboxMutex_;
    std::condition_variable inboxCondition_;
    std::deque<std::vector<uint8_t>> inbox_;
    bool linkRunning_ = false;
    bool sessionClosed_ = false;
};
