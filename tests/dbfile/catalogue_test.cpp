// The SQL catalogue export: a small company's dictionary written out as
// FILE.DDF, FIELD.DDF and INDEX.DDF and read back byte for byte through plain
// record files; numbering across exports, the system tables' fixed flags, and
// bad input that must leave the catalogue as the messages say.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

constexpr int SEG = 0x0010, DUPS = 0x0001, MODIF = 0x0002, DESC = 0x0040, NOCASE = 0x0400;
constexpr auto kCreate = dbOpenType(dbOpenNormal | dbOpenCreate);

// Catalogue records as the engine stores them: little-endian numbers,
// texts padded with spaces.
const auto Text = [](const std::string& s, size_t n) {
    return (s + std::string(n, ' ')).substr(0, n);
};
const auto U16 = [](unsigned v) { return std::string{char(v & 0xFF), char(v >> 8)}; };
const auto U8 = [](unsigned v) { return std::string(1, char(v)); };
struct Table {
    unsigned id;
    const char *name, *location;
    unsigned flags;
    std::string Bytes() const {
        return U16(id) + Text(name, 20) + Text(location, 64) + U8(flags) + std::string(10, '\0');
    }
};
struct Column {
    unsigned id, table;
    const char* name;
    unsigned type, offset, length, numDP, flags;
    std::string Bytes() const {
        return U16(id) + U16(table) + Text(name, 20) + U8(type) + U16(offset) + U16(length) +
               U8(numDP) + U16(flags);
    }
};
struct Segment {
    unsigned table, column, key, segment, flags;
    std::string Bytes() const {
        return U16(table) + U16(column) + U16(key) + U16(segment) + U16(flags);
    }
};
template <class Rec>
std::vector<std::string> Bytes(const std::vector<Rec>& recs) {
    std::vector<std::string> out;
    for (const Rec& r : recs)
        out.push_back(r.Bytes());
    return out;
}

using Fld = dbtest::FieldDef;
using Key = dbtest::KeyDef;
// A small company: every field type, a long text, multi-segment,
// descending and case-insensitive keys.
const std::vector<Fld> kCustomerFields = {{"CustId", 4, dbAutoInc},      {"Name", 30, dbZString},
                                          {"City", 20, dbString},        {"Phone", 15, dbPhone},
                                          {"Balance", 8, dbMoney, 0, 2}, {"Notes", 0, dbZString}};
const std::vector<Key> kCustomerKeys = {{0, "CustId", 0},
                                        {1, "Name", SEG | DUPS | MODIF | NOCASE},
                                        {1, "City", DUPS | MODIF},
                                        {2, "Balance", DUPS | DESC},
                                        {3, "Phone", DUPS | NOCASE},
                                        {4, "City", DUPS | NOCASE}};
const std::vector<Fld> kInvoiceFields = {
    {"InvNo", 4, dbUnsigned},     {"CustId", 4, dbInteger},     {"InvDate", 4, dbDate},
    {"InvTime", 4, dbTime},       {"Amount", 8, dbFloat, 0, 2}, {"Tax", 8, dbDecimal, 0, 2},
    {"Paid", 1, dbBoolean},       {"Ref", 10, dbFixedText},     {"Code", 2, dbUnsignedText},
    {"Spare", 4, dbFieldType(14)}};
const std::vector<Key> kInvoiceKeys = {{0, "InvNo", 0},
                                       {1, "CustId", SEG | DUPS},
                                       {1, "InvDate", DUPS | DESC},
                                       {2, "Ref", DUPS | NOCASE}};

// The three writers on one folder.
struct Catalogue {
    explicit Catalogue(const std::string& folder)
        : tables(folder.c_str()), columns(folder.c_str()), indexes(folder.c_str()) {}
    std::array<CDbFile*, 3> Writers() { return {&tables, &columns, &indexes}; }
    int Open(dbOpenType mode = kCreate) {
        for (CDbFile* w : Writers())
            if (int st = w->Open(nullptr, mode)) return st;
        return 0;
    }
    void Write(CDbFile& f, bool system = false) { f.WriteToDdf(tables, columns, indexes, system); }
    void Write(const char* name) {
        CDbFile f(name);
        Write(f);
    }
    CFileDdf tables;
    CFieldDdf columns;
    CIndexDdf indexes;
};

