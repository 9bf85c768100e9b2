#include "private_system_bus.h"

#include <stdlib.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

constexpr auto kStartLimit = std::chrono::seconds(20);

std::string configuration(std::string const& directory) {
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:dir=)" +
           directory + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
}

std::string contentOf(std::string const& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

PrivateSystemBus::PrivateSystemBus() {
    char pattern[] = "/tmp/zelmor-bluez-XXXXXX";
    if (!::mkdtemp(pattern)) {
        error_ = std::string("Cannot make a directory for the bus: ") + std::strerror(errno);
        return;
    }
    directory_ = pattern;
    std::string const config = directory_ + "/bus.conf";
    std::string const log = directory_ + "/dbus-daemon.log";
    std::ofstream(config) << configuration(directory_);
    // Standard error goes to a file: nobody drains it while the tests run.
    daemon_ = std::make_unique<ChildProcess>(
        "/bin/sh", std::vector<std::string>{
                       "-c", R"(exec dbus-daemon --config-file="$0" --nofork --print-address=1 2>>"$1")", config, log});
    if (!daemon_->started()) {
        error_ = "Cannot start dbus-daemon: " + daemon_->error();
        return;
    }
    std::optional<std::string> const address =
        daemon_->readLine(std::chrono::duration_cast<std::chrono::milliseconds>(kStartLimit));
    if (!address || address->empty()) {
        error_ = "dbus-daemon gave no address: " + contentOf(log);
        return;
    }
    address_ = *address;
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

PrivateSystemBus::~PrivateSystemBus() {
    daemon_.reset();
    if (!directory_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
}
