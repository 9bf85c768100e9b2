// The device connection against loopback peers that only accept, read and
// close: how each link ends and that it reports the reason once.
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

TEST(ZelmorImplTest, HubNameWithoutIpv4AddressFailsAtOnceOnTheCallersThread) {
    // "::1" resolves, without any name server, to an IPv6 address only.
    ZelmorImpl zelmor("::1");
    std::vector<std::pair<Reason, std::thread::id>> reports;
    zelmor.setDisconnectCallback([&](Reason reason) { reports.emplace_back(reason, std::this_thread::get_id()); });
    zelmor.connectHub(Zelmor::WifiAccessKey{});
    EXPECT_EQ(reports, (std::vector{std::pair(Reason::ConnectFailed, std::this_thread::get_id())}));
}

}  // namespace
