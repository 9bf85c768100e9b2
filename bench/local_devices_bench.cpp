// The main window on a busy network: "Local Devices" with 1000 devices
// announcing once a second, beside the same window with 10 in the same run.
// The devices are zelmor-sim's, started as a child process with
// --announce-only (its three served devices count among them); the window is
// the real GuiMain with the real scanner, listening on the announcement port.
//
// For each fleet, one after the other in the same process:
//  - listing: from the first sighting the scanner delivers to the moment every
//    device has its row. The scanner is wrapped so that its sightings are
//    counted and the first one timed as it leaves the scanner's thread;
//  - steady state, all rows listed and kept current: how late a timer due
//    every 50 ms fires (the event loop's latency as a user feels it: a click
//    or a paint waits as long), median, 99th percentile and worst; the
//    process's CPU time (getrusage, all threads, the scanner's included) over
//    the wall time; and the sightings heard a second, which tell whether any
//    datagram is lost on the way;
//  - ageing (not with --quick): a fifth of the devices switched off with
//    SIGUSR1, and the time until their rows are gone (ten seconds after their
//    last announcement, the ageing timer's second at most).
// The main window with the thousand listed, scrolled to its end, is saved as
// screenshots/main_window_1000_devices.png next to this program.
#include <sys/resource.h>

#include <wx/app.h>
#include <wx/dcclient.h>
#include <wx/dcmemory.h>
#include <wx/evtloop.h>
#include <wx/image.h>
#include <wx/imagpng.h>
#include <wx/init.h>
#include <wx/listctrl.h>
#include <wx/socket.h>
#include <wx/stdpaths.h>
#include <wx/timer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "child_process.h"
#include "event_loop_until.h"
#include "gui_main.h"
#include "local_store.h"
#include "zelmor_scanner_impl.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double msBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](timeval t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// The real scanner, with its sightings counted and the first one timed as
/// they leave the scanner's thread for the window.
class CountingScanner : public ZelmorScanner {
public:
    struct Counts {
        std::atomic<int64_t> sightings{0};
        std::atomic<int64_t> firstNs{0};  // steady clock; 0 until the first sighting
    };

    explicit CountingScanner(std::shared_ptr<Counts> counts) : counts_(std::move(counts)) {}

    bool startWifiScan() override { return scanner_.startWifiScan(); }
    void stopWifiScan() override { scanner_.stopWifiScan(); }
    bool initBle() override { return scanner_.initBle(); }
    void stopBle() override { scanner_.stopBle(); }
    std::string lastError() const override { return scanner_.lastError(); }
    void setAdvertisementCallback(AdvertisementCallback callback) override {
        if (!callback) return scanner_.setAdvertisementCallback({});
        scanner_.setAdvertisementCallback([counts = counts_, callback](Advertisement const& advertisement) {
            int64_t expected = 0;
            counts->firstNs.compare_exchange_strong(expected, Clock::now().time_since_epoch().count());
            ++counts->sightings;
            callback(advertisement);
        });
    }

private:
    std::shared_ptr<Counts> counts_;
    ZelmorScannerImpl scanner_;
};

/// A timer due every `period` from its last firing, and how late each firing was.
class LatenessProbe {
public:
    static constexpr int kPeriodMs = 50;

    LatenessProbe() {
        timer_.Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
            latenessMs_.push_back(msBetween(due_, Clock::now()));
            schedule();
        });
        schedule();
    }
    ~LatenessProbe() { timer_.Stop(); }
    LatenessProbe(LatenessProbe const&) = delete;
    LatenessProbe& operator=(LatenessProbe const&) = delete;

    std::vector<double> sorted() const {
        std::vector<double> sorted = latenessMs_;
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    }

private:
    void schedule() {
        due_ = Clock::now() + std::chrono::milliseconds(kPeriodMs);
        timer_.StartOnce(kPeriodMs);
    }

    wxTimer timer_;
    Clock::time_point due_;
    std::vector<double> latenessMs_;
};

double percentile(std::vector<double> const& sorted, double share) {
    if (sorted.empty()) return 0;
    return sorted[std::min(sorted.size() - 1, static_cast<size_t>(share * static_cast<double>(sorted.size())))];
}

/// What the window shows now.
wxBitmap shownBitmap(wxWindow& window) {
    wxBitmap bitmap(window.GetClientSize());
    wxMemoryDC copy(bitmap);
    wxClientDC shown(&window);
    copy.Blit(0, 0, bitmap.GetWidth(), bitmap.GetHeight(), &shown, 0, 0);
    copy.SelectObject(wxNullBitmap);
    return bitmap;
}

