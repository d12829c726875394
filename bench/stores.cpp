#include "stores.h"

#include <dbfile/recman.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>

namespace bench {

namespace {

const uint8_t kClient[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'B', 'N', 0, 0};

void Put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}

void Check(int rc, const char* what) {
    if (rc != 0) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(rc));
}

// A multiplicative permutation of [0, count): distinct ids in scattered order.
uint32_t Scatter(uint32_t i, uint32_t count) {
    return uint32_t((uint64_t(i) * 2654435761u) % count);
}

}  // namespace

int32_t Record::id() const {
    int32_t v;
    std::memcpy(&v, bytes, 4);
    return v;
}

int32_t Record::qty() const {
    int32_t v;
    std::memcpy(&v, bytes + kQtyOffset, 4);
    return v;
}

int16_t Record::code() const {
    int16_t v;
    std::memcpy(&v, bytes + kCodeOffset, 2);
    return v;
}

std::vector<int32_t> Probes(uint32_t count) {
    std::mt19937 rng(42);
    std::vector<int32_t> out;
    for (int i = 0; i < 1 << 16; ++i)
        out.push_back(int32_t(rng() % count));
    return out;
}

Record MakeRecord(uint32_t i, uint32_t count, bool inOrder) {
    Record r;
    int32_t id = int32_t(inOrder ? i : Scatter(i, count));
    std::memcpy(r.bytes, &id, 4);
    std::memset(r.bytes + kNameOffset, 0, kNameSize);
    std::string name = "group-" + std::to_string((uint32_t(id) * 7919u) % 997);
    std::memcpy(r.bytes + kNameOffset, name.data(), name.size());
    for (size_t k = kNameOffset + kNameSize; k < kRecordSize; ++k)
        r.bytes[k] = uint8_t(id + k);
    int32_t qty = int32_t((uint32_t(id) * 37u) % 1000);
    int16_t code = int16_t(id % 13);
    std::memcpy(r.bytes + kQtyOffset, &qty, 4);
    std::memcpy(r.bytes + kCodeOffset, &code, 2);
    return r;
}

std::string NameOf(const Record& r) {
    return std::string(reinterpret_cast<const char*>(r.bytes + kNameOffset),
                       strnlen(reinterpret_cast<const char*>(r.bytes + kNameOffset), kNameSize));
}

std::string ScratchDir() {
    std::string base = std::filesystem::temp_directory_path().string() + "/dbfile-bench-XXXXXX";
    std::vector<char> t(base.begin(), base.end());
    t.push_back(0);
    if (!mkdtemp(t.data())) throw std::runtime_error("mkdtemp");
    return t.data();
}

// recman ----------------------------------------------------------------------

RecmanStore::RecmanStore(const std::string& path, bool create) {
    uint8_t spec[16 + 32] = {};
    Put16(spec, kRecordSize);
    Put16(spec + 2, 4096);
    Put16(spec + 4, 2);
    Put16(spec + 16, 1);
    Put16(spec + 18, 4);
    Put16(spec + 20, RM_KEY_EXTENDED_TYPE);
    spec[26] = RM_TYPE_INTEGER;
    Put16(spec + 32, kNameOffset + 1);
    Put16(spec + 34, kNameSize);
    Put16(spec + 36, RM_KEY_EXTENDED_TYPE | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE);
    spec[42] = RM_TYPE_ZSTRING;
    std::strncpy(reinterpret_cast<char*>(key_), path.c_str(), 254);
    uint32_t len = sizeof(spec);
    if (create)
        Check(BTRCALLID(RM_CREATE, nullptr, spec, &len, key_, 255, RM_CREATE_REPLACE, kClient),
              "recman create");
    len = 0;
    Check(BTRCALLID(RM_OPEN, pos_, nullptr, &len, key_, 255, 0, kClient), "recman open");
}

RecmanStore::~RecmanStore() {
    uint32_t len = 0;
    BTRCALLID(RM_CLOSE, pos_, nullptr, &len, key_, 255, 0, kClient);
}

int16_t RecmanStore::Call(uint16_t op, void* data, uint32_t* len, int8_t keyNum) {
    return BTRCALLID(op, pos_, data, len, key_, 255, keyNum, kClient);
}

bool RecmanStore::Insert(Record& r) {
    uint32_t len = kRecordSize;
    return Call(RM_INSERT, r.bytes, &len, 0) == RM_OK;
}

bool RecmanStore::GetEqual(int32_t id, Record& out) {
    std::memcpy(key_, &id, 4);
    uint32_t len = kRecordSize;
    return Call(RM_GET_EQUAL, out.bytes, &len, 0) == RM_OK;
}

bool RecmanStore::GetFirst(Record& out) {
    uint32_t len = kRecordSize;
    return Call(RM_GET_FIRST, out.bytes, &len, 0) == RM_OK;
}

bool RecmanStore::GetNext(Record& out) {
    uint32_t len = kRecordSize;
    return Call(RM_GET_NEXT, out.bytes, &len, 0) == RM_OK;
}

