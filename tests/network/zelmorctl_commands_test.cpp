// zelmorctl against zelmor-sim: every device command over the three ways to a
// device (a LAN model and a WiFi model by address, the WiFi model through the
// hub relay), passwords, and links that cannot be made.
#include <fmt/core.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>

#include "firmware_image.h"
#include "zelmorctl_fleet.h"

namespace {

using Json = nlohmann::json;

enum class Way { LanModel, WifiModel, Hub };

/// A fresh folder under the test's temporary directory, removed afterwards.
class TempDirectory {
public:
    TempDirectory() {
        std::random_device random;
        path_ = std::filesystem::path(testing::TempDir()) / ("zelmorctl_" + std::to_string(random()));
        std::filesystem::create_directories(path_);
    }
    ~TempDirectory() { std::filesystem::remove_all(path_); }
    std::string file(std::string const& name) const { return (path_ / name).string(); }
    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};

class ZelmorctlCommands : public testing::TestWithParam<Way> {
protected:
    ZelmorctlCommands() : fleet_({"--no-announce", "--device", "K,name=Dock bank", "--device", "V,name=Cabin bank"}) {}

    SimFleet::Device const& device() const { return fleet_.device(GetParam() == Way::LanModel ? 0 : 1); }

    /// zelmorctl with the target options of this way, then `arguments`.
    ProgramRun run(std::vector<std::string> const& arguments, bool json = true) const {
        std::vector<std::string> all;
        if (GetParam() == Way::Hub)
            all = {"--link", device().link, "--hub", "127.0.0.1"};
        else
            all = {"--lan", device().address};
        if (json) all.push_back("--json");
        all.insert(all.end(), arguments.begin(), arguments.end());
        return zelmorctl(all);
    }

    Json result(std::vector<std::string> const& arguments) const { return jsonResult(run(arguments)); }

