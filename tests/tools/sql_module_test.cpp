// The record tables module in a connection of the test's own: answers equal
// the same questions asked of the records read through CDbFile, and
// constraints on a key's first segment are served by key searches.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "dbtest.h"
#include "sqlite/record_tables.h"
#include "tool_files.h"

namespace {

// A sale as read by hand from the record's bytes.
struct Sale {
    int32_t id;
    std::string city;  // without the padding blanks, as stored (Windows-1252)
    std::string customer;
    std::string day;  // ISO, empty for a blank date
    int16_t qty;
    double price;
    bool paid;
};

std::vector<Sale> ReadByHand(const std::string& folder) {
    CDbFile f("Sale.dat", folder.c_str());
    EXPECT_EQ(f.Open(nullptr, dbOpenReadOnly), 0);
    std::vector<Sale> out;
    for (int st = f.StepFirst(nullptr); st == 0; st = f.StepNext(nullptr)) {
        const char* r = f.RcdBuf();
        Sale s;
        std::memcpy(&s.id, r, 4);
        s.city.assign(r + 4, 10);
        s.city.erase(s.city.find_last_not_of(' ') + 1);
        s.customer.assign(r + 14, strnlen(r + 14, 12));
        Date d;
        uint32_t v;
        std::memcpy(&v, r + 26, 4);
        d = v;
        char iso[16] = "";
        if (!d.IsBlank())
            std::snprintf(iso, sizeof(iso), "%04d-%02d-%02d", d.Year(), d.Month(), d.Day());
        s.day = iso;
        std::memcpy(&s.qty, r + 30, 2);
        std::memcpy(&s.price, r + 32, 8);
        s.paid = r[40] != 0;
        out.push_back(s);
    }
    return out;
}

class SqlModuleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        folder.Use();
        tooltest::FillSales(folder.dir.path(), tooltest::SaleRows(kSales, 11));
        sales = ReadByHand(folder.dir.path());
        ASSERT_EQ(sales.size(), size_t(kSales));
        ASSERT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
        std::string error;
        std::vector<std::string> skipped;
        ASSERT_EQ(dbsql::AttachDictionary(db, error, &skipped), SQLITE_OK) << error;
        EXPECT_TRUE(skipped.empty());
    }
    void TearDown() override {
        sqlite3_close(db);
        dbtest::ResetLibrary();
    }

    std::vector<std::string> Query(const std::string& sql) {
        sqlite3_stmt* st = nullptr;
        std::vector<std::string> rows;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) {
            ADD_FAILURE() << sql << ": " << sqlite3_errmsg(db);
            return rows;
        }
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            std::string row;
            for (int i = 0; i < sqlite3_column_count(st); ++i) {
                const unsigned char* t = sqlite3_column_text(st, i);
                row += (i ? "|" : "") + std::string(t ? reinterpret_cast<const char*>(t) : "NULL");
            }
            rows.push_back(row);
        }
        EXPECT_EQ(rc, SQLITE_DONE) << sql << ": " << sqlite3_errmsg(db);
        sqlite3_finalize(st);
        return rows;
    }

    static constexpr int kSales = 3000;
    tooltest::Folder folder;
    dbtest::MessageLog log;
    std::vector<Sale> sales;
    sqlite3* db = nullptr;
};

// Each condition asked of SQL and of the records read by hand; where keys
// serve it, the module searched them and read fewer records than the file
// holds.
TEST_F(SqlModuleTest, AnswersEqualTheRecordsReadByHand) {
    struct Case {
        const char* where;
        std::function<bool(const Sale&)> pass;
        int searches;  // key searches that serve it
    } cases[] = {
        {"Id = 15", [](const Sale& s) { return s.id == 15; }, 1},
        {"Id > 100 AND Id <= 400", [](const Sale& s) { return s.id > 100 && s.id <= 400; }, 1},
        {"Id >= -50.5", [](const Sale& s) { return s.id >= -50.5; }, 1},
        {"Id > -2990.5 AND Id < -2970",
         [](const Sale& s) { return s.id > -2990.5 && s.id < -2970; }, 1},
        {"Id > 99999999999", [](const Sale&) { return false; }, 0},
        {"Id < -99999999999", [](const Sale&) { return false; }, 0},
        {"Id = 'abc'", [](const Sale&) { return false; }, 0},
        {"City = 'Paris'", [](const Sale& s) { return s.city == "Paris"; }, 1},
        {"City >= 'O' AND City < 'R'", [](const Sale& s) { return s.city >= "O" && s.city < "R"; },
         1},
        {"City > 'Rome'", [](const Sale& s) { return s.city > "Rome"; }, 1},
        {"City <= 'Ab'", [](const Sale& s) { return s.city <= "Ab"; }, 0},
        {"City = 'Z\xc3\xbcrich'", [](const Sale& s) { return s.city == "Z\xfcrich"; }, 0},
        {"Customer = 'acme'", [](const Sale& s) { return s.customer == "acme"; }, 0},
        {"Day = '2024-02-10'", [](const Sale& s) { return s.day == "2024-02-10"; }, 1},
        {"Day BETWEEN '2024-01-05' AND '2024-01-20'",
         [](const Sale& s) {
             return !s.day.empty() && s.day >= "2024-01-05" && s.day <= "2024-01-20";
         },
         1},
        {"Day < '2024-01-03'", [](const Sale& s) { return !s.day.empty() && s.day < "2024-01-03"; },
         0},
        {"Day >= '2024-03'", [](const Sale& s) { return !s.day.empty() && s.day >= "2024-03"; }, 0},
        {"Day = '2024-02-30'", [](const Sale&) { return false; }, 0},
        {"Qty = -5", [](const Sale& s) { return s.qty == -5; }, 1},
        {"Qty = 0", [](const Sale& s) { return s.qty == 0; }, 1},
        {"Qty BETWEEN -3 AND 3", [](const Sale& s) { return s.qty >= -3 && s.qty <= 3; }, 1},
        {"Qty > 90 AND Price < 0", [](const Sale& s) { return s.qty > 90 && s.price < 0; }, 1},
        {"Qty >= 40000", [](const Sale&) { return false; }, 0},
        {"Paid = 1 AND Price > 1000", [](const Sale& s) { return s.paid && s.price > 1000; }, 0},
        {"Id = 15 OR City = 'Lyon'", [](const Sale& s) { return s.id == 15 || s.city == "Lyon"; },
         2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.where);
        std::vector<std::string> expected;
        std::vector<int32_t> ids;
        for (const Sale& s : sales)
            if (c.pass(s)) ids.push_back(s.id);
        std::sort(ids.begin(), ids.end());
        for (int32_t id : ids)
            expected.push_back(std::to_string(id));
        dbsql::ModuleCounters() = {};
        EXPECT_EQ(Query(std::string("SELECT Id FROM Sale WHERE ") + c.where + " ORDER BY Id"),
                  expected);
        const dbsql::RecordModuleCounters& n = dbsql::ModuleCounters();
        EXPECT_EQ(n.keySearches, uint64_t(c.searches));
        if (c.searches) {
            EXPECT_EQ(n.fullScans, 0u);
            EXPECT_LT(n.recordsRead, uint64_t(kSales) * 3 / 4);
        }
    }
}

