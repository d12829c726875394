// One record file on disk: an LMDB environment (data file at the caller's
// path, a "-lock" sidecar beside it) holding the file's definition, its
// counters, its records and one index per key. A process opens each file once
// and shares the environment among its handles.
#pragma once

#include <lmdb.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "recman/filedef.h"
#include "recman/journal.h"
#include "recman/kv.h"
#include "recman/oslock.h"

namespace recman {

class PgTxn;
namespace pg {
class Session;
}

// Counters kept with the file and changed by every write.
struct FileState {
    uint32_t records = 0;
    uint32_t nextAddress = 1;
    uint64_t nextSeq = 1;  // orders duplicates: insertion order within equal values
    uint32_t defGen = 1;   // raised when the definition changes (indexes, owner)
    std::vector<std::pair<uint16_t, uint32_t>> unique;  // index id -> distinct values

    uint32_t Unique(uint16_t id) const;
    uint32_t& UniqueRef(uint16_t id);
    std::string Serialize() const;
    bool Deserialize(const void* data, size_t len);
};

// Maps an LMDB, server or system error to a status.
Status StatusOf(int rc);

// The absolute path of `path` with every link resolved (as far as it exists).
std::string CanonicalPath(const std::string& path);

// How far commits are flushed (RECMAN_SYNC).
enum class SyncMode { Normal, Full, Off };
SyncMode SyncModeFromEnv();

class FileEnv {
  public:
    ~FileEnv();
    FileEnv(const FileEnv&) = delete;
    FileEnv& operator=(const FileEnv&) = delete;

    // Opens the file at `path`; 12 when missing, 30 when it is not a record
    // file of this format, 2 on other failures. With RECMAN_SERVER set, the
    // file of that path in the server's database.
    static Status Open(const std::string& path, std::unique_ptr<FileEnv>& out);
    // Writes a new, empty file for `def` at `path` (replacing what is there).
    static Status CreateFile(const std::string& path, const FileDef& def);
    // Whether there is a file at `path`, and its removal (with what lies
    // beside it: lock table, journals).
    static Status Exists(const std::string& path, bool& exists);
    static Status RemoveFile(const std::string& path);

    // The file lives in the server's database (the server's number for it),
    // not in an LMDB file.
    bool server() const { return serverFile_ != 0; }
    int64_t serverFile() const { return serverFile_; }
    // A write on the server inside a client's transaction, on the client's
    // own connection: the file's changes join the server transaction open
    // there (begun if none is). Ended by the caller's COMMIT or ROLLBACK,
    // then EndServerWrite.
    Status JoinServerWrite(pg::Session& s, Txn& out, FileState& state);
    void EndServerWrite(Txn txn);
    // Whether the record at `address` is other than `version` in the
    // latest commit (server files; on disk, whether the snapshot is stale).
    bool ChangedSince(uint32_t address, uint32_t version);

    const std::string& path() const { return path_; }
    // The file's absolute path with every link resolved, as found at open.
    const std::string& canonicalPath() const { return canonical_; }
    dev_t device() const { return dev_; }
    ino_t inode() const { return ino_; }
    bool readOnlyStorage() const { return readOnly_; }

    // The definition as of the last transaction that looked at the file.
    const FileDef& def() const { return def_; }
    Table records() const { return {Table::Kind::Records, 0, false, recDbi_}; }
    Table meta() const { return {Table::Kind::Meta, 0, false, metaDbi_}; }
    // The index of key `id`; none when the file has no such index.
    Table Index(uint16_t id) const;

    // A read snapshot of the latest committed state, shared by every reader
    // that is not inside its own write. Renewed when someone has committed
    // since; generation() changes with every renewal.
    Status Snapshot(Txn& out);
    uint64_t generation() const { return gen_; }
    // True when someone has committed since the snapshot began.
    bool SnapshotStale() const;
    void ReleaseSnapshot();
    // A live snapshot keeps every page freed after it from being reused, so
    // one that no call has used since the previous sweep is given up.
    void SweepSnapshot();

    // Write transactions. The caller holds the file's writer slot.
    Status BeginWrite(Txn& out, FileState& state);
    Status CommitWrite(Txn txn, const FileState& state);
    void AbortWrite(Txn txn);
    // A commit in parts, for transactions that span files: the counters and
    // the mark of the journal being applied go in, then the commit (which
    // ends the transaction, whatever it answers).
    Status PutState(Txn txn, const FileState& state);
    Status PutMark(Txn txn, const JournalId& id);
    Status Commit(Txn txn);
    // The mark of the last journal applied to the file (zeros when none).
    Status LoadMark(Txn txn, JournalId& id);
    // Whether journals may lie beside the file: it carries a mark (zeros
    // until a journal is applied) from the first time a transaction took
    // it, before any journal can name it. Files without one are not looked
    // beside at each write.
    bool MayHaveJournals();
    Status AllowJournals();
    // The file's last commit as a write transaction sees it.
    static uint64_t BaseOf(Txn txn) { return txn.Id() - 1; }
    // The last commit of the file, by any process.
    uint64_t LastCommit() const;