    SimFleet fleet_;
};

std::string factoryConfigHex() {
    std::string hex;
    for (unsigned i = 0; i < 104; ++i) hex += fmt::format("{:02x}", (7 * i + 3) & 0xFF);
    return hex;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Ways, ZelmorctlCommands, testing::Values(Way::LanModel, Way::WifiModel, Way::Hub),
                         [](auto const& info) {
                             return info.param == Way::LanModel    ? "LanModel"
                                    : info.param == Way::WifiModel ? "WifiModel"
                                                                   : "Hub";
                         });

TEST_P(ZelmorctlCommands, ReadsTheDevice) {
    Json const info = result({"info"});
    EXPECT_EQ(info["name"], device().name);
    EXPECT_EQ(info["serial"], device().serial);
    EXPECT_EQ(info["hardware_revision"], device().revision);
    EXPECT_EQ(info["model"], device().revision == 0x10 ? "Zelmor-K" : "Zelmor-V");
    EXPECT_EQ(info["firmware"], "1.32");
    EXPECT_EQ(info["locked"], false);
    EXPECT_TRUE(info["ip"].is_string());

    ProgramRun const monitor = run({"monitor", "--count", "2", "--interval", "100"});
    ASSERT_EQ(monitor.status, 0) << monitor.err;
    auto const readings = jsonLines(monitor);
    ASSERT_EQ(readings.size(), 2u);
    for (Json const& reading : readings) {
        for (char const* key : {"time", "voltage1", "voltage2", "current", "power", "temperature", "soc",
                                "runtime_minutes", "power_status", "coulomb_mAh", "energy_mWh", "rssi"})
            EXPECT_TRUE(reading.contains(key)) << key;
        EXPECT_GT(reading["voltage1"].get<double>(), 10.0);
        EXPECT_TRUE(reading["voltage2"].is_number());
        EXPECT_EQ(reading["power_status"], "ON");
        EXPECT_EQ(reading["rssi"].is_null(), device().revision == 0x10);
    }

    EXPECT_GT(result({"stats"})["seconds_since_power_on"].get<int64_t>(), 86400);
    EXPECT_EQ(result({"fgstats"})["full_charge_capacity_Ah"], 200.0);
    EXPECT_EQ(result({"config", "get"})["config"], factoryConfigHex());

    ProgramRun const schedules = run({"schedules"});
    EXPECT_EQ(schedules.status, 0) << schedules.err;
    EXPECT_TRUE(schedules.out.empty());

    ProgramRun const files = run({"log", "list"});
    ASSERT_EQ(files.status, 0) << files.err;
    auto const list = jsonLines(files);
    ASSERT_GE(list.size(), 3u);
    EXPECT_EQ(list[0]["file"], "r00000001.log");
    EXPECT_EQ(list[0]["records"].get<int>() * 18, list[0]["size"].get<int>());

    // The link that pairing prints reaches the same device through the hub.
    Json const paired = result({"pair"});
    EXPECT_EQ(paired["serial"], device().serial);
    Json const linked = jsonResult(zelmorctl({"--json", "--link", paired["link"], "info"}));
    EXPECT_EQ(linked["serial"], device().serial);
}

TEST_P(ZelmorctlCommands, ChangesTheDevice) {
    EXPECT_EQ(result({"power", "off"})["ok"], true);
    EXPECT_EQ(result({"monitor", "--count", "1"})["power_status"], "OFF");
    EXPECT_EQ(result({"power", "on"})["ok"], true);
    EXPECT_EQ(result({"monitor", "--count", "1"})["power_status"], "ON");

    EXPECT_EQ(result({"rename", "Shore power"})["ok"], true);
    EXPECT_EQ(result({"info"})["name"], "Shore power");

    EXPECT_EQ(result({"set-time", "1800000000"})["ok"], true);
    int64_t const time = result({"monitor", "--count", "1"})["time"];
    EXPECT_GE(time, 1800000000);
    EXPECT_LT(time, 1800000000 + 600);

    TempDirectory dir;
    std::string changed = factoryConfigHex();
    changed.replace(0, 4, "beef");
    std::ofstream(dir.file("config.hex")) << changed.substr(0, 100) << "\n  " << changed.substr(100) << "\n";
    EXPECT_EQ(result({"config", "set", dir.file("config.hex")})["ok"], true);
    EXPECT_EQ(result({"config", "get"})["config"], changed);

    for (char const* what : {"energy", "coulomb", "stats", "config"}) EXPECT_EQ(result({"reset", what})["reset"], what);
    EXPECT_EQ(result({"config", "get"})["config"], factoryConfigHex());
    EXPECT_LT(std::abs(result({"monitor", "--count", "1"})["energy_mWh"].get<int64_t>()), 1000);
}

TEST_P(ZelmorctlCommands, SyncsAndExportsTheLog) {
    TempDirectory dir;
    Json const synced = result({"log", "sync", dir.path().string()});
    EXPECT_EQ(synced["complete"], true);
    EXPECT_GE(synced["bytes_fetched"].get<int64_t>(), 2 * 86400 / 60 * 18);
    std::string folder = device().serial;
    folder.erase(0, folder.find_first_not_of('0'));
    for (char& c : folder) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(synced["directory"], (dir.path() / folder).string());
    EXPECT_TRUE(std::filesystem::exists(dir.path() / folder / "r00000001.log"));

    EXPECT_EQ(result({"log", "sync", dir.path().string()})["bytes_fetched"], 0);

    ProgramRun const csv =
        zelmorctl({"log", "export-csv", (dir.path() / folder).string(), "--model", std::to_string(device().revision)});
    ASSERT_EQ(csv.status, 0) << csv.err;
    auto const rows = csv.lines();
    ASSERT_GT(rows.size(), 2u * 1440u);
    EXPECT_EQ(rows[0].rfind("Time (dd/mm/yyyy hh:mm:ss), Voltage 1 (V)", 0), 0u);
}

TEST_P(ZelmorctlCommands, UpdatesTheFirmwareAndReboots) {
    TempDirectory dir;
    std::vector<uint8_t> payload(10000);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 13);
    auto const image = buildFirmwareImage(static_cast<uint8_t>(device().revision), 0x0140, 0x0001, payload);
    std::ofstream(dir.file("update.bin"), std::ios::binary)
        .write(reinterpret_cast<char const*>(image.data()), static_cast<std::streamsize>(image.size()));

    Json const checked = jsonResult(
        zelmorctl({"--json", "firmware", "check", dir.file("update.bin"), "--rev", std::to_string(device().revision)}));
    EXPECT_EQ(checked["fits"], true);
    EXPECT_EQ(checked["firmware"], "1.40");

    EXPECT_EQ(result({"firmware", "update", dir.file("update.bin")})["firmware"], "1.40");
    EXPECT_EQ(result({"info"})["firmware"], "1.40");
    EXPECT_EQ(result({"reboot"})["ok"], true);
}

