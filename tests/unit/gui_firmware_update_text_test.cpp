// What the About dialog and the firmware progress dialog show and decide.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "firmware_update_text.h"

namespace {

TEST(FirmwareUpdateTextTest, IdentityTellsTheAddressByModelKind) {
    // LAN (0x1_) and WiFi (0x4_) models by their IPv4 address, every other
    // by its Bluetooth address.
    std::tuple<uint8_t, char const*, char const*> const cases[] = {
        {0x41, "Zelmor-V", "Device IP Address: 127.0.0.2"},
        {0x12, "Zelmor-K", "Device IP Address: 127.0.0.2"},
        {0x21, "Zelmor", "Device Bluetooth Address: C2:5A:4C:10:08:0A"},
        {0x31, "Zelmor-7T", "Device Bluetooth Address: C2:5A:4C:10:08:0A"},
    };
    for (auto const& [revision, model, address] : cases) {
        SCOPED_TRACE(int{revision});
        Zelmor::DeviceInfo info;
        info.name = "Bilge & bank";
        info.hardwareRevision = revision;
        info.firmwareVersion = 0x0112;
        info.serial = 0x00AB12;
        info.ipAddress = inet_addr("127.0.0.2");
        info.bluetoothAddress = {0xC2, 0x5A, 0x4C, 0x10, 0x08, 0x0A};
        AboutIdentity const identity = aboutIdentity(info);
        EXPECT_EQ(identity.program, "Zelmor Manager v0.21.");
        EXPECT_EQ(identity.device,
                  (std::vector<std::string>{"Device name: Bilge & bank", std::string("Device model: ") + model,
                                            "Device serial: 000000000000AB12", "Firmware: v1.12"}));
        EXPECT_EQ(identity.address, address);
    }
}

TEST(FirmwareUpdateTextTest, VersionsAndTheCheckResult) {
    std::tuple<uint16_t, char const*> const versions[] = {
        {0x0021, "0.21"}, {0x0113, "1.13"}, {0x0A05, "A.05"}, {0xFFFF, "FF.FF"}};
    for (auto const& [version, text] : versions) EXPECT_EQ(versionText(version), text);
    // An update only to a version numerically above the device's; 0 is no
    // sound image at all.
    std::tuple<uint16_t, char const*> const available[] = {
        {0x0113, "Firmware update to version 1.13 is available"},
        {0x0112, "No firmware update is available at the moment"},
        {0x0111, "No firmware update is available at the moment"},
        {0, "No firmware update is available at the moment"},
    };
    for (auto const& [version, text] : available) {
        SCOPED_TRACE(version);
        EXPECT_EQ(updateCheckText(0x0112, version), text);
        EXPECT_EQ(updateOffered(0x0112, version), version == 0x0113);
    }
}

TEST(FirmwareUpdateTextTest, ProgressLabelAndGauge) {
    std::tuple<uint32_t, uint32_t, char const*, std::optional<int>> const cases[] = {
        {0, 0, "0 of 0 bytes", std::nullopt},  // the gauge stays as it is
        {4096, 65556, "4096 of 65556 bytes", 6},
        {65555, 65556, "65555 of 65556 bytes", 99},
        {4194304, 4194304, "4194304 of 4194304 bytes", 100},
    };
    for (auto const& [done, total, label, gauge] : cases) {
        TransferProgressShown const shown = transferProgressShown(done, total);
        EXPECT_EQ(shown.label, label);
        EXPECT_EQ(shown.gauge, gauge) << label;
    }
}

TEST(FirmwareUpdateTextTest, TransferEndAndWhatAboutDoesThen) {
    using Code = Zelmor::ResponseCode;
    std::tuple<Code, FirmwareTransferEnd> const ends[] = {
        {Code::Success, FirmwareTransferEnd::Updated},
        {Code::Cancelled, FirmwareTransferEnd::Stopped},
        {Code::RequestTimeout, FirmwareTransferEnd::Failed},
        {Code::RequestFailed, FirmwareTransferEnd::Failed},
    };
    for (auto const& [code, end] : ends) EXPECT_EQ(firmwareTransferEnd(code), end) << static_cast<int>(code);
    // Error box, About ends, as updated.
    std::tuple<int, bool, bool, bool> const after[] = {
        {0, false, true, true}, {1, true, true, false}, {2, false, true, false}, {3, false, false, false}};
    for (auto const& [result, error, close, updated] : after) {
        SCOPED_TRACE(result);
        AfterFirmwareTransfer const next = afterFirmwareTransfer(result);
        EXPECT_EQ(next.showError, error);
        EXPECT_EQ(next.close, close);
        EXPECT_EQ(next.updated, updated);
    }
}

TEST(FirmwareUpdateTextTest, CheckTimeOutInWholeSeconds) {
    std::tuple<char const*, unsigned> const cases[] = {
        {nullptr, 20}, {"1", 1}, {"1000", 1}, {"1001", 2}, {"0", 20}, {"-5", 20}, {"2s", 20}, {"", 20},
    };
    for (auto const& [setting, seconds] : cases)
        EXPECT_EQ(firmwareCheckTimeoutSeconds(setting), seconds) << (setting ? setting : "unset");
}

}  // namespace
