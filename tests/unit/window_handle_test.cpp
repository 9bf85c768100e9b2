// Worker threads post results to a window that goes away under them, as the
// link, the request engine and the scanner do. Under ThreadSanitizer this
// shows that copying, keeping and destroying the callbacks off the GUI thread
// is safe; under AddressSanitizer that nothing runs on a window that is gone.
#include <gtest/gtest.h>

#include <wx/app.h>
#include <wx/init.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "window_handle.h"

namespace {

struct Window : wxEvtHandler {
    std::optional<WindowAnchor> anchor{std::in_place, *this};
    int runs = 0;  // GUI thread only
};

TEST(WindowHandleTest, ResultsReachTheWindowOnlyWhileItLives) {
    wxInitializer wx;
    ASSERT_TRUE(wx.IsOk());
    auto window = std::make_unique<Window>();
    WindowHandle<Window> const handle = window->anchor->handle(*window);
    std::atomic<bool> stop{false};
    std::atomic<int> posted{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 4; ++i)
        workers.emplace_back([handle, &stop, &posted] {
            while (!stop) {
                // The library keeps, copies and drops the callbacks it is given
                // on its own threads.
                std::function<void()> callback = [handle] { postToWindow(handle, [](Window& w) { ++w.runs; }); };
                std::function<void()> const copy = callback;
                callback = {};
                copy();
                ++posted;
                std::this_thread::yield();
            }
        });
    // wx runs one event of a window per call.
    while (window->runs < 500) wxAppConsole::GetInstance()->ProcessPendingEvents();

    // What is queued when the window starts to go is dropped on the GUI
    // thread; from then on nothing is queued.
    window->anchor.reset();
    int const runs = window->runs;
    int const before = posted;
    while (posted < before + 500) std::this_thread::yield();
    wxAppConsole::GetInstance()->ProcessPendingEvents();
    EXPECT_EQ(window->runs, runs);

    // The window itself goes while the workers still post.
    window.reset();
    int const gone = posted;
    while (posted < gone + 500) std::this_thread::yield();
    wxAppConsole::GetInstance()->ProcessPendingEvents();
    stop = true;
    for (std::thread& worker : workers) worker.join();
}

}  // namespace
