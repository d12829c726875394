// What the operations ask of the storage beneath a file: ordered maps of
// byte strings (the file's records by address, one index per key, and its
// metadata), read and written inside a storage transaction, walked with
// cursors. The operations reach the storage only through these types, so
// currency, keys, locks and statuses are written once whatever keeps the
// bytes.
//
// Files on this machine are LMDB environments; files on a server
// (RECMAN_SERVER) are tables of a PostgreSQL database (pg_storage.h).
//
// Answers are the storage library's codes: 0, MDB_NOTFOUND when nothing
// fits, MDB_KEYEXIST for a key already there, MDB_CORRUPTED (and
// MDB_PAGE_NOTFOUND) for damage. A value read points into storage memory
// that stays valid until the transaction's next write or its end.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <string>

namespace recman {

using Val = MDB_val;

// Answers of the server storage among the storage library's codes:
// a statement refused, the connection lost (StatusOf: 91 and 95).
inline constexpr int kPgRefused = -30700;
inline constexpr int kPgLost = -30701;

inline Val ValOf(const void* p, size_t n) {
    return Val{n, const_cast<void*>(p)};
}
inline Val ValOf(const std::string& s) {
    return ValOf(s.data(), s.size());
}

// One map of a file.
struct Table {
    enum class Kind : uint8_t { None, Meta, Records, Index };
    Kind kind = Kind::None;
    uint16_t index = 0;      // the key's index id, for Kind::Index
    bool clustered = false;  // the key's entries carry the record
    MDB_dbi dbi = 0;

    explicit operator bool() const { return kind != Kind::None; }
};

class Cursor;
class PgTxn;
class PgCursor;

// The server storage's side of the maps (pg_storage.cpp).
int PgGet(PgTxn* t, const Table& table, Val* k, Val* v);
int PgPut(PgTxn* t, const Table& table, Val* k, Val* v, unsigned flags);
int PgDel(PgTxn* t, const Table& table, Val* k);
PgCursor* PgOpenCursor(PgTxn* t, const Table& table);
void PgCloseCursor(PgCursor* c);
void PgRenewCursor(PgCursor* c, PgTxn* t);
int PgCursorGet(PgCursor* c, Val* k, Val* v, MDB_cursor_op op);

// A storage transaction: a read snapshot or a write. A small handle, passed
// by value; the storage owns what it stands for.
class Txn {
  public:
    Txn() = default;
    Txn(MDB_txn* t) : mdb_(t) {}  // NOLINT: the LMDB storage hands its own out
    explicit Txn(PgTxn* t) : pg_(t) {}

    explicit operator bool() const { return mdb_ != nullptr || pg_ != nullptr; }
    bool operator==(const Txn& o) const { return mdb_ == o.mdb_ && pg_ == o.pg_; }
    MDB_txn* mdb() const { return mdb_; }
    PgTxn* pg() const { return pg_; }
    // The storage's number of this transaction: a snapshot's is that of the
    // last commit it sees, a write's one more.
    uint64_t Id() const { return mdb_ ? uint64_t(mdb_txn_id(mdb_)) : 0; }

    // The storage library answers success without a value where a page was
    // damaged into a kind its table never has: that is damage as well.
    int Get(const Table& t, Val* k, Val* v) const {
        *v = Val{0, nullptr};
        if (pg_) [[unlikely]]
            return PgGet(pg_, t, k, v);
        int rc = mdb_get(mdb_, t.dbi, k, v);
        return rc == 0 && !v->mv_data ? MDB_CORRUPTED : rc;
    }
    int Put(const Table& t, Val* k, Val* v, unsigned flags) const {
        if (pg_) [[unlikely]]
            return PgPut(pg_, t, k, v, flags);
        return mdb_put(mdb_, t.dbi, k, v, flags);
    }
    int Del(const Table& t, Val* k) const {
        if (pg_) [[unlikely]]
            return PgDel(pg_, t, k);
        return mdb_del(mdb_, t.dbi, k, nullptr);
    }

  private:
    MDB_txn* mdb_ = nullptr;
    PgTxn* pg_ = nullptr;
};

// A position in one map of a transaction. Owns the storage cursor.
class Cursor {
  public:
    Cursor() = default;
    ~Cursor() { Close(); }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    int Open(Txn txn, const Table& t) {
        Close();
        if (txn.pg()) {
            pg_ = PgOpenCursor(txn.pg(), t);
            return 0;
        }
        int rc = mdb_cursor_open(txn.mdb(), t.dbi, &mdb_);
        if (rc) mdb_ = nullptr;
        return rc;
    }
    // Moves the cursor to a newer snapshot of the same map; false when it
    // cannot follow (it is then closed).
    bool Renew(Txn txn) {
        if (pg_ && txn.pg()) {
            PgRenewCursor(pg_, txn.pg());
            return true;
        }
        if (mdb_ && txn.mdb() && mdb_cursor_renew(txn.mdb(), mdb_) == 0) return true;
        Close();
        return false;
    }
    void Close() {
        if (mdb_) mdb_cursor_close(mdb_);
        if (pg_) PgCloseCursor(pg_);
        mdb_ = nullptr;
        pg_ = nullptr;
    }
    // Leaves the storage cursor alone (a forked child's inheritance).
    void Abandon() {
        mdb_ = nullptr;
        pg_ = nullptr;
    }
    bool open() const { return mdb_ != nullptr || pg_ != nullptr; }

    int Get(Val* k, Val* v, MDB_cursor_op op) {
        if (pg_) [[unlikely]]
            return PgCursorGet(pg_, k, v, op);
        *v = Val{0, nullptr};
        int rc = mdb_cursor_get(mdb_, k, v, op);
        return rc == 0 && !v->mv_data ? MDB_CORRUPTED : rc;
    }

  private:
    MDB_cursor* mdb_ = nullptr;
    PgCursor* pg_ = nullptr;
};

}  // namespace recman