TEST_F(SqlModuleTest, QueryPlansNameTheKey) {
    auto plan = [&](const std::string& sql) {
        std::string all;
        for (const std::string& row : Query("EXPLAIN QUERY PLAN " + sql))
            all += row + "\n";
        return all;
    };
    EXPECT_NE(plan("SELECT * FROM Sale WHERE Id = 7").find("key 0 Id=?"), std::string::npos);
    EXPECT_NE(plan("SELECT * FROM Sale WHERE Qty > 3 AND Qty <= 9").find("key 4 Qty>? AND Qty<=?"),
              std::string::npos);
    EXPECT_EQ(plan("SELECT * FROM Sale WHERE Customer = 'acme'").find("key"), std::string::npos);
    // Numbers in key order need no sorting.
    EXPECT_EQ(plan("SELECT * FROM Sale ORDER BY Id").find("ORDER BY"), std::string::npos);
    EXPECT_NE(plan("SELECT * FROM Sale ORDER BY City").find("ORDER BY"), std::string::npos);
}

TEST_F(SqlModuleTest, OrdersJoinsAndTypedColumns) {
    std::vector<int16_t> qtys;
    for (const Sale& s : sales)
        if (s.qty > 80) qtys.push_back(s.qty);
    std::sort(qtys.begin(), qtys.end());
    std::vector<std::string> expected;
    for (int16_t q : qtys)
        expected.push_back(std::to_string(q));
    EXPECT_EQ(Query("SELECT Qty FROM Sale WHERE Qty > 80 ORDER BY Qty"), expected);

    // Two cursors on one table at once, the inner one searching its key.
    EXPECT_EQ(Query("SELECT count(*) FROM Sale a JOIN Sale b ON a.Id = b.Id"),
              std::vector<std::string>{std::to_string(kSales)});
    EXPECT_EQ(Query("SELECT typeof(Id), typeof(City), typeof(Day), typeof(Price), typeof(Paid) "
                    "FROM Sale WHERE Id = " +
                    std::to_string(sales[0].id)),
              std::vector<std::string>{"integer|text|" +
                                       std::string(sales[0].day.empty() ? "null" : "text") +
                                       "|real|integer"});
    // Every field type of the other file, as SQL sees it.
    EXPECT_EQ(Query("SELECT Id, Name, Code, Small, Big, Count, Ratio, Weight, Dec, Day, At, "
                    "Amount, Flag, Phone, Fixed, UText FROM Every ORDER BY Id"),
              (std::vector<std::string>{
                  "1|Smith, \"Jo\"|b-2|-32768|-2147483648|4294967295|-0.1|1.5|2.25|2024-02-29|"
                  "23:59:58.07|-1234567.89|1|5551234|ab|65535",
                  "2| lead|a-1|32767|2147483647|0|1.0e+300|-3.25|-0.5|1950-01-01|00:00:01|0.01|0||"
                  "xyz|1",
                  "3|caf\xc3\xa9||0|0|17|0.0|0.0|0.0|NULL|NULL|0.0|0|1||0"}));
    char* err = nullptr;
    EXPECT_NE(sqlite3_exec(db, "UPDATE Sale SET Qty = 1", nullptr, nullptr, &err), SQLITE_OK);
    sqlite3_free(err);
}

}  // namespace
