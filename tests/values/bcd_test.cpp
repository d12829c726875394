// The packed-decimal form: reading, writing, its digit limits at every
// length, and decimal places that are locked or not.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "profile_fixture.h"

namespace {

using PackedDecimal = ProfileTest;

std::string Hex(const unsigned char* p, int n) {
    static const char* digits = "0123456789ABCDEF";
    std::string out;
    for (int i = 0; i < n; ++i)
        out += std::string{digits[p[i] >> 4], digits[p[i] & 15]};
    return out;
}

// Writes v into `length` bytes of a buffer whose next bytes must stay.
std::string Write(BCD& b, int length, int places) {
    unsigned char buf[16];
    std::memset(buf, 0xEE, sizeof(buf));
    b.CopyBCD(buf, length, places);
    for (int i = std::max(length, 0); i < 16; ++i)
        if (buf[i] != 0xEE) return "wrote past the field";
    return Hex(buf, std::max(0, std::min(length, 16)));
}

std::string Write(double v, int length, int places) {
    BCD b;
    b = v;
    return Write(b, length, places);
}

TEST_F(PackedDecimal, ReadingTakesEverySignAndDigitAtFaceValue) {
    const unsigned char plus[] = {0x01, 0x23, 0x45, 0x6F}, minus[] = {0x01, 0x23, 0x45, 0x6D},
                        other[] = {0x01, 0x23, 0x45, 0x6C}, big[] = {0xA0, 0x0F};
    EXPECT_EQ(double(BCD(plus, 4, 2)), 1234.56);
    EXPECT_EQ(double(BCD(minus, 4, 2)), -1234.56);
    EXPECT_EQ(double(BCD(other, 4, 2)), 1234.56);
    EXPECT_EQ(double(BCD(big, 2, 0)), 1000);       // a digit of 10
    EXPECT_EQ(double(BCD(plus, 4, -1)), 1234.56);  // the regional 2 places
    EXPECT_EQ(BCD(plus, 4, 3).NumDecimalPlaces(), 3);
    EXPECT_EQ(double(BCD(plus, 0, 2)), 0.0);
    EXPECT_EQ(double(BCD(plus, 11, 2)), 0.0);  // not a packed field
    EXPECT_EQ(double(BCD(plus, -1, 2)), 0.0);
    EXPECT_EQ(double(BCD(plus, 4, INT_MAX)), 0.0);  // divides until nothing is left
}

TEST_F(PackedDecimal, WritingSignsAndRounding) {
    EXPECT_EQ(Write(1234.56, 4, 2), "0123456F");
    EXPECT_EQ(Write(-1234.56, 4, 2), "0123456D");
    EXPECT_EQ(Write(-0.001, 4, 2), "0000000F");  // no negative zero
    EXPECT_EQ(Write(DecimalBlank, 4, 2), "0000000F");
    EXPECT_EQ(Write(NAN, 4, 2), "0000000F");
    EXPECT_EQ(Write(1.2345, 4, 3), "0001230F");  // the text at the object's 2 places
    BCD noPlaces;
    noPlaces.SetNumDP(0);
    noPlaces = 12.6;
    EXPECT_EQ(Write(noPlaces, 2, 0), "013F");  // rounded as text
    BCD twoPlaces;
    twoPlaces.SetNumDP(2);
    twoPlaces = 12.6;
    EXPECT_EQ(Write(twoPlaces, 2, 0), "012F");   // "12.60": the fraction cut off
    EXPECT_EQ(twoPlaces.NumDecimalPlaces(), 0);  // ...and the places taken over
    for (int bad : {0, -3, 11, 64}) {            // no packed field: nothing written
        unsigned char buf[80];
        std::memset(buf, 0xEE, sizeof(buf));
        BCD b;
        b = 5.0;
        b.CopyBCD(buf, bad, 2);
        EXPECT_EQ(std::count(buf, buf + 80, 0xEE), 80) << bad;
    }
}

// Every length holds 2L-2 digits after a leading 0; one more integer digit
// does not fit and gives the largest amount of the field, with its sign.
TEST_F(PackedDecimal, DigitLimitsOfEveryLength) {
    for (int length = 1; length <= 10; ++length) {
        for (int places : {0, 2}) {
            int digits = 2 * length - 2, whole = digits - places;
            if (whole < 0) continue;
            std::string nines = "0" + std::string(size_t(digits), '9');
            std::string largest = nines + "F", smallest = nines + "D";
            if (digits == 0) smallest = largest = "0F";
            double limit = std::pow(10.0, whole);
            SCOPED_TRACE("length " + std::to_string(length) + ", places " + std::to_string(places));
            if (digits <= 15) {
                double top = limit - std::pow(10.0, -places);
                EXPECT_EQ(Write(top, length, places), largest);
                EXPECT_EQ(Write(-top, length, places), smallest);
            }
            EXPECT_EQ(Write(limit, length, places), largest);
            EXPECT_EQ(Write(-limit * 10, length, places), smallest);
            EXPECT_EQ(Write(1e300, length, places), largest);
            EXPECT_EQ(Write(-INFINITY, length, places), smallest);
        }
    }
    // Places beyond 2L-2 leave no room even for the first fraction digits.
    EXPECT_EQ(Write(0.05, 3, 5), "05000F");
    EXPECT_EQ(Write(0.5, 3, 5), "09999F");
    EXPECT_EQ(Write(0.1, 1, 1), "0F");
}

// Random values that fit: the bytes carry exactly the value's digits at its
// places, and reading them gives that rounded value back.
TEST_F(PackedDecimal, WrittenFormsReadBackRounded) {
    std::mt19937_64 rng(7);
    for (int i = 0; i < 20000; ++i) {
        int length = 1 + int(rng() % 10);
        int room = std::min(2 * length - 2, 15);
        int places = int(rng() % unsigned(room + 1));
        int digitCount = int(rng() % unsigned(room + 1));
        long long units = 0;
        for (int k = 0; k < digitCount; ++k)
            units = units * 10 + (long long)(rng() % 10);
        if (double(units) * std::max(places, 1) * 1.2e-16 >= 0.4) continue;  // reading stays exact
        bool negative = rng() % 2;
        double noise = (double(rng() % 501) - 250) / 1000;  // well inside half a unit
        double v = (double(units) + noise) / std::pow(10.0, places) * (negative ? -1 : 1);
        BCD b;
        b.SetNumDP(places);
        b = v;
        std::string got = Write(b, length, places);
        std::string digits = std::to_string(units);
        std::string want = std::string(size_t(2 * length - 1) - digits.size(), '0') + digits;
        want += negative && units ? "D" : "F";
        ASSERT_EQ(got, want) << v << " in " << length << " bytes at " << places;
        unsigned char bytes[10];
        b.CopyBCD(bytes, length, places);
        double back = double(BCD(bytes, length, places));
        double exact = double(units) / std::pow(10.0, places) * (negative ? -1 : 1);
        ASSERT_NEAR(back, exact, std::fabs(exact) * 4e-15) << got;
        BabyDecimal rounded(exact, places), again(back, places);
        ASSERT_STREQ(rounded, again);

        // One integer digit too many: the largest amount, never more bytes.
        int whole = 2 * length - 2 - places;
        if (whole < 0 || whole > 300) continue;
        double tooBig = std::pow(10.0, whole) * (1 + double(rng() % 1000) / 100);
        std::string nines = "0" + std::string(size_t(2 * length - 2), '9');
        if (length == 1) nines = "0";
        ASSERT_EQ(Write(negative ? -tooBig : tooBig, length, places),
                  nines + (negative && length > 1 ? "D" : "F"))
            << tooBig << " in " << length << " bytes at " << places;
    }
}

TEST_F(PackedDecimal, DecimalPlacesLockAndTravel) {
    const unsigned char form[] = {0x12, 0x3F};
    BCD b;
    EXPECT_FALSE(b.HasDecimalOverride());
    EXPECT_EQ(b.NumDecimalPlaces(), 2);  // the regional default
    b.SetToBCD(form, 2, -1);
    EXPECT_EQ(double(b), 1.23);  // at the regional places
    b.SetToBCD(form, 2, 1);
    EXPECT_TRUE(b.DecimalPointIsLocked());  // loading locks the form's places
    b.SetToBCD(form, 2, -1);                // locked: read at the places it has
    EXPECT_EQ(double(b), 12.3);
    EXPECT_EQ(b.LockDecimalPoint(0), 1);
    EXPECT_EQ(b.NumDecimalPlaces(), 1);  // unlocked, places kept
    b.SetToBCD(form, 2, -1);             // unlocked: the places are dropped first
    EXPECT_EQ(double(b), 1.23);
    b.LockDecimalPoint(0);
    BCD other;
    other.SetNumDP(4);
    other = 9.87654;
    b = other;  // unlocked: takes the other's places
    EXPECT_EQ(b.NumDecimalPlaces(), 4);
    EXPECT_EQ(double(b), 9.87654);
    BCD locked;
    locked.SetNumDP(1);
    locked = other;
    EXPECT_EQ(locked.NumDecimalPlaces(), 1);
    locked.ResetDecimalPoint();
    EXPECT_FALSE(locked.DecimalPointIsLocked());
    EXPECT_FALSE(locked.HasDecimalOverride());
    // Absurd places neither hang nor write past the field.
    BCD wild;
    wild.SetNumDP(1000000);
    wild = 1.5;
    EXPECT_EQ(Write(wild, 4, -1), "0999999F");  // too small a field for such places
    EXPECT_EQ(std::strlen(wild), 81u);          // "1." and the 79 places the text holds
}

}  // namespace
