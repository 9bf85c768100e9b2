// The request engine against a scripted device: framing, sequence numbers, the
// receive rules, time-outs and the multi-command exchanges.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <thread>

#include "aes256_cbc.h"
#include "hardware_revision.h"
#include "records.h"
#include "scripted_zelmor.h"
#include "sealed_block.h"
#include "test_bytes.h"

using Code = Zelmor::ResponseCode;

namespace {

std::vector<uint8_t> monitorPayload(uint8_t revision) {
    std::vector<uint8_t> p;
    ByteWriter w(p);
    w.write<uint16_t>(0x0132).write<uint8_t>(revision).write<uint32_t>(1700000000).write<uint32_t>(5);
    w.write(12.5f).write(12.75f).write(-3.5f).write(-43.75f);
    w.write<int64_t>(-1234).write<int64_t>(56789).write(21.5f);
    w.write<uint8_t>(1).write<uint8_t>(87).write<uint16_t>(600);
    if (isWifiFamily(revision)) w.write<int16_t>(-61);
    return p;
}

// Line-codes arbitrary bytes as a frame, well-formed or not.
std::vector<uint8_t> line(std::vector<uint8_t> const& frame) {
    std::vector<uint8_t> out;
    cobsEncode(frame.data(), frame.size(), out);
    return out;
}

std::vector<uint8_t> descriptors(std::initializer_list<std::pair<uint32_t, uint32_t>> files) {
    std::vector<uint8_t> p;
    ByteWriter w(p);
    for (auto [id, size] : files) w.write(id).write(size);
    return p;
}

// The code a record request ends with when the device answers it with `code` and `payload`.
template <class Record>
Code answerCode(uint16_t code, std::vector<uint8_t> const& payload,
                void (ZelmorRequest::*request)(Zelmor::RecordCallback<Record>)) {
    ScriptedZelmor device(
        [&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { d.answer(code, s.sequence, payload); });
    CallbackResult<Code, Record> result;
    (device.*request)(result.callback());
    return std::get<0>(result.get());
}

}  // namespace

TEST(RequestEngine, RequestsLeaveInQueueOrderWithSequenceNumbersFromOne) {
    ScriptedZelmor device([](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { d.answer(0, s.sequence); });
    ZelmorSchedule schedule;
    schedule.setStartHour(7);
    std::string const scheduleHex = hex(schedule.bytes());
    using Send = std::function<void(Zelmor::DoneCallback)>;
    struct Case {
        Send send;
        uint16_t command;
        std::string payload;
    };
    Case const cases[] = {
        {[&](auto cb) { device.requestResetEnergyMeter(cb); }, 0x10, ""},
        {[&](auto cb) { device.requestSetPowerState(true, cb); }, 0x14, "01"},
        {[&](auto cb) { device.requestSetTime(0x01020304, cb); }, 0x28, "04 03 02 01"},
        {[&](auto cb) { device.requestRename("Van", cb); }, 0x25, "56 61 6e"},
        {[&](auto cb) { device.requestCalibrateCurrent(10.0f, cb); }, 0x27, "00 00 20 41"},
        {[&](auto cb) { device.requestUpdateSchedule(2, schedule, cb); }, 0x52, "02 00 00 00 " + scheduleHex},
        {[&](auto cb) { device.requestDeleteSchedule(5, cb); }, 0x53, "05 00 00 00"},
        {[&](auto cb) {
             device.requestAddSchedules({schedule, ZelmorSchedule()}, cb);
         },
         0x51, scheduleHex + " " + hex(ZelmorSchedule().bytes())},
        {[&](auto cb) {
             device.requestAddWifiNetwork({"Marina", "s3cret", 3}, cb);
         },
         0x71, hex(encodeWifiNetwork({"Marina", "s3cret", 3}))},
        {[&](auto cb) { device.requestRemoveWifiNetwork(3, cb); }, 0x72, "03"},
        {[&](auto cb) {
             device.requestReadLogFile(0x4E20, 4096, 131072, [cb](Code code, uint8_t const*, size_t) { cb(code); });
         },
         0x44, "20 4e 00 00 00 10 00 00 00 00 02 00"},
    };
    std::vector<CallbackResult<Code>> results(std::size(cases));
    for (size_t i = 0; i < std::size(cases); ++i) cases[i].send(results[i].callback());
    for (auto& result : results) EXPECT_EQ(std::get<0>(result.get()), Code::Success);
    auto const sent = device.sent();
    ASSERT_EQ(sent.size(), std::size(cases));
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].sequence, i + 1);
        EXPECT_EQ(sent[i].command, cases[i].command) << i;
        EXPECT_EQ(hex(sent[i].payload), cases[i].payload) << i;
    }
}

