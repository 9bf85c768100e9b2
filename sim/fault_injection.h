#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

namespace sim {

/// Requests of one command that answer 3 (request failed) without being run.
struct CommandFailure {
    uint16_t code = 0;
    /// Only the Nth request with the code fails, counted from 1 over all
    /// sessions since the settings were made; 0: every one fails.
    uint32_t nth = 0;
    bool operator==(CommandFailure const&) const = default;
};

/// Misbehaviour a simulated device can be told to show. Fractions are
/// probabilities per encoded answer frame.
struct FaultSettings {
    double dropFraction = 0;       // frames that are never sent
    double corruptFraction = 0;    // frames sent with one body byte altered
    uint32_t silentCommands = 0;   // the next commands are neither executed nor answered
    uint64_t closeAfterBytes = 0;  // a session closes once it has sent this many bytes; 0 = never
    std::optional<CommandFailure> failCommand{};
    // Honoured by the transports that carry a session, not by the session itself.
    uint32_t answerDelayMs = 0;   // answers are held back this long before they go out
    double delayFraction = 1;     // the share of answers held back by answerDelayMs
    uint64_t bytesPerSecond = 0;  // output pace of each connection; 0 = unlimited
    bool stalled = false;         // the connection stays open but what the host sends is lost
};

/// What happens to one encoded frame on its way out.
enum class FrameFate : uint8_t { Send, Drop };

/// Applies the fault settings of one device to all of its sessions. Thread-safe;
/// its random choices come from a seeded generator so that a failing test can be
/// repeated exactly.
class FaultInjector {
public:
    explicit FaultInjector(uint64_t seed) : rng_(seed) {}

    void configure(FaultSettings const& settings);
    FaultSettings settings() const;

    /// True when this command is to be swallowed; counts one silent command down.
    bool consumeSilence();
    /// True when this request is to answer 3 without being run; counts the
    /// requests with the failing command's code.
    bool failsCommand(uint16_t code);
    /// Decides the fate of an encoded frame (delimiters included) and corrupts
    /// it in place when chosen to.
    FrameFate processFrame(std::vector<uint8_t>& encoded);
    uint64_t closeAfterBytes() const;
    /// How long the next piece of output (an answer, or a part of a long one)
    /// is held back: answerDelayMs for the chosen share, otherwise 0.
    uint32_t nextAnswerDelayMs();

private:
    bool chance(double fraction);

    mutable std::mutex mutex_;
    FaultSettings settings_;
    uint32_t failCommandCount_ = 0;
    std::mt19937_64 rng_;
};

}  // namespace sim
