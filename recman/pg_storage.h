// Files kept in a PostgreSQL database instead of LMDB files (RECMAN_SERVER).
//
// The database holds a catalogue from a file's path to its number, the
// file's metadata (definition, counters) as rows of recman_meta, and one
// table per file: a row per record under its address, with one column per
// key holding the record's index entry, and a unique btree index on each
// such column (the entries' bytes sort the way the keys order them).
//
// PgTxn and PgCursor give that layout the shape of the maps the operations
// use (kv.h): a write to a key's map sets the key's column in the record's
// row, a read of it finds the row by that column. Writes are gathered per
// row and sent as one statement; every read sends what is gathered first.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "recman/filedef.h"
#include "recman/kv.h"
#include "recman/pg_session.h"

namespace recman {

namespace pg {

// The connection string of RECMAN_SERVER, or empty when files live on disk.
const std::string& ServerFromEnv();

// The process's own connection to the server: reads and single changes go
// through it, and it holds the process's record locks and open modes. Made
// on first use and again after it was lost, at an Open or Create.
Status MainSession(Session*& out, bool reconnect);
// Drops the process's connection (after fork, the child's is not its own).
void AbandonMainSession();

// Makes the catalogue on first use.
Status EnsureSchema(Session& s);
// The number of the file at `path`; RM_FILE_NOT_FOUND when there is none.
Status LookupFile(Session& s, const std::string& path, int64_t& id);
// Makes the file (replacing one there), or removes it.
Status CreateFile(Session& s, const std::string& path, const FileDef& def);
Status RemoveFile(Session& s, const std::string& path);

// Keys of the advisory locks a file's users take on the server.
enum class LockKind : int32_t { Record = 0, Slot = 1, TxnMark = 2, Open = 3 };
inline int32_t LockSpace(int64_t file, LockKind k) {
    return int32_t(file * 4 + int32_t(k));
}

// The name of a file's table and of a key's column in it.
std::string TableName(int64_t file);
std::string ColumnName(uint16_t indexId);

}  // namespace pg

class PgCursor;

class PgTxn {
  public:
    // `write`: a server transaction is open on `s` for this file's changes;
    // otherwise each read is a statement of its own (the latest commit).
    PgTxn(pg::Session& s, int64_t file, bool write);

    int Get(const Table& t, Val* k, Val* v);
    int Put(const Table& t, Val* k, Val* v, unsigned flags);
    int Del(const Table& t, Val* k);

    // A key's column and its index, made or dropped (Create and Drop Index).
    Status AddIndex(uint16_t id);
    Status DropIndex(uint16_t id);

    // Sends the gathered writes; every read and the commit do it first.
    int Flush();
    // Forgets values handed out (a new call), and rows read ahead.
    void Release();

    // A single change's own server transaction (else a client's).
    bool single = false;

    pg::Session& session() { return s_; }
    int64_t file() const { return file_; }
    bool write() const { return write_; }
    const std::string& table() const { return table_; }
    // Changes with every write: a cursor's rows read before are stale.
    uint64_t writes() const { return writes_; }

    // Keeps `r` alive while the values it holds may be in use.
    const pg::Result& Hold(pg::Result&& r);
    // A value made here (a key's entry as its map shows it).
    Val Keep(std::string&& bytes);
    // The answer of a failed statement.
    int Failed(Status st);

    // A record row read ahead by a cursor of a key's map, so that finding
    // the record it points at needs no statement of its own.
    void Remember(uint32_t address, Val v) { ahead_[address] = v; }
    bool Ahead(uint32_t address, Val& v) const;
    void ForgetAhead() { ahead_.clear(); }

  private:
    struct Pending {
        bool hasValue = false;
        std::string value;
        std::map<uint16_t, std::string> entries;  // index id -> entry
    };
    // Rows read before a write may be out of date after it.
    void Wrote() {
        ++writes_;
        ahead_.clear();
    }
    int GetMeta(Val* k, Val* v);
    int PutMeta(Val* k, Val* v);

    pg::Session& s_;
    int64_t file_;
    std::string table_;
    bool write_;
    uint64_t writes_ = 0;
    std::map<uint32_t, Pending> pending_;
    std::deque<pg::Result> held_;
    std::deque<std::string> kept_;
    std::map<uint32_t, Val> ahead_;
};

// A walk through one map of a PgTxn, reading rows in batches.
class PgCursor {
  public:
    PgCursor(PgTxn& txn, const Table& t) : txn_(&txn), table_(t) {}
    // Rows read ahead are the cursor's: the transaction forgets them with it.
    ~PgCursor() { txn_->ForgetAhead(); }
    PgCursor(const PgCursor&) = delete;
    PgCursor& operator=(const PgCursor&) = delete;
    int Get(Val* k, Val* v, MDB_cursor_op op);
    void Renew(PgTxn& txn);

  private:
    struct Row {
        Val key, value;
        uint32_t address;
    };
    // Reads rows after (`asc`) or before `from` (or from an end when null),
    // `inclusive` taking `from` itself.
    int Fetch(const std::string* from, bool inclusive, bool asc, size_t limit);
    int At(Val* k, Val* v);
    int Seek(const Val& x, bool exact, Val* k, Val* v);
    int Step(bool forward, Val* k, Val* v);

    PgTxn* txn_;
    Table table_;
    std::deque<pg::Result> batches_;  // the current one and the one before
    std::vector<Row> rows_;
    bool asc_ = true;
    size_t pos_ = 0;
    bool positioned_ = false;
    std::string current_;  // the key of the row the cursor is on
    uint64_t writesSeen_ = 0;
    size_t nextLimit_ = 0;
};

}  // namespace recman