class CatalogueTest : public dbtest::DictionaryFolder {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(DictionaryFolder::SetUp());
        ASSERT_EQ(cdd->CreateFileDdfRec(nullptr), 0);
        ASSERT_EQ(cdd->CreateFieldDdfRec(nullptr), 0);
        ASSERT_EQ(cdd->CreateIndexDdfRec(nullptr), 0);
        Entry("Customer.dat", dbFileData, kCustomerFields, kCustomerKeys);
        Entry("Invoice.dat", dbFileData, kInvoiceFields, kInvoiceKeys);
        Entry("GLHist.2004", dbFileSystem, {{"Id", 4, dbAutoInc}, {"Memo", 40, dbString}},
              {{0, "Id", 0}});
        // Branches keep their own keys and take the customer fields.
        Entry("Branch.dat", dbFileData, {{"BranchId", 4, dbInteger}, {"Region", 10, dbString}},
              {{0, "BranchId", 0}, {1, "Region", DUPS | NOCASE}});
        CDbFile::SetAlternateFile("Branch.dat", "Customer.dat");
        log.Take();
    }
    void Entry(const char* file, dbFileType type, const std::vector<Fld>& fields,
               const std::vector<Key>& keys) {
        ASSERT_EQ(dbtest::AddEntry(*cdd, file, type, fields, keys), 0);
    }
    // Every record of a catalogue file in the order written, read without
    // the writer classes.
    static std::vector<std::string> Records(const std::string& folder, const char* name) {
        CDbFile f(name, folder.c_str(), 1);
        f.SetErrOverride(1);
        std::vector<std::string> out;
        if (f.Open(nullptr, dbOpenReadOnly) != 0) return out;
        for (int st = f.StepFirst(nullptr); st == 0; st = f.StepNext(nullptr))
            out.emplace_back(f.RcdBuf(), f.GetBytesRead());
        return out;
    }
    void ExpectCatalogue(const std::string& folder, const std::vector<Table>& tables,
                         const std::vector<Column>& columns, const std::vector<Segment>& segments) {
        EXPECT_EQ(Records(folder, "FILE.DDF"), Bytes(tables));
        EXPECT_EQ(Records(folder, "FIELD.DDF"), Bytes(columns));
        EXPECT_EQ(Records(folder, "INDEX.DDF"), Bytes(segments));
    }

    std::string sql = dir.File("sql");
};

const std::vector<Table> kTables = {{1, "Customer", "Customer.dat", 0},
                                    {2, "Invoice", "Invoice.dat", 0},
                                    {3, "GLHist_2004", "GLHist.2004", 0},
                                    {4, "Branch", "Branch.dat", 0}};
const std::vector<Column> kColumns = {
    {1, 1, "CustId", 1, 0, 4, 0, 0},    {2, 1, "Name", 11, 4, 30, 0, 1},
    {3, 1, "City", 0, 34, 20, 0, 0},    {4, 1, "Phone", 11, 54, 15, 0, 1},
    {5, 1, "Balance", 6, 69, 8, 2, 0},  {6, 1, "Notes", 12, 77, 32765, 0, 0},
    {7, 2, "InvNo", 14, 0, 4, 0, 0},    {8, 2, "CustId", 1, 4, 4, 0, 0},
    {9, 2, "InvDate", 3, 8, 4, 0, 0},   {10, 2, "InvTime", 4, 12, 4, 0, 0},
    {11, 2, "Amount", 2, 16, 8, 2, 0},  {12, 2, "Tax", 5, 24, 8, 2, 0},
    {13, 2, "Paid", 7, 32, 1, 0, 0},    {14, 2, "Ref", 0, 33, 10, 0, 0},
    {15, 2, "Code", 0, 43, 2, 0, 0},    {16, 2, "Spare", 0, 45, 4, 0, 0},
    {17, 3, "Id", 15, 0, 4, 0, 0},      {18, 3, "Memo", 0, 4, 40, 0, 0},
    {19, 4, "CustId", 1, 0, 4, 0, 0},   {20, 4, "Name", 11, 4, 30, 0, 1},
    {21, 4, "City", 0, 34, 20, 0, 0},   {22, 4, "Phone", 11, 54, 15, 0, 0},
    {23, 4, "Balance", 6, 69, 8, 2, 0}, {24, 4, "Notes", 12, 77, 32765, 0, 0}};
