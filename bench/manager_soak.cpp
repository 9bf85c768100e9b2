// A long run of the manager under faults: the main window and ten device
// windows, in one process as a user has them, against zelmor-sim's devices
// whose answer frames are now and then lost or damaged, while every minute
// one device hangs up its links (SIGUSR2 of zelmor-sim). Run by
// scripts/soak.sh, never by CTest: it takes minutes.
//
// What it holds the manager to:
//  - resident memory and threads do not grow after the first minute, beyond
//    the tolerances below;
//  - every window is live (connected, its readings changing) or shows why
//    not: a box with the system's reason, or "Connecting ..." for a short
//    while. A window that closed after telling why is opened again, as the
//    user double-clicks the device again; one that the system left stuck
//    after an "Error" box is closed and opened again;
//  - at the end, each window's data log copy in the local store equals the
//    device's own files as zelmorctl log sync reads them.
// It prints a line of figures once a minute, the devices' copies at the end,
// and the start (after the first minute) beside the end. The exit status is
// 1 when any of the above failed.
#include <unistd.h>

#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/image.h>
#include <wx/imagpng.h>
#include <wx/init.h>
#include <wx/socket.h>
#include <wx/timer.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "event_loop_until.h"
#include "gui_main.h"
#include "local_store_instance.h"
#include "log_mirror.h"
#include "process_figures.h"
#include "simulator_process.h"
#include "soak_log_check.h"
#include "soak_window_watch.h"
#include "zelmor_scanner_impl.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr size_t kDevices = 10;
// Resident memory may step up after the first minute while the allocator's
// arenas, one per thread that allocates, each come to hold a reopened link's
// buffers; a leak of a few hundred bytes per reading, ten readings a second,
// passes this within the ten minutes.
constexpr double kMemoryToleranceMiB = 8;
// AddressSanitizer keeps freed memory in quarantine (256 MiB) before it is
// used again, so resident memory grows there whatever the program does.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryJudged = false;
#elif defined(__has_feature)
constexpr bool kMemoryJudged = !__has_feature(address_sanitizer);
#else
constexpr bool kMemoryJudged = true;
#endif
// Every window is live at both figures, so each has the same threads then.
constexpr size_t kThreadTolerance = 0;
// Quiet this long, no window copying files, and the syncs have ended: longer
// than a request's time-out, so a listing whose answer was lost has ended too.
constexpr auto kSyncQuiet = 12s;
constexpr int kSyncRounds = 5;

double seconds(SoakClock::duration d) { return std::chrono::duration<double>(d).count(); }

/// The devices: Zelmor-K and Zelmor-V in turn, a record a second in their log
/// from the start of the run. The first half is reached over the LAN, where a
/// frame carries no checksum, so a damaged byte of a log block would be
/// stored as the device's; those devices only lose frames. The second half is
/// reached through the hub, whose frames carry a CRC: damaged ones are
/// dropped there, and those devices damage frames too.
std::vector<std::string> simulatorArguments() {
    std::vector<std::string> arguments{"--interval", "1", "--history", "0", "--drop", "0.02", "--corrupt", "0.005"};
    for (size_t i = 0; i < kDevices; ++i) {
        arguments.push_back("--device");
        arguments.push_back(std::string(i % 2 == 0 ? "K" : "V") + (i < kDevices / 2 ? ",corrupt=0" : ""));
    }
    return arguments;
}

bool throughHub(size_t index) { return index >= kDevices / 2; }

struct Figures {
    double minute = 0;
    Memory memory;
    size_t threads = 0;
    double cpuPercent = 0;  // of one core, since the figures before
    uint64_t bytesSynced = 0;
};

class Soak {
public:
    Soak(Simulator& sim, std::chrono::minutes length) : sim_(sim), length_(length) {
        for (size_t i = 0; i < sim.devices().size(); ++i)
            watches_.push_back(std::make_unique<WindowWatch>(sim.devices()[i], throughHub(i)));
        tick_.Bind(wxEVT_TIMER, [this](wxTimerEvent&) { onTick(); });
    }

    /// Opens the windows and runs the event loop for the run's length, one
    /// cut a minute (half a minute past), figures every minute.
    void run() {
        begin_ = lastFigures_ = SoakClock::now();
        lastCpu_ = cpuUse();
        (new GuiMain(localStore(), std::make_unique<ZelmorScannerImpl>()))->Show();
        for (auto& watch : watches_) watch->open(begin_);
        std::printf("%6s %9s %8s %7s %12s %9s %9s %8s %11s\n", "minute", "RSS MiB", "threads", "CPU %", "synced KiB",
                    "cuts", "reopened", "live", "recovering");
        tick_.Start(1000);
        // The process sleeps in the loop between ticks, as the application
        // does; the tick of the last minute's figures ends it.
        wxGUIEventLoop loop;
        running_ = &loop;
        loop.Run();
        running_ = nullptr;
    }

