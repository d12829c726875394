// Description records and their lists: stored layouts, the flattened field,
// list cursors and key editing, and the key conversions for the engine.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

// The stored layouts are part of the dictionary's file format.
static_assert(sizeof(CddFileDat) == 175);
static_assert(sizeof(CddKeyDat) == 39);
static_assert(sizeof(DbCreateFileSpec) == 16 && sizeof(DbCreateKeySpec) == 16);
static_assert(offsetof(CddFileDat, FileName) == 23 && offsetof(CddFileDat, FileDesc) == 88);
static_assert(offsetof(CddFileDat, FldCount) == 153 && offsetof(CddFileDat, FileType) == 155);
static_assert(offsetof(CddFileDat, FileSpec) == 159 && offsetof(CddKeyDat, KeySpec) == 23);

// Key numbers of the segments, in list order.
std::vector<int> KeyNos(CddKeyList& keys) {
    std::vector<int> out;
    for (int ok = keys.First(); ok; ok = keys.Next())
        out.push_back(keys.GetKeyNo());
    return out;
}

std::vector<unsigned short> Flags(CddKeyList& keys) {
    std::vector<unsigned short> out;
    for (int ok = keys.First(); ok; ok = keys.Next())
        out.push_back(keys.GetFlags());
    return out;
}

CddKeyList Segments(std::initializer_list<int> keyNos) {
    CddKeyList keys;
    for (int k : keyNos)
        keys.AddKey(k);
    return keys;
}

TEST(FlattenedField, RoundTripsAndSteps) {
    CddFldElem empty;
    char buf[256];
    std::memset(buf, 0x55, sizeof(buf));
    ASSERT_EQ(empty.SizeWhenFlat(), 27);
    ASSERT_EQ(empty.Flatten(buf), 27);
    CddFldElem back(buf);
    EXPECT_EQ(std::memcmp(&back.m_Fld, &empty.m_Fld, sizeof(CddFldDat)), 0);
    EXPECT_EQ(CddFldElem().Reconstitute(buf), 27);

    // Every member, little-endian at its offset, and texts one after another.
    CddFldList list;
    list.AddFld(new CddFldElem);
    list.SetFldId(0x0102);
    list.SetFldOffset(0x0304);
    list.SetFldLen(0x0506);
    list.SetFldType(dbMoney);
    list.SetFldVarLen(1);
    list.SetFldNumDP(2);
    list.SetFldDispCode(dbDispCodeTable);
    list.SetFldCodeId(-7);
    list.SetFldHighWaterId(0xA0B0C0D0);
    list.SetFldName("Amount");
    list.SetFldDesc("Invoice amount");
    list.SetFldPrompt("Amount:");
    list.SetFldNameForDDF("AMT");
    const CddFldElem& f = *list.Current();
    int size = f.Flatten(buf);
    EXPECT_EQ(size, 27 + 6 + 14 + 7 + 3);
    EXPECT_EQ(rmtest::Get16(reinterpret_cast<uint8_t*>(buf)), size);
    const uint8_t expect[] = {0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 7,    1,    0,    0,   0,
                              2,    13,   0xF9, 0xFF, 0xFF, 0xFF, 0xD0, 0xC0, 0xB0, 0xA0};
    EXPECT_EQ(std::memcmp(buf + 2, expect, sizeof(expect)), 0);
    EXPECT_STREQ(buf + 23, "Amount");
    EXPECT_STREQ(buf + 30, "Invoice amount");
    EXPECT_STREQ(buf + 45, "Amount:");
    EXPECT_STREQ(buf + 53, "AMT");
    CddFldElem copy(buf);
    EXPECT_EQ(std::memcmp(&copy.m_Fld, &f.m_Fld, sizeof(CddFldDat)), 0);
    // Two fields back to back are read by stepping the size word.
    f.Flatten(buf + size);
    CddFldElem second;
    EXPECT_EQ(second.Reconstitute(buf + size), size);
    EXPECT_STREQ(second.m_Fld.Prompt, "Amount:");
}

