// Field values between stored bytes and text: every type round trip through
// plain text, display texts under two regional profiles, the common
// library's layouts, query literals, and bad input at the edges.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

using Bytes = std::vector<char>;

std::string Plain(const Bytes& b, dbFieldType t, int dp = 2) {
    CString out;
    return CDbFile::FormatFileDataToString(out, b.data(), int(b.size()), t, dp);
}

Bytes Stored(const std::string& text, int len, dbFieldType t, int dp = 2) {
    Bytes b(size_t(len) + 4, '\x5a');  // guard bytes after the field
    CDbFile::FormatStringToFileData(text.c_str(), b.data(), len, t, dp);
    EXPECT_EQ(std::string(b.begin() + len, b.end()), "\x5a\x5a\x5a\x5a") << "wrote past the field";
    b.resize(size_t(len));
    return b;
}

std::string Display(const Bytes& b, dbFieldType t, dbDispCode d, int dp = 2, int phone = -1) {
    CString out = "untouched";
    return CDbFile::FormatFileDataToDisplay(out, b.data(), int(b.size()), t, d, dp, nullptr, phone);
}

template <class T>
Bytes Of(T v, size_t len = sizeof(T)) {
    Bytes b(len, 0);
    std::memcpy(b.data(), &v, std::min(len, sizeof(T)));
    return b;
}

// Random stored values of every type and length a field may have, each in
// the form the library itself writes: plain text must carry it back.
TEST(FieldText, StoredToPlainTextAndBackKeepsTheBytes) {
    std::mt19937 rng(std::random_device{}());
    unsigned seed = rng();
    SCOPED_TRACE("seed " + std::to_string(seed));
    rng.seed(seed);
    auto text = [&](size_t n) {
        std::string s;
        for (size_t i = 0; i < n; ++i)
            s += char(' ' + rng() % 95);
        return s;
    };
    for (int round = 0; round < 3000; ++round) {
        Bytes b;
        dbFieldType t;
        int dp = 0;
        switch (round % 11) {
            case 0:  // fixed text, possibly shorter than the field
                t = round % 2 ? dbString : dbFixedText;
                b = Bytes(1 + rng() % 30, 0);
                {
                    std::string s = text(rng() % (b.size() + 1));
                    std::memcpy(b.data(), s.data(), s.size());
                }
                break;
            case 1:  // NUL-terminated text
                t = round % 2 ? dbZString : dbPhone;
                b = Bytes(1 + rng() % 30, 0);
                {
                    std::string s = text(rng() % b.size());
                    std::memcpy(b.data(), s.data(), s.size());
                }
                break;
            case 2:
                t = dbInteger;
                b = rng() % 2 ? Of(int16_t(rng())) : Of(int32_t(rng()));
                break;
            case 3: {
                static const dbFieldType kUnsigned[] = {dbUnsigned, dbAutoInc, dbUnsignedText};
                t = kUnsigned[rng() % 3];
                b = rng() % 2 ? Of(uint16_t(rng())) : Of(uint32_t(rng()));
                break;
            }
            case 4: {
                t = dbFloat;
                double v = std::ldexp(double(int32_t(rng())), int(rng() % 80) - 40);
                b = rng() % 2 ? Of(float(v)) : Of(v);
                break;
            }
            case 5:
                t = dbDate;
                b = Of(
                    Date(1 + int(rng() % 9999), 1 + int(rng() % 12), 1 + int(rng() % 28)).Value());
                break;
            case 6:
                t = dbTime;
                b = Of(Time(int(rng() % 24), int(rng() % 60), int(rng() % 60), int(rng() % 100))
                           .Value());
                break;
            case 7:
            case 8: {  // packed money, at most 15 digits so a double carries it
                t = dbMoney;
                int len = 1 + int(rng() % 8);
                dp = int(rng() % std::min(5, 2 * len - 1));
                int digits = std::min(2 * len - 2, 15);
                double whole = double(rng() % 1000000000ull) * double(rng() % 1000000ull);
                double v = std::fmod(whole, std::pow(10.0, digits)) / std::pow(10.0, dp);
                BCD amount;
                amount.SetNumDP(dp);
                amount = v;
                b = Bytes(size_t(len), 0);
                amount.CopyBCD(reinterpret_cast<unsigned char*>(b.data()), len, dp);
                if (rng() % 2 && v != 0) b.back() = char((b.back() & 0xF0) | 0x0D);
                break;
            }
            case 9:
                t = dbBoolean;
                b = Bytes(1, char(rng() % 2));
                break;
            default:
                t = dbDate;
                b = Of(uint32_t(0));  // the blank date
        }
        std::string plain = Plain(b, t, dp);
        EXPECT_EQ(Stored(plain, int(b.size()), t, dp), b)
            << "type " << t << " length " << b.size() << " places " << dp << " text " << plain;
    }
}

