#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "firmware_server.h"

namespace {

TEST(FirmwareServerSetting, ParsesHostAndPortOrTellsWhatIsWrong) {
    struct Case {
        std::string text;
        std::string host;  // empty: refused
        uint16_t port;
        std::string error;
    };
    std::vector<Case> const cases = {
        {"127.0.0.1", "127.0.0.1", 80, ""},
        {"127.0.0.1:7210", "127.0.0.1", 7210, ""},
        {"localhost:1", "localhost", 1, ""},
        {"fw-1.example.test:65535", "fw-1.example.test", 65535, ""},
        {"[::1]:8080", "::1", 8080, ""},
        {"[::1]", "::1", 80, ""},
        {"127.0.0.1:0", "", 0, "\"127.0.0.1:0\": the port must be a number from 1 to 65535"},
        {"127.0.0.1:65536", "", 0, "\"127.0.0.1:65536\": the port must be a number from 1 to 65535"},
        {"127.0.0.1:80x", "", 0, "\"127.0.0.1:80x\": the port must be a number from 1 to 65535"},
        {"127.0.0.1:", "", 0, "\"127.0.0.1:\" is not HOST[:PORT]: the port is missing after ':'"},
        {":7210", "", 0, "\":7210\" is not HOST[:PORT]: the host is missing"},
        {"", "", 0, "\"\" is not HOST[:PORT]: the host is missing"},
        {"http://127.0.0.1", "", 0, "\"http://127.0.0.1\" is not HOST[:PORT]: give the host without scheme or path"},
        {"127.0.0.1/fwup", "", 0, "\"127.0.0.1/fwup\" is not HOST[:PORT]: give the host without scheme or path"},
        {"fw server", "", 0, "\"fw server\" is not HOST[:PORT]: a host has only letters, digits, '.' and '-'"},
        {"[::1", "", 0, "\"[::1\" is not HOST[:PORT]: the IPv6 address lacks its ']'"},
        {"[::1]x", "", 0, "\"[::1]x\" is not HOST[:PORT]: only \":PORT\" may follow the address"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        FirmwareServerSetting const setting = parseFirmwareServer(c.text);
        EXPECT_EQ(setting.error, c.error);
        ASSERT_EQ(setting.server.has_value(), !c.host.empty());
        if (setting.server) {
            EXPECT_EQ(setting.server->host, c.host);
            EXPECT_EQ(setting.server->port, c.port);
        }
    }
}

TEST(FirmwareServerSetting, TheOptionWinsOverTheVariable) {
    struct Case {
        char const* variable;  // null: unset
        std::string option;
        std::string url;
        std::string error;
    };
    std::vector<Case> const cases = {
        {nullptr, "", "", ""},
        {"", "", "", ""},
        {"127.0.0.1:7210", "", "http://127.0.0.1:7210/fwup/zlmrv2/zlmrv2_fw_dfu_from_0132.bin", ""},
        {"127.0.0.1:7210", "[::1]:80", "http://[::1]/fwup/zlmrv2/zlmrv2_fw_dfu_from_0132.bin", ""},
        {"127.0.0.1:x", "", "", "ZELMOR_FIRMWARE_SERVER \"127.0.0.1:x\": the port must be a number from 1 to 65535"},
        {"127.0.0.1", ":1", "", "--firmware-server \":1\" is not HOST[:PORT]: the host is missing"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.option + " / " + (c.variable ? c.variable : "unset"));
        c.variable ? setenv(kFirmwareServerVariable, c.variable, 1) : unsetenv(kFirmwareServerVariable);
        FirmwareServerSetting const setting = firmwareServerSetting(c.option);
        EXPECT_EQ(setting.error, c.error);
        EXPECT_EQ(firmwareFileUrl(setting.server, 0x41, 0x0132), c.url);
    }
    unsetenv(kFirmwareServerVariable);
    // A model without updates has no file, whatever the server.
    EXPECT_EQ(firmwareFileUrl(FirmwareServerAddress{"127.0.0.1", 7210}, 0x12, 0x0132), "");
}

}  // namespace
