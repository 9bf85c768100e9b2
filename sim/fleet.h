#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "announcer.h"
#include "device_server.h"
#include "firmware_server.h"
#include "fleet_plan.h"
#include "hub_relay.h"
#include "simulated_device.h"

namespace sim {

/// The devices of one simulator run and everything that serves them: a device
/// server per served device on the device's own address, the hub relay and
/// the firmware file server for the served devices, and the announcer for
/// every device that announces itself.
class Fleet {
public:
    /// Makes the devices, each with its pre-filled history and its faults. The
    /// plan must be complete (completeFleet).
    explicit Fleet(FleetPlan plan);
    Fleet(Fleet const&) = delete;
    Fleet& operator=(Fleet const&) = delete;
    ~Fleet() { stop(); }

    /// Starts every device server, then the hub relay, the announcer and the
    /// firmware file server. On the first failure stops what has started and
    /// gives false, with error().
    bool start();
    /// Stops serving and announcing, joining every thread. Idempotent.
    void stop();
    std::string const& error() const { return error_; }
    /// The last `count` of the devices that only announce themselves stop
    /// announcing, as if switched off. Between start() and stop().
    void fallSilent(size_t count);

    struct LinkCut {
        size_t device = 0;       // index in the fleet
        size_t connections = 0;  // links that were open and ended
    };
    /// Ends every network link of the next served device in turn, fleet order,
    /// starting over after the last; nothing when no device is served.
    std::optional<LinkCut> cutNextLinks();

    FleetPlan const& plan() const { return plan_; }
    size_t size() const { return devices_.size(); }
    SimulatedDevice& device(size_t index) { return *devices_.at(index); }

private:
    FleetPlan const plan_;
    std::vector<std::unique_ptr<SimulatedDevice>> devices_;
    std::vector<std::unique_ptr<DeviceServer>> servers_;
    std::optional<HubRelay> hub_;
    std::optional<Announcer> announcer_;
    std::optional<FirmwareServer> firmwareServer_;
    std::string error_;
    size_t nextCut_ = 0;
};

}  // namespace sim
