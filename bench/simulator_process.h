// zelmor-sim as a child of a benchmark: started with --porcelain, its devices
// read from what it prints, stopped with SIGTERM.
#pragma once

#include <chrono>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "child_process.h"

struct SimDevice {
    std::string address;
    std::string name;
    std::string serial;
    std::string link;
    int revision = 0;
};

/// zelmor-sim with `arguments` and --porcelain: the devices it serves as its
/// output describes them. Stopped with SIGTERM by stop().
class Simulator {
public:
    explicit Simulator(std::vector<std::string> arguments = {}) : process_(ZELMOR_SIM_PATH, withPorcelain(arguments)) {
        using namespace std::chrono_literals;
        if (!process_.started()) {
            error_ = process_.error();
            return;
        }
        while (auto line = process_.readLine(30s)) {
            if (*line == "ready") {
                ready_ = true;
                return;
            }
            auto const json = nlohmann::json::parse(*line, nullptr, false);
            if (!json.is_object()) {
                error_ = "zelmor-sim printed an unexpected line: " + *line;
                return;
            }
            devices_.push_back({json.value("address", ""), json.value("name", ""), json.value("serial", ""),
                                json.value("link", ""), json.value("hardware_revision", 0)});
        }
        error_ = "zelmor-sim did not get ready: " + process_.takeErrors();
    }

    bool ready() const { return ready_; }
    std::string const& error() const { return error_; }
    std::vector<SimDevice> const& devices() const { return devices_; }
    /// For signals and the lines it prints after "ready".
    ChildProcess& process() { return process_; }

    /// The exit status, or a description of why there is none.
    std::string stop() {
        using namespace std::chrono_literals;
        if (!process_.signal(SIGTERM)) return "already gone";
        auto const status = process_.wait(30s);
        if (!status) return "did not end within 30 s";
        return *status == 0 ? std::string() : "exit status " + std::to_string(*status) + ": " + process_.takeErrors();
    }

private:
    static std::vector<std::string> withPorcelain(std::vector<std::string> arguments) {
        arguments.push_back("--porcelain");
        return arguments;
    }

    ChildProcess process_;
    bool ready_ = false;
    std::string error_;
    std::vector<SimDevice> devices_;
};