TEST(FieldList, CursorTextLimitsAndIdentity) {
    CddFldList list;
    EXPECT_EQ(list.GetFldId(), 0xFFFF);
    EXPECT_EQ(list.GetFldLen(), 0xFFFF);
    EXPECT_EQ(list.GetFldNumDP(), 0xFF);
    EXPECT_EQ(int(list.GetFldType()), -1);
    EXPECT_EQ(list.GetFldName(), nullptr);
    EXPECT_EQ(list.FldIsVarLen(), 0);
    EXPECT_EQ(list.Next(), 0);
    EXPECT_EQ(list.Prev(), 0);
    EXPECT_EQ(list.DelFld(), 0);
    EXPECT_EQ(list.First(), 0);

    const char* names[] = {"id", "name", "Name"};
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(list.AddFld(new CddFldElem), 1);
        EXPECT_EQ(list.GetFldId(), 0);  // a new element is all zeros
        list.SetFldId(uint16_t(i));
        list.SetFldOffset(uint16_t(i * 10));
        list.SetFldName(names[i]);
    }
    EXPECT_EQ(list.Count(), 3);
    EXPECT_EQ(list.GetFldId(), 2);  // the appended one is current
    ASSERT_EQ(list.FindByName("name"), 1);
    EXPECT_EQ(list.GetFldId(), 1);  // exact case
    EXPECT_EQ(list.FindByName("NAME"), 0);
    EXPECT_EQ(list.GetFldSpec(), nullptr);
    ASSERT_EQ(list.FindByOffset(20), 1);
    EXPECT_STREQ(list.GetFldName(), "Name");
    // Text setters cut to 20, 64, 32 and 20 characters and stay terminated.
    list.SetFldName("ABCDEFGHIJKLMNOPQRSTUVWXY");
    EXPECT_STREQ(list.GetFldName(), "ABCDEFGHIJKLMNOPQRST");
    std::string longText(100, 'd');
    list.SetFldDesc(longText.c_str());
    EXPECT_EQ(std::string(list.GetFldDesc()), longText.substr(0, 64));
    list.SetFldPrompt(longText.c_str());
    EXPECT_EQ(std::strlen(list.GetFldPrompt()), 32u);
    list.SetFldNameForDDF(longText.c_str());
    EXPECT_EQ(std::strlen(list.GetFldNameForDDF()), 20u);
    // Insertion before an index, or at the end past it.
    list.InsFld(1, new CddFldElem);
    list.SetFldId(9);
    list.InsFld(99, new CddFldElem);
    list.SetFldId(8);
    std::vector<int> ids;
    for (int ok = list.First(); ok; ok = list.Next())
        ids.push_back(list.GetFldId());
    EXPECT_EQ(ids, (std::vector<int>{0, 9, 1, 2, 8}));
    EXPECT_EQ(list.Find(5), 0);
    ASSERT_EQ(list.Find(4), 1);
    EXPECT_EQ(list.GetFldId(), 8);
    // Deleting leaves no current element.
    EXPECT_EQ(list.DelFld(uint16_t(9)), 1);
    EXPECT_EQ(list.GetFldSpec(), nullptr);
    EXPECT_EQ(list.DelFld(uint16_t(9)), 0);
    EXPECT_EQ(list.Count(), 4);
    // A copied list is a deep copy; the element copy has its own identity.
    CddFldList copy(list);
    ASSERT_EQ(copy.FindByFldId(2), 1);
    copy.SetFldName("changed");
    ASSERT_EQ(list.FindByFldId(2), 1);
    EXPECT_STREQ(list.GetFldName(), "ABCDEFGHIJKLMNOPQRST");
    CddFldElem a;
    CddFldElem b(a);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a == a);
    EXPECT_TRUE(a < b);
    // Destroying an element unlinks it from its list.
    list.First();
    delete list.Current();
    EXPECT_EQ(list.Count(), 3);
}

