// The zelmorctl commands that need no device: device links, firmware file
// checks, CSV export of a log folder, help, and wrong command lines.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "firmware_image.h"
#include "log_record.h"
#include "zelmorctl_fleet.h"

namespace {

using Json = nlohmann::json;

std::filesystem::path freshDirectory() {
    std::random_device random;
    auto const path = std::filesystem::path(testing::TempDir()) / ("zelmorctl_offline_" + std::to_string(random()));
    std::filesystem::create_directories(path);
    return path;
}

void writeBytes(std::filesystem::path const& path, std::vector<uint8_t> const& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

TEST(ZelmorctlOffline, EncodesAndDecodesDeviceLinks) {
    std::string const channel = "000102030405060708090a0b0c0d0e0f";
    std::string const key = "e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";
    ProgramRun const encoded = zelmorctl(
        {"link", "encode", "--name", "Boat", "--serial", "1a2b", "--rev", "0x41", "--channel", channel, "--key", key});
    ASSERT_EQ(encoded.status, 0) << encoded.err;
    std::string const link = encoded.lines().at(0);
    EXPECT_EQ(link.rfind("https://zelmor.link?n=426f6174&s=0000000000001a2b&h=41&c=", 0), 0u) << link;

    Json const decoded = jsonResult(zelmorctl({"--json", "link", "decode", link}));
    EXPECT_EQ(decoded["name"], "Boat");
    EXPECT_EQ(decoded["serial"], "0000000000001A2B");
    EXPECT_EQ(decoded["hardware_revision"], 0x41);
    EXPECT_EQ(decoded["channel_id"], channel);
    EXPECT_EQ(decoded["key"], key);

    ProgramRun const bad = zelmorctl({"link", "decode", "https://zelmor.link?n=41"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.err, "The link lacks the serial number (s)\n");
    EXPECT_EQ(zelmorctl({"link", "encode", "--name", "Boat", "--serial", "1a2b", "--rev", "0x41", "--channel", "00",
                         "--key", key})
                  .status,
              2);
}

TEST(ZelmorctlOffline, ChecksFirmwareFilesAgainstTheModel) {
    auto const dir = freshDirectory();
    writeBytes(dir / "wifi.bin", buildFirmwareImage(0x41, 0x0205, 0x0001, std::vector<uint8_t>(300, 7)));
    Json const fits =
        jsonResult(zelmorctl({"--json", "firmware", "check", (dir / "wifi.bin").string(), "--rev", "65"}));
    EXPECT_EQ(fits["fits"], true);
    EXPECT_EQ(fits["firmware"], "2.05");

    ProgramRun const other = zelmorctl({"firmware", "check", (dir / "wifi.bin").string(), "--rev", "0x10"});
    EXPECT_EQ(other.status, 1);
    EXPECT_EQ(other.err, (dir / "wifi.bin").string() + " is not a firmware update for Zelmor-K (0x10)\n");
    EXPECT_EQ(zelmorctl({"firmware", "check", (dir / "wifi.bin").string(), "--rev", "0x1g"}).status, 2);
    std::filesystem::remove_all(dir);
}

TEST(ZelmorctlOffline, ExportsALogFolderAsCsv) {
    auto const dir = freshDirectory();
    std::vector<uint8_t> day1, day2;
    LogRecord record;
    record.voltage1 = 12.5f;
    record.voltage2 = 12.75f;
    record.stateOfCharge = 80;
    record.powerStatus = 1;
    for (uint32_t t : {1735689600u, 1735689660u, 1735689720u}) {
        record.time = t;
        encodeLogRecord(0x30, record, day1);
    }
    for (uint32_t t : {1735776000u, 1735776060u}) {
        record.time = t;
        encodeLogRecord(0x30, record, day2);
    }
    writeBytes(dir / "r00000002.log", day2);
    writeBytes(dir / "r00000001.log", day1);
    writeBytes(dir / "notes.txt", {1, 2, 3});

    std::vector<std::string> const utc{"TZ=UTC"};
    ProgramRun const all = zelmorctl({"log", "export-csv", dir.string(), "--model", "0x30"}, utc);
    ASSERT_EQ(all.status, 0) << all.err;
    auto const rows = all.lines();
    ASSERT_EQ(rows.size(), 6u);
    EXPECT_EQ(rows[1], "01/01/2025 00:00:00,12.500,,0.000,0.00,0.00,80,ON");
    EXPECT_EQ(rows[5].substr(0, 19), "02/01/2025 00:01:00");

    // The end is inclusive and reaches to the first record at or after it.
    auto const out = dir / "range.csv";
    ProgramRun const range = zelmorctl({"log", "export-csv", dir.string(), "--model", "0x30", "--from", "1735689660",
                                        "--to", "2025-01-01 00:01:30", "--output", out.string()},
                                       utc);
    ASSERT_EQ(range.status, 0) << range.err;
    EXPECT_TRUE(range.out.empty());
    std::ifstream in(out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].substr(0, 19), "01/01/2025 00:01:00");
    EXPECT_EQ(lines[2].substr(0, 19), "01/01/2025 00:02:00");

    ProgramRun const badTime = zelmorctl({"log", "export-csv", dir.string(), "--model", "0x30", "--from", "yesterday"});
    EXPECT_EQ(badTime.status, 2);
    EXPECT_NE(badTime.err.find("--from"), std::string::npos);
    std::filesystem::remove_all(dir);
}

TEST(ZelmorctlOffline, EveryCommandHasHelpAndWrongLinesAreUsageErrors) {
    std::vector<std::vector<std::string>> const commands{{},
                                                         {"scan"},
                                                         {"info"},
                                                         {"monitor"},
                                                         {"stats"},
                                                         {"fgstats"},
                                                         {"config"},
                                                         {"config", "get"},
                                                         {"config", "set"},
                                                         {"schedules"},
                                                         {"log"},
                                                         {"log", "list"},
                                                         {"log", "sync"},
                                                         {"log", "export-csv"},
                                                         {"unlock"},
                                                         {"lock"},
                                                         {"unlock-clear"},
                                                         {"pair"},
                                                         {"link"},
                                                         {"link", "decode"},
                                                         {"link", "encode"},
                                                         {"firmware"},
                                                         {"firmware", "check"},
                                                         {"firmware", "update"},
                                                         {"power"},
                                                         {"rename"},
                                                         {"set-time"},
                                                         {"reset"},
                                                         {"reboot"}};
    for (auto command : commands) {
        command.push_back("--help");
        ProgramRun const help = zelmorctl(command);
        EXPECT_EQ(help.status, 0) << command.front();
        EXPECT_NE(help.out.find("Usage:"), std::string::npos) << command.front();
    }
    for (std::vector<std::string> const& wrong :
         std::vector<std::vector<std::string>>{{},
                                               {"frobnicate"},
                                               {"power", "maybe"},
                                               {"reset", "everything"},
                                               {"lock", "user"},
                                               {"log"},
                                               {"--lan", "127.0.0.2", "--link", "https://x?n=", "info"},
                                               {"--lan", "not-an-address", "info"}}) {
        ProgramRun const run = zelmorctl(wrong);
        EXPECT_EQ(run.status, 2) << (wrong.empty() ? "" : wrong.front());
        EXPECT_FALSE(run.err.empty());
    }
}
