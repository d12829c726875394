// The engine behind BTRCALLID: one per process. Every call runs under one
// process-wide mutex; a call that meets a lock or a busy writer slot gives the
// mutex up while it waits and then runs again from the start.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "recman/fileenv.h"
#include "recman/handle.h"
#include "recman/keeper.h"
#include "recman/pg_session.h"
#include "recman/recman.h"
#include "recman/recovery.h"
#include "recman/status.h"
#include "recman/store.h"

namespace recman {

struct Request {
    uint16_t op = 0;    // operation without biases
    uint16_t lock = 0;  // lock bias: 0, 100, 200, 300 or 400
    bool keyOnly = false;
    bool concurrent = false;  // Begin Transaction with the 1000 bias
    uint8_t* pos = nullptr;
    uint8_t* data = nullptr;
    uint32_t* dataLen = nullptr;
    uint8_t* key = nullptr;
    uint8_t keyLen = 0;
    int8_t keyNum = 0;
    Client* client = nullptr;

    uint32_t DataLen() const { return dataLen ? *dataLen : 0; }
    bool Waits() const { return lock == 100 || lock == 300; }
    bool IsChange() const;
};

struct ClientKeyHash {
    size_t operator()(const ClientKey& k) const;
};

class Engine {
  public:
    static Engine& Instance();
    int16_t Call(uint16_t op, void* pos, void* data, uint32_t* dataLen, void* key, uint8_t keyLen,
                 int8_t keyNum, const uint8_t* clientId);

    // Gives up read snapshots that no call has used for a while, so that a
    // quiet process does not hold back the reuse of pages in the files.
    void ReleaseIdleSnapshots();

    // Consistency check of a file (see check.h), through this process's
    // environment of the file.
    Status Check(const std::string& path, std::vector<std::string>& problems);

    // For benchmarks only: with `on` false, transactions commit file after
    // file without a journal, as they did before there was one.
    void SetJournalForComparison(bool on);
    // For tests and benchmarks only: Create makes files of this format
    // version (the first kept no checksums).
    void SetCreateVersionForComparison(uint16_t version);

  private:
    Engine();
    void StartReaper();
    static bool Decode(uint16_t op, Request& r);
    Status Dispatch(Request& r);
    Client* ClientFor(const uint8_t* id);
    Handle* HandleOf(const Request& r, Status& st);
    void CloseHandle(Handle* h);
    void ResetClient(Client& c);
    void AfterFork();

    // Files and environments.
    Status AcquireEnv(const std::string& path, std::shared_ptr<FileEnv>& out);
    bool FileInUse(const std::string& path);

    // Reading: the transaction a handle reads through, and cursors in it.
    struct CursorRef {
        Cursor* c = nullptr;
        Cursor temp;  // a cursor of this call alone, inside a transaction
    };
    // `pending` receives the counters of the client's open transaction on the
    // file, when the read goes through it (they are stored only at its end).
    Status ReadTxn(Handle& h, Txn& txn, bool& shared, const FileState** pending = nullptr);
    Status IndexCursor(Handle& h, Txn txn, bool shared, const KeyDef& key, CursorRef& out);
    Status RecordCursor(Handle& h, Txn txn, bool shared, CursorRef& out);
    void SyncCursors(Handle& h);

    // Writing: inside a transaction through its storage transaction on the
    // file; otherwise one storage transaction per change, under the file's
    // writer slot.
    template <class F>
    Status RunWrite(Handle& h, F&& change);
    template <class F>
    Status RunSingleWrite(Handle& h, F&& change);
    // Puts the call at the head of the file's writer queue: at once when the
    // queue is free (`own`: this call took it and gives it back), or through
    // a wait in the kernel that Call runs before it sends the request again.
    Status EnterQueue(const std::shared_ptr<FileEnv>& env, bool& own);

    // Files in a server's database (RECMAN_SERVER) instead of on disk.
    bool server_ = false;
    // The client's own connection, for its transactions.
    Status ClientSession(Client& c, pg::Session*& out);
    Status JoinServerFile(Client& c, const std::shared_ptr<FileEnv>& env, TxnFile*& out);
    void EndServerFiles(Client& c, bool commit, Status& st);
    // A connection found lost: the client's transaction went with it.
    void DropLostTransaction(Client& c);

    // Transactions.
    Keeper& TxnKeeper();
    TxnFile* FindTxnFile(Client& c, const FileEnv* env);
    Status JoinFile(Client& c, const std::shared_ptr<FileEnv>& env, TxnFile*& out);
    void EndFiles(Client& c, bool commit, Status& st);
    // Gives back the record locks taken inside the client's transaction, and
    // forgets the transaction.
    void ReleaseTxnLocks(Client& c);

    // Commit journals (ops_journal.cpp). A transaction that changed several
    // files ends through one; every file's storage transaction ends in it.
    Status EndJournaled(const std::vector<TxnFile*>& files);
    // Puts the counters and the journal's mark into each file's storage
    // transaction and gathers the journal; `paths` and `copy` say where the
    // files lie.
    Status PrepareJournal(const std::vector<TxnFile*>& files, Journal& j,
                          std::vector<std::string>& paths, std::vector<bool>& copy);
    // A writer that has just taken a file's writer slot settles the journals
    // beside it first.
    Status SettleForWrite(FileEnv& env, Leftover& left);
    // An opener settles the journals beside the file, then their other files.
    Status RecoverOnOpen(const std::shared_ptr<FileEnv>& env);
    void SettleOther(const std::string& path, const FileEnv* except);
    Status BeginTransaction(Request& r);
    Status FinishTransaction(Request& r, bool commit);

