// The application's local store: the remote devices in cloud_devices.cfg (what
// is read back, what is written and how) and the folders of the data log copies.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "device_link.h"
#include "local_store.h"
#include "temp_directory.h"

namespace {

using Identifier = Zelmor::DeviceIdentifier;
namespace fs = std::filesystem;

Identifier const kBoat{.name = "Boat", .serial = 0x1A2B, .hardwareRevision = 0x41};
Identifier const kVan{.name = "Van", .serial = 0x00A1B2C3D4E5F607, .hardwareRevision = 0x10};
Identifier const kCabin{.name = "Cabin", .serial = 0xAB, .hardwareRevision = 0x41, .key = {7, 7, 7}};

std::string readText(fs::path const& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string linesOf(std::vector<Identifier> const& ids) {
    std::string text;
    for (auto const& id : ids) text += makeDeviceLink(id) + "\n";
    return text;
}

/// A data directory that does not exist yet, in a fresh folder of its own.
struct LocalStoreTest : testing::Test {
    TempDirectory root;
    fs::path const dataDir = root.path() / "zlmr";
    fs::path const file = dataDir / "cloud_devices.cfg";

    // A test that took the owner's rights away gives them back for the removal.
    ~LocalStoreTest() override { fs::permissions(dataDir, fs::perms::owner_all); }
    // The data directory with this text in its cloud_devices.cfg.
    fs::path const& withFile(std::string const& text) const {
        fs::create_directory(dataDir);
        std::ofstream(file, std::ios::binary) << text;
        return dataDir;
    }
    // Only the file itself: a failed save leaves no temporary file behind.
    bool nothingButTheFile() const { return std::distance(fs::directory_iterator(dataDir), {}) == 1; }
};

TEST_F(LocalStoreTest, LoadsValidLinksInFileOrderKeepingDuplicates) {
    std::string const text = makeDeviceLink(kBoat) + "\n\nnot a link\n" + makeDeviceLink(kVan) + "\r\n   \n" +
                             "https://zelmor.link?n=00\n  " + makeDeviceLink(kBoat) + "  \n" + makeDeviceLink(kCabin);
    LocalStore store(withFile(text));
    EXPECT_EQ(store.remoteDevices(), (std::vector<Identifier>{kBoat, kVan, kBoat, kCabin}));
}

TEST_F(LocalStoreTest, EveryChangeRewritesTheFilePrivatelyThenTellsTheObserver) {
    LocalStore store(withFile(linesOf({kVan, kBoat, kCabin, kBoat})));
    fs::permissions(file, fs::perms::all);
    std::vector<std::string> seen;
    store.setRemoteDevicesObserver([&] { seen.push_back(readText(file)); });
    store.loadRemoteDevices();
    EXPECT_TRUE(store.saveRemoteDevices());
    EXPECT_FALSE(store.removeRemoteDevice(4));
    EXPECT_TRUE(seen.empty());

    // A known device replaces only its first entry; equal means equal in
    // every field, so a new name makes a new entry.
    EXPECT_TRUE(store.addRemoteDevice(kBoat));
    Identifier renamed = kBoat;
    renamed.name = "Sailboat";
    EXPECT_TRUE(store.addRemoteDevice(renamed));
    EXPECT_TRUE(store.removeRemoteDevice(2));
    EXPECT_EQ(seen, (std::vector<std::string>{linesOf({kVan, kBoat, kCabin, kBoat}),
                                              linesOf({kVan, kBoat, kCabin, kBoat, renamed}),
                                              linesOf({kVan, kBoat, kBoat, renamed})}));
    EXPECT_EQ(LocalStore(dataDir).remoteDevices(), (std::vector<Identifier>{kVan, kBoat, kBoat, renamed}));
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::mask, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(nothingButTheFile());
}

TEST_F(LocalStoreTest, SaveIntoAnUnwritableDirectoryKeepsTheOldFile) {
    std::string const old = linesOf({kBoat, kVan});
    LocalStore store(withFile(old));
    // Anyone may pass through, nobody may write.
    fs::permissions(dataDir.parent_path(), fs::perms{0711});
    fs::permissions(dataDir, fs::perms{0511});
    // Root writes anywhere: the save runs in a child that has given up root.
    EXPECT_EXIT(
        {
            uid_t const nobody = 65534;
            if (::geteuid() == 0 && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) std::_Exit(2);
            std::_Exit(store.addRemoteDevice(kCabin) ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(readText(file), old);
    EXPECT_TRUE(nothingButTheFile());
}

TEST_F(LocalStoreTest, FailedReplaceLeavesNoTemporaryFile) {
    LocalStore store(dataDir);
    fs::create_directory(file);
    EXPECT_FALSE(store.addRemoteDevice(kBoat));
    EXPECT_EQ(store.remoteDevices(), std::vector<Identifier>{kBoat});
    EXPECT_TRUE(fs::is_directory(file));
    EXPECT_TRUE(nothingButTheFile());
}

TEST_F(LocalStoreTest, DeviceLogFolderIsNamedByTheSerialInHex) {
    LocalStore store(dataDir);
    store.setCurrentDevice(0x00A1B2C3D4E5F607);
    EXPECT_TRUE(fs::is_directory(dataDir / "a1b2c3d4e5f607"));
    EXPECT_EQ(store.logFilePath(0x1F), dataDir / "a1b2c3d4e5f607" / "r0000001f.log");
    EXPECT_EQ(store.logFilePath(0xDEADBEEF), dataDir / "a1b2c3d4e5f607" / "rdeadbeef.log");
}

}  // namespace
