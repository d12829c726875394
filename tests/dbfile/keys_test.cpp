// Key buffers from values and typed text, and key searches with every
// relation, checked against a sorted copy of the file's records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

constexpr int SEG = 0x0010, DUPS = 0x0001, MODIF = 0x0002, NOCASE = 0x0400, DESC = 0x0040;

// Invoices: id (key 0), customer name (key 1, any case), amount (packed,
// key 2), date (key 3, descending), a flag, a 2-byte count and a time;
// key 4 is the name and the id together.
class KeysTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dbtest::Describe(file,
                         {{"Id", 4, dbInteger},
                          {"Name", 12, dbZString},
                          {"Amount", 6, dbMoney, 0, 2},
                          {"When", 4, dbDate},
                          {"Paid", 1, dbBoolean},
                          {"Count", 2, dbInteger},
                          {"At", 4, dbTime},
                          {"Ref", 10, dbString}},
                         {{0, "Id", 0},
                          {1, "Name", DUPS | MODIF | NOCASE},
                          {2, "Amount", DUPS | MODIF},
                          {3, "When", DUPS | MODIF | DESC},
                          {4, "Name", SEG | DUPS | MODIF | NOCASE},
                          {4, "Id", DUPS | MODIF}});
        ASSERT_EQ(file.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
    }

    struct Row {
        int32_t id;
        std::string name;
        double amount;
        Date when;
    };
    void Insert(const Row& r) {
        std::memset(file.RcdBuf(), 0, 43);
        file.SetDataLen(43);
        std::memcpy(file.RcdBuf(), &r.id, 4);
        std::strncpy(file.RcdBuf() + 4, r.name.c_str(), 11);
        Currency(r.amount).CopyBCD(reinterpret_cast<unsigned char*>(file.RcdBuf() + 16), 6, 2);
        uint32_t w = r.when.Value();
        std::memcpy(file.RcdBuf() + 22, &w, 4);
        file.SetBrowser(1);
        ASSERT_EQ(file.Insert(nullptr), 0);
    }
    int32_t FoundId() {
        int32_t id;
        std::memcpy(&id, file.RcdBuf(), 4);
        return id;
    }

    rmtest::TempDir dir;
    dbtest::MessageLog log;
    CDbFile file{dir.File("inv.dat").c_str(), nullptr, 1};
};

