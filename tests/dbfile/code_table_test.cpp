// Code tables from text and from the shared code file: parsing and rolling
// up, codes and descriptions both ways for the field types codes are kept
// in, case rules, unknown codes and descriptions, alternates, a table
// changed by another process, and code files that are missing or hold bad
// text.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dbtest.h"

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

Entries EntriesOf(CCodeTable& t) {
    Entries out;
    for (CCodeEntry* e = t.First(); e; e = t.Next())
        out.emplace_back(static_cast<const char*>(*e), e->Desc());
    return out;
}

std::string Bytes(const void* p, size_t n) {
    return std::string(static_cast<const char*>(p), n);
}

const char* kStatusText = "O=Open\r\nP=Paid\r\nV=Void";

class CodeTableTest : public dbtest::DictionaryFolder {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(DictionaryFolder::SetUp());
        ASSERT_EQ(CCodeFile::AddToDictionary(*cdd), 0);
        ASSERT_EQ(DescribeInvoice(*cdd), 0);
        codes = std::make_unique<CCodeFile>();
        ASSERT_EQ(codes->Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
        ASSERT_EQ(codes->WriteTable(7, "Invoice status", kStatusText), 0);
        ASSERT_EQ(codes->WriteTable(8, "Invoice kind", "1=Sale\r\n2=Credit note"), 0);
        log.Take();
    }
    void TearDown() override {
        // Whether mapped or not, each id ends unmapped: the first call maps
        // it to itself, the second removes it.
        for (unsigned long id : {5ul, 7ul}) {
            CCodeTable::SetAlternate(id, id);
            CCodeTable::SetAlternate(id, 0);
        }
        codes.reset();
        DictionaryFolder::TearDown();
    }

    // Invoices: a number, a one-letter status shown through table 7 and a
    // 2-byte kind shown through table 8.
    static int DescribeInvoice(CCdd& cdd) {
        return dbtest::AddEntry(cdd, "Invoice.dat", dbFileData,
                                {{"InvNo", 4, dbUnsigned},
                                 {"Status", 1, dbString, 0, 0, 7},
                                 {"Kind", 2, dbInteger, 0, 0, 8}},
                                {{0, "InvNo", 0}});
    }

    // The display text of an invoice's field holding `stored`.
    std::string Shown(const char* field, const void* stored, size_t n) {
        CDbFile invoice("Invoice.dat");
        invoice.SetDataLen(7);
        std::memset(invoice.RcdBuf(), 0, 7);
        std::memcpy(invoice.RcdBuf() + invoice.GetFieldOffset(field), stored, n);
        CString out;
        return invoice.FormatFileDataToDisplay(out, field);
    }

    std::unique_ptr<CCodeFile> codes;
};

