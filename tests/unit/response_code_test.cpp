#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "response_code.h"

namespace {

// Success, PasswordRejected and Cancelled (0, 6 and 10) have no text, nor has
// any code the device does not send.
TEST(ResponseCodeTest, EveryCodeHasItsTextOrNone) {
    char const* const texts[] = {
        nullptr,
        "Invalid request.",
        "Invalid parameter.",
        "Request failed.",
        "Feature is locked by user password.",
        "Feature is locked by master password.",
        nullptr,
        nullptr,
        "Request timeout.",
        "Invalid device response.",
        nullptr,
        nullptr,
    };
    for (uint16_t code = 0; code < std::size(texts); ++code)
        EXPECT_STREQ(responseCodeMessage(static_cast<Zelmor::ResponseCode>(code)), texts[code]) << code;
    for (uint16_t code : {0x100, 0xFFFF})
        EXPECT_STREQ(responseCodeMessage(static_cast<Zelmor::ResponseCode>(code)), nullptr) << code;
}

}  // namespace