TEST(RequestEngine, SequenceNumberWrapsAfter0xFFFF) {
    ScriptedZelmor device([](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { d.answer(0, s.sequence); });
    constexpr int kRequests = 0x10002;
    std::atomic<int> answered{0};
    CallbackResult<> all;
    auto allDone = all.callback();
    for (int i = 0; i < kRequests; ++i)
        device.requestReboot([&answered, allDone](Code code) {
            EXPECT_EQ(code, Code::Success);
            if (++answered == kRequests) allDone();
        });
    all.get(std::chrono::seconds(120));
    auto sent = device.sent();
    EXPECT_EQ(sent[0xFFFE].sequence, 0xFFFF);
    EXPECT_EQ(sent[0xFFFF].sequence, 0x0000);
    EXPECT_EQ(sent[0x10000].sequence, 0x0001);
}

TEST(RequestEngine, SecondRequestLeavesOnlyAfterTheFirstWasAnswered) {
    std::mutex m;
    std::condition_variable cv;
    std::vector<uint16_t> pending;
    ScriptedZelmor device([&](ScriptedZelmor&, ScriptedZelmor::Sent const& s) {
        std::lock_guard lock(m);
        pending.push_back(s.sequence);
        cv.notify_all();
    });
    CallbackResult<Code> first, second;
    device.requestResetCoulombMeter(first.callback());
    device.requestResetStatistics(second.callback());
    {
        std::unique_lock lock(m);
        cv.wait(lock, [&] { return !pending.empty(); });
    }
    // Give a wrongly eager engine every chance to send the second frame now.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(device.sent().size(), 1u);
    device.answer(0, 1);
    EXPECT_EQ(std::get<0>(first.get()), Code::Success);
    {
        std::unique_lock lock(m);
        cv.wait(lock, [&] { return pending.size() == 2; });
    }
    device.answer(3, 2);
    EXPECT_EQ(std::get<0>(second.get()), Code::RequestFailed);
}

TEST(RequestEngine, ContinuationFramesMakeOneAnswer) {
    ScriptedZelmor device([](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
        auto p = monitorPayload(0x40);
        d.answer(0x0100, s.sequence, {p.begin(), p.begin() + 20});
        d.answer(0x0100, s.sequence, {p.begin() + 20, p.begin() + 21});
        d.answer(0, s.sequence, {p.begin() + 21, p.end()});
    });
    CallbackResult<Code, Zelmor::MonitorData> result;
    device.requestGetMonitorData(result.callback());
    auto [code, data] = result.get();
    ASSERT_EQ(code, Code::Success);
    EXPECT_EQ(data.time, 1700000000u);
    EXPECT_FLOAT_EQ(data.voltage2, 12.75f);
    EXPECT_EQ(data.coulombMeter, -1234);
    EXPECT_EQ(data.energyMeter, 56789);
    EXPECT_FLOAT_EQ(data.temperature, 21.5f);
    EXPECT_EQ(data.runtime, 600);
    EXPECT_EQ(data.rssi, -61);
}

TEST(RequestEngine, NotificationsGoToTheScanResultHandlerOnly) {
    std::mutex m;
    std::vector<std::string> seen;
    ScriptedZelmor device([](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
        std::vector<uint8_t> result(42, 0);
        std::memcpy(result.data(), "CabinNet", 8);
        result[32] = static_cast<uint8_t>(-55);
        d.answer(0x8000, 0, result);
        d.answer(0x8000, 0, {1, 2, 3});
        d.answer(0x8000, s.sequence, {});  // a notification never answers a request
        d.answer(0, s.sequence);
    });
    device.setScanResultHandler([&](Zelmor::WifiScanResult const* r) {
        std::lock_guard lock(m);
        seen.push_back(r ? std::string(r->ssid) + "/" + std::to_string(r->rssi) : "null");
    });
    CallbackResult<Code> result;
    device.requestStartWifiScan(result.callback());
    EXPECT_EQ(std::get<0>(result.get()), Code::Success);
    std::lock_guard lock(m);
    EXPECT_EQ(seen, (std::vector<std::string>{"CabinNet/-55", "null", "null"}));
}

TEST(RequestEngine, BadFramesAreDroppedAndTheRequestTimesOutThenTheNextIsServed) {
    // The device answers the first request only with frames the receive rules
    // must drop, then serves the second request normally.
    ScriptedZelmor device([](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
        if (s.sequence == 1) {
            d.feed(line(fromHex("00 00 01")));                   // shorter than a header
            d.feed(line(fromHex("00 00 01 00 03 00 aa bb")));    // payload length 3, 2 bytes there
            d.answer(0, static_cast<uint16_t>(s.sequence + 7));  // unknown sequence number
            d.feed(fromHex("00 09 01 00 00 00 00 00 00 00"));    // malformed COBS body
            d.feed(std::vector<uint8_t>(70000, 0x41));           // oversized, no delimiter
            d.feed({0x00});
            std::vector<uint8_t> chunk(60000, 0x5A);  // continuations past any real answer
            for (int i = 0; i < 20; ++i) d.answer(0x0100, s.sequence, chunk);
            d.answer(0, s.sequence, chunk);
            return;
        }
        d.answer(0, s.sequence, monitorPayload(0x10));
    });
    CallbackResult<Code, Zelmor::MonitorData> first, second;
    auto const start = std::chrono::steady_clock::now();
    device.requestGetMonitorData(first.callback());
    device.requestGetMonitorData(second.callback());
    EXPECT_EQ(std::get<0>(first.get()), Code::RequestTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(8000));
    auto [code, data] = second.get();
    EXPECT_EQ(code, Code::Success);
    EXPECT_EQ(data.rssi, -32768);
}

TEST(RequestEngine, StopEndsInFlightAndQueuedRequestsWithTimeout) {
    ScriptedZelmor device;  // never answers
    CallbackResult<Code> inFlight, queued;
    device.requestResetEnergyMeter(inFlight.callback());
    device.requestResetCoulombMeter(queued.callback());
    while (device.sent().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    auto const start = std::chrono::steady_clock::now();
    device.stopThread();
    EXPECT_EQ(std::get<0>(inFlight.get()), Code::RequestTimeout);
    EXPECT_EQ(std::get<0>(queued.get()), Code::RequestTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4000));
    EXPECT_EQ(device.sent().size(), 1u);
}

TEST(RequestEngine, StopEndsEvenWhenFailingHandlersQueueAgain) {
    // A caller that retries every failure must not keep the stopping worker
    // busy for ever: its retries wait for the next link.
    ScriptedZelmor device;  // never answers
    std::atomic<int> failures{0};
    std::function<void(Code)> retry = [&](Code) {
        ++failures;
        device.requestResetEnergyMeter(retry);
    };
    device.requestResetEnergyMeter(retry);
    while (device.sent().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    device.stopThread();
    device.joinThread();
    // The request in flight and the retry queued before the queue was drained.
    EXPECT_EQ(failures, 2);
}

TEST(RequestEngine, RecordAnswersWithWrongLengthsOrRefusals) {
    using Bytes = std::vector<uint8_t>;
    auto const keys = &ZelmorRequest::requestGetAccessKeys;
    EXPECT_EQ(answerCode(0, Bytes(88), keys), Code::InvalidDeviceResponse);
    EXPECT_EQ(answerCode(0, Bytes(90), keys), Code::InvalidDeviceResponse);
    EXPECT_EQ(answerCode(4, Bytes(89), keys), Code::InvalidDeviceResponse);  // a refusal carries no payload
    EXPECT_EQ(answerCode(5, {}, keys), Code::LockedByMasterPassword);
    auto const schedules = &ZelmorRequest::requestGetSchedules;
    EXPECT_EQ(answerCode(3, Bytes(24), schedules), Code::InvalidDeviceResponse);
    EXPECT_EQ(answerCode(4, {}, schedules), Code::LockedByUserPassword);
    EXPECT_EQ(answerCode(0, Bytes(30), schedules), Code::Success);  // a short tail is ignored
    auto const monitor = &ZelmorRequest::requestGetMonitorData;
    EXPECT_EQ(answerCode(0, monitorPayload(0x20), monitor), Code::RequestFailed);  // a Bluetooth model's record
    EXPECT_EQ(answerCode(4, {}, monitor), Code::LockedByUserPassword);
}

TEST(RequestEngine, LockExchangeSealsTheChallengeAndTheKey) {
    std::vector<uint8_t> challenge(32);
    for (size_t i = 0; i < challenge.size(); ++i) challenge[i] = static_cast<uint8_t>(0xC0 + i);
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
        d.answer(0, s.sequence, s.command == 0x30 ? challenge : std::vector<uint8_t>{});
    });
    Zelmor::AuthKey key;
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(i);

    struct Step {
        void (ZelmorRequest::*request)(Zelmor::AuthKey const&, Zelmor::DoneCallback);
        uint16_t secondCommand;
    } const steps[] = {{&ZelmorRequest::requestUnlock, 0x31},
                       {&ZelmorRequest::requestSetUserPasswordLock, 0x33},
                       {&ZelmorRequest::requestSetMasterPasswordLock, 0x34}};
    for (auto const& step : steps) {
        CallbackResult<Code> result;
        (device.*step.request)(key, result.callback());
        EXPECT_EQ(std::get<0>(result.get()), Code::Success);
        auto const sealed = device.sent().back();
        ASSERT_EQ(sealed.command, step.secondCommand);
        ASSERT_EQ(sealed.payload.size(), 80u);
        // The device decrypts with any IV: only the random first block is lost.
        Aes256Cbc open;
        open.init(kSharedAuthenticationKey);
        auto block = sealed.payload;
        open.decrypt(block.data(), block.size());
        EXPECT_EQ(hex(std::vector<uint8_t>(block.begin() + 16, block.begin() + 48)), hex(challenge));
        EXPECT_EQ(hex(std::vector<uint8_t>(block.begin() + 48, block.end())), hex(key));
    }
    auto const sent = device.sent();
    // Same challenge, same key, yet no 16-byte block of the two seals is alike.
    auto const& a = sent[1].payload;
    auto const& b = sent[3].payload;
    for (size_t block = 0; block < 5; ++block)
        EXPECT_NE(std::vector<uint8_t>(a.begin() + 16 * block, a.begin() + 16 * (block + 1)),
                  std::vector<uint8_t>(b.begin() + 16 * block, b.begin() + 16 * (block + 1)));
}

