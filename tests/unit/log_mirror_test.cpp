// The log mirror against a scripted device that fails on demand; the network
// suite's log sync runs check the copies against the simulator.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <tuple>

#include "byte_io.h"
#include "callback_result.h"
#include "log_mirror.h"
#include "scripted_zelmor.h"
#include "temp_directory.h"

using Bytes = std::vector<uint8_t>;
using Files = std::map<uint32_t, Bytes>;

namespace {

constexpr uint64_t kSerial = 0x00A1B2C3D4E5F607;

/// The file's bytes; none when there is no file.
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

using Read = std::tuple<uint32_t, uint32_t, uint32_t>;  // file id, offset, length

struct RunResult {
    LogMirror::Outcome outcome;
    std::vector<std::pair<uint64_t, uint64_t>> progress;
};

enum class Fault { RefuseRead, LoseFrame, Empty };
constexpr Zelmor::ResponseCode kRefusal = Zelmor::ResponseCode::LockedByUserPassword;

/// A device log served by the request engine's scripted transport. The list
/// can be refused, and the read of a file at an offset can fail as `faults`
/// says: refused, short of a frame, or empty. The test reads `reads` once a run is done.
struct ScriptedLog {
    Files files;
    std::map<std::pair<uint32_t, uint32_t>, Fault> faults;
    bool refuseList = false;
    std::vector<Read> reads{};

    void respond(ScriptedZelmor& device, ScriptedZelmor::Sent const& sent) {
        if (sent.command == 0x40) {
            Bytes page;
            if (sent.payload.at(0) == 1)
                for (auto const& [id, content] : files)
                    ByteWriter(page).write<uint32_t>(id).write<uint32_t>(static_cast<uint32_t>(content.size()));
            device.answer(refuseList ? static_cast<uint16_t>(kRefusal) : 0, sent.sequence, page);
            return;
        }
        uint32_t const id = readLe<uint32_t>(sent.payload.data());
        uint32_t const offset = readLe<uint32_t>(sent.payload.data() + 4);
        uint32_t const length = readLe<uint32_t>(sent.payload.data() + 8);
        reads.emplace_back(id, offset, length);
        auto const fault = faults.find({id, offset});
        if (fault != faults.end() && fault->second == Fault::RefuseRead) {
            device.answer(static_cast<uint16_t>(kRefusal), sent.sequence);
            return;
        }
        // A block short of a frame is what the engine hands on when a continuation
        // frame was lost; an empty one, what a device answers for a file that shrank.
        Bytes const& content = files.at(id);
        size_t const end = std::min<size_t>(content.size(), size_t{offset} + length);
        size_t const lost = fault == faults.end() ? 0 : fault->second == Fault::Empty ? end - offset : 1024;
        device.answer(
            0, sent.sequence,
            Bytes(content.begin() + static_cast<long>(offset), content.begin() + static_cast<long>(end - lost)));
    }
};

RunResult mirror(ScriptedLog& log, std::filesystem::path const& root, uint8_t revision) {
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { log.respond(d, s); });
    auto progress = std::make_shared<std::vector<std::pair<uint64_t, uint64_t>>>();
    CallbackResult<LogMirror::Outcome> result;
    LogMirror(device, root, kSerial, revision)
        .start([progress](uint64_t done, uint64_t total) { progress->emplace_back(done, total); }, result.callback());
    return {std::get<0>(result.get()), *progress};
}

}  // namespace

// A file for each case: 1 is empty, 2 copied already, 3 longer here than on
// the device (never truncated), 0x2a copied in part; in the first run 7 has its
// second block refused, 8 its first short of a frame and 9 its first empty,
// which leaves them partial. The second run resumes at each copy's length.
TEST(LogMirror, CopiesOnlyWhatIsMissingAndResumesWhereACopyEnds) {
    Files device;
    for (auto [id, size] :
         {std::pair<uint32_t, size_t>{1, 0}, {2, 5000}, {3, 20}, {7, 10000}, {8, 9000}, {9, 3000}, {0x2a, 9000}})
        device[id] = pattern(size, static_cast<uint8_t>(id));
    Bytes const longer = pattern(50, 0xEE), growing = device.at(0x2a);
    TempDirectory root;
    std::filesystem::path const dir = root.path() / "a1b2c3d4e5f607";
    writeFile(dir / logFileName(2), device.at(2));
    writeFile(dir / logFileName(3), longer);
    writeFile(dir / logFileName(0x2a), Bytes(growing.begin(), growing.begin() + 1000));
    ScriptedLog log{device, {{{7, 4096}, Fault::RefuseRead}, {{8, 0}, Fault::LoseFrame}, {{9, 0}, Fault::Empty}}};

    RunResult const first = mirror(log, root.path(), 0x23);
    EXPECT_EQ(first.outcome.filesComplete, 4u);
    EXPECT_EQ(first.outcome.filesIncomplete, 3u);
    EXPECT_EQ(first.outcome.firstFailure, kRefusal);
    EXPECT_EQ(log.reads,
              (std::vector<Read>{
                  {7, 0, 4096}, {7, 4096, 4096}, {8, 0, 4096}, {9, 0, 4096}, {0x2a, 1000, 4096}, {0x2a, 5096, 4096}}));
    EXPECT_EQ(readFile(dir / logFileName(7)), Bytes(device.at(7).begin(), device.at(7).begin() + 4096));
    for (uint32_t id : {8, 9}) EXPECT_TRUE(readFile(dir / logFileName(id)).empty()) << id;

    log.faults.clear();
    RunResult const second = mirror(log, root.path(), 0x23);
    EXPECT_TRUE(second.outcome.complete());
    EXPECT_EQ(second.outcome.bytesFetched, 5904u + 9000u + 3000u);
    EXPECT_EQ(second.progress.front(), std::make_pair(uint64_t{0}, uint64_t{17904}));
    EXPECT_EQ(second.progress.back(), std::make_pair(uint64_t{17904}, uint64_t{17904}));
    for (auto const& [id, content] : device) {
        EXPECT_EQ(readFile(dir / logFileName(id)), id == 3 ? longer : content) << id;
    }
}

// A refused list copies nothing. The network models read in 128 KiB blocks.
TEST(LogMirror, RefusedListCopiesNothing) {
    TempDirectory root;
    ScriptedLog log{{{1, pattern(10, 0)}}, {}, true};
    RunResult const refused = mirror(log, root.path(), 0x10);
    EXPECT_EQ(refused.outcome.firstFailure, kRefusal);
    EXPECT_EQ(refused.outcome.filesComplete + refused.outcome.filesIncomplete, 0u);
    EXPECT_FALSE(std::filesystem::exists(root.path() / "a1b2c3d4e5f607"));

    log.refuseList = false;
    EXPECT_TRUE(mirror(log, root.path(), 0x10).outcome.complete());
    EXPECT_EQ(log.reads, (std::vector<Read>{{1, 0, 131072}}));
}
