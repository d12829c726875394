// Decimal display text by the regional profile, one step replaced at a
// time, and the widths that line columns up.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/ui_host.h"
#include "profile_fixture.h"

namespace {

using DecimalFormat = ProfileTest;

struct Case {
    const char* profile;  // [intl] lines
    double value;
    const char* want;
};

TEST_F(DecimalFormat, ByTheProfile) {
    const Case cases[] = {
        {"", 1234567.891, "1,234,567.89"},
        {"iNegNumber=0", -1234.5, "(1,234.50)"},
        {"iNegNumber=1", -1234.5, "-1,234.50"},
        {"iNegNumber=2", -1234.5, "- 1,234.50"},
        {"iNegNumber=3", -1234.5, "1,234.50-"},
        {"iNegNumber=4", -1234.5, "1,234.50 -"},
        {"iNegNumber=7", -1234.5, "- 1,234.50"},  // modulo 5
        {"iNegNumber=x", -1234.5, "(1,234.50)"},  // no digits read as 0
        {"", -1234.5, "-1,234.50"},               // no locale style: "-" in front
        {"iNegNumber=1", DecimalBlank, "-0.00"},  // the blank counts as negative
        {"iNegNumber=1", -0.001, "-0.00"},
        {"iLzero=1", 0.05, "0.05"},
        {"iLzero=0", 0.05, ".05"},
        {"iLzero=0", 0.0, ".00"},
        {"sDecimal=,\nsThousand=.", 1234567.891, "1.234.567,89"},
        {"sDecimal=,,\nsThousand=..", 1234.5, "1.234,50"},  // the first character counts
        {"iDigits=0", 1234567.5, "1,234,568."},             // the separator stays
        {"iDigits=4", 2.5, "2.5000"},
        {"", 999.995, "1,000.00"},  // rounding carries into a group
        {"", 0.125, "0.13"},        // halves go up
        {"", 1.005, "1.00"},        // stored below the half
        {"", 1e80, "***.**"},       // integer part past 79 digits
        {"", INFINITY, "***.**"},
        {"", -NAN, "***.**"},
    };
    for (const Case& c : cases) {
        UseIntl(c.profile);
        EXPECT_STREQ(Decimal(c.value), c.want) << c.profile << " / " << c.value;
    }
}

TEST_F(DecimalFormat, GroupsUpToSixtyIntegerDigits) {
    std::string sixty = static_cast<char*>(Decimal(5e59));
    EXPECT_EQ(sixty.size(), 79u + 3u);  // 60 digits and 19 separators, then ".00"
    EXPECT_EQ(std::count(sixty.begin(), sixty.end(), ','), 19);
    EXPECT_EQ(sixty.substr(sixty.size() - 11), ",000,000.00");
    std::string sixtyOne = static_cast<char*>(Decimal(5e60));
    EXPECT_EQ(sixtyOne.size(), 61u + 3u);  // too long to group
    EXPECT_EQ(sixtyOne.find(','), std::string::npos);
    // A decorated negative number holds at most 63 characters.
    UseIntl("iNegNumber=0");
    Decimal negative(-1e59);
    EXPECT_EQ(std::strlen(negative), 63u);
    EXPECT_EQ(static_cast<char*>(negative)[0], '(');
}

// Each subclass replaces one step; everything else is formatted as before.
struct Apostrophes : Decimal {
    using Decimal::Decimal;
    char GetThousandsSeparator() const override { return '\''; }
};
struct NoLeadingZero : Decimal {
    using Decimal::Decimal;
    int UseLeadingZero() const override { return 0; }
};
struct NoBareSeparator : BabyDecimal {
    NoBareSeparator(double v) : BabyDecimal(v, 0) {}
    int UseSeparatorIfNoFrac() const override { return 0; }
};
struct Undecorated : Decimal {
    using Decimal::Decimal;
    void AddSpecialSymbols() override {}
};
struct CommaDecimals : Decimal {
    using Decimal::Decimal;
    using Decimal::operator=;
    char GetDecimalSeparator() const override { return ','; }
    char GetThousandsSeparator() const override { return ' '; }
};

TEST_F(DecimalFormat, ReplacingOneStepChangesOnlyThatStep) {
    UseIntl("iNegNumber=3");
    EXPECT_STREQ(Apostrophes(-1234567.891), "1'234'567.89-");
    EXPECT_STREQ(NoLeadingZero(-0.05), ".05-");
    EXPECT_STREQ(NoLeadingZero(1234.5), "1,234.50");
    EXPECT_STREQ(BabyDecimal(12.6, 0), "13.");
    EXPECT_STREQ(NoBareSeparator(-12.6), "13-");
    EXPECT_STREQ(Undecorated(-1234.5), "1,234.50");
    CommaDecimals c(-1234.5);
    EXPECT_STREQ(c, "1 234,50-");
    c = "1 234,56-";  // reading uses the same steps
    EXPECT_EQ(double(c), -1234.56);
}

// A host that measures two units a character and remembers the context.
struct WideHost : HeadlessUiHost {
    int TextExtentOn(HDC dc, const char* text) override {
        lastDc = dc;
        return 2 * int(std::strlen(text));
    }
    HDC lastDc = nullptr;
};

TEST_F(DecimalFormat, WidthsLineUpOnTheSeparator) {
    UseIntl("iNegNumber=3\niNegCurr=0");
    HDC dc = reinterpret_cast<HDC>(0x10);
    Decimal amount(1234.5);
    EXPECT_EQ(amount.Extent(dc), 8);  // headless: one unit a character
    // "1,234." and the sample's tail "23-"
    EXPECT_EQ(amount.DecimalExtent(dc), 6 + 3);
    EXPECT_EQ(Decimal(-1234.5).DecimalExtent(dc), 9);       // negative: the whole text
    EXPECT_EQ(BabyDecimal(7, 0).DecimalExtent(dc), 2 + 1);  // "7." and the tail of "1.-"
    Currency money(1234.5);                                 // "$1,234." + "23-" + ")" of "($#)"
    EXPECT_EQ(money.DecimalExtent(dc), 7 + 3 + 1);
    WideHost wide;
    SetUiHost(&wide);
    EXPECT_EQ(amount.Extent(dc), 16);
    EXPECT_EQ(wide.lastDc, dc);
    SetUiHost(nullptr);
}

}  // namespace