TEST(FieldText, PlainAndStoredEdges) {
    EXPECT_EQ(Plain(Of(uint16_t(0xFFFF)), dbInteger), "-1");
    EXPECT_EQ(Plain(Of(uint16_t(0xFFFF)), dbUnsigned), "65535");
    EXPECT_EQ(Plain(Bytes(8, 0), dbDecimal), "********");
    EXPECT_EQ(Plain(Bytes(3, 1), dbFieldType(14)), "***");
    EXPECT_EQ(Plain(Bytes{'A', 'B', 0, 'C'}, dbString), "AB");
    EXPECT_EQ(Plain(Bytes{char(7)}, dbBoolean), "1");
    EXPECT_EQ(Plain(Of(Date(2024, 1, 31).Value()), dbDate), "01/31/2024");
    EXPECT_EQ(Stored("ABCDEFG", 5, dbZString), (Bytes{'A', 'B', 'C', 'D', 0}));
    EXPECT_EQ(Stored("0", 1, dbBoolean), Bytes{0});
    EXPECT_EQ(Stored("N", 1, dbBoolean), Bytes{1});
    EXPECT_EQ(Stored("", 1, dbBoolean), Bytes{1});
    EXPECT_EQ(Stored("1.5", 8, dbDecimal), Bytes(8, 0));
    EXPECT_EQ(Stored("12:30", 4, dbTime), Of(Time(12, 30, 0).Value()));
    EXPECT_EQ(Stored("1/2/03", 4, dbDate), Of(Date(2003, 1, 2).Value()));
    EXPECT_EQ(Stored("99999", 2, dbInteger), Of(int16_t(99999 & 0xFFFF)));
    // Money at the field's places, rounded, and an amount too large for the
    // field kept within it.
    EXPECT_EQ(Stored("$1,234.565", 4, dbMoney), (Bytes{0x01, 0x23, 0x45, 0x7F}));
    EXPECT_EQ(Stored("-12.5", 3, dbMoney), (Bytes{0x01, 0x25, 0x0D}));
    EXPECT_EQ(Stored("123456789", 2, dbMoney, 0), (Bytes{0x09, char(0x9F)}));
}

// Display under the default profile and a second one with other separators
// and patterns; account, job and phone numbers from the common library with
// the arguments it is given.
class FieldDisplay : public ::testing::Test {
  protected:
    void SetUp() override { Use(""); }
    void TearDown() override {
        setenv("DBFILE_PROFILE", dir.File("absent.ini").c_str(), 1);
        Currency().LoadIntlSettings();
    }
    void Use(const std::string& intl) {
        std::ofstream(dir.File("profile.ini")) << "[intl]\n" << intl;
        setenv("DBFILE_PROFILE", dir.File("profile.ini").c_str(), 1);
        Currency().LoadIntlSettings();
    }
    rmtest::TempDir dir;
    dbtest::MessageLog log;  // points the library at the test common library
};

