// dbutil run as a separate process on files the tests make: export in every
// format, export then import, create, stat, dict, check on healthy and
// damaged files, and bad input of every kind.
#include <gtest/gtest.h>
#include <lmdb.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "dbtest.h"
#include "tool_files.h"

namespace {

using tooltest::Dbutil;
using tooltest::Result;

std::string Show(const Result& r) {
    return "exit " + std::to_string(r.code) + "\nstdout:\n" + r.out + "\nstderr:\n" + r.err;
}

// A failure: a non-zero exit of its own (no signal, no sanitizer report)
// and one line on standard error that says `what`.
void ExpectFailure(const Result& r, const std::string& what) {
    EXPECT_GT(r.code, 0) << Show(r);
    EXPECT_LT(r.code, 128) << Show(r);
    EXPECT_EQ(r.err.find("Sanitizer"), std::string::npos) << Show(r);
    EXPECT_EQ(r.err.find("runtime error"), std::string::npos) << Show(r);
    EXPECT_NE(r.err.find(what), std::string::npos) << Show(r);
    EXPECT_EQ(r.err.rfind("dbutil: ", 0), 0u) << Show(r);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << Show(r);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        out.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

class DbutilTest : public ::testing::Test {
  protected:
    void SetUp() override { folder.Use(); }
    void TearDown() override { dbtest::ResetLibrary(); }
    std::string Write(const std::string& name, const std::string& text) {
        std::string path = folder.dir.File(name);
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    tooltest::Folder folder;
    dbtest::MessageLog log;
};

// Plain text of every field type, as comma-separated text and as JSON; the
// table shows the user's text (grouped numbers, money, Yes/No).
TEST_F(DbutilTest, EveryFormatOnEveryFieldType) {
    // Money's plain text is the library's, whatever digits its double gives.
    unsigned char packed[8];
    Currency(-1234567.89).CopyBCD(packed, 8, 2);
    CString money;
    CDbFile::FormatFileDataToString(money, reinterpret_cast<char*>(packed), 8, dbMoney, 2);
    Result csv = Dbutil(folder, {"export", "Every.dat", "--csv"});
    ASSERT_EQ(csv.code, 0) << Show(csv);
    std::vector<std::string> expected = {
        "Id,Name,Code,Small,Big,Count,Ratio,Weight,Dec,Day,At,Amount,Flag,Phone,Fixed,UText",
        "1,\"Smith, \"Jo\"\",b-2,-32768,-2147483648,4294967295,-0.1,1.5,2.25,02/29/2024,"
        "23:59:58.07," +
            money.str() + ",1,5551234,ab,65535",
        "2,\" lead\",a-1,32767,2147483647,0,1e+300,-3.25,-0.5,01/01/1950,00:00:01,0.01,0,,"
        "\"xyz   \",1",
        "3,caf\xe9,,0,0,17,0,0,0,,,0,0,1,,0"};
    EXPECT_EQ(Lines(csv.out), expected);

    Result json = Dbutil(folder, {"export", "Every.dat", "--json", "--key", "1"});
    ASSERT_EQ(json.code, 0) << Show(json);
    // Key 1 orders by Code: "", "a-1", "b-2".
    std::vector<std::string> objects = {
        "[",
        "{\"Id\":3,\"Name\":\"caf\xc3\xa9\",\"Code\":\"\",\"Small\":0,\"Big\":0,\"Count\":17,"
        "\"Ratio\":0,\"Weight\":0,\"Dec\":0,\"Day\":\"\",\"At\":\"\",\"Amount\":0,\"Flag\":false,"
        "\"Phone\":\"1\",\"Fixed\":\"\",\"UText\":0},",
        "{\"Id\":2,\"Name\":\" lead\",\"Code\":\"a-1\",\"Small\":32767,\"Big\":2147483647,"
        "\"Count\":0,\"Ratio\":1e+300,\"Weight\":-3.25,\"Dec\":-0.5,\"Day\":\"01/01/1950\","
        "\"At\":\"00:00:01\",\"Amount\":0.01,\"Flag\":false,\"Phone\":\"\",\"Fixed\":\"xyz   \","
        "\"UText\":1},",
        "{\"Id\":1,\"Name\":\"Smith, \\\"Jo\\\"\",\"Code\":\"b-2\",\"Small\":-32768,"
        "\"Big\":-2147483648,\"Count\":4294967295,\"Ratio\":-0.1,\"Weight\":1.5,\"Dec\":2.25,"
        "\"Day\":\"02/29/2024\",\"At\":\"23:59:58.07\",\"Amount\":" +
            money.str() +
            ",\"Flag\":true,"
            "\"Phone\":\"5551234\",\"Fixed\":\"ab\",\"UText\":65535}",
        "]"};
    EXPECT_EQ(Lines(json.out), objects);

    Result table = Dbutil(folder, {"export", "Every.dat", "--table"});
    ASSERT_EQ(table.code, 0) << Show(table);
    std::vector<std::string> rows = Lines(table.out);
    ASSERT_EQ(rows.size(), 5u) << table.out;
    EXPECT_EQ(rows[0].rfind("Id  Name", 0), 0u) << rows[0];
    for (const char* shown : {"-2,147,483,648", "4,294,967,295", "-$1,234,567.89", "Yes",
                              "02/29/2024", "23:59:58.07", "-0.10", "1.5000"})
        EXPECT_NE(rows[2].find(shown), std::string::npos) << shown << " in " << rows[2];
    for (const char* shown : {"2,147,483,647", "$0.01", "No", "caf\xc3\xa9"})
        EXPECT_NE(table.out.find(shown), std::string::npos) << shown;
}

// Export then import into an empty file of the same description gives the
// same records, byte for byte; through small transactions too.
TEST_F(DbutilTest, ExportThenImportGivesTheSameRecords) {
    tooltest::FillSales(folder.dir.path(), tooltest::SaleRows(300, 7));
    for (const char* file : {"Every.dat", "Sale.dat"}) {
        SCOPED_TRACE(file);
        std::string csv = folder.dir.File(std::string(file) + ".csv");
        Result out = Dbutil(folder, {"export", file, "--csv", "-o", csv});
        ASSERT_EQ(out.code, 0) << Show(out);
        std::string copy = folder.dir.File("copy");
        mkdir(copy.c_str(), 0755);
        Result made = Dbutil(folder, {"create", copy + "/" + file});
        ASSERT_EQ(made.code, 0) << Show(made);
        Result in = Dbutil(folder, {"import", copy + "/" + file, csv, "--batch", "7"});
        ASSERT_EQ(in.code, 0) << Show(in);
        EXPECT_EQ(tooltest::Records(copy + "/" + file, 0),
                  tooltest::Records(folder.dir.File(file), 0));
        EXPECT_FALSE(tooltest::Records(copy + "/" + file, 0).empty());
    }
}

// A filtered export gives exactly the rows of the unfiltered one that pass
// the filter, as the test applies it and as the library's own list gives
// them, in every format, across several of the engine's lists.
TEST_F(DbutilTest, WhereKeepsThePassingRecords) {
    std::vector<tooltest::SaleRow> rows = tooltest::SaleRows(3000, 11);
    tooltest::FillSales(folder.dir.path(), rows);
    std::set<int32_t> passing;
    for (const tooltest::SaleRow& r : rows) {
        std::string customer = r.customer;
        for (char& c : customer)
            c = char(std::tolower(static_cast<unsigned char>(c)));
        if ((r.qty > 50 && customer == "acme") || r.price <= 0) passing.insert(r.id);
    }
    ASSERT_GT(passing.size(), 100u);
    ASSERT_LT(passing.size(), rows.size() / 2);
    const char* where = "Qty>50 AND Customer=acme or Price<=0";

    // The library's own filtered list agrees with the test's filter.
    std::vector<int32_t> listed;
    {
        CDbFile sales("Sale.dat");
        ASSERT_EQ(sales.Open(nullptr, dbOpenReadOnly), 0);
        ASSERT_EQ(sales.SetSQLFilter(where), 0u);
        sales.ResetFields(0);
        sales.SelectField(uint16_t(sales.GetFieldIdOfName("Id")));
        sales.SetFilterOptions(50, 0, 65535);
        for (unsigned short n = sales.GetFirstList(nullptr);; n = sales.GetNextList(nullptr)) {
            int st = sales.GetLastError();
            for (unsigned short i = 1; i <= n; ++i) {
                int32_t id;
                std::memcpy(&id, sales.GetRecFromList(i, nullptr, nullptr), 4);
                listed.push_back(id);
            }
            if (st != 0 || n == 0) break;
        }
    }
    EXPECT_EQ(listed, std::vector<int32_t>(passing.begin(), passing.end()));

    Result all = Dbutil(folder, {"export", "Sale.dat", "--csv"});
    ASSERT_EQ(all.code, 0) << Show(all);
    std::vector<std::string> lines = Lines(all.out);
    std::vector<std::string> expected = {lines[0]};
    for (size_t i = 1; i < lines.size(); ++i)
        if (passing.count(std::stoi(lines[i]))) expected.push_back(lines[i]);
    Result csv = Dbutil(folder, {"export", "Sale.dat", "--csv", "--where", where});
    ASSERT_EQ(csv.code, 0) << Show(csv);
    EXPECT_EQ(Lines(csv.out), expected);

    // The table reads each passing record again: the same ids, in key order.
    Result table = Dbutil(folder, {"export", "Sale.dat", "--table", "--where", where});
    ASSERT_EQ(table.code, 0) << Show(table);
    std::vector<std::string> shown = Lines(table.out);
    ASSERT_EQ(shown.size(), passing.size() + 2) << table.out;  // header and rule
    auto id = passing.begin();
    for (size_t i = 2; i < shown.size(); ++i, ++id) {
        std::string first = shown[i].substr(shown[i].find_first_not_of(' '));
        first = first.substr(0, first.find(' '));
        first.erase(std::remove(first.begin(), first.end(), ','), first.end());
        EXPECT_EQ(std::stoi(first), *id) << shown[i];
    }

    Result none = Dbutil(folder, {"export", "Sale.dat", "--json", "--where", "Qty>1000"});
    ASSERT_EQ(none.code, 0) << Show(none);
    EXPECT_EQ(Lines(none.out), std::vector<std::string>{"[]"});
}

TEST_F(DbutilTest, ImportSkipsBadLinesOrStopsBeforeWriting) {
    std::string csv = Write("bad.csv",
                            "Id,Small,Name,Day\n"
                            "10,5,ok,01/02/2024\n"
                            "11,5,too,many,fields\n"
                            "12,five,text in a number,01/02/2024\n"
                            "13,70000,too big,01/02/2024\n"
                            "14,1,a name far too long for twelve,01/02/2024\n"
                            "15,1,bad date,13/45/2024\n"
                            "16,1,short\n"
                            "17,-7,\"also, ok\",12/31/1999\n");
    std::string before = folder.dir.File("Every.dat");
    size_t count = tooltest::Records(before, 0).size();

    Result stop = Dbutil(folder, {"import", "Every.dat", csv, "--stop-on-error"});
    ExpectFailure(stop, "line 3: 5 fields where the header names 4; nothing imported");
    EXPECT_EQ(tooltest::Records(before, 0).size(), count);

    Result skip = Dbutil(folder, {"import", "Every.dat", csv});
    EXPECT_EQ(skip.code, 1) << Show(skip);
    for (const char* reported :
         {"line 3: 5 fields where the header names 4", "line 4: field Small: \"five\" is not",
          "line 5: field Small: \"70000\" does not fit", "line 6: field Name",
          "line 7: field Day: \"13/45/2024\" is not a date", "line 8: 3 fields", "6 lines of"})
        EXPECT_NE(skip.err.find(reported), std::string::npos) << reported << "\n" << skip.err;
    std::vector<std::string> now = tooltest::Records(before, 0);
    ASSERT_EQ(now.size(), count + 2);
    EXPECT_NE(now.back().find("also, ok"), std::string::npos);
}

TEST_F(DbutilTest, CreateStatAndDict) {
    std::string other = folder.dir.File("other");
    mkdir(other.c_str(), 0755);
    Result made = Dbutil(folder, {"create", other + "/Sale.dat"});
    ASSERT_EQ(made.code, 0) << Show(made);
    ExpectFailure(Dbutil(folder, {"create", other + "/Sale.dat"}), "exists; --replace");
    EXPECT_EQ(Dbutil(folder, {"create", other + "/Sale.dat", "--replace"}).code, 0);

    Result stat = Dbutil(folder, {"stat", "Every.dat"});
    ASSERT_EQ(stat.code, 0) << Show(stat);
    for (const char* said :
         {"records:         3\n", "record length:   99 bytes, fixed", "owner name:      none",
          "keys:            2", "key 0: unique, binary, 3 distinct values",
          "segment at 1, 4 bytes, autoincrement, field Id", "key 1: duplicates, modifiable",
          "segment at 17, 10 bytes, zstring, field Code"})
        EXPECT_NE(stat.out.find(said), std::string::npos) << said << "\n" << stat.out;

    Result list = Dbutil(folder, {"dict"});
    ASSERT_EQ(list.code, 0) << Show(list);
    EXPECT_EQ(Lines(list.out).size(), 3u) << list.out;
    EXPECT_NE(list.out.find("Every.dat"), std::string::npos);
    Result one = Dbutil(folder, {"dict", "sale.dat"});
    ASSERT_EQ(one.code, 0) << Show(one);
    for (const char* said : {"Customer", "key 4 ByQtyPrice: duplicates", "case-insensitive"})
        EXPECT_NE(one.out.find(said), std::string::npos) << said << "\n" << one.out;
}

// A record removed behind the indexes' back makes the check fail; a file
// that is no record file cannot be checked.
TEST_F(DbutilTest, CheckHealthyAndDamagedFiles) {
    std::string path = folder.dir.File("Every.dat");
    Result healthy = Dbutil(folder, {"check", "Every.dat"});
    EXPECT_EQ(healthy.code, 0) << Show(healthy);
    EXPECT_NE(healthy.out.find("consistent"), std::string::npos);

    MDB_env* env;
    MDB_txn* txn;
    MDB_dbi rec;
    ASSERT_EQ(mdb_env_create(&env), 0);
    ASSERT_EQ(mdb_env_set_maxdbs(env, 64), 0);
    ASSERT_EQ(mdb_env_open(env, path.c_str(), MDB_NOSUBDIR, 0644), 0);
    ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
    ASSERT_EQ(mdb_dbi_open(txn, "rec", MDB_INTEGERKEY, &rec), 0);
    MDB_cursor* c;
    MDB_val k, v;
    ASSERT_EQ(mdb_cursor_open(txn, rec, &c), 0);
    ASSERT_EQ(mdb_cursor_get(c, &k, &v, MDB_FIRST), 0);
    ASSERT_EQ(mdb_cursor_del(c, 0), 0);
    mdb_cursor_close(c);
    ASSERT_EQ(mdb_txn_commit(txn), 0);
    mdb_env_close(env);

    Result damaged = Dbutil(folder, {"check", path});
    EXPECT_EQ(damaged.code, 1) << Show(damaged);
    EXPECT_NE(damaged.out.find("record count 3 but 2 records stored"), std::string::npos)
        << damaged.out;
    EXPECT_NE(damaged.err.find("problems found"), std::string::npos) << damaged.err;

    ExpectFailure(Dbutil(folder, {"check", Write("junk.dat", std::string(5000, 'x'))}),
                  "cannot be checked: status 30");
}

// Pack rebuilds the file with every record and every key order it had,
// after records were deleted here and there.
TEST_F(DbutilTest, PackKeepsEveryRecord) {
    tooltest::FillSales(folder.dir.path(), tooltest::SaleRows(500, 3));
    std::string path = folder.dir.File("Sale.dat");
    {
        CDbFile sales("Sale.dat");
        ASSERT_EQ(sales.Open(nullptr, dbOpenNormal), 0);
        int n = 0;
        for (int st = sales.StepFirst(nullptr); st == 0; st = sales.StepNext(nullptr))
            if (++n % 3 == 0) {
                ASSERT_EQ(sales.Delete(nullptr), 0);
            }
    }
    std::vector<std::vector<std::string>> before;
    for (int key = 0; key <= 4; ++key)
        before.push_back(tooltest::Records(path, key));
    ASSERT_EQ(before[0].size(), 500u - 500 / 3);

    Result pack = Dbutil(folder, {"pack", "Sale.dat"});
    ASSERT_EQ(pack.code, 0) << Show(pack);
    EXPECT_NE(pack.out.find("packed, " + std::to_string(before[0].size()) + " records"),
              std::string::npos)
        << pack.out;
    for (int key = 0; key <= 4; ++key)
        EXPECT_EQ(tooltest::Records(path, key), before[size_t(key)]) << "key " << key;
    EXPECT_EQ(Dbutil(folder, {"check", "Sale.dat"}).code, 0);
    ExpectFailure(Dbutil(folder, {"pack", folder.dir.File("gone") + "/Sale.dat"}), "gone");
}

// Bad input of every kind: a clear line, a non-zero exit, never a crash.
TEST_F(DbutilTest, BadInputFailsInOneLine) {
    std::string junk = Write("junk.ddf", std::string(9000, '\x5a'));
    std::string csv = Write("ok.csv", "Id,Name\n1,x\n");
    std::string noHeader = Write("empty.csv", "");
    std::string unknown = Write("unknown.csv", "Id,Colour\n1,red\n");
    struct Case {
        std::vector<std::string> args;
        std::string said;
        bool global = true;
    } cases[] = {
        {{"frobnicate"}, "frobnicate"},
        {{"export", "Every.dat", "--colour"}, "--colour"},
        {{"export", "Every.dat", "--csv", "--json"}, "excludes"},
        {{"export"}, "FILE is required"},
        {{"export", "Missing.dat"}, "has no entry for Missing.dat"},
        {{"export", "Every.dat", "--key", "7"}, "has no key 7"},
        {{"export", "Every.dat", "--key", "seven"}, "seven"},
        {{"export", "Every.dat", "--where", "Colour=red"}, "--where: term 1 names no field"},
        {{"export", "Every.dat", "--where", "Id>1 and Small"}, "term 2 has no operator"},
        {{"export", "Every.dat", "--where", "Id>1 but Small=2"}, "term 1 is followed by"},
        {{"import", "Every.dat", folder.dir.File("nothere.csv")}, "nothere.csv is not a file"},
        {{"import", "Every.dat", noHeader}, "empty.csv is empty"},
        {{"import", "Every.dat", unknown}, "no field is named \"Colour\""},
        {{"import", "Every.dat", csv, "--batch", "0"}, "--batch must be at least 1"},
        {{"stat", folder.dir.File("nothere.dat")}, "status 12"},
        {{"check", folder.dir.File("nothere.dat")}, "nothere.dat not found"},
        {{"dict", "Nobody.dat"}, "has no entry for Nobody.dat"},
        {{"sql", "SELEKT 1"}, "SQL: near \"SELEKT\""},
        {{"sql", "SELECT * FROM Nowhere"}, "no such table: Nowhere"},
        {{"sql", "DELETE FROM Every"}, "may not be modified"},
        {{"sql", "ATTACH '" + folder.dir.File("x.db") + "' AS x"}, "not authorized"},
        {{"--data", "/no/such/folder", "dict"},
         "data folder /no/such/folder is not a folder",
         false},
        {{"--dictionary", folder.dir.File("none.ddf"), "--data", folder.dir.path(), "export",
          "Every.dat"},
         "none.ddf not found",
         false},
        {{"--dictionary", junk, "--data", folder.dir.path(), "export", "Every.dat"},
         "cannot open the dictionary",
         false},
        {{"--dictionary", junk, "--data", folder.dir.path(), "dict"}, "status 30", false},
        {{"--dictionary", junk, "--data", folder.dir.path(), "sql", "SELECT 1"},
         "status 30",
         false},
        {{"--profile", folder.dir.File("none.ini"), "dict"}, "none.ini is not a file", false},
    };
    for (const Case& c : cases) {
        std::string shown;
        for (const std::string& a : c.args)
            shown += a + " ";
        SCOPED_TRACE(shown);
        ExpectFailure(c.global ? Dbutil(folder, c.args) : tooltest::DbutilBare(folder, c.args),
                      c.said);
    }
}

// A dictionary entry whose stored field sizes lie: the record's fields are
// cut short or run past the record. Every command still answers in words.
TEST_F(DbutilTest, DamagedDictionaryEntry) {
    {
        CCdd cdd(nullptr, folder.dictionary.c_str());
        ASSERT_EQ(cdd.Open(nullptr, dbOpenNormal, 0), 0);
        cdd.SetKey("Every.dat", 9, 1);
        ASSERT_EQ(cdd.GetEqual(nullptr, 0, 1), 0);
        // The second field's size word and offset: far past any record.
        uint16_t firstSize;
        std::memcpy(&firstSize, cdd.RcdBuf() + 175, 2);
        char* second = cdd.RcdBuf() + 175 + firstSize;
        uint16_t offset = 65000;
        std::memcpy(second + 4, &offset, 2);
        cdd.SetBrowser(1);
        ASSERT_EQ(cdd.Update(nullptr), 0);
    }
    ExpectFailure(Dbutil(folder, {"export", "Every.dat"}), "is damaged: field Name");
    ExpectFailure(Dbutil(folder, {"import", "Every.dat", Write("x.csv", "Id\n1\n")}), "is damaged");
    Result sql = Dbutil(folder, {"sql", "SELECT Name FROM Every"});
    EXPECT_EQ(sql.code, 0) << Show(sql);  // a field the record cannot hold reads as NULL
    Result dict = Dbutil(folder, {"dict", "Every.dat"});
    EXPECT_EQ(dict.code, 0) << Show(dict);
}

}  // namespace
