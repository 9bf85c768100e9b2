#pragma once

#include <functional>
#include <vector>

#include "zelmor.h"

/// Writes a device's timers from `before` (what was read from it and shown)
/// to `after` (what the user saved): clear, add the whole list in one batch
/// (left out when it is empty), commit, each request sent only once the one
/// before it has succeeded. The device edits a copy of its timers and runs
/// them only from the commit on, so whatever request fails, it keeps either
/// the old list or the new one. An `after` equal to `before` byte for byte
/// sends nothing.
///
/// `done` is called once: with Success, or with the code of the first request
/// that failed. It runs on the device's worker thread, or at once on the
/// calling thread when nothing is sent. `device` must outlive the requests,
/// as a device window's link does.
void writeSchedules(Zelmor& device, std::vector<ZelmorSchedule> const& before, std::vector<ZelmorSchedule> const& after,
                    std::function<void(Zelmor::ResponseCode)> done);