    /// Waits until every window is live, then takes the end figures.
    bool settle() {
        bool const live = runEventLoopUntil(
            [this] { return std::ranges::all_of(watches_, [](auto& w) { return w->live(); }); }, 2min);
        end_ = takeFigures();
        if (!live) failures_.push_back("not every window was live at the end");
        return live;
    }

    /// Syncs every copy at the end and holds it against the device; a copy
    /// left incomplete by a lost block gets another "Sync Log Now".
    void checkLogs(fs::path const& scratch) {
        std::vector<std::optional<CopyComparison>> results(watches_.size());
        for (int round = 1; round <= kSyncRounds; ++round) {
            std::vector<size_t> pending;
            for (size_t i = 0; i < watches_.size(); ++i)
                if (!results[i] || results[i]->check == CopyCheck::Incomplete) pending.push_back(i);
            if (pending.empty()) break;
            std::vector<LogFolder> const before = fetch(pending, scratch / "before");
            for (size_t i : pending)
                if (watches_[i]->window()) watches_[i]->window()->ProcessCommand(GuiDevice::kMenuSyncLog);
            waitForSyncs();
            std::vector<LogFolder> const after = fetch(pending, scratch / "after");
            for (size_t k = 0; k < pending.size(); ++k) {
                size_t const i = pending[k];
                results[i] = compareCopy(readLogFolder(copyFolder(i)), before[k], after[k]);
                syncRounds_[i] = round;
                deviceBytes_[i] = logBytes(after[k]);
            }
        }
        // The device went on logging after the last sync: its newest file is
        // longer by what it logged since.
        std::printf("\n%-10s %-4s %-5s %5s %11s %13s %13s %6s  %s\n", "device", "link", "model", "files", "copy bytes",
                    "device bytes", "logged after", "syncs", "identical");
        for (size_t i = 0; i < watches_.size(); ++i) {
            LogFolder const copy = readLogFolder(copyFolder(i));
            bool const identical = results[i] && results[i]->check == CopyCheck::Identical;
            SimDevice const& device = watches_[i]->device();
            auto const copyBytes = static_cast<long long>(logBytes(copy));
            auto const deviceBytes = static_cast<long long>(deviceBytes_[i]);
            std::printf("%-10s %-4s %-5s %5zu %11lld %13lld %13lld %6d  %s\n", device.address.c_str(),
                        watches_[i]->throughHub() ? "hub" : "LAN", device.revision == 0x10 ? "K" : "V", copy.size(),
                        copyBytes, deviceBytes, deviceBytes - copyBytes, syncRounds_[i],
                        identical ? "yes" : ("no, " + (results[i] ? results[i]->detail : "not compared")).c_str());
            if (!identical) failures_.push_back(device.address + ": the data log copy is not the device's");
        }
    }

    /// The start beside the end, the windows' counts, and what failed; the
    /// exit status.
    int report() {
        if (!start_) {
            std::printf("\nNo start figures: the windows were never all live after the first minute\n");
            return 1;
        }
        double const cpu = (end_.cpuSeconds - start_->cpuSeconds) / seconds(end_.at - start_->at) * 100;
        std::printf("\n%-22s %12s %12s %12s\n", "", "start", "end", "growth");
        std::printf("%-22s %12.0f %12.0f\n", "minute", start_->figures.minute, end_.figures.minute);
        std::printf("%-22s %12.1f %12.1f %+12.1f  (%s)\n", "resident memory, MiB", start_->figures.memory.rssMiB,
                    end_.figures.memory.rssMiB, end_.figures.memory.rssMiB - start_->figures.memory.rssMiB,
                    kMemoryJudged ? ("tolerance " + std::to_string(int(kMemoryToleranceMiB)) + " MiB").c_str()
                                  : "not judged: AddressSanitizer's quarantine holds freed memory");
        std::printf("%-22s %12zu %12zu %+12lld  (tolerance %zu)\n", "threads", start_->figures.threads,
                    end_.figures.threads,
                    static_cast<long long>(end_.figures.threads) - static_cast<long long>(start_->figures.threads),
                    kThreadTolerance);
        std::printf("%-22s %12.1f %12.1f\n", "bytes synced, KiB",
                    static_cast<double>(start_->figures.bytesSynced) / 1024,
                    static_cast<double>(end_.figures.bytesSynced) / 1024);
        std::printf("%-22s %12.2f  (start to end, %% of one core)\n", "CPU share, %", cpu);

        WindowWatch::Counts total;
        for (auto const& watch : watches_) {
            WindowWatch::Counts const& c = watch->counts();
            total.cutsMade += c.cutsMade;
            total.cutsSeen += c.cutsSeen;
            total.linkEnds += c.linkEnds;
            total.connectFailures += c.connectFailures;
            total.errors += c.errors;
            total.reopens += c.reopens;
            total.reconnects += c.reconnects;
            total.worstStaleSeconds = std::max(total.worstStaleSeconds, c.worstStaleSeconds);
        }
        std::printf("\nlinks cut %d (signals %d), cuts seen by their window %d, other link ends %d\n", total.cutsMade,
                    signals_, total.cutsSeen, total.linkEnds - total.cutsSeen);
        std::printf("windows reopened %d, live again %d; \"Device failed to connect\" %d, \"Error\" boxes %d\n",
                    total.reopens, total.reconnects, total.connectFailures, total.errors);
        std::printf("longest a live window's readings stayed the same: %.0f s\n", total.worstStaleSeconds);

        if (kMemoryJudged && end_.figures.memory.rssMiB - start_->figures.memory.rssMiB > kMemoryToleranceMiB)
            failures_.push_back("resident memory grew beyond the tolerance");
        if (end_.figures.threads > start_->figures.threads + kThreadTolerance)
            failures_.push_back("threads grew beyond the tolerance");
        if (total.cutsSeen < total.cutsMade) failures_.push_back("a cut link's window did not show its end");
        for (std::string const& failure : failures_) std::printf("FAILED: %s\n", failure.c_str());
        if (failures_.empty()) std::printf("\nPassed.\n");
        return failures_.empty() ? 0 : 1;
    }

private:
    struct Taken {
        Figures figures;
        SoakClock::time_point at;
        double cpuSeconds = 0;
    };

