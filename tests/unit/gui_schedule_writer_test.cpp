// Writing edited timers back to a device: every request of the write failed
// in turn leaves the device with the old list, and a write that succeeds
// with the new one exactly.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "callback_result.h"
#include "command_codes.h"
#include "in_process_zelmor.h"
#include "schedule_writer.h"
#include "simulated_device.h"

namespace {

using Code = Zelmor::ResponseCode;

std::vector<ZelmorSchedule> timers(size_t count, unsigned firstHour, uint64_t keptBits = 0) {
    std::vector<ZelmorSchedule> list(count);
    for (size_t i = 0; i < count; ++i) {
        list[i].setTiming(list[i].getTiming() | keptBits << 54);
        list[i].setStartHour(static_cast<unsigned>((firstHour + i) % 24));
        list[i].setStartMinute(static_cast<unsigned>(i));
        list[i].setName("Timer " + std::to_string(i));
    }
    return list;
}

std::vector<sim::ScheduleRecord> records(std::vector<ZelmorSchedule> const& list) {
    std::vector<sim::ScheduleRecord> out;
    for (ZelmorSchedule const& s : list) out.push_back(s.bytes());
    return out;
}

Code write(Zelmor& device, std::vector<ZelmorSchedule> const& before, std::vector<ZelmorSchedule> const& after) {
    CallbackResult<Code> result;
    writeSchedules(device, before, after, result.callback());
    return std::get<0>(result.get());
}

TEST(GuiScheduleWriter, AnyFailedRequestLeavesTheOldListAndSuccessTheNew) {
    using namespace command;
    std::vector<ZelmorSchedule> renamed = timers(2, 6);
    renamed[1].setName("Renamed");
    std::vector<uint16_t> const all = {kClearSchedules, kAddSchedules, kCommitSchedules};
    struct Case {
        std::vector<ZelmorSchedule> before, after;
        std::vector<uint16_t> requests;
    };
    Case const cases[] = {
        {{}, timers(3, 6, 0x2A5), all},    {timers(2, 6), timers(3, 7, 0x3FF), all},
        {timers(3, 6), timers(1, 6), all}, {timers(32, 0), timers(32, 1), all},
        {timers(2, 6), renamed, all},      {timers(2, 6), {}, {kClearSchedules, kCommitSchedules}},
        {timers(2, 6), timers(2, 6), {}},
    };
    for (Case const& c : cases) {
        // The k-th request fails for every k, then none does.
        for (size_t k = 0; k <= c.requests.size(); ++k) {
            SCOPED_TRACE(testing::Message() << "case " << &c - cases << ", failing request " << k + 1);
            sim::SimulatedDevice device(sim::SimulatedDeviceConfig{});
            InProcessZelmor link(device);
            CallbackResult<> connected;
            link.setConnectedCallback(connected.callback());
            link.connectLan(0x0100007F);
            connected.get();
            ASSERT_EQ(write(link, {}, c.before), Code::Success);
            uint32_t const commits = device.snapshot().scheduleCommits;

            bool const fails = k < c.requests.size();
            if (fails) device.faults().configure({.failCommand = sim::CommandFailure{c.requests[k], 1}});
            EXPECT_EQ(write(link, c.before, c.after), fails ? Code::RequestFailed : Code::Success);
            EXPECT_EQ(device.snapshot().schedules, records(fails ? c.before : c.after));
            // The link that wrote reads what the device runs, too.
            CallbackResult<Code, std::vector<ZelmorSchedule>> read;
            link.requestGetSchedules(read.callback());
            EXPECT_EQ(records(std::get<1>(read.get())), records(fails ? c.before : c.after));
            EXPECT_EQ(device.snapshot().scheduleCommits, commits + (!fails && !c.requests.empty()));
        }
    }
}

}  // namespace