bool RecmanStore::StepFirst(Record& out) {
    uint32_t len = kRecordSize;
    return Call(RM_STEP_FIRST, out.bytes, &len, 0) == RM_OK;
}

bool RecmanStore::StepNext(Record& out) {
    uint32_t len = kRecordSize;
    return Call(RM_STEP_NEXT, out.bytes, &len, 0) == RM_OK;
}

bool RecmanStore::Begin() {
    return BTRCALLID(RM_BEGIN_TRANSACTION + RM_CONCURRENT, nullptr, nullptr, nullptr, nullptr, 255,
                     0, kClient) == RM_OK;
}

bool RecmanStore::End() {
    return BTRCALLID(RM_END_TRANSACTION, nullptr, nullptr, nullptr, nullptr, 255, 0, kClient) ==
           RM_OK;
}

// raw LMDB --------------------------------------------------------------------
// Rows keyed by id (so the id order is the stored order) and a duplicate-sorted
// index from name to id, the natural layout for this data in LMDB.

LmdbStore::LmdbStore(const std::string& path) {
    Check(mdb_env_create(&env_), "lmdb env");
    mdb_env_set_maxdbs(env_, 4);
    mdb_env_set_mapsize(env_, size_t(4) << 30);
    Check(mdb_env_open(env_, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOTLS, 0644),
          "lmdb open");
    MDB_txn* txn;
    Check(mdb_txn_begin(env_, nullptr, 0, &txn), "lmdb txn");
    Check(mdb_dbi_open(txn, "rows", MDB_CREATE | MDB_INTEGERKEY, &rows_), "lmdb rows");
    Check(mdb_dbi_open(txn, "names", MDB_CREATE | MDB_DUPSORT | MDB_DUPFIXED | MDB_INTEGERDUP,
                       &names_),
          "lmdb names");
    Check(mdb_txn_commit(txn), "lmdb commit");
}

LmdbStore::~LmdbStore() {
    if (cursor_) mdb_cursor_close(cursor_);
    if (read_) mdb_txn_abort(read_);
    mdb_env_close(env_);
}

bool LmdbStore::Put(MDB_txn* txn, const Record& r) {
    uint32_t id = uint32_t(r.id());
    MDB_val k{4, &id}, v{kRecordSize, const_cast<uint8_t*>(r.bytes)};
    if (mdb_put(txn, rows_, &k, &v, MDB_NOOVERWRITE) != 0) return false;
    std::string name = NameOf(r);
    MDB_val nk{name.size(), name.data()}, nv{4, &id};
    return mdb_put(txn, names_, &nk, &nv, 0) == 0;
}

bool LmdbStore::Insert(const Record& r) {
    MDB_txn* txn;
    if (mdb_txn_begin(env_, nullptr, 0, &txn) != 0) return false;
    if (!Put(txn, r)) {
        mdb_txn_abort(txn);
        return false;
    }
    return mdb_txn_commit(txn) == 0;
}

bool LmdbStore::BeginBulk() {
    return mdb_txn_begin(env_, nullptr, 0, &bulk_) == 0;
}
bool LmdbStore::InsertInBulk(const Record& r) {
    return Put(bulk_, r);
}
bool LmdbStore::EndBulk() {
    bool ok = mdb_txn_commit(bulk_) == 0;
    bulk_ = nullptr;
    return ok;
}

void LmdbStore::BeginReads() {
    if (read_) return;
    Check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &read_), "lmdb read txn");
    Check(mdb_cursor_open(read_, rows_, &cursor_), "lmdb cursor");
}

bool LmdbStore::GetEqual(int32_t id, Record& out) {
    MDB_val k{4, &id}, v;
    if (mdb_get(read_, rows_, &k, &v) != 0) return false;
    std::memcpy(out.bytes, v.mv_data, kRecordSize);
    return true;
}

bool LmdbStore::First(Record& out) {
    MDB_val k, v;
    if (mdb_cursor_get(cursor_, &k, &v, MDB_FIRST) != 0) return false;
    std::memcpy(out.bytes, v.mv_data, kRecordSize);
    return true;
}

bool LmdbStore::Next(Record& out) {
    MDB_val k, v;
    if (mdb_cursor_get(cursor_, &k, &v, MDB_NEXT) != 0) return false;
    std::memcpy(out.bytes, v.mv_data, kRecordSize);
    return true;
}

// SQLite ----------------------------------------------------------------------

SqliteStore::SqliteStore(const std::string& path) {
    Check(sqlite3_open(path.c_str(), &db_), "sqlite open");
    Exec("PRAGMA journal_mode=WAL");
    Exec("PRAGMA synchronous=OFF");
    Exec(
        "CREATE TABLE r(id INTEGER PRIMARY KEY, name TEXT NOT NULL, rest BLOB NOT NULL) "
        "WITHOUT ROWID");
    Exec("CREATE INDEX r_name ON r(name)");
    Check(sqlite3_prepare_v2(db_, "INSERT INTO r VALUES(?,?,?)", -1, &insert_, nullptr), "prep");
    Check(sqlite3_prepare_v2(db_, "SELECT id,name,rest FROM r WHERE id=?", -1, &byId_, nullptr),
          "prep");
    Check(sqlite3_prepare_v2(db_, "SELECT id,name,rest FROM r ORDER BY id", -1, &ordered_, nullptr),
          "prep");
    Check(sqlite3_prepare_v2(db_, "SELECT id,name,rest FROM r", -1, &scan_, nullptr), "prep");
}

