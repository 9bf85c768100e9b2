#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace sim {

class SimulatedDevice;

/// What the firmware file server hands out at a device's update path.
enum class FirmwareOffer : uint8_t {
    Newer,      // a sound image one version up (BCD: 1.32 -> 1.33)
    Older,      // a sound image one version down
    Equal,      // a sound image of the version the device runs
    Corrupted,  // the newer image with one payload byte changed: its CRC fails
    Slow,       // the newer image, its body trickled over kSlowBodyDuration
    Stall,      // the headers and half the newer image, then nothing more
    Missing,    // 404 for every path
};

/// "newer", "older", "equal", "corrupt", "slow", "stall" or "404".
std::optional<FirmwareOffer> parseFirmwareOffer(std::string_view text);
char const* firmwareOfferName(FirmwareOffer offer);

/// The version an offer's image carries for a device running `current`.
uint16_t offeredFirmwareVersion(FirmwareOffer offer, uint16_t current);

/// The image served to a device of `hardwareRevision` running `current`:
/// kOfferedPayloadSize bytes of payload that depend on both.
std::vector<uint8_t> offeredFirmwareImage(FirmwareOffer offer, uint8_t hardwareRevision, uint16_t current);

/// The firmware file server of a simulated fleet: answers HTTP/1.0 and 1.1 GET
/// on one loopback address with the update file of every registered device at
/// firmwareFilePath(revision, running version), as the offer shapes it, and
/// 404 for every other path. The file follows the device: once it runs a new
/// version, the file is found at that version's path. One response per
/// connection, each connection on a thread of its own, so that a slow or
/// stalled body holds back nobody else.
class FirmwareServer {
public:
    static constexpr uint16_t kDefaultPort = 7210;
    static constexpr size_t kOfferedPayloadSize = 64 * 1024;
    static constexpr std::chrono::milliseconds kSlowBodyDuration{5000};

    FirmwareServer(std::string address, uint16_t port, FirmwareOffer offer);
    FirmwareServer(FirmwareServer const&) = delete;
    FirmwareServer& operator=(FirmwareServer const&) = delete;
    ~FirmwareServer();

    /// Before start(); the device must outlive the server.
    void addDevice(SimulatedDevice& device);
    /// Binds (SO_REUSEADDR) and starts accepting; false, with error() telling
    /// why, when the address is not loopback or cannot be bound.
    bool start();
    /// Closes the listener and every connection, stalled ones included, and
    /// joins every thread. Idempotent.
    void stop();
    std::string error() const;
    /// The bound port; 0 when not listening.
    uint16_t port() const;

private:
    struct Connection {
        int socket;
        std::thread thread;
        bool done = false;
    };

    void acceptLoop();
    void serve(Connection& connection);
    /// The image at `path`, or nothing.
    std::optional<std::vector<uint8_t>> fileAt(std::string_view path) const;
    bool sendAll(int socket, uint8_t const* data, size_t length);
    /// Waits `duration`; false when the server stops meanwhile.
    bool pause(std::chrono::milliseconds duration);
    void waitForClientOrStop(int socket);
    void fail(std::string text);

    std::string const address_;
    uint16_t const port_;
    FirmwareOffer const offer_;
    std::vector<SimulatedDevice*> devices_;
    int listener_ = -1;
    uint16_t boundPort_ = 0;
    std::thread acceptThread_;

    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable wake_;
    bool stopping_ = false;
    std::vector<std::unique_ptr<Connection>> connections_;
    std::string error_;
};

}  // namespace sim