TEST_F(FieldDisplay, ByDisplayCodeAndTypeUnderTwoProfiles) {
    Bytes money(8, 0);
    Currency(-1234.5).CopyBCD(reinterpret_cast<unsigned char*>(money.data()), 8, 2);
    struct Case {
        Bytes b;
        dbFieldType t;
        dbDispCode d;
        int dp;
        const char *usual, *other;
    } cases[] = {
        {Of(int32_t(1234567)), dbInteger, dbDispNone, 0, "1,234,567", "1.234.567"},
        {Of(int32_t(1234567)), dbInteger, dbDispNoSeparators, 0, "1234567", "1234567"},
        {Of(uint16_t(0xFFFF)), dbInteger, dbDispNone, 0, "-1", "-1"},
        {Of(uint16_t(0xFFFF)), dbInteger, dbDispPlain, 0, "65535", "65535"},
        {Of(uint16_t(60000)), dbUnsigned, dbDispNone, 0, "60,000", "60.000"},
        {Of(3.14159), dbFloat, dbDispNone, 2, "3.14", "3.14"},
        {Of(3.14159), dbFloat, dbDispNone, 4, "3.1416", "3.1416"},
        {Of(-1234.5), dbDecimal, dbDispNone, 2, "-1,234.50", "-1.234,50"},
        {money, dbMoney, dbDispNone, 2, "($1,234.50)", "-1.234,50 EUR"},
        {Bytes{1}, dbBoolean, dbDispYesNo, 0, "Yes", "Yes"},
        {Bytes{0}, dbBoolean, dbDispActiveInactive, 0, "Inactive", "Inactive"},
        {Bytes{1}, dbBoolean, dbDispNone, 0, "1", "1"},
        {Bytes{1}, dbBoolean, dbDispYesNoAlt, 0, "1", "1"},  // by its type
        {Of(Date(2024, 1, 31).Value()), dbDate, dbDispNone, 0, "01/31/2024", "01/31/2024"},
        {Bytes{'1', '2', '3', '4', '5', '6'}, dbString, dbDispAccount, 0, "12-3456", "12-3456"},
        {Bytes{'J', '7', 0, 0}, dbZString, dbDispJob, 0, "[J7]", "[J7]"},
        {Bytes(2, 0), dbFieldType(14), dbDispNone, 0, "untouched", "untouched"},
        {Bytes(2, 0), dbString, dbDispCodeTable, 0, "", ""},  // no table given
    };
    for (const Case& c : cases)
        EXPECT_EQ(Display(c.b, c.t, c.d, c.dp), c.usual) << c.usual;
    Use("sThousand=.\nsDecimal=,\niNegNumber=1\nsCurrency=EUR\niCurrency=3\niNegCurr=8\n");
    for (const Case& c : cases)
        EXPECT_EQ(Display(c.b, c.t, c.d, c.dp), c.other) << c.other;
    EXPECT_EQ(Display(Bytes{'5', '5', '5', 0}, dbPhone, dbDispNone, 0, 207), "(207) 555");
    setenv("DBFILE_COMMON_LIB", "libno-such-library.so", 1);
    EXPECT_EQ(Display(Bytes{'5', '5', '5', 0}, dbPhone, dbDispNone, 0, 207), "");
    EXPECT_EQ(Display(Bytes{'1', '2', '3'}, dbString, dbDispAccount), "");
}

TEST(FieldText, DatesAndTimesFromText) {
    struct Case {
        const char* text;
        Date want;
    } dates[] = {
        {"12/31/2024", Date(2024, 12, 31)},
        {"1-2-49", Date(2049, 1, 2)},
        {"1.2.50", Date(1950, 1, 2)},
        {"123199", Date(1999, 12, 31)},
        {"02292024", Date(2024, 2, 29)},
        {"2/29/2023", Date()},
        {"13/01/2024", Date()},
        {"12/31", Date()},
        {"12//2024", Date()},
        {"12/31/2024x", Date()},
        {"", Date()},
        {"99999999999/1/1", Date()},
    };
    for (const Case& c : dates) {
        Date d;
        d = c.text;
        EXPECT_EQ(d.Value(), c.want.Value()) << c.text;
    }
    struct TimeCase {
        const char* text;
        Time want;
    } times[] = {
        {"13:05", Time(13, 5, 0)},
        {"1:05:09.07", Time(1, 5, 9, 7)},
        {"12:00 AM", Time(0, 0, 0)},
        {"12:30 pm", Time(12, 30, 0)},
        {"1:15 PM", Time(13, 15, 0)},
        {"24:00", Time()},
        {"13:05 PM", Time()},
        {"1:5", Time()},
        {"12", Time()},
        {"10:20:30.400", Time()},
    };
    for (const TimeCase& c : times) {
        Time t;
        t = c.text;
        EXPECT_EQ(t.Value(), c.want.Value()) << c.text;
    }
}

