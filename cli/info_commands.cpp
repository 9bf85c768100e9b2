// Finding devices and reading them: scan, info, monitor, stats, fgstats, debug.
#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>

#include <fmt/core.h>

#include "command_context.h"
#include "command_error.h"
#include "device_records.h"
#include "device_session.h"
#include "interrupt.h"
#include "zelmor_scanner_impl.h"

namespace {

struct ScanOptions {
    unsigned seconds = 3;
    bool bluetooth = false;
};

struct MonitorOptions {
    unsigned count = 0;
    unsigned interval = 1000;
};

void scan(CommandContext& context, ScanOptions const& options) {
    std::mutex mutex;
    std::map<uint64_t, ZelmorScanner::Advertisement> seen;  // by serial: the latest sighting
    ZelmorScannerImpl scanner;
    scanner.setAdvertisementCallback([&](ZelmorScanner::Advertisement const& advertisement) {
        std::lock_guard lock(mutex);
        seen[advertisement.serial] = advertisement;
    });
    if (!scanner.startWifiScan()) throw CommandError(scanner.lastError(), kExitFailure);
    if (options.bluetooth && !scanner.initBle()) {
        scanner.stopWifiScan();
        throw CommandError(fmt::format("Bluetooth LE scan failed: {}", scanner.lastError()), kExitFailure);
    }
    catchInterrupts();
    sleepUnlessInterrupted(std::chrono::seconds(options.seconds));
    scanner.setAdvertisementCallback({});
    scanner.stopWifiScan();
    scanner.stopBle();

    for (auto const& entry : seen) {
        if (context.output.json())
            context.output.emit(advertisementJson(entry.second));
        else
            context.output.line(advertisementText(entry.second));
    }
    if (seen.empty() && !context.output.json()) context.output.line("No devices found.");
}

void info(CommandContext& context) {
    DeviceSession session(context.target);
    // Read again: an unlock since connecting changes the lock status.
    auto const record = session.get(&Zelmor::requestGetInfo);
    if (context.output.json()) {
        context.output.emit(infoJson(record));
        return;
    }
    for (auto const& line : infoText(record)) context.output.line(line);
}

void monitor(CommandContext& context, MonitorOptions const& options) {
    DeviceSession session(context.target);
    catchInterrupts();
    auto next = std::chrono::steady_clock::now();
    for (unsigned n = 0; options.count == 0 || n < options.count; ++n) {
        Zelmor::MonitorData data;
        if (session.pushesLiveData()) {
            // The device sets the pace: one reading a second.
            std::optional<Zelmor::MonitorData> const pushed = session.nextLiveData();
            if (!pushed) return;
            data = *pushed;
        } else {
            if (n > 0) {
                next += std::chrono::milliseconds(options.interval);
                auto const wait =
                    std::chrono::duration_cast<std::chrono::milliseconds>(next - std::chrono::steady_clock::now());
                if (!sleepUnlessInterrupted(std::max(wait, std::chrono::milliseconds(0)))) return;
            }
            data = session.get(&Zelmor::requestGetMonitorData);
        }
        if (context.output.json())
            context.output.emit(monitorJson(data));
        else
            context.output.line(monitorText(data));
        if (interruptRequested()) return;
    }
}

void statistics(CommandContext& context) {
    DeviceSession session(context.target);
    auto const record = session.get(&Zelmor::requestGetStatistics);
    if (context.output.json()) {
        context.output.emit(statisticsJson(record));
        return;
    }
    for (auto const& line : statisticsText(record)) context.output.line(line);
}

void fuelgauge(CommandContext& context) {
    DeviceSession session(context.target);
    auto const record = session.get(&Zelmor::requestGetFgStatistics);
    if (context.output.json()) {
        context.output.emit(fuelgaugeJson(record));
        return;
    }
    for (auto const& line : fuelgaugeText(record)) context.output.line(line);
}

void debugText(CommandContext& context) {
    // The device answers what the area holds of [offset, offset + length): a
    // short answer is its end.
    constexpr uint32_t kBlock = 4096;
    DeviceSession session(context.target);
    std::string text;
    for (uint32_t offset = 0;; offset += kBlock) {
        auto const [code, block] = session.await<std::pair<Zelmor::ResponseCode, std::string>>([&](auto deliver) {
            session.device().requestReadDebug(offset, kBlock,
                                              [deliver](Zelmor::ResponseCode code, uint8_t const* data, size_t length) {
                                                  deliver({code, std::string(data, data + length)});
                                              });
        });
        session.check(code);
        text += block;
        if (block.size() < kBlock) break;
    }
    if (!text.empty() && text.back() == '\n') text.pop_back();
    context.output.result({{"text", text}}, text);
}

}  // namespace

void addInfoCommands(CLI::App& app, CommandContext& context) {
    auto scanOptions = std::make_shared<ScanOptions>();
    CLI::App* scanCommand =
        addCommand(app, "scan", "List the LAN and WiFi devices announcing themselves on this network", context,
                   [&context, scanOptions] { scan(context, *scanOptions); });
    scanCommand->add_option("--seconds", scanOptions->seconds, "How long to listen for announcements")
        ->capture_default_str()
        ->check(CLI::Range(1u, 3600u));
    scanCommand->add_flag("--bluetooth", scanOptions->bluetooth,
                          "Also list the Bluetooth LE devices advertising nearby (needs BlueZ and an adapter)");

    addCommand(app, "info", "Show the device's name, model, serial, firmware, address and lock", context,
               [&context] { info(context); });

    auto monitorOptions = std::make_shared<MonitorOptions>();
    CLI::App* monitorCommand = addCommand(app, "monitor", "Show the live readings, one line per reading", context,
                                          [&context, monitorOptions] { monitor(context, *monitorOptions); });
    monitorCommand->add_option("--count", monitorOptions->count, "Readings to take; 0: until Ctrl-C")
        ->capture_default_str();
    monitorCommand
        ->add_option("--interval", monitorOptions->interval,
                     "Milliseconds from one reading to the next (polled models; Bluetooth LE models push one a second)")
        ->capture_default_str()
        ->check(CLI::Range(100u, 86400000u));

    addCommand(app, "stats", "Show the statistics since power on (extremes and peaks)", context,
               [&context] { statistics(context); });
    addCommand(app, "fgstats", "Show the fuel gauge statistics (capacity, totals, cycles)", context,
               [&context] { fuelgauge(context); });
    addCommand(app, "debug", "Show the device's debug text: what it did lately, one event per line", context,
               [&context] { debugText(context); });
}
