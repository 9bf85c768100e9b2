// The simulator's GATT server, driven PDU by PDU over a socket pair: MTU
// exchange, discovery and its paging, reads, writes, configuration
// descriptors, notifications and error responses.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "att_server.h"
#include "test_bytes.h"

namespace {

using Bytes = std::vector<uint8_t>;
using sim::AttServer;

// A 128-bit UUID as the Attribute Protocol carries it, least significant byte
// first; `last` tells the UUIDs of the table apart.
Bytes wireUuid(uint8_t last) {
    return {last, 0xE1, 0xD2, 0xC3, 0xB4, 0xA5, 0x96, 0x87, 0x78, 0x69, 0x5A, 0x4B, 0x3C, 0x2D, 0x1E, 0x0F};
}

BleUUID uuid128(uint8_t last) {
    BleUUID::Bytes bytes{};
    Bytes const wire = wireUuid(last);
    std::copy(wire.begin(), wire.end(), bytes.begin());
    return BleUUID(bytes);
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (Bytes const& piece : parts) out.insert(out.end(), piece.begin(), piece.end());
    return out;
}

Bytes text(std::string const& s) { return Bytes(s.begin(), s.end()); }

// The table every test serves:
//  1 service 0x1800            2 declaration   3 device name (read)
//  4 service A0                5 declaration   6 A1 value (notify)              7 configuration
//                              8 declaration   9 A2 value (write cmd, notify)  10 configuration
// 11 service B0               12 declaration  13 B1 value (read, write)        14 user description
//                             15 declaration  16 0x2A05 value (indicate)       17 configuration
constexpr uint16_t kNameHandle = 3;
constexpr uint16_t kNotifyValue = 6;
constexpr uint16_t kNotifyConfiguration = 7;
constexpr uint16_t kCommandValue = 9;
constexpr uint16_t kCommandConfiguration = 10;
constexpr uint16_t kSettingValue = 13;
constexpr uint16_t kIndicateValue = 16;
constexpr uint16_t kIndicateConfiguration = 17;
constexpr uint16_t kLastHandle = 17;

struct Step {
    Bytes request;
    Bytes answer;
};

class SimAttServer : public ::testing::Test {
protected:
    void SetUp() override { open(AttServer::kDefaultMtu); }
    void TearDown() override {
        server_.reset();
        if (client_ >= 0) ::close(client_);
    }

