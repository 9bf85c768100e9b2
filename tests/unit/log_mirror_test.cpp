// The log mirror: copies of a device's data log that grow run by run, against
// a scripted device (exact requests, failures on demand) and the simulated one.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>

#include "byte_io.h"
#include "callback_result.h"
#include "in_process_zelmor.h"
#include "log_mirror.h"
#include "scripted_zelmor.h"
#include "simulated_device.h"

using Code = Zelmor::ResponseCode;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr uint64_t kSerial = 0x00A1B2C3D4E5F607;

/// A fresh folder under the test's temporary directory, removed afterwards.
class TempDirectory {
public:
    TempDirectory() {
        std::random_device random;
        path_ = std::filesystem::path(testing::TempDir()) / ("log_mirror_" + std::to_string(random()));
        std::filesystem::create_directories(path_);
    }
    ~TempDirectory() { std::filesystem::remove_all(path_); }
    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};

Bytes readFile(std::filesystem::path const& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(std::filesystem::path const& path, Bytes const& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes pattern(size_t length, uint8_t seed) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + seed);
    return bytes;
}

struct Read {
    uint32_t id, offset, length;
    bool operator==(Read const&) const = default;
    friend std::ostream& operator<<(std::ostream& out, Read const& r) {
        return out << r.id << "@" << r.offset << "+" << r.length;
    }
};

/// A device log served by the request engine's scripted transport, answers
/// split into 4 KiB frames as a device sends them. A read of a chosen block can
/// be refused or lose one of its frames, and every read is recorded.
class ScriptedLog {
public:
    explicit ScriptedLog(std::map<uint32_t, Bytes> files) : files_(std::move(files)) {}

    /// The read of file `id` at `offset` is answered with `code` (Success: served again).
    void refuseRead(uint32_t id, uint32_t offset, Code code) {
        std::lock_guard lock(mutex_);
        refusals_[{id, offset}] = code;
    }
    /// The next read of file `id` at `offset` loses its first frame.
    void loseFrame(uint32_t id, uint32_t offset) {
        std::lock_guard lock(mutex_);
        losses_.insert({id, offset});
    }
    void refuseList(Code code) { listRefusal_ = code; }

    std::vector<Read> reads() {
        std::lock_guard lock(mutex_);
        return reads_;
    }

    void respond(ScriptedZelmor& device, ScriptedZelmor::Sent const& sent) {
        if (sent.command == 0x40) {
            Bytes page;
            ByteWriter writer(page);
            if (sent.payload.at(0) == 1)
                for (auto const& [id, content] : files_)
                    writer.write<uint32_t>(id).write<uint32_t>(static_cast<uint32_t>(content.size()));
            device.answer(static_cast<uint16_t>(listRefusal_), sent.sequence,
                          listRefusal_ == Code::Success ? page : Bytes{});
            return;
        }
        Read const read{readLe<uint32_t>(sent.payload.data()), readLe<uint32_t>(sent.payload.data() + 4),
                        readLe<uint32_t>(sent.payload.data() + 8)};
        Code refusal = Code::Success;
        bool lose = false;
        {
            std::lock_guard lock(mutex_);
            reads_.push_back(read);
            if (auto it = refusals_.find({read.id, read.offset}); it != refusals_.end()) refusal = it->second;
            lose = losses_.erase({read.id, read.offset}) > 0;
        }
        if (refusal != Code::Success) {
            device.answer(static_cast<uint16_t>(refusal), sent.sequence);
            return;
        }
        Bytes const& content = files_.at(read.id);
        size_t const end = std::min<size_t>(content.size(), size_t{read.offset} + read.length);
        for (size_t at = read.offset; at < end; at += kFrame) {
            bool const last = at + kFrame >= end;
            if (lose && at == read.offset && !last) continue;
            device.answer(last ? 0 : 0x0100, sent.sequence,
                          Bytes(content.begin() + static_cast<long>(at),
                                content.begin() + static_cast<long>(std::min(at + kFrame, end))));
        }
    }

private:
    static constexpr size_t kFrame = 4096;

    std::map<uint32_t, Bytes> const files_;
    Code listRefusal_ = Code::Success;
    std::mutex mutex_;
    std::map<std::pair<uint32_t, uint32_t>, Code> refusals_;
    std::set<std::pair<uint32_t, uint32_t>> losses_;
    std::vector<Read> reads_;
};

struct RunResult {
    LogMirror::Outcome outcome;
    std::vector<std::pair<uint64_t, uint64_t>> progress;
};

RunResult mirror(Zelmor& device, std::filesystem::path const& root, uint8_t revision) {
    auto progress = std::make_shared<std::vector<std::pair<uint64_t, uint64_t>>>();
    CallbackResult<LogMirror::Outcome> result;
    LogMirror(device, root, kSerial, revision)
        .start([progress](uint64_t done, uint64_t total) { progress->emplace_back(done, total); }, result.callback());
    auto [outcome] = result.get();
    return {outcome, *progress};
}

}  // namespace

