// Reading typed text, rounding at the epsilon edges, and arithmetic with the
// blank marker.
#include <cmath>
#include <random>
#include <string>

#include "profile_fixture.h"

namespace {

using DecimalParse = ProfileTest;

double Parsed(const char* text) {
    Decimal d;
    d = text;
    return double(d);
}

TEST_F(DecimalParse, SignedBracketedAndDecoratedText) {
    UseIntl("iNegNumber=1");
    struct {
        const char* text;
        double want;
    } cases[] = {{"1,234.56-", -1234.56},
                 {"(1,234.56)", 1234.56},
                 {"", 0},
                 {"abc", 0},
                 {"12.3.4", 12.3},
                 {"-12.50", -12.5},
                 {"- 12.50", -12.5},
                 {"12.50 -", -12.5},
                 {"$-12.50", 12.5},
                 {"--5", 5},
                 {"1 2 3", 123},
                 {"\xB2"
                  "12",
                  12},
                 {",,,,", 0},
                 {"....", 0},
                 {"-", 0}};
    for (auto& c : cases)
        EXPECT_EQ(Parsed(c.text), c.want) << c.text;
    UseIntl("sDecimal=,\nsThousand=.");
    EXPECT_EQ(Parsed("1.234,56-"), -1234.56);
    EXPECT_EQ(Parsed("1,2,3"), 1.2);  // a second separator ends the number
}

TEST_F(DecimalParse, BadTextNeverBreaksTheValue) {
    std::string longDigits(10000, '7');
    EXPECT_EQ(Parsed(longDigits.c_str()), std::stod(std::string(159, '7')));  // 159 kept
    std::string longNegative = "-" + longDigits;
    EXPECT_EQ(Parsed(longNegative.c_str()), -std::stod(std::string(158, '7')));
    EXPECT_EQ(Parsed(std::string(5000, ',').c_str()), 0);
    EXPECT_EQ(Parsed(std::string("12\0"
                                 "34",
                                 5)
                         .c_str()),
              12);  // a NUL ends the text
    std::string bytes;
    for (int c = 1; c < 256; ++c)
        bytes += char(c);
    EXPECT_EQ(Parsed(bytes.c_str()), 0.0123456789);  // ".", then the digits; no sign
    Decimal d(3);
    d = static_cast<const char*>(nullptr);
    EXPECT_EQ(double(d), 0);
}

// What is shown reads back as the value rounded to its places, whichever
// negative style the locale has.
TEST_F(DecimalParse, ShownTextReadsBack) {
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> any(-1e9, 1e9);
    for (int style = 0; style < 5; ++style) {
        UseIntl("iNegNumber=" + std::to_string(style) + "\nsThousand=.\nsDecimal=,");
        for (int i = 0; i < 300; ++i) {
            Decimal d(std::round(any(rng) * 100) / 100);
            std::string shown = static_cast<char*>(d);
            Decimal back;
            back = shown.c_str();
            ASSERT_EQ(double(back), double(d)) << shown << " style " << style;
        }
    }
}

TEST_F(DecimalParse, RoundingAtTheEpsilonEdges) {
    struct {
        double v;
        int places;
        double want;
    } cases[] = {
        {1.005, 2, 1.01},    // stored below the half; the nudge lifts it
        {-1.005, 2, -1.00},  // no nudge below zero
        {0.125, 2, 0.13},
        {-2.675, 2, -2.68},
        {-0.125, 2, -0.13},
        {1004.9999999999999, 2, 1005.0},
        {0.124999995, 2, 0.13},    // within 10^-5 of the half: nudged up
        {0.12499998, 2, 0.12},     // just outside it
        {-0.124999995, 2, -0.12},  // negative values are not nudged
        {-1.0051, 2, -1.01},
        {2.5, 0, 3},
        {-2.5, 0, -3},
        {2.5, -1, 3},               // the object's own places, here 0
        {1234.5678, 9, 1234.5678},  // beyond a 32-bit scale
        {0.1234567890126, 12, 0.123456789013},
        {1e300, 20, 1e300},  // too large to scale: left as it is
    };
    for (auto& c : cases) {
        BabyDecimal d(c.v, c.places < 0 ? 0 : 2);
        d.Round(c.places);
        EXPECT_NEAR(double(d), c.want, std::fabs(c.want) * 1e-15) << c.v << " at " << c.places;
    }
    Decimal blank(DecimalBlank);
    blank.Round(2);
    EXPECT_EQ(double(blank), 0.0);
    Decimal nan(NAN);
    nan.Round(2);
    EXPECT_TRUE(std::isnan(double(nan)));
}

TEST_F(DecimalParse, BlankArithmeticAndDivisionByZero) {
    Decimal d(10);
    EXPECT_EQ(d / 0.0, 0.0);
    d /= 0.0;
    EXPECT_EQ(double(d), 0.0);
    EXPECT_FALSE(d.IsNegative());

    // The blank reads as 0 and survives results of 0; it is told apart by
    // counting as negative.
    Decimal blank(DecimalBlank);
    EXPECT_EQ(blank + 2.0, 2.0);
    EXPECT_TRUE(blank == 0.0);
    EXPECT_FALSE(blank < 0.0);
    blank += 0.0;
    blank *= 7.0;
    blank /= 0.0;
    EXPECT_TRUE(blank.IsNegative());
    blank += 5.0;
    EXPECT_EQ(double(blank), 5.0);
    EXPECT_FALSE(blank.IsNegative());
    Decimal sum(0.1);
    sum += 0.2;
    EXPECT_TRUE(sum != 0.3);  // exact comparisons
    EXPECT_TRUE(sum > 0.3);
}

}  // namespace
