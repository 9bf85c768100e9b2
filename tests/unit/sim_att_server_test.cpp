// The simulator's GATT server, driven PDU by PDU over a socket pair: discovery
// and its paging, reads, writes, configuration descriptors and error
// responses. The BleLink tests drive the device's own database on it end to
// end, with the MTU exchange, notifications and the link's end.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include "att_server.h"
#include "sim_test_host.h"
#include "test_bytes.h"

namespace {

using namespace simtest;
using sim::AttServer;

// A 128-bit UUID of the table as the Attribute Protocol carries it, least
// significant byte (the one that tells them apart) first.
std::string wireUuid(std::string const& last) { return last + " e1 d2 c3 b4 a5 96 87 78 69 5a 4b 3c 2d 1e 0f"; }

BleUUID uuid128(std::string const& last) {
    Bytes const wire = fromHex(wireUuid(last));
    return *BleUUID::fromWire(wire.data(), wire.size());
}

Bytes text(std::string const& s) { return Bytes(s.begin(), s.end()); }

// The table the script runs against:
//  1 service 0x1800            2 declaration   3 device name (read)
//  4 service A0                5 declaration   6 A1 value (notify)              7 configuration
//                              8 declaration   9 A2 value (write cmd, notify)  10 configuration
// 11 service B0               12 declaration  13 B1 value (read, write)        14 user description
//                             15 declaration  16 0x2A05 value (indicate)       17 configuration

class SimAttServer : public ::testing::Test {
protected:
    void SetUp() override {
        int pair[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
        client_ = pair[0];
        server_ = std::make_unique<AttServer>(pair[1], AttServer::kDefaultMtu);
        AttServer& s = *server_;
        s.addService(BleUUID(uint16_t{0x1800}));
        s.addCharacteristic(BleUUID(uint16_t{0x2A00}), AttServer::kPropertyRead, [this] { return text(name_); });
        s.addService(uuid128("a0"));
        s.addCharacteristic(uuid128("a1"), AttServer::kPropertyNotify);
        s.addCharacteristic(uuid128("a2"), AttServer::kPropertyWriteWithoutResponse | AttServer::kPropertyNotify);
        s.addService(uuid128("b0"));
        s.addCharacteristic(
            uuid128("b1"), AttServer::kPropertyRead | AttServer::kPropertyWrite, [this] { return setting_; },
            [this](uint8_t const* data, size_t length) { setting_.assign(data, data + length); });
        s.addDescriptor(BleUUID(uint16_t{0x2901}), text("Setting"));
        s.addCharacteristic(BleUUID(uint16_t{0x2A05}), AttServer::kPropertyIndicate);
    }
    void TearDown() override { ::close(client_); }

    /// Sends a PDU and lets the server take it; returns its answer, empty for none.
    std::string request(std::string const& pdu) {
        Bytes const bytes = fromHex(pdu);
        EXPECT_EQ(::send(client_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        EXPECT_TRUE(server_->receive());
        Bytes answer(1024);
        ssize_t const got = ::recv(client_, answer.data(), answer.size(), MSG_DONTWAIT);
        answer.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return hex(answer);
    }

    std::unique_ptr<AttServer> server_;
    int client_;
    std::string name_ = "Battery bank on the starboard side";
    Bytes setting_{0x11, 0x22};
};

// One script, in order: what each request gets at MTU 23 and then at MTU 247.
// An answer holds entries of one size (services and types of one UUID width)
// and as many as fit; writes that fail change nothing.
TEST_F(SimAttServer, RequestsGetTheirAnswersOrErrorResponses) {
    std::string const name = hex(text(name_));
    struct Step {
        std::string request;
        std::string answer;
    };
    std::vector<Step> const script = {
        // MTU 23: a 128-bit service or declaration fills an answer; values are cut.
        {"10 01 00 ff ff 00 28", "11 06 01 00 03 00 00 18"},
        {"10 04 00 ff ff 00 28", "11 14 04 00 0a 00 " + wireUuid("a0")},
        {"10 12 00 ff ff 00 28", "01 10 12 00 0a"},
        {"08 04 00 0a 00 03 28", "09 15 05 00 10 06 00 " + wireUuid("a1")},
        {"08 01 00 ff ff 00 2a", "09 15 03 00 " + name.substr(0, 19 * 3 - 1)},
        {"0a 03 00", "0b " + name.substr(0, 22 * 3 - 1)},
        {"0c 03 00 16 00", "0d " + name.substr(22 * 3)},
        {"0c 03 00 23 00", "01 0c 03 00 07"},
        {"02 f7 00", "03 f7 00"},
        // MTU 247.
        {"10 04 00 ff ff 00 28", "11 14 04 00 0a 00 " + wireUuid("a0") + " 0b 00 11 00 " + wireUuid("b0")},
        {"10 01 00 03 00 fb 34 9b 5f 80 00 00 80 00 10 00 00 00 28 00 00", "11 06 01 00 03 00 00 18"},
        {"08 04 00 0a 00 03 28", "09 15 05 00 10 06 00 " + wireUuid("a1") + " 08 00 14 09 00 " + wireUuid("a2")},
        {"08 0b 00 11 00 03 28", "09 15 0c 00 0a 0d 00 " + wireUuid("b1")},
        {"08 01 00 ff ff " + wireUuid("b1"), "09 04 0d 00 11 22"},
        {"08 01 00 ff ff " + wireUuid("a1"), "01 08 06 00 02"},
        {"08 01 00 ff ff 19 2a", "01 08 01 00 0a"},
        {"08 01 00 ff ff 02 29", "09 04 07 00 00 00 0a 00 00 00 11 00 00 00"},
        {"12 0a 00 01 00", "13"},
        {"08 08 00 0a 00 02 29", "09 04 0a 00 01 00"},
        {"04 0c 00 0e 00", "05 01 0c 00 03 28"},
        {"04 0d 00 0e 00", "05 02 0d 00 " + wireUuid("b1")},
        {"04 0f 00 ff ff", "05 01 0f 00 03 28 10 00 05 2a 11 00 02 29"},
        {"04 12 00 ff ff", "01 04 12 00 0a"},
        // Errors name the request, the handle and the reason.
        {"0a 00 00", "01 0a 00 00 01"},
        {"0a 06 00", "01 0a 06 00 02"},
        {"12 03 00 41", "01 12 03 00 03"},
        {"12 09 00 41", "01 12 09 00 03"},
        {"12 30 00 41", "01 12 30 00 01"},
        {"12 07 00 01", "01 12 07 00 0d"},
        {"12 11 00 01 00", "01 12 11 00 13"},
        {"12 07 00 02 00", "01 12 07 00 13"},
        {"12 07 00 05 00", "01 12 07 00 13"},
        {"10 01 00 ff ff 03 28", "01 10 01 00 10"},
        {"10 00 00 ff ff 00 28", "01 10 00 00 01"},
        {"08 05 00 04 00 03 28", "01 08 05 00 01"},
        {"08 01 00 ff ff 03 28 00", "01 08 00 00 04"},
        {"0a 03", "01 0a 00 00 04"},
        {"02 17 00 00", "01 02 00 00 04"},
        {"06 01 00 ff ff 00 28 00 18", "01 06 00 00 06"},
        // Write commands (here all refused or malformed) and confirmations are never
        // answered; a write request to a value that takes one is.
        {"52 0d 00 41", ""},
        {"52 09", ""},
        {"d2 09 00 41 00 00 00 00 00 00 00 00 00 00 00 00", ""},
        {"1e", ""},
        {"12 0d 00 aa bb cc", "13"},
        {"0a 0d 00", "0b aa bb cc"},
        {"0a 07 00", "0b 00 00"},
        {"0a 03 00", "0b " + name},
    };
    for (Step const& step : script) EXPECT_EQ(request(step.request), step.answer) << step.request;
}

// Nothing waiting is no end of the link; after close() nothing goes out.
TEST_F(SimAttServer, NotifiesWhileOpenAndNothingAfterClose) {
    EXPECT_TRUE(server_->receive());
    EXPECT_EQ(request("12 07 00 01 00"), "13");
    uint8_t const value = 0x42;
    EXPECT_TRUE(server_->notify(6, &value, 1));
    server_->close();
    EXPECT_FALSE(server_->receive());
    EXPECT_FALSE(server_->notify(6, &value, 1));
}

}  // namespace
