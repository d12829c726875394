// Transactions that changed several files end through a commit journal:
//   1. each file's storage transaction takes its counters and the journal's
//      mark; a file whose last commit may not yet be on disk is flushed;
//   2. the journal (every file's changes and where the files lie) is written
//      beside the first file and linked beside the others;
//   3. the commit record is appended and flushed: from here the transaction
//      is committed, whatever happens;
//   4. each file commits its storage transaction;
//   5. the journals are removed once the files' commits are flushed.
// A failure before 3 ends every storage transaction unchanged. Whoever next
// takes or opens one of the files finishes or discards what a dead process
// left (recovery.h).
#include <sys/stat.h>

#include <filesystem>

#include "recman/engine.h"
#include "recman/fault.h"

namespace recman {

namespace fs = std::filesystem;

namespace {

SyncMode Strictest(SyncMode a, SyncMode b) {
    if (a == SyncMode::Full || b == SyncMode::Full) return SyncMode::Full;
    if (a == SyncMode::Normal || b == SyncMode::Normal) return SyncMode::Normal;
    return SyncMode::Off;
}

dev_t DeviceOf(const fs::path& dir) {
    struct stat sb {};
    return ::stat(dir.c_str(), &sb) == 0 ? sb.st_dev : dev_t(0);
}

std::string Relative(const fs::path& to, const fs::path& from) {
    fs::path r = to.lexically_relative(from);
    return r.empty() ? std::string(".") : r.string();
}

}  // namespace

void Engine::SetJournalForComparison(bool on) {
    std::lock_guard<std::mutex> lk(mu_);
    journaled_ = on;
}

Status Engine::SettleForWrite(FileEnv& env, Leftover& left) {
    left = Leftover{};
    if (!journaled_ || !env.MayHaveJournals()) return RM_OK;
    return SettleJournals(env, Retire::AfterNextCommit, left);
}

Status Engine::PrepareJournal(const std::vector<TxnFile*>& files, Journal& j,
                              std::vector<std::string>& paths, std::vector<bool>& copy) {
    static const char kState[] = "state";
    fs::path home = fs::path(files[0]->env->canonicalPath()).parent_path();
    dev_t homeDev = DeviceOf(home);
    for (TxnFile* f : files) {
        FileEnv& env = *f->env;
        f->changes.Note(ChangeDb::Meta, 0, kState, sizeof(kState) - 1);
        Status st = env.PutState(f->txn, f->state);
        if (st == RM_OK) st = env.PutMark(f->txn, j.id);
        if (st == kMapFull) st = RM_DISK_FULL;
        JournalFile jf;
        if (st == RM_OK) st = f->changes.Collect(env, f->txn, jf.changes);
        if (st != RM_OK) return st;
        fs::path file(env.canonicalPath()), dir = file.parent_path();
        jf.rel = Relative(file, home);
        jf.up = Relative(home, dir);
        jf.copy = !j.files.empty() && DeviceOf(dir) != homeDev;
        jf.baseTxn = f->baseTxn;
        jf.baseState = f->baseState;
        copy.push_back(jf.copy);
        j.files.push_back(std::move(jf));

        paths.push_back(file.string());

        // Recovery applies the journal to the very commit it was made on, so
        // that commit must survive a stopped machine: flushed, or able to be
        // redone by the journal before.
        if (env.syncMode() != SyncMode::Off && !f->baseCovered && env.durableTxn() < f->baseTxn)
            if (Status sync = env.SyncNow()) return sync;
    }
    return RM_OK;
}

Status Engine::EndJournaled(const std::vector<TxnFile*>& files) {
    SyncMode mode = SyncMode::Off;
    for (TxnFile* f : files)
        mode = Strictest(mode, f->env->syncMode());
    Journal j;
    j.id = NewJournalId();
    std::vector<std::string> paths;
    std::vector<bool> copy;
    JournalWriter writer;
    std::string body;
    Status st = PrepareJournal(files, j, paths, copy);
    if (st == RM_OK) st = writer.Place(paths, copy);
    if (st == RM_OK) {
        body = EncodeJournalBody(j);
        st = writer.Write(body);
    }
    if (st == RM_OK) {
        FaultPoint("journal");
        st = writer.Commit(EncodeCommitRecord(j.id, body), mode);
    }
    if (st != RM_OK) {
        writer.Discard();
        for (TxnFile* f : files)
            TxnKeeper().Run([&] { f->env->AbortWrite(f->txn); });
        return st;
    }
    FaultPoint("commit");

    // Committed. A file whose commit fails is given its changes again from
    // the journal; failing that too, by whoever takes or opens it next.
    std::vector<bool> done(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        TxnFile& f = *files[i];
        Status fs;
        TxnKeeper().Run([&] { fs = f.env->Commit(f.txn); });
        if (fs != RM_OK) {
            uint64_t applied;
            bool now;
            fs = ApplyJournalFile(*f.env, j, i, applied, now);
        }
        done[i] = fs == RM_OK;
        FaultPoint("file", int(i) + 1);
    }

    // The journals applied before go now that these commits flushed them.
    // This one goes at once where the commits were flushed whole (or not at
    // all); with only the data flushed, it stays until each file's next
    // flushed commit, able to redo this one.
    std::vector<std::string> before, now;
    for (size_t i = 0; i < files.size(); ++i) {
        if (!done[i]) continue;
        before.insert(before.end(), files[i]->retire.begin(), files[i]->retire.end());
        if (files[i]->env->syncMode() != SyncMode::Normal) now.push_back(writer.names()[i]);
    }
    RetireNames(before, false);
    RetireNames(now, mode == SyncMode::Off);
    return RM_OK;
}

Status Engine::RecoverOnOpen(const std::shared_ptr<FileEnv>& env) {
    if (!journaled_ || env->readOnlyStorage() || env->txnOwner) return RM_OK;
    if (SidecarsOf(env->canonicalPath()).empty()) return RM_OK;
    // A live holder of the writer slot is ending or settling the file.
    if (!env->TryWriterSlot()) return RM_OK;
    std::vector<FoundJournal> found;
    Leftover left;
    Status st = SettleJournals(*env, Retire::Now, left, &found);
    env->ReleaseWriterSlot();
    for (const FoundJournal& j : found)
        for (const std::string& p : j.paths)
            SettleOther(p, env.get());
    return st;
}

// Settles the journals beside another file of a journal just settled, when
// no one holds that file: its own next writer or opener does it otherwise.
void Engine::SettleOther(const std::string& path, const FileEnv* except) {
    std::shared_ptr<FileEnv> other;
    if (AcquireEnv(path, other) != RM_OK || other.get() == except) return;
    if (other->readOnlyStorage() || other->txnOwner) return;
    if (SidecarsOf(other->canonicalPath()).empty()) return;
    if (!other->TryWriterSlot()) return;
    Leftover left;
    (void)SettleJournals(*other, Retire::Now, left);
    other->ReleaseWriterSlot();
}

}  // namespace recman
