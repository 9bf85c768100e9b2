// zelmorctl against zelmor-sim: each device command's own output, on the WiFi
// model by its address (the SimProgram tests reach every model by address
// and through the hub), passwords, scan, and links that cannot be made.
#include <fmt/core.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <sstream>

#include "announcer.h"
#include "factory_config.h"
#include "firmware_image.h"
#include "hex.h"
#include "log_record.h"
#include "loopback_peers.h"
#include "reports.h"
#include "simulated_device.h"
#include "unanswered_address.h"
#include "zelmorctl_fleet.h"

namespace {

using Json = nlohmann::json;

std::string factoryConfigHex() {
    auto const image = sim::factoryConfig(0x41).image();
    return hexEncode(image.data(), image.size());
}

/// The commands run once, each on the WiFi model by its address.
class ZelmorctlCommands : public testing::Test {
protected:
    ProgramRun run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--json", "--lan", fleet.device(0).address});
        return zelmorctl(arguments);
    }
    Json result(std::vector<std::string> const& arguments) const { return jsonResult(run(arguments)); }

    SimFleet fleet{{"--no-announce", "--device", "V,serial=cab1"}};
    TempDirectory dir;
};

// zelmor-sim as a user runs it, reached with zelmorctl: what it prints, that
// each device it prints is there by its address and through the hub by its
// link (so every way to a device, once), and how it ends.
using namespace std::chrono_literals;

TEST(SimProgram, ServesTheDefaultFleetItPrintsByAddressAndByLinkAndExitsOnSigterm) {
    SimFleet fleet({"--no-announce"});
    ASSERT_EQ(fleet.size(), 3u);
    char const* const addresses[] = {"127.0.0.2", "127.0.0.3", "127.0.0.4"};
    int const revisions[] = {0x10, 0x41, 0x41};
    for (size_t i = 0; i < fleet.size(); ++i) {
        SimFleet::Device const& device = fleet.device(i);
        EXPECT_EQ(device.address, addresses[i]);
        EXPECT_EQ(device.line["hub"], "127.0.0.1:7209");
        EXPECT_EQ(device.revision, revisions[i]);
        // Only the last one has a user password.
        bool const locked = i == 2;
        EXPECT_EQ(device.line["user_password"] != "", locked);

        for (std::string const way : {"--lan", "--link"}) {
            SCOPED_TRACE(way + " to " + device.name);
            std::string const target = way == "--lan" ? device.address : device.link;
            nlohmann::json const info = jsonResult(zelmorctl({way, target, "--json", "info"}));
            EXPECT_EQ(info["name"], device.name);
            EXPECT_EQ(info["serial"], device.serial);
            EXPECT_EQ(info["hardware_revision"], device.revision);
            EXPECT_EQ(info["model"], device.revision == 0x10 ? "Zelmor-K" : "Zelmor-V");
            EXPECT_EQ(info["firmware"], "1.32");
            EXPECT_EQ(info["locked"], locked);
            EXPECT_EQ(info["ip"], device.address);
            ProgramRun const monitor = zelmorctl({way, target, "--json", "monitor", "--count", "1"});
            if (locked) {
                EXPECT_EQ(monitor.err, "Feature is locked by user password.\n");
                continue;
            }
            nlohmann::json const reading = jsonResult(monitor);
            EXPECT_GT(reading["voltage1"].get<double>(), 10.0);
            EXPECT_EQ(reading["rssi"].is_null(), device.revision == 0x10);
        }
    }
    ASSERT_TRUE(fleet.process().signal(SIGTERM));
    EXPECT_EQ(fleet.process().wait(30s), 0);
    EXPECT_EQ(fleet.process().takeErrors(), "");
}

TEST(SimProgram, AnAddressInUseIsReportedAndEndsTheProgram) {
    RawSocket const taken = RawSocket::listening("127.0.0.2", 7208);
    ProgramRun const run = runProgram(ZELMOR_SIM_PATH, {"--porcelain", "--no-hub", "--no-announce"}, 30s);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out.find("ready"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find(std::string("127.0.0.2:7208: ") + std::strerror(EADDRINUSE)), std::string::npos) << run.err;
}

