#pragma once

#include <wx/app.h>
#include <wx/utils.h>

#include <chrono>
#include <functional>

/// Lets the event loop run until `predicate` holds; false if it still does not
/// after `timeoutMs`. Windows appear, draw and take focus only through events,
/// so tests wait for the outcome instead of for a guessed time.
inline bool waitFor(std::function<bool()> const& predicate, int timeoutMs) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        wxTheApp->Yield(true);
        wxMilliSleep(5);
    }
    return true;
}
