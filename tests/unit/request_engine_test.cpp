// The request engine against a scripted device: what only a scripted peer can
// show. Every command end to end against the simulated device is in
// engine_device_test.
#include <gtest/gtest.h>

#include <atomic>

#include "command_codes.h"
#include "hardware_revision.h"
#include "records.h"
#include "scripted_zelmor.h"
#include "test_bytes.h"

using Code = Zelmor::ResponseCode;
using Bytes = std::vector<uint8_t>;
using Sent = ScriptedZelmor::Sent;

namespace {

// The code a record request ends with when the device answers it with `code` and `payload`.
template <class Record>
Code answerCode(void (ZelmorRequest::*request)(Zelmor::RecordCallback<Record>), uint16_t code, Bytes payload) {
    ScriptedZelmor device([&](ScriptedZelmor& d, Sent const& s) { d.answer(code, s.sequence, payload); });
    CallbackResult<Code, Record> result;
    (device.*request)(result.callback());
    return std::get<0>(result.get());
}

}  // namespace

// The payloads the simulated device cannot tell apart from their neighbours,
// queued behind enough requests for the sequence number to wrap.
TEST(RequestEngine, RequestPayloadsAndSequenceNumbers) {
    ScriptedZelmor device([](ScriptedZelmor& d, Sent const& s) { d.answer(0, s.sequence); });
    constexpr size_t kBefore = 0xFFFE;
    std::atomic<size_t> rebooted{0};
    for (size_t i = 0; i < kBefore; ++i) device.requestReboot([&](Code code) { rebooted += code == Code::Success; });
    ZelmorSchedule schedule;
    schedule.setStartHour(7);
    std::vector<CallbackResult<Code>> results(4);
    device.requestRename(std::string(32, 'x') + "yz", results[0].callback());
    device.requestCalibrateCurrent(10.0f, results[1].callback());
    device.requestUpdateSchedule(uint64_t{1} << 32, schedule, results[2].callback());
    device.requestDeleteSchedule(5, results[3].callback());
    for (auto& result : results) EXPECT_EQ(std::get<0>(result.get(std::chrono::seconds(120))), Code::Success);
    EXPECT_EQ(rebooted, kBefore);
    struct Expected {
        uint16_t command;
        uint16_t sequence;
        std::string payload;
    } const expected[] = {
        {0x25, 0xFFFF, hex(Bytes(32, 'x'))},
        {0x27, 0x0000, "00 00 20 41"},
        {0x52, 0x0001, "ff ff ff ff " + hex(schedule.bytes())},
        {0x53, 0x0002, "05 00 00 00"},
    };
    auto const sent = device.sent();
    ASSERT_EQ(sent.size(), kBefore + std::size(expected));
    EXPECT_EQ(sent[0].sequence, 0x0001);
    for (size_t i = 0; i < std::size(expected); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(sent[kBefore + i].command, expected[i].command);
        EXPECT_EQ(sent[kBefore + i].sequence, expected[i].sequence);
        EXPECT_EQ(hex(sent[kBefore + i].payload), expected[i].payload);
    }
}