// The zelmorctl commands that need no device: device links, CSV export of a
// log folder, help, and wrong command lines.
/// A command line written as one string.
std::vector<std::string> words(std::string const& line) {
    std::istringstream in(line);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

/// The names a help text lists under "Subcommands:".
std::vector<std::string> subcommands(std::string const& help) {
    std::istringstream in(help.substr(std::min(help.find("Subcommands:"), help.size())));
    std::vector<std::string> names;
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line) && line.starts_with("  ")) names.push_back(words(line).front());
    return names;
}

}  // namespace

TEST_F(ZelmorctlCommands, ReadTheDevice) {
    ProgramRun const monitor = run({"monitor", "--count", "2", "--interval", "100"});
    auto const readings = jsonLines(monitor);
    ASSERT_EQ(readings.size(), 2u) << monitor.err;
    for (char const* key : {"time", "voltage1", "voltage2", "current", "power", "temperature", "soc", "runtime_minutes",
                            "power_status", "coulomb_mAh", "energy_mWh", "rssi"})
        EXPECT_TRUE(readings[1].contains(key)) << key;

    // The text form of a duration against the seconds the JSON gives a moment later.
    std::string const out = zelmorctl({"--lan", fleet.device(0).address, "stats"}).out;
    unsigned d = 0, h = 0, m = 0, s = 0;
    ASSERT_EQ(std::sscanf(out.c_str() + out.find("Since power on:") + 15, "%ud %u:%u:%u", &d, &h, &m, &s), 4);
    double const sincePowerOn = result({"stats"})["seconds_since_power_on"];
    EXPECT_GT(sincePowerOn, 86400);
    EXPECT_NEAR(((d * 24 + h) * 60 + m) * 60 + s, sincePowerOn, 5);
    EXPECT_EQ(result({"fgstats"})["full_charge_capacity_Ah"], 200.0);
    EXPECT_EQ(result({"config", "get"})["config"], factoryConfigHex());
    auto const files = jsonLines(run({"log", "list"}));
    ASSERT_GE(files.size(), 3u);
    EXPECT_EQ(files[0]["file"], "r00000001.log");
    EXPECT_EQ(files[0]["records"].get<int>() * 18, files[0]["size"].get<int>());
    Json known = result({"wifi", "networks"});
    EXPECT_TRUE(known["last_signal"].is_number());
    known.erase("last_signal");
    EXPECT_EQ(known, (Json{{"index", 0},
                           {"ssid", "HarbourNet"},
                           {"security", 3},
                           {"in_use", true},
                           {"failed", false},
                           {"metered", false}}));

    // The link that pairing prints reaches the same device through the hub.
    Json const paired = result({"pair"});
    EXPECT_EQ(paired["serial"], "000000000000CAB1");
    EXPECT_EQ(jsonResult(zelmorctl({"--json", "--link", paired["link"], "info"}))["serial"], paired["serial"]);
}

TEST_F(ZelmorctlCommands, ChangeTheDevice) {
    std::string changed = factoryConfigHex();
    changed.replace(0, 4, "beef");
    std::ofstream(dir.file("config.hex")) << changed.substr(0, 100) << "\n  " << changed.substr(100) << "\n";
    std::vector<std::string> const monitor{"monitor", "--count", "1"};
    // Each row: a command, and the reading whose field shows what it did.
    std::vector<std::tuple<std::vector<std::string>, std::vector<std::string>, char const*, Json>> const rows{
        {{"power", "off"}, monitor, "power_status", "OFF"},
        {{"power", "on"}, monitor, "power_status", "ON"},
        {{"rename", "Shore power"}, {"info"}, "name", "Shore power"},
        {{"config", "set", dir.file("config.hex")}, {"config", "get"}, "config", changed},
        {{"reset", "config"}, {"config", "get"}, "config", factoryConfigHex()}};
    for (auto const& [command, reading, field, value] : rows) {
        SCOPED_TRACE(testing::PrintToString(command));
        EXPECT_EQ(result(command)["ok"], true);
        EXPECT_EQ(result(reading)[field], value);
    }
    // The meters run on between the reset and the reading.
    for (auto const& [meter, field] : {std::pair{"energy", "energy_mWh"}, {"coulomb", "coulomb_mAh"}}) {
        EXPECT_EQ(result({"reset", meter})["reset"], meter);
        EXPECT_LT(std::abs(result(monitor)[field].get<int64_t>()), 1000) << meter;
    }
    EXPECT_EQ(result({"reset", "stats"})["reset"], "stats");
    EXPECT_EQ(result({"set-time", "1800000000"})["time"], 1800000000);
    int64_t const time = result(monitor)["time"];
    EXPECT_GE(time, 1800000000);
    EXPECT_LT(time, 1800000000 + 600);
}

