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
class Announcer {
public:
    static constexpr std::chrono::milliseconds kInterval{1000};

    explicit Announcer(std::string targetAddress = "127.0.0.1", uint16_t targetPort = kLanAnnouncementPort);
    Announcer(Announcer const&) = delete;
    Announcer& operator=(Announcer const&) = delete;
    ~Announcer();

    /// `address`: the device's numeric loopback address, the sender of its
    /// datagrams. Before start(); the device must outlive the announcer.
    void addDevice(SimulatedDevice& device, std::string address);
    /// Checks the target, binds one sending socket per device and starts the
    /// sending thread, whose first round goes out at once. False, with error()
    /// telling why, when an address is not loopback or cannot be bound.
    bool start();
    /// Stops sending and joins the thread. Idempotent.
    void stop();
    std::string error() const;

private:
    struct Sender {
        SimulatedDevice* device;
        std::string addressText;
        uint32_t address = 0;  // host order, once started
        int socket = -1;
    };

    void announceLoop(uint32_t target);
    void announceRound(uint32_t target);
    void closeSockets();
    void fail(std::string text);

    std::string const targetAddress_;
    uint16_t const targetPort_;
    std::vector<Sender> senders_;
    std::thread thread_;

    mutable std::mutex mutex_;  // guards stopping_ and error_
    std::condition_variable wake_;
    bool stopping_ = false;
    std::string error_;
};

}  // namespace sim