TEST(LogMirror, CopiesOnlyWhatIsMissingAndNeverTruncates) {
    TempDirectory root;
    std::filesystem::path const dir = root.path() / "a1b2c3d4e5f607";
    Bytes const complete = pattern(5000, 1), growing = pattern(9000, 2), shorter = pattern(20, 3);
    ScriptedLog log({{1, {}}, {2, complete}, {3, shorter}, {0x2a, growing}});
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { log.respond(d, s); });
    writeFile(dir / "r00000002.log", complete);
    Bytes const longer = pattern(50, 9);
    writeFile(dir / "r00000003.log", longer);
    writeFile(dir / "r0000002a.log", Bytes(growing.begin(), growing.begin() + 1000));

    RunResult const run = mirror(device, root.path(), 0x23);
    EXPECT_TRUE(run.outcome.complete());
    EXPECT_EQ(run.outcome.filesComplete, 4u);
    EXPECT_EQ(run.outcome.bytesFetched, 8000u);

    EXPECT_TRUE(std::filesystem::exists(dir / "r00000001.log"));
    EXPECT_TRUE(readFile(dir / "r00000001.log").empty());
    EXPECT_EQ(readFile(dir / "r00000002.log"), complete);
    EXPECT_EQ(readFile(dir / "r00000003.log"), longer);
    EXPECT_EQ(readFile(dir / "r0000002a.log"), growing);

    // Only the missing part of file 0x2a was asked for, in 4 KiB blocks from the local length.
    EXPECT_EQ(log.reads(), (std::vector<Read>{{0x2a, 1000, 4096}, {0x2a, 5096, 4096}}));

    ASSERT_FALSE(run.progress.empty());
    for (auto const& [done, total] : run.progress) EXPECT_EQ(total, 8000u);
    EXPECT_EQ(run.progress.front().first, 0u);
    EXPECT_EQ(run.progress.back().first, 8000u);

    RunResult const again = mirror(device, root.path(), 0x23);
    EXPECT_TRUE(again.outcome.complete());
    EXPECT_EQ(again.outcome.bytesFetched, 0u);
    EXPECT_EQ(log.reads().size(), 2u);
}

TEST(LogMirror, FailedOrShortBlockLeavesTheFilePartialUntilTheNextRun) {
    TempDirectory root;
    std::filesystem::path const dir = root.path() / "a1b2c3d4e5f607";
    Bytes const first = pattern(300000, 4), second = pattern(140000, 5);
    ScriptedLog log({{7, first}, {8, second}});
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { log.respond(d, s); });
    log.refuseRead(7, 131072, Code::LockedByUserPassword);
    log.loseFrame(8, 0);

    RunResult const partial = mirror(device, root.path(), 0x41);
    EXPECT_FALSE(partial.outcome.complete());
    EXPECT_EQ(partial.outcome.firstFailure, Code::LockedByUserPassword);
    EXPECT_EQ(partial.outcome.filesComplete, 0u);
    EXPECT_EQ(partial.outcome.filesIncomplete, 2u);
    EXPECT_EQ(readFile(dir / "r00000007.log"), Bytes(first.begin(), first.begin() + 131072));
    EXPECT_TRUE(readFile(dir / "r00000008.log").empty());
    EXPECT_EQ(log.reads().front().length, 131072u);

    log.refuseRead(7, 131072, Code::Success);
    RunResult const rest = mirror(device, root.path(), 0x41);
    EXPECT_TRUE(rest.outcome.complete());
    uint64_t const missing = first.size() - 131072 + second.size();
    EXPECT_EQ(rest.progress.back(), std::make_pair(missing, missing));
    EXPECT_EQ(readFile(dir / "r00000007.log"), first);
    EXPECT_EQ(readFile(dir / "r00000008.log"), second);
}

TEST(LogMirror, RefusedListCopiesNothing) {
    TempDirectory root;
    ScriptedLog log({{1, pattern(10, 0)}});
    log.refuseList(Code::LockedByUserPassword);
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { log.respond(d, s); });
    RunResult const run = mirror(device, root.path(), 0x10);
    EXPECT_EQ(run.outcome.firstFailure, Code::LockedByUserPassword);
    EXPECT_EQ(run.outcome.filesComplete + run.outcome.filesIncomplete, 0u);
    EXPECT_FALSE(std::filesystem::exists(root.path() / "a1b2c3d4e5f607"));
}

TEST(LogMirror, MirrorsTheSimulatedDeviceByteForByte) {
    TempDirectory root;
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x10;
    config.serial = kSerial;
    config.historyDays = 4;
    config.clock = [] { return int64_t{1763800000}; };
    sim::SimulatedDevice simulated(config);
    InProcessZelmor device(simulated);
    CallbackResult<> connected;
    device.setConnectedCallback(connected.callback());
    device.connectLan(0);
    connected.get();

    RunResult const run = mirror(device, root.path(), config.hardwareRevision);
    EXPECT_TRUE(run.outcome.complete());
    auto const files = simulated.logFiles();
    ASSERT_GE(files.size(), 4u);
    EXPECT_EQ(run.outcome.filesComplete, files.size());
    for (auto const& file : files)
        EXPECT_EQ(readFile(root.path() / "a1b2c3d4e5f607" / logFileName(file.id)), simulated.logFile(file.id))
            << file.id;
}