// Typed text against a sorted copy: for each key and relation, the record
// found must be the first (or, going down, the last) one that the
// relation admits, in the key's order.
TEST_F(KeysTest, SearchesAgreeWithASortedCopy) {
    std::mt19937 rng(std::random_device{}());
    unsigned seed = rng();
    SCOPED_TRACE("seed " + std::to_string(seed));
    rng.seed(seed);
    const char* names[] = {"adams", "Baker", "lee", "MORGAN", "ng", "O'Hara", "smith"};
    std::vector<Row> rows;
    for (int i = 0; i < 2000; ++i) {
        // Amounts large enough that their packed key does not begin with a
        // zero byte (such a key counts as not built).
        Row r{int32_t(rng() % 100000) * (rng() % 2 ? 1 : -1), names[rng() % 7],
              (1e7 + double(rng() % 8000) * 1e4 + double(rng() % 100) / 100) * (rng() % 3 ? 1 : -1),
              Date(2020 + int(rng() % 6), 1 + int(rng() % 12), 1 + int(rng() % 28))};
        if (std::any_of(rows.begin(), rows.end(), [&](const Row& o) { return o.id == r.id; }))
            continue;
        rows.push_back(r);
        Insert(r);
    }
    auto upper = [](std::string s) {
        for (char& c : s)
            c = char(std::toupper(static_cast<unsigned char>(c)));
        return s;
    };
    // A comparison of a row with the searched value, by key: <0, 0, >0.
    struct Probe {
        int key, field;
        std::string text;
        std::function<int(const Row&)> cmp;
    };
    for (int round = 0; round < 300; ++round) {
        Probe p;
        switch (round % 4) {
            case 0: {
                int32_t v = int32_t(rng() % 100000) * (rng() % 2 ? 1 : -1);
                if (rng() % 2) v = rows[rng() % rows.size()].id;
                p = {0, 0, std::to_string(v),
                     [v](const Row& r) { return r.id < v ? -1 : r.id > v; }};
                break;
            }
            case 1: {
                std::string v = rng() % 3 ? names[rng() % 7] : "M";
                p = {1, 1, v, [=](const Row& r) { return upper(r.name).compare(upper(v)); }};
                break;
            }
            case 2: {
                double v = rows[rng() % rows.size()].amount + (rng() % 2 ? 0 : 0.01);
                char text[32];
                std::snprintf(text, sizeof(text), "%.2f", v);
                p = {2, 2, text, [v](const Row& r) {
                         return r.amount < v - 0.001 ? -1 : r.amount > v + 0.001;
                     }};
                break;
            }
            default: {
                Date v(2020 + int(rng() % 6), 1 + int(rng() % 12), 1 + int(rng() % 28));
                // Descending: the key's order is the reverse of the calendar.
                p = {3, 3, v.Short().c_str(), [v](const Row& r) {
                         return r.when < v ? 1 : v < r.when ? -1 : 0;
                     }};
            }
        }
        // The key's order, duplicates in insertion order.
        std::vector<Row> sorted = rows;
        std::stable_sort(sorted.begin(), sorted.end(), [&](const Row& a, const Row& b) {
            switch (p.key) {
                case 0:
                    return a.id < b.id;
                case 1:
                    return upper(a.name) < upper(b.name);
                case 2:
                    return a.amount < b.amount;
                default:
                    return b.when < a.when;
            }
        });
        for (dbRelOp op : {dbRelEqual, dbRelGreater, dbRelLess, dbRelNotEqual, dbRelGreaterEqual,
                           dbRelLessEqual}) {
            const Row* want = nullptr;
            bool down = op == dbRelLess || op == dbRelLessEqual;
            for (size_t i = 0; i < sorted.size() && !want; ++i) {
                const Row& r = sorted[down ? sorted.size() - 1 - i : i];
                int c = p.cmp(r);
                bool admits[] = {c == 0, c > 0, c < 0, c == 0, c >= 0, c <= 0};  // by relation
                if (admits[op]) want = &r;  // not equal searches for equal
            }
            file.SetKey(p.key);
            file.m_FldList.FindByFldId(uint16_t(p.field));
            bool built = file.SetKeyFromString(p.text.c_str(), int(p.text.size()), p.field);
            int st = file.SearchKey(nullptr, p.field, p.text.c_str(), int(p.text.size()), op, true);
            SCOPED_TRACE("key " + std::to_string(p.key) + " op " + std::to_string(op) + " " +
                         p.text);
            if (!built) {  // a key beginning with a zero byte is not searched
                EXPECT_EQ(st, -1);
                continue;
            }
            if (!want) {
                EXPECT_TRUE(st == 4 || st == 9) << st;
                continue;
            }
            ASSERT_EQ(st, 0);
            // With duplicates the engine may land on any of the equal values.
            auto found = std::find_if(rows.begin(), rows.end(),
                                      [&](const Row& r) { return r.id == FoundId(); });
            ASSERT_NE(found, rows.end());
            EXPECT_EQ(p.cmp(*found), p.cmp(*want));
            if (p.key == 0) {
                EXPECT_EQ(FoundId(), want->id);
            }
            // The key-only form finds the same and leaves the record alone.
            std::memset(file.RcdBuf(), 0x77, 4);
            ASSERT_EQ(
                file.SearchKey(nullptr, p.field, p.text.c_str(), int(p.text.size()), op, false), 0);
            EXPECT_EQ(uint8_t(file.RcdBuf()[0]), 0x77);
        }
    }
    EXPECT_TRUE(log.Take().empty());  // searches show no messages
}

