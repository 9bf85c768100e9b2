// The device connection against loopback peers that only accept, read and
// close: how each link ends and that it reports the reason once.
#include <gtest/gtest.h>

#include <thread>

#include "command_codes.h"
#include "frame_codec.h"
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

// An answer several read buffers long, written at once and followed by the
// close: every byte before the close reaches the request, and only then does
// the link end.
TEST(ZelmorImplTest, AnswerLongerThanTheReadBufferArrivesWholeBeforeTheClose) {
    RawSocket listener = RawSocket::listening("127.0.0.24", ZelmorImpl::kDevicePort);
    CallbackResult<Code> block;
    std::vector<uint8_t> received;
    SimLink link;
    link.connectLan("127.0.0.24");
    RawSocket device = listener.accept();
    link.zelmor.requestReadLogFile(3, 0, 200000,
                                   [&received, done = block.callback()](Code code, uint8_t const* data, size_t length) {
                                       received.assign(data, data + length);
                                       done(code);
                                   });
    std::vector<uint8_t> const request{3, 0, 0, 0, 0, 0, 0, 0, 0x40, 0x0d, 0x03, 0};
    std::vector<uint8_t> expected;
    encodeFrame({command::kReadLogFile, 1, 12}, request.data(), nullptr, expected);
    ASSERT_EQ(device.read(expected.size()), expected);

    std::vector<uint8_t> payload(200000);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 7 % 251);
    std::vector<uint8_t> answer;
    for (size_t offset = 0; offset < payload.size(); offset += kMaxFramePayload) {
        size_t const n = std::min(kMaxFramePayload, payload.size() - offset);
        uint16_t const code = offset + n < payload.size() ? kContinuationCode : 0;
        encodeFrame({code, 1, static_cast<uint16_t>(n)}, payload.data() + offset, nullptr, answer);
    }
    ASSERT_GT(answer.size(), 3 * ZelmorImpl::kReadBufferSize);
    device.send(answer);
    device.close();
    EXPECT_EQ(std::get<0>(block.get()), Code::Success);
    EXPECT_EQ(received, payload);
    EXPECT_EQ(link.ended.get(), std::tuple(Reason::ConnectionLost));
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
