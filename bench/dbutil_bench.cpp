// dbutil against sqlite3 on the same data: exporting every record as
// comma-separated text, and SQL queries constrained by the key and scanning
// everything, through `dbutil sql` and the record tables module in-process
// against sqlite3 and SQLite's own indexed table. Each measurement runs
// three times, interleaved; medians count. The program ends with a table
// of ratios (above 1: dbutil is slower).
//
//   dbutil_bench [records]      (default 1,000,000; DBUTIL_BENCH_RECORDS too)
#include <dbfile/dbfile.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "sqlite/record_tables.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Folder {
    std::string dir, dictionary, sqlite;
    Folder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "dbutil-bench-XXXXXX").string();
        dir = mkdtemp(pattern.data());
        dictionary = dir + "/bench.ddf";
        sqlite = dir + "/bench.sqlite";
    }
    ~Folder() { std::filesystem::remove_all(dir); }
};

void Check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "dbutil_bench: %s\n", what);
        std::exit(1);
    }
}

// The same rows for both: id, name, city, day, quantity, amount.
struct Row {
    int32_t id;
    char name[24];
    char city[12];
    Date day;
    int16_t qty;
    double amount;
};

Row MakeRow(int i, std::mt19937& rng) {
    static const char* cities[] = {"Berlin", "Lyon", "Oslo", "Paris", "Rome", "Vienna"};
    Row r{};
    r.id = i;
    std::snprintf(r.name, sizeof(r.name), "Customer %u", unsigned(rng() % 100000));
    std::snprintf(r.city, sizeof(r.city), "%s", cities[rng() % 6]);
    r.day = Date(2020 + int(rng() % 5), 1 + int(rng() % 12), 1 + int(rng() % 28));
    r.qty = int16_t(rng() % 100);
    r.amount = double(rng() % 10000000) / 100;
    return r;
}

void Describe(const Folder& f) {
    CCdd cdd(nullptr, f.dictionary.c_str());
    Check(cdd.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate), 1) == 0, "dictionary");
    std::strcpy(cdd.m_FileDat.FileName, "Bench.dat");
    cdd.m_FileDat.FileType = dbFileData;
    cdd.m_FileDat.FileSpec.PageSize = 4096;
    cdd.AddField(0, 0, 4, dbInteger, 0, "Id", "", "");
    cdd.AddField(1, 0, 24, dbZString, 0, "Name", "", "");
    cdd.AddField(2, 0, 12, dbZString, 0, "City", "", "");
    cdd.AddField(3, 0, 4, dbDate, 0, "Day", "", "");
    cdd.AddField(4, 0, 2, dbInteger, 0, "Qty", "", "");
    cdd.AddField(5, 0, 8, dbMoney, 2, "Amount", "", "");
    cdd.AdjustFieldOffsets();
    cdd.AddKey(0, "ById", "Id", 0);
    Check(cdd.Insert(nullptr) == 0, "dictionary entry");
}

void Fill(const Folder& f, int records) {
    setenv("RECMAN_SYNC", "off", 1);
    std::snprintf(g_CddFileName, sizeof(g_CddFileName), "%s", f.dictionary.c_str());
    CDbFile::SetSysDataPath(f.dir.c_str());
    CDbFile::SetDataPath(f.dir.c_str());
    CDbFile file("Bench.dat");
    Check(file.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)) == 0, "create Bench.dat");
    file.SetBrowser(1);

    sqlite3* db;
    Check(sqlite3_open(f.sqlite.c_str(), &db) == SQLITE_OK, "sqlite open");
    sqlite3_exec(db,
                 "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
                 "CREATE TABLE Bench(Id INTEGER PRIMARY KEY, Name TEXT, City TEXT, Day TEXT,"
                 " Qty INTEGER, Amount REAL); BEGIN",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* ins;
    sqlite3_prepare_v2(db, "INSERT INTO Bench VALUES(?,?,?,?,?,?)", -1, &ins, nullptr);

    // Keys arrive in scattered order, as an application's do.
    std::vector<int> order(static_cast<size_t>(records));
    for (int i = 0; i < records; ++i)
        order[size_t(i)] = i;
    std::mt19937 rng(42);
    std::shuffle(order.begin(), order.end(), rng);
    unsigned short len = file.GetRcdLength();
    BeginTransaction(nullptr);
    for (int n = 0; n < records; ++n) {
        Row r = MakeRow(order[size_t(n)], rng);
        file.SetDataLen(len);
        char* p = file.RcdBuf();
        std::memset(p, 0, len);
        std::memcpy(p, &r.id, 4);
        std::memcpy(p + 4, r.name, 24);
        std::memcpy(p + 28, r.city, 12);
        uint32_t day = r.day.Value();
        std::memcpy(p + 40, &day, 4);
        std::memcpy(p + 44, &r.qty, 2);
        Currency(r.amount).CopyBCD(reinterpret_cast<unsigned char*>(p + 46), 8, 2);
        Check(file.Insert(nullptr) == 0, "insert");
        if (n % 20000 == 19999) {
            EndTransaction(nullptr);
            BeginTransaction(nullptr);
        }
        char iso[16];
        std::snprintf(iso, sizeof(iso), "%04d-%02d-%02d", r.day.Year(), r.day.Month(), r.day.Day());
        sqlite3_bind_int(ins, 1, r.id);
        sqlite3_bind_text(ins, 2, r.name, -1, SQLITE_STATIC);
        sqlite3_bind_text(ins, 3, r.city, -1, SQLITE_STATIC);
        sqlite3_bind_text(ins, 4, iso, -1, SQLITE_STATIC);
        sqlite3_bind_int(ins, 5, r.qty);
        sqlite3_bind_double(ins, 6, r.amount);
        sqlite3_step(ins);
        sqlite3_reset(ins);
    }
    EndTransaction(nullptr);
    sqlite3_finalize(ins);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(db);
}

