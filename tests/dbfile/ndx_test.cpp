// Indexes added to and dropped from a file in use, key maps captured and
// re-applied, and which indexes ignore case.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

constexpr int DUPS = 0x0001, MODIF = 0x0002, NOCASE = 0x0400, DESC = 0x0040, SEG = 0x0010;

// Id (key 0), Name (string, key 1), Code (zstring, key 2 descending), Qty
// and twelve small numbers.
class NdxTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::vector<dbtest::FieldDef> fields = {{"Id", 4, dbInteger},
                                                {"Name", 10, dbString},
                                                {"Code", 8, dbZString},
                                                {"Qty", 2, dbInteger}};
        for (const char* n :
             {"N0", "N1", "N2", "N3", "N4", "N5", "N6", "N7", "N8", "N9", "N10", "N11"})
            fields.push_back({n, 1, dbInteger});
        for (CDbFile* f : {&file, &reader})
            dbtest::Describe(*f, fields,
                             {{0, "Id", 0},
                              {1, "Name", DUPS | MODIF | NOCASE},
                              {2, "Code", DUPS | MODIF | DESC}});
        ASSERT_EQ(file.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
        file.SetBrowser(1);
        const char* names[] = {"smith", "Adams", "lee", "BAKER"};
        for (int32_t id = 0; id < 300; ++id) {
            std::memset(file.RcdBuf(), 0, 36);
            file.SetDataLen(36);
            std::memcpy(file.RcdBuf(), &id, 4);
            std::strcpy(file.RcdBuf() + 4, names[id % 4]);
            std::strcpy(file.RcdBuf() + 14, names[(id + 1) % 4]);
            ASSERT_EQ(file.Insert(nullptr), 0);
        }
        ASSERT_EQ(reader.Open(nullptr, dbOpenNormal), 0);
    }
    // The flags of each segment of key `keyNo`, as the engine reports them.
    std::vector<int> Flags(int keyNo) {
        std::vector<int> out;
        DbStatKeyList& keys = file.m_FileStat.m_KeyList;
        file.GetFileStatistics();
        for (int ok = keys.First(); ok; ok = keys.Next())
            if (keys.GetKeyNo() == keyNo) out.push_back(keys.GetFlags());
        return out;
    }
    static CArraySKeyField Fields(std::vector<unsigned short> ids) {
        CArraySKeyField a;
        for (unsigned short id : ids) {
            SKeyField f;
            f.FldId = id;
            a.Add(f);
        }
        return a;
    }
    static std::vector<std::string> Described(CKeyMap& map) {
        std::vector<std::string> out;
        CArraySKeyField fields;
        int keyNo;
        for (POSITION pos = map.GetStartPosition(); pos;) {
            map.GetNextAssoc(pos, keyNo, fields);
            std::string s = std::to_string(keyNo) + (fields.Permanent ? "p:" : ":");
            for (int i = 0; i < fields.GetSize(); ++i)
                s += std::to_string(fields[i].FldId) + (fields[i].Descending ? "d " : " ");
            out.push_back(s);
        }
        return out;
    }

    rmtest::TempDir dir;
    dbtest::MessageLog log;
    CDbFile file{dir.File("ndx.dat").c_str(), nullptr, 1};
    CDbFile reader{dir.File("ndx.dat").c_str(), nullptr, 1};
};

