// A record file kept in the server's database: its snapshot, its writes and
// the advisory locks that stand for the writer slot of a file on disk.
//
// A single change holds the file's transaction mark shared and its writer
// slot for its server transaction; a client's transaction holds both
// exclusively on its own connection until it ends. So a change meeting a
// transaction is told at once (84), and changes meeting changes take turns.
#include <algorithm>

#include "recman/bytes.h"
#include "recman/fileenv.h"
#include "recman/pg_storage.h"
#include "recman/recman.h"
#include "recman/status.h"

namespace recman {

uint64_t g_engineCall = 0;

namespace {

using pg::LockKind;
using pg::LockSpace;
using pg::Param;

// Runs a try-lock statement; `got` says whether it was granted.
Status TryLock(pg::Session& s, const char* sql, int64_t file, LockKind k, bool& got) {
    pg::Result r;
    if (Status st = s.Run(sql, {Param::Int4(LockSpace(file, k))}, &r)) return st;
    got = r.rows() == 1 && r.Size(0, 0) == 1 && r.Data(0, 0)[0];
    return RM_OK;
}

}  // namespace

Status FileEnv::InitServer(const std::string& path) {
    path_ = canonical_ = path;
    pg::Session* s;
    if (Status st = pg::MainSession(s, true)) return st;
    if (Status st = pg::LookupFile(*s, path, serverFile_)) return st;
    serverSnap_ = std::make_unique<PgTxn>(*s, serverFile_, false);
    FileState state;
    return LoadDefinition(Txn(serverSnap_.get()), state);
}

Status FileEnv::LoadDefinition(Txn txn, FileState& state) {
    Status st = LoadState(txn, state);
    if (st == RM_OK) st = ReloadDef(txn, state.defGen);
    return st;
}

Status FileEnv::BeginServerWrite(pg::Session& s, bool single, Txn& out, FileState& state) {
    const int64_t f = serverFile_;
    bool began = false;
    auto fail = [&](Status st) {
        if (began) s.Script("ROLLBACK");
        return st;
    };
    if (!s.InTransaction()) {
        if (Status st = s.Script("BEGIN")) return st;
        began = true;
    }
    bool got = false;
    if (single) {
        // A transaction holds the mark exclusively: its changes are not done.
        if (Status st = TryLock(s, "SELECT pg_try_advisory_xact_lock_shared($1, 0)", f,
                                LockKind::TxnMark, got))
            return fail(st);
        if (!got) return fail(kBlockedByWriter);
        if (Status st =
                TryLock(s, "SELECT pg_try_advisory_xact_lock($1, 0)", f, LockKind::Slot, got))
            return fail(st);
        if (!got) return fail(kWriterBusy);
    } else {
        if (Status st = TryLock(s, "SELECT pg_try_advisory_lock($1, 0)", f, LockKind::TxnMark, got))
            return fail(st);
        if (!got) {
            // Single changes hold the mark shared for a moment; another
            // transaction holds it for its whole length.
            bool shared = false;
            if (Status st = TryLock(s, "SELECT pg_try_advisory_lock_shared($1, 0)", f,
                                    LockKind::TxnMark, shared))
                return fail(st);
            if (shared)
                s.Run("SELECT pg_advisory_unlock_shared($1, 0)",
                      {Param::Int4(LockSpace(f, LockKind::TxnMark))});
            return fail(shared ? kWriterBusy : kBlockedByWriter);
        }
        if (Status st = TryLock(s, "SELECT pg_try_advisory_lock($1, 0)", f, LockKind::Slot, got))
            return fail(st);
        if (!got) {
            s.Run("SELECT pg_advisory_unlock($1, 0)",
                  {Param::Int4(LockSpace(f, LockKind::TxnMark))});
            return fail(kWriterBusy);
        }
    }
    auto txn = std::make_unique<PgTxn>(s, f, true);
    txn->single = single;
    Status st = LoadDefinition(Txn(txn.get()), state);
    if (st != RM_OK) {
        if (!single) EndServerWrite(Txn(txn.get()));
        return fail(st);
    }
    out = Txn(txn.get());
    serverWrites_.push_back(std::move(txn));
    return RM_OK;
}

Status FileEnv::JoinServerWrite(pg::Session& s, Txn& out, FileState& state) {
    return BeginServerWrite(s, false, out, state);
}

void FileEnv::EndServerWrite(Txn txn) {
    PgTxn* t = txn.pg();
    if (!t || !t->write()) return;
    if (!t->single) {
        // A transaction's locks are its connection's: given back after its
        // COMMIT or ROLLBACK. A single change's went with its own.
        pg::Session& s = t->session();
        s.Run("SELECT pg_advisory_unlock($1, 0)",
              {Param::Int4(LockSpace(serverFile_, LockKind::Slot))});
        s.Run("SELECT pg_advisory_unlock($1, 0)",
              {Param::Int4(LockSpace(serverFile_, LockKind::TxnMark))});
    }
    serverWrites_.erase(
        std::remove_if(serverWrites_.begin(), serverWrites_.end(),
                       [&](const std::unique_ptr<PgTxn>& p) { return p.get() == t; }),
        serverWrites_.end());
}

Status FileEnv::ServerSnapshot(Txn& out) {
    // Each call reads the latest commit: what an earlier call read is let go.
    if (serverCall_ != g_engineCall) {
        serverCall_ = g_engineCall;
        serverSnap_->Release();
        ++gen_;
        FileState state;
        if (Status st = LoadDefinition(Txn(serverSnap_.get()), state)) return st;
    }
    out = Txn(serverSnap_.get());
    return RM_OK;
}

Status FileEnv::ServerCommit(Txn txn, const FileState& state) {
    PgTxn* t = txn.pg();
    Status st = PutState(txn, state);
    if (st == RM_OK) st = StatusOf(t->Flush());
    if (t->single) {
        Status cs = t->session().Script(st == RM_OK ? "COMMIT" : "ROLLBACK");
        if (st == RM_OK) st = cs;
        EndServerWrite(txn);
    }
    return st;
}

void FileEnv::ServerAbort(Txn txn) {
    PgTxn* t = txn.pg();
    if (t->single) t->session().Script("ROLLBACK");
    EndServerWrite(txn);
}

bool FileEnv::TxnInOtherProcess() {
    if (!server()) return writerLock_.HeldByOther(kTxnLockByte, true);
    pg::Session& s = serverSnap_->session();
    bool got = false;
    if (TryLock(s, "SELECT pg_try_advisory_lock_shared($1, 0)", serverFile_, LockKind::TxnMark,
                got))
        return true;
    if (got)
        s.Run("SELECT pg_advisory_unlock_shared($1, 0)",
              {Param::Int4(LockSpace(serverFile_, LockKind::TxnMark))});
    return !got;
}

bool FileEnv::ChangedSince(uint32_t address, uint32_t version) {
    if (!server()) return SnapshotStale();
    // The record is read afresh: a change committed between the read that
    // found it and the lock just taken shows in its version.
    serverSnap_->ForgetAhead();
    Txn txn(serverSnap_.get());
    Val k = ValOf(&address, 4), v;
    if (txn.Get(records(), &k, &v) != 0 || v.mv_size < 4) return true;
    return LoadLe32(static_cast<const uint8_t*>(v.mv_data)) != version;
}

}  // namespace recman
