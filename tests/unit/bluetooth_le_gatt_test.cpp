// The GATT client's operations against scripted devices on a socket pair:
// service discovery, reads, writes, configuration descriptors and misuse.
// Malformed discovery answers are with the other protocol failures.
#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "scripted_gatt_link.h"

namespace {

using namespace gatttest;

// Handles and properties in hexadecimal.
TEST(BluetoothLEDiscovery, PagesThroughEachStepAndJoinsTheLists) {
    ScriptedLink link;
    auto const peer = link.connect();
    link.discover(*peer);
    std::ostringstream got;
    got << std::hex;
    for (BluetoothLE::Service const& service : link.ble.services()) {
        got << "service " << service.startHandle << "-" << service.endHandle << " " << service.uuid.toString() << "\n";
        for (Characteristic const& c : service.characteristics) {
            got << "  " << c.declarationHandle << " " << int{c.properties} << " " << c.valueHandle << " "
                << c.uuid.toString() << " ccc " << c.cccHandle << "\n";
            EXPECT_EQ(c.owner, &link.ble);
        }
    }
    EXPECT_EQ(got.str(),
              "service 1-7 180f\n"
              "  2 a 3 2a1a ccc 0\n"
              "  4 12 5 2a19 ccc 6\n"
              "service 10-18 ec7c0000-2c7b-1539-172f-29d041beab3e\n"
              "  11 20 12 ec7c0001-2c7b-1539-172f-29d041beab3e ccc 13\n"
              "  14 3e 15 ec7c0002-2c7b-1539-172f-29d041beab3e ccc 16\n");
}

TEST(BluetoothLEDiscovery, StepEndsAtTheLastHandleWithoutAnotherPage) {
    ScriptedLink link;
    auto const peer = link.connect();
    CallbackResult<> discovered;
    link.ble.discoverServices(discovered.callback());
    ASSERT_TRUE(peer->play({
        fromClient("10 01 00 ff ff 00 28"),
        toClient("11 06 01 00 ff ff 0f 18"),
        fromClient("08 01 00 ff ff 03 28"),
        toClient("01 08 01 00 0a"),
        fromClient("08 01 00 ff ff 02 29"),
        toClient("01 08 01 00 0a"),
    }));
    discovered.get(kPatience);
    ASSERT_EQ(link.ble.services().size(), 1u);
    EXPECT_EQ(link.ble.services()[0].endHandle, 0xFFFF);
    EXPECT_TRUE(link.ble.services()[0].characteristics.empty());
}

// At the default MTU of 23: reads answered with 22 bytes continue, writes
// of more than 20 bytes go out in Prepare Write pieces of 18.
TEST(BluetoothLEExchanges, ReadsAndWritesByteForByte) {
    using Finished = std::function<void(std::vector<uint8_t>)>;
    auto const read = [](uint16_t handle) {
        return [handle](BluetoothLE& ble, Finished finished) {
            characteristicOf(ble, handle).read([finished](uint8_t const* data, size_t length) {
                finished({data, data + length});
            });
        };
    };
    auto const write = [](uint16_t handle, std::string value) {
        return [handle, value](BluetoothLE& ble, Finished finished) {
            characteristicOf(ble, handle).write(fromHex(value), [finished] { finished({}); });
        };
    };
    auto const configure = [](uint16_t handle, bool notify, bool indicate) {
        return [=](BluetoothLE& ble, Finished finished) {
            characteristicOf(ble, handle).setNotify(notify, indicate, [finished] { finished({}); });
        };
    };
    auto const echo = [](std::string const& request) { return toClient("17" + request.substr(2)); };
    std::string const piece1 = "16 15 00 00 00 " + byteRun(1, 18);
    std::string const piece2 = "16 15 00 12 00 " + byteRun(19, 18);
    std::string const piece3 = "16 15 00 24 00 " + byteRun(37, 4);
    struct Case {
        char const* name;
        std::function<void(BluetoothLE&, Finished)> act;
        AttScript script;
        std::string result;
    } const cases[] = {
        {"read in one answer", read(3), {fromClient("0a 03 00"), toClient("0b 01 02 03")}, "01 02 03"},
        {"read continued with Read Blob",
         read(5),
         {fromClient("0a 05 00"), toClient("0b " + byteRun(0, 22)), fromClient("0c 05 00 16 00"),
          toClient("0d " + byteRun(22, 22)), fromClient("0c 05 00 2c 00"), toClient("0d " + byteRun(44, 5))},
         byteRun(0, 49)},
        {"read of 22 bytes ended by an empty blob",
         read(5),
         {fromClient("0a 05 00"), toClient("0b " + byteRun(0, 22)), fromClient("0c 05 00 16 00"), toClient("0d")},
         byteRun(0, 22)},
        {"write that fits the MTU",
         write(0x15, byteRun(1, 20)),
         {fromClient("12 15 00 " + byteRun(1, 20)), toClient("13")},
         ""},
        {"long write",
         write(0x15, byteRun(1, 40)),
         {fromClient(piece1), echo(piece1), fromClient(piece2), echo(piece2), fromClient(piece3), echo(piece3),
          fromClient("18 01"), toClient("19")},
         ""},
        {"notifications on", configure(5, true, false), {fromClient("12 06 00 01 00"), toClient("13")}, ""},
        {"notifications off", configure(5, false, false), {fromClient("12 06 00 00 00"), toClient("13")}, ""},
        {"indications on", configure(0x15, false, true), {fromClient("12 16 00 02 00"), toClient("13")}, ""},
        {"both on", configure(0x15, true, true), {fromClient("12 16 00 03 00"), toClient("13")}, ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        auto const peer = link.connect();
        link.discover(*peer);
        CallbackResult<std::vector<uint8_t>> finished;
        c.act(link.ble, finished.callback());
        ASSERT_TRUE(peer->play(c.script));
        EXPECT_EQ(hex(std::get<0>(finished.get(kPatience))), c.result);
        EXPECT_EQ(link.ble.state(), State::Connected);
    }
}

/// A copy of the characteristic at 0x15 with no value handle.
Characteristic atHandleZero(BluetoothLE& ble) {
    Characteristic zero = characteristicOf(ble, 0x15);
    zero.valueHandle = 0;
    return zero;
}

TEST(BluetoothLEMisuse, ThrowsWithoutSendingAnything) {
    static std::vector<uint8_t> const value(21, 0x5A);
    struct Case {
        char const* name;
        Action act;
        char const* message;
    } const cases[] = {
        {"write command longer than MTU - 3",
         [](BluetoothLE& ble) { characteristicOf(ble, 0x15).writeWithoutResponse(value.data(), 21); },
         BluetoothLE::kLengthOverMtu},
        {"notify without the notify bit",
         [](BluetoothLE& ble) { characteristicOf(ble, 0x12).setNotify(true, false, {}); }, BluetoothLE::kNoNotify},
        {"indicate without the indicate bit",
         [](BluetoothLE& ble) { characteristicOf(ble, 5).setNotify(false, true, {}); }, BluetoothLE::kNoIndicate},
        {"notify without a CCCD", [](BluetoothLE& ble) { characteristicOf(ble, 3).setNotify(true, false, {}); },
         BluetoothLE::kInvalidCccHandle},
        {"read without the read bit", [](BluetoothLE& ble) { characteristicOf(ble, 0x12).read({}); },
         BluetoothLE::kNoRead},
        {"write without the write bit", [](BluetoothLE& ble) { characteristicOf(ble, 5).write({1}, {}); },
         BluetoothLE::kNoWrite},
        {"write command without its bit",
         [](BluetoothLE& ble) { characteristicOf(ble, 3).writeWithoutResponse(value.data(), 1); },
         BluetoothLE::kNoWriteWithoutResponse},
        {"read at value handle 0", [](BluetoothLE& ble) { atHandleZero(ble).read({}); },
         BluetoothLE::kInvalidValueHandle},
        {"write command at value handle 0",
         [](BluetoothLE& ble) { atHandleZero(ble).writeWithoutResponse(value.data(), 1); },
         BluetoothLE::kInvalidValueHandle},
        {"connect while a link is up", [](BluetoothLE& ble) { ble.connect(kAddress, false); },
         BluetoothLE::kInvalidState},
    };
    ScriptedLink link;
    auto const peer = link.connect();
    link.discover(*peer);
    for (auto const& c : cases) EXPECT_EQ(thrownBy([&] { c.act(link.ble); }), c.message) << c.name;
    // What the link carries next is the first thing sent after discovery.
    characteristicOf(link.ble, 0x15).writeWithoutResponse(value.data(), 20);
    EXPECT_TRUE(peer->play({fromClient("52 15 00 " + hex(value.data(), 20))}));
    EXPECT_EQ(link.ble.state(), State::Connected);
}

TEST(BluetoothLEMisuse, NeedsTheLinkForEveryOperation) {
    static uint8_t const byte = 1;
    Action const operations[] = {
        exchangeMtu247,
        [](BluetoothLE& ble) { ble.discoverServices({}); },
        [](BluetoothLE& ble) { ble.getRssi(); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).read({}); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).write({1}, {}); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).writeWithoutResponse(&byte, 1); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).setNotify(true, false, {}); },
    };
    ScriptedLink link;
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(thrownBy([&] { operations[i](link.ble); }), BluetoothLE::kInvalidState);
    auto const peer = link.connect();
    link.discover(*peer);
    peer->close();
    ASSERT_EQ(link.ends.nth(1), Reason::LinkLost);
    for (size_t i = 0; i < std::size(operations); ++i)
        EXPECT_EQ(thrownBy([&] { operations[i](link.ble); }), BluetoothLE::kInvalidState) << i;
    EXPECT_EQ(thrownBy([] { Characteristic{}.read({}); }), BluetoothLE::kInvalidState);
}

}  // namespace