TEST_F(ZelmorctlCommands, SyncTheLogAndUpdateTheFirmware) {
    Json const synced = result({"log", "sync", dir.path().string()});
    EXPECT_EQ(synced["complete"], true);
    EXPECT_GE(synced["bytes_fetched"].get<int64_t>(), 2 * 86400 / 60 * 18);
    EXPECT_EQ(synced["directory"], dir.file("cab1"));
    EXPECT_EQ(result({"log", "sync", dir.path().string()})["bytes_fetched"], 0);

    std::vector<uint8_t> payload(10000);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 13);
    std::string const image = dir.write("update.bin", buildFirmwareImage(0x41, 0x0140, 0x0001, payload));
    // Checking a file needs no device, only the model; a leading zero is still decimal.
    Json const checked = jsonResult(zelmorctl({"--json", "firmware", "check", image, "--rev", "065"}));
    EXPECT_EQ(checked["fits"], true);
    EXPECT_EQ(checked["firmware"], "1.40");
    ProgramRun const other = zelmorctl({"firmware", "check", image, "--rev", "0x10"});
    EXPECT_EQ(other.status, 1);
    EXPECT_EQ(other.err, image + " is not a firmware update for Zelmor-K (0x10)\n");
    EXPECT_EQ(zelmorctl({"firmware", "check", image, "--rev", "0x1g"}).status, 2);
    EXPECT_EQ(result({"reboot"})["ok"], true);
    // Last: the device restarts into the new firmware and is away for a while.
    EXPECT_EQ(result({"firmware", "update", image})["firmware"], "1.40");
}

TEST(ZelmorctlScan, ListsEveryAnnouncingDeviceOnce) {
    // The third device is silent: only its link or address finds it.
    SimFleet fleet({"--device", "K", "--device", "V,name=Hilltop cabin", "--device", "V,silent", "--no-hub",
                    "--base-address", "127.0.0.51"});
    EXPECT_EQ(fleet.device(0).address, "127.0.0.51");
    EXPECT_EQ(fleet.device(0).line["hub"], nullptr);
    // A Bluetooth model has nothing to announce, even when an announcer is given it.
    sim::SimulatedDeviceConfig bluetooth;
    bluetooth.hardwareRevision = 0x21;
    sim::SimulatedDevice device(bluetooth);
    sim::Announcer announcer;
    announcer.addDevice(device, "127.0.0.44");
    ASSERT_TRUE(announcer.start()) << announcer.error();

    // Each device announces twice while the scan listens, in serial order.
    ProgramRun const scan = zelmorctl({"--json", "scan", "--seconds", "2"});
    auto const seen = jsonLines(scan);
    ASSERT_EQ(seen.size(), 2u) << scan.out << scan.err;
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(seen[i]["serial"], fleet.device(i).serial);
        EXPECT_EQ(seen[i]["ip"], fleet.device(i).address);
        EXPECT_EQ(seen[i]["hardware_revision"], fleet.device(i).revision);
        EXPECT_GT(seen[i]["voltage1"].get<double>(), 10.0);
        EXPECT_EQ(seen[i]["rssi"].is_null(), i == 0);
    }
    EXPECT_EQ(seen[1]["name"], "Hilltop cabin");
    ASSERT_TRUE(fleet.process().signal(SIGINT));
    EXPECT_EQ(fleet.process().wait(std::chrono::seconds(30)), 0);
}