TEST_F(KeysTest, KeysFromTextAndValues) {
    auto keyFrom = [&](int fld, const char* text, int len) {
        file.m_FldList.FindByFldId(uint16_t(fld));
        int answer = file.SetKeyFromString(text, len, fld);
        return std::make_pair(answer, std::string(reinterpret_cast<char*>(file.GetKeyBuf()), 12));
    };
    auto bytes = [](std::initializer_list<int> b) {
        std::string s(12, '\0');
        int i = 0;
        for (int x : b)
            s[size_t(i++)] = char(x);
        return s;
    };
    // A 2-byte integer from "256": bytes 00 01, answer 0; the search then
    // builds nothing and calls nothing.
    EXPECT_EQ(keyFrom(5, "256", 3), std::make_pair(0, bytes({0, 1})));
    file.ClearError();
    EXPECT_EQ(file.SearchKey(nullptr, 5, "256", 3, dbRelEqual, true), -1);
    EXPECT_EQ(file.GetLastError(), 0);
    EXPECT_EQ(keyFrom(5, "1", 1), std::make_pair(1, bytes({1, 0})));
    EXPECT_EQ(keyFrom(7, "ABC", 3), std::make_pair(1, bytes({'A', 'B', 'C'})));
    EXPECT_EQ(keyFrom(7, "ABCDEFGHIJKL", 12).second, std::string("ABCDEFGHIJ\0\0", 12));
    Date dec1(2001, 12, 1);
    uint32_t d = dec1.Value();
    EXPECT_EQ(keyFrom(3, "12", 2).second,
              std::string(reinterpret_cast<char*>(&d), 4) + std::string(8, '\0'));
    EXPECT_EQ(keyFrom(4, "10", 2), std::make_pair(1, bytes({1})));
    EXPECT_EQ(keyFrom(6, "12:00", 5), std::make_pair(1, bytes({1})));  // times build nothing
    EXPECT_EQ(keyFrom(2, "-1.5", 4).second, bytes({0, 0, 0, 0, 0x15, 0x0D}));
    std::string huge(300, 'x');
    file.SetKey(huge.data(), 300, 1);
    EXPECT_EQ(file.GetKeyBuf()[254], 'x');
    file.SetKey("ab", 2, 1);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(file.GetKeyBuf()), 4), std::string("ab\0\0", 4));
    // One value per segment; a zstring gives its text without the NUL.
    file.SetKey(4);
    int32_t id = 7;
    file.SetKeyData("Lee", &id, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(file.GetKeyBuf()), 16),
              std::string("Lee\0\0\0\0\0\0\0\0\0\x07\0\0\0", 16));
    EXPECT_EQ(file.GetKeyBufLen(), 16);
    file.SetKey(3);
    file.SetKeyData(&dec1, nullptr);
    EXPECT_EQ(std::memcmp(file.GetKeyBuf(), &d, 4), 0);
    // Integer and date segments read most significant byte first.
    file.SetKey(0);
    file.SetKeyData(&id, nullptr);
    char sortable[255];
    EXPECT_EQ(std::string(file.GetSortableKeyBuf(sortable), 4), std::string("\0\0\0\x07", 4));
}

TEST_F(KeysTest, QuestionsAboutTheKeys) {
    EXPECT_EQ(file.GetPrimaryKeyFldNo(), 0);
    EXPECT_EQ(file.GetPrimaryKeyNo(), 0);
    EXPECT_EQ(file.GetKeyNoByFldId(1, 1), 1);
    EXPECT_EQ(file.GetKeyNoByFldId(7, 0), -1);
    EXPECT_EQ(file.KeyExists(0, 0), 1);
    EXPECT_EQ(file.KeyExists(7, 1), 0);
    EXPECT_EQ(file.KeyExists(99, 1), 0);
    EXPECT_EQ(file.KeyNoExists(4), 1);
    EXPECT_EQ(file.KeyNoExists(5), 0);
    EXPECT_TRUE(file.KeyNoIsDescending(3));
    EXPECT_FALSE(file.KeyNoIsDescending(2));
    EXPECT_FALSE(file.KeyNoIsDescending(9));
    EXPECT_EQ(file.GetUniqueKeyNo(), 5);
    ASSERT_EQ(file.SetKeyUsingFldId(2), 1);
    EXPECT_EQ(file.GetKeyNo(), 2);
    EXPECT_EQ(file.SetKeyUsingFldId(7), 0);
    // A field that only begins a two-segment key.
    file.m_KeyList.FindByKeyNo(1);
    file.m_KeyList.SetFldId(99);
    EXPECT_EQ(file.GetKeyNoByFldId(1, 1), -1);
    EXPECT_EQ(file.GetKeyNoByFldId(1, 0), 4);

    // An index added at run time exists but is not permanent; gaps in the
    // key numbers give the lowest free one.
    rmtest::Handle other;
    ASSERT_EQ(other.Open(file.FileName()), RM_OK);
    uint8_t seg[16] = {};
    seg[0] = 34;  // position of Ref
    seg[2] = 10;
    seg[4] = uint8_t(RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE);
    uint32_t len = 16;
    ASSERT_EQ(other.Call(RM_CREATE_INDEX, seg, &len, other.key(), int8_t(0x80 | 7)), RM_OK);
    ASSERT_EQ(file.GetStatistics(), 0);
    EXPECT_EQ(file.KeyNoExists(7), 1);
    EXPECT_EQ(file.KeyNoIsPermanent(7), 0);
    EXPECT_EQ(file.KeyNoIsPermanent(4), 1);
    EXPECT_EQ(file.GetUniqueKeyNo(), 5);
    ASSERT_EQ(other.Call(RM_DROP_INDEX, nullptr, &len, other.key(), int8_t(0x80 | 0)), RM_OK);
    ASSERT_EQ(file.GetStatistics(), 0);
    EXPECT_EQ(file.GetUniqueKeyNo(), 0);
}

}  // namespace
