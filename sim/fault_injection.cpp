#include "fault_injection.h"

namespace sim {

void FaultInjector::configure(FaultSettings const& settings) {
    std::lock_guard lock(mutex_);
    settings_ = settings;
    failCommandCount_ = 0;
}

FaultSettings FaultInjector::settings() const {
    std::lock_guard lock(mutex_);
    return settings_;
}

bool FaultInjector::consumeSilence() {
    std::lock_guard lock(mutex_);
    if (settings_.silentCommands == 0) return false;
    --settings_.silentCommands;
    return true;
}

bool FaultInjector::failsCommand(uint16_t code) {
    std::lock_guard lock(mutex_);
    if (!settings_.failCommand || settings_.failCommand->code != code) return false;
    ++failCommandCount_;
    return settings_.failCommand->nth == 0 || settings_.failCommand->nth == failCommandCount_;
}

FrameFate FaultInjector::processFrame(std::vector<uint8_t>& encoded) {
    std::lock_guard lock(mutex_);
    if (chance(settings_.dropFraction)) return FrameFate::Drop;
    // Only the body is corrupted: a damaged delimiter would merge two frames,
    // which is a different fault from a damaged frame.
    if (encoded.size() > 2 && chance(settings_.corruptFraction)) {
        size_t const at = 1 + std::uniform_int_distribution<size_t>(0, encoded.size() - 3)(rng_);
        auto mask = static_cast<uint8_t>(std::uniform_int_distribution<int>(1, 255)(rng_));
        // A body byte turned into zero would split the frame instead of damaging it.
        if ((encoded[at] ^ mask) == 0) mask = static_cast<uint8_t>(mask == 0xFF ? 0x01 : mask + 1);
        encoded[at] ^= mask;
    }
    return FrameFate::Send;
}

uint64_t FaultInjector::closeAfterBytes() const {
    std::lock_guard lock(mutex_);
    return settings_.closeAfterBytes;
}

uint32_t FaultInjector::nextAnswerDelayMs() {
    std::lock_guard lock(mutex_);
    // No draw without a delay, so that a run without one keeps the generator's
    // sequence for the other faults.
    if (settings_.answerDelayMs == 0) return 0;
    return chance(settings_.delayFraction) ? settings_.answerDelayMs : 0;
}

bool FaultInjector::chance(double fraction) {
    if (fraction <= 0) return false;
    return std::uniform_real_distribution<double>(0, 1)(rng_) < fraction;
}

}  // namespace sim
