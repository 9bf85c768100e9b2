#include "progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <fmt/core.h>

namespace {

constexpr uint64_t kBarWidth = 30;

}  // namespace

ProgressBar::ProgressBar(std::string label) : label_(std::move(label)), terminal_(::isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() { finish(); }

void ProgressBar::update(uint64_t done, uint64_t total) {
    if (!terminal_) return;
    std::lock_guard lock(mutex_);
    uint64_t const perMille = total == 0 ? 1000 : std::min(done, total) * 1000 / total;
    // Redrawn only when the number shown changes: a fast transfer reports
    // thousands of blocks a second.
    if (finished_ || perMille == lastPerMille_) return;
    lastPerMille_ = perMille;
    uint64_t const filled = perMille * kBarWidth / 1000;
    fmt::print(stderr, "\r{} [{}{}] {:3}.{}%  {} / {} bytes", label_, std::string(filled, '#'),
               std::string(kBarWidth - filled, '-'), perMille / 10, perMille % 10, done, total);
    std::fflush(stderr);
    drawn_ = true;
}

void ProgressBar::finish() {
    std::lock_guard lock(mutex_);
    if (finished_) return;
    finished_ = true;
    if (drawn_) {
        std::fputc('\n', stderr);
        std::fflush(stderr);
    }
}