TEST_F(NdxTest, CaseRulesAndSegmentLimit) {
    struct Case {
        const char* name;
        CArraySKeyField fields;  // empty: the one-field form on the first
        int keyWanted;
        std::vector<int> flags;  // of each segment, without the type flags
    };
    const int ONE = DUPS | MODIF;
    std::vector<int> ten(10, ONE | SEG);
    ten.back() = ONE;
    std::vector<Case> cases = {
        {"string field, one-field form", Fields({1}), 3, {ONE | NOCASE}},
        {"integer field, one-field form", Fields({3}), 4, {ONE}},
        {"zstring field, one-field form", Fields({2}), 5, {ONE | NOCASE}},
        {"zstring field, array form", Fields({2}), 6, {ONE}},
        {"twelve fields", Fields({4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}), 7, ten},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        Case& c = cases[i];
        SCOPED_TRACE(c.name);
        bool oneField = i < 3;
        int got = oneField ? file.CreateNdx(c.fields[0].FldId, 0, -1)
                           : file.CreateNdx(c.fields, -1, false);
        ASSERT_EQ(file.GetLastError(), 0);
        EXPECT_EQ(got, c.keyWanted);
        EXPECT_TRUE(file.KeyNoExists(got));
        EXPECT_FALSE(file.KeyNoIsPermanent(got));
        std::vector<int> flags = Flags(got);
        for (int& f : flags)
            f &= ~(0x0100 | 0x0004);  // the type's own flags
        EXPECT_EQ(flags, c.flags);
    }
    CArraySKeyField none;
    EXPECT_EQ(file.CreateNdx(none, -1, false), -1);  // nothing to index
    // The one-field index on the string ignores case, as it says.
    file.SetKey("SMITH", 5, 3);
    ASSERT_EQ(file.GetEqual(nullptr, 0, 1), 0);
    EXPECT_STREQ(file.RcdBuf() + 4, "smith");
}

TEST_F(NdxTest, KeysComeAndGoWhileAnotherHandleReads) {
    CKeyMap before(kKeyMapBlockSize);
    file.GetKeyMap(before, 0);
    EXPECT_EQ(Described(before), (std::vector<std::string>{"0p:0 ", "1p:1 ", "2p:2d "}));
    CKeyMap dictionary;
    file.GetKeyMap(dictionary, 1);
    EXPECT_EQ(Described(dictionary), Described(before));

    reader.SetKey(0);
    std::vector<int32_t> seen;
    auto read = [&](int st) {
        ASSERT_EQ(st, 0);
        int32_t id;
        std::memcpy(&id, reader.RcdBuf(), 4);
        seen.push_back(id);
    };
    read(reader.GetFirst(nullptr));
    for (int i = 0; i < 99; ++i)
        read(reader.GetNext(nullptr));
    EXPECT_EQ(file.CreateNdx(3, 1, -1), 3);  // Qty, descending
    for (int i = 0; i < 100; ++i)
        read(reader.GetNext(nullptr));
    EXPECT_EQ(file.DropNdx(1), 1);
    EXPECT_EQ(file.DropNdx(1), 0);  // gone already
    EXPECT_EQ(file.GetLastError(), 6);
    for (int i = 0; i < 100; ++i)
        read(reader.GetNext(nullptr));
    EXPECT_EQ(reader.GetNext(nullptr), 9);
    for (int32_t i = 0; i < 300; ++i)
        ASSERT_EQ(seen[size_t(i)], i);

    // The reader sees the keys as they are now: 2 and 3 under their numbers.
    ASSERT_EQ(reader.GetStatistics(), 0);
    EXPECT_FALSE(reader.KeyNoExists(1));
    EXPECT_TRUE(reader.KeyNoExists(2) && reader.KeyNoExists(3));
    EXPECT_TRUE(reader.KeyNoIsDescending(3));
    reader.SetKey(2);
    ASSERT_EQ(reader.GetFirst(nullptr), 0);
    EXPECT_STREQ(reader.RcdBuf() + 14, "smith");  // descending code

    // The map from before brings key 1 back as it was and nothing else.
    file.AddKeysFromMap(before, false);
    EXPECT_EQ(file.GetLastError(), 0);
    CKeyMap after;
    file.GetKeyMap(after, 0);
    EXPECT_EQ(Described(after), (std::vector<std::string>{"0p:0 ", "1p:1 ", "2p:2d ", "3:3d "}));
    file.AddKeysFromMap(after, false);
    CKeyMap again;
    file.GetKeyMap(again, 0);
    EXPECT_EQ(Described(again), Described(after));
    std::string shown = log.TakeOne();  // the second drop
    EXPECT_NE(shown.find("Code:\\t6"), std::string::npos) << shown;
}

}  // namespace