TEST(ZelmorctlPasswords, LockedDeviceRefusesUntilUnlocked) {
    SimFleet fleet({"--no-announce", "--device", "V,user=bilge"});
    std::string const locked = "Feature is locked by user password.\n";
    // In order, each on the device as the rows before left it: arguments, exit status, standard error.
    std::vector<std::tuple<std::vector<std::string>, int, std::string>> const steps{
        {{"stats"}, 1, locked},
        {{"--password", "bilge", "stats"}, 0, ""},
        {{"--password", "bilgewater", "stats"}, 1, "Invalid password.\n"},
        {{"unlock"}, 2, "unlock needs the password: --password-file FILE, $ZELMOR_PASSWORD or a terminal\n"},
        {{"--password", "bilge", "lock", "master", "--new-password", "harbour"}, 0, ""},
        {{"--password", "bilge", "rename", "Galley"}, 1, "Feature is locked by master password.\n"},
        {{"--password", "harbour", "rename", "Galley"}, 0, ""},
        {{"--password", "harbour", "unlock-clear", "master"}, 0, ""},
        {{"--password", "bilge", "unlock-clear", "user"}, 0, ""},
        {{"stats"}, 0, ""},
        {{"lock", "user", "--new-password", "tide"}, 0, ""},
        {{"stats"}, 1, locked},
        {{"--password", "tide", "unlock"}, 0, ""}};
    for (auto [arguments, status, err] : steps) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        arguments.insert(arguments.begin(), {"--lan", fleet.device(0).address});
        ProgramRun const run = zelmorctl(arguments);
        EXPECT_EQ(run.status, status);
        EXPECT_EQ(run.err, err);
    }
    ProgramRun const sync = zelmorctl({"--link", fleet.device(0).link, "log", "sync", testing::TempDir()});
    EXPECT_EQ(sync.status, 1);
    EXPECT_EQ(sync.err, locked);
}

TEST(ZelmorctlLinks, LinksThatCannotBeMadeEndTheCommand) {
    SimFleet fleet({"--no-announce", "--device", "V"});
    UnansweredAddress const silent("127.0.0.98", ZelmorImpl::kDevicePort);
    std::string const link = fleet.device(0).link;
    std::vector<std::string> const elsewhere{"ZELMOR_HUB_HOST=127.0.0.99"};
    // Each row: arguments, environment, exit status, standard error.
    std::vector<std::tuple<std::vector<std::string>, std::vector<std::string>, int, std::string>> const rows{
        {{"--lan", "127.0.0.99", "info"}, {}, 3, "Device failed to connect\n"},
        {{"--lan", "127.0.0.98", "info"}, {"ZELMOR_CONNECT_TIMEOUT_MS=300"}, 3, "Device failed to connect\n"},
        {{"--link", link, "info"}, elsewhere, 3, "Device failed to connect\n"},
        {{"--link", link, "--hub", "127.0.0.1", "info"}, elsewhere, 0, ""},
        {{"--link", "http://zelmor.link?n=", "info"}, {}, 2, "The link does not start with https://\n"},
        {{"--ble", "C2:5A:4C:00:00:01", "info"},
         {},
         3,
         "No Bluetooth adapter found: this machine has no Bluetooth LE support, or the adapter is off or missing.\n"},
        {{"info"},
         {},
         2,
         "This command needs a device: --lan ADDRESS, --link URL, --link-file FILE or --ble ADDRESS\n"}};
    for (auto const& [arguments, environment, status, err] : rows) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        ProgramRun const run = zelmorctl(arguments, environment);
        EXPECT_EQ(run.status, status);
        EXPECT_EQ(run.err, err);
    }
}

// Ctrl-C while the device's address does not answer ends the command at
// once. The address answers again as the signal goes, so a connect left
// running would get through with the system's next SYN; the device sees none.
TEST(ZelmorctlLinks, CtrlCWhileConnectingEndsTheCommandAtOnce) {
    UnansweredAddress device("127.0.0.97", ZelmorImpl::kDevicePort);
    ChildProcess run(ZELMORCTL_PATH, {"--lan", "127.0.0.97", "monitor"});
    ASSERT_TRUE(eventually([&] { return device.connectPending(); }));
    device.answerAgain();
    ASSERT_TRUE(run.signal(SIGINT));
    EXPECT_EQ(run.wait(kReportPatience), 128 + SIGINT);
    EXPECT_FALSE(device.connectPending());
    EXPECT_FALSE(device.reached());
}

