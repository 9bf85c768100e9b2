// Floats in zelmorctl's JSON: the printed number reads back as the very float
// the device sent, in its shortest decimal.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include "float_json.h"

namespace {

TEST(FloatJson, PrintsTheShortestDecimalThatReadsBackAsTheSameFloat) {
    float const infinity = std::numeric_limits<float>::infinity();
    struct Case {
        float value;
        char const* text;
    };
    Case const cases[] = {
        {-33.125f, "-33.125"},
        {13.249999f, "13.249999"},
        // The JSON writer's own double form: 1.0000637000000001.
        {1.0000637f, "1.0000637"},
        {1e-7f, "1e-07"},
        {12.0f, "12.0"},
        {-0.0f, "-0.0"},
        {std::numeric_limits<float>::max(), "3.4028235e+38"},
        {std::numeric_limits<float>::denorm_min(), "1e-45"},
        {std::bit_cast<float>(uint32_t{0x007FFFFF}), "1.1754942e-38"},
        // The one float whose decimal's nearest double turns into another float.
        {std::bit_cast<float>(uint32_t{0x15AE43FD}), "7.038531e-26"},
        // JSON has no number for these.
        {std::nanf(""), "null"},
        {infinity, "null"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        std::string const printed = jsonLine(floatJson(c.value));
        EXPECT_EQ(printed, c.text);
        if (std::isfinite(c.value)) {
            EXPECT_EQ(std::bit_cast<uint32_t>(std::strtof(printed.c_str(), nullptr)), std::bit_cast<uint32_t>(c.value));
        }
    }
    // Inside a line too; bytes that are not UTF-8 (a device's name) become U+FFFD.
    EXPECT_EQ(jsonLine({{"p", {floatJson(-33.125f), 1}}, {"n", "b\xFF"}}),
              "{\"p\":[-33.125,1],\"n\":\"b\xEF\xBF\xBD\"}");
}

}  // namespace