    void onTick() {
        SoakClock::time_point const now = SoakClock::now();
        readSimulatorLines();
        int live = 0, recovering = 0;
        for (size_t i = 0; i < watches_.size(); ++i) {
            std::string problem;
            WindowWatch::State const state = watches_[i]->check(now, problem);
            live += state == WindowWatch::State::Live ? 1 : 0;
            recovering += state == WindowWatch::State::Recovering ? 1 : 0;
            bool const failing = state == WindowWatch::State::Failing;
            if (failing && !failing_[i])
                failures_.push_back(watches_[i]->device().address + " at " +
                                    std::to_string(int(seconds(now - begin_))) +
                                    " s: neither live nor showing why: " + problem);
            failing_[i] = failing;
        }
        if (running_ != nullptr && now - begin_ >= 30s + signals_ * 1min) {
            sim_.process().signal(SIGUSR2);
            signalledAt_ = now;
            ++signals_;
        }
        if (running_ != nullptr && now - begin_ >= (minutesShown_ + 1) * 1min) {
            ++minutesShown_;
            Taken const taken = takeFigures();
            Figures const& f = taken.figures;
            int cuts = 0, reopens = 0;
            for (auto const& watch : watches_) {
                cuts += watch->counts().cutsMade;
                reopens += watch->counts().reopens;
            }
            std::printf("%6.0f %9.1f %8zu %7.2f %12.1f %9d %9d %8d %11d\n", f.minute, f.memory.rssMiB, f.threads,
                        f.cpuPercent, static_cast<double>(f.bytesSynced) / 1024, cuts, reopens, live, recovering);
            std::fflush(stdout);
            if (!start_ && live == static_cast<int>(watches_.size())) start_ = taken;
            if (minutesShown_ == length_.count()) running_->ScheduleExit();
        }
    }

    /// The lines zelmor-sim printed for each cut: which device's links ended.
    void readSimulatorLines() {
        while (auto line = sim_.process().readLine(0ms)) {
            auto const json = nlohmann::json::parse(*line, nullptr, false);
            if (!json.is_object() || !json.contains("links_closed")) continue;
            for (auto& watch : watches_)
                if (watch->device().address == json["links_closed"])
                    watch->cut(json.value("connections", 0u), signalledAt_);
        }
    }

    Taken takeFigures() {
        SoakClock::time_point const now = SoakClock::now();
        CpuUse const cpu = cpuUse();
        Taken taken{{seconds(now - begin_) / 60, residentMemory(), threadCount(),
                     (cpu.seconds - lastCpu_.seconds) / seconds(now - lastFigures_) * 100, 0},
                    now,
                    cpu.seconds};
        for (size_t i = 0; i < watches_.size(); ++i)
            taken.figures.bytesSynced += logBytes(readLogFolder(copyFolder(i)));
        lastCpu_ = cpu;
        lastFigures_ = now;
        return taken;
    }

    fs::path copyFolder(size_t index) const {
        return deviceLogDirectory(localStore().dataDir(), std::stoull(watches_[index]->device().serial, nullptr, 16));
    }