const std::vector<Segment> kSegments = {
    {1, 1, 0, 0, 0x100}, {1, 2, 1, 0, 0x133},  {1, 3, 1, 1, 0x103},  {1, 5, 2, 0, 0x141},
    {1, 4, 3, 0, 0x121}, {1, 3, 4, 0, 0x121},  {2, 7, 0, 0, 0x100},  {2, 8, 1, 0, 0x111},
    {2, 9, 1, 1, 0x141}, {2, 14, 2, 0, 0x121}, {3, 17, 0, 0, 0x100}, {4, 19, 0, 0, 0x100},
    {4, 20, 1, 0, 0x121}};

TEST_F(CatalogueTest, CompanyBecomesTablesColumnsAndIndexes) {
    {
        Catalogue cat(sql);
        ASSERT_EQ(cat.Open(), 0);
        for (const char* f : {"Customer.dat", "Invoice.dat", "GLHist.2004"})
            cat.Write(f);
        // The engine made the catalogue files with every key of their entries.
        int segments[] = {2, 8, 5}, i = 0;
        for (CDbFile* w : cat.Writers()) {
            ASSERT_EQ(w->GetFileStatistics(), 0);
            EXPECT_EQ(w->m_FileStat.m_KeyList.Count(), segments[i++]);
        }
    }
    EXPECT_TRUE(log.Take().empty());
    // Into the catalogue now there: a table it holds is refused with nothing
    // added for it, and a new one is numbered after what is there.
    Catalogue cat(sql);
    ASSERT_EQ(cat.Open(), 0);
    cat.Write("Customer.dat");
    cat.Write("Branch.dat");
    EXPECT_NE(log.TakeOne().find("FILE.DDF\\nCode:\\t5\\n"), std::string::npos);
    ExpectCatalogue(sql, kTables, kColumns, kSegments);
}

// The catalogue's own files and a view table, exported as system tables.
const std::vector<Segment> kSystemSegments = {
    {1, 1, 0, 0, 0x100},  {1, 2, 1, 0, 0x122},  {2, 6, 0, 0, 0x100},  {2, 7, 1, 0, 0x103},
    {2, 8, 2, 0, 0x123},  {2, 7, 3, 0, 0x112},  {2, 8, 3, 1, 0x122},  {2, 7, 4, 0, 0x113},
    {2, 10, 4, 1, 0x113}, {2, 12, 4, 2, 0x103}, {3, 14, 0, 0, 0x101}, {3, 15, 1, 0, 0x101},
    {3, 14, 2, 0, 0x112}, {3, 16, 2, 1, 0x112}, {3, 17, 2, 2, 0x102}, {4, 19, 0, 0, 0x123},
    {4, 19, 2, 0, 0}};

TEST_F(CatalogueTest, SystemTablesTakeFixedFlagsAndSizes) {
    Entry("X$View.ddf", dbFileSystem,
          {{"Xv$Name", 20, dbString},
           {"Xv$Misc", 0, dbZString},
           {"Xa$Attrs", 0, dbZString},
           {"Xv$Text", 0, dbZString}},
          {{0, "Xv$Name", 0}, {2, "Xv$Name", 0}});
    Catalogue cat(sql);
    ASSERT_EQ(cat.Open(), 0);
    CDbFile file("FILE.DDF"), field("FIELD.DDF"), index("INDEX.DDF"), view("X$View.ddf");
    // The fixed flags hold whatever the dictionary says, segment numbers too.
    for (int ok = field.m_KeyList.First(); ok; ok = field.m_KeyList.Next())
        field.m_KeyList.SetFlags(0);
    std::strcpy(view.m_FileDat.FileName, "c:\\books\\2004/X$View.ddf");
    for (CDbFile* f : {&file, &field, &index, &view})
        cat.Write(*f, true);
    std::vector<std::string> columns = Records(sql, "FIELD.DDF");
    ASSERT_EQ(columns.size(), 22u);
    std::string flags;  // 1 for the columns named with "Name"
    for (const std::string& c : columns)
        flags += std::to_string(uint8_t(c[30]) | uint8_t(c[31]) << 8);
    EXPECT_EQ(flags, "0110000100000000001000");
    EXPECT_EQ(columns[19].substr(24, 1) + columns[19].substr(27, 2), U8(13) + U16(2000));
    EXPECT_EQ(columns[20].substr(24, 1) + columns[20].substr(27, 2), U8(12) + U16(2048));
    EXPECT_EQ(columns[21].substr(24, 1) + columns[21].substr(27, 2), U8(12) + U16(32765));
    EXPECT_EQ(Records(sql, "FILE.DDF"), Bytes<Table>({{1, "FILE", "FILE.DDF", 0x10},
                                                      {2, "FIELD", "FIELD.DDF", 0x10},
                                                      {3, "INDEX", "INDEX.DDF", 0x10},
                                                      {4, "X$View", "View.ddf", 0x10}}));
    EXPECT_EQ(Records(sql, "INDEX.DDF"), Bytes(kSystemSegments));
}