TEST(KeyList, InsertDeleteAndNumbering) {
    CddKeyList keys = Segments({0, 1, 1, 3});
    ASSERT_EQ(keys.InsKey(2), 1);
    EXPECT_EQ(keys.GetKeyNo(), 2);
    EXPECT_EQ(KeyNos(keys), (std::vector<int>{0, 1, 1, 2, 3}));
    EXPECT_EQ(Flags(keys), (std::vector<unsigned short>{0, 0, 0, 0, 0}));

    keys = Segments({0, 1, 1, 3});
    ASSERT_EQ(keys.InsKey(1), 1);
    EXPECT_EQ(KeyNos(keys), (std::vector<int>{0, 1, 1, 1, 3}));
    EXPECT_EQ(Flags(keys), (std::vector<unsigned short>{0, 0x10, 0x10, 0, 0}));
    keys = Segments({0, 1});
    ASSERT_EQ(keys.InsKey(7), 1);
    EXPECT_EQ(KeyNos(keys), (std::vector<int>{0, 1, 7}));

    keys = Segments({0, 1, 1, 3});
    keys.Find(1);
    keys.SetFlags(0x10);
    EXPECT_EQ(keys.DelKey(short(1)), 1);
    EXPECT_EQ(KeyNos(keys), (std::vector<int>{0, 3}));
    EXPECT_EQ(keys.DelKey(short(1)), 0);
    EXPECT_EQ(keys.DelKey(short(3)), 1);
    EXPECT_EQ(KeyNos(keys), (std::vector<int>{0}));

    EXPECT_EQ(CddKeyList().MakeNewKeyNo(), 0);
    EXPECT_EQ(Segments({0}).MakeNewKeyNo(), 1);
    EXPECT_EQ(Segments({0, 5}).MakeNewKeyNo(), 6);
    EXPECT_EQ(Segments({5, 0}).MakeNewKeyNo(), 6);

    // Finding by field id, then the next segment on the same field.
    keys = Segments({0, 1, 2});
    keys.Find(0);
    keys.SetFldId(4);
    keys.Find(2);
    keys.SetFldId(4);
    ASSERT_EQ(keys.FindByFldId(4), 1);
    EXPECT_EQ(keys.GetKeyNo(), 0);
    ASSERT_EQ(keys.NextByFldId(4), 1);
    EXPECT_EQ(keys.GetKeyNo(), 2);
    EXPECT_EQ(keys.NextByFldId(4), 0);
    EXPECT_EQ(keys.FindByKeyNo(9), 0);
    // A segment from a field: position is the offset plus one.
    CddFldDat fld{};
    fld.FldId = 3;
    fld.Offset = 10;
    fld.Length = 6;
    keys.FindByKeyNo(1);
    keys.SetSegment(&fld);
    EXPECT_EQ(keys.GetFldId(), 3);
    EXPECT_EQ(keys.GetPosition(), 11);
    EXPECT_EQ(keys.GetLength(), 6);
    keys.SetKeyName("a-key-name-longer-than-twenty");
    EXPECT_STREQ(keys.GetKeyName(), "a-key-name-longer-th");
}

TEST(RelationList, FoundIgnoringCaseAndSized) {
    CddRelList rels;
    EXPECT_EQ(rels.WriteSize(), 0);
    rels.Add(new CddRelElem("ABC", "customer"));
    rels.Add(new CddRelElem("def"));
    CddRelElem* found = rels.Find("abc", 0);
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->m_Text, "customer");
    EXPECT_EQ(rels.Find("xyz", 0), nullptr);
    EXPECT_EQ(rels.WriteSize(), (3 + 8 + 2) + (3 + 0 + 2));
    // Compared as list elements are, through the base's virtual operators.
    const ListElem& abc = CddRelElem("abc");
    EXPECT_TRUE(abc == CddRelElem("ABC"));
    EXPECT_TRUE(CddRelElem("Abc") < CddRelElem("abd"));
    LLPosition p;
    int n = 0;
    for (CddRelElem* e = rels.First(p); e; e = rels.Next(p))
        ++n;
    EXPECT_EQ(n, 2);
}

// Each type's engine type is in the catalogue test's columns; a type out of
// range is a string.
TEST(KeyConversion, TypesAndFlagsForTheEngine) {
    EXPECT_EQ(int(CvtDbTypeToBtrType(dbFieldType(-3), dbFileData)), 0);
    const int fromEngine[][2] = {{1, 1}, {2, 3},  {3, 5},  {4, 6},   {5, 4}, {6, 7},
                                 {7, 8}, {11, 9}, {14, 2}, {15, 10}, {0, 0}, {8, 0}};
    for (auto& c : fromEngine)
        EXPECT_EQ(int(CvtBtrTypeToDbType(BtrFieldType(c[0]))), c[1]) << c[0];

    DbCreateKeySpec spec{};
    spec.Type = dbAutoInc;
    spec.Flags = 0x0002;
    CvtDbKeyToBtrKey(&spec, dbFileSystem);
    EXPECT_EQ(+spec.Type, 15);
    EXPECT_EQ(+spec.Flags, 0x0106);
    spec.Type = dbAutoInc;
    spec.Flags = 0x0002;
    CvtDbKeyToBtrKey(&spec, dbFileData);
    EXPECT_EQ(+spec.Type, 1);
    EXPECT_EQ(+spec.Flags, 0x0106);
    spec.Type = dbString;
    spec.Flags = 0x0001;
    CvtDbKeyToBtrKey(&spec, dbFileData);  // an old-style string key
    EXPECT_EQ(+spec.Type, 0);
    EXPECT_EQ(+spec.Flags, 0x0001);
    spec.Type = dbUnsigned;
    spec.Flags = 0;
    CvtDbKeyToBtrKey(&spec, dbFileData);
    EXPECT_EQ(+spec.Type, 14);
    EXPECT_EQ(+spec.Flags, 0x0104);
}

}  // namespace

