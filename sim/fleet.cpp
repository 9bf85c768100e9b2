#include "fleet.h"

#include <utility>

namespace sim {

Fleet::Fleet(FleetSpec spec) : spec_(std::move(spec)) {
    for (DeviceSpec const& d : spec_.devices) {
        devices_.push_back(std::make_unique<SimulatedDevice>(deviceConfig(d)));
        devices_.back()->faults().configure(d.faults);
    }
}

bool Fleet::start() {
    for (size_t i = 0; i < devices_.size(); ++i) {
        servers_.push_back(
            std::make_unique<DeviceServer>(*devices_[i], addressText(spec_.devices[i].address), spec_.devicePort));
        if (!servers_.back()->start()) {
            error_ = servers_.back()->error();
            stop();
            return false;
        }
    }
    if (spec_.hub) {
        hub_.emplace(addressText(spec_.hub->address), spec_.hub->port);
        for (auto const& device : devices_) hub_->addDevice(*device);
        if (!hub_->start()) {
            error_ = hub_->error();
            stop();
            return false;
        }
    }
    if (spec_.announceTo) {
        announcer_.emplace(addressText(spec_.announceTo->address), spec_.announceTo->port);
        for (size_t i = 0; i < devices_.size(); ++i)
            announcer_->addDevice(*devices_[i], addressText(spec_.devices[i].address));
        if (!announcer_->start()) {
            error_ = announcer_->error();
            stop();
            return false;
        }
    }
    return true;
}

void Fleet::stop() {
    announcer_.reset();
    hub_.reset();
    servers_.clear();
}

}  // namespace sim