TEST(FieldText, QueryLiterals) {
    struct Case {
        SQLType style;
        const char* text;
        short type;
        const char* out;
    } cases[] = {
        {sqlQuoted, "Acme", dbString, "\"Acme\""},
        {sqlFormula, "Acme", dbPhone, "\"Acme\""},
        {sqlQuoted, "12.5", dbMoney, "12.5"},
        {sqlQuoted, "1/31/2024", dbDate, "\"01/31/2024\""},
        {sqlFormula, "1/31/2024", dbDate, "DateTime(2024,01,31)"},
        {SQLType(7), "1/31/2024", dbDate, ""},
        {sqlQuoted, "1x", dbBoolean, "1"},
        {sqlFormula, "1", dbBoolean, "True"},
        {sqlFormula, "0", dbBoolean, "False"},
        {sqlQuoted, "12:00", dbTime, ""},
        {sqlQuoted, "5", dbUnsignedText, ""},
    };
    for (const Case& c : cases) {
        CString out = "old";
        EXPECT_STREQ(FormatSQLData(c.style, c.text, c.type, out), c.out) << c.text;
    }
}

// A record file's own fields, looked up by id and by name, with a record
// buffer that may be shorter than the description says.
TEST(FieldText, RecordFileFieldsAndBadInput) {
    dbtest::MessageLog log;
    CDbFile f("fields.dat", nullptr, 1);
    auto add = [&](uint16_t id, uint16_t offset, uint16_t len, dbFieldType t, const char* name) {
        auto* e = new CddFldElem;
        e->m_Fld.FldId = id;
        e->m_Fld.Offset = offset;
        e->m_Fld.Length = len;
        e->m_Fld.Type = uint8_t(t);
        e->m_Fld.NumDP = 2;
        std::strcpy(e->m_Fld.Name, name);
        f.m_FldList.AddFld(e);
    };
    add(0, 0, 2, dbInteger, "Area");
    add(1, 2, 10, dbPhone, "Phone");
    add(2, 12, 8, dbMoney, "Balance");
    add(3, 20, 0, dbString, "Empty");
    add(4, 30, 4, dbInteger, "Beyond");
    f.SetDataLen(24);
    std::memset(f.RcdBuf(), 0, 24);
    int16_t area = 207;
    std::memcpy(f.RcdBuf(), &area, 2);
    f.FormatStringToFileData("555 0100", f.RcdBuf() + 2, "Phone");
    f.FormatStringToFileData("12.34", f.RcdBuf() + 12, 2);
    CString out;
    EXPECT_STREQ(f.FormatFileDataToDisplay(out, "Phone"), "(207) 555 0100");
    EXPECT_STREQ(f.FormatPhone(out, 1), "(207) 555 0100");
    EXPECT_STREQ(f.FormatFileDataToString(out, "Balance"), "12.34");
    EXPECT_STREQ(f.FormatSQLData(out, sqlQuoted, "Phone"), "\"555 0100\"");
    EXPECT_STREQ(f.GetFieldData("Balance"), "$12.34");
    // Unknown fields: empty texts and nothing written.
    char dest[4] = {'x', 'x', 'x', 'x'};
    f.FormatStringToFileData("9", dest, 99);
    f.FormatStringToFileData("9", dest, "Nope");
    EXPECT_EQ(std::string(dest, 4), "xxxx");
    EXPECT_STREQ(f.FormatFileDataToString(out, 99), "");
    EXPECT_STREQ(f.FormatFileDataToDisplay(out, -1), "");
    EXPECT_STREQ(f.GetFieldData("Nope"), "");
    // A field of length 0 and one lying past the record buffer.
    EXPECT_STREQ(f.FormatFileDataToString(out, "Empty"), "");
    EXPECT_STREQ(f.FormatFileDataToString(out, "Beyond"), "0");
    // Long texts, NUL bytes and every type at every small length.
    std::string longText(1000, '7');
    longText[500] = '\0';
    for (int t = 0; t <= 15; ++t)
        for (int len = 0; len <= 12; ++len) {
            Bytes b = Stored(longText, len, dbFieldType(t), 2);
            Plain(b, dbFieldType(t), 2);
            Display(b, dbFieldType(t), dbDispNone, 2);
        }
}

}  // namespace
