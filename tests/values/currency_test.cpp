// Currency: its patterns, reading decorated amounts, comparisons of rounded
// amounts and the 8-byte packed amount.
#include <cstring>
#include <random>
#include <string>

#include "profile_fixture.h"

namespace {

using Money = ProfileTest;

std::string Hex(const BtrieveCurrency& b) {
    std::string out;
    for (unsigned char c : b.m_Bytes)
        out += std::string{"0123456789ABCDEF"[c >> 4], "0123456789ABCDEF"[c & 15]};
    return out;
}

TEST_F(Money, EveryCurrencyPattern) {
    const char* positive[] = {"$1,234.50", "1,234.50$", "$ 1,234.50", "1,234.50 $"};
    const char* negative[] = {"($1,234.50)", "-$1,234.50",  "$-1,234.50", "$1,234.50-",
                              "(1,234.50$)", "-1,234.50$",  "1,234.50-$", "1,234.50$-",
                              "-1,234.50 $", "-$ 1,234.50", "1,234.50 $-"};
    for (int i = 0; i < 4; ++i) {
        UseIntl("iCurrency=" + std::to_string(i));
        EXPECT_STREQ(Currency(1234.5), positive[i]) << i;
    }
    for (int i = 0; i < 11; ++i) {
        UseIntl("iNegCurr=" + std::to_string(i));
        EXPECT_STREQ(Currency(-1234.5), negative[i]) << i;
    }
    UseIntl("iCurrency=7\niNegCurr=15");  // past the tables: their last entries
    EXPECT_STREQ(Currency(1234.5), positive[3]);
    EXPECT_STREQ(Currency(-1234.5), negative[10]);
    UseIntl("iCurrency=-1\niNegCurr=-1");  // read unsigned: past the tables too
    EXPECT_STREQ(Currency(-1234.5), negative[10]);
    UseIntl("sCurrency=" + std::string(40, 'S') + "\niDigits=0\niCurrDigits=4");
    EXPECT_EQ(std::string(Currency(5.0)), std::string(31, 'S') + "5.");  // 31 characters kept
    EXPECT_EQ(Currency::IntlDecimalDigits(), 4);  // kept for callers, not used here
}

TEST_F(Money, DecoratedAmountsReadBack) {
    struct {
        const char* text;
        double want;
    } cases[] = {{"($1,234.50)", -1234.5},
                 {"-$1,234.50", -1234.5},
                 {"$1,234.50-", -1234.5},
                 {" (5.00) ", -5},
                 {"5.00-", -5},
                 {"5.00", 5},
                 {"(5.00", 5},
                 {"", 0},
                 {"()", 0}};
    for (auto& c : cases) {
        Currency m;
        m = c.text;
        EXPECT_EQ(double(m), c.want) << c.text;
    }
    // Every pattern's text reads back as the rounded amount.
    std::mt19937 rng(3);
    for (int neg = 0; neg < 11; ++neg) {
        UseIntl("sDecimal=,\nsThousand=.\nsCurrency=kr\niNegCurr=" + std::to_string(neg) +
                "\niCurrency=" + std::to_string(neg % 4));
        for (int i = 0; i < 100; ++i) {
            Currency m(double(int(rng() % 2000001) - 1000000) / 100);
            std::string shown = static_cast<char*>(m);
            Currency back;
            back = shown.c_str();
            ASSERT_EQ(double(back), double(m)) << shown;
        }
    }
}

TEST_F(Money, ComparisonsRoundBothSides) {
    Currency fine;
    fine.SetNumDP(4);
    fine = 1.2345;
    EXPECT_FALSE(fine == 1.2345);  // the double is rounded to the regional 1.23
    EXPECT_FALSE(fine != 1.2345);  // ...but to this amount's 4 places for !=
    EXPECT_TRUE(fine > 1.2345);
    EXPECT_TRUE(Currency(1.005) == 1.01);
    EXPECT_TRUE(Currency(2.0) >= 2.004);
    EXPECT_FALSE(Currency(2.0) < 2.004);
    EXPECT_TRUE(Currency(DecimalBlank) == 0.0);
    EXPECT_TRUE(Currency(0.1) + Currency(0.2) == 0.30000000000000004);
    Currency sum(0.1);
    sum += Currency(0.2);
    EXPECT_TRUE(sum == Currency(0.3));  // rounded, unlike Decimal
    EXPECT_TRUE(sum <= BtrieveCurrency(0.3));
    EXPECT_EQ(Currency(7) / Currency(0.0), 0.0);
}

TEST_F(Money, EightBytePackedAmounts) {
    BtrieveCurrency zero;
    EXPECT_EQ(Hex(zero), "000000000000000F");
    EXPECT_EQ(zero.GetSign(), 0);
    BtrieveCurrency b;
    EXPECT_EQ(b = -5.0, -5.0);
    EXPECT_EQ(Hex(b), "000000000000500D");
    EXPECT_EQ(b.GetSign(), -1);
    EXPECT_EQ(BtrieveCurrency(0.01).GetSign(), 1);
    b.m_Bytes[7] = 0x0C;  // any sign but 0xD is positive
    EXPECT_EQ(b.GetSign(), 1);

    // Read at this amount's places: 12345 units are 123.45, or 12345 at none.
    BtrieveCurrency units(123.45);
    Currency whole;
    whole.SetNumDP(0);
    whole = 1.0;
    EXPECT_EQ(whole + units, 12346.0);
    EXPECT_DOUBLE_EQ(Currency(1.0) + units, 124.45);
    EXPECT_EQ(double(Currency(units)), 123.45);
    Currency four;
    four.SetNumDP(4);
    four = 1.23456;
    BtrieveCurrency written(four);
    EXPECT_EQ(Hex(written), "000000000012346F");
    EXPECT_EQ(BtrieveCurrency(1e15).GetSign(), 1);  // too large: the largest amount
    EXPECT_EQ(Hex(BtrieveCurrency(-1e15)), "099999999999999D");
}

TEST_F(Money, PackedFormOfAnAmount) {
    Currency fresh(12.345);
    EXPECT_EQ(fresh.BCDLen(), 8);
    EXPECT_EQ(double(fresh), 12.35);  // rounded to its places on the way
    EXPECT_EQ(std::memcmp(fresh.BCDStr(), "\x00\x00\x00\x00\x00\x01\x23\x5F", 8), 0);
    const unsigned char six[] = {0x00, 0x00, 0x00, 0x01, 0x23, 0x4D};
    Currency m(six, 6);
    EXPECT_EQ(double(m), -12.34);
    EXPECT_EQ(m.BCDLen(), 6);  // the loaded length stays for later conversions
    m += 100.0;
    EXPECT_EQ(std::memcmp(m.BCDStr(), "\x00\x00\x00\x08\x76\x6F", 6), 0);
    m = 5.0;  // a new value has no packed form yet
    EXPECT_EQ(m.BCDLen(), 8);
    Currency none(static_cast<CDbFile*>(nullptr), 3);  // no file: a field without places
    EXPECT_EQ(none.NumDecimalPlaces(), 0);
    EXPECT_TRUE(none.DecimalPointIsLocked());
}

}  // namespace
