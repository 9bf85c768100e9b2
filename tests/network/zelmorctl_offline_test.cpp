// The zelmorctl commands that need no device: device links, CSV export of a
// log folder, help, and wrong command lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "log_record.h"
#include "zelmorctl_fleet.h"

namespace {

using Json = nlohmann::json;

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
    EXPECT_EQ(jsonResult(zelmorctl({"--json", "link", "decode", link})), expected);

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
    std::vector<std::string> const utc{"TZ=UTC"};
    ProgramRun const all = zelmorctl({"log", "export-csv", dir.path().string(), "--model", "0x30"}, utc);
    ASSERT_EQ(all.status, 0) << all.err;
    ASSERT_EQ(all.lines().size(), 4u);
    EXPECT_EQ(all.lines()[1], "01/01/2025 00:00:00,12.500,,0.000,0.00,0.00,80,ON");

    ProgramRun const range = zelmorctl({"log", "export-csv", dir.path().string(), "--model", "48", "--from",
                                        "1735689660", "--to", "2025-01-01 00:01:00", "--output", dir.file("out.csv")},
                                       utc);
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
    EXPECT_EQ(commands.size(), 29u);
    for (std::string const wrong : {"", "frobnicate", "power maybe", "reset everything", "lock user", "log",
                                    "--lan 127.0.0.2 --link https://x?n= info", "--lan not-an-address info"}) {
        ProgramRun const run = zelmorctl(words(wrong));
        EXPECT_EQ(run.status, 2) << wrong;
        EXPECT_FALSE(run.err.empty()) << wrong;
    }
}
