// Extended retrieval against a model: every list the engine returns must be
// the records that the same filter, applied here record by record in key
// order, lets through, cut to the same fields.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

// One field per field type, and a twin of the same type for five of them
// (for field-to-field terms); `engine` is the type the engine compares by.
struct Field {
    const char* name;
    dbFieldType type;
    int len, dp, engine, twin, off = 0;
};
std::vector<Field> kFields = {
    {"Id", dbInteger, 4, 0, 1, -1},        {"Name", dbString, 12, 0, 0, 16},
    {"Qty", dbInteger, 2, 0, 1, 15},       {"Count", dbUnsigned, 4, 0, 14, -1},
    {"Ratio", dbFloat, 8, 0, 2, -1},       {"Dec", dbDecimal, 6, 0, 5, -1},
    {"When", dbDate, 4, 0, 3, 18},         {"At", dbTime, 4, 0, 4, -1},
    {"Amount", dbMoney, 6, 2, 6, 19},      {"Flag", dbBoolean, 1, 0, 7, -1},
    {"City", dbZString, 10, 0, 11, 17},    {"Auto", dbAutoInc, 4, 0, 1, -1},
    {"Phone", dbPhone, 12, 0, 11, -1},     {"Fixed", dbFixedText, 6, 0, 0, -1},
    {"Code", dbUnsignedText, 2, 0, 0, -1}, {"Qty2", dbInteger, 2, 0, 1, 2},
    {"Alias", dbString, 12, 0, 0, 1},      {"Town", dbZString, 10, 0, 11, 10},
    {"Due", dbDate, 4, 0, 3, 6},           {"Limit", dbMoney, 6, 2, 6, 8}};
constexpr int kRecLen = 119;
using Bytes = std::vector<uint8_t>;

Bytes Packed(int64_t v, int len, bool negative) {
    Bytes b(size_t(len), 0);
    uint64_t m = uint64_t(v < 0 ? -v : v);
    b[size_t(len - 1)] = negative || v < 0 ? 0x0D : 0x0F;
    for (int nib = 2 * len - 2; nib >= 0 && m; --nib, m /= 10)
        b[size_t(nib / 2)] |= uint8_t(nib % 2 ? m % 10 : (m % 10) << 4);
    return b;
}

// A value from a small domain, so that equal values are common.
Bytes Value(const Field& f, std::mt19937& rng) {
    Bytes b(size_t(f.len), 0);
    auto le = [&](uint64_t v) {
        for (int i = 0; i < f.len; ++i)
            b[size_t(i)] = uint8_t(v >> (8 * std::min(i, 7)));
    };
    const char* words[] = {"", "bath", "Bath", "BRISTOL", "bristol", "york", "Yorkshire moor"};
    switch (f.engine) {
        case 0:
        case 11: {
            if (f.type == dbUnsignedText) return le(rng() % 3 ? rng() % 4 : 0x6162), b;
            const char* w = words[rng() % 7];
            std::memcpy(b.data(), w, std::min<size_t>(std::strlen(w), size_t(f.len - 1)));
            if (f.engine == 11 && rng() % 3 == 0) b.back() = 'x';  // beyond the end of the text
            return b;
        }
        case 1:
            return le(uint64_t(int64_t(rng() % 9) - 4 + (rng() % 5 ? 0 : 30000))), b;
        case 2: {
            double d[] = {-1.5, -0.0, 0.0, 2.25, 1e9};
            std::memcpy(b.data(), &d[rng() % 5], 8);
            return b;
        }
        case 3:
        case 4:  // day, month, year or hundredths, seconds, minutes, hours
            return le(1 + rng() % 2 + ((1 + rng() % 2) << 8) + ((2023 + rng() % 2) << 16)), b;
        case 5:
        case 6: {
            int64_t v[] = {-12345, -1, 0, 5, 100000, 99999999};
            return Packed(v[rng() % 6], f.len, rng() % 8 == 0);  // sometimes -0
        }
        default:  // logical and unsigned binary
            return le(rng() % 3 ? rng() % 3 : 0xFFFFFFFFu), b;
    }
}