TEST(RequestEngine, LockExchangeStopsAtABadChallenge) {
    for (size_t length : {31u, 33u}) {
        ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
            d.answer(0, s.sequence, std::vector<uint8_t>(length, 1));
        });
        CallbackResult<Code> result;
        device.requestUnlock(Zelmor::AuthKey{}, result.callback());
        EXPECT_EQ(std::get<0>(result.get()), Code::InvalidDeviceResponse) << length;
        EXPECT_EQ(device.sent().size(), 1u);
    }
    ScriptedZelmor locked([](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { d.answer(5, s.sequence); });
    CallbackResult<Code> result;
    locked.requestSetUserPasswordLock(Zelmor::AuthKey{}, result.callback());
    EXPECT_EQ(std::get<0>(result.get()), Code::LockedByMasterPassword);
    EXPECT_EQ(locked.sent().size(), 1u);
}

TEST(RequestEngine, FileListPagesUntilAnEmptyPage) {
    struct Case {
        char const* what;
        std::vector<std::pair<uint16_t, std::vector<uint8_t>>> pages;  // code, payload
        Code expected;
        size_t files;
    };
    std::vector<uint8_t> twentyBytes = descriptors({{1, 100}, {2, 200}});
    twentyBytes.insert(twentyBytes.end(), {9, 9, 9, 9});
    std::vector<Case> const cases = {
        {"no files", {{0, {}}}, Code::Success, 0},
        {"a page of 20 bytes", {{0, twentyBytes}, {0, {}}}, Code::Success, 2},
        {"three pages", {{0, descriptors({{1, 1}})}, {0, descriptors({{2, 2}, {3, 3}})}, {0, {}}}, Code::Success, 3},
        {"failure on the third page",
         {{0, descriptors({{1, 1}})}, {0, descriptors({{2, 2}})}, {3, {}}},
         Code::RequestFailed,
         0},
    };
    for (auto const& c : cases) {
        size_t page = 0;
        ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
            auto const& [code, payload] = c.pages.at(page++);
            d.answer(code, s.sequence, payload);
        });
        CallbackResult<Code, std::vector<Zelmor::LogFileDescriptor>> result;
        device.requestGetFileList(result.callback());
        auto [code, files] = result.get();
        EXPECT_EQ(code, c.expected) << c.what;
        EXPECT_EQ(files.size(), c.files) << c.what;
        auto const sent = device.sent();
        ASSERT_EQ(sent.size(), c.pages.size()) << c.what;
        for (size_t i = 0; i < sent.size(); ++i) {
            EXPECT_EQ(sent[i].command, 0x40);
            EXPECT_EQ(hex(sent[i].payload), i == 0 ? "01" : "00") << c.what;
        }
    }
}