TEST_F(CatalogueTest, BadInputIsToldAndLeavesTheCatalogueConsistent) {
    // Names too long for the catalogue: both yearly files cut to the same
    // table name, and two columns that differ only in case.
    Entry("CustomerHistoryArchive.2003", dbFileHistory,
          {{"Id", 4, dbInteger},
           {"Name", 20, dbString},
           {"NAME", 20, dbString},
           {"Total", 8, dbFloat}},
          {{0, "Id", 0}, {1, "NAME", DUPS}});
    Entry("CustomerHistoryArchive.2004", dbFileHistory, {{"Id", 4, dbInteger}}, {{0, "Id", 0}});
    log.Take();
    {
        Catalogue cat(sql);
        ASSERT_EQ(cat.Open(), 0);
        cat.Write("CustomerHistoryArchive.2003");
        cat.Write("CustomerHistoryArchive.2004");
    }
    std::vector<std::string> shown = log.Take();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0],
              "2|File CustomerHistoryArchive.2003 has a duplicate field prompt (NAME).  The Data "
              "Dictionary for use with Crystal Reports will be incorrect.  Please change the "
              "field prompt and try again.");
    EXPECT_NE(shown[1].find("FILE.DDF\\nCode:\\t5\\n"), std::string::npos);
    // The refused column's id is skipped; its key segment still goes in.
    ExpectCatalogue(sql, {{1, "CustomerHistoryArchi", "CustomerHistoryArchive.2003", 0}},
                    {{1, 1, "Id", 1, 0, 4, 0, 0},
                     {2, 1, "Name", 0, 4, 20, 0, 0},
                     {4, 1, "Total", 2, 44, 8, 0, 0}},
                    {{1, 1, 0, 0, 0x100}, {1, 3, 1, 0, 0x101}});

    // A catalogue opened read-only refuses the table and gets nothing more.
    std::vector<std::string> before = Records(sql, "FIELD.DDF");
    {
        Catalogue cat(sql);
        ASSERT_EQ(cat.Open(dbOpenReadOnly), 0);
        cat.Write("Customer.dat");
    }
    EXPECT_NE(log.TakeOne().find("FILE.DDF\\nCode:\\t46\\n"), std::string::npos);
    EXPECT_EQ(Records(sql, "FILE.DDF").size(), 1u);
    EXPECT_EQ(Records(sql, "FIELD.DDF"), before);

    // The writers cannot be built in a folder that cannot be made (its parent
    // is a plain file), nor without a dictionary file or without the
    // catalogue's entries in it; nothing is written anywhere.
    auto build = [&](const std::string& folder) {
        int opened = -1;
        int thrown = dbtest::Thrown([&] { opened = Catalogue(folder).Open(); });
        return thrown == -1 ? opened : thrown;
    };
    std::ofstream(dir.File("plain")) << "not a folder";
    EXPECT_EQ(build(dir.File("plain/sql")), 0);
    EXPECT_EQ(log.Take(), std::vector<std::string>{"0|DbFile could not create the specified "
                                                   "directory."});
    cdd.reset();
    dbtest::ResetLibrary();
    dbtest::UseDictionary(dir.File("none.ddf"));
    EXPECT_EQ(build(dir.File("other")), 12);
    EXPECT_NE(log.TakeOne().find("none.ddf\\nCode:\\t12\\n"), std::string::npos);
    dbtest::UseDictionary(dir.File("bare.ddf"));
    ASSERT_EQ(CCdd(nullptr, g_CddFileName).Open(nullptr, dbOpenCreate, 1), 0);
    EXPECT_EQ(build(dir.File("other")), 0);
    EXPECT_EQ(log.Take(),
              std::vector<std::string>{"5|No entry exists in the Data Dictionary file for " +
                                       dir.File("other/FILE.DDF") + ". Cannot continue."});
    EXPECT_TRUE(Records(dir.File("other"), "FILE.DDF").empty());
    EXPECT_EQ(Records(sql, "FILE.DDF").size(), 1u);
}

}  // namespace
