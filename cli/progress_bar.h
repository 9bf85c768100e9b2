#pragma once

#include <cstdint>
#include <mutex>
#include <string>

/// Progress of a long transfer: a bar redrawn in place on standard error when
/// that is a terminal. Otherwise nothing is shown, so that standard error of
/// an unattended run holds only what went wrong. Updates may come from any
/// thread.
class ProgressBar {
public:
    explicit ProgressBar(std::string label);
    ~ProgressBar();
    ProgressBar(ProgressBar const&) = delete;
    ProgressBar& operator=(ProgressBar const&) = delete;

    void update(uint64_t done, uint64_t total);
    /// Ends the bar's line; later updates are ignored.
    void finish();

private:
    std::mutex mutex_;
    std::string const label_;
    bool const terminal_;
    bool drawn_ = false;
    bool finished_ = false;
    uint64_t lastPerMille_ = UINT64_MAX;
};