TEST(RequestEngine, FirmwareBlocksFollowTheFamilyBlockSize) {
    struct Case {
        uint8_t revision;
        size_t imageSize;
        std::vector<size_t> blocks;
    } const cases[] = {
        {0x23, 4096, {2048, 2048}},
        {0x10, 4096, {4096}},
        {0x41, 4097, {4096, 1}},
    };
    for (auto const& c : cases) {
        std::vector<uint8_t> info;
        ByteWriter w(info);
        w.write<uint16_t>(0x0250).write<uint8_t>(c.revision);
        info.resize(isLanFamily(c.revision) ? 49 : isWifiFamily(c.revision) ? 82 : 19);
        ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
            d.answer(0, s.sequence, s.command == 0x01 ? info : std::vector<uint8_t>{});
        });
        CallbackResult<Code, Zelmor::DeviceInfo> infoResult;
        device.requestGetInfo(infoResult.callback());
        ASSERT_EQ(std::get<0>(infoResult.get()), Code::Success);

        std::vector<uint8_t> image(c.imageSize, 0x77);
        std::vector<std::pair<uint32_t, uint32_t>> progress;
        CallbackResult<Code> done;
        device.requestUpdateFirmware(
            image.data(), static_cast<uint32_t>(image.size()),
            [&](uint32_t sent, uint32_t total) {
                progress.emplace_back(sent, total);
                return true;
            },
            done.callback());
        EXPECT_EQ(std::get<0>(done.get()), Code::Success);
        auto const sent = device.sent();
        ASSERT_EQ(sent.size(), 1 + 1 + c.blocks.size() + 1);
        EXPECT_EQ(sent[1].command, 0xF0);
        EXPECT_EQ(readLe<uint32_t>(sent[1].payload.data()), c.imageSize);
        uint32_t total = 0;
        for (size_t i = 0; i < c.blocks.size(); ++i) {
            EXPECT_EQ(sent[2 + i].command, 0xF1);
            EXPECT_EQ(sent[2 + i].payload.size(), c.blocks[i]);
            total += static_cast<uint32_t>(c.blocks[i]);
            EXPECT_EQ(progress[i], std::make_pair(total, static_cast<uint32_t>(c.imageSize)));
        }
        EXPECT_EQ(sent.back().command, 0xF2);
    }
}

TEST(RequestEngine, FirmwareTransferStopsOnCancelRefusalOrDataInAnAcknowledgement) {
    struct Case {
        char const* what;
        uint16_t blockCode;
        std::vector<uint8_t> blockPayload;
        bool proceed;
        Code expected;
    } const cases[] = {
        {"cancelled after the first block", 0, {}, false, Code::Cancelled},
        {"block refused", 3, {}, true, Code::RequestFailed},
        {"acknowledgement with data", 0, {1}, true, Code::InvalidDeviceResponse},
    };
    for (auto const& c : cases) {
        ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) {
            if (s.command == 0xF1)
                d.answer(c.blockCode, s.sequence, c.blockPayload);
            else
                d.answer(0, s.sequence);
        });
        std::vector<uint8_t> image(10000, 1);
        CallbackResult<Code> done;
        device.requestUpdateFirmware(
            image.data(), static_cast<uint32_t>(image.size()), [&](uint32_t, uint32_t) { return c.proceed; },
            done.callback());
        EXPECT_EQ(std::get<0>(done.get()), c.expected) << c.what;
        auto const sent = device.sent();
        ASSERT_EQ(sent.size(), 2u) << c.what;
        EXPECT_EQ(sent.back().command, 0xF1) << c.what;
    }
}
