// Reading and changing the device's settings: schedules, power,
// rename, set-time, reset, reboot.
#include <limits>
#include <memory>

#include <fmt/core.h>

#include "argument_values.h"
#include "command_context.h"
#include "command_error.h"
#include "config_commands.h"
#include "device_session.h"

namespace {

constexpr size_t kMaxNameBytes = 32;

struct SettingsOptions {
    std::string state;
    std::string name;
    std::string time;
    std::string what;
};

std::string dayList(ZelmorSchedule const& schedule) {
    static constexpr char const* kDays[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    std::string days;
    for (unsigned i = 0; i < std::size(kDays); ++i)
        if (schedule.getRepeatValue() & (1u << i)) days += days.empty() ? kDays[i] : std::string(",") + kDays[i];
    return days;
}

void schedules(CommandContext& context) {
    DeviceSession session(context.target);
    auto const list = session.get(&Zelmor::requestGetSchedules);
    for (size_t i = 0; i < list.size(); ++i) {
        ZelmorSchedule const& s = list[i];
        std::string const start = fmt::format("{:02}:{:02}", s.getStartHour(), s.getStartMinute());
        std::string const end = fmt::format("{:02}:{:02}", s.getEndHour(), s.getEndMinute());
        bool const weekly = s.isDayOfWeekMode();
        Json json{{"index", i},
                  {"name", s.getName()},
                  {"start", start},
                  {"end", end},
                  {"mode", weekly ? "weekdays" : "monthday"},
                  {"repeat", s.getRepeatValue()},
                  {"timing", fmt::format("{:016x}", s.getTiming())}};
        std::string const repeat = weekly ? dayList(s) : fmt::format("day {} of the month", s.getRepeatValue());
        context.output.result(json, fmt::format("{:2}  {:<15}  {}-{}  {}", i, s.getName(), start, end, repeat));
    }
    if (list.empty() && !context.output.json()) context.output.line("No schedules.");
}

void power(CommandContext& context, SettingsOptions const& options) {
    bool const on = options.state == "on";
    DeviceSession session(context.target);
    session.run([&](Zelmor::DoneCallback done) { session.device().requestSetPowerState(on, done); });
    context.output.result(Json{{"ok", true}, {"power", options.state}}, on ? "Power on." : "Power off.");
}

void rename(CommandContext& context, SettingsOptions const& options) {
    if (options.name.empty() || options.name.size() > kMaxNameBytes)
        throw usageError(fmt::format("NAME must be 1 to {} bytes long", kMaxNameBytes));
    DeviceSession session(context.target);
    session.run([&](Zelmor::DoneCallback done) { session.device().requestRename(options.name, done); });
    context.output.result(Json{{"ok", true}, {"name", options.name}}, fmt::format("Renamed to \"{}\".", options.name));
}

void setTime(CommandContext& context, SettingsOptions const& options) {
    int64_t const time = options.time.empty() ? std::time(nullptr) : parseTime(options.time, "EPOCH");
    if (time < 0 || time > std::numeric_limits<uint32_t>::max())
        throw usageError("EPOCH must lie between 1970 and 2106");
    DeviceSession session(context.target);
    session.run([&](Zelmor::DoneCallback done) { session.device().requestSetTime(static_cast<uint32_t>(time), done); });
    context.output.result(Json{{"ok", true}, {"time", time}}, fmt::format("Device time set to {}.", time));
}

void reset(CommandContext& context, SettingsOptions const& options) {
    DeviceSession session(context.target);
    Zelmor& device = session.device();
    session.run([&](Zelmor::DoneCallback done) {
        if (options.what == "energy")
            device.requestResetEnergyMeter(done);
        else if (options.what == "coulomb")
            device.requestResetCoulombMeter(done);
        else if (options.what == "stats")
            device.requestResetStatistics(done);
        else
            device.requestResetConfig(done);
    });
    context.output.result(Json{{"ok", true}, {"reset", options.what}}, fmt::format("Reset {}.", options.what));
}

void reboot(CommandContext& context) {
    DeviceSession session(context.target);
    session.run([&](Zelmor::DoneCallback done) { session.device().requestReboot(done); });
    context.output.result(Json{{"ok", true}}, "Rebooting.");
}

}  // namespace

void addSettingsCommands(CLI::App& app, CommandContext& context) {
    auto options = std::make_shared<SettingsOptions>();

    addConfigCommands(app, context);

    addCommand(app, "schedules", "List the device's timers", context, [&context] { schedules(context); });

    addCommand(app, "power", "Switch the load relay on or off", context,
               [&context, options] { power(context, *options); })
        ->add_option("STATE", options->state, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    addCommand(app, "rename", "Give the device a new name", context, [&context, options] { rename(context, *options); })
        ->add_option("NAME", options->name, "1 to 32 bytes")
        ->required();

    addCommand(app, "set-time", "Set the device clock", context, [&context, options] { setTime(context, *options); })
        ->add_option("EPOCH", options->time,
                     "Seconds since 1970 or \"YYYY-MM-DD HH:MM:SS\" local time; default: this machine's clock");

    addCommand(app, "reset", "Reset a meter, the statistics or the configuration", context,
               [&context, options] { reset(context, *options); })
        ->add_option("WHAT", options->what, "energy, coulomb, stats or config")
        ->required()
        ->check(CLI::IsMember({"energy", "coulomb", "stats", "config"}));

    addCommand(app, "reboot", "Restart the device", context, [&context] { reboot(context); });
}
