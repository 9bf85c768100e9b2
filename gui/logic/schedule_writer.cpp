#include "schedule_writer.h"

#include <algorithm>
#include <memory>

namespace {

using Code = Zelmor::ResponseCode;
using Done = std::function<void(Code)>;

bool sameRecords(std::vector<ZelmorSchedule> const& a, std::vector<ZelmorSchedule> const& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](ZelmorSchedule const& x, ZelmorSchedule const& y) { return x.bytes() == y.bytes(); });
}

/// Runs `next` after a request that succeeded, else ends with its code.
Zelmor::DoneCallback then(Done done, std::function<void()> next) {
    return [done = std::move(done), next = std::move(next)](Code code) {
        if (code == Code::Success)
            next();
        else
            done(code);
    };
}

}  // namespace

void writeSchedules(Zelmor& device, std::vector<ZelmorSchedule> const& before, std::vector<ZelmorSchedule> const& after,
                    Done done) {
    if (sameRecords(before, after)) {
        done(Code::Success);
        return;
    }
    // The commit is the one request that changes the timers the device runs,
    // so it goes last. Clearing first starts from an empty edit whatever an
    // earlier write on this link left uncommitted, and one batch either adds
    // every timer or, refused, none.
    auto commit = [&device, done] { device.requestCommitSchedules(done); };
    std::function<void()> fill = commit;
    if (!after.empty())
        fill = [&device, done, commit, list = after] { device.requestAddSchedules(list, then(done, commit)); };
    device.requestClearSchedules(then(done, fill));
}
