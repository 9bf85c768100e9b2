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
        if (!plan_.devices[i].served) continue;
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
        for (size_t i = 0; i < devices_.size(); ++i)
            if (plan_.devices[i].served) hub_->addDevice(*devices_[i]);
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
        for (size_t i = 0; i < devices_.size(); ++i)
            if (plan_.devices[i].served) firmwareServer_->addDevice(*devices_[i]);
        if (!firmwareServer_->start()) {
            error_ = firmwareServer_->error();
            stop();
            return false;
        }
    }
    return true;
}

void Fleet::fallSilent(size_t count) {
    if (!announcer_) return;
    for (size_t i = devices_.size(); i-- > 0 && count > 0;) {
        if (plan_.devices[i].served) continue;
        announcer_->silence(*devices_[i]);
        --count;
    }
}

std::optional<Fleet::LinkCut> Fleet::cutNextLinks() {
    for (size_t tried = 0; tried < devices_.size(); ++tried) {
        size_t const i = nextCut_;
        nextCut_ = (nextCut_ + 1) % devices_.size();
        if (plan_.devices[i].served) return LinkCut{i, devices_[i]->cutLinks()};
    }
    return std::nullopt;
}

void Fleet::stop() {
    firmwareServer_.reset();
    announcer_.reset();
    hub_.reset();
    servers_.clear();
}

}  // namespace sim
