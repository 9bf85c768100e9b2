// What the application's windows cost the process that shows them, each
// beside a bare wxFrame with a status bar measured in the same process:
//  - startup: the time until a window is drawn on the screen;
//  - resident memory (VmRSS) in each state;
//  - CPU use while a window sits idle, as a share of one core.
// The windows are the real ones, against zelmor-sim started as a child process
// (three devices on 127.0.0.2 to 127.0.0.4, the hub on 127.0.0.1).
//
// Startup. The toolkit starts once per process, so its start is timed on its
// own, and each window from its creation until its first frame is drawn. The
// first window of a process pays one-time costs on top (theme, fonts, the
// display's resources) that every later window finds ready. So the bare frame
// is made twice: first in the process (cold) and again (warm). The
// application's windows, made later, are set beside the warm bare frame; and
// what the program's own start costs up to its main window is put together as
// (process start to main) + toolkit start + (cold minus warm bare frame) +
// (main window creation to drawn), beside the same sum for a bare frame as the
// first window. "Drawn" is the moment the event loop turns idle after the
// window's first paint event: GTK draws every child of a window in one pass.
// The simulator starts before anything is timed, so that its own start does
// not fall into a timed phase and every phase sees the same machine.
//
// Memory and CPU. Each state is measured when it is reached and again after it
// sat idle for the idle period, in the toolkit's own event loop (the process
// sleeps in it as in real use; nothing polls). The states follow a user: the
// bare frame alone (baseline), then the main window listing the three devices,
// then the main window with a device window open on the LAN device. CPU is
// getrusage(RUSAGE_SELF) user + system time, all threads, over the wall time;
// beside it the voluntary context switches per second, how often the idle
// process wakes up. The main window alone is measured too, so that the device
// window's own share shows as the difference. A second baseline is the bare
// frame with a timer that does nothing at the device window's refresh interval:
// the least that a window woken that often costs.
//
// Two costs of the toolkit start belong to the display rather than to the
// program, and a fresh Xvfb has both; on a desktop an earlier program paid
// them. Without a session bus (DBUS_SESSION_BUS_ADDRESS unset) GTK's
// accessibility bridge has D-Bus start one. And the first GTK program on a
// display probes OpenGL to choose its visuals, which loads Mesa (with LLVM
// for software rendering: tens of milliseconds and tens of MiB resident), and
// leaves the answer on the root window for the programs after it. The report
// says when either happened.
#include <arpa/inet.h>
#include <unistd.h>

#include <wx/app.h>
#include <wx/eventfilter.h>
#include <wx/evtloop.h>
#include <wx/frame.h>
#include <wx/image.h>
#include <wx/imagpng.h>
#include <wx/init.h>
#include <wx/listctrl.h>
#include <wx/socket.h>
#include <wx/statusbr.h>
#include <wx/timer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "event_loop_until.h"
#include "gui_device.h"
#include "gui_main.h"
#include "hardware_revision.h"
#include "local_store.h"
#include "process_figures.h"
#include "simulator_process.h"
#include "zelmor_scanner_impl.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double msBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// ---------------------------------------------------------------------------
// Process figures.

/// Milliseconds since this process was started, by the kernel's start time in
/// /proc/self/stat (clock ticks, usually 10 ms).
double msSinceProcessStart() {
    std::ifstream file("/proc/self/stat");
    std::string const stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // The command name may hold spaces; the fields after it are plain.
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    // Field 22 of the whole line is the 20th after the command name.
    for (int i = 0; i < 20 && fields >> field;) ++i;
    double const startSeconds = std::stod(field) / static_cast<double>(sysconf(_SC_CLK_TCK));
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    double const nowSeconds = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
    return (nowSeconds - startSeconds) * 1e3;
}

/// Whether an OpenGL driver is mapped into this process.
bool openGlLoaded() {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line))
        if (line.find("libGLX_mesa") != std::string::npos || line.find("_dri.so") != std::string::npos) return true;
    return false;
}

// ---------------------------------------------------------------------------
// The event loop.