TEST(ZelmorctlScan, ListsEveryAnnouncingDeviceOnce) {
    // The third device is silent: only its link or address finds it.
    SimFleet fleet({"--device", "K", "--device", "V", "--device", "V,silent", "--no-hub"});
    ProgramRun const scan = zelmorctl({"--json", "scan", "--seconds", "3"});
    ASSERT_EQ(scan.status, 0) << scan.err;
    auto const seen = jsonLines(scan);
    ASSERT_EQ(seen.size(), 2u) << scan.out;
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(seen[i]["serial"], fleet.device(i).serial);
        EXPECT_EQ(seen[i]["ip"], fleet.device(i).address);
        EXPECT_EQ(seen[i]["hardware_revision"], fleet.device(i).revision);
    }
}

TEST(ZelmorctlPasswords, LockedDeviceRefusesUntilUnlocked) {
    SimFleet fleet({"--no-announce", "--device", "V,user=bilge"});
    std::vector<std::string> const lan{"--lan", fleet.device(0).address};
    auto ctl = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), lan.begin(), lan.end());
        return zelmorctl(arguments);
    };

    ProgramRun refused = ctl({"stats"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "Feature is locked by user password.\n");
    refused = zelmorctl({"--link", fleet.device(0).link, "log", "sync", testing::TempDir()});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "Feature is locked by user password.\n");

    EXPECT_EQ(ctl({"--password", "bilge", "stats"}).status, 0);
    EXPECT_EQ(ctl({"--password", "bilge", "unlock"}).out, "Unlocked.\n");
    for (char const* command : {"unlock", "stats"}) {
        ProgramRun const wrong = ctl({"--password", "bilgewater", command});
        EXPECT_EQ(wrong.status, 1);
        EXPECT_EQ(wrong.err, "Invalid password.\n");
    }
    EXPECT_EQ(ctl({"unlock"}).status, 2);

    // A master password guards the changes; the user password no longer does.
    EXPECT_EQ(ctl({"--password", "bilge", "lock", "master", "--new-password", "harbour"}).status, 0);
    ProgramRun const master = ctl({"--password", "bilge", "rename", "Galley"});
    EXPECT_EQ(master.status, 1);
    EXPECT_EQ(master.err, "Feature is locked by master password.\n");
    EXPECT_EQ(ctl({"--password", "harbour", "rename", "Galley"}).status, 0);
    EXPECT_EQ(ctl({"--password", "harbour", "unlock-clear", "master"}).status, 0);
    EXPECT_EQ(ctl({"--password", "bilge", "unlock-clear", "user"}).status, 0);
    EXPECT_EQ(ctl({"stats"}).status, 0);
    EXPECT_EQ(ctl({"lock", "user", "--new-password", "tide"}).status, 0);
    EXPECT_EQ(ctl({"stats"}).err, "Feature is locked by user password.\n");
}

TEST(ZelmorctlLinks, LinksThatCannotBeMadeEndTheCommand) {
    SimFleet fleet({"--no-announce", "--device", "V"});
    ProgramRun failed = zelmorctl({"--lan", "127.0.0.99", "info"});
    EXPECT_EQ(failed.status, 3);
    EXPECT_EQ(failed.err, "Device failed to connect\n");

    failed = zelmorctl({"--link", fleet.device(0).link, "info"}, {"ZELMOR_HUB_HOST=127.0.0.99"});
    EXPECT_EQ(failed.status, 3);
    EXPECT_EQ(failed.err, "Device failed to connect\n");
    EXPECT_EQ(zelmorctl({"--link", fleet.device(0).link, "--hub", "127.0.0.1", "info"}, {"ZELMOR_HUB_HOST=127.0.0.99"})
                  .status,
              0);

    // The hub closes a channel it does not know.
    Json const stranger =
        jsonResult(zelmorctl({"--json", "link", "encode", "--name", "Stranger", "--serial", "77", "--rev", "0x41",
                              "--channel", std::string(32, '7'), "--key", std::string(64, '7')}));
    failed = zelmorctl({"--link", stranger["link"], "info"});
    EXPECT_EQ(failed.status, 3);
    EXPECT_EQ(failed.err, "Device disconnected\n");

    failed = zelmorctl({"--link", "http://zelmor.link?n=", "info"});
    EXPECT_EQ(failed.status, 2);
    EXPECT_EQ(failed.err, "The link does not start with https://\n");
    EXPECT_EQ(zelmorctl({"info"}).status, 2);
}