uint64_t Le(const uint8_t* p, int n) {
    uint64_t v = 0;
    for (int i = n; i-- > 0;)
        v = v << 8 | p[i];
    return v;
}

// Field against value as the engine's types order them.
int Compare(const Field& f, const uint8_t* a, const uint8_t* b, bool ci) {
    auto three = [](auto x, auto y) { return (x > y) - (x < y); };
    auto text = [&](const uint8_t* p) {
        std::string s(reinterpret_cast<const char*>(p), size_t(f.len));
        if (f.engine == 11) s.resize(strnlen(s.data(), s.size()));
        for (char& c : s)
            if (ci) c = char(std::toupper(static_cast<unsigned char>(c)));
        return s;
    };
    auto packed = [&](const uint8_t* p) {
        int64_t v = 0;
        for (int i = 0; i < 2 * f.len - 1; ++i)
            v = v * 10 + (i % 2 ? p[i / 2] & 15 : p[i / 2] >> 4);
        int sign = p[f.len - 1] & 15;
        return sign == 0xD || sign == 0xB ? -v : v;
    };
    switch (f.engine) {
        case 0:
        case 11:
            return three(text(a), text(b));
        case 1:
            return three(int64_t(Le(a, f.len) << (64 - 8 * f.len)) >> (64 - 8 * f.len),
                         int64_t(Le(b, f.len) << (64 - 8 * f.len)) >> (64 - 8 * f.len));
        case 2: {
            double x, y;
            std::memcpy(&x, a, 8), std::memcpy(&y, b, 8);
            return three(x, y);
        }
        case 5:
        case 6:
            return three(packed(a), packed(b));
        default:
            return three(Le(a, f.len), Le(b, f.len));
    }
}

struct Term {
    int field, op, other = -1;
    Bytes value;
    dbLogicOp logic = dbLogicEnd;
    bool caseSensitive = true;
};

struct Row {
    Bytes bytes;
    long address = 0;
    int32_t id() const { return int32_t(Le(bytes.data(), 4)); }
};

// AND binds tighter than OR.
bool Qualifies(const std::vector<Term>& terms, const Row& r) {
    bool group = true;
    for (const Term& t : terms) {
        const Field& f = kFields[size_t(t.field)];
        const uint8_t* b =
            t.other >= 0 ? &r.bytes[size_t(kFields[size_t(t.other)].off)] : t.value.data();
        int c = Compare(f, &r.bytes[size_t(f.off)], b,
                        !t.caseSensitive && (f.engine == 0 || f.engine == 11));
        bool holds[] = {c == 0, c > 0, c < 0, c != 0, c >= 0, c <= 0};
        group = group && holds[t.op];
        if (t.logic != dbLogicAnd) {
            if (group) return true;
            group = true;
        }
    }
    return terms.empty();
}

class WaitCursorHost : public dbtest::TestHost {
  public:
    void BeginWaitCursor() override { ++begun; }
    void EndWaitCursor() override { ++ended; }
    int begun = 0, ended = 0;
};

class ExtendedTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::vector<dbtest::FieldDef> defs;
        for (size_t i = 0, off = 0; i < kFields.size(); off += size_t(kFields[i++].len)) {
            kFields[i].off = int(off);
            defs.push_back({kFields[i].name, kFields[i].len, kFields[i].type, 0, kFields[i].dp});
        }
        for (CDbFile* f : {&file, &other}) {
            dbtest::Describe(*f, defs, {{0, "Id", 0}});
            f->ResetFields(1);
        }
        ASSERT_EQ(file.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
        ASSERT_EQ(other.Open(nullptr, dbOpenNormal), 0);
        unsigned seed = std::random_device{}();
        trace = "seed " + std::to_string(seed);
        rng.seed(seed);
        file.SetBrowser(1);
        for (int i = 0; i < 300; ++i) {
            Row r;
            for (const Field& f : kFields) {
                Bytes v = f.twin >= 0 && rng() % 3 == 0 && f.twin < int(&f - kFields.data())
                              ? Bytes(r.bytes.begin() + kFields[size_t(f.twin)].off,
                                      r.bytes.begin() + kFields[size_t(f.twin)].off + f.len)
                              : Value(f, rng);
                r.bytes.insert(r.bytes.end(), v.begin(), v.end());
            }
            int32_t id = int32_t((i * 7919) % 300) * 3 - 450;
            std::memcpy(r.bytes.data(), &id, 4);
            std::memcpy(file.RcdBuf(), r.bytes.data(), kRecLen);
            file.SetDataLen(kRecLen);
            ASSERT_EQ(file.Insert(nullptr), 0);
            ASSERT_EQ(file.GetPosition(r.address), 0);
            rows.push_back(r);
        }
        std::sort(rows.begin(), rows.end(), [](auto& a, auto& b) { return a.id() < b.id(); });
    }
    void TearDown() override { CDbFile::PersistentLocking(true); }

    // Every list of one listing: the first call, then the next ones until
    // the end of the file. Each entry is the record's position and data.
    std::vector<std::pair<long, Bytes>> Collect(unsigned short n, bool down, int lock = 0) {
        std::vector<std::pair<long, Bytes>> got;
        for (int calls = 0;; ++calls) {
            for (unsigned short i = 1; i <= n; ++i) {
                long pos = -1;
                unsigned short len;
                auto* p = static_cast<uint8_t*>(file.GetRecFromList(i, &pos, &len));
                got.emplace_back(pos, Bytes(p, p + len));
            }
            if (file.GetLastError() != 0 || calls > 2000) break;
            EXPECT_GT(n, 0);
            n = down ? file.GetPrevList(nullptr, lock) : file.GetNextList(nullptr, lock);
        }
        EXPECT_EQ(file.GetLastError(), 9);
        return got;
    }

    std::string trace;
    std::mt19937 rng;
    std::vector<Row> rows;  // in key order
    rmtest::TempDir dir;
    dbtest::MessageLog log;
    WaitCursorHost host;
    CDbFile file{dir.File("ext.dat").c_str(), nullptr, 1};
    CDbFile other{dir.File("ext.dat").c_str(), nullptr, 1};
};