/// When a window was first painted, and when the event loop turned idle after
/// that: by then GTK has drawn the whole window.
class PaintWatch : public wxEventFilter {
public:
    PaintWatch() { wxEvtHandler::AddFilter(this); }
    ~PaintWatch() override { wxEvtHandler::RemoveFilter(this); }
    PaintWatch(PaintWatch const&) = delete;
    PaintWatch& operator=(PaintWatch const&) = delete;

    /// Watches `window` and its children from now on.
    void watch(wxWindow* window) {
        window_ = window;
        painted_.reset();
        drawn_.reset();
    }
    std::optional<Clock::time_point> painted() const { return painted_; }
    std::optional<Clock::time_point> drawn() const { return drawn_; }

    int FilterEvent(wxEvent& event) override {
        if (event.GetEventType() != wxEVT_PAINT || painted_ || window_ == nullptr) return Event_Skip;
        auto* const window = wxDynamicCast(event.GetEventObject(), wxWindow);
        if (window == nullptr || wxGetTopLevelParent(window) != window_) return Event_Skip;
        painted_ = Clock::now();
        wxTheApp->CallAfter([this, watched = window_] {
            if (window_ == watched) drawn_ = Clock::now();
        });
        return Event_Skip;
    }

private:
    wxWindow* window_ = nullptr;
    std::optional<Clock::time_point> painted_;
    std::optional<Clock::time_point> drawn_;
};

struct Startup {
    double constructedMs = 0;
    double paintedMs = 0;
    double drawnMs = 0;
};

/// Makes a window with `make`, shows it and times it until it is drawn.
std::optional<Startup> timeStartup(PaintWatch& paints, std::function<wxFrame*()> const& make, wxFrame*& window) {
    auto const start = Clock::now();
    window = make();
    auto const constructed = Clock::now();
    paints.watch(window);
    window->Show();
    bool const drawn = runEventLoopUntil([&] { return paints.drawn() && window->IsShownOnScreen(); }, 10s);
    paints.watch(nullptr);
    if (!drawn) return std::nullopt;
    return Startup{msBetween(start, constructed), msBetween(start, *paints.painted()),
                   msBetween(start, *paints.drawn())};
}

/// Destroys every top-level window and lets the loop delete them.
bool closeAllWindows() {
    for (wxWindow* window : wxTopLevelWindows) window->Destroy();
    return runEventLoopUntil([] { return wxTopLevelWindows.IsEmpty(); }, 10s);
}

// ---------------------------------------------------------------------------
// The measurements.

struct IdleState {
    std::string name;
    Memory onArrival;
    Memory afterIdle;
    CpuUse cpu;
    double wallSeconds = 0;
    double corePercent() const { return cpu.seconds / wallSeconds * 100.0; }
    double wakeupsPerSecond() const { return cpu.sleeps / wallSeconds; }
};

/// The state as reached now, then after it sat idle for `period`.
IdleState measureIdle(std::string name, std::chrono::milliseconds period) {
    IdleState state{std::move(name), residentMemory(), {}, {}, 0};
    CpuUse const before = cpuUse();
    auto const start = Clock::now();
    runEventLoopFor(period);
    state.wallSeconds = msBetween(start, Clock::now()) / 1e3;
    CpuUse const after = cpuUse();
    state.cpu = {after.seconds - before.seconds, after.sleeps - before.sleeps};
    state.afterIdle = residentMemory();
    return state;
}

struct Results {
    double processToMainMs = 0;
    bool sessionBus = false;
    double toolkitMs = 0;
    bool openGlProbed = false;
    Memory toolkitOnly;
    Startup bareCold;
    Startup bareWarm;
    Startup main;
    double mainListedMs = 0;
    Startup device;
    double deviceConnectedMs = 0;
    double deviceRowsMs = 0;
    std::vector<IdleState> idle;  // in the order of IdleStateIndex
    double refreshTimerTicksPerSecond = 0;
};

enum IdleStateIndex : size_t { kBareFrame, kBareFrameTimer, kMainWindow, kMainAndDeviceWindow };

// The main window's size: both draw the same area.
constexpr int kMainWindowWidth = 1300;
constexpr int kMainWindowHeight = 600;

