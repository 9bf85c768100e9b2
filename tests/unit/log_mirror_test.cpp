// The log sync engine against a scripted device that fails on demand; the network
// suite's log sync runs check the copies against the simulator.
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <iterator>
#include <map>
#include <thread>
#include <tuple>

#include "byte_io.h"
#include "callback_result.h"
#include "log_mirror.h"
#include "scripted_zelmor.h"
#include "temp_directory.h"

using Bytes = std::vector<uint8_t>;
using Files = std::map<uint32_t, Bytes>;
using Lengths = std::map<uint32_t, size_t>;  // file id -> length

namespace {

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

enum class Fault { RefuseRead, LoseFrame, Empty };
constexpr Zelmor::ResponseCode kRefusal = Zelmor::ResponseCode::LockedByUserPassword;

/// A device log served by the request engine's scripted transport. The list
/// can be refused, and the read of a file at an offset can fail as `faults`
/// says: refused, short of a frame, or empty. The `holdRead`th read waits for
/// `release` before it is answered. The test reads `reads` once a sync is done.
struct ScriptedLog {
    Files files;
    std::map<std::pair<uint32_t, uint32_t>, Fault> faults;
    bool refuseList = false;
    size_t holdRead = 0;
    std::vector<Read> reads{};
    std::promise<void> held{};
    std::shared_future<void> release{};

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
        if (reads.size() == holdRead) {
            held.set_value();
            release.wait();
        }
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

/// One sync; with `holdRead`, stopSync is called on another thread while
/// that read waits for its answer.
LogMirror::Outcome mirror(ScriptedLog& log, std::filesystem::path const& dir, uint8_t revision) {
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { log.respond(d, s); });
    LogMirror engine(device);
    CallbackResult<LogMirror::Outcome> result;
    std::promise<void> release;
    log.held = {};
    log.release = release.get_future().share();
    engine.startSync(dir, revision, {{}, {}, result.callback()});
    if (log.holdRead > 0) {
        log.held.get_future().wait();
        std::thread stopper([&] { engine.stopSync(); });
        while (engine.syncEnabled()) std::this_thread::yield();
        release.set_value();
        stopper.join();
        EXPECT_FALSE(engine.syncing());
    }
    return std::get<0>(result.get());
}

struct Case {
    char const* name;
    Lengths device;
    Lengths local;  // before: a prefix of the device's file, or other bytes when longer
    std::map<std::pair<uint32_t, uint32_t>, Fault> faults;
    std::vector<Read> reads;
    uint64_t total;
    Lengths after;  // the copies after the first sync
    bool schedulesNext = true;
    bool refuseList = false;
    size_t holdRead = 0;
    uint8_t revision = 0x23;
};

}  // namespace

// Each case syncs once as told, then once more without faults: that sync
// resumes at each copy's length and completes every copy.
TEST(LogMirror, SyncsOnlyWhatIsMissingAndResumesWhereACopyEnds) {
    Case const cases[] = {
        {"empty device file", {{1, 0}, {2, 5000}}, {}, {}, {{2, 0, 4096}, {2, 4096, 4096}}, 5000, {{1, 0}, {2, 5000}}},
        {"copy as long", {{2, 5000}, {3, 100}}, {{2, 5000}}, {}, {{3, 0, 4096}}, 100, {{2, 5000}, {3, 100}}},
        {"all complete", {{1, 0}, {2, 5000}}, {{2, 5000}}, {}, {}, 0, {{2, 5000}}, false},
        {"copy longer", {{3, 20}, {4, 10}}, {{3, 50}}, {}, {{4, 0, 4096}}, 10, {{3, 50}, {4, 10}}},
        {"refused block",
         {{7, 10000}, {8, 300}},
         {},
         {{{7, 4096}, Fault::RefuseRead}},
         {{7, 0, 4096}, {7, 4096, 4096}, {8, 0, 4096}},
         10300,
         {{7, 4096}, {8, 300}}},
        {"lost frame", {{8, 9000}}, {}, {{{8, 0}, Fault::LoseFrame}}, {{8, 0, 4096}}, 9000, {{8, 0}}},
        {"empty block", {{9, 3000}}, {}, {{{9, 0}, Fault::Empty}}, {{9, 0, 4096}}, 3000, {{9, 0}}},
        {"refused list", {{1, 10}}, {}, {}, {}, 0, {}, false, true},
        {"stopped",
         {{5, 20000}, {6, 10}},
         {},
         {},
         {{5, 0, 4096}, {5, 4096, 4096}, {5, 8192, 4096}},
         20010,
         {{5, 8192}},
         false,
         false,
         3},
        {"network model", {{1, 10}}, {}, {}, {{1, 0, 131072}}, 10, {{1, 10}}, true, false, 0, 0x41},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        TempDirectory root;
        std::filesystem::path const dir = root.path() / "a1b2c3d4e5f607";
        ScriptedLog log{{}, c.faults, c.refuseList, c.holdRead};
        for (auto [id, size] : c.device) log.files[id] = pattern(size, static_cast<uint8_t>(id));
        auto const copy = [&](uint32_t id, size_t length) {
            Bytes const& content = log.files.at(id);
            return length > content.size() ? pattern(length, 0xEE) : Bytes(content.begin(), content.begin() + length);
        };
        for (auto [id, length] : c.local) writeFile(dir / logFileName(id), copy(id, length));

        LogMirror::Outcome const first = mirror(log, dir, c.revision);
        EXPECT_EQ(log.reads, c.reads);
        EXPECT_EQ(first.bytesPlanned, c.total);
        EXPECT_EQ(first.schedulesNext(), c.schedulesNext);
        Lengths after;
        std::error_code noFolder;  // a refused list makes none
        for (auto const& entry : std::filesystem::directory_iterator(dir, noFolder)) {
            auto const id = static_cast<uint32_t>(std::stoul(entry.path().filename().string().substr(1, 8), {}, 16));
            after[id] = entry.file_size();
            EXPECT_EQ(readFile(entry.path()), copy(id, after[id])) << id;
        }
        EXPECT_EQ(after, c.after);

        log = ScriptedLog{log.files, {}};
        EXPECT_TRUE(mirror(log, dir, c.revision).complete());
        for (auto [id, size] : c.device)
            EXPECT_EQ(readFile(dir / logFileName(id)),
                      copy(id, c.local.count(id) ? std::max(size, c.local.at(id)) : size));
    }
}