/// Whether the window shows more than two colours: drawn, not blank.
bool showsSomething(wxWindow& window) {
    wxImage const image = shownBitmap(window).ConvertToImage();
    std::set<unsigned> colours;
    unsigned char const* pixel = image.GetData();
    for (int i = 0; i < image.GetWidth() * image.GetHeight() && colours.size() < 3; ++i, pixel += 3)
        colours.insert(unsigned{pixel[0]} << 16 | unsigned{pixel[1]} << 8 | pixel[2]);
    return colours.size() >= 3;
}

/// Saves what the window shows as a PNG once the list's header and rows,
/// each drawn in a window of its own, are on the screen.
bool saveScreenshot(wxWindow& window, wxListCtrl* list, std::filesystem::path const& file) {
    auto const drawn = [list] {
        for (wxWindow* part : list->GetChildren())
            if (!showsSomething(*part)) return false;
        return true;
    };
    std::filesystem::create_directories(file.parent_path());
    return runEventLoopUntil(drawn, 10s) && shownBitmap(window).SaveFile(file.string(), wxBITMAP_TYPE_PNG);
}

struct Run {
    size_t devices = 0;
    double listedMs = 0;
    std::vector<double> latenessMs;  // sorted
    double corePercent = 0;
    double sightingsPerSecond = 0;
    std::optional<double> agedOutSeconds;
};

/// The arguments of zelmor-sim announcing `devices` devices, a fifth of them
/// ready to be switched off; nothing else is served.
std::vector<std::string> simulatorArguments(size_t devices) {
    return {"--announce-only",
            std::to_string(devices - 3),
            "--fall-silent",
            std::to_string(devices / 5),
            "--history",
            "0",
            "--no-hub",
            "--firmware",
            "none"};
}

/// Empty once the simulator says it is ready, or why it is not.
std::string waitUntilReady(ChildProcess& sim) {
    if (!sim.started()) return sim.error();
    while (auto line = sim.readLine(30s))
        if (line->starts_with("Ready")) return {};
    return "zelmor-sim did not get ready: " + sim.takeErrors();
}

/// One fleet against a fresh main window; nothing when a state was not reached.
std::optional<Run> measure(size_t devices, std::chrono::milliseconds steady, bool ageing,
                           std::filesystem::path const& dataDir, std::optional<std::filesystem::path> screenshot) {
    auto const failed = [](std::string const& why) {
        std::fprintf(stderr, "%s\n", why.c_str());
        return std::nullopt;
    };
    Run run;
    run.devices = devices;
    auto counts = std::make_shared<CountingScanner::Counts>();
    LocalStore store(dataDir);
    // The window listens before the first datagram is sent.
    auto* window = new GuiMain(store, std::make_unique<CountingScanner>(counts));
    window->Show();
    wxListCtrl* const list = window->localDevicesList();
    ChildProcess sim(ZELMOR_SIM_PATH, simulatorArguments(devices));
    auto const closeWindow = [&] {
        window->Destroy();
        runEventLoopUntil([] { return wxTopLevelWindows.IsEmpty(); }, 10s);
    };
    if (std::string const error = waitUntilReady(sim); !error.empty()) {
        closeWindow();
        return failed(error);
    }
    auto const count = [list] { return static_cast<size_t>(list->GetItemCount()); };
    bool const listed = runEventLoopUntil([&] { return count() == devices; }, 30s);
    auto const first = Clock::time_point(Clock::duration(counts->firstNs.load()));
    run.listedMs = msBetween(first, Clock::now());
    if (!listed) {
        closeWindow();
        return failed("The main window listed " + std::to_string(count()) + " of " + std::to_string(devices) +
                      " devices within 30 s (is UDP 7207 free?)");
    }
    // The last rows, so that the picture shows how far the list goes. The
    // scrolled rows are drawn on a later pass of the event loop than the
    // scroll itself.
    if (screenshot) {
        list->EnsureVisible(list->GetItemCount() - 1);
        runEventLoopFor(500ms);
        if (!saveScreenshot(*window, list, *screenshot)) std::fprintf(stderr, "No screenshot taken\n");
    }

    {
        LatenessProbe probe;
        int64_t const sightingsBefore = counts->sightings.load();
        double const cpuBefore = cpuSeconds();
        auto const start = Clock::now();
        runEventLoopUntil([] { return false; }, steady);
        double const wallSeconds = msBetween(start, Clock::now()) / 1e3;
        run.corePercent = (cpuSeconds() - cpuBefore) / wallSeconds * 100;
        run.sightingsPerSecond = static_cast<double>(counts->sightings.load() - sightingsBefore) / wallSeconds;
        run.latenessMs = probe.sorted();
    }
    if (ageing) {
        sim.signal(SIGUSR1);
        auto const switchedOff = Clock::now();
        if (!runEventLoopUntil([&] { return count() == devices - devices / 5; }, 30s)) {
            closeWindow();
            return failed("The switched-off devices were still listed after 30 s");
        }
        run.agedOutSeconds = msBetween(switchedOff, Clock::now()) / 1e3;
    }
    closeWindow();
    sim.signal(SIGTERM);
    if (sim.wait(30s) != 0) return failed("zelmor-sim did not end cleanly: " + sim.takeErrors());
    return run;
}

