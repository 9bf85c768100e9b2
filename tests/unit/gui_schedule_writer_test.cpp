// Writing edited timers back to a device: any request of the write failing
// leaves the device with the old list, and a write that succeeds the new one.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "callback_result.h"
#include "command_codes.h"
#include "in_process_zelmor.h"
#include "schedule_writer.h"
#include "simulated_device.h"

namespace {

using Code = Zelmor::ResponseCode;

/// `count` timers that differ in their names only.
std::vector<ZelmorSchedule> timers(size_t count, std::string const& name) {
    std::vector<ZelmorSchedule> list(count);
    for (size_t i = 0; i < count; ++i) list[i].setName(name + " " + std::to_string(i));
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
    std::vector<uint16_t> const all = {kClearSchedules, kAddSchedules, kCommitSchedules};
    std::tuple<std::vector<ZelmorSchedule>, std::vector<ZelmorSchedule>, std::vector<uint16_t>> const cases[] = {
        {timers(32, "Old"), timers(32, "New"), all},
        {timers(2, "Old"), {}, {kClearSchedules, kCommitSchedules}},
        {timers(2, "Old"), timers(2, "Old"), {}}};
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        auto const& [before, after, requests] = c;
        sim::SimulatedDevice device(sim::SimulatedDeviceConfig{});
        InProcessZelmor link(device);
        CallbackResult<> connected;
        link.setConnectedCallback(connected.callback());
        link.connectLan(0x0100007F);
        connected.get();
        ASSERT_EQ(write(link, {}, before), Code::Success);
        uint32_t const commits = device.snapshot().scheduleCommits;
        // Each request fails in turn, the write tried again on the same link.
        for (uint16_t request : requests) {
            device.faults().configure({.failCommand = sim::CommandFailure{request, 1}});
            EXPECT_EQ(write(link, before, after), Code::RequestFailed) << request;
            EXPECT_EQ(device.snapshot().schedules, records(before)) << request;
        }
        device.faults().configure({});
        EXPECT_EQ(write(link, before, after), Code::Success);
        EXPECT_EQ(device.snapshot().schedules, records(after));
        EXPECT_EQ(device.snapshot().scheduleCommits, commits + !requests.empty());
    }
}

}  // namespace
