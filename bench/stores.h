// The same data kept three ways for side-by-side measurement: recman, raw
// LMDB and SQLite. Records are 100 bytes: a unique 4-byte integer key, a
// 20-byte text key shared by many records (duplicates), and filler.
#pragma once

#include <lmdb.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

constexpr size_t kRecordSize = 100;
constexpr size_t kNameOffset = 4;
constexpr size_t kNameSize = 20;
constexpr size_t kQtyOffset = 24;   // 4-byte integer, 0..999
constexpr size_t kCodeOffset = 28;  // 2-byte integer, 0..12

struct Record {
    uint8_t bytes[kRecordSize];
    int32_t id() const;
    int32_t qty() const;
    int16_t code() const;
};

// Record `i` of a data set: ids are a shuffled permutation of [0, count)
// unless `inOrder`, names repeat.
Record MakeRecord(uint32_t i, uint32_t count, bool inOrder = false);
std::string NameOf(const Record& r);
// 65,536 ids drawn from [0, count), the same in every run, to look up.
std::vector<int32_t> Probes(uint32_t count);

// A fresh folder for the stores of one run.
std::string ScratchDir();

class RecmanStore {
  public:
    // Creates the file afresh, or (`create` false) opens the one there.
    explicit RecmanStore(const std::string& path, bool create = true);
    ~RecmanStore();
    bool Insert(Record& r);
    bool GetEqual(int32_t id, Record& out);
    bool GetFirst(Record& out);
    bool GetNext(Record& out);
    bool StepFirst(Record& out);
    bool StepNext(Record& out);
    bool Begin();
    bool End();
    int16_t Call(uint16_t op, void* data, uint32_t* len, int8_t keyNum);

  private:
    uint8_t pos_[128] = {};
    uint8_t key_[255] = {};
};

class LmdbStore {
  public:
    explicit LmdbStore(const std::string& path);
    ~LmdbStore();
    bool Insert(const Record& r);  // one transaction per record
    bool BeginBulk();              // many records in one transaction
    bool InsertInBulk(const Record& r);
    bool EndBulk();
    // Reads run in one long read transaction, the best case for LMDB.
    void BeginReads();
    bool GetEqual(int32_t id, Record& out);
    bool First(Record& out);
    bool Next(Record& out);

  private:
    bool Put(MDB_txn* txn, const Record& r);
    MDB_env* env_ = nullptr;
    MDB_dbi rows_ = 0, names_ = 0;
    MDB_txn* read_ = nullptr;
    MDB_txn* bulk_ = nullptr;
    MDB_cursor* cursor_ = nullptr;
};

class SqliteStore {
  public:
    explicit SqliteStore(const std::string& path);
    ~SqliteStore();
    bool Insert(const Record& r);
    bool Exec(const char* sql);
    bool GetEqual(int32_t id, Record& out);
    bool First(Record& out);  // SELECT ... ORDER BY id, stepped row by row
    bool Next(Record& out);
    bool ScanFirst(Record& out);  // plain table scan
    bool ScanNext(Record& out);
    sqlite3* db() { return db_; }

  private:
    bool Row(sqlite3_stmt* s, Record& out);
    sqlite3* db_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
    sqlite3_stmt* byId_ = nullptr;
    sqlite3_stmt* ordered_ = nullptr;
    sqlite3_stmt* scan_ = nullptr;
};

// The same records with the two filtered fields as columns of their own, for
// a scan with WHERE that no index serves.
class SqliteScanStore {
  public:
    explicit SqliteScanStore(const std::string& path);
    ~SqliteScanStore();
    bool Insert(const Record& r);
    bool Exec(const char* sql);
    // Runs SELECT id, qty ... WHERE qty < maxQty AND code = code to its end.
    long Scan(int maxQty, int code);

  private:
    sqlite3* db_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
    sqlite3_stmt* scan_ = nullptr;
};

}  // namespace bench