    // Flushes the file, meta page included: every commit made before, by
    // any process, is then durable.
    Status SyncNow();
    // The last commit this process knows to be durable.
    uint64_t durableTxn() const { return durableTxn_; }
    SyncMode syncMode() const { return sync_; }
    // Grows the map after a write answered MDB_MAP_FULL (no write open).
    Status Grow();

    // Definition changes made inside a write transaction.
    Status StoreDef(Txn txn, FileDef def, FileState& state);
    Status CreateIndexDb(Txn txn, uint16_t id);
    Status DropIndexDb(Txn txn, uint16_t id);

    // Reads the counters as a transaction sees them.
    Status LoadState(Txn txn, FileState& state);

    // Writers queue for the writer slot: a change outside a transaction holds
    // the queue for its whole commit, a transaction only while it takes the
    // slot. Whoever holds the queue and still finds the slot taken has met a
    // transaction.
    bool TryQueue() { return writerLock_.TryLock(kQueueLockByte, true); }
    void ReleaseQueue() { writerLock_.Unlock(kQueueLockByte); }
    int lockFd() const { return writerLock_.fd(); }

    // The process-wide writer slot of this file, shared with other processes.
    bool TryWriterSlot() { return writerLock_.TryLock(kWriterLockByte, true); }
    void ReleaseWriterSlot() { writerLock_.Unlock(kWriterLockByte); }
    // Marks the slot as held by a transaction, for locking reads elsewhere.
    bool TryTxnMark() { return writerLock_.TryLock(kTxnLockByte, true); }
    void ReleaseTxnMark() { writerLock_.Unlock(kTxnLockByte); }
    bool TxnInOtherProcess();

    // The client of this process whose transaction holds the writer slot.
    const void* txnOwner = nullptr;

    void Flush();
    // Leaves the environment to the process that opened it (after fork).
    void Abandon();

    // Damage found in the file (a checksum that does not match, a fault in
    // its pages, a structure that does not hold): from then on this process
    // changes nothing in it, and the read that found it answers 2.
    Status Damaged();
    bool damaged() const { return damaged_; }

  private:
    FileEnv() = default;
    Status Init(const std::string& path);
    Status ReloadDef(Txn txn, uint32_t defGen);
    Status OpenIndexDbs();
    Status AdoptMapSize();
    Status BeginRead(MDB_txn*& txn);
    // The whole structure is checked once before this process first changes
    // the file: the storage library writes only into pages that hold.
    Status VerifyBeforeWrite();

    std::string path_;
    std::string canonical_;
    SyncMode sync_ = SyncMode::Normal;
    uint64_t durableTxn_ = 0;
    dev_t dev_ = 0;
    ino_t ino_ = 0;
    bool readOnly_ = false;
    MDB_env* env_ = nullptr;
    MDB_dbi metaDbi_ = 0, recDbi_ = 0;
    std::map<uint16_t, MDB_dbi> indexDbi_;
    FileDef def_;
    uint32_t defGen_ = 0;
    bool defTouched_ = false;  // the open write changed the definition or its handles
    MDB_txn* snap_ = nullptr;
    bool snapLive_ = false;
    uint64_t gen_ = 1;
    bool used_ = false;  // the snapshot was used since the last sweep
    size_t mapSize_ = 0;
    bool damaged_ = false;
    bool verified_ = false;
    LockFile writerLock_;

    // The server storage.
    Status InitServer(const std::string& path);
    Status BeginServerWrite(pg::Session& s, bool single, Txn& out, FileState& state);
    Status LoadDefinition(Txn txn, FileState& state);
    Status ServerSnapshot(Txn& out);
    Status ServerCommit(Txn txn, const FileState& state);
    void ServerAbort(Txn txn);
    int64_t serverFile_ = 0;
    std::unique_ptr<PgTxn> serverSnap_;
    std::vector<std::unique_ptr<PgTxn>> serverWrites_;
    uint64_t serverCall_ = 0;  // the engine call the snapshot last served
};

// Numbers the engine's calls, so that the server storage's snapshot knows a
// new call from a later step of the same one.
extern uint64_t g_engineCall;

}  // namespace recman