// The first rounds take each comparison code on each field type alone, in
// three forms: against a value of the file with case, without case, and
// against the field's twin. The rest draw up to four terms joined by AND
// and OR.
TEST_F(ExtendedTest, ListsAgreeWithTheModel) {
    SCOPED_TRACE(trace);
    auto fieldOf = [&] { return int(rng() % kFields.size()); };
    const int kEach = int(kFields.size()) * 6 * 3;
    for (int round = 0; round < kEach + 400; ++round) {
        bool each = round < kEach;
        int form = round / (kEach / 3);
        std::vector<Term> terms(each ? 1 : rng() % 5);
        file.ResetTerms();
        for (size_t i = 0; i < terms.size(); ++i) {
            Term& t = terms[i];
            t.field = each ? round % int(kFields.size()) : fieldOf();
            t.op = each ? round / int(kFields.size()) % 6 : int(rng() % 6);
            t.caseSensitive = each ? form == 0 : rng() % 2;
            t.logic = i + 1 == terms.size() ? dbLogicEnd : rng() % 2 ? dbLogicAnd : dbLogicOr;
            const Field& f = kFields[size_t(t.field)];
            if (f.twin >= 0 && (each ? form == 2 : rng() % 3 == 0)) {
                t.other = f.twin;
                ASSERT_EQ(file.AddTerm(uint16_t(t.field), dbRelOp(t.op), uint16_t(t.other), t.logic,
                                       t.caseSensitive),
                          1);
                continue;
            }
            const Row& from = rows[rng() % rows.size()];
            t.value = each || rng() % 4
                          ? Bytes(from.bytes.begin() + f.off, from.bytes.begin() + f.off + f.len)
                          : Value(f, rng);
            ASSERT_EQ(
                file.AddTerm(uint16_t(t.field), dbRelOp(t.op),
                             static_cast<const void*>(t.value.data()), t.logic, t.caseSensitive),
                1);
        }
        // The whole record, or a few fields, some cut short.
        std::vector<std::pair<int, int>> picked;  // offset, length
        bool whole = rng() % 4 == 0;
        file.ResetFields(whole);
        if (whole) picked.push_back({0, kRecLen});
        for (int n = whole ? int(rng() % 2) : 1 + int(rng() % 4); n > 0; --n) {
            const Field& f = kFields[size_t(fieldOf())];
            int len = rng() % 3 ? 0 : 1 + int(rng() % unsigned(f.len));
            ASSERT_EQ(file.SelectField(uint16_t(&f - kFields.data()), uint16_t(len)), 1);
            picked.push_back({f.off, len ? len : f.len});
        }
        std::vector<const Row*> want;
        for (const Row& r : rows)
            if (Qualifies(terms, r)) want.push_back(&r);
        // Limits that divide the list exactly are the edge of interest.
        unsigned short max[] = {1, 3, 20, uint16_t(std::max<size_t>(want.size(), 1)),
                                uint16_t(std::max<size_t>(want.size() / 2, 1))};
        unsigned short reject[] = {1, 2, 7, 65535};
        file.SetFilterOptions(max[rng() % 5], 0, reject[rng() % 4]);

        int way = int(rng() % 3);
        bool down = way == 1;
        unsigned short n;
        int start = 0, count = int(rows.size());
        if (way == 0) {
            n = file.GetFirstList(nullptr);
        } else if (way == 1) {
            n = file.GetLastList(nullptr);
        } else {
            // From a key of the file or one between two keys.
            auto op = dbRelOp(rng() % 6);
            down = op == dbRelLess || op == dbRelLessEqual;
            int32_t key = rows[rng() % rows.size()].id() + int32_t(rng() % 2);
            file.SetKey(&key, 4, 0);
            n = file.GetUsingList(op, nullptr);
            start = int(std::lower_bound(rows.begin(), rows.end(), key,
                                         [](const Row& r, int32_t k) { return r.id() < k; }) -
                        rows.begin());
            bool exact = start < count && rows[size_t(start)].id() == key;
            if (op == dbRelGreater && exact) ++start;
            if (down && !(op == dbRelLessEqual && exact)) --start;
            if ((op == dbRelEqual || op == dbRelNotEqual) && !exact) start = -1;
            want.clear();
            for (int i = start; i >= 0 && i < count; i += down ? -1 : 1)
                if (Qualifies(terms, rows[size_t(i)])) want.push_back(&rows[size_t(i)]);
        }
        if (way == 1) std::reverse(want.begin(), want.end());
        std::vector<std::pair<long, Bytes>> expect;
        for (const Row* r : want) {
            Bytes data;
            for (auto [off, len] : picked)
                data.insert(data.end(), r->bytes.begin() + off, r->bytes.begin() + off + len);
            expect.emplace_back(r->address, data);
        }
        SCOPED_TRACE("round " + std::to_string(round) + " way " + std::to_string(way));
        if (start < 0 || start >= count) {  // no record to start from
            EXPECT_EQ(n, 0);
            EXPECT_EQ(file.GetLastError(), 9);
            continue;
        }
        ASSERT_EQ(Collect(n, down), expect);
    }
    // Reject counts were reached, never seen by the caller, and the wait
    // cursor was put back each time.
    EXPECT_GT(host.begun, 0);
    EXPECT_EQ(host.begun, host.ended);
    EXPECT_TRUE(log.Take().empty());
}

