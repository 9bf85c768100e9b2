// The application's local store: the remote devices in cloud_devices.cfg (what
// is read back, what is written and how) and the folders of the data log copies.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "device_link.h"
#include "local_store.h"

namespace {

using Identifier = Zelmor::DeviceIdentifier;
namespace fs = std::filesystem;

constexpr char const* kFile = "cloud_devices.cfg";
constexpr uid_t kNobody = 65534;

/// A fresh folder under the test's temporary directory, removed afterwards.
class TempDirectory {
public:
    TempDirectory() {
        std::random_device random;
        path_ = fs::path(testing::TempDir()) / ("local_store_" + std::to_string(random()));
        fs::create_directories(path_);
    }
    ~TempDirectory() {
        std::error_code ignored;
        fs::permissions(path_ / "zlmr", fs::perms::owner_all, ignored);
        fs::remove_all(path_, ignored);
    }
    fs::path const& path() const { return path_; }

private:
    fs::path path_;
};

Identifier device(char const* name, uint64_t serial, uint8_t revision, uint8_t keySeed) {
    Identifier id;
    id.name = name;
    id.serial = serial;
    id.hardwareRevision = revision;
    for (size_t i = 0; i < id.channelId.size(); ++i) id.channelId[i] = static_cast<uint8_t>(keySeed + i);
    for (size_t i = 0; i < id.key.size(); ++i) id.key[i] = static_cast<uint8_t>(keySeed * 3 + i);
    return id;
}

Identifier const kBoat = device("Boat", 0x1A2B, 0x41, 1);
Identifier const kVan = device("Van", 0x00A1B2C3D4E5F607, 0x10, 2);
Identifier const kCabin = device("Cabin", 0xAB, 0x42, 3);

std::string readText(fs::path const& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeText(fs::path const& path, std::string const& text) { std::ofstream(path, std::ios::binary) << text; }

std::string linesOf(std::vector<Identifier> const& ids) {
    std::string text;
    for (auto const& id : ids) text += makeDeviceLink(id) + "\n";
    return text;
}

fs::perms modeOf(fs::path const& path) { return fs::status(path).permissions() & fs::perms::mask; }

/// Names in `dir` other than `kept`: what a failed save must not leave behind.
std::vector<std::string> strayFiles(fs::path const& dir, std::string const& kept) {
    std::vector<std::string> names;
    for (auto const& entry : fs::directory_iterator(dir))
        if (entry.path().filename() != kept) names.push_back(entry.path().filename().string());
    return names;
}

class LocalStoreTest : public testing::Test {
protected:
    fs::path dataDir() const { return temp_.path() / "zlmr"; }
    fs::path file() const { return dataDir() / kFile; }
    // The data directory with this text in its cloud_devices.cfg.
    fs::path withFile(std::string const& text) const {
        fs::create_directory(dataDir());
        writeText(file(), text);
        return dataDir();
    }

private:
    TempDirectory temp_;
};

TEST_F(LocalStoreTest, CreatesItsDataDirectoryButNotItsParents) {
    LocalStore store(dataDir());
    EXPECT_TRUE(fs::is_directory(dataDir()));
    EXPECT_TRUE(store.remoteDevices().empty());
    EXPECT_FALSE(fs::exists(file()));
    EXPECT_EQ(store.dataDir(), dataDir());

    LocalStore orphan(dataDir() / "missing" / "zlmr");
    EXPECT_FALSE(fs::exists(dataDir() / "missing"));
    EXPECT_TRUE(orphan.remoteDevices().empty());
    EXPECT_FALSE(orphan.saveRemoteDevices());
}

TEST_F(LocalStoreTest, LoadsValidLinksInFileOrderKeepingDuplicates) {
    std::string const text = makeDeviceLink(kBoat) + "\n\nnot a link\n" + makeDeviceLink(kVan) + "\r\n   \n" +
                             "https://zelmor.link?n=00\n  " + makeDeviceLink(kBoat) + "  \n" + makeDeviceLink(kCabin);
    LocalStore store(withFile(text));
    EXPECT_EQ(store.remoteDevices(), (std::vector<Identifier>{kBoat, kVan, kBoat, kCabin}));
}

TEST_F(LocalStoreTest, EmptyOrInvalidFileGivesNoDevicesAndIsWrittenEmpty) {
    for (std::string const text : {"", "\n\n", "garbage\nhttps://zelmor.link?s=1\n"}) {
        LocalStore store(withFile(text));
        EXPECT_TRUE(store.remoteDevices().empty()) << text;
        EXPECT_EQ(readText(file()), text);
        EXPECT_TRUE(store.saveRemoteDevices());
        EXPECT_EQ(readText(file()), "") << text;
    }
}

TEST_F(LocalStoreTest, AddingAppendsANewDeviceAndWritesOneLinkPerLine) {
    LocalStore store(dataDir());
    EXPECT_TRUE(store.addRemoteDevice(kBoat));
    EXPECT_TRUE(store.addRemoteDevice(kVan));
    EXPECT_EQ(store.remoteDevices(), (std::vector<Identifier>{kBoat, kVan}));
    EXPECT_EQ(readText(file()), makeDeviceLink(kBoat) + "\n" + makeDeviceLink(kVan) + "\n");
    EXPECT_EQ(LocalStore(dataDir()).remoteDevices(), store.remoteDevices());
}

TEST_F(LocalStoreTest, AddingAKnownDeviceReplacesOnlyItsFirstEntry) {
    LocalStore store(withFile(linesOf({kVan, kBoat, kCabin, kBoat})));
    EXPECT_TRUE(store.addRemoteDevice(kBoat));
    EXPECT_EQ(store.remoteDevices(), (std::vector<Identifier>{kVan, kBoat, kCabin, kBoat}));
    EXPECT_EQ(readText(file()), linesOf({kVan, kBoat, kCabin, kBoat}));

    // Equal means equal in every field: a new name makes a new entry.
    Identifier renamed = kBoat;
    renamed.name = "Sailboat";
    EXPECT_TRUE(store.addRemoteDevice(renamed));
    EXPECT_EQ(store.remoteDevices().back(), renamed);
    EXPECT_EQ(store.remoteDevices().size(), 5u);
}

TEST_F(LocalStoreTest, RemovingErasesTheEntryAtTheIndex) {
    LocalStore store(withFile(linesOf({kBoat, kVan, kBoat})));
    EXPECT_TRUE(store.removeRemoteDevice(2));
    EXPECT_EQ(store.remoteDevices(), (std::vector<Identifier>{kBoat, kVan}));
    EXPECT_EQ(readText(file()), linesOf({kBoat, kVan}));
    EXPECT_TRUE(store.removeRemoteDevice(0));
    EXPECT_TRUE(store.removeRemoteDevice(0));
    EXPECT_TRUE(store.remoteDevices().empty());
    EXPECT_EQ(readText(file()), "");
}

TEST_F(LocalStoreTest, ObserverSeesEveryChangeAfterItIsSaved) {
    LocalStore store(withFile(linesOf({kBoat})));
    std::vector<std::string> seen;
    store.setRemoteDevicesObserver([&] { seen.push_back(readText(file())); });
    store.loadRemoteDevices();
    EXPECT_TRUE(store.saveRemoteDevices());
    EXPECT_FALSE(store.removeRemoteDevice(1));
    EXPECT_TRUE(seen.empty());

    store.addRemoteDevice(kVan);
    store.addRemoteDevice(kVan);
    store.removeRemoteDevice(0);
    EXPECT_EQ(seen, (std::vector<std::string>{linesOf({kBoat, kVan}), linesOf({kBoat, kVan}), linesOf({kVan})}));
}

TEST_F(LocalStoreTest, SavedFileIsPrivateToTheUser) {
    LocalStore store(withFile(linesOf({kBoat})));
    fs::permissions(file(), fs::perms::all);
    EXPECT_TRUE(store.addRemoteDevice(kVan));
    EXPECT_EQ(modeOf(file()), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(strayFiles(dataDir(), kFile).empty());

    mode_t const previous = ::umask(0);
    bool const saved = store.saveRemoteDevices();
    ::umask(previous);
    EXPECT_TRUE(saved);
    EXPECT_EQ(modeOf(file()), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(LocalStoreTest, UnwritableDirectoryKeepsTheOldFile) {
    std::string const old = linesOf({kBoat, kVan});
    LocalStore store(withFile(old));
    fs::permissions(dataDir(), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                   fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
    // Root writes anywhere: the save runs in a child that has given up root.
    EXPECT_EXIT(
        {
            if (::geteuid() == 0 && (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) std::_Exit(2);
            std::_Exit(store.addRemoteDevice(kCabin) ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(readText(file()), old);
    EXPECT_TRUE(strayFiles(dataDir(), kFile).empty());
}

TEST_F(LocalStoreTest, FailedReplaceLeavesNoTemporaryFile) {
    LocalStore store(dataDir());
    fs::create_directory(file());
    EXPECT_FALSE(store.addRemoteDevice(kBoat));
    EXPECT_EQ(store.remoteDevices(), std::vector<Identifier>{kBoat});
    EXPECT_TRUE(fs::is_directory(file()));
    EXPECT_TRUE(strayFiles(dataDir(), kFile).empty());
}

TEST_F(LocalStoreTest, DeviceLogFolderIsNamedByTheSerialInHex) {
    LocalStore store(dataDir());
    EXPECT_TRUE(store.deviceLogDir().empty());

    store.setCurrentDevice(0xAB);
    EXPECT_EQ(store.deviceLogDir(), dataDir() / "ab");
    EXPECT_TRUE(fs::is_directory(dataDir() / "ab"));
    EXPECT_EQ(store.logFilePath(0x1F), dataDir() / "ab" / "r0000001f.log");
    EXPECT_EQ(store.logFilePath(0xDEADBEEF), dataDir() / "ab" / "rdeadbeef.log");

    store.setCurrentDevice(0x00A1B2C3D4E5F607);
    EXPECT_EQ(store.deviceLogDir(), dataDir() / "a1b2c3d4e5f607");
    EXPECT_TRUE(fs::is_directory(store.deviceLogDir()));
    store.setCurrentDevice(0xAB);
    EXPECT_EQ(store.deviceLogDir(), dataDir() / "ab");

    store.clearCurrentDevice();
    EXPECT_TRUE(store.deviceLogDir().empty());
}

}  // namespace