TEST(ZelmorctlOffline, EncodesAndDecodesDeviceLinks) {
    std::string const channel = "000102030405060708090a0b0c0d0e0f";
    std::string const key = "e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";
    std::vector<std::string> encode{"link",  "encode", "--name", "Boat", "--serial",  "1a2b",
                                    "--rev", "0x41",   "--key",  key,    "--channel", channel};
    ProgramRun const encoded = zelmorctl(encode);
    ASSERT_EQ(encoded.status, 0) << encoded.err;
    std::string const link = encoded.lines().at(0);
    EXPECT_EQ(link,
              "https://zelmor.link?n=426f6174&s=0000000000001a2b&h=41&c=AAECAwQFBgcICQoLDA0ODw==&k="
              "4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=");

    Json const expected{{"name", "Boat"},      {"serial", "0000000000001A2B"}, {"hardware_revision", 0x41},
                        {"model", "Zelmor-V"}, {"channel_id", channel},        {"key", key}};
    EXPECT_EQ(jsonResult(zelmorctl({"--json", "link", "decode", "--show-key", link})), expected);

    // Why a link is refused is the decoder's own table; here, that it is a usage error.
    EXPECT_EQ(zelmorctl({"link", "decode", "https://zelmor.link?n=41"}).status, 2);
    encode.back() = "00";
    EXPECT_EQ(zelmorctl(encode).status, 2);
}

TEST(ZelmorctlOffline, ExportsALogFolderAsCsv) {
    // Which files make the log and which records a range takes are the CSV
    // writer's own tests; here, the options that choose them.
    TempDirectory dir;
    std::vector<uint8_t> log;
    LogRecord record;
    record.voltage1 = 12.5f;
    record.stateOfCharge = 80;
    record.powerStatus = 1;
    for (uint32_t time : {1735689600u, 1735689660u, 1735689720u}) {
        record.time = time;
        encodeLogRecord(0x30, record, log);
    }
    dir.write("r00000001.log", log);
    // The rows, and a time written in the options, are the log's clock whatever TZ says.
    std::vector<std::string> const farZone{"TZ=NZST-12"};
    ProgramRun const all = zelmorctl({"log", "export-csv", dir.path().string(), "--model", "0x30"}, farZone);
    ASSERT_EQ(all.status, 0) << all.err;
    ASSERT_EQ(all.lines().size(), 4u);
    EXPECT_EQ(all.lines()[1], "01/01/2025 00:00:00,12.500,,0.000,0.00,0.00,80,ON");

    ProgramRun const range = zelmorctl({"log", "export-csv", dir.path().string(), "--model", "48", "--from",
                                        "1735689660", "--to", "2025-01-01 00:01:00", "--output", dir.file("out.csv")},
                                       farZone);
    EXPECT_EQ(range.status, 0) << range.err;
    EXPECT_EQ(range.out, "");
    std::ifstream in(dir.file("out.csv"));
    std::vector<std::string> times;
    for (std::string line; std::getline(in, line);) times.push_back(line.substr(0, 19));
    EXPECT_EQ(times, (std::vector<std::string>{"Time (dd/mm/yyyy hh", "01/01/2025 00:01:00"}));
    EXPECT_EQ(zelmorctl({"log", "export-csv", dir.path().string(), "--model", "0x30", "--from", "yesterday"}).status,
              2);
}

TEST(ZelmorctlOffline, EveryCommandHasHelpAndWrongLinesAreUsageErrors) {
    // Down the tree from the top: each command the help texts list.
    std::vector<std::string> commands{""};
    for (size_t next = 0; next < commands.size(); ++next) {
        ProgramRun const help = zelmorctl(words(commands[next] + " --help"));
        EXPECT_EQ(help.status, 0) << commands[next];
        for (auto const& name : subcommands(help.out)) commands.push_back(commands[next] + " " + name);
    }
    EXPECT_EQ(commands.size(), 33u);
    for (std::string const wrong :
         {"", "frobnicate", "power maybe", "reset everything", "lock user", "log", "config diff",
          "--lan 127.0.0.2 --link https://x?n= info", "--lan not-an-address info"}) {
        ProgramRun const run = zelmorctl(words(wrong));
        EXPECT_EQ(run.status, 2) << wrong;
        EXPECT_FALSE(run.err.empty()) << wrong;
    }
}
