// log sync over links that fail: a link that the device closes in the middle
// of several megabytes, and a link that loses and corrupts answers. Runs are
// repeated until one completes; the copies must then be byte for byte the
// device's files, as read independently through the library.
#include <arpa/inet.h>
#include <fmt/core.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

#include "callback_result.h"
#include "device_link.h"
#include "zelmor_impl.h"
#include "zelmorctl_fleet.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Code = Zelmor::ResponseCode;
using Files = std::map<std::string, Bytes>;  // by local file name

// Longest a request of the engine takes before it fails on its own.
constexpr auto kRequestLimit = std::chrono::seconds(15);

Bytes readFile(std::filesystem::path const& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Files localFiles(std::filesystem::path const& folder) {
    Files files;
    for (auto const& entry : std::filesystem::directory_iterator(folder))
        files[entry.path().filename().string()] = readFile(entry.path());
    return files;
}

/// Every log file of a device as the device holds it, read with the library in
/// reads of one answer frame each, over as many links as it takes: a failed
/// request drops the link and the next link goes on where the last one stopped.
Files deviceFiles(std::function<void(ZelmorImpl&)> const& connect) {
    std::vector<Zelmor::LogFileDescriptor> list;
    std::map<uint32_t, Bytes> content;
    for (int link = 0; link < 200; ++link) {
        ZelmorImpl device("127.0.0.1");
        CallbackResult<> connected;
        device.setConnectedCallback(connected.callback());
        connect(device);
        try {
            connected.get(kRequestLimit);
            if (list.empty()) {
                CallbackResult<Code, std::vector<Zelmor::LogFileDescriptor>> listed;
                device.requestGetFileList(listed.callback());
                auto const answer = listed.get(kRequestLimit);
                if (std::get<0>(answer) != Code::Success) continue;
                list = std::get<1>(answer);
            }
            bool failed = false;
            for (auto const& file : list) {
                Bytes& bytes = content[file.fileId];
                while (!failed && bytes.size() < file.size) {
                    CallbackResult<Code, Bytes> read;
                    device.requestReadLogFile(file.fileId, static_cast<uint32_t>(bytes.size()), 4096,
                                              [done = read.callback()](Code code, uint8_t const* data, size_t n) {
                                                  done(code, Bytes(data, data + n));
                                              });
                    auto const [code, block] = read.get(kRequestLimit);
                    failed = code != Code::Success || block.empty();
                    if (!failed) bytes.insert(bytes.end(), block.begin(), block.end());
                }
            }
            if (failed) continue;
            Files files;
            for (auto const& [id, bytes] : content) files[fmt::format("r{:08x}.log", id)] = bytes;
            return files;
        } catch (std::runtime_error const&) {
            // The link ended under a request that will never be answered.
        }
    }
    ADD_FAILURE() << "the device's log could not be read";
    return {};
}

/// The copies must be the device's files; the newest file may have grown on
/// the device since it was copied.
void expectCopies(Files const& copies, Files const& device) {
    ASSERT_EQ(copies.size(), device.size());
    for (auto const& [name, bytes] : device) {
        auto const copy = copies.find(name);
        ASSERT_NE(copy, copies.end()) << name;
        if (name == device.rbegin()->first && copy->second.size() < bytes.size())
            EXPECT_EQ(copy->second, Bytes(bytes.begin(), bytes.begin() + static_cast<long>(copy->second.size())));
        else
            EXPECT_EQ(copy->second, bytes) << name;
    }
}

std::filesystem::path freshDirectory() {
    std::random_device random;
    auto const path = std::filesystem::path(testing::TempDir()) / ("zelmorctl_sync_" + std::to_string(random()));
    std::filesystem::create_directories(path);
    return path;
}

std::string folderOf(std::string serial) {
    serial.erase(0, serial.find_first_not_of('0'));
    for (char& c : serial) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return serial;
}

}  // namespace

TEST(ZelmorctlLogSync, InterruptedSyncResumesToIdenticalCopies) {
    // 150 days of one record a minute: 3.9 MB, and every link ends after 1.5 MB.
    SimFleet fleet({"--no-announce", "--device", "V,history=150,close-after=1500000"});
    std::string const address = fleet.device(0).address;
    auto const root = freshDirectory();
    auto const folder = root / folderOf(fleet.device(0).serial);

    ProgramRun const first = zelmorctl({"--lan", address, "log", "sync", root.string()});
    EXPECT_EQ(first.status, 3);
    EXPECT_EQ(first.err, "Device disconnected\n");
    uintmax_t copied = 0;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) copied += entry.file_size();
    EXPECT_GT(copied, 1000000u);
    EXPECT_LT(copied, 1500000u);

    int runs = 1;
    for (ProgramRun run = first; run.status != 0 && runs < 10; ++runs) {
        run = zelmorctl({"--lan", address, "log", "sync", root.string()});
        ASSERT_TRUE(run.status == 0 || run.err == "Device disconnected\n") << run.err;
    }
    EXPECT_GT(runs, 2);
    expectCopies(localFiles(folder),
                 deviceFiles([&](ZelmorImpl& device) { device.connectLan(::inet_addr(address.c_str())); }));
    std::filesystem::remove_all(root);
}

TEST(ZelmorctlLogSync, LossyLinkConvergesOverRepeatedRuns) {
    // Four days of log in answers of seven frames, 5 % of frames lost and 1 %
    // corrupted; through the hub, whose frames carry a checksum.
    SimFleet fleet({"--no-announce", "--device", "V,history=4,drop=0.05,corrupt=0.01"});
    std::string const link = fleet.device(0).link;
    auto const root = freshDirectory();

    ProgramRun run;
    for (int runs = 0; run.status != 0 && runs < 30; ++runs) {
        run = zelmorctl({"--link", link, "log", "sync", root.string()});
        ASSERT_TRUE(run.status.has_value()) << "zelmorctl hung";
        EXPECT_NE(run.status, 2) << run.err;
    }
    ASSERT_EQ(run.status, 0) << run.err;
    auto const id = parseDeviceLink(link).identifier;
    ASSERT_TRUE(id);
    expectCopies(localFiles(root / folderOf(fleet.device(0).serial)), deviceFiles([&](ZelmorImpl& device) {
                     device.connectHub({id->channelId, id->key});
                 }));
    std::filesystem::remove_all(root);
}