// Table texts: line ends, trimming, lines without "=" or without one side,
// empty lines; every table rolls up into text that parses back to it, and
// copies hold the same entries.
TEST(CodeTableText, ParsesAndRollsUp) {
    struct Case {
        const char* text;
        Entries entries;
    } cases[] = {
        {"A=Active\r\nI=Inactive", {{"A", "Active"}, {"I", "Inactive"}}},
        {"A=Active\nI=Inactive\n", {{"A", "Active"}, {"I", "Inactive"}}},
        {"A=Active\rI=Inactive\r\n", {{"A", "Active"}, {"I", "Inactive"}}},
        {" B = Billed ", {{"B", "Billed"}}},
        {"=Unknown", {{" ", "Unknown"}}},
        {"no equals sign", {{" ", "no equals sign"}}},
        {"X=", {{"X", " "}}},
        {"A=1\r\n\r\n  \nB=x=y", {{"A", "1"}, {" ", " "}, {" ", " "}, {"B", "x=y"}}},
        {"\n", {{" ", " "}}},
        {"", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        CCodeTable t;
        t.LoadTable(dbString, 1, c.text);
        EXPECT_EQ(EntriesOf(t), c.entries);
        CString text;
        CCodeTable again;
        again.LoadTable(dbString, 1, t.RollUpCodes(text));
        EXPECT_EQ(EntriesOf(again), c.entries);
        CCodeTable copied(t), assigned;
        assigned.LoadTable(dbInteger, 2, "9=Gone");
        assigned = t;
        EXPECT_EQ(EntriesOf(copied), c.entries);
        EXPECT_EQ(EntriesOf(assigned), c.entries);
        EXPECT_EQ(assigned.FldType(), dbString);
        EXPECT_EQ(assigned.FldLen(), 1);
    }
    CCodeTable t;
    t.LoadTable(dbString, 1, "A=Active\nI=Inactive\n");
    CString text;
    EXPECT_STREQ(t.RollUpCodes(text), "A=Active\r\nI=Inactive");
}

// Codes kept as text, as integers of both widths and as NUL-terminated
// text: each description stores its code and the code shows it again.
// Descriptions match exactly, beginnings match in any case; what matches
// nothing stores zeros and shows asterisks as wide as the widest
// description.
TEST(CodeTableText, CodesAndDescriptionsBothWays) {
    struct Case {
        dbFieldType type;
        int length;
        const char* text;
        const char* desc;
        std::string stored;
    } cases[] = {
        {dbString, 1, "A=Active\r\nI=Inactive", "Inactive", "I"},
        {dbInteger, 2, "1=Open\r\n-2=Void\r\n30=Paid", "Void", std::string("\xFE\xFF", 2)},
        {dbUnsigned, 4, "7=Weekly\r\n70000=Yearly", "Yearly", std::string("\x70\x11\x01\0", 4)},
        {dbZString, 4, "NET=Net 30\r\nCOD=Cash on delivery", "Cash on delivery",
         std::string("COD\0", 4)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        CCodeTable t;
        t.LoadTable(c.type, c.length, c.text);
        for (CCodeEntry* e = t.First(); e; e = t.Next()) {
            std::string desc = e->Desc();
            std::vector<char> code(size_t(c.length), '\x55');
            CCodeTable probe(t);
            probe.TranslateToCode(desc.c_str(), code.data());
            CString back;
            EXPECT_EQ(probe.TranslateToDesc(code.data(), back), desc);
        }
        std::vector<char> code(size_t(c.length), '\x55');
        t.TranslateToCode(c.desc, code.data());
        EXPECT_EQ(Bytes(code.data(), code.size()), c.stored);
        // Unknown: zeros one way, asterisks the other (into a buffer just
        // wide enough).
        t.TranslateToCode("no such words", code.data());
        EXPECT_EQ(Bytes(code.data(), code.size()), std::string(size_t(c.length), '\0'));
        code.assign(size_t(c.length), '\x7F');
        auto out = std::make_unique<char[]>(size_t(t.LongestDesc()) + 1);
        EXPECT_EQ(std::string(t.TranslateToDesc(code.data(), out.get())),
                  std::string(size_t(t.LongestDesc()), '*'));
    }

    CCodeTable t;
    t.LoadTable(dbString, 1, "A=Active\r\nI=Inactive\r\nX=inactive too");
    EXPECT_EQ(t.Find("inactive"), 0);
    EXPECT_EQ(t.Find("Inactive"), 1);
    EXPECT_EQ(t.FindPartial("ina"), 1);
    EXPECT_STREQ(static_cast<const char*>(*t.Next()), "X");  // the cursor is on the first match
    EXPECT_EQ(t.FindPartial(""), 1);
    EXPECT_EQ(t.FindPartial("inactive too!"), 0);
    char code = 0;
    t.TranslatePartialToCode("INACTIVE T", &code);
    EXPECT_EQ(code, 'X');
    t.TranslatePartialToCode("Z", &code);
    EXPECT_EQ(code, 0);
    t.TranslateToCode("inactive", &code);
    EXPECT_EQ(code, 0);
    // A description longer than the field shows whole; a code longer than
    // the field is cut to it.
    std::string wide(70, 'w');
    t.LoadTable(dbString, 1, ("A=" + wide + "\r\nBC=Two letters").c_str());
    auto out = std::make_unique<char[]>(size_t(t.LongestDesc()) + 1);
    EXPECT_EQ(std::string(t.TranslateToDesc("A", out.get())), wide);
    auto one = std::make_unique<char[]>(1);
    t.TranslateToCode("Two letters", one.get());
    EXPECT_EQ(one[0], 'B');
    CString shown;
    EXPECT_STREQ(
        CDbFile::FormatFileDataToDisplay(shown, "A", 1, dbString, dbDispCodeTable, 0, &t, -1),
        wide.c_str());
    // An empty table shows an unknown code as the empty text.
    t.InitTable(dbString, 1);
    EXPECT_STREQ(t.TranslateToDesc("A", shown), "");
    EXPECT_EQ(t.LongestDesc(), 0);
}

// Tables from the code file: by id, by a field's table, in a field's
// display; alternates; rewritten and removed tables.
TEST_F(CodeTableTest, TablesFromTheCodeFile) {
    CCodeTable t;
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(EntriesOf(t), (Entries{{"O", "Open"}, {"P", "Paid"}, {"V", "Void"}}));
    CDbFile invoice("Invoice.dat");
    t.LoadTable(&invoice, invoice.GetFieldIdOfName("Kind"));
    EXPECT_EQ(t.FldType(), dbInteger);
    EXPECT_EQ(t.FldLen(), 2);
    EXPECT_EQ(EntriesOf(t), (Entries{{"1", "Sale"}, {"2", "Credit note"}}));
    EXPECT_EQ(Shown("Status", "P", 1), "Paid");
    int16_t kind = 2;
    EXPECT_EQ(Shown("Kind", &kind, 2), "Credit note");
    EXPECT_EQ(Shown("Status", "Q", 1), "****");
    // A table the file does not hold is empty, and nothing is shown.
    t.LoadTable(dbString, 1, 99);
    EXPECT_EQ(t.Count(), 0);

    // Alternates: set, replaced, removed; an id not yet mapped is mapped
    // even to table 0.
    ASSERT_EQ(codes->WriteTable(0, "Fallback", "Z=Zero"), 0);
    CCodeTable::SetAlternate(7, 8);
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(t.Count(), 2);
    EXPECT_EQ(Shown("Status", "1", 1), "Sale");
    CCodeTable::SetAlternate(7, 99);
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(t.Count(), 0);
    CCodeTable::SetAlternate(7, 0);
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(t.Count(), 3);
    CCodeTable::SetAlternate(5, 0);
    t.LoadTable(dbString, 1, 5);
    EXPECT_EQ(EntriesOf(t), (Entries{{"Z", "Zero"}}));

    // Rewritten from a table, then removed.
    CCodeTable edited;
    edited.LoadTable(dbString, 1, "O=Open\r\nC=Closed");
    ASSERT_EQ(codes->WriteTable(7, "Invoice status", edited), 0);
    ASSERT_EQ(codes->FindTable(7), 0);
    EXPECT_STREQ(codes->Codes, "O=Open\r\nC=Closed");
    EXPECT_STREQ(codes->Desc, "Invoice status");
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(EntriesOf(t), EntriesOf(edited));
    ASSERT_EQ(codes->DeleteTable(7), 0);
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(t.Count(), 0);
    EXPECT_EQ(codes->DeleteTable(7), 9);
    EXPECT_TRUE(log.Take().empty());
}

// A loaded table does not follow the file; a new load sees what another
// process wrote.
TEST_F(CodeTableTest, TableChangedByAnotherProcess) {
    CCodeTable t;
    t.LoadTable(dbString, 1, 7);
    ASSERT_EQ(dbtest::InAnotherProcess([] {
                  CCodeFile f;
                  if (int st = f.Open(nullptr)) return st;
                  return f.WriteTable(7, "Invoice status", "P=Paid in full\r\nO=Open");
              }),
              0);
    EXPECT_EQ(EntriesOf(t), (Entries{{"O", "Open"}, {"P", "Paid"}, {"V", "Void"}}));
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(EntriesOf(t), (Entries{{"P", "Paid in full"}, {"O", "Open"}}));
    EXPECT_EQ(Shown("Status", "P", 1), "Paid in full");
}

// A code file that is missing, lacks a dictionary entry, holds malformed or
// unterminated text, or is offered a table too long for it.
TEST_F(CodeTableTest, BadCodeFiles) {
    // Lines that are not code=description still load, each as an entry.
    ASSERT_EQ(codes->WriteTable(3, "Bad", "no equals here\r\n\r\n==\r\n  =  \r\n\xE9=\xC9t\xE9"),
              0);
    CCodeTable t;
    t.LoadTable(dbString, 1, 3);
    EXPECT_EQ(
        EntriesOf(t),
        (Entries{
            {" ", "no equals here"}, {" ", " "}, {" ", "="}, {" ", " "}, {"\xE9", "\xC9t\xE9"}}));
    // A table too long for the record is refused and the old one kept; one
    // that just fits is taken whole.
    std::string longest = "L=" + std::string(CCodeFile::kMaxCodesText - 2, 'l');
    EXPECT_EQ(codes->WriteTable(3, "Long", (longest + "l").c_str()), 97);
    EXPECT_EQ(dbtest::Statuses(log.Take()), std::vector<int>{97});
    t.LoadTable(dbString, 1, 3);
    EXPECT_EQ(t.Count(), 5);
    ASSERT_EQ(codes->WriteTable(3, "Long", longest.c_str()), 0);
    t.LoadTable(dbString, 1, 3);
    EXPECT_EQ(t.LongestDesc(), CCodeFile::kMaxCodesText - 2);
    // Text without its terminator ends with the record.
    {
        CDbFile raw(CCodeFile::kFileName, CDbFile::GetSysDataPath());
        ASSERT_EQ(raw.Open(nullptr), 0);
        raw.SetBrowser(1);
        int32_t id = 4;
        raw.SetDataLen(raw.GetRcdLength());
        std::memset(raw.RcdBuf(), 'u', raw.GetRcdLength());
        std::memcpy(raw.RcdBuf(), &id, 4);
        ASSERT_EQ(raw.Insert(nullptr), 0);
    }
    t.LoadTable(dbString, 1, 4);
    ASSERT_EQ(t.Count(), 1);
    EXPECT_EQ(t.LongestDesc(), CCodeFile::kMaxCodesText + 1);
    EXPECT_TRUE(log.Take().empty());

    // The code file missing: its open says so, the table is empty and the
    // field shows no words.
    CDbFile::SetSysDataPath(dir.File("elsewhere").c_str());
    t.LoadTable(dbString, 1, 7);
    EXPECT_EQ(t.Count(), 0);
    EXPECT_EQ(Shown("Status", "P", 1), "");
    EXPECT_EQ(dbtest::Statuses(log.Take()), (std::vector<int>{12, 12}));

    // No dictionary entry for the code file: the load throws as a record
    // file's constructor does; a field's display shows no words.
    codes.reset();
    cdd.reset();
    dbtest::ResetLibrary();
    dbtest::UseDictionary(dir.File("bare.ddf"));
    CDbFile::SetSysDataPath(dir.path().c_str());
    CDbFile::SetDataPath(dir.path().c_str());
    {
        CCdd cdd(nullptr, g_CddFileName);
        ASSERT_EQ(cdd.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate), 1), 0);
        ASSERT_EQ(DescribeInvoice(cdd), 0);
    }
    EXPECT_THROW(t.LoadTable(dbString, 1, 7), int);
    EXPECT_EQ(Shown("Status", "P", 1), "");
    auto shown = log.Take();
    ASSERT_EQ(shown.size(), 2u);
    for (const std::string& m : shown)
        EXPECT_NE(m.find("No entry exists in the Data Dictionary file for"), std::string::npos);
}

}  // namespace
