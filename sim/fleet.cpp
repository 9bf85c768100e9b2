#include "fleet.h"

#include <utility>

namespace sim {

Fleet::Fleet(FleetPlan plan) : plan_(std::move(plan)) {
    for (DevicePlan const& d : plan_.devices) {
        devices_.push_back(std::make_unique<SimulatedDevice>(deviceConfig(d)));
        devices_.back()->faults().configure(d.faults);
    }
}

bool Fleet::start() {
    for (size_t i = 0; i < devices_.size(); ++i) {
        servers_.push_back(
            std::make_unique<DeviceServer>(*devices_[i], addressText(plan_.devices[i].address), plan_.devicePort));
        if (!servers_.back()->start()) {
            error_ = servers_.back()->error();
            stop();
            return false;
        }
    }
    if (plan_.hub) {
        hub_.emplace(addressText(plan_.hub->address), plan_.hub->port);
        for (auto const& device : devices_) hub_->addDevice(*device);
        if (!hub_->start()) {
            error_ = hub_->error();
            stop();
            return false;
        }
    }
    if (plan_.announceTo) {
        announcer_.emplace(addressText(plan_.announceTo->address), plan_.announceTo->port);
        for (size_t i = 0; i < devices_.size(); ++i)
            if (plan_.devices[i].announced) announcer_->addDevice(*devices_[i], addressText(plan_.devices[i].address));
        if (!announcer_->start()) {
            error_ = announcer_->error();
            stop();
            return false;
        }
    }
    if (plan_.firmwareServer) {
        firmwareServer_.emplace(addressText(plan_.firmwareServer->address), plan_.firmwareServer->port,
                                plan_.firmwareOffer);
        for (auto const& device : devices_) firmwareServer_->addDevice(*device);
        if (!firmwareServer_->start()) {
            error_ = firmwareServer_->error();
            stop();
            return false;
        }
    }
    return true;
}

void Fleet::stop() {
    firmwareServer_.reset();
    announcer_.reset();
    hub_.reset();
    servers_.clear();
}

}  // namespace sim