    // Locks.
    // `shared`: the record was read through the shared snapshot, which must
    // still be current once the lock is held.
    // `version`: the version of the record as read.
    Status TakeLock(Handle& h, uint32_t address, uint32_t version, uint16_t bias, bool shared);
    Status CheckNotLockedByOther(Handle& h, uint32_t address);

    // Operations.
    Status Open(Request& r);
    Status Close(Request& r);
    Status Create(Request& r);
    Status Stat(Request& r);
    Status Version(Request& r);
    Status Reset(Request& r);
    Status Stop(Request& r);
    Status SetOwner(Request& r);
    Status ClearOwner(Request& r);
    Status GetKeyed(Request& r);
    Status Step(Request& r);
    Status GetDirect(Request& r);
    Status GetPosition(Request& r);
    Status Insert(Request& r);
    Status Update(Request& r);
    Status Delete(Request& r);
    Status Unlock(Request& r);
    Status CreateIndex(Request& r);
    Status DropIndex(Request& r);
    Status Extended(Request& r);

    // Damage met through a handle: its file is marked, the read answers 2.
    Status Damage(Handle& h);

    // Hands a found record to the caller and moves the currency onto it.
    Status Deliver(Request& r, Handle& h, const StoredRecord& rec, const KeyDef* path,
                   const Val* entry, bool shared);

    std::mutex mu_;
    Keeper* keeper_ = nullptr;  // started on first use; never destroyed
    std::unordered_map<ClientKey, std::unique_ptr<Client>, ClientKeyHash> clients_;
    std::vector<std::unique_ptr<Handle>> handles_;  // by handle number - 1
    std::vector<uint32_t> freeHandles_;
    std::map<std::pair<dev_t, ino_t>, std::weak_ptr<FileEnv>> envs_;
    std::map<std::string, std::weak_ptr<FileEnv>> serverEnvs_;  // by path
    uint32_t token_ = 0;  // marks this process's position blocks
    Client* lastClient_ = nullptr;
    // The writer queue of the call under way: the file whose queue it wants,
    // and the one it holds through a wait (see EnterQueue).
    std::shared_ptr<FileEnv> queueWanted_;
    const FileEnv* queueHeld_ = nullptr;
    bool forked_ = false;
    bool journaled_ = true;
    uint16_t createVersion_ = kFormatVersion;
    friend void ForkChild();
    friend void ForkPrepare();
    friend void ForkParent();
};

template <class F>
Status Engine::RunWrite(Handle& h, F&& change) {
    if (h.env->readOnlyStorage()) return RM_ACCESS_DENIED;
    if (h.env->damaged()) return RM_IO_ERROR;  // nothing more goes into a damaged file
    Client& c = *h.client;
    if (!c.txn.active) return RunSingleWrite(h, change);
    TxnFile* f;
    if (Status st = JoinFile(c, h.env, f)) return st;
    if (f->doomed) return f->doomed;
    Store store(*h.env, f->txn, journaled_ ? &f->changes : nullptr);
    Status st = change(store, f->state);
    // Changes check everything before they write, so only a failure of the
    // storage itself can leave one half done; the transaction can then only
    // be aborted.
    if (st == kMapFull) st = RM_DISK_FULL;
    if (st == RM_IO_ERROR || st == RM_DISK_FULL) f->doomed = st;
    return st;
}

template <class F>
Status Engine::RunSingleWrite(Handle& h, F&& change) {
    FileEnv& env = *h.env;
    if (env.txnOwner && env.txnOwner != h.client) return kBlockedByWriter;
    if (env.server()) {
        // The server orders the writers (see fileenv_pg.cpp).
        Txn txn;
        FileState state;
        if (Status st = env.BeginWrite(txn, state)) return st;
        Store store(env, txn);
        Status st = change(store, state);
        if (st == RM_OK) return env.CommitWrite(txn, state);
        env.AbortWrite(txn);
        return st;
    }
    bool ownQueue = false;
    if (Status st = EnterQueue(h.env, ownQueue)) return st;
    if (!env.TryWriterSlot()) {
        if (ownQueue) env.ReleaseQueue();
        return env.TxnInOtherProcess() ? kBlockedByWriter : kWriterBusy;
    }
    Leftover left;
    Status st = SettleForWrite(env, left);
    for (int attempt = 0; st == RM_OK; ++attempt) {
        Txn txn;
        FileState state;
        if ((st = env.BeginWrite(txn, state))) break;
        Store store(env, txn);
        st = change(store, state);
        if (st == RM_OK)
            st = env.CommitWrite(txn, state);
        else
            env.AbortWrite(txn);
        if (st != kMapFull) break;
        // The map is full: make it larger and run the change again.
        if (attempt == 8 || (st = env.Grow())) {
            st = RM_DISK_FULL;
            break;
        }
    }
    // This commit, flushed, makes the journals applied before it removable.
    if (st == RM_OK) RetireNames(left.sidecars, false);
    env.ReleaseWriterSlot();
    if (ownQueue) env.ReleaseQueue();
    return st;
}

}  // namespace recman
