// zelmor-sim: simulated battery monitors as network devices. Each device listens
// on its own loopback address (127.0.0.2, 127.0.0.3, ...) on the device port, the
// hub relay serves all of them by their channels, and every device announces
// itself on the LAN announcement port once a second. Devices that only announce
// themselves can be added by the thousand, and SIGUSR1 switches some of them
// off. SIGUSR2 hangs up the links of one device after another. Runs until
// SIGINT or SIGTERM.
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <fmt/core.h>
#include <CLI/CLI.hpp>

#include "fleet.h"
#include "fleet_description.h"

namespace {

constexpr char const* kDescription =
    "Simulated Zelmor battery monitors, served on loopback addresses: each device on its own address "
    "(127.0.0.2, 127.0.0.3, ...) on TCP port 7208, the hub relay for every device on 127.0.0.1:7209, LAN "
    "announcements to 127.0.0.1:7207 once a second, and the firmware files over HTTP on 127.0.0.1:7210. Nothing is "
    "ever sent outside 127.0.0.0/8. --announce-only adds devices that only announce themselves, on the addresses "
    "after the others; SIGUSR1 makes the last --fall-silent of them stop. SIGUSR2 closes every connection of the "
    "next served device in turn. Without --device "
    "it runs a Zelmor-K, a Zelmor-V and a Zelmor-V locked with a user password. Fault options apply to every "
    "device; a device's own keys override them.";

// Each device costs the simulator about 20 KiB and a datagram a second.
constexpr size_t kMaxAnnounceOnly = 10000;

constexpr char const* kDeviceHelp =
    "A device (repeatable): MODEL K (Zelmor-K, LAN) or V (Zelmor-V, WiFi), then any of name=TEXT, serial=HEX, "
    "user=PASSWORD, master=PASSWORD, interval=SECONDS, history=DAYS, seed=N, silent, wifi=one|list (V only), "
    "drop=F, corrupt=F, delay=F, delay-ms=MS, close-after=BYTES, bandwidth=BYTES_PER_S, fail=CODE[@N], stall; "
    "e.g. V,name=Cabin bank,user=bilge";

struct Options {
    std::vector<std::string> devices;
    uint32_t interval = sim::kDefaultLogIntervalSeconds;
    uint32_t history = sim::kDefaultHistoryDays;
    uint64_t seed = 1;
    sim::FaultSettings faults;
    bool delayShareGiven = false;
    std::string fail;
    std::string baseAddress = sim::addressText(sim::kDefaultBaseAddress);
    std::string hubAddress = sim::addressText(sim::kLocalHost);
    bool noHub = false;
    std::string announceTo = sim::endpointText({sim::kLocalHost, kLanAnnouncementPort});
    bool noAnnounce = false;
    size_t announceOnly = 0;
    size_t fallSilent = 0;
    std::string firmwareServer = sim::endpointText({sim::kLocalHost, sim::FirmwareServer::kDefaultPort});
    std::string firmware = "newer";
    bool porcelain = false;
};

void addOptions(CLI::App& app, Options& o) {
    app.add_option("--device", o.devices, kDeviceHelp)->type_name("MODEL[,KEY=VALUE...]")->allow_extra_args(false);
    app.add_option("--interval", o.interval, "Seconds between data log records")
        ->check(CLI::Range(1u, sim::kMaxLogIntervalSeconds))
        ->capture_default_str();
    app.add_option("--history", o.history, "Days of data log recorded before the start")
        ->check(CLI::Range(0u, sim::kMaxHistoryDays))
        ->capture_default_str();
    app.add_option("--seed", o.seed, "Seed of the first device; the next ones count up from it")->capture_default_str();
    auto const fraction = CLI::Range(0.0, 1.0);
    app.add_option("--drop", o.faults.dropFraction, "Share of answer frames never sent")->check(fraction);
    app.add_option("--corrupt", o.faults.corruptFraction, "Share of answer frames sent with one byte altered")
        ->check(fraction);
    auto* delay = app.add_option("--delay", o.faults.delayFraction,
                                 "Share of answers held back by --delay-ms (1000 ms when not given)")
                      ->check(fraction);
    app.add_option("--delay-ms", o.faults.answerDelayMs,
                   "Hold answers back this long (all of them unless --delay says otherwise)")
        ->check(CLI::Range(0u, sim::kMaxAnswerDelayMs));
    app.add_flag("--stall", o.faults.stalled, "Keep connections open but take in and answer nothing");
    app.add_option("--close-after", o.faults.closeAfterBytes, "Close each connection after sending this many bytes");
    app.add_option("--fail", o.fail,
                   "Requests with this command code (hexadecimal) answer 3 without being run; with @N only the "
                   "Nth, counted from 1 over all connections")
        ->type_name("CODE[@N]");
    app.add_option("--bandwidth", o.faults.bytesPerSecond, "Send at most this many bytes a second per connection");
    app.add_option("--base-address", o.baseAddress, "Address of the first device; the others follow it")
        ->capture_default_str();
    app.add_option("--hub-address", o.hubAddress, "Address[:port] of the hub relay (port 7209 by default)")
        ->capture_default_str();
    app.add_flag("--no-hub", o.noHub, "Run no hub relay");
    app.add_option("--announce-to", o.announceTo, "Loopback address[:port] the announcements go to")
        ->capture_default_str();
    app.add_flag("--no-announce", o.noAnnounce, "Send no announcements");
    app.add_option("--announce-only", o.announceOnly,
                   "Add this many devices that only announce themselves (no listener, no hub channel), "
                   "Zelmor-K and Zelmor-V in turn")
        ->check(CLI::Range(size_t{0}, kMaxAnnounceOnly))
        ->capture_default_str();
    app.add_option("--fall-silent", o.fallSilent,
                   "On SIGUSR1 the last this many of the --announce-only devices stop announcing")
        ->capture_default_str();
    app.add_option("--firmware-server", o.firmwareServer,
                   "Loopback address[:port] of the firmware file server (port 7210 by default)")
        ->capture_default_str();
    app.add_option("--firmware", o.firmware,
                   "What the firmware file server offers each device: newer, older, equal, corrupt (CRC broken), "
                   "slow (body over 5 s), stall (half the body, then nothing), 404, or none (no server)")
        ->type_name("MODE")
        ->capture_default_str();
    app.add_flag("--porcelain", o.porcelain,
                 "Print one JSON line per device, then \"ready\" once every listener is up");
    app.callback([&o, delay] { o.delayShareGiven = delay->count() > 0; });
}

/// The fleet the options describe, or an error text.
std::variant<sim::FleetPlan, std::string> fleetPlan(Options const& o) {
    sim::DevicePlan defaults;
    defaults.logIntervalSeconds = o.interval;
    defaults.historyDays = o.history;
    defaults.faults = o.faults;
    sim::applyDelayDefault(defaults.faults, o.delayShareGiven);
    if (!o.fail.empty()) {
        defaults.faults.failCommand = sim::parseCommandFailure(o.fail);
        if (!defaults.faults.failCommand) return "--fail " + o.fail + ": needs CODE[@N], CODE in hexadecimal, N from 1";
    }

    sim::FleetPlan fleet;
    if (o.devices.empty()) fleet.devices = sim::defaultFleet(defaults);
    for (std::string const& text : o.devices) {
        sim::DevicePlanResult parsed = sim::parseDevicePlan(text, defaults);
        if (!parsed.plan) return "--device " + parsed.error;
        fleet.devices.push_back(std::move(*parsed.plan));
    }
    if (o.fallSilent > o.announceOnly)
        return fmt::format("--fall-silent {}: more than the {} --announce-only devices", o.fallSilent, o.announceOnly);
    std::vector<sim::DevicePlan> announceOnly = sim::announceOnlyDevices(o.announceOnly, defaults);
    std::move(announceOnly.begin(), announceOnly.end(), std::back_inserter(fleet.devices));
    std::optional<uint32_t> const base = sim::parseLoopbackAddress(o.baseAddress);
    if (!base) return "--base-address " + o.baseAddress + ": not a numeric loopback address (127.0.0.0/8)";
    if (std::string error = sim::completeFleet(fleet.devices, *base, o.seed); !error.empty()) return error;
    fleet.hub = std::nullopt;
    if (!o.noHub) {
        fleet.hub = sim::parseLoopbackEndpoint(o.hubAddress, sim::HubRelay::kDefaultPort);
        if (!fleet.hub) return "--hub-address " + o.hubAddress + ": not a numeric loopback address[:port]";
    }
    fleet.announceTo = std::nullopt;
    if (!o.noAnnounce) {
        fleet.announceTo = sim::parseLoopbackEndpoint(o.announceTo, kLanAnnouncementPort);
        if (!fleet.announceTo)
            return "--announce-to " + o.announceTo + ": only a numeric loopback address[:port] (127.0.0.0/8)";
    }
    fleet.firmwareServer = std::nullopt;
    if (o.firmware != "none") {
        std::optional<sim::FirmwareOffer> const offer = sim::parseFirmwareOffer(o.firmware);
        if (!offer) return "--firmware " + o.firmware + ": one of newer, older, equal, corrupt, slow, stall, 404, none";
        fleet.firmwareOffer = *offer;
        fleet.firmwareServer = sim::parseLoopbackEndpoint(o.firmwareServer, sim::FirmwareServer::kDefaultPort);
        if (!fleet.firmwareServer)
            return "--firmware-server " + o.firmwareServer + ": only a numeric loopback address[:port] (127.0.0.0/8)";
    }
    return fleet;
}

void printFleet(sim::Fleet& fleet, bool porcelain) {
    sim::FleetPlan const& plan = fleet.plan();
    std::vector<uint32_t> announceOnly;
    for (size_t i = 0; i < fleet.size(); ++i) {
        if (porcelain)
            fmt::print("{}\n", sim::devicePorcelain(plan.devices[i], fleet.device(i), plan));
        else if (plan.devices[i].served)
            fmt::print("{}\n", sim::deviceSummary(plan.devices[i], fleet.device(i)));
        else
            announceOnly.push_back(plan.devices[i].address);
    }
    // A thousand lines would hide the devices one can connect to.
    if (!announceOnly.empty())
        fmt::print("{} devices that only announce themselves, {} to {}.\n", announceOnly.size(),
                   sim::addressText(announceOnly.front()), sim::addressText(announceOnly.back()));
    if (porcelain) {
        fmt::print("ready\n");
    } else {
        if (plan.hub) fmt::print("Hub relay on {} for every device.\n", sim::endpointText(*plan.hub));
        if (plan.announceTo) fmt::print("Announcing to {} once a second.\n", sim::endpointText(*plan.announceTo));
        if (plan.firmwareServer)
            fmt::print("Firmware files ({}) on http://{}\n", sim::firmwareOfferName(plan.firmwareOffer),
                       sim::endpointText(*plan.firmwareServer));
        fmt::print("Ready; Ctrl-C stops.\n");
    }
    std::fflush(stdout);
}

/// Closes the links of the next device in turn and says so: a program that
/// cuts links learns which device it hit and how many links ended.
void cutNextLinks(sim::Fleet& fleet, bool porcelain) {
    std::optional<sim::Fleet::LinkCut> const cut = fleet.cutNextLinks();
    if (!cut) return;
    std::string const address = sim::addressText(fleet.plan().devices[cut->device].address);
    if (porcelain)
        fmt::print("{{\"links_closed\":\"{}\",\"connections\":{}}}\n", address, cut->connections);
    else
        fmt::print("Closed {} link(s) of {}.\n", cut->connections, address);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(kDescription, "zelmor-sim");
    Options options;
    addOptions(app, options);
    CLI11_PARSE(app, argc, argv);

    auto plan = fleetPlan(options);
    if (auto const* error = std::get_if<std::string>(&plan)) {
        fmt::print(stderr, "zelmor-sim: {}\n", *error);
        return 2;
    }

    // Blocked before any thread starts, so that every thread inherits the mask
    // and the signals only ever reach the sigwait below: no thread is cut off
    // in the middle of a write.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    sigaddset(&signals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    sim::Fleet fleet(std::move(std::get<sim::FleetPlan>(plan)));
    if (!fleet.start()) {
        fmt::print(stderr, "zelmor-sim: {}\n", fleet.error());
        return 1;
    }
    printFleet(fleet, options.porcelain);

    int signal = 0;
    while (sigwait(&signals, &signal) == 0 && (signal == SIGUSR1 || signal == SIGUSR2)) {
        if (signal == SIGUSR1)
            fleet.fallSilent(options.fallSilent);
        else
            cutNextLinks(fleet, options.porcelain);
    }
    fleet.stop();
    return 0;
}
