// The device connection over real loopback sockets: how each link ends, which
// reason it reports, and that it reports it once, after the engine has failed
// what was pending.
#include "zelmor_impl.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "callback_result.h"
#include "loopback_listener.h"

namespace {

using Reason = Zelmor::DisconnectReason;
using Code = Zelmor::ResponseCode;

/// Records the link's events in the order they happen.
struct LinkEvents {
    std::mutex mutex;
    std::vector<std::string> events;
    CallbackResult<> connected;
    CallbackResult<Reason> disconnected;
    std::atomic<int> disconnects{0};

    void attach(ZelmorImpl& zelmor) {
        zelmor.setConnectedCallback([this, done = connected.callback()] {
            add("connected");
            done();
        });
        zelmor.setDisconnectCallback([this, done = disconnected.callback()](Reason reason) {
            add("disconnected");
            ++disconnects;
            done(reason);
        });
    }
    void add(std::string event) {
        std::lock_guard lock(mutex);
        events.push_back(std::move(event));
    }
    std::vector<std::string> list() {
        std::lock_guard lock(mutex);
        return events;
    }
};

TEST(ZelmorImplTest, LocalDisconnectReportsClosedLocallyOnce) {
    LoopbackListener device("127.0.0.21", ZelmorImpl::kDevicePort);
    ZelmorImpl zelmor;
    LinkEvents link;
    link.attach(zelmor);
    zelmor.connectLan(loopbackAddress("127.0.0.21"));
    ASSERT_TRUE(device.accept());
    link.connected.get();
    zelmor.disconnect();
    EXPECT_EQ(std::get<0>(link.disconnected.get()), Reason::ClosedLocally);
    zelmor.disconnect();
    EXPECT_EQ(link.disconnects.load(), 1);
    EXPECT_EQ(link.list(), (std::vector<std::string>{"connected", "disconnected"}));
}

TEST(ZelmorImplTest, NothingListeningReportsConnectFailedWithoutConnecting) {
    ZelmorImpl zelmor;
    LinkEvents link;
    link.attach(zelmor);
    zelmor.connectLan(loopbackAddress("127.0.0.22"));
    EXPECT_EQ(std::get<0>(link.disconnected.get()), Reason::ConnectFailed);
    EXPECT_EQ(link.list(), std::vector<std::string>{"disconnected"});
}

TEST(ZelmorImplTest, PeerClosingAfterAcceptReportsConnectionLostAndFailsPendingRequests) {
    LoopbackListener device("127.0.0.23", ZelmorImpl::kDevicePort);
    ZelmorImpl zelmor;
    LinkEvents link;
    link.attach(zelmor);
    zelmor.connectLan(loopbackAddress("127.0.0.23"));
    ASSERT_TRUE(device.accept());
    link.connected.get();
    CallbackResult<Code, Zelmor::DeviceInfo> info;
    zelmor.requestGetInfo([&link, done = info.callback()](Code code, Zelmor::DeviceInfo const& record) {
        link.add("request ended");
        done(code, record);
    });
    EXPECT_FALSE(device.read(9).empty());  // the request went out
    device.closeConnection();

    EXPECT_EQ(std::get<0>(link.disconnected.get()), Reason::ConnectionLost);
    EXPECT_EQ(std::get<0>(info.get()), Code::RequestTimeout);
    EXPECT_EQ(link.list().front(), "connected");

    // The finished link thread is joined by the next connect, not left to end the process.
    LinkEvents again;
    again.attach(zelmor);
    zelmor.connectLan(loopbackAddress("127.0.0.23"));
    ASSERT_TRUE(device.accept());
    device.closeConnection();
    EXPECT_EQ(std::get<0>(again.disconnected.get()), Reason::ConnectionLost);
}

TEST(ZelmorImplTest, HubLinkOpensWithTheHelloThenEncryptedFrames) {
    LoopbackListener hub("127.0.0.24", kHubPort);
    ZelmorImpl zelmor("127.0.0.24");
    LinkEvents link;
    link.attach(zelmor);
    Zelmor::WifiAccessKey key;
    for (size_t i = 0; i < key.keyId.size(); ++i) key.keyId[i] = static_cast<uint8_t>(0xA0 + i);
    key.key.fill(0x5C);
    zelmor.connectHub(key);
    ASSERT_TRUE(hub.accept());
    std::vector<uint8_t> hello = hub.read(17);
    ASSERT_EQ(hello.size(), 17u);
    EXPECT_EQ(hello[0], 0x02);
    EXPECT_TRUE(std::equal(key.keyId.begin(), key.keyId.end(), hello.begin() + 1));
    EXPECT_FALSE(zelmor.isDirectConnection());
    // The three throwaway requests follow, each a frame of one encrypted block at least.
    EXPECT_GE(hub.read(3 * 18).size(), 3u * 18);
    zelmor.disconnect();
    EXPECT_EQ(std::get<0>(link.disconnected.get()), Reason::ClosedLocally);
}

TEST(ZelmorImplTest, HubNameWithoutIpv4AddressFailsAtOnceOnTheCallersThread) {
    // "::1" resolves, without any name server, to an IPv6 address only.
    ZelmorImpl zelmor("::1");
    std::thread::id reportedOn;
    Reason reason = Reason::Reserved;
    int reports = 0;
    zelmor.setDisconnectCallback([&](Reason r) {
        reportedOn = std::this_thread::get_id();
        reason = r;
        ++reports;
    });
    zelmor.connectHub(Zelmor::WifiAccessKey{});
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(reason, Reason::ConnectFailed);
    EXPECT_EQ(reportedOn, std::this_thread::get_id());
}

}  // namespace
