#include "recman/pg_storage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "recman/fileenv.h"
#include "recman/oslock.h"
#include "recman/recman.h"

namespace recman {

namespace pg {

namespace {

// Never destroyed, as the engine is not: a forked child that exits must not
// end its parent's connection on the way out.
Session* g_main = nullptr;
bool g_schemaKnown = false;  // the catalogue was found or made on g_main

// Serialises changes to the catalogue between processes.
constexpr int32_t kCatalogueLock = -1;

}  // namespace

const std::string& ServerFromEnv() {
    static const std::string server = [] {
        const char* s = std::getenv("RECMAN_SERVER");
        return std::string(s ? s : "");
    }();
    return server;
}

Status MainSession(Session*& out, bool reconnect) {
    if (!g_main) {
        g_schemaKnown = false;
        std::unique_ptr<Session> s;
        if (Status st = Session::Connect(ServerFromEnv(), s)) return st;
        g_main = s.release();
    } else if (!g_main->alive()) {
        // Files opened before hold on to this connection: it is made again
        // in place.
        if (!reconnect) return RM_SESSION_INVALID;
        g_schemaKnown = false;
        if (Status st = g_main->Reconnect()) return st;
    }
    if (!g_schemaKnown) {
        if (Status st = EnsureSchema(*g_main)) return st;
        g_schemaKnown = true;
    }
    out = g_main;
    return RM_OK;
}

void AbandonMainSession() {
    // The connection's socket belongs to the parent: leave it open.
    g_main = nullptr;
}

std::string TableName(int64_t file) {
    return "recman_f" + std::to_string(file);
}
std::string ColumnName(uint16_t indexId) {
    return "k" + std::to_string(indexId);
}

Status EnsureSchema(Session& s) {
    Result r;
    if (Status st = s.Run("SELECT to_regclass('recman_meta') IS NOT NULL", &r)) return st;
    if (r.rows() == 1 && r.Size(0, 0) == 1 && r.Data(0, 0)[0]) return RM_OK;
    // Several processes may be first at once: one makes the tables.
    if (Status st = s.Script("BEGIN")) return st;
    Status st = s.Run("SELECT pg_advisory_xact_lock($1, 0)", {Param::Int4(kCatalogueLock)});
    if (st == RM_OK)
        st = s.Script(
            "CREATE TABLE IF NOT EXISTS recman_files ("
            "  id bigserial PRIMARY KEY, path text NOT NULL UNIQUE);"
            "CREATE TABLE IF NOT EXISTS recman_meta ("
            "  file bigint NOT NULL REFERENCES recman_files ON DELETE CASCADE,"
            "  k bytea NOT NULL, v bytea NOT NULL, PRIMARY KEY (file, k))");
    if (st == RM_OK) return s.Script("COMMIT");
    s.Script("ROLLBACK");
    return st;
}

Status LookupFile(Session& s, const std::string& path, int64_t& id) {
    Result r;
    if (Status st = s.Run("SELECT id FROM recman_files WHERE path = $1", {Param::Text(path)}, &r))
        return st;
    if (r.rows() == 0) return RM_FILE_NOT_FOUND;
    id = r.Int8(0, 0);
    return RM_OK;
}

namespace {

// Drops the file at `path` inside the caller's transaction; RM_FILE_NOT_FOUND
// when there is none.
Status DropFile(Session& s, const std::string& path) {
    int64_t id;
    if (Status st = LookupFile(s, path, id)) return st;
    std::string sql = "DROP TABLE IF EXISTS " + TableName(id);
    if (Status st = s.Script(sql.c_str())) return st;
    return s.Run("DELETE FROM recman_files WHERE id = $1", {Param::Int8(id)});
}

template <class F>
Status InCatalogueTxn(Session& s, F&& work) {
    if (Status st = s.Script("BEGIN")) return st;
    Status st = s.Run("SELECT pg_advisory_xact_lock($1, 0)", {Param::Int4(kCatalogueLock)});
    if (st == RM_OK) st = work();
    if (st == RM_OK) return s.Script("COMMIT");
    s.Script("ROLLBACK");
    return st;
}

}  // namespace

Status CreateFile(Session& s, const std::string& path, const FileDef& def) {
    return InCatalogueTxn(s, [&]() -> Status {
        Status st = DropFile(s, path);
        if (st != RM_OK && st != RM_FILE_NOT_FOUND) return st;
        Result r;
        if ((st = s.Run("INSERT INTO recman_files (path) VALUES ($1) RETURNING id",
                        {Param::Text(path)}, &r)))
            return st;
        int64_t id = r.Int8(0, 0);
        std::string table = TableName(id);
        std::string sql = "CREATE TABLE " + table + " (addr bigint PRIMARY KEY, val bytea NOT NULL";
        for (const KeyDef& k : def.keys)
            sql += ", " + ColumnName(k.id) + " bytea";
        sql += ")";
        if ((st = s.Script(sql.c_str()))) return st;
        for (const KeyDef& k : def.keys) {
            sql = "CREATE UNIQUE INDEX ON " + table + " (" + ColumnName(k.id) + ")";
            if ((st = s.Script(sql.c_str()))) return st;
        }
        std::string d = SerializeDef(def), state = FileState{}.Serialize();
        const char* put = "INSERT INTO recman_meta (file, k, v) VALUES ($1, $2, $3)";
        if ((st = s.Run(
                 put, {Param::Int8(id), Param::Bytes("def", 3), Param::Bytes(d.data(), d.size())})))
            return st;
        return s.Run(put, {Param::Int8(id), Param::Bytes("state", 5),
                           Param::Bytes(state.data(), state.size())});
    });
}

Status RemoveFile(Session& s, const std::string& path) {
    return InCatalogueTxn(s, [&] { return DropFile(s, path); });
}

}  // namespace pg

// ---- Locks held on the server ---------------------------------------------

namespace {

struct LockHolder {
    const void* who;
    bool exclusive;
};
struct HeldLock {
    std::vector<LockHolder> holders;
    bool serverExclusive = false;  // how the process holds it on the server
};
// The server's advisory locks this process holds, with their holders here.
std::map<std::pair<int64_t, off_t>, HeldLock> g_locks;

bool LockKey(int64_t file, off_t at, int32_t& space, int32_t& key) {
    if (at == kOpenLockByte) {
        space = pg::LockSpace(file, pg::LockKind::Open);
        key = 0;
        return true;
    }
    if (at >= kRecordLockBase && at - kRecordLockBase <= off_t(UINT32_MAX)) {
        space = pg::LockSpace(file, pg::LockKind::Record);
        key = int32_t(uint32_t(at - kRecordLockBase));
        return true;
    }
    return false;
}

// Asks the server; answers false when it says no or cannot be asked.
bool ServerLockCall(const char* sql, int32_t space, int32_t key) {
    pg::Session* s;
    if (pg::MainSession(s, false)) return false;
    pg::Result r;
    if (s->Run(sql, {pg::Param::Int4(space), pg::Param::Int4(key)}, &r)) return false;
    return r.rows() == 1 && r.Size(0, 0) == 1 && r.Data(0, 0)[0];
}

void ServerRelease(int32_t space, int32_t key, bool exclusive) {
    ServerLockCall(exclusive ? "SELECT pg_advisory_unlock($1, $2)"
                             : "SELECT pg_advisory_unlock_shared($1, $2)",
                   space, key);
}

}  // namespace

bool ServerTryLock(int64_t file, off_t at, bool exclusive, const void* holder) {
    int32_t space, key;
    if (!LockKey(file, at, space, key)) return false;
    HeldLock& held = g_locks[{file, at}];
    for (const LockHolder& h : held.holders)
        if (h.who != holder && (exclusive || h.exclusive)) return false;
    for (LockHolder& h : held.holders)
        if (h.who == holder) {
            if (exclusive && !held.serverExclusive) return false;  // no upgrade on the server
            h.exclusive = exclusive;
            return true;
        }
    if (held.holders.empty()) {
        bool got = ServerLockCall(exclusive ? "SELECT pg_try_advisory_lock($1, $2)"
                                            : "SELECT pg_try_advisory_lock_shared($1, $2)",
                                  space, key);
        if (!got) {
            g_locks.erase({file, at});
            return false;
        }
        held.serverExclusive = exclusive;
    } else if (exclusive) {
        return false;
    }
    held.holders.push_back({holder, exclusive});
    return true;
}

void ServerUnlock(int64_t file, off_t at, const void* holder) {
    for (auto it = g_locks.begin(); it != g_locks.end();) {
        if (it->first.first != file || (at >= 0 && it->first.second != at)) {
            ++it;
            continue;
        }
        auto& hs = it->second.holders;
        hs.erase(std::remove_if(hs.begin(), hs.end(),
                                [&](const LockHolder& h) { return h.who == holder; }),
                 hs.end());
        if (!hs.empty()) {
            ++it;
            continue;
        }
        int32_t space, key;
        if (LockKey(file, it->first.second, space, key))
            ServerRelease(space, key, it->second.serverExclusive);
        it = g_locks.erase(it);
    }
}

bool ServerHeldByOther(int64_t file, off_t at, bool exclusive, const void* holder) {
    int32_t space, key;
    if (!LockKey(file, at, space, key)) return false;
    auto it = g_locks.find({file, at});
    if (it != g_locks.end())
        for (const LockHolder& h : it->second.holders)
            if (h.who != holder && (exclusive || h.exclusive)) return true;
    // Another process: a lock the server would not grant now.
    bool got = ServerLockCall(exclusive ? "SELECT pg_try_advisory_lock($1, $2)"
                                        : "SELECT pg_try_advisory_lock_shared($1, $2)",
                              space, key);
    if (got) ServerRelease(space, key, exclusive);
    return !got;
}

void ServerForgetLocks() {
    g_locks.clear();
}

// ---- Transactions ----------------------------------------------------------

namespace {

constexpr size_t kRecordHeader = 5;  // version, number of sequences
constexpr size_t kSeqPair = 10;

uint32_t AddressKey(const Val& k) {
    uint32_t a = 0;
    if (k.mv_size == 4) std::memcpy(&a, k.mv_data, 4);
    return a;
}

// The part of a stored record after its header: the record's bytes.
bool RecordBody(const uint8_t* p, size_t n, size_t& head) {
    if (n < kRecordHeader) return false;
    head = kRecordHeader + size_t(p[4]) * kSeqPair;
    return head <= n;
}

}  // namespace

PgTxn::PgTxn(pg::Session& s, int64_t file, bool write)
    : s_(s), file_(file), table_(pg::TableName(file)), write_(write) {}

int PgTxn::Failed(Status st) {
    if (st == RM_SESSION_INVALID) return kPgLost;
    if (s_.sqlState() == pg::kUniqueViolation) return MDB_KEYEXIST;
    return kPgRefused;
}

const pg::Result& PgTxn::Hold(pg::Result&& r) {
    held_.push_back(std::move(r));
    return held_.back();
}

Val PgTxn::Keep(std::string&& bytes) {
    kept_.push_back(std::move(bytes));
    return ValOf(kept_.back().data(), kept_.back().size());
}

void PgTxn::Release() {
    held_.clear();
    kept_.clear();
    ahead_.clear();
}

bool PgTxn::Ahead(uint32_t address, Val& v) const {
    auto it = ahead_.find(address);
    if (it == ahead_.end()) return false;
    v = it->second;
    return true;
}

int PgTxn::Flush() {
    if (pending_.empty()) return 0;
    std::map<uint32_t, Pending> rows;
    rows.swap(pending_);
    Wrote();
    for (auto& [address, p] : rows) {
        bool update = !p.hasValue;
        std::vector<pg::Param> params{pg::Param::Int8(address)};
        std::string sql;
        if (p.hasValue) {
            std::string cols = "addr, val", vals = "$1, $2", set = "val = EXCLUDED.val";
            params.push_back(pg::Param::Bytes(p.value.data(), p.value.size()));
            for (auto& [id, e] : p.entries) {
                std::string c = pg::ColumnName(id);
                cols += ", " + c;
                vals += ", $" + std::to_string(params.size() + 1);
                set += ", " + c + " = EXCLUDED." + c;
                params.push_back(pg::Param::Bytes(e.data(), e.size()));
            }
            sql = "INSERT INTO " + table_ + " (" + cols + ") VALUES (" + vals +
                  ") ON CONFLICT (addr) DO UPDATE SET " + set;
        } else {
            std::string set;
            for (auto& [id, e] : p.entries) {
                if (!set.empty()) set += ", ";
                set += pg::ColumnName(id) + " = $" + std::to_string(params.size() + 1);
                params.push_back(pg::Param::Bytes(e.data(), e.size()));
            }
            sql = "UPDATE " + table_ + " SET " + set + " WHERE addr = $1";
        }
        pg::Result r;
        if (Status st = s_.Run(sql.c_str(), params, &r)) return Failed(st);
        // Entries of a record whose row is still to come (an insert reads
        // another key's index between its entries and its bytes) wait for it.
        if (update && r.Affected() == 0) pending_[address] = std::move(p);
    }
    return 0;
}

int PgTxn::GetMeta(Val* k, Val* v) {
    pg::Result r;
    if (Status st = s_.Run("SELECT v FROM recman_meta WHERE file = $1 AND k = $2",
                           {pg::Param::Int8(file_), pg::Param::Bytes(k->mv_data, k->mv_size)}, &r))
        return Failed(st);
    if (r.rows() == 0) return MDB_NOTFOUND;
    const pg::Result& h = Hold(std::move(r));
    *v = ValOf(h.Data(0, 0), h.Size(0, 0));
    return 0;
}

int PgTxn::PutMeta(Val* k, Val* v) {
    if (Status st = s_.Run("INSERT INTO recman_meta (file, k, v) VALUES ($1, $2, $3) "
                           "ON CONFLICT (file, k) DO UPDATE SET v = EXCLUDED.v",
                           {pg::Param::Int8(file_), pg::Param::Bytes(k->mv_data, k->mv_size),
                            pg::Param::Bytes(v->mv_data, v->mv_size)}))
        return Failed(st);
    return 0;
}

int PgTxn::Get(const Table& t, Val* k, Val* v) {
    if (t.kind == Table::Kind::Records && pending_.empty() && Ahead(AddressKey(*k), *v)) return 0;
    if (int rc = Flush()) return rc;
    if (t.kind == Table::Kind::Meta) return GetMeta(k, v);
    pg::Result r;
    if (t.kind == Table::Kind::Records) {
        if (k->mv_size != 4) return MDB_NOTFOUND;
        std::string sql = "SELECT val FROM " + table_ + " WHERE addr = $1";
        if (Status st = s_.Run(sql.c_str(), {pg::Param::Int8(AddressKey(*k))}, &r))
            return Failed(st);
        if (r.rows() == 0) return MDB_NOTFOUND;
        const pg::Result& h = Hold(std::move(r));
        *v = ValOf(h.Data(0, 0), h.Size(0, 0));
        return 0;
    }
    std::string sql =
        "SELECT addr, val FROM " + table_ + " WHERE " + pg::ColumnName(t.index) + " = $1";
    if (Status st = s_.Run(sql.c_str(), {pg::Param::Bytes(k->mv_data, k->mv_size)}, &r))
        return Failed(st);
    if (r.rows() == 0) return MDB_NOTFOUND;
    uint32_t address = uint32_t(r.Int8(0, 0));
    std::string value(reinterpret_cast<const char*>(&address), 4);
    if (t.clustered) {
        // The clustered key's entries carry the record: version and bytes.
        size_t head;
        if (!RecordBody(r.Data(0, 1), r.Size(0, 1), head)) return MDB_CORRUPTED;
        value.append(reinterpret_cast<const char*>(r.Data(0, 1)), 4);
        value.append(reinterpret_cast<const char*>(r.Data(0, 1)) + head, r.Size(0, 1) - head);
    }
    *v = Keep(std::move(value));
    return 0;
}

int PgTxn::Put(const Table& t, Val* k, Val* v, unsigned /*flags*/) {
    if (!write_) return EACCES;
    Wrote();
    if (t.kind == Table::Kind::Meta) {
        if (int rc = Flush()) return rc;
        Wrote();
        return PutMeta(k, v);
    }
    if (t.kind == Table::Kind::Records) {
        Pending& p = pending_[AddressKey(*k)];
        p.hasValue = true;
        p.value.assign(static_cast<const char*>(v->mv_data), v->mv_size);
        // A record's row is whole once its bytes are given: its entries come first.
        return Flush();
    }
    if (v->mv_size < 4) return EINVAL;
    uint32_t address;
    std::memcpy(&address, v->mv_data, 4);
    pending_[address].entries[t.index].assign(static_cast<const char*>(k->mv_data), k->mv_size);
    return 0;
}

int PgTxn::Del(const Table& t, Val* k) {
    if (!write_) return EACCES;
    if (int rc = Flush()) return rc;
    Wrote();
    pg::Result r;
    Status st;
    if (t.kind == Table::Kind::Meta) {
        st = s_.Run("DELETE FROM recman_meta WHERE file = $1 AND k = $2",
                    {pg::Param::Int8(file_), pg::Param::Bytes(k->mv_data, k->mv_size)}, &r);
    } else if (t.kind == Table::Kind::Records) {
        std::string sql = "DELETE FROM " + table_ + " WHERE addr = $1";
        st = s_.Run(sql.c_str(), {pg::Param::Int8(AddressKey(*k))}, &r);
    } else {
        std::string c = pg::ColumnName(t.index);
        std::string sql = "UPDATE " + table_ + " SET " + c + " = NULL WHERE " + c + " = $1";
        st = s_.Run(sql.c_str(), {pg::Param::Bytes(k->mv_data, k->mv_size)}, &r);
    }
    if (st) return Failed(st);
    return r.Affected() ? 0 : MDB_NOTFOUND;
}

Status PgTxn::AddIndex(uint16_t id) {
    if (int rc = Flush()) return StatusOf(rc);
    Wrote();
    std::string c = pg::ColumnName(id);
    std::string sql = "ALTER TABLE " + table_ + " ADD COLUMN " + c + " bytea";
    if (Status st = s_.Script(sql.c_str())) return st;
    sql = "CREATE UNIQUE INDEX ON " + table_ + " (" + c + ")";
    return s_.Script(sql.c_str());
}

Status PgTxn::DropIndex(uint16_t id) {
    if (int rc = Flush()) return StatusOf(rc);
    Wrote();
    std::string sql = "ALTER TABLE " + table_ + " DROP COLUMN " + pg::ColumnName(id);
    return s_.Script(sql.c_str());
}

// ---- Cursors ---------------------------------------------------------------

void PgCursor::Renew(PgTxn& txn) {
    txn_->ForgetAhead();
    txn_ = &txn;
    batches_.clear();
    rows_.clear();
    positioned_ = false;
}

int PgCursor::Fetch(const std::string* from, bool inclusive, bool asc, size_t limit) {
    if (int rc = txn_->Flush()) return rc;
    writesSeen_ = txn_->writes();
    bool records = table_.kind == Table::Kind::Records;
    std::string col = records ? "addr" : pg::ColumnName(table_.index);
    std::string sql = "SELECT " + std::string(records ? "addr, val" : col + ", addr, val") +
                      " FROM " + txn_->table() + " WHERE ";
    std::vector<pg::Param> params;
    uint32_t bound = 0;
    if (from) {
        sql += col + (asc ? (inclusive ? " >= $1" : " > $1") : (inclusive ? " <= $1" : " < $1"));
        if (records) {
            std::memcpy(&bound, from->data(), std::min<size_t>(from->size(), 4));
            params.push_back(pg::Param::Int8(bound));
        } else {
            params.push_back(pg::Param::Bytes(from->data(), from->size()));
        }
    } else {
        sql += col + " IS NOT NULL";
    }
    sql += " ORDER BY " + col + (asc ? " ASC" : " DESC") + " LIMIT " + std::to_string(limit);
    pg::Result r;
    if (Status st = txn_->session().Run(sql.c_str(), params, &r)) return txn_->Failed(st);
    if (batches_.size() == 2) {
        txn_->ForgetAhead();  // some of the rows it remembers go now
        batches_.pop_front();
    }
    batches_.push_back(std::move(r));
    const pg::Result& b = batches_.back();
    rows_.clear();
    rows_.resize(size_t(b.rows()));
    asc_ = asc;
    pos_ = 0;
    int key = records ? -1 : 0, addr = records ? 0 : 1, val = records ? 1 : 2;
    for (int i = 0; i < b.rows(); ++i) {
        Row& row = rows_[size_t(i)];
        row.address = uint32_t(b.Int8(i, addr));
        row.value = ValOf(b.Data(i, val), b.Size(i, val));
        if (records) {
            row.key = ValOf(&row.address, 4);  // rows_ stays put until the next batch
        } else {
            row.key = ValOf(b.Data(i, key), b.Size(i, key));
            txn_->Remember(row.address, row.value);
        }
    }
    return rows_.empty() ? MDB_NOTFOUND : 0;
}

int PgCursor::At(Val* k, Val* v) {
    const Row& row = rows_[pos_];
    *k = row.key;
    current_.assign(static_cast<const char*>(row.key.mv_data), row.key.mv_size);
    positioned_ = true;
    if (table_.kind != Table::Kind::Index) {
        *v = row.value;
        return 0;
    }
    std::string value(reinterpret_cast<const char*>(&row.address), 4);
    if (table_.clustered) {
        size_t head;
        const uint8_t* p = static_cast<const uint8_t*>(row.value.mv_data);
        if (!RecordBody(p, row.value.mv_size, head)) return MDB_CORRUPTED;
        value.append(reinterpret_cast<const char*>(p), 4);
        value.append(reinterpret_cast<const char*>(p) + head, row.value.mv_size - head);
    }
    *v = txn_->Keep(std::move(value));
    return 0;
}

int PgCursor::Seek(const Val& x, bool exact, Val* k, Val* v) {
    std::string from(static_cast<const char*>(x.mv_data), x.mv_size);
    nextLimit_ = 8;
    int rc = Fetch(&from, true, true, exact ? 1 : 2);
    if (rc) return rc;
    if (exact && (rows_[0].key.mv_size != x.mv_size ||
                  std::memcmp(rows_[0].key.mv_data, x.mv_data, x.mv_size) != 0)) {
        rows_.clear();
        return MDB_NOTFOUND;
    }
    return At(k, v);
}

int PgCursor::Step(bool forward, Val* k, Val* v) {
    if (!positioned_) {
        nextLimit_ = 8;
        int rc = Fetch(nullptr, false, forward, 2);
        return rc ? rc : At(k, v);
    }
    bool fresh = writesSeen_ == txn_->writes() && !rows_.empty();
    if (fresh) {
        if (forward == asc_ && pos_ + 1 < rows_.size()) {
            ++pos_;
            return At(k, v);
        }
        if (forward != asc_ && pos_ > 0) {
            --pos_;
            return At(k, v);
        }
    }
    // Rows read ahead grow while the walk goes on: a scan is not a round
    // trip per record.
    size_t limit = std::max<size_t>(nextLimit_, 2);
    nextLimit_ = std::min<size_t>(limit * 4, 512);
    std::string from = current_;
    int rc = Fetch(&from, false, forward, limit);
    if (rc) {
        rows_.clear();
        return rc;
    }
    return At(k, v);
}

int PgCursor::Get(Val* k, Val* v, MDB_cursor_op op) {
    *v = Val{0, nullptr};
    switch (op) {
        case MDB_FIRST:
        case MDB_LAST:
            positioned_ = false;
            return Step(op == MDB_FIRST, k, v);
        case MDB_NEXT:
            return Step(true, k, v);
        case MDB_PREV:
            return Step(false, k, v);
        case MDB_SET:
        case MDB_SET_KEY:
            return Seek(*k, true, k, v);
        case MDB_SET_RANGE:
            return Seek(*k, false, k, v);
        case MDB_GET_CURRENT:
            if (!positioned_ || rows_.empty()) return EINVAL;
            return At(k, v);
        default:
            return EINVAL;
    }
}

// ---- The maps' entry points (kv.h) -------------------------------------------

int PgGet(PgTxn* t, const Table& table, Val* k, Val* v) {
    return t->Get(table, k, v);
}
int PgPut(PgTxn* t, const Table& table, Val* k, Val* v, unsigned flags) {
    return t->Put(table, k, v, flags);
}
int PgDel(PgTxn* t, const Table& table, Val* k) {
    return t->Del(table, k);
}
PgCursor* PgOpenCursor(PgTxn* t, const Table& table) {
    return new PgCursor(*t, table);
}
void PgCloseCursor(PgCursor* c) {
    delete c;
}
void PgRenewCursor(PgCursor* c, PgTxn* t) {
    c->Renew(*t);
}
int PgCursorGet(PgCursor* c, Val* k, Val* v, MDB_cursor_op op) {
    return c->Get(k, v, op);
}

}  // namespace recman
