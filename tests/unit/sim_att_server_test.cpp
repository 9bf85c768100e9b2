// The simulator's GATT server, driven PDU by PDU over a socket pair: MTU
// exchange, discovery and its paging, reads, writes, configuration
// descriptors, notifications and error responses.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "att_server.h"
#include "test_bytes.h"

namespace {

using Bytes = std::vector<uint8_t>;
using sim::AttServer;

// A 128-bit UUID of the table as the Attribute Protocol carries it, least
// significant byte (the one that tells them apart) first.
std::string wireUuid(std::string const& last) { return last + " e1 d2 c3 b4 a5 96 87 78 69 5a 4b 3c 2d 1e 0f"; }

BleUUID uuid128(std::string const& last) {
    Bytes const wire = fromHex(wireUuid(last));
    return *BleUUID::fromWire(wire.data(), wire.size());
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
constexpr char kReadName[] = "0a 03 00";
constexpr char kZelmor[] = "0b 5a 65 6c 6d 6f 72";

struct Step {
    std::string request;
    std::string answer;
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
        s.addService(uuid128("a0"));
        EXPECT_EQ(s.addCharacteristic(uuid128("a1"), AttServer::kPropertyNotify), kNotifyValue);
        EXPECT_EQ(s.addCharacteristic(
                      uuid128("a2"), AttServer::kPropertyWriteWithoutResponse | AttServer::kPropertyNotify, {},
                      [this](uint8_t const* data, size_t length) { commands_.emplace_back(data, data + length); }),
                  kCommandValue);
        s.addService(uuid128("b0"));
        EXPECT_EQ(s.addCharacteristic(
                      uuid128("b1"), AttServer::kPropertyRead | AttServer::kPropertyWrite, [this] { return setting_; },
                      [this](uint8_t const* data, size_t length) { setting_.assign(data, data + length); }),
                  kSettingValue);
        EXPECT_EQ(s.addDescriptor(BleUUID(uint16_t{0x2901}), text("Setting")), 14);
        EXPECT_EQ(s.addCharacteristic(BleUUID(uint16_t{0x2A05}), AttServer::kPropertyIndicate), kIndicateValue);
    }

    /// Sends a PDU and lets the server take it; returns its answer, empty for none.
    std::string request(std::string const& pdu) {
        Bytes const bytes = fromHex(pdu);
        EXPECT_EQ(::send(client_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        EXPECT_TRUE(server_->receive());
        return take();
    }

    /// The next PDU waiting for the client; empty when there is none.
    std::string take() {
        Bytes pdu(1024);
        ssize_t const got = ::recv(client_, pdu.data(), pdu.size(), MSG_DONTWAIT);
        pdu.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return hex(pdu);
    }

    void run(std::vector<Step> const& steps) {
        for (Step const& step : steps) EXPECT_EQ(request(step.request), step.answer) << step.request;
    }

    bool notify(uint16_t handle, Bytes const& value = {0x01, 0x02, 0x03}) {
        return server_->notify(handle, value.data(), value.size());
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
        EXPECT_EQ(request(hex(Bytes{0x02, static_cast<uint8_t>(c.client), static_cast<uint8_t>(c.client >> 8)})),
                  hex(Bytes{0x03, static_cast<uint8_t>(offered), static_cast<uint8_t>(offered >> 8)}));
        EXPECT_EQ(server_->mtu(), c.effective) << c.server << " " << c.client;
    }
}

TEST_F(SimAttServer, PrimaryServicesComeOneUuidWidthPerAnswer) {
    // At MTU 23 a 128-bit service fills an answer.
    run({{"10 01 00 ff ff 00 28", "11 06 01 00 03 00 00 18"},
         {"10 04 00 ff ff 00 28", "11 14 04 00 0a 00 " + wireUuid("a0")},
         {"10 0b 00 ff ff 00 28", "11 14 0b 00 11 00 " + wireUuid("b0")},
         {"10 12 00 ff ff 00 28", "01 10 12 00 0a"}});
    run({{"02 f7 00", "03 f7 00"}});
    run({{"10 04 00 ff ff 00 28", "11 14 04 00 0a 00 " + wireUuid("a0") + " 0b 00 11 00 " + wireUuid("b0")},
         // The group type in its 128-bit form names the same thing.
         {"10 01 00 03 00 fb 34 9b 5f 80 00 00 80 00 10 00 00 00 28 00 00", "11 06 01 00 03 00 00 18"}});
}

TEST_F(SimAttServer, CharacteristicDeclarationsArePagedByEntrySize) {
    // MTU 23: one 21-byte declaration per answer.
    run({{"08 04 00 0a 00 03 28", "09 15 05 00 10 06 00 " + wireUuid("a1")},
         {"08 06 00 0a 00 03 28", "09 15 08 00 14 09 00 " + wireUuid("a2")},
         {"08 09 00 0a 00 03 28", "01 08 09 00 0a"}});
    run({{"02 f7 00", "03 f7 00"}});
    // MTU 247: every declaration of one size; a 16-bit one ends a 128-bit answer.
    run({{"08 04 00 0a 00 03 28", "09 15 05 00 10 06 00 " + wireUuid("a1") + " 08 00 14 09 00 " + wireUuid("a2")},
         {"08 0b 00 11 00 03 28", "09 15 0c 00 0a 0d 00 " + wireUuid("b1")},
         {"08 0d 00 11 00 03 28", "09 07 0f 00 20 10 00 05 2a"}});
}

TEST_F(SimAttServer, ConfigurationDescriptorsAreFoundByTypeAndByInformation) {
    run({{"08 01 00 ff ff 02 29", "09 04 07 00 00 00 0a 00 00 00 11 00 00 00"},
         {"12 0a 00 01 00", "13"},
         {"08 08 00 0a 00 02 29", "09 04 0a 00 01 00"},
         {"04 07 00 07 00", "05 01 07 00 02 29"},
         // One UUID width per answer: the 128-bit value ends the first one.
         {"04 0c 00 0e 00", "05 01 0c 00 03 28"},
         {"04 0d 00 0e 00", "05 02 0d 00 " + wireUuid("b1")},
         {"04 0e 00 0e 00", "05 01 0e 00 01 29"},
         {"04 0f 00 ff ff", "05 01 0f 00 03 28 10 00 05 2a 11 00 02 29"},
         {"04 12 00 ff ff", "01 04 12 00 0a"}});
}

TEST_F(SimAttServer, ReadByTypeOfOtherTypesGivesTheirValues) {
    name_ = "A name longer than nineteen bytes";
    run({// Cut to MTU - 4 bytes.
         {"08 01 00 ff ff 00 2a", "09 15 03 00 " + hex(text(name_.substr(0, 19)))},
         {"08 01 00 ff ff 01 29", "09 09 0e 00 " + hex(text("Setting"))},
         {"08 01 00 ff ff " + wireUuid("b1"), "09 04 0d 00 11 22"},
         // A value that cannot be read.
         {"08 01 00 ff ff " + wireUuid("a1"), "01 08 06 00 02"},
         {"08 01 00 ff ff 19 2a", "01 08 01 00 0a"}});
}

TEST_F(SimAttServer, LongValueIsReadWithReadBlobAtMtu23) {
    name_ = "Battery bank on the starboard side";
    Bytes answer = fromHex(request(kReadName));
    ASSERT_EQ(answer.size(), 23u);
    ASSERT_EQ(answer[0], 0x0B);
    Bytes value(answer.begin() + 1, answer.end());
    while (answer.size() == 23) {
        answer = fromHex(request(hex(Bytes{0x0C, kNameHandle, 0x00, static_cast<uint8_t>(value.size()), 0x00})));
        ASSERT_FALSE(answer.empty());
        ASSERT_EQ(answer[0], 0x0D);
        value.insert(value.end(), answer.begin() + 1, answer.end());
    }
    EXPECT_EQ(std::string(value.begin(), value.end()), name_);
    // At the end an empty blob; past it an invalid offset.
    run({{"0c 03 00 22 00", "0d"}, {"0c 03 00 23 00", "01 0c 03 00 07"}});
}

TEST_F(SimAttServer, ErrorResponsesNameTheRequestTheHandleAndTheReason) {
    struct Case {
        char const* what;
        char const* request;
        char const* answer;
    } const cases[] = {
        {"read handle 0", "0a 00 00", "01 0a 00 00 01"},
        {"read past the table", "0a 12 00", "01 0a 12 00 01"},
        {"read a notify-only value", "0a 06 00", "01 0a 06 00 02"},
        {"read blob past the table", "0c 40 00 00 00", "01 0c 40 00 01"},
        {"read blob of a command value", "0c 09 00 00 00", "01 0c 09 00 02"},
        {"write the name", "12 03 00 41", "01 12 03 00 03"},
        {"write a declaration", "12 02 00 41", "01 12 02 00 03"},
        {"write a service", "12 01 00 41", "01 12 01 00 03"},
        {"write request to a command value", "12 09 00 41", "01 12 09 00 03"},
        {"write past the table", "12 30 00 41", "01 12 30 00 01"},
        {"write a descriptor", "12 0e 00 41", "01 12 0e 00 03"},
        {"configuration of one byte", "12 07 00 01", "01 12 07 00 0d"},
        {"notify bit without notify", "12 11 00 01 00", "01 12 11 00 13"},
        {"indicate bit without indicate", "12 07 00 02 00", "01 12 07 00 13"},
        {"reserved configuration bit", "12 07 00 05 00", "01 12 07 00 13"},
        {"group type that is no group", "10 01 00 ff ff 03 28", "01 10 01 00 10"},
        {"group range from 0", "10 00 00 ff ff 00 28", "01 10 00 00 01"},
        {"type range from 0", "08 00 00 ff ff 03 28", "01 08 00 00 01"},
        {"type range backwards", "08 05 00 04 00 03 28", "01 08 05 00 01"},
        {"type range with no declaration", "08 06 00 07 00 03 28", "01 08 06 00 0a"},
        {"information range backwards", "04 03 00 02 00", "01 04 03 00 01"},
        {"information from 0", "04 00 00 02 00", "01 04 00 00 01"},
        {"information past the table", "04 12 00 ff ff", "01 04 12 00 0a"},
        {"three-byte type", "08 01 00 ff ff 03 28 00", "01 08 00 00 04"},
        {"short read", "0a 03", "01 0a 00 00 04"},
        {"long mtu exchange", "02 17 00 00", "01 02 00 00 04"},
        {"find by type value", "06 01 00 ff ff 00 28 00 18", "01 06 00 00 06"},
        {"read multiple", "0e 03 00 0d 00", "01 0e 00 00 06"},
        {"prepare write", "16 0d 00 00 00 41", "01 16 00 00 06"},
        {"execute write", "18 01", "01 18 00 00 06"},
        {"read multiple variable", "20 03 00 0d 00", "01 20 00 00 06"},
    };
    for (Case const& c : cases) EXPECT_EQ(request(c.request), c.answer) << c.what;
    // Nothing that failed changed anything.
    run({{"0a 07 00", "0b 00 00"}, {"0a 11 00", "0b 00 00"}, {kReadName, kZelmor}});
}

TEST_F(SimAttServer, WritesReachTheirCharacteristicsAndCommandsAreNeverAnswered) {
    struct Case {
        char const* what;
        char const* pdu;
    } const ignored[] = {
        {"write command to the name", "52 03 00 41"},
        {"write command to a value written by request", "52 0d 00 41"},
        {"write command past the table", "52 30 00 41"},
        {"short write command", "52 09"},
        {"signed write command", "d2 09 00 41 00 00 00 00 00 00 00 00 00 00 00 00"},
        {"handle value confirmation", "1e"},
    };
    for (Case const& c : ignored) EXPECT_EQ(request(c.pdu), "") << c.what;
    EXPECT_TRUE(commands_.empty());
    run({{kReadName, kZelmor},
         {"0a 0d 00", "0b 11 22"},
         {"52 09 00 01 02 03", ""},
         {"52 09 00", ""},
         {"12 0d 00 aa bb cc", "13"},
         {"0a 0d 00", "0b aa bb cc"}});
    ASSERT_EQ(commands_.size(), 2u);
    EXPECT_EQ(hex(commands_[0]), "01 02 03");
    EXPECT_TRUE(commands_[1].empty());
    EXPECT_EQ(hex(setting_), "aa bb cc");
}

TEST_F(SimAttServer, NotificationsGoOutOnlyWhileTheirConfigurationBitIsSet) {
    EXPECT_FALSE(notify(kNotifyValue));
    EXPECT_EQ(take(), "");

    run({{"12 07 00 01 00", "13"}, {"0a 07 00", "0b 01 00"}});
    EXPECT_TRUE(server_->notificationsEnabled(kNotifyValue));
    EXPECT_TRUE(notify(kNotifyValue));
    EXPECT_EQ(take(), "1b 06 00 01 02 03");
    // Each characteristic has its own.
    EXPECT_FALSE(notify(kCommandValue));

    // Indications on are no notifications.
    run({{"12 11 00 02 00", "13"}});
    EXPECT_FALSE(notify(kIndicateValue));
    // Values without a configuration descriptor never notify.
    for (uint16_t handle : {uint16_t{0}, kNameHandle, kSettingValue, uint16_t{0x40}})
        EXPECT_FALSE(notify(handle)) << handle;
    EXPECT_EQ(take(), "");

    run({{"12 07 00 00 00", "13"}});
    EXPECT_FALSE(server_->notificationsEnabled(kNotifyValue));
    EXPECT_FALSE(notify(kNotifyValue));
    EXPECT_EQ(take(), "");
}

TEST_F(SimAttServer, NotificationCarriesAtMostMtuMinusThreeBytes) {
    run({{"12 0a 00 01 00", "13"}});
    EXPECT_TRUE(notify(kCommandValue, Bytes(20, 0x5A)));
    EXPECT_EQ(fromHex(take()).size(), 23u);
    EXPECT_FALSE(notify(kCommandValue, Bytes(21, 0x5A)));
    run({{"02 64 00", "03 f7 00"}});
    EXPECT_TRUE(notify(kCommandValue, Bytes(97, 0x5A)));
    EXPECT_EQ(fromHex(take()).size(), 100u);
    EXPECT_FALSE(notify(kCommandValue, Bytes(98, 0x5A)));
    EXPECT_EQ(take(), "");
}

TEST_F(SimAttServer, ConfigurationHandlesBelongToNotifyingAndIndicatingValues) {
    EXPECT_EQ(server_->configurationHandle(kNotifyValue), kNotifyConfiguration);
    EXPECT_EQ(server_->configurationHandle(kCommandValue), kCommandConfiguration);
    EXPECT_EQ(server_->configurationHandle(kIndicateValue), kIndicateConfiguration);
    for (uint16_t handle : {uint16_t{0}, kNameHandle, kSettingValue, kLastHandle, uint16_t{kLastHandle + 1}})
        EXPECT_EQ(server_->configurationHandle(handle), 0) << handle;
}

TEST_F(SimAttServer, LinkEndsOnCloseOrWhenTheClientLeaves) {
    // Nothing waiting is no end of the link.
    EXPECT_TRUE(server_->receive());
    EXPECT_FALSE(server_->closed());
    run({{"12 07 00 01 00", "13"}});
    server_->close();
    server_->close();
    EXPECT_TRUE(server_->closed());
    EXPECT_FALSE(server_->receive());
    EXPECT_FALSE(notify(kNotifyValue));
    Bytes buffer(16);
    EXPECT_EQ(::recv(client_, buffer.data(), buffer.size(), MSG_DONTWAIT), 0);

    open(AttServer::kDefaultMtu);
    ::close(client_);
    client_ = -1;
    EXPECT_FALSE(server_->receive());
    EXPECT_TRUE(server_->closed());
    EXPECT_FALSE(server_->receive());
}

}  // namespace
