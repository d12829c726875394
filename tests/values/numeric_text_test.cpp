// The runtime's conversions rebuilt: fixed-point digits and text to double.
// Their ordinary results show through the Decimal tests; here, their edges.
#include "platform/numeric_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

namespace {

std::string Fixed(double v, int places) {
    FixedDigits f = FixedConvert(v, places);
    return f.digits + "@" + std::to_string(f.point);
}

TEST(FixedConvert, SeventeenDigitsThenHalfUp) {
    EXPECT_EQ(Fixed(0.005, 2), "1@-1");  // 5.0000000000000001e-3: the half goes up
    EXPECT_EQ(Fixed(0.001, 2), "@-2");   // rounds to nothing
    EXPECT_EQ(Fixed(-12.6, 0), "13@2");  // the magnitude; the sign apart
    EXPECT_TRUE(FixedConvert(-12.6, 0).negative);
    EXPECT_EQ(Fixed(1180591620717411303424.0, 0), "1180591620717411300000@22");  // zeros past 17
    EXPECT_EQ(Fixed(1.0, -4), "1@1");                            // negative places count as 0
    EXPECT_EQ(FixedConvert(1e-300, 100000).digits.size(), 41u);  // places capped at 340
    EXPECT_FALSE(FixedConvert(HUGE_VAL, 2).finite);
    EXPECT_FALSE(FixedConvert(std::nan(""), 2).finite);
}

// Away from halves the result is the correctly rounded one, as printf gives.
TEST(FixedConvert, AgreesWithCorrectRoundingAwayFromHalves) {
    std::mt19937_64 rng(8);
    std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
    for (int i = 0; i < 20000; ++i) {
        int places = int(rng() % 7);
        // At most 12 digits in all, so that 17 significant digits hold them.
        double v = mantissa(rng) * std::pow(10.0, double(rng() % unsigned(12 - places)));
        double scaled = std::fabs(v) * std::pow(10.0, places);
        if (std::fabs(scaled - std::floor(scaled) - 0.5) < 1e-3) continue;
        char want[64];
        std::snprintf(want, sizeof(want), "%.*f", places, std::fabs(v));
        FixedDigits f = FixedConvert(v, places);
        std::string all = f.point > 0 ? f.digits : std::string(size_t(1 - f.point), '0') + f.digits;
        std::string got = all.substr(0, all.size() - size_t(places));
        if (places) got += "." + all.substr(all.size() - size_t(places));
        ASSERT_EQ(got, want) << v << " at " << places;
    }
}

TEST(TextToDouble, ReadsWhatAtofReads) {
    struct {
        const char* text;
        double want;
    } cases[] = {{"  -12.5", -12.5}, {"+3", 3},    {".5", 0.5},           {"-", 0},
                 {"1.2.3", 1.2},     {"1e3", 1e3}, {"0x10", 16},          {"0x", 0},
                 {"1e-400", 0},      {"abc", 0},   {"-1e400", -HUGE_VAL}, {"inf", HUGE_VAL}};
    for (auto& c : cases)
        EXPECT_EQ(TextToDouble(c.text), c.want) << c.text;
    EXPECT_EQ(TextToDouble(nullptr), 0.0);
    EXPECT_EQ(TextToDouble(("1" + std::string(400, '0')).c_str()), HUGE_VAL);
    EXPECT_EQ(TextToDouble(("0." + std::string(400, '0') + "1").c_str()), 0.0);
}

}  // namespace
