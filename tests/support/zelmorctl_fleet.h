// The programs as a user runs them: zelmor-sim serving a fleet on loopback
// addresses, and zelmorctl run against it, each as a child process.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "child_process.h"
#include "temp_directory.h"

/// zelmor-sim started with --porcelain: the devices it serves, as it prints
/// them. It must answer the SIGTERM that ends the fleet with status 0.
class SimFleet {
public:
    struct Device {
        std::string address;
        std::string serial;
        std::string name;
        std::string link;
        int revision = 0;
        nlohmann::json line;  // everything the simulator printed about it
    };

    explicit SimFleet(std::vector<std::string> arguments) {
        arguments.push_back("--porcelain");
        process_ = std::make_unique<ChildProcess>(ZELMOR_SIM_PATH, arguments);
        if (!process_->started()) {
            ADD_FAILURE() << process_->error();
            return;
        }
        while (auto line = process_->readLine(std::chrono::seconds(30))) {
            if (*line == "ready") return;
            auto const json = nlohmann::json::parse(*line);
            devices_.push_back(
                {json["address"], json["serial"], json["name"], json["link"], json["hardware_revision"], json});
        }
        ADD_FAILURE() << "zelmor-sim did not get ready: " << process_->takeErrors();
    }
    ~SimFleet() {
        if (process_->signal(SIGTERM)) {
            EXPECT_EQ(process_->wait(std::chrono::seconds(30)), 0);
        }
    }

    Device const& device(size_t index) const { return devices_.at(index); }
    size_t size() const { return devices_.size(); }
    ChildProcess& process() { return *process_; }

    /// Ends the simulator at once, as a crash or a pulled plug would.
    void kill() {
        process_->signal(SIGKILL);
        process_->wait(std::chrono::seconds(30));
    }

private:
    std::unique_ptr<ChildProcess> process_;
    std::vector<Device> devices_;
};

/// zelmorctl run to its end, with the variables of `environment` ("NAME=value")
/// set by env(1). Two minutes at most: a hang fails the test.
inline ProgramRun zelmorctl(std::vector<std::string> const& arguments, std::vector<std::string> environment = {}) {
    environment.push_back(ZELMORCTL_PATH);
    environment.insert(environment.end(), arguments.begin(), arguments.end());
    return runProgram("/usr/bin/env", environment, std::chrono::minutes(2));
}

/// Each line of standard output as a JSON object.
inline std::vector<nlohmann::json> jsonLines(ProgramRun const& run) {
    std::vector<nlohmann::json> result;
    for (auto const& line : run.lines()) result.push_back(nlohmann::json::parse(line));
    return result;
}

/// The one JSON object a successful command prints.
inline nlohmann::json jsonResult(ProgramRun const& run) {
    EXPECT_EQ(run.status, 0) << run.err;
    auto const lines = jsonLines(run);
    EXPECT_EQ(lines.size(), 1u) << run.out;
    return lines.empty() ? nlohmann::json() : lines.front();
}
