#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "response_code.h"

namespace {

TEST(ResponseCodeTest, EveryCodeHasItsTextOrNone) {
    struct Case {
        uint16_t code;
        char const* message;
    };
    // 0, 6 and 10 are Success, PasswordRejected and Cancelled: none of them has a text.
    Case const cases[] = {
        {0, nullptr},
        {1, "Invalid request."},
        {2, "Invalid parameter."},
        {3, "Request failed."},
        {4, "Feature is locked by user password."},
        {5, "Feature is locked by master password."},
        {6, nullptr},
        {7, nullptr},
        {8, "Request timeout."},
        {9, "Invalid device response."},
        {10, nullptr},
        {11, nullptr},
        {0x100, nullptr},
        {0xFFFF, nullptr},
    };
    for (auto const& c : cases) {
        EXPECT_STREQ(responseCodeMessage(static_cast<Zelmor::ResponseCode>(c.code)), c.message) << c.code;
    }
}

}  // namespace