wxFrame* makeBareFrame() {
    auto* frame = new wxFrame(nullptr, wxID_ANY, "Zelmor Manager", wxDefaultPosition,
                              wxSize(kMainWindowWidth, kMainWindowHeight));
    frame->CreateStatusBar();
    frame->SetStatusText("Ready");
    return frame;
}

std::string statusOf(wxFrame const& window) { return window.GetStatusBar()->GetStatusText().utf8_string(); }

/// Everything that needs windows; false with a message on stderr when a window
/// did not reach the state it is measured in. `store` is made here, just before
/// the main window as the application makes it, and has to outlive the window.
bool measureWindows(Results& results, SimDevice const& lanDevice, std::optional<LocalStore>& store,
                    std::filesystem::path const& dataDir, std::chrono::milliseconds idlePeriod) {
    auto failed = [](char const* what) {
        std::fprintf(stderr, "%s\n", what);
        closeAllWindows();
        return false;
    };
    PaintWatch paints;
    wxFrame* window = nullptr;

    auto const bareCold = timeStartup(paints, makeBareFrame, window);
    if (!bareCold) return failed("The bare frame was not drawn within 10 s");
    results.bareCold = *bareCold;
    if (!closeAllWindows()) return failed("The bare frame did not go away");
    auto const bareWarm = timeStartup(paints, makeBareFrame, window);
    if (!bareWarm) return failed("The bare frame was not drawn within 10 s");
    results.bareWarm = *bareWarm;
    results.idle.push_back(measureIdle("bare frame with a status bar (baseline)", idlePeriod));
    {
        wxTimer refresh;
        long ticks = 0;
        refresh.Bind(wxEVT_TIMER, [&ticks](wxTimerEvent&) { ++ticks; });
        refresh.Start(GuiDevice::kRefreshIntervalMs);
        results.idle.push_back(measureIdle("bare frame + idle refresh-rate timer", idlePeriod));
        refresh.Stop();
        results.refreshTimerTicksPerSecond = static_cast<double>(ticks) / results.idle[kBareFrameTimer].wallSeconds;
    }
    if (!closeAllWindows()) return failed("The bare frame did not go away");

    auto const mainStart = Clock::now();
    auto const main = timeStartup(
        paints,
        [&] {
            store.emplace(dataDir);
            return new GuiMain(*store, std::make_unique<ZelmorScannerImpl>());
        },
        window);
    if (!main) return failed("The main window was not drawn within 10 s");
    results.main = *main;
    auto* const mainWindow = static_cast<GuiMain*>(window);
    wxListCtrl* const list = mainWindow->localDevicesList();
    if (!runEventLoopUntil([list] { return list->GetItemCount() == 3; }, 20s))
        return failed("The main window did not list the 3 simulated devices within 20 s (is UDP 7207 free?)");
    results.mainListedMs = msBetween(mainStart, Clock::now());
    results.idle.push_back(measureIdle("main window, 3 devices listed", idlePeriod));

    Zelmor::DeviceIdentifier id;
    id.name = lanDevice.name;
    id.hardwareRevision = static_cast<uint8_t>(lanDevice.revision);
    id.ipAddress = inet_addr(lanDevice.address.c_str());
    auto const deviceStart = Clock::now();
    auto const device = timeStartup(
        paints, [&] { return new GuiDevice(nullptr, id, nullptr); }, window);
    if (!device) return failed("The device window was not drawn within 10 s");
    results.device = *device;
    auto* const deviceWindow = static_cast<GuiDevice*>(window);
    if (!runEventLoopUntil([deviceWindow] { return statusOf(*deviceWindow) == "Connected"; }, 20s))
        return failed("The device window did not connect within 20 s");
    results.deviceConnectedMs = msBetween(deviceStart, Clock::now());
    if (!runEventLoopUntil([deviceWindow] { return !deviceWindow->shownRows().empty(); }, 20s))
        return failed("The device window showed no readings within 20 s");
    results.deviceRowsMs = msBetween(deviceStart, Clock::now());
    results.idle.push_back(measureIdle("main window + device window, connected", idlePeriod));

    if (!closeAllWindows()) {
        std::fprintf(stderr, "The windows did not go away within 10 s\n");
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// The report.

double ratio(double measured, double baseline) { return baseline > 0 ? measured / baseline : 0; }

void printStartupRow(char const* what, Startup const& s, Startup const& baseline) {
    std::printf("  %-40s %9.1f %9.1f %9.1f %10.2f\n", what, s.constructedMs, s.paintedMs, s.drawnMs,
                ratio(s.drawnMs, baseline.drawnMs));
}

void printReport(Results const& r, std::chrono::milliseconds idlePeriod) {
    std::printf("Startup, ms\n");
    std::printf("  %-40s %9.1f  (clock ticks of %.0f ms)\n", "process start -> main", r.processToMainMs,
                1e3 / static_cast<double>(sysconf(_SC_CLK_TCK)));
    std::printf("  %-40s %9.1f  (wxEntryStart, OnInit, sockets, PNG handler)\n", "toolkit start", r.toolkitMs);
    if (!r.sessionBus) std::printf("%54s(no session bus: D-Bus started one for the toolkit)\n", "");
    if (r.openGlProbed)
        std::printf("%54s(first GTK program on this display: the toolkit loaded OpenGL to probe it)\n", "");
    double const firstWindowMs = r.bareCold.drawnMs - r.bareWarm.drawnMs;
    std::printf("  %-40s %9.1f  (cold minus warm bare frame, drawn)\n", "first window's one-time cost", firstWindowMs);
    std::printf("\n  window, from creation                      constructed   painted     drawn  drawn/bare\n");
    printStartupRow("bare frame, first window (cold)", r.bareCold, r.bareWarm);
    printStartupRow("bare frame, again (baseline)", r.bareWarm, r.bareWarm);
    printStartupRow("main window (GuiMain)", r.main, r.bareWarm);
    printStartupRow("device window (GuiDevice, LAN)", r.device, r.bareWarm);
    std::printf("  main window lists the 3 devices after %.1f ms\n", r.mainListedMs);
    std::printf("  device window connected after %.1f ms, readings shown after %.1f ms\n", r.deviceConnectedMs,
                r.deviceRowsMs);
    double const common = r.processToMainMs + r.toolkitMs;
    double const programMain = common + firstWindowMs + r.main.drawnMs;
    double const programBare = common + r.bareCold.drawnMs;
    std::printf("\n  program start -> first window drawn\n");
    std::printf("  %-40s %9.1f\n", "bare frame (baseline)", programBare);
    std::printf("  %-40s %9.1f   x%.2f\n", "main window", programMain, ratio(programMain, programBare));

    IdleState const& base = r.idle.front();
    std::printf("\nResident memory, MiB (VmRSS = anonymous + file-backed + shared)\n");
    std::printf("  %-40s %8s %8s %8s %8s %10s %8s\n", "state", "arrival", "idle", "anon", "file", "idle-base",
                "x base");
    std::printf("  %-40s %8.1f %8s %8.1f %8.1f\n", "toolkit started, no window", r.toolkitOnly.rssMiB, "",
                r.toolkitOnly.anonMiB, r.toolkitOnly.fileMiB);
    for (IdleState const& s : r.idle)
        std::printf("  %-40s %8.1f %8.1f %8.1f %8.1f %+10.1f %8.2f\n", s.name.c_str(), s.onArrival.rssMiB,
                    s.afterIdle.rssMiB, s.afterIdle.anonMiB, s.afterIdle.fileMiB,
                    s.afterIdle.rssMiB - base.afterIdle.rssMiB, ratio(s.afterIdle.rssMiB, base.afterIdle.rssMiB));
    std::printf("  (arrival: as the state was reached; idle and its parts: after %.0f s idle)\n",
                static_cast<double>(idlePeriod.count()) / 1e3);

    std::printf("\nCPU while idle, %% of one core (user + system time of all threads / wall time)\n");
    std::printf("  %-40s %8s %8s %8s %10s %10s\n", "state", "wall s", "cpu ms", "% core", "x base", "wakeups/s");
    for (IdleState const& s : r.idle)
        std::printf("  %-40s %8.2f %8.1f %8.3f %10.1f %10.1f\n", s.name.c_str(), s.wallSeconds, s.cpu.seconds * 1e3,
                    s.corePercent(), ratio(s.corePercent(), base.corePercent()), s.wakeupsPerSecond());
    double const deviceShare = r.idle[kMainAndDeviceWindow].corePercent() - r.idle[kMainWindow].corePercent();
    std::printf("  %-40s %8s %8s %8.3f   (aim: under 2 %%)\n", "device window's share (difference)", "", "",
                deviceShare);
    std::printf("  (wakeups: voluntary context switches of all threads, each a sleep after something woke them)\n");
    std::printf("  (refresh-rate timer: %d ms, as the device window's; fired %.1f times a second)\n",
                GuiDevice::kRefreshIntervalMs, r.refreshTimerTicksPerSecond);
}

}  // namespace

int main(int argc, char** argv) {
    double const processToMainMs = msSinceProcessStart();

    bool quick = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            quick = true;
        } else {
            std::fprintf(stderr, "usage: %s [--quick]\n", argv[0]);
            return 2;
        }
    }
    auto const idlePeriod = quick ? 3000ms : 30000ms;

    // A home of its own: the device window keeps its store under $HOME, and
    // the toolkit finds no settings of the user who runs this.
    std::string pattern = (std::filesystem::temp_directory_path() / "zelmor-footprint-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    std::filesystem::path const scratch = pattern;
    std::filesystem::path const home = scratch / "home";
    std::filesystem::path const dataDir = scratch / "data";
    std::filesystem::create_directories(home);
    setenv("HOME", home.c_str(), 1);

    int result = 0;
    {
        std::optional<LocalStore> store;
        Simulator sim;
        SimDevice const* lanDevice = nullptr;
        for (SimDevice const& device : sim.devices())
            if (lanDevice == nullptr && isLanFamily(static_cast<uint8_t>(device.revision))) lanDevice = &device;
        if (!sim.ready()) {
            std::fprintf(stderr, "%s\n", sim.error().c_str());
            result = 1;
        } else if (sim.devices().size() != 3 || lanDevice == nullptr) {
            std::fprintf(stderr, "zelmor-sim served %zu devices, expected 3 with a LAN one\n", sim.devices().size());
            result = 1;
        }

        Results results;
        results.processToMainMs = processToMainMs;
        results.sessionBus = std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr;
        if (result == 0) {
            // The toolkit must not see --quick: wxApp's command line parser refuses it.
            int toolkitArgc = 1;
            char* toolkitArgv[] = {argv[0], nullptr};
            auto const toolkitStart = Clock::now();
            wxApp::SetInstance(new wxApp);
            if (!wxEntryStart(toolkitArgc, toolkitArgv)) {
                std::fprintf(stderr, "This needs an X display; run it under Xvfb, e.g. xvfb-run -a %s\n", argv[0]);
                result = 1;
            } else {
                if (!wxTheApp->CallOnInit()) {
                    std::fprintf(stderr, "The wxWidgets application did not start\n");
                    result = 1;
                } else {
                    // As the application's OnInit does.
                    wxSocketBase::Initialize();
                    wxImage::AddHandler(new wxPNGHandler);
                    results.toolkitMs = msBetween(toolkitStart, Clock::now());
                    results.toolkitOnly = residentMemory();
                    results.openGlProbed = openGlLoaded();
                    if (!measureWindows(results, *lanDevice, store, dataDir, idlePeriod)) result = 1;
                    wxTheApp->OnExit();
                }
                wxEntryCleanup();
            }
        }

        if (std::string const stopped = sim.stop(); !stopped.empty() && sim.ready()) {
            std::fprintf(stderr, "zelmor-sim: %s\n", stopped.c_str());
            result = 1;
        }
        if (result == 0) {
            std::printf("Zelmor Manager windows against a bare wxFrame with a status bar, one process%s\n\n",
                        quick ? " (--quick)" : "");
            printReport(results, idlePeriod);
        }
    }
    std::filesystem::remove_all(scratch);
    return result;
}