// What the device sends while request 1 is in flight, what that request ends
// with and which scan results the notifications among it carry; request 2 is
// then answered "77" and must get exactly that. The scripted device answers
// inside sendData, before the engine starts to wait, so request 1's short
// time-out only sets how long a dropped answer takes. Frames broken in
// themselves are dropped by the rules of Frames.ReceiveRules.
TEST(RequestEngine, ReceiveRules) {
    auto const frame = &ScriptedZelmor::frame;
    auto const collect = [](std::function<void(Code, Bytes)> done) {
        return [done](Code code, uint8_t const* data, size_t length) { done(code, Bytes(data, data + length)); };
    };
    Bytes scan(42, 0);
    std::memcpy(scan.data(), "CabinNet", 8);
    scan[32] = static_cast<uint8_t>(-55);
    Bytes longScan = scan;
    longScan.push_back(0);
    Bytes padded = fromHex("00 00 01 00 00 00");  // an answer to request 1, padded past any real frame
    padded.resize(70000, 0x41);
    Bytes oversized;
    cobsEncode(padded.data(), padded.size(), oversized);
    Bytes sixteen;  // continuation frames of 16 bytes less than the largest answer
    for (int i = 0; i < 16; ++i) {
        Bytes const part = frame(0x0100, 1, Bytes(0xFFFF, 0x5A));
        sixteen.insert(sixteen.end(), part.begin(), part.end());
    }
    struct Case {
        char const* what;
        std::vector<Bytes> wire;
        Code code;
        Bytes payload;
        std::string scans = "";
    } const cases[] = {
        {"an answer", {frame(0, 1, {1, 2})}, Code::Success, {1, 2}},
        {"a refusal keeps its code", {frame(5, 1, {})}, Code::LockedByMasterPassword, {}},
        {"continuation frames make one answer",
         {frame(0x0100, 1, {1}), frame(0x0100, 1, {}), frame(0, 1, {2, 3})},
         Code::Success,
         {1, 2, 3}},
        {"another sequence number", {frame(0, 7, {1})}, Code::RequestTimeout, {}},
        {"notifications are no answers",
         {frame(0x8000, 0, scan), frame(0x8000, 0, longScan), frame(0x8000, 1, {})},
         Code::RequestTimeout,
         {},
         "CabinNet/-55 null null "},
        {"an oversized body is dropped up to the next zero", {oversized, frame(0, 1, {5})}, Code::Success, {5}},
        {"an answer of the largest size",
         {sixteen, frame(0, 1, Bytes(16, 0x5A))},
         Code::Success,
         Bytes(ZelmorRequest::kMaxAnswerSize, 0x5A)},
        {"an answer one byte larger is dropped whole",
         {sixteen, frame(0x0100, 1, Bytes(17, 0x5A)), frame(0, 1, {5})},
         Code::RequestTimeout,
         {}},
        {"a partial answer is not carried over", {frame(0x0100, 1, {1})}, Code::RequestTimeout, {}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<Bytes> const next = {frame(0, 2, {0x77})};
        ScriptedZelmor device([&](ScriptedZelmor& d, Sent const& s) {
            for (auto const& bytes : s.sequence == 1 ? c.wire : next) d.feed(bytes);
        });
        std::string scans;  // written on the worker thread before it ends request 1
        device.setScanResultHandler([&](Zelmor::WifiScanResult const* r) {
            scans += r ? std::string(r->ssid) + "/" + std::to_string(r->rssi) + " " : "null ";
        });
        CallbackResult<Code, Bytes> first;
        CallbackResult<Code, Bytes> second;
        device.enqueue(command::kGetMonitorData, {}, 50, collect(first.callback()));
        device.enqueue(command::kGetMonitorData, {}, ZelmorRequest::kDefaultTimeoutMs, collect(second.callback()));
        auto const [code, payload] = first.get();
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(payload.size(), c.payload.size());
        EXPECT_TRUE(payload == c.payload);
        EXPECT_EQ(scans, c.scans);
        EXPECT_EQ(second.get(), std::make_tuple(Code::Success, Bytes{0x77}));
    }
}

// Request 1 would wait two minutes for its answer, which the device holds back
// until stop has returned: only stop can end it within the result's limit.
TEST(RequestEngine, StopEndsWhatIsInFlightAndQueuedWithoutWaitingForTheTimeOut) {
    // A caller that retries every failure must not keep the stopping worker
    // busy for ever: its retries wait for the next link.
    std::atomic<int> failures{0};
    std::function<void(Code)> retry;
    CallbackResult<> sent;
    ScriptedZelmor device([done = sent.callback()](ScriptedZelmor&, Sent const&) { done(); });
    retry = [&](Code code) {
        EXPECT_EQ(code, Code::RequestTimeout);
        ++failures;
        device.requestResetEnergyMeter(retry);
    };
    device.enqueue(command::kResetEnergyMeter, {}, 120000, [&](Code code, uint8_t const*, size_t) { retry(code); });
    CallbackResult<Code> queued;
    device.requestResetCoulombMeter(queued.callback());
    sent.get();
    device.stopThread();
    EXPECT_EQ(std::get<0>(queued.get()), Code::RequestTimeout);
    device.joinThread();
    device.answer(0, 1);  // too late: it reaches no one
    // The request in flight and the retry it queued before the queue was drained.
    EXPECT_EQ(failures, 2);
    EXPECT_EQ(device.sent().size(), 1u);
}

TEST(RequestEngine, RecordAnswersWithWrongLengthsOrRefusals) {
    auto const keys = &ZelmorRequest::requestGetAccessKeys;
    auto const schedules = &ZelmorRequest::requestGetSchedules;
    auto const authKey = &ZelmorRequest::requestGetAuthKey;
    auto const monitor = &ZelmorRequest::requestGetMonitorData;
    EXPECT_EQ(answerCode(keys, 4, Bytes(89)), Code::InvalidDeviceResponse);  // a refusal carries no payload
    EXPECT_EQ(answerCode(keys, 5, {}), Code::LockedByMasterPassword);
    EXPECT_EQ(answerCode(schedules, 3, Bytes(24)), Code::InvalidDeviceResponse);
    EXPECT_EQ(answerCode(schedules, 4, {}), Code::LockedByUserPassword);
    EXPECT_EQ(answerCode(schedules, 0, Bytes(30)), Code::Success);  // a short tail is ignored
    EXPECT_EQ(answerCode(&ZelmorRequest::requestGetWifiNetworks, 3, Bytes(35)), Code::InvalidDeviceResponse);
    EXPECT_EQ(answerCode(authKey, 4, Bytes(32)), Code::InvalidDeviceResponse);
    Bytes bluetoothRecord(51);
    bluetoothRecord[2] = 0x20;
    EXPECT_EQ(answerCode(monitor, 0, bluetoothRecord), Code::RequestFailed);
    EXPECT_EQ(answerCode(monitor, 4, {}), Code::LockedByUserPassword);
    // A challenge of the wrong length or a refusal ends the lock exchange
    // before anything is sealed.
    auto const lockCode = [](uint16_t code, size_t challenge) {
        ScriptedZelmor device(
            [&](ScriptedZelmor& d, Sent const& s) { d.answer(code, s.sequence, Bytes(challenge, 1)); });
        CallbackResult<Code> result;
        device.requestSetUserPasswordLock(Zelmor::AuthKey{}, result.callback());
        Code const answer = std::get<0>(result.get());
        EXPECT_EQ(device.sent().size(), 1u);
        return answer;
    };
    EXPECT_EQ(lockCode(0, 31), Code::InvalidDeviceResponse);
    EXPECT_EQ(lockCode(0, 33), Code::InvalidDeviceResponse);
    EXPECT_EQ(lockCode(5, 0), Code::LockedByMasterPassword);
}

// Where the challenge and key sit in the sealed block is checked by the
// simulated device in engine_device_test; what it cannot see is that each seal
// starts from a fresh random IV.
TEST(RequestEngine, LockExchangeSealsWithAFreshIvEachTime) {
    ScriptedZelmor device([](ScriptedZelmor& d, Sent const& s) {
        d.answer(0, s.sequence, s.command == 0x30 ? Bytes(32, 0xC0) : Bytes{});
    });
    std::vector<CallbackResult<Code>> results(2);
    device.requestUnlock(Zelmor::AuthKey{}, results[0].callback());
    device.requestUnlock(Zelmor::AuthKey{}, results[1].callback());
    for (auto& result : results) EXPECT_EQ(std::get<0>(result.get()), Code::Success);
    // The two seals, however they interleave with the challenges, share no 16-byte block.
    std::vector<Sent> seals = device.sent();
    std::erase_if(seals, [](Sent const& s) { return s.command == 0x30; });
    ASSERT_EQ(seals.size(), 2u);
    ASSERT_EQ(seals[0].payload.size(), 80u);
    for (size_t at = 0; at < 80; at += 16)
        EXPECT_NE(hex(seals[0].payload.data() + at, 16), hex(seals[1].payload.data() + at, 16)) << at;
}

// A refusal on a later page ends the listing without the files the pages
// before it gave. Listings that end in an empty page come from the simulated
// device in engine_device_test.
TEST(RequestEngine, FileListRefusedOnALaterPageGivesNoFiles) {
    Bytes const page = fromHex("01 00 00 00 64 00 00 00");  // file 1, 100 bytes
    std::vector<std::pair<uint16_t, Bytes>> const pages = {{0, page}, {0, page}, {3, {}}};
    size_t next = 0;
    ScriptedZelmor device([&](ScriptedZelmor& d, Sent const& s) {
        auto const& [code, payload] = pages.at(next++);
        d.answer(code, s.sequence, payload);
    });
    CallbackResult<Code, std::vector<Zelmor::LogFileDescriptor>> result;
    device.requestGetFileList(result.callback());
    auto const [code, files] = result.get();
    EXPECT_EQ(code, Code::RequestFailed);
    EXPECT_TRUE(files.empty());
    EXPECT_EQ(device.sent().size(), 3u);
}

// After the information request, the transfer's start, blocks of the size
// the family takes, and finish; cancelling is shown against the simulated device.
TEST(RequestEngine, FirmwareTransfer) {
    struct Case {
        uint8_t revision;
        size_t imageSize;
        uint16_t blockCode;
        Bytes acknowledgement;
        Code expected;
        std::vector<size_t> blocks;
        std::vector<uint32_t> progress;
    } const cases[] = {
        {0x23, 4096, 0, {}, Code::Success, {2048, 2048}, {2048, 4096}},
        {0x10, 4096, 0, {}, Code::Success, {4096}, {4096}},
        {0x41, 10000, 3, {}, Code::RequestFailed, {4096}, {}},
        {0x41, 10000, 0, {1}, Code::InvalidDeviceResponse, {4096}, {}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << int{c.revision} << " " << c.imageSize << " " << int{c.blockCode});
        Bytes info = {0x50, 0x02, c.revision};
        info.resize(isLanFamily(c.revision) ? 49 : isWifiFamily(c.revision) ? 82 : 19);
        ScriptedZelmor device([&](ScriptedZelmor& d, Sent const& s) {
            if (s.command == 0xF1)
                d.answer(c.blockCode, s.sequence, c.acknowledgement);
            else
                d.answer(0, s.sequence, s.command == 0x01 ? info : Bytes{});
        });
        CallbackResult<Code, Zelmor::DeviceInfo> infoResult;
        device.requestGetInfo(infoResult.callback());
        ASSERT_EQ(std::get<0>(infoResult.get()), Code::Success);

        Bytes image(c.imageSize, 0x77);
        std::vector<uint32_t> progress;
        CallbackResult<Code> done;
        device.requestUpdateFirmware(
            image.data(), static_cast<uint32_t>(image.size()),
            [&](uint32_t sent, uint32_t) {
                progress.push_back(sent);
                return true;
            },
            done.callback());
        EXPECT_EQ(std::get<0>(done.get()), c.expected);
        auto const sent = device.sent();
        bool const finished = c.expected == Code::Success;
        ASSERT_EQ(sent.size(), 2 + c.blocks.size() + (finished ? 1 : 0));
        for (size_t i = 0; i < c.blocks.size(); ++i) {
            EXPECT_EQ(sent[2 + i].command, 0xF1);
            EXPECT_EQ(sent[2 + i].payload.size(), c.blocks[i]);
        }
        EXPECT_EQ(progress, c.progress);
        EXPECT_EQ(sent.back().command, finished ? 0xF2 : 0xF1);
    }
}