    /// The devices' files as zelmorctl reads them, fetched on a thread of its
    /// own while the windows go on.
    std::vector<LogFolder> fetch(std::vector<size_t> const& devices, fs::path const& root) {
        fs::remove_all(root);
        std::vector<std::pair<SimDevice, bool>> targets;
        for (size_t i : devices) targets.emplace_back(watches_[i]->device(), watches_[i]->throughHub());
        auto fetched = std::async(std::launch::async, [targets, root] {
            std::vector<LogFolder> folders;
            for (auto const& [device, hub] : targets) {
                bool const complete = fetchDeviceLog(device, hub, root);
                folders.push_back(complete
                                      ? readLogFolder(deviceLogDirectory(root, std::stoull(device.serial, nullptr, 16)))
                                      : LogFolder{});
            }
            return folders;
        });
        runEventLoopUntil([&fetched] { return fetched.wait_for(0s) == std::future_status::ready; }, 10min);
        return fetched.get();
    }

    void waitForSyncs() {
        SoakClock::time_point busyAt = SoakClock::now();
        runEventLoopUntil(
            [&] {
                if (std::ranges::any_of(watches_, [](auto& w) { return w->window() && w->window()->syncing(); }))
                    busyAt = SoakClock::now();
                return SoakClock::now() - busyAt >= kSyncQuiet;
            },
            5min);
    }

    Simulator& sim_;
    std::chrono::minutes const length_;
    std::vector<std::unique_ptr<WindowWatch>> watches_;
    wxTimer tick_;
    SoakClock::time_point begin_;
    SoakClock::time_point lastFigures_;
    CpuUse lastCpu_;
    wxGUIEventLoop* running_ = nullptr;  // the run's own loop, while it runs
    int signals_ = 0;
    SoakClock::time_point signalledAt_;
    int minutesShown_ = 0;
    std::vector<bool> failing_ = std::vector<bool>(kDevices);
    std::optional<Taken> start_;
    Taken end_;
    std::vector<std::string> failures_;
    std::vector<int> syncRounds_ = std::vector<int>(kDevices);
    std::vector<uint64_t> deviceBytes_ = std::vector<uint64_t>(kDevices);

    // Last: it reaches the watches from within any modal dialog.
    DialogWatch dialogs_{[this](wxWindow* window, std::string caption, std::string message) {
        for (auto& watch : watches_)
            if (watch->shown(window, caption, message, SoakClock::now())) return;
    }};
};

}  // namespace

int main(int argc, char** argv) {
    long minutes = 10;
    if (argc > 2 || (argc == 2 && (minutes = std::strtol(argv[1], nullptr, 10)) < 2)) {
        std::fprintf(stderr, "usage: %s [MINUTES]   (at least 2; 10 when not given)\n", argv[0]);
        return 2;
    }

    // A home of its own: the local store lives under $HOME.
    std::string pattern = (fs::temp_directory_path() / "zelmor-soak-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    fs::path const scratch = pattern;
    fs::create_directories(scratch / "home");
    setenv("HOME", (scratch / "home").c_str(), 1);

    int result = 1;
    {
        Simulator sim(simulatorArguments());
        if (!sim.ready() || sim.devices().size() != kDevices) {
            std::fprintf(stderr, "zelmor-sim: %s\n",
                         sim.ready() ? "not the ten devices asked for" : sim.error().c_str());
        } else {
            int toolkitArgc = 1;
            char* toolkitArgv[] = {argv[0], nullptr};
            wxApp::SetInstance(new wxApp);
            if (!wxEntryStart(toolkitArgc, toolkitArgv) || !wxTheApp->CallOnInit()) {
                std::fprintf(stderr, "This needs an X display; run it through scripts/soak.sh\n");
            } else {
                // As the application's OnInit does.
                wxSocketBase::Initialize();
                wxImage::AddHandler(new wxPNGHandler);
                std::printf("Zelmor Manager, %ld minutes: ten device windows against zelmor-sim", minutes);
                for (std::string const& argument : simulatorArguments()) std::printf(" %s", argument.c_str());
                std::printf("\n\n");
                {
                    Soak soak(sim, std::chrono::minutes(minutes));
                    soak.run();
                    soak.settle();
                    soak.checkLogs(scratch);
                    result = soak.report();
                }
                for (wxWindow* window : wxTopLevelWindows) window->Destroy();
                runEventLoopUntil([] { return wxTopLevelWindows.IsEmpty(); }, 10s);
                wxTheApp->OnExit();
            }
            wxEntryCleanup();
        }
        if (std::string const stopped = sim.stop(); !stopped.empty()) {
            std::fprintf(stderr, "zelmor-sim: %s\n", stopped.c_str());
            result = 1;
        }
    }
    fs::remove_all(scratch);
    return result;
}