SqliteStore::~SqliteStore() {
    for (sqlite3_stmt* s : {insert_, byId_, ordered_, scan_})
        sqlite3_finalize(s);
    sqlite3_close(db_);
}

bool SqliteStore::Exec(const char* sql) {
    return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool SqliteStore::Insert(const Record& r) {
    std::string name = NameOf(r);
    sqlite3_reset(insert_);
    sqlite3_bind_int(insert_, 1, r.id());
    sqlite3_bind_text(insert_, 2, name.data(), int(name.size()), SQLITE_STATIC);
    sqlite3_bind_blob(insert_, 3, r.bytes + kNameOffset + kNameSize,
                      int(kRecordSize - kNameOffset - kNameSize), SQLITE_STATIC);
    return sqlite3_step(insert_) == SQLITE_DONE;
}

bool SqliteStore::Row(sqlite3_stmt* s, Record& out) {
    if (sqlite3_step(s) != SQLITE_ROW) return false;
    int32_t id = sqlite3_column_int(s, 0);
    std::memcpy(out.bytes, &id, 4);
    std::memset(out.bytes + kNameOffset, 0, kNameSize);
    std::memcpy(out.bytes + kNameOffset, sqlite3_column_text(s, 1),
                size_t(sqlite3_column_bytes(s, 1)));
    std::memcpy(out.bytes + kNameOffset + kNameSize, sqlite3_column_blob(s, 2),
                size_t(sqlite3_column_bytes(s, 2)));
    return true;
}

bool SqliteStore::GetEqual(int32_t id, Record& out) {
    sqlite3_reset(byId_);
    sqlite3_bind_int(byId_, 1, id);
    return Row(byId_, out);
}

bool SqliteStore::First(Record& out) {
    sqlite3_reset(ordered_);
    return Row(ordered_, out);
}
bool SqliteStore::Next(Record& out) {
    return Row(ordered_, out);
}
bool SqliteStore::ScanFirst(Record& out) {
    sqlite3_reset(scan_);
    return Row(scan_, out);
}
bool SqliteStore::ScanNext(Record& out) {
    return Row(scan_, out);
}

// SQLite, scanned ---------------------------------------------------------------

SqliteScanStore::SqliteScanStore(const std::string& path) {
    Check(sqlite3_open(path.c_str(), &db_), "sqlite open");
    Exec("PRAGMA journal_mode=WAL");
    Exec("PRAGMA synchronous=OFF");
    Exec(
        "CREATE TABLE s(id INTEGER PRIMARY KEY, name TEXT NOT NULL, qty INTEGER NOT NULL, "
        "code INTEGER NOT NULL, rest BLOB NOT NULL) WITHOUT ROWID");
    Exec("CREATE INDEX s_name ON s(name)");
    Check(sqlite3_prepare_v2(db_, "INSERT INTO s VALUES(?,?,?,?,?)", -1, &insert_, nullptr),
          "prep");
    Check(sqlite3_prepare_v2(db_, "SELECT id, qty FROM s WHERE qty < ?1 AND code = ?2", -1, &scan_,
                             nullptr),
          "prep");
}

SqliteScanStore::~SqliteScanStore() {
    sqlite3_finalize(insert_);
    sqlite3_finalize(scan_);
    sqlite3_close(db_);
}

bool SqliteScanStore::Exec(const char* sql) {
    return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool SqliteScanStore::Insert(const Record& r) {
    std::string name = NameOf(r);
    sqlite3_reset(insert_);
    sqlite3_bind_int(insert_, 1, r.id());
    sqlite3_bind_text(insert_, 2, name.data(), int(name.size()), SQLITE_STATIC);
    sqlite3_bind_int(insert_, 3, r.qty());
    sqlite3_bind_int(insert_, 4, r.code());
    sqlite3_bind_blob(insert_, 5, r.bytes + kCodeOffset + 2, int(kRecordSize - kCodeOffset - 2),
                      SQLITE_STATIC);
    return sqlite3_step(insert_) == SQLITE_DONE;
}

long SqliteScanStore::Scan(int maxQty, int code) {
    sqlite3_reset(scan_);
    sqlite3_bind_int(scan_, 1, maxQty);
    sqlite3_bind_int(scan_, 2, code);
    long found = 0;
    int64_t sum = 0;
    while (sqlite3_step(scan_) == SQLITE_ROW) {
        sum += sqlite3_column_int(scan_, 0) + sqlite3_column_int(scan_, 1);
        ++found;
    }
    return sum >= 0 ? found : -1;
}

}  // namespace bench
