#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "lan_announcement.h"

namespace sim {

class SimulatedDevice;

/// Sends the LAN announcement of every registered network device (LAN family
/// 0x1_, WiFi family 0x4_; others are left out) once a second, each from the
/// device's own loopback address so that a listener sees that address as the
/// sender. The target must be a loopback address too. Sending is one-way:
/// nobody listening is normal, and failed sends are not reported.
///
/// A round is spread over the second, in up to kMaxSlots even slots, so that a
/// large fleet never floods the listener's receive buffer in one burst. All
/// datagrams go out through one socket, each naming its sender's address, so
/// a thousand devices do not need a thousand sockets.
class Announcer {
public:
    static constexpr std::chrono::milliseconds kInterval{1000};
    static constexpr size_t kMaxSlots = 100;

    explicit Announcer(std::string targetAddress = "127.0.0.1", uint16_t targetPort = kLanAnnouncementPort);
    Announcer(Announcer const&) = delete;
    Announcer& operator=(Announcer const&) = delete;
    ~Announcer();

    /// `address`: the device's numeric loopback address, the sender of its
    /// datagrams. Before start(); the device must outlive the announcer.
    void addDevice(SimulatedDevice& device, std::string address);
    /// Checks the target and every sender's address, opens the sending socket
    /// and starts the sending thread, whose first slot goes out at once. False,
    /// with error() telling why, when an address is not loopback or the socket
    /// cannot be opened.
    bool start();
    /// Stops sending and joins the thread. Idempotent.
    void stop();
    std::string error() const;

    /// The device announces nothing from now on, as one switched off would.
    /// Any thread; a device never added is ignored.
    void silence(SimulatedDevice const& device);

private:
    struct Sender {
        SimulatedDevice* device;
        std::string addressText;
        uint32_t address = 0;   // host order, once started
        bool silenced = false;  // guarded by mutex_
    };

    void announceLoop(uint32_t target);
    void announceSlot(uint32_t target, size_t first, size_t end);
    void fail(std::string text);

    std::string const targetAddress_;
    uint16_t const targetPort_;
    std::vector<Sender> senders_;
    int socket_ = -1;
    std::thread thread_;

    mutable std::mutex mutex_;  // guards stopping_, error_ and the senders' silenced
    std::condition_variable wake_;
    bool stopping_ = false;
    std::string error_;
};

}  // namespace sim
