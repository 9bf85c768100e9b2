#include "bluez_environment.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "private_system_bus.h"

namespace {

class BlueZEnvironment : public testing::Environment {
public:
    void SetUp() override {
        bus_ = std::make_unique<PrivateSystemBus>();
        ASSERT_TRUE(bus_->started()) << bus_->error();
        fake_ = std::make_unique<FakeBlueZ>(*bus_);
        ASSERT_TRUE(fake_->started()) << fake_->error();
    }

    void TearDown() override {
        fake_.reset();
        bus_.reset();
    }

    FakeBlueZ& fake() {
        if (!fake_ || !fake_->started()) throw std::runtime_error("the fake BlueZ did not start");
        return *fake_;
    }

private:
    std::unique_ptr<PrivateSystemBus> bus_;
    std::unique_ptr<FakeBlueZ> fake_;
};

// gtest owns the environment once registered.
BlueZEnvironment* const environment =
    static_cast<BlueZEnvironment*>(testing::AddGlobalTestEnvironment(new BlueZEnvironment));

}  // namespace

FakeBlueZ& fakeBlueZ() { return environment->fake(); }