double Seconds(const std::function<void()>& work) {
    auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void Shell(const std::string& command) {
    Check(std::system(command.c_str()) == 0, command.c_str());
}

std::string Quote(const std::string& s) {
    return "'" + s + "'";
}

// Point queries through one prepared statement on a connection.
void PointQueries(sqlite3* db, const char* table, int records, int queries) {
    std::string sql = std::string("SELECT Name, Amount FROM ") + table + " WHERE Id = ?";
    sqlite3_stmt* st;
    Check(sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK, "prepare");
    std::mt19937 rng(7);
    long found = 0;
    for (int q = 0; q < queries; ++q) {
        sqlite3_bind_int(st, 1, int(rng() % unsigned(records)));
        while (sqlite3_step(st) == SQLITE_ROW)
            ++found;
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    Check(found == queries, "point queries found every record");
}

void Scan(sqlite3* db, const char* table) {
    std::string sql = std::string("SELECT count(*), sum(Amount) FROM ") + table + " WHERE Qty > 50";
    Check(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, "scan");
}

}  // namespace

int main(int argc, char** argv) {
    int records = 1000000;
    if (const char* env = std::getenv("DBUTIL_BENCH_RECORDS")) records = std::atoi(env);
    if (argc > 1) records = std::atoi(argv[1]);
    Check(records > 0, "records must be a positive number");
    Folder f;
    std::printf("filling %d records...\n", records);
    Describe(f);
    Fill(f, records);

    std::string dbutil = std::string(DBUTIL_PATH) + " -q --data " + Quote(f.dir) +
                         " --dictionary " + Quote(f.dictionary);
    std::string sqlite = "sqlite3 " + Quote(f.sqlite);
    int lo = records / 2, hi = lo + 99;
    std::string range = " WHERE Id BETWEEN " + std::to_string(lo) + " AND " + std::to_string(hi);
    std::string scan = "SELECT count(*), sum(Amount) FROM Bench WHERE Qty > 50";

    sqlite3* mine;
    sqlite3* theirs;
    Check(sqlite3_open(":memory:", &mine) == SQLITE_OK, "memory");
    std::string error;
    Check(dbsql::AttachDictionary(mine, error) == SQLITE_OK, "attach");
    Check(sqlite3_open(f.sqlite.c_str(), &theirs) == SQLITE_OK, "sqlite");
    const int points = 20000;

    struct Pair {
        const char* name;
        std::function<void()> ours, theirs;
    };
    std::vector<Pair> pairs = {
        {"export --csv, every record",
         [&] { Shell(dbutil + " export Bench.dat --csv > /dev/null"); },
         [&] { Shell(sqlite + " -csv -header 'SELECT * FROM Bench' > /dev/null"); }},
        {"sql, 100 records by key range (process)",
         [&] { Shell(dbutil + " sql --csv \"SELECT * FROM Bench" + range + "\" > /dev/null"); },
         [&] { Shell(sqlite + " -csv \"SELECT * FROM Bench" + range + "\" > /dev/null"); }},
        {"sql, full scan (process)",
         [&] { Shell(dbutil + " sql --csv \"" + scan + "\" > /dev/null"); },
         [&] { Shell(sqlite + " -csv \"" + scan + "\" > /dev/null"); }},
        {"20,000 point queries by key (in-process)",
         [&] { PointQueries(mine, "Bench", records, points); },
         [&] { PointQueries(theirs, "Bench", records, points); }},
        {"full scan (in-process)", [&] { Scan(mine, "Bench"); }, [&] { Scan(theirs, "Bench"); }},
    };
    std::map<std::string, std::vector<double>> ours, others;
    std::vector<std::pair<int, bool>> runs;
    for (int p = 0; p < int(pairs.size()); ++p)
        for (int r = 0; r < 3; ++r)
            for (bool mineFirst : {true, false})
                runs.emplace_back(p, mineFirst);
    std::mt19937 rng(1);
    std::shuffle(runs.begin(), runs.end(), rng);
    for (auto [p, mineRun] : runs) {
        const Pair& pair = pairs[size_t(p)];
        double s = Seconds(mineRun ? pair.ours : pair.theirs);
        (mineRun ? ours : others)[pair.name].push_back(s);
    }
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    std::printf("\n%d records; medians of three runs\n", records);
    std::printf("%-44s %12s %12s %10s\n", "", "dbutil", "sqlite3", "ratio");
    for (const Pair& pair : pairs) {
        double a = median(ours[pair.name]), b = median(others[pair.name]);
        std::printf("%-44s %11.3fs %11.3fs %9.2fx\n", pair.name, a, b, a / b);
    }
    sqlite3_close(mine);
    sqlite3_close(theirs);
    return 0;
}
