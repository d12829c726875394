// Transactions: per client, collecting its changes file by file until End.
#include <algorithm>

#include "recman/engine.h"
#include "recman/pg_storage.h"

namespace recman {

Keeper& Engine::TxnKeeper() {
    if (!keeper_) keeper_ = new Keeper;  // lives to the end of the process
    return *keeper_;
}

TxnFile* Engine::FindTxnFile(Client& c, const FileEnv* env) {
    for (TxnFile& f : c.txn.files)
        if (f.env.get() == env) return &f;
    return nullptr;
}

// Gives the client's transaction the file's writer slot and a storage
// transaction on it, unless it has them already.
Status Engine::JoinFile(Client& c, const std::shared_ptr<FileEnv>& env, TxnFile*& out) {
    if ((out = FindTxnFile(c, env.get()))) return RM_OK;
    if (env->readOnlyStorage()) return RM_ACCESS_DENIED;
    if (env->txnOwner) return kBlockedByWriter;  // another client of this process
    if (env->server()) return JoinServerFile(c, env, out);
    bool ownQueue = false;
    if (Status st = EnterQueue(env, ownQueue)) return st;
    Status st = RM_OK;
    if (!env->TryWriterSlot()) {
        st = env->TxnInOtherProcess() ? kBlockedByWriter : kWriterBusy;
    } else if (!env->TryTxnMark()) {
        env->ReleaseWriterSlot();
        st = kWriterBusy;
    }
    // Once the slot is held the queue moves on: the transaction keeps the
    // slot, and those behind it learn so.
    if (ownQueue) env->ReleaseQueue();
    if (st) return st;
    Leftover left;
    TxnFile f;
    f.env = env;
    st = SettleForWrite(*env, left);
    // A file a transaction takes may come to be named by a journal.
    if (st == RM_OK && journaled_ && !env->MayHaveJournals()) st = env->AllowJournals();
    if (st == RM_OK) TxnKeeper().Run([&] { st = env->BeginWrite(f.txn, f.state); });
    if (st) {
        env->ReleaseTxnMark();
        env->ReleaseWriterSlot();
        return st;
    }
    f.baseTxn = FileEnv::BaseOf(f.txn);
    f.baseState = f.state.Serialize();
    f.retire = std::move(left.sidecars);
    f.baseCovered = left.coveredTxn != 0 && left.coveredTxn == f.baseTxn;
    env->txnOwner = &c;
    c.txn.files.push_back(std::move(f));
    out = &c.txn.files.back();
    return RM_OK;
}

// Commits (or aborts) the client's transaction, then gives back the writer
// slots and the locks taken inside it. A file the transaction only read is
// left as it was; one changed file takes one storage commit; several go
// through a commit journal, all or none.
void Engine::EndFiles(Client& c, bool commit, Status& st) {
    if (server_) return EndServerFiles(c, commit, st);
    st = RM_OK;
    std::vector<TxnFile*> changed;
    for (TxnFile& f : c.txn.files) {
        if (commit && f.doomed && st == RM_OK) st = f.doomed;
        // Damage found in a file meanwhile: the transaction does not end in it.
        if (commit && f.env->damaged() && st == RM_OK) st = RM_IO_ERROR;
        if (!journaled_ || !f.changes.empty()) changed.push_back(&f);
    }
    if (st != RM_OK) commit = false;
    bool journal = commit && journaled_ && changed.size() > 1;
    if (journal) st = EndJournaled(changed);
    for (TxnFile& f : c.txn.files) {
        bool keep = commit && std::find(changed.begin(), changed.end(), &f) != changed.end();
        if (journal && keep) continue;  // ended with the journal
        Status fs = RM_OK;
        TxnKeeper().Run([&] {
            if (keep && st == RM_OK) {
                fs = f.env->CommitWrite(f.txn, f.state);
            } else {
                f.env->AbortWrite(f.txn);
                fs = keep ? st : RM_OK;
            }
        });
        if (fs == kMapFull) fs = RM_DISK_FULL;
        if (st == RM_OK) st = fs;
        // Journals applied before are flushed with this commit.
        if (keep && fs == RM_OK) RetireNames(f.retire, false);
    }
    for (TxnFile& f : c.txn.files) {
        f.env->txnOwner = nullptr;
        f.env->ReleaseTxnMark();
        f.env->ReleaseWriterSlot();
    }
    ReleaseTxnLocks(c);
}

void Engine::ReleaseTxnLocks(Client& c) {
    for (const Transaction::Lock& l : c.txn.locks) {
        if (l.handle == 0 || l.handle > handles_.size()) continue;
        Handle* h = handles_[l.handle - 1].get();
        if (h && h->generation == l.generation) h->ReleaseLock(l.address);
    }
    c.txn = Transaction{};
}

// ---- Transactions on a server: the server's own, across files -------------

Status Engine::ClientSession(Client& c, pg::Session*& out) {
    if (!c.server) {
        if (Status st = pg::Session::Connect(pg::ServerFromEnv(), c.server)) return st;
    } else if (!c.server->alive()) {
        if (Status st = c.server->Reconnect()) return st;
    }
    out = c.server.get();
    return RM_OK;
}

Status Engine::JoinServerFile(Client& c, const std::shared_ptr<FileEnv>& env, TxnFile*& out) {
    pg::Session* s;
    if (Status st = ClientSession(c, s)) return st;
    TxnFile f;
    f.env = env;
    if (Status st = env->JoinServerWrite(*s, f.txn, f.state)) return st;
    env->txnOwner = &c;
    c.txn.files.push_back(std::move(f));
    out = &c.txn.files.back();
    return RM_OK;
}

void Engine::EndServerFiles(Client& c, bool commit, Status& st) {
    st = RM_OK;
    for (TxnFile& f : c.txn.files)
        if (commit && f.doomed && st == RM_OK) st = f.doomed;
    if (st != RM_OK) commit = false;
    // Each file's counters go in, then one commit makes all of it durable.
    for (TxnFile& f : c.txn.files)
        if (commit && st == RM_OK) st = f.env->CommitWrite(f.txn, f.state);
    if (st != RM_OK) commit = false;
    if (c.server && c.server->InTransaction()) {
        Status cs = c.server->Script(commit ? "COMMIT" : "ROLLBACK");
        if (commit && st == RM_OK) st = cs;
    }
    for (TxnFile& f : c.txn.files) {
        f.env->EndServerWrite(f.txn);
        f.env->txnOwner = nullptr;
    }
    ReleaseTxnLocks(c);
}

void Engine::DropLostTransaction(Client& c) {
    if (!server_ || !c.txn.active) return;
    if (!c.server || c.server->alive()) return;  // only its own connection's loss ends it
    // Nothing of it was committed, and its locks went with the connection.
    for (TxnFile& f : c.txn.files) {
        f.env->EndServerWrite(f.txn);
        f.env->txnOwner = nullptr;
    }
    ReleaseTxnLocks(c);
}

Status Engine::BeginTransaction(Request& r) {
    Client& c = *r.client;
    if (c.txn.active) return RM_TRANSACTION_ACTIVE;
    c.txn = Transaction{};
    c.txn.active = true;
    c.txn.exclusive = !r.concurrent;
    return RM_OK;
}

// End commits and answers the commit's status; abort always succeeds.
Status Engine::FinishTransaction(Request& r, bool commit) {
    Client& c = *r.client;
    if (!c.txn.active) return RM_NO_TRANSACTION;
    Status st;
    EndFiles(c, commit, st);
    return commit ? st : RM_OK;
}

}  // namespace recman