// The descriptor a file builds, read from the record buffer of a file that is
// not open (the engine answers 3 and leaves the buffer alone).
Bytes Sent(CDbFile& f) {
    f.SetErrOverride(1);
    EXPECT_EQ(f.GetNextList(nullptr), 0);
    EXPECT_EQ(f.GetLastError(), 3);
    auto* b = reinterpret_cast<uint8_t*>(f.RcdBuf());
    return Bytes(b, b + (b[0] | b[1] << 8));
}

TEST_F(ExtendedTest, DescriptorAndFieldSelection) {
    CDbFile closed(dir.File("ext.dat").c_str(), nullptr, 1), fresh(closed);
    closed.m_FldList = file.m_FldList;
    closed.ResetFields(1);
    EXPECT_EQ(Sent(closed),
              (Bytes{16, 0, 'U', 'C', 255, 255, 0, 0, 20, 0, 1, 0, kRecLen, 0, 0, 0}));
    int16_t five = 5;
    EXPECT_EQ(closed.AddTerm(2, dbRelGreaterEqual, &five, dbLogicAnd, 1), 1);
    EXPECT_EQ(closed.AddTerm(1, dbRelEqual, uint16_t(16), dbLogicOr, 0), 1);  // Name = Alias
    EXPECT_EQ(closed.AddTerm(6, dbRelLess, uint16_t(18), dbLogicEnd, 0), 1);  // When < Due
    // Unknown fields and relations, and no value, build nothing.
    EXPECT_EQ(closed.AddTerm(99, dbRelLess, &five, dbLogicEnd, 0), 0);
    EXPECT_EQ(closed.AddTerm(2, dbRelOp(6), &five, dbLogicEnd, 0), 0);
    EXPECT_EQ(closed.AddTerm(2, dbRelLess, static_cast<const void*>(nullptr), dbLogicEnd, 0), 0);
    EXPECT_EQ(closed.AddTerm(2, dbRelLess, uint16_t(99), dbLogicEnd, 0), 0);
    EXPECT_EQ(closed.SelectField(99, 0), 0);
    closed.ResetFields(0);
    EXPECT_EQ(closed.SelectField(8, 0), 1);
    EXPECT_EQ(closed.SelectField(10, 3), 1);
    fresh.m_FldList = file.m_FldList;
    *fresh.GetExtended() = *closed.GetExtended();
    fresh.SetFilterOptions(50, 0, 100);
    EXPECT_EQ(fresh.GetRcdBufLen(), (6 + 3 + 6) * 50 + 2);
    EXPECT_EQ(Sent(fresh), (Bytes{47, 0,   'E', 'G', 100, 0, 3,   0, 1,  2,  0, 16, 0, 5,  1, 5,
                                  0,  0,   12,  0,   4,   0, 193, 2, 87, 0,  3, 4,  0, 36, 0, 67,
                                  0,  109, 0,   50,  0,   2, 0,   6, 0,  44, 0, 3,  0, 51, 0}));
    // Deselection searches from the field last selected; a miss leaves no
    // current field, so the next search starts at the first.
    EXPECT_EQ(fresh.SelectField(13, 0), 1);
    EXPECT_EQ(fresh.DeselectField(13), 1);
    EXPECT_EQ(fresh.SelectField(12, 0), 1);
    EXPECT_EQ(fresh.DeselectField(8), 0);
    EXPECT_EQ(fresh.DeselectField(8), 1);
    EXPECT_EQ(fresh.DeselectField(8), 0);
    EXPECT_EQ(fresh.GetExtended()->m_Fields.Count(), 2);
    EXPECT_EQ(closed.GetExtended()->m_Fields.Count(), 2);
}

