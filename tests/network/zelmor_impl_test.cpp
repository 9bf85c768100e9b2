// The device connection over real loopback sockets, against peers that only
// accept, read and close: how each link ends, which reason it reports, and
// that it reports it once.
#include <gtest/gtest.h>

#include <thread>

#include "loopback_peers.h"

namespace {

using Code = SimLink::Code;
using Reason = SimLink::Reason;

TEST(ZelmorImplTest, LocalDisconnectReportsClosedLocallyOnce) {
    RawSocket listener = RawSocket::listening("127.0.0.21", ZelmorImpl::kDevicePort);
    SimLink link;
    link.connectLan("127.0.0.21");
    RawSocket const device = listener.accept();
    link.zelmor.disconnect();
    EXPECT_EQ(link.ended.get(), std::tuple(Reason::ClosedLocally));
    link.zelmor.disconnect();
    EXPECT_EQ(link.ends, 1);
}

TEST(ZelmorImplTest, NothingListeningReportsConnectFailedWithoutConnecting) {
    SimLink link;
    link.zelmor.connectLan(loopbackAddress("127.0.0.22"));
    EXPECT_EQ(link.ended.get(), std::tuple(Reason::ConnectFailed));
    EXPECT_THROW(link.connected.get(std::chrono::seconds(0)), std::runtime_error);
}

TEST(ZelmorImplTest, PeerClosingAfterAcceptReportsConnectionLostAndFailsPendingRequests) {
    RawSocket listener = RawSocket::listening("127.0.0.23", ZelmorImpl::kDevicePort);
    SimLink link;
    link.connectLan("127.0.0.23");
    RawSocket device = listener.accept();
    CallbackResult<Code, Zelmor::DeviceInfo> info;
    link.zelmor.requestGetInfo(info.callback());
    EXPECT_FALSE(device.read(9).empty());  // the request went out
    device.close();
    EXPECT_EQ(link.ended.get(), std::tuple(Reason::ConnectionLost));
    EXPECT_EQ(std::get<0>(info.get()), Code::RequestTimeout);

    // The finished link thread is joined by the next connect, not left to end the process.
    CallbackResult<Reason> again;
    link.zelmor.setDisconnectCallback(again.callback());
    link.zelmor.connectLan(loopbackAddress("127.0.0.23"));
    listener.accept().close();
    EXPECT_EQ(again.get(), std::tuple(Reason::ConnectionLost));
}

TEST(ZelmorImplTest, HubLinkOpensWithTheHelloThenEncryptedFrames) {
    RawSocket listener = RawSocket::listening("127.0.0.24", kHubPort);
    SimLink link("127.0.0.24");
    Zelmor::WifiAccessKey key;
    for (size_t i = 0; i < key.keyId.size(); ++i) key.keyId[i] = static_cast<uint8_t>(0xA0 + i);
    key.key.fill(0x5C);
    link.zelmor.connectHub(key);
    RawSocket hub = listener.accept();
    std::vector<uint8_t> hello{0x02};
    hello.insert(hello.end(), key.keyId.begin(), key.keyId.end());
    EXPECT_EQ(hub.read(17), hello);
    EXPECT_FALSE(link.zelmor.isDirectConnection());
    // The three throwaway requests follow, each a frame of one encrypted block at least.
    EXPECT_EQ(hub.read(3 * 18).size(), 3u * 18);
    link.zelmor.disconnect();
    EXPECT_EQ(link.ended.get(), std::tuple(Reason::ClosedLocally));
}

TEST(ZelmorImplTest, HubNameWithoutIpv4AddressFailsAtOnceOnTheCallersThread) {
    // "::1" resolves, without any name server, to an IPv6 address only.
    ZelmorImpl zelmor("::1");
    std::vector<std::pair<Reason, std::thread::id>> reports;
    zelmor.setDisconnectCallback([&](Reason reason) { reports.emplace_back(reason, std::this_thread::get_id()); });
    zelmor.connectHub(Zelmor::WifiAccessKey{});
    EXPECT_EQ(reports, (std::vector{std::pair(Reason::ConnectFailed, std::this_thread::get_id())}));
}

}  // namespace
