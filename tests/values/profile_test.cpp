// The regional profile file: where it is, what it yields, and what it
// passes over without stopping.
#include "platform/profile.h"

#include "profile_fixture.h"

namespace {

using RegionalProfile = ProfileTest;

std::string Value(const char* key, const char* section = "intl") {
    return ProfileValue(section, key).value_or("<none>");
}

TEST_F(RegionalProfile, MissingFileOrKeysTakeTheDefaults) {
    setenv("DBFILE_PROFILE", (dir_ + "/nowhere/profile.ini").c_str(), 1);
    Reload();
    EXPECT_EQ(Value("sDecimal"), "<none>");
    EXPECT_STREQ(Currency(-1234.5), "($1,234.50)");
    UseIntl("sCurrency=kr\n");
    EXPECT_STREQ(Decimal(-1234567.891), "-1,234,567.89");  // no locale style: "-" in front
    EXPECT_STREQ(Currency(1234.5), "kr1,234.50");
}

TEST_F(RegionalProfile, BadLinesArePassedOverAndTheRestIsRead) {
    std::string tooLong = "sCurrency=" + std::string(300, 'x') + "\n";
    // A cut line must not come back as a line of its own.
    std::string cutTail = std::string(199, ';') + "sDecimal=#\n";
    Use("\xEF\xBB\xBF; comment\n[intl]\nno equals sign here\n=value without key\n" + tooLong +
        cutTail + "[intl\n[INTL]\nSTHOUSAND = '\n  # indented comment\nsThousand=x\niDigits=3\n" +
        std::string("bad\0line\n", 9) + "[other]\niDigits=7\n");
    EXPECT_EQ(Value("sThousand"), "'");  // case folded, blanks trimmed, the first counts
    EXPECT_EQ(Value("sDecimal"), "<none>");
    EXPECT_EQ(Value("sCurrency"), "<none>");
    EXPECT_EQ(Value("iDigits", "Other"), "7");
    EXPECT_STREQ(Decimal(1234567.891), "1'234'567.891");
}

TEST_F(RegionalProfile, QuotesUtf8AndEmptyValues) {
    UseIntl("sThousand=\" \"\nsCurrency=\xE2\x82\xAC\nsDecimal=\xC2\xB7\niNegCurr=\n");
    EXPECT_EQ(Value("sThousand"), " ");
    EXPECT_EQ(Value("sCurrency"), "\x80");  // the euro sign of the 8-bit code page
    EXPECT_STREQ(Currency(-1234.5),
                 "(\x80"
                 "1 234\xB7"
                 "50)");              // empty iNegCurr: default 0
    UseIntl("sCurrency=\x80\xFF\n");  // not UTF-8: kept as it is
    EXPECT_EQ(Value("sCurrency"), "\x80\xFF");
    UseIntl("sThousand=\n");  // an empty separator groups nothing
    EXPECT_STREQ(Decimal(1234567.891), "1234567.89");
}

TEST_F(RegionalProfile, NumbersReadAsTheProfileReadsThem) {
    struct {
        const char* text;
        unsigned want;
    } cases[] = {{"7", 7},   {" 12", 12},         {"+3", 3},    {"12abc", 12},
                 {"abc", 0}, {"-1", 4294967295u}, {"-0x5", 0u}, {"4294967297", 1}};
    for (auto& c : cases)
        EXPECT_EQ(ProfileNumber(c.text), c.want) << c.text;
    UseIntl("iDigits=\niLzero=x\n");
    EXPECT_EQ(ProfileInt("intl", "iDigits", 5), 5u);  // empty: the default
    EXPECT_EQ(ProfileInt("intl", "iLzero", 5), 0u);   // no digits: 0
    EXPECT_EQ(ProfileInt("intl", "iMissing", 5), 5u);
}

TEST_F(RegionalProfile, TheFileComesFromTheVariableElseTheHomeFolder) {
    std::string home = getenv("HOME") ? getenv("HOME") : "";
    setenv("DBFILE_PROFILE", "", 1);
    setenv("HOME", dir_.c_str(), 1);
    EXPECT_EQ(ProfilePath(), dir_ + "/.config/dbfile/profile.ini");
    std::filesystem::create_directories(dir_ + "/.config/dbfile");
    std::ofstream(dir_ + "/.config/dbfile/profile.ini") << "[intl]\nsDecimal=,\n";
    Reload();
    EXPECT_EQ(Value("sDecimal"), ",");
    setenv("HOME", home.c_str(), 1);
}

TEST_F(RegionalProfile, SettingsStayCachedUntilReloaded) {
    UseIntl("sDecimal=,\nsThousand=.\niCurrency=3\nsCurrency=EUR\n");
    EXPECT_STREQ(Currency(1234.5), "1.234,50 EUR");
    int64_t numbers = Decimal::IntlStamp(), money = Currency::IntlStamp();
    EXPECT_NE(numbers, 0);
    EXPECT_NE(money, 0);
    WriteProfile("[intl]\n");
    EXPECT_STREQ(Currency(1234.5), "1.234,50 EUR");
    Reload();
    EXPECT_STREQ(Currency(1234.5), "$1,234.50");
    EXPECT_GE(Decimal::IntlStamp(), numbers);
    // Digits above the locale's limit of 9 count as 9.
    UseIntl("iDigits=40\niCurrDigits=-1\n");
    EXPECT_EQ(Decimal::IntlDecimalDigits(), 9);
    EXPECT_EQ(Currency::IntlDecimalDigits(), 9);
}

}  // namespace