TEST_F(ExtendedTest, FilterTexts) {
    struct Case {
        const char* text;
        unsigned long result;
        int terms;  // left by SetSQLFilter
    } cases[] = {{"Qty>=5 and Name=Acme", 0, 2},
                 {"Qty=>5", 2, 0},
                 {"Qty==5", 2, 0},
                 {"Qty><5", 2, 0},
                 {"Qty 5", 2, 0},
                 {"  ", 0, 0},
                 {"qty>5", 1, 0},
                 {"=5", 1, 0},
                 {"Qty>5 xor Name=Acme", 3, 0},
                 {"Qty>5 and", 3, 0},
                 {"Qty>5 and\tQty<9", 3, 0},
                 {"Qty>5 and Nmae=Acme", 65537, 1},
                 {"Qty>1 AND Qty<3 Or Qty=\"9\"", 0, 3},
                 {"Name=\"New York\" or City=Bath", 0, 2},
                 {"Name=\"abc and Qty>1", 0, 1},
                 {"Name=ABCDEFGHIJKLMNOPQRSTUVWXYZ", 0, 1},
                 {"Qty>", 0, 1},
                 {"Name=Alias", 0, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        int16_t one = 1;
        file.ResetTerms();
        file.AddTerm(2, dbRelEqual, &one, dbLogicEnd, 1);
        EXPECT_EQ(file.VerifySQLFilter(c.text), c.result);
        EXPECT_EQ(file.GetExtended()->m_Terms.Count(), 1);
        EXPECT_EQ(file.SetSQLFilter(c.text), c.result);
        EXPECT_EQ(file.GetExtended()->m_Terms.Count(), c.terms);
    }
    auto terms = [&](const char* text) {
        EXPECT_EQ(file.SetSQLFilter(text), 0u) << text;
        CExtended& x = *file.GetExtended();
        Bytes d(x.DescriptorLength());
        x.BuildDescriptor(d.data());
        return Bytes(d.begin() + 8, d.end() - 8);  // the terms alone
    };
    Bytes acme = {0, 12, 0, 4, 0, 129, 0, 'A', 'c', 'm', 'e', 0, 0, 0, 0, 0, 0, 0, 0};
    Bytes qty = {1, 2, 0, 16, 0, 5, 1, 5, 0};
    qty.insert(qty.end(), acme.begin(), acme.end());
    EXPECT_EQ(terms("Qty>=5 and Name=Acme"), qty);
    EXPECT_EQ(terms("Name=Alias"), (Bytes{0, 12, 0, 4, 0, 193, 0, 87, 0}));
    EXPECT_EQ(terms("Name=\"abc and Qty>1"), (Bytes{0, 12, 0, 4, 0, 129, 0, '"', 'a', 'b', 'c', ' ',
                                                    'a', 'n', 'd', ' ', 'Q', 't', 'y'}));
    Bytes amount = {6, 6, 0, 44, 0, 2, 0};
    Bytes thousand = Packed(100000, 6, false);
    amount.insert(amount.end(), thousand.begin(), thousand.end());
    EXPECT_EQ(terms("Amount>1000.00"), amount);

    // 200 terms; a bad one stops the text where it stands; terms that would
    // make the descriptor too long for its 16 bits are refused.
    std::string many = "Qty>1";
    for (int i = 1; i < 200; ++i)
        many += i == 150 ? " or Qyt>1" : " or Qty>1";
    EXPECT_EQ(file.SetSQLFilter(many.c_str()), (150ul << 16) + dbSQLBadField);
    EXPECT_EQ(file.GetExtended()->m_Terms.Count(), 150);
    many.replace(many.find("Qyt"), 3, "Qty");
    EXPECT_EQ(file.SetSQLFilter(many.c_str()), 0u);
    EXPECT_EQ(file.GetExtended()->m_Terms.Count(), 200);
    std::string huge = "Name=x";
    for (int i = 1; i < 3500; ++i)
        huge += " or Name=x";
    unsigned long r = file.SetSQLFilter(huge.c_str());
    EXPECT_EQ(CDbFile::GetSQLErrCode(r), dbSQLAddTermFailed);
    EXPECT_EQ(CDbFile::GetSQLErrExpression(r), (65535 - 16) / 19);
    EXPECT_LE(file.GetExtended()->DescriptorLength(), 65535u);
}

// A filter text, a field-to-field term and a descriptor longer than the
// record buffer, which grows to hold it; then the edges of GetRecFromList.
TEST_F(ExtendedTest, TextFilterListsGrowTheBuffer) {
    SCOPED_TRACE(trace);
    std::string text = "Amount>1000.00 and City=bristol or Qty<Qty2";
    for (int i = 0; i < 500; ++i)
        text += " or Name=\"york " + std::to_string(i) + "\"";
    auto bristol = Bytes{'b', 'r', 'i', 's', 't', 'o', 'l', 0, 0, 0};
    std::vector<Term> terms = {{8, dbRelGreater, -1, Packed(100000, 6, false), dbLogicAnd},
                               {10, dbRelEqual, -1, bristol, dbLogicOr, false},
                               {2, dbRelLess, 15, {}, dbLogicEnd}};
    ASSERT_EQ(file.SetSQLFilter(text.c_str()), 0u);
    file.GetExtended()->m_bUseCurrent = 0;  // each list goes on after the last
    uint32_t descriptor = file.GetExtended()->DescriptorLength();
    ASSERT_GT(descriptor, uint32_t(file.GetRcdBufLen()));
    std::vector<std::pair<long, Bytes>> expect;
    for (const Row& r : rows)
        if (Qualifies(terms, r)) expect.emplace_back(r.address, r.bytes);
    ASSERT_EQ(Collect(file.GetFirstList(nullptr), false), expect);
    EXPECT_GE(file.GetRcdBufLen(), descriptor);

    file.ResetTerms();
    unsigned short n = file.GetFirstList(nullptr);
    ASSERT_EQ(n, 20);
    long pos0 = -7, pos1 = -7, none = -7;
    unsigned short len0, len1, len = 9;
    EXPECT_EQ(file.GetRecFromList(0, &pos0, &len0), file.GetRecFromList(1, &pos1, &len1));
    EXPECT_EQ(pos0, rows[0].address);
    EXPECT_EQ(pos1, pos0);
    EXPECT_EQ(len0, kRecLen);
    EXPECT_EQ(file.GetRecFromList(21, &none, &len), file.RcdBuf() + 2);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(none, -7);
}

TEST_F(ExtendedTest, LockedFirstRecord) {
    int32_t first = rows[0].id();
    other.SetKey(&first, 4, 0);
    ASSERT_EQ(other.GetEqual(nullptr, 1, 1), 0);
    file.SetFilterOptions(5, 0, 65535);
    // Without lock-wait the list fails with 84, reported.
    CDbFile::PersistentLocking(false);
    EXPECT_EQ(file.GetFirstList(nullptr, 1), 0);
    EXPECT_EQ(file.GetLastError(), 84);
    EXPECT_EQ(log.Take().size(), 1u);
    // Unlocked lists are not held up.
    EXPECT_EQ(file.GetFirstList(nullptr), 5);
    // With lock-wait the list comes once the holder lets go, every record
    // of it locked.
    CDbFile::PersistentLocking(true);
    host.onAttempt = [&](int) { other.UnlockAll(nullptr); };
    EXPECT_EQ(file.GetFirstList(nullptr, 1), 5);
    EXPECT_EQ(host.attempts, (std::vector<int>{1, 2}));  // the first call, one retry
    CDbFile::PersistentLocking(false);
    other.SetErrOverride(1);
    for (size_t i : {0, 4}) {
        int32_t id = rows[i].id();
        other.SetKey(&id, 4, 0);
        EXPECT_EQ(other.GetEqual(nullptr, 1, 1), 84);
    }
    EXPECT_TRUE(log.Take().empty());
}

}  // namespace
