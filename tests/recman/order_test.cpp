// The order of every key type at its edges, written out by hand: values are
// inserted shuffled and must come back in the listed order, forwards and
// backwards; values that compare equal collide on a unique key.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "rm_util.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;

template <class T>
Bytes Le(T v) {
    Bytes b(sizeof(T));
    std::memcpy(b.data(), &v, sizeof(T));
    return b;
}

Bytes Int(int64_t v, int n) {
    Bytes b(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        b[size_t(i)] = uint8_t(uint64_t(v) >> (8 * i));
    return b;
}

Bytes Date(int day, int month, int year) {
    return {uint8_t(day), uint8_t(month), uint8_t(year), uint8_t(year >> 8)};
}

Bytes Time(int h, int m, int s, int hs) {
    return {uint8_t(hs), uint8_t(s), uint8_t(m), uint8_t(h)};
}

// Packed decimal of `n` bytes; `sign` is the last half-byte.
Bytes Packed(const char* digits, uint8_t sign, int n) {
    Bytes b(size_t(n), 0);
    std::string d(size_t(2 * n - 1) - std::strlen(digits), '0');
    d += digits;
    for (size_t i = 0; i < d.size(); ++i)
        b[i / 2] |= uint8_t(i % 2 == 0 ? (d[i] - '0') << 4 : d[i] - '0');
    b[size_t(n) - 1] |= sign;
    return b;
}

// `s` laid into `n` bytes of `fill`, from byte `at` on.
Bytes Text(const std::string& s, size_t n, uint8_t fill = 0, size_t at = 0) {
    Bytes b(n, fill);
    for (size_t i = 0; i < s.size() && at + i < n; ++i)
        b[at + i] = uint8_t(s[i]);
    return b;
}

Bytes LString(const std::string& s, size_t n, uint8_t garbage = 0) {
    Bytes b = Text(s, n, garbage, 1);
    b[0] = uint8_t(s.size());
    return b;
}

class OrderTest : public ::testing::Test {
  protected:
    // Creates a file whose key is `key` over the start of a 64-byte record.
    void Make(const rmtest::Key& key) {
        ASSERT_EQ(rmtest::CreateFile(path_, rmtest::Spec(64, {key})), RM_OK);
        ASSERT_EQ(h_.Open(path_), RM_OK);
    }

    // Inserts `values` (each laid out from offset 0) in shuffled order and
    // expects them back in the given order.
    void ExpectOrder(const rmtest::Key& key, const std::vector<Bytes>& values) {
        Make(key);
        std::vector<size_t> order(values.size());
        for (size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::shuffle(order.begin(), order.end(), std::mt19937(17));
        for (size_t i : order) {
            Bytes rec(64, 0);
            std::copy(values[i].begin(), values[i].end(), rec.begin());
            rec[63] = uint8_t(i);
            ASSERT_EQ(h_.Insert(rec), RM_OK) << "value " << i;
        }
        std::vector<int> forward, backward;
        Bytes rec;
        for (int st = h_.Get(RM_GET_FIRST, 0, rec); st == RM_OK; st = h_.Get(RM_GET_NEXT, 0, rec))
            forward.push_back(rec[63]);
        for (int st = h_.Get(RM_GET_LAST, 0, rec); st == RM_OK;
             st = h_.Get(RM_GET_PREVIOUS, 0, rec))
            backward.insert(backward.begin(), rec[63]);
        std::vector<int> expected(values.size());
        for (size_t i = 0; i < expected.size(); ++i)
            expected[i] = int(i);
        EXPECT_EQ(forward, expected);
        EXPECT_EQ(backward, expected);
        ASSERT_EQ(h_.Close(), RM_OK);
    }

    // On a unique key the second value collides with the first.
    void ExpectEqual(const rmtest::Key& key, const Bytes& a, const Bytes& b) {
        Make(key);
        Bytes rec(64, 0);
        std::copy(a.begin(), a.end(), rec.begin());
        ASSERT_EQ(h_.Insert(rec), RM_OK);
        std::fill(rec.begin(), rec.end(), 0);
        std::copy(b.begin(), b.end(), rec.begin());
        rec[63] = 1;
        EXPECT_EQ(h_.Insert(rec), RM_DUPLICATE_KEY);
        ASSERT_EQ(h_.Close(), RM_OK);
    }

    rmtest::TempDir dir_;
    std::string path_ = dir_.File("order.dat");
    rmtest::Handle h_;
};

TEST_F(OrderTest, Integers) {
    ExpectOrder({{1, 1, EXT, RM_TYPE_INTEGER}}, {Int(-128, 1), Int(-1, 1), Int(0, 1), Int(127, 1)});
    ExpectOrder({{1, 2, EXT, RM_TYPE_INTEGER}},
                {Int(-32768, 2), Int(-256, 2), Int(-1, 2), Int(0, 2), Int(1, 2), Int(255, 2),
                 Int(256, 2), Int(32767, 2)});
    ExpectOrder({{1, 4, EXT, RM_TYPE_INTEGER}}, {Int(INT32_MIN, 4), Int(-65536, 4), Int(-1, 4),
                                                 Int(0, 4), Int(65535, 4), Int(INT32_MAX, 4)});
    ExpectOrder({{1, 8, EXT, RM_TYPE_INTEGER}},
                {Int(INT64_MIN, 8), Int(-(int64_t(1) << 40), 8), Int(-1, 8), Int(0, 8),
                 Int(int64_t(1) << 32, 8), Int(INT64_MAX, 8)});
    ExpectOrder({{1, 4, EXT, RM_TYPE_AUTOINCREMENT}},
                {Int(-70000, 4), Int(-1, 4), Int(1, 4), Int(256, 4), Int(70000, 4)});
}

TEST_F(OrderTest, UnsignedAndLogical) {
    ExpectOrder({{1, 3, EXT, RM_TYPE_UNSIGNED_BINARY}},
                {Int(0, 3), Int(1, 3), Int(255, 3), Int(256, 3), Int(65536, 3), Int(0xFFFFFF, 3)});
    ExpectOrder({{1, 2, RM_KEY_BINARY, 0}},  // old-style binary key
                {Int(0, 2), Int(255, 2), Int(256, 2), Int(0xFFFF, 2)});
    ExpectOrder({{1, 2, EXT, RM_TYPE_LOGICAL}}, {Int(0, 2), Int(1, 2), Int(256, 2), Int(65535, 2)});
}

TEST_F(OrderTest, FloatsWithNegativeZero) {
    const float inf = std::numeric_limits<float>::infinity();
    ExpectOrder({{1, 4, EXT, RM_TYPE_FLOAT}}, {Le(-inf), Le(-1e30f), Le(-1.0f), Le(-1e-30f),
                                               Le(0.0f), Le(1e-30f), Le(1.0f), Le(1e30f), Le(inf)});
    ExpectOrder({{1, 8, EXT, RM_TYPE_FLOAT}},
                {Le(-1e300), Le(-2.5), Le(-1e-300), Le(0.0), Le(1e-300), Le(2.5), Le(1e300)});
    ExpectEqual({{1, 4, EXT, RM_TYPE_FLOAT}}, Le(0.0f), Le(-0.0f));
    ExpectEqual({{1, 8, EXT, RM_TYPE_FLOAT}}, Le(-0.0), Le(0.0));
}

TEST_F(OrderTest, DatesAndTimes) {
    ExpectOrder({{1, 4, EXT, RM_TYPE_DATE}},
                {Date(1, 1, 255), Date(1, 1, 256), Date(31, 12, 1999), Date(1, 1, 2000),
                 Date(2, 1, 2000), Date(1, 2, 2000), Date(30, 11, 2000), Date(1, 1, 2001)});
    ExpectOrder({{1, 4, EXT, RM_TYPE_TIME}},
                {Time(0, 0, 0, 0), Time(0, 0, 0, 99), Time(0, 0, 1, 0), Time(0, 1, 0, 0),
                 Time(1, 0, 0, 0), Time(23, 59, 59, 99)});
}

TEST_F(OrderTest, PackedDecimals) {
    for (uint8_t type : {uint8_t(RM_TYPE_DECIMAL), uint8_t(RM_TYPE_MONEY)}) {
        ExpectOrder({{1, 3, EXT, type}},
                    {Packed("99999", 0xD, 3), Packed("100", 0xB, 3), Packed("1", 0xD, 3),
                     Packed("0", 0xF, 3), Packed("1", 0xF, 3), Packed("10", 0xC, 3),
                     Packed("99999", 0xF, 3)});
        ExpectEqual({{1, 3, EXT, type}}, Packed("0", 0xF, 3), Packed("0", 0xD, 3));
    }
}

TEST_F(OrderTest, TextTypes) {
    // zstring: a prefix first; bytes after the end do not count.
    ExpectOrder({{1, 6, EXT, RM_TYPE_ZSTRING}}, {Text("", 6, 0), Text("a", 6, 0), Text("ab", 6, 0),
                                                 Text("abc", 6, 0), Text("b", 6, 0)});
    ExpectEqual({{1, 6, EXT, RM_TYPE_ZSTRING}}, Text("ab", 6, 0),
                Bytes{'a', 'b', 0, 'x', 'y', 'z'});
    // lstring: the counted text; a prefix first; bytes past the count do not count.
    ExpectOrder({{1, 5, EXT, RM_TYPE_LSTRING}},
                {LString("", 5, 'q'), LString("a", 5), LString(std::string("a\0", 2), 5),
                 LString("ab", 5), LString("b", 5)});
    ExpectEqual({{1, 5, EXT, RM_TYPE_LSTRING}}, LString("ab", 5, 0), LString("ab", 5, 'z'));
    // string: all bytes, unsigned.
    ExpectOrder({{1, 3, EXT, RM_TYPE_STRING}}, {Text("A", 3), Text("B", 3), Text("a", 3),
                                                Text("\x7f", 3), Text("\x80", 3), Text("\xff", 3)});
    ExpectOrder({{1, 3, 0, 0}}, {Text("AB", 3), Text("Ab", 3), Text("ab", 3)});  // old-style
}

TEST_F(OrderTest, CaseInsensitiveLatin1) {
    constexpr uint16_t CI = RM_KEY_CASE_INSENSITIVE;
    // Letters fold to capitals, the Latin-1 ones too; 0xF7 and 0xFF stay as they are.
    ExpectOrder(
        {{1, 2, EXT | CI, RM_TYPE_STRING}},
        {Text("a", 2), Text("B", 2), Text("z", 2), Text("\xc0", 2), Text("\xe9", 2),
         Text("\xd7", 2), Text("\xde", 2), Text("\xdf", 2), Text("\xf7", 2), Text("\xff", 2)});
    ExpectEqual({{1, 2, EXT | CI, RM_TYPE_STRING}}, Text("aB", 2), Text("Ab", 2));
    ExpectEqual({{1, 2, EXT | CI, RM_TYPE_STRING}}, Text("\xe9", 2), Text("\xc9", 2));
    ExpectEqual({{1, 2, EXT | CI, RM_TYPE_STRING}}, Text("\xfe", 2), Text("\xde", 2));
    ExpectEqual({{1, 6, EXT | CI, RM_TYPE_ZSTRING}}, Text("Abc", 6), Text("aBC", 6));
    ExpectEqual({{1, 5, EXT | CI, RM_TYPE_LSTRING}}, LString("xY", 5), LString("Xy", 5));
    // Without the flag the cases differ.
    ExpectOrder({{1, 2, EXT, RM_TYPE_STRING}}, {Text("\xc9", 2), Text("\xe9", 2)});
}

TEST_F(OrderTest, DescendingAndMultiSegment) {
    ExpectOrder({{1, 2, EXT | RM_KEY_DESCENDING, RM_TYPE_INTEGER}},
                {Int(300, 2), Int(1, 2), Int(0, 2), Int(-1, 2), Int(-300, 2)});
    ExpectOrder({{1, 4, EXT | RM_KEY_DESCENDING, RM_TYPE_ZSTRING}},
                {Text("b", 4), Text("abc", 4), Text("ab", 4), Text("a", 4), Text("", 4)});
    // Integer ascending, then zstring descending, then date ascending.
    auto rec = [](int i, const char* s, int year) {
        Bytes b = Int(i, 2);
        Bytes t = Text(s, 4);
        Bytes d = Date(1, 1, year);
        b.insert(b.end(), t.begin(), t.end());
        b.insert(b.end(), d.begin(), d.end());
        return b;
    };
    ExpectOrder({{1, 2, EXT, RM_TYPE_INTEGER},
                 {3, 4, EXT | RM_KEY_DESCENDING, RM_TYPE_ZSTRING},
                 {7, 4, EXT, RM_TYPE_DATE}},
                {rec(-1, "z", 2000), rec(-1, "a", 1999), rec(-1, "a", 2000), rec(0, "b", 2000),
                 rec(0, "", 1990), rec(5, "ab", 1999), rec(5, "a", 1999)});
}

TEST_F(OrderTest, DuplicatesKeepInsertionOrder) {
    Make({{1, 2, EXT | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE, RM_TYPE_INTEGER}});
    for (int i = 0; i < 6; ++i) {
        Bytes rec(64, 0);
        rec[0] = uint8_t(i % 2);
        rec[63] = uint8_t(i);
        ASSERT_EQ(h_.Insert(rec), RM_OK);
    }
    // Record 0 changes to 1 and back: it goes last among the value 0.
    Bytes rec;
    rmtest::Put16(h_.key(), 0);
    ASSERT_EQ(h_.Get(RM_GET_EQUAL, 0, rec), RM_OK);
    ASSERT_EQ(rec[63], 0);
    rec[0] = 0;
    rec[1] = 0;
    rec[2] = 9;  // a change outside the key keeps the place
    ASSERT_EQ(h_.Update(rec), RM_OK);
    std::vector<int> seen;
    for (int st = h_.Get(RM_GET_FIRST, 0, rec); st == RM_OK; st = h_.Get(RM_GET_NEXT, 0, rec))
        seen.push_back(rec[63]);
    EXPECT_EQ(seen, (std::vector<int>{0, 2, 4, 1, 3, 5}));
    rmtest::Put16(h_.key(), 0);
    ASSERT_EQ(h_.Get(RM_GET_EQUAL, 0, rec), RM_OK);
    rec[0] = 1;
    ASSERT_EQ(h_.Update(rec), RM_OK);
    rec[0] = 0;
    ASSERT_EQ(h_.Update(rec), RM_OK);
    seen.clear();
    for (int st = h_.Get(RM_GET_FIRST, 0, rec); st == RM_OK; st = h_.Get(RM_GET_NEXT, 0, rec))
        seen.push_back(rec[63]);
    EXPECT_EQ(seen, (std::vector<int>{2, 4, 0, 1, 3, 5}));
}

TEST_F(OrderTest, NullAndManualKeysLeaveRecordsOut) {
    std::string p = dir_.File("nulls.dat");
    constexpr uint16_t F = EXT | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE;
    ASSERT_EQ(
        rmtest::CreateFile(p, rmtest::Spec(8, {{{7, 2, EXT, RM_TYPE_INTEGER}},
                                               {{1, 2, F | RM_KEY_NULL, RM_TYPE_INTEGER, 0},
                                                {3, 2, F | RM_KEY_NULL, RM_TYPE_STRING, ' '}},
                                               {{1, 2, F | RM_KEY_MANUAL, RM_TYPE_INTEGER, 0},
                                                {3, 2, F | RM_KEY_MANUAL, RM_TYPE_STRING, ' '}}})),
        RM_OK);
    rmtest::Handle h;
    ASSERT_EQ(h.Open(p), RM_OK);
    // (integer, text): both null, integer null only, text null only, neither.
    const Bytes recs[] = {{0, 0, ' ', ' ', 0, 0, 1, 0},
                          {0, 0, 'x', ' ', 0, 0, 2, 0},
                          {5, 0, ' ', ' ', 0, 0, 3, 0},
                          {5, 0, 'x', 'y', 0, 0, 4, 0}};
    for (Bytes r : recs)
        ASSERT_EQ(h.Insert(r), RM_OK);
    auto walk = [&](int8_t key) {
        std::vector<int> seen;
        Bytes r;
        for (int st = h.Get(RM_GET_FIRST, key, r); st == RM_OK; st = h.Get(RM_GET_NEXT, key, r))
            seen.push_back(r[6]);
        return seen;
    };
    EXPECT_EQ(walk(1), (std::vector<int>{2, 3, 4}));  // out only when every segment is null
    EXPECT_EQ(walk(2), (std::vector<int>{4}));        // out when any segment is null
    std::vector<uint8_t> stat;
    ASSERT_EQ(h.Stat(stat), RM_OK);
    EXPECT_EQ(rmtest::Get32(&stat[16 + 16 + 6]), 3u);
    EXPECT_EQ(rmtest::Get32(&stat[16 + 48 + 6]), 1u);
    // Get Direct on a record left out of a path gives it without a place there.
    uint32_t addr = 1;  // the first record inserted
    Bytes r;
    ASSERT_EQ(h.Direct(addr, 1, r), RM_OK);
    Bytes next;
    EXPECT_EQ(h.Get(RM_GET_NEXT, 1, next), RM_INVALID_POSITIONING);
    // A change that fills the key brings the record in.
    r[0] = 9;
    r[2] = 'k';
    ASSERT_EQ(h.Update(r), RM_OK);
    EXPECT_EQ(walk(2), (std::vector<int>{4, 1}));
}

}  // namespace