namespace {

// A dictionary record as another program may write it: the first field
// padded beyond its texts and with a name longer than the member keeps, the
// second plain, then one key segment and the markers. Cut at `len` bytes.
std::vector<char> ForeignRecord() {
    std::vector<char> r(sizeof(CddFileDat), 0);
    CddFileDat file{};
    file.FldCount = 2;
    file.FileSpec.NdxCount = 1;
    std::memcpy(r.data(), &file, sizeof(file));
    auto field = [&](uint16_t id, uint16_t length, const std::string& name, size_t padding) {
        std::vector<char> f(23, 0);
        std::memcpy(&f[2], &id, 2);
        std::memcpy(&f[6], &length, 2);
        for (const std::string& t :
             {name, std::string("desc"), std::string("Prompt:"), std::string()}) {
            f.insert(f.end(), t.begin(), t.end());
            f.push_back(0);
        }
        f.insert(f.end(), padding, '\x7f');
        uint16_t size = uint16_t(f.size());
        std::memcpy(&f[0], &size, 2);
        r.insert(r.end(), f.begin(), f.end());
    };
    field(0, 4, "AVeryLongFieldNameIndeed", 5);
    field(1, 30, "Name", 0);
    CddKeyDat key{};
    key.FldId = 1;
    key.KeySpec.Position = 5;
    key.KeySpec.Length = 30;
    const char* k = reinterpret_cast<const char*>(&key);
    r.insert(r.end(), k, k + sizeof(key));
    for (const char* marker : {"OneRcdFile", "Outdated"})
        r.insert(r.end(), marker, marker + std::strlen(marker) + 1);
    return r;
}

void Read(CCdd& cdd, const std::vector<char>& rec, size_t len) {
    cdd.SetDataLen(uint16_t(len));
    std::memcpy(cdd.RcdBuf(), rec.data(), len);
    cdd.OnReadRecord();
}

TEST(DictionaryRecord, StepsByEachFieldsSizeWord) {
    CCdd cdd(nullptr, "read.ddf");
    std::vector<char> rec = ForeignRecord();
    Read(cdd, rec, rec.size());
    ASSERT_EQ(cdd.m_FldList.Count(), 2);
    cdd.m_FldList.First();
    EXPECT_STREQ(cdd.m_FldList.GetFldName(), "AVeryLongFieldNameIn");  // cut to 20
    cdd.m_FldList.Next();
    EXPECT_STREQ(cdd.m_FldList.GetFldName(), "Name");
    EXPECT_EQ(cdd.m_FldList.GetFldLen(), 30);
    EXPECT_STREQ(cdd.m_FldList.GetFldPrompt(), "Prompt:");
    ASSERT_EQ(cdd.m_KeyList.Count(), 1);
    cdd.m_KeyList.First();
    EXPECT_EQ(cdd.m_KeyList.GetFldId(), 1);
    EXPECT_EQ(cdd.m_bOneRcdFile, 1);
    EXPECT_EQ(cdd.m_bOutdated, 1);

    // Cut anywhere, the record reads what it holds and the markers it lacks
    // are cleared, also when not even the file record is whole.
    for (size_t len :
         {rec.size() - 1, rec.size() - 9, size_t(200), sizeof(CddFileDat) - 1, size_t(0)}) {
        cdd.m_bOneRcdFile = cdd.m_bOutdated = 1;
        Read(cdd, rec, len);
        EXPECT_EQ(cdd.m_bOutdated, 0) << len;
        EXPECT_EQ(cdd.m_bOneRcdFile, len >= rec.size() - 9 ? 1 : 0) << len;
        EXPECT_LE(cdd.m_FldList.Count(), 2);
    }
}

}  // namespace
