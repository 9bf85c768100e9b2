// Waiting in a benchmark that drives real windows: the toolkit's own event
// loop runs until what is measured has happened.
#pragma once

#include <wx/evtloop.h>
#include <wx/timer.h>

#include <chrono>
#include <functional>

/// Runs the toolkit's event loop for `period`: the process sleeps in it until
/// the one-shot timer that ends it fires, as an idle application does.
inline void runEventLoopFor(std::chrono::milliseconds period) {
    wxGUIEventLoop loop;
    wxTimer end;
    end.Bind(wxEVT_TIMER, [&loop](wxTimerEvent&) { loop.ScheduleExit(); });
    end.StartOnce(static_cast<int>(period.count()));
    loop.Run();
}

/// Runs the toolkit's event loop until `predicate` holds, checked every few
/// milliseconds; false if it still does not after `limit`.
inline bool runEventLoopUntil(std::function<bool()> const& predicate, std::chrono::milliseconds limit) {
    if (predicate()) return true;
    auto const deadline = std::chrono::steady_clock::now() + limit;
    wxGUIEventLoop loop;
    wxTimer check;
    check.Bind(wxEVT_TIMER, [&](wxTimerEvent&) {
        if (predicate() || std::chrono::steady_clock::now() >= deadline) {
            check.Stop();
            loop.ScheduleExit();
        }
    });
    check.Start(5);
    loop.Run();
    return predicate();
}