double ratio(double measured, double baseline) { return baseline > 0 ? measured / baseline : 0; }

void printRow(char const* what, double baseline, double measured, char const* format) {
    std::printf("  %-44s", what);
    std::printf(format, baseline);
    std::printf(format, measured);
    std::printf("   %8.2f\n", ratio(measured, baseline));
}

void printReport(Run const& small, Run const& large, std::chrono::milliseconds steady) {
    std::printf("  %-44s %12zu %12zu   %8s\n", "devices announcing once a second", small.devices, large.devices,
                "ratio");
    printRow("first sighting -> every row listed, ms", small.listedMs, large.listedMs, " %12.1f");
    std::printf("  event loop, a timer due every %d ms, how late it fired (%zu and %zu firings):\n",
                LatenessProbe::kPeriodMs, small.latenessMs.size(), large.latenessMs.size());
    printRow("  median, ms", percentile(small.latenessMs, 0.5), percentile(large.latenessMs, 0.5), " %12.2f");
    printRow("  99th percentile, ms", percentile(small.latenessMs, 0.99), percentile(large.latenessMs, 0.99),
             " %12.2f");
    printRow("  worst, ms", percentile(small.latenessMs, 1), percentile(large.latenessMs, 1), " %12.2f");
    printRow("CPU, % of one core (all threads)", small.corePercent, large.corePercent, " %12.2f");
    printRow("sightings heard a second", small.sightingsPerSecond, large.sightingsPerSecond, " %12.1f");
    if (small.agedOutSeconds && large.agedOutSeconds)
        printRow("a fifth switched off -> their rows gone, s", *small.agedOutSeconds, *large.agedOutSeconds, " %12.2f");
    std::printf("  (steady state measured over %.0f s with every row listed)\n",
                static_cast<double>(steady.count()) / 1e3);
}

}  // namespace

int main(int argc, char** argv) {
    bool quick = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            quick = true;
        } else {
            std::fprintf(stderr, "usage: %s [--quick]\n", argv[0]);
            return 2;
        }
    }
    auto const steady = quick ? 3000ms : 20000ms;

    // A home of its own: the toolkit finds no settings of the user who runs this.
    std::string pattern = (std::filesystem::temp_directory_path() / "zelmor-crowd-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    std::filesystem::path const scratch = pattern;
    std::filesystem::create_directories(scratch / "home");
    setenv("HOME", (scratch / "home").c_str(), 1);

    int result = 1;
    // The toolkit must not see --quick: wxApp's command line parser refuses it.
    int toolkitArgc = 1;
    char* toolkitArgv[] = {argv[0], nullptr};
    wxApp::SetInstance(new wxApp);
    if (!wxEntryStart(toolkitArgc, toolkitArgv) || !wxTheApp->CallOnInit()) {
        std::fprintf(stderr, "This needs an X display; run it under Xvfb, e.g. xvfb-run -a %s\n", argv[0]);
    } else {
        // As the application's OnInit does.
        wxSocketBase::Initialize();
        wxImage::AddHandler(new wxPNGHandler);
        std::filesystem::path const program(wxStandardPaths::Get().GetExecutablePath().utf8_string());
        std::optional<Run> const small = measure(10, steady, !quick, scratch / "data10", std::nullopt);
        std::optional<Run> const large =
            small ? measure(1000, steady, !quick, scratch / "data1000",
                            program.parent_path() / "screenshots" / "main_window_1000_devices.png")
                  : std::nullopt;
        if (small && large) {
            std::printf("\"Local Devices\" with 1000 devices against 10, against zelmor-sim --announce-only%s\n\n",
                        quick ? " (--quick)" : "");
            printReport(*small, *large, steady);
            result = 0;
        }
        wxTheApp->OnExit();
    }
    wxEntryCleanup();
    std::filesystem::remove_all(scratch);
    return result;
}
