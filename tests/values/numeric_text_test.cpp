// The runtime's conversions rebuilt: fixed-point digits and text to double.
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

TEST(FixedConvert, RoundsOnSeventeenDigitsThenHalfUp) {
    struct {
        double v;
        int places;
        const char* want;
    } cases[] = {
        {0.125, 2, "13@0"},        // an exact half goes up
        {2.5, 0, "3@1"},           // ...also at no places
        {1.005, 2, "100@1"},       // stored below the half
        {2.675, 2, "267@1"},       //
        {999.995, 2, "100000@4"},  // carries into a new digit
        {0.05, 2, "5@-1"},         //
        {0.001, 2, "@-2"},         // rounds to nothing
        {0.0, 3, "@-3"},           //
        {0.005, 2, "1@-1"},        //
        {-12.6, 0, "13@2"},        // the magnitude; the sign apart
        {1e20, 1, "1000000000000000000000@21"},
        {1180591620717411303424.0, 0, "1180591620717411300000@22"},  // zeros past 17 digits
        {1.0, -4, "1@1"},                                            // negative places count as 0
    };
    for (auto& c : cases)
        EXPECT_EQ(Fixed(c.v, c.places), c.want) << c.v << " at " << c.places;
    EXPECT_TRUE(FixedConvert(-12.6, 0).negative);
    EXPECT_FALSE(FixedConvert(HUGE_VAL, 2).finite);
    EXPECT_FALSE(FixedConvert(std::nan(""), 2).finite);
    EXPECT_EQ(FixedConvert(1e-300, 100000).digits.size(), 41u);  // places capped at 340
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
        std::string got = f.point > 0 ? f.digits.substr(0, size_t(f.point)) + "." +
                                            f.digits.substr(size_t(f.point))
                                      : "0." + std::string(size_t(-f.point), '0') + f.digits;
        if (places == 0) got += "0";
        std::string expect = want;
        if (places == 0) expect += ".0";
        ASSERT_EQ(got, expect) << v << " at " << places;
    }
}

TEST(TextToDouble, ReadsWhatAtofReads) {
    struct {
        const char* text;
        double want;
    } cases[] = {{"  -12.5", -12.5},
                 {"+3", 3},
                 {".5", 0.5},
                 {"-", 0},
                 {"", 0},
                 {"1.2.3", 1.2},
                 {"12abc", 12},
                 {"abc", 0},
                 {"1e3", 1000},
                 {"0x10", 16},
                 {"0x", 0},
                 {"1e-400", 0},
                 {"1e400", HUGE_VAL},
                 {"-1e400", -HUGE_VAL},
                 {"inf", HUGE_VAL}};
    for (auto& c : cases)
        EXPECT_EQ(TextToDouble(c.text), c.want) << c.text;
    EXPECT_EQ(TextToDouble(nullptr), 0.0);
    EXPECT_EQ(TextToDouble(("1" + std::string(400, '0')).c_str()), HUGE_VAL);
    EXPECT_EQ(TextToDouble(("0." + std::string(400, '0') + "1").c_str()), 0.0);
    EXPECT_TRUE(std::isnan(TextToDouble("nan")));
}

TEST(IsAnsiDigit, DigitsAndSuperscriptsOnly) {
    for (char c : std::string("0123456789\xB2\xB3\xB9"))
        EXPECT_TRUE(IsAnsiDigit(c)) << int(c);
    for (char c : std::string("/:aZ \xBD\xAA\xFF-"))
        EXPECT_FALSE(IsAnsiDigit(c)) << int(c);
}

}  // namespace