    void open(uint16_t serverMtu) {
        TearDown();
        int pair[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
        client_ = pair[0];
        server_ = std::make_unique<AttServer>(pair[1], serverMtu);
        AttServer& s = *server_;
        s.addService(BleUUID(uint16_t{0x1800}));
        EXPECT_EQ(
            s.addCharacteristic(BleUUID(uint16_t{0x2A00}), AttServer::kPropertyRead, [this] { return text(name_); }),
            kNameHandle);
        s.addService(uuid128(0xA0));
        EXPECT_EQ(s.addCharacteristic(uuid128(0xA1), AttServer::kPropertyNotify), kNotifyValue);
        EXPECT_EQ(s.addCharacteristic(
                      uuid128(0xA2), AttServer::kPropertyWriteWithoutResponse | AttServer::kPropertyNotify, {},
                      [this](uint8_t const* data, size_t length) { commands_.emplace_back(data, data + length); }),
                  kCommandValue);
        s.addService(uuid128(0xB0));
        EXPECT_EQ(s.addCharacteristic(
                      uuid128(0xB1), AttServer::kPropertyRead | AttServer::kPropertyWrite, [this] { return setting_; },
                      [this](uint8_t const* data, size_t length) { setting_.assign(data, data + length); }),
                  kSettingValue);
        EXPECT_EQ(s.addDescriptor(BleUUID(uint16_t{0x2901}), text("Setting")), 14);
        EXPECT_EQ(s.addCharacteristic(BleUUID(uint16_t{0x2A05}), AttServer::kPropertyIndicate), kIndicateValue);
    }

    /// Sends a PDU and lets the server take it; returns its answer, empty for none.
    Bytes request(Bytes const& pdu) {
        EXPECT_EQ(::send(client_, pdu.data(), pdu.size(), 0), static_cast<ssize_t>(pdu.size()));
        EXPECT_TRUE(server_->receive());
        return take();
    }

    /// The next PDU waiting for the client; empty when there is none.
    Bytes take() {
        Bytes pdu(1024);
        ssize_t const got = ::recv(client_, pdu.data(), pdu.size(), MSG_DONTWAIT);
        pdu.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return pdu;
    }

    /// Sends each request and checks its answer.
    void run(std::vector<Step> const& steps) {
        for (Step const& step : steps) EXPECT_EQ(hex(request(step.request)), hex(step.answer)) << hex(step.request);
    }

    void exchangeMtu(uint16_t mtu) {
        ASSERT_EQ(request({0x02, static_cast<uint8_t>(mtu), static_cast<uint8_t>(mtu >> 8)}).at(0), 0x03);
    }

    std::unique_ptr<AttServer> server_;
    int client_ = -1;
    std::string name_ = "Zelmor";
    Bytes setting_{0x11, 0x22};
    std::vector<Bytes> commands_;
};

TEST_F(SimAttServer, MtuExchangeAnswersTheServerMtuAndKeepsTheSmallerOffer) {
    struct Case {
        uint16_t server;
        uint16_t client;
        uint16_t effective;
    };
    Case const cases[] = {{247, 23, 23}, {247, 100, 100}, {247, 247, 247}, {247, 517, 247},
                          {247, 10, 23}, {23, 247, 23},   {512, 300, 300}, {10, 100, 23}};
    for (Case const& c : cases) {
        open(c.server);
        EXPECT_EQ(server_->mtu(), 23);
        uint16_t const offered = std::max<uint16_t>(c.server, 23);
        EXPECT_EQ(hex(request({0x02, static_cast<uint8_t>(c.client), static_cast<uint8_t>(c.client >> 8)})),
                  hex(Bytes{0x03, static_cast<uint8_t>(offered), static_cast<uint8_t>(offered >> 8)}));
        EXPECT_EQ(server_->mtu(), c.effective) << c.server << " " << c.client;
    }
}

TEST_F(SimAttServer, PrimaryServicesComeOneUuidWidthPerAnswerAndOnly128BitOnePerPageAtMtu23) {
    Bytes const all{0xFF, 0xFF, 0x00, 0x28};
    run({{concat({{0x10, 0x01, 0x00}, all}), {0x11, 0x06, 0x01, 0x00, 0x03, 0x00, 0x00, 0x18}},
         {concat({{0x10, 0x04, 0x00}, all}), concat({{0x11, 0x14, 0x04, 0x00, 0x0A, 0x00}, wireUuid(0xA0)})},
         {concat({{0x10, 0x0B, 0x00}, all}), concat({{0x11, 0x14, 0x0B, 0x00, 0x11, 0x00}, wireUuid(0xB0)})},
         {concat({{0x10, 0x12, 0x00}, all}), {0x01, 0x10, 0x12, 0x00, 0x0A}}});
}

TEST_F(SimAttServer, PrimaryServicesOfOneWidthShareAnAnswerAtMtu247) {
    exchangeMtu(247);
    Bytes const all{0xFF, 0xFF, 0x00, 0x28};
    run({{concat({{0x10, 0x01, 0x00}, all}), {0x11, 0x06, 0x01, 0x00, 0x03, 0x00, 0x00, 0x18}},
         {concat({{0x10, 0x04, 0x00}, all}),
          concat({{0x11, 0x14, 0x04, 0x00, 0x0A, 0x00}, wireUuid(0xA0), {0x0B, 0x00, 0x11, 0x00}, wireUuid(0xB0)})},
         {concat({{0x10, 0x12, 0x00}, all}), {0x01, 0x10, 0x12, 0x00, 0x0A}},
         // The group type in its 128-bit form names the same thing.
         {{0x10, 0x01, 0x00, 0x03, 0x00, 0xFB, 0x34, 0x9B, 0x5F, 0x80, 0x00,
           0x00, 0x80, 0x00, 0x10, 0x00, 0x00, 0x00, 0x28, 0x00, 0x00},
          {0x11, 0x06, 0x01, 0x00, 0x03, 0x00, 0x00, 0x18}}});
}

TEST_F(SimAttServer, CharacteristicDeclarationsArePagedByEntrySize) {
    Bytes const declarationType{0x03, 0x28};
    // MTU 23: one 21-byte declaration per answer.
    run({{concat({{0x08, 0x04, 0x00, 0x0A, 0x00}, declarationType}),
          concat({{0x09, 0x15, 0x05, 0x00, 0x10, 0x06, 0x00}, wireUuid(0xA1)})},
         {concat({{0x08, 0x06, 0x00, 0x0A, 0x00}, declarationType}),
          concat({{0x09, 0x15, 0x08, 0x00, 0x14, 0x09, 0x00}, wireUuid(0xA2)})},
         {concat({{0x08, 0x09, 0x00, 0x0A, 0x00}, declarationType}), {0x01, 0x08, 0x09, 0x00, 0x0A}}});
    exchangeMtu(247);
    // MTU 247: every declaration of one size; a 16-bit one ends a 128-bit answer.
    run({{concat({{0x08, 0x04, 0x00, 0x0A, 0x00}, declarationType}), concat({{0x09, 0x15, 0x05, 0x00, 0x10, 0x06, 0x00},
                                                                             wireUuid(0xA1),
                                                                             {0x08, 0x00, 0x14, 0x09, 0x00},
                                                                             wireUuid(0xA2)})},
         {concat({{0x08, 0x0B, 0x00, 0x11, 0x00}, declarationType}),
          concat({{0x09, 0x15, 0x0C, 0x00, 0x0A, 0x0D, 0x00}, wireUuid(0xB1)})},
         {concat({{0x08, 0x0D, 0x00, 0x11, 0x00}, declarationType}),
          {0x09, 0x07, 0x0F, 0x00, 0x20, 0x10, 0x00, 0x05, 0x2A}}});
}

TEST_F(SimAttServer, ConfigurationDescriptorsAreFoundByTypeAndByInformation) {
    Bytes const configurationType{0x02, 0x29};
    run({{concat({{0x08, 0x01, 0x00, 0xFF, 0xFF}, configurationType}),
          {0x09, 0x04, 0x07, 0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x11, 0x00, 0x00, 0x00}},
         {{0x12, 0x0A, 0x00, 0x01, 0x00}, {0x13}},
         {concat({{0x08, 0x08, 0x00, 0x0A, 0x00}, configurationType}), {0x09, 0x04, 0x0A, 0x00, 0x01, 0x00}},
         {{0x04, 0x07, 0x00, 0x07, 0x00}, {0x05, 0x01, 0x07, 0x00, 0x02, 0x29}},
         // One UUID width per answer: the 128-bit value ends the first one.
         {{0x04, 0x0C, 0x00, 0x0E, 0x00}, {0x05, 0x01, 0x0C, 0x00, 0x03, 0x28}},
         {{0x04, 0x0D, 0x00, 0x0E, 0x00}, concat({{0x05, 0x02, 0x0D, 0x00}, wireUuid(0xB1)})},
         {{0x04, 0x0E, 0x00, 0x0E, 0x00}, {0x05, 0x01, 0x0E, 0x00, 0x01, 0x29}},
         {{0x04, 0x0F, 0x00, 0xFF, 0xFF},
          {0x05, 0x01, 0x0F, 0x00, 0x03, 0x28, 0x10, 0x00, 0x05, 0x2A, 0x11, 0x00, 0x02, 0x29}},
         {{0x04, 0x12, 0x00, 0xFF, 0xFF}, {0x01, 0x04, 0x12, 0x00, 0x0A}}});
}

TEST_F(SimAttServer, ReadByTypeOfOtherTypesGivesTheirValues) {
    name_ = "A name longer than nineteen bytes";
    run({// Cut to MTU - 4 bytes.
         {{0x08, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x2A}, concat({{0x09, 0x15, 0x03, 0x00}, text(name_.substr(0, 19))})},
         {{0x08, 0x01, 0x00, 0xFF, 0xFF, 0x01, 0x29}, concat({{0x09, 0x09, 0x0E, 0x00}, text("Setting")})},
         {concat({{0x08, 0x01, 0x00, 0xFF, 0xFF}, wireUuid(0xB1)}), {0x09, 0x04, 0x0D, 0x00, 0x11, 0x22}},
         // A value that cannot be read.
         {concat({{0x08, 0x01, 0x00, 0xFF, 0xFF}, wireUuid(0xA1)}), {0x01, 0x08, 0x06, 0x00, 0x02}},
         {{0x08, 0x01, 0x00, 0xFF, 0xFF, 0x19, 0x2A}, {0x01, 0x08, 0x01, 0x00, 0x0A}}});
}

TEST_F(SimAttServer, LongValueIsReadWithReadBlobAtMtu23) {
    name_ = "Battery bank on the starboard side";
    Bytes value;
    Bytes answer = request({0x0A, kNameHandle, 0x00});
    ASSERT_EQ(answer.size(), 23u);
    ASSERT_EQ(answer[0], 0x0B);
    value.insert(value.end(), answer.begin() + 1, answer.end());
    while (answer.size() == 23) {
        auto const offset = static_cast<uint16_t>(value.size());
        answer = request({0x0C, kNameHandle, 0x00, static_cast<uint8_t>(offset), static_cast<uint8_t>(offset >> 8)});
        ASSERT_FALSE(answer.empty());
        ASSERT_EQ(answer[0], 0x0D);
        value.insert(value.end(), answer.begin() + 1, answer.end());
    }
    EXPECT_EQ(std::string(value.begin(), value.end()), name_);
    run({{{0x0C, kNameHandle, 0x00, 34, 0x00}, {0x0D}},
         {{0x0C, kNameHandle, 0x00, 35, 0x00}, {0x01, 0x0C, 0x03, 0x00, 0x07}}});
}

TEST_F(SimAttServer, ErrorResponsesNameTheRequestTheHandleAndTheReason) {
    struct Case {
        char const* what;
        Bytes request;
        Bytes answer;
    };
    Case const cases[] = {
        {"read handle 0", {0x0A, 0x00, 0x00}, {0x01, 0x0A, 0x00, 0x00, 0x01}},
        {"read past the table", {0x0A, 0x12, 0x00}, {0x01, 0x0A, 0x12, 0x00, 0x01}},
        {"read a notify-only value", {0x0A, kNotifyValue, 0x00}, {0x01, 0x0A, 0x06, 0x00, 0x02}},
        {"read blob past the table", {0x0C, 0x40, 0x00, 0x00, 0x00}, {0x01, 0x0C, 0x40, 0x00, 0x01}},
        {"read blob of a command value", {0x0C, kCommandValue, 0x00, 0x00, 0x00}, {0x01, 0x0C, 0x09, 0x00, 0x02}},
        {"write the name", {0x12, kNameHandle, 0x00, 0x41}, {0x01, 0x12, 0x03, 0x00, 0x03}},
        {"write a declaration", {0x12, 0x02, 0x00, 0x41}, {0x01, 0x12, 0x02, 0x00, 0x03}},
        {"write a service", {0x12, 0x01, 0x00, 0x41}, {0x01, 0x12, 0x01, 0x00, 0x03}},
        {"write request to a command value", {0x12, kCommandValue, 0x00, 0x41}, {0x01, 0x12, 0x09, 0x00, 0x03}},
        {"write past the table", {0x12, 0x30, 0x00, 0x41}, {0x01, 0x12, 0x30, 0x00, 0x01}},
        {"write a descriptor", {0x12, 0x0E, 0x00, 0x41}, {0x01, 0x12, 0x0E, 0x00, 0x03}},
        {"configuration of one byte", {0x12, kNotifyConfiguration, 0x00, 0x01}, {0x01, 0x12, 0x07, 0x00, 0x0D}},
        {"notify bit without notify", {0x12, kIndicateConfiguration, 0x00, 0x01, 0x00}, {0x01, 0x12, 0x11, 0x00, 0x13}},
        {"indicate bit without indicate",
         {0x12, kNotifyConfiguration, 0x00, 0x02, 0x00},
         {0x01, 0x12, 0x07, 0x00, 0x13}},
        {"reserved configuration bit", {0x12, kNotifyConfiguration, 0x00, 0x05, 0x00}, {0x01, 0x12, 0x07, 0x00, 0x13}},
        {"group type that is no group", {0x10, 0x01, 0x00, 0xFF, 0xFF, 0x03, 0x28}, {0x01, 0x10, 0x01, 0x00, 0x10}},
        {"group range from 0", {0x10, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x28}, {0x01, 0x10, 0x00, 0x00, 0x01}},
        {"type range from 0", {0x08, 0x00, 0x00, 0xFF, 0xFF, 0x03, 0x28}, {0x01, 0x08, 0x00, 0x00, 0x01}},
        {"type range backwards", {0x08, 0x05, 0x00, 0x04, 0x00, 0x03, 0x28}, {0x01, 0x08, 0x05, 0x00, 0x01}},
        {"type range with no declaration", {0x08, 0x06, 0x00, 0x07, 0x00, 0x03, 0x28}, {0x01, 0x08, 0x06, 0x00, 0x0A}},
        {"information range backwards", {0x04, 0x03, 0x00, 0x02, 0x00}, {0x01, 0x04, 0x03, 0x00, 0x01}},
        {"information from 0", {0x04, 0x00, 0x00, 0x02, 0x00}, {0x01, 0x04, 0x00, 0x00, 0x01}},
        {"information past the table", {0x04, 0x12, 0x00, 0xFF, 0xFF}, {0x01, 0x04, 0x12, 0x00, 0x0A}},
        {"three-byte type", {0x08, 0x01, 0x00, 0xFF, 0xFF, 0x03, 0x28, 0x00}, {0x01, 0x08, 0x00, 0x00, 0x04}},
        {"short read", {0x0A, 0x03}, {0x01, 0x0A, 0x00, 0x00, 0x04}},
        {"long mtu exchange", {0x02, 0x17, 0x00, 0x00}, {0x01, 0x02, 0x00, 0x00, 0x04}},
        {"find by type value", {0x06, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x28, 0x00, 0x18}, {0x01, 0x06, 0x00, 0x00, 0x06}},
        {"read multiple", {0x0E, 0x03, 0x00, 0x0D, 0x00}, {0x01, 0x0E, 0x00, 0x00, 0x06}},
        {"prepare write", {0x16, 0x0D, 0x00, 0x00, 0x00, 0x41}, {0x01, 0x16, 0x00, 0x00, 0x06}},
        {"execute write", {0x18, 0x01}, {0x01, 0x18, 0x00, 0x00, 0x06}},
        {"read multiple variable", {0x20, 0x03, 0x00, 0x0D, 0x00}, {0x01, 0x20, 0x00, 0x00, 0x06}},
    };
    for (Case const& c : cases) EXPECT_EQ(hex(request(c.request)), hex(c.answer)) << c.what;
    // Nothing that failed changed anything.
    EXPECT_EQ(hex(request({0x0A, kNotifyConfiguration, 0x00})), "0b 00 00");
    EXPECT_EQ(hex(request({0x0A, kIndicateConfiguration, 0x00})), "0b 00 00");
    EXPECT_EQ(hex(request({0x0A, kNameHandle, 0x00})), hex(concat({{0x0B}, text("Zelmor")})));
}

TEST_F(SimAttServer, CommandsAndConfirmationsAreNeverAnswered) {
    struct Case {
        char const* what;
        Bytes pdu;
    };
    Case const cases[] = {
        {"write command to the name", {0x52, kNameHandle, 0x00, 0x41}},
        {"write command to a value written by request", {0x52, kSettingValue, 0x00, 0x41}},
        {"write command past the table", {0x52, 0x30, 0x00, 0x41}},
        {"short write command", {0x52, kCommandValue}},
        {"signed write command", {0xD2, kCommandValue, 0x00, 0x41, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"handle value confirmation", {0x1E}},
    };
    for (Case const& c : cases) EXPECT_EQ(hex(request(c.pdu)), "") << c.what;
    EXPECT_TRUE(commands_.empty());
    EXPECT_EQ(hex(request({0x0A, kNameHandle, 0x00})), hex(concat({{0x0B}, text("Zelmor")})));
    EXPECT_EQ(hex(request({0x0A, kSettingValue, 0x00})), "0b 11 22");
}

TEST_F(SimAttServer, WritesReachTheirCharacteristics) {
    EXPECT_EQ(hex(request({0x52, kCommandValue, 0x00, 0x01, 0x02, 0x03})), "");
    EXPECT_EQ(hex(request({0x52, kCommandValue, 0x00})), "");
    ASSERT_EQ(commands_.size(), 2u);
    EXPECT_EQ(hex(commands_[0]), "01 02 03");
    EXPECT_TRUE(commands_[1].empty());
    run({{{0x12, kSettingValue, 0x00, 0xAA, 0xBB, 0xCC}, {0x13}},
         {{0x0A, kSettingValue, 0x00}, {0x0B, 0xAA, 0xBB, 0xCC}}});
    EXPECT_EQ(hex(setting_), "aa bb cc");
}

TEST_F(SimAttServer, NotificationsGoOutOnlyWhileTheirConfigurationBitIsSet) {
    Bytes const value{0x01, 0x02, 0x03};
    EXPECT_FALSE(server_->notify(kNotifyValue, value.data(), value.size()));
    EXPECT_EQ(hex(take()), "");

    run({{{0x12, kNotifyConfiguration, 0x00, 0x01, 0x00}, {0x13}},
         {{0x0A, kNotifyConfiguration, 0x00}, {0x0B, 0x01, 0x00}}});
    EXPECT_TRUE(server_->notificationsEnabled(kNotifyValue));
    EXPECT_TRUE(server_->notify(kNotifyValue, value.data(), value.size()));
    EXPECT_EQ(hex(take()), "1b 06 00 01 02 03");
    // Each characteristic has its own.
    EXPECT_FALSE(server_->notify(kCommandValue, value.data(), value.size()));
    EXPECT_EQ(hex(take()), "");

    // Indications on are no notifications.
    run({{{0x12, kIndicateConfiguration, 0x00, 0x02, 0x00}, {0x13}}});
    EXPECT_FALSE(server_->notify(kIndicateValue, value.data(), value.size()));
    // Values without a configuration descriptor never notify.
    for (uint16_t handle : {uint16_t{0}, kNameHandle, kSettingValue, uint16_t{0x40}})
        EXPECT_FALSE(server_->notify(handle, value.data(), value.size())) << handle;
    EXPECT_EQ(hex(take()), "");

    run({{{0x12, kNotifyConfiguration, 0x00, 0x00, 0x00}, {0x13}}});
    EXPECT_FALSE(server_->notificationsEnabled(kNotifyValue));
    EXPECT_FALSE(server_->notify(kNotifyValue, value.data(), value.size()));
    EXPECT_EQ(hex(take()), "");
}

TEST_F(SimAttServer, NotificationCarriesAtMostMtuMinusThreeBytes) {
    run({{{0x12, kCommandConfiguration, 0x00, 0x01, 0x00}, {0x13}}});
    Bytes const value(200, 0x5A);
    EXPECT_TRUE(server_->notify(kCommandValue, value.data(), 20));
    EXPECT_EQ(take().size(), 23u);
    EXPECT_FALSE(server_->notify(kCommandValue, value.data(), 21));
    exchangeMtu(100);
    EXPECT_TRUE(server_->notify(kCommandValue, value.data(), 97));
    EXPECT_EQ(take().size(), 100u);
    EXPECT_FALSE(server_->notify(kCommandValue, value.data(), 98));
    EXPECT_EQ(hex(take()), "");
}

TEST_F(SimAttServer, ConfigurationHandlesBelongToNotifyingAndIndicatingValues) {
    EXPECT_EQ(server_->configurationHandle(kNotifyValue), kNotifyConfiguration);
    EXPECT_EQ(server_->configurationHandle(kCommandValue), kCommandConfiguration);
    EXPECT_EQ(server_->configurationHandle(kIndicateValue), kIndicateConfiguration);
    for (uint16_t handle : {uint16_t{0}, kNameHandle, kSettingValue, kLastHandle, uint16_t{kLastHandle + 1}})
        EXPECT_EQ(server_->configurationHandle(handle), 0) << handle;
}

TEST_F(SimAttServer, LinkEndsWhenTheClientLeaves) {
    ::close(client_);
    client_ = -1;
    EXPECT_FALSE(server_->receive());
    EXPECT_TRUE(server_->closed());
    EXPECT_FALSE(server_->receive());
}

TEST_F(SimAttServer, CloseHangsUpAndStopsNotifications) {
    run({{{0x12, kNotifyConfiguration, 0x00, 0x01, 0x00}, {0x13}}});
    server_->close();
    server_->close();
    EXPECT_TRUE(server_->closed());
    EXPECT_FALSE(server_->receive());
    Bytes const value{0x01};
    EXPECT_FALSE(server_->notify(kNotifyValue, value.data(), value.size()));
    Bytes buffer(16);
    EXPECT_EQ(::recv(client_, buffer.data(), buffer.size(), MSG_DONTWAIT), 0);
}

TEST_F(SimAttServer, NothingWaitingIsNoEndOfTheLink) {
    EXPECT_TRUE(server_->receive());
    EXPECT_FALSE(server_->closed());
}

}  // namespace
