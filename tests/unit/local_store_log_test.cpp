// Loading the selected device's local log copy for the chart: which files are
// taken, and the time order of what they hold.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "local_store.h"
#include "log_record.h"
#include "temp_directory.h"

namespace {

constexpr uint8_t kOneVoltageModel = 0x31;

void writeLog(std::filesystem::path const& path, std::vector<uint32_t> const& times) {
    std::vector<uint8_t> bytes;
    for (uint32_t t : times) encodeLogRecord(kOneVoltageModel, LogRecord{.time = t, .voltage2 = NAN}, bytes);
    bytes.push_back(0xAB);  // a record still being written
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<uint32_t> timesOf(std::vector<LogRecord> const& records) {
    std::vector<uint32_t> times;
    for (auto const& r : records) times.push_back(r.time);
    return times;
}

}  // namespace

TEST(LocalStoreLog, TakesLogFileNamesOnly) {
    struct Case {
        char const* name;
        bool taken;
    };
    Case const cases[] = {{"r0000001f.log", true},   {"rABCDEF01.log", true},  {"r1234567.log", false},
                          {"x0000001f.log", false},  {"r0000001g.log", false}, {"r00000001.txt", false},
                          {"r000000001.log", false}, {"r+0000001.log", false}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        TempDirectory root;
        LocalStore store(root.path());
        store.setCurrentDevice(0xAB);
        writeLog(store.deviceLogDir() / c.name, {100, 101});
        EXPECT_TRUE(store.loadLocalLog(kOneVoltageModel));
        EXPECT_EQ(store.logRecords().size(), c.taken ? 2u : 0u);
    }
}

// Files in identifier order whose times do not follow that order still give records in time order.
TEST(LocalStoreLog, RecordsEndInTimeOrder) {
    TempDirectory root;
    LocalStore store(root.path());
    store.setCurrentDevice(0xAB);
    writeLog(store.logFilePath(1), {300, 301});
    writeLog(store.logFilePath(2), {100, 200, 200});
    writeLog(store.logFilePath(0x10), {302});
    ASSERT_TRUE(store.loadLocalLog(kOneVoltageModel));
    EXPECT_EQ(timesOf(store.logRecords()), (std::vector<uint32_t>{100, 200, 200, 300, 301, 302}));

    store.clearCurrentDevice();
    EXPECT_TRUE(store.loadLocalLog(kOneVoltageModel));
    EXPECT_TRUE(store.logRecords().empty());
}
