#include "recman/recovery.h"

#include <algorithm>
#include <filesystem>

#include "recman/changes.h"
#include "recman/fault.h"
#include "recman/recman.h"
#include "recman/status.h"

namespace recman {

namespace {

constexpr int kGrowAttempts = 8;

std::string NameOf(const std::string& sidecar) {
    return std::filesystem::path(sidecar).filename().string();
}

}  // namespace

Status ApplyJournalFile(FileEnv& env, const Journal& j, size_t i, uint64_t& applied, bool& now) {
    const JournalFile& f = j.files[i];
    now = false;
    applied = f.baseTxn + 1;
    for (int attempt = 0;; ++attempt) {
        Txn txn;
        FileState state;
        if (Status st = env.BeginWrite(txn, state)) return st;
        uint64_t last = FileEnv::BaseOf(txn);
        JournalId mark;
        Status st = env.LoadMark(txn, mark);
        // There already: the commit after the journal's base carries its
        // mark, and later commits were made only once it was there.
        if (st == RM_OK && (mark == j.id || last > f.baseTxn + 1)) {
            env.AbortWrite(txn);
            return RM_OK;
        }
        // The journal was made on another state of the file: applying it
        // would mix the two.
        if (st == RM_OK && (last != f.baseTxn || state.Serialize() != f.baseState))
            st = RM_IO_ERROR;
        if (st == RM_OK) st = ReplayChanges(env, txn, f.changes);
        if (st == RM_OK) st = env.LoadState(txn, state);
        if (st == RM_OK) st = env.PutMark(txn, j.id);
        if (st == RM_OK)
            st = env.Commit(txn);
        else
            env.AbortWrite(txn);
        if (st == RM_OK) {
            now = true;
            return RM_OK;
        }
        if (st != kMapFull) return st;
        if (attempt == kGrowAttempts || env.Grow()) return RM_DISK_FULL;
    }
}

Status SettleJournals(FileEnv& env, Retire retire, Leftover& left,
                      std::vector<FoundJournal>* found) {
    left = Leftover{};
    const std::string& file = env.canonicalPath();
    std::vector<std::string> names = SidecarsOf(file);
    if (names.empty()) return RM_OK;
    std::vector<FoundJournal> js;
    for (const std::string& n : names)
        js.push_back(ReadFound(file, n));

    // A journal never committed reached no file: it goes. Committed ones
    // apply in the order they were made on this file. Without flushing,
    // journals are not kept for reuse: they would only slow writers down.
    bool remove = env.syncMode() == SyncMode::Off;
    std::vector<std::string> discard;
    std::vector<const FoundJournal*> todo;
    for (const FoundJournal& j : js) {
        if (j.state == JournalState::Committed)
            todo.push_back(&j);
        else if (j.state != JournalState::Retired || remove)
            discard.push_back(j.sidecar);
    }
    RetireNames(discard, remove);
    Status st = RM_OK;
    for (const FoundJournal* j : todo)
        if (j->self < 0) st = RM_IO_ERROR;  // it does not list this file
    std::sort(todo.begin(), todo.end(), [](const FoundJournal* a, const FoundJournal* b) {
        return a->journal.files[size_t(std::max(a->self, 0))].baseTxn <
               b->journal.files[size_t(std::max(b->self, 0))].baseTxn;
    });
    std::vector<std::pair<std::string, uint64_t>> done;  // sidecar, commit holding it
    for (const FoundJournal* j : todo) {
        if (st != RM_OK) break;
        uint64_t applied;
        bool now;
        st = ApplyJournalFile(env, j->journal, size_t(j->self), applied, now);
        if (st != RM_OK) break;
        if (now) FaultPoint("recover");
        done.emplace_back(j->sidecar, applied);
    }
    if (found) *found = std::move(js);
    if (done.empty()) return st;

    // A journal can go once the file's commit of it is flushed. A write that
    // follows flushes it with its own commit: until then the journal can
    // redo the file's last commit.
    uint64_t last = env.LastCommit();
    if (retire == Retire::AfterNextCommit && env.syncMode() != SyncMode::Off && done.size() == 1 &&
        done[0].second == last && env.durableTxn() < last) {
        left.sidecars.push_back(done[0].first);
        left.coveredTxn = last;
        return st;
    }
    bool flushed = true;
    for (auto& [name, applied] : done)
        flushed = flushed && applied <= env.durableTxn();
    if (!flushed)
        if (Status sync = env.SyncNow()) return st ? st : sync;
    std::vector<std::string> gone;
    for (auto& [name, applied] : done)
        gone.push_back(name);
    RetireNames(gone, remove);
    return st;
}

void DescribeJournals(FileEnv& env, Txn txn, std::vector<std::string>& problems) {
    const std::string& file = env.canonicalPath();
    for (const std::string& n : SidecarsOf(file)) {
        FoundJournal f = ReadFound(file, n);
        std::string name = "commit journal " + NameOf(n);
        if (f.state == JournalState::Retired) continue;
        if (f.state != JournalState::Committed) {
            problems.push_back(name + " was never committed: the next open discards it");
            continue;
        }
        if (f.self < 0) {
            problems.push_back(name + " does not list this file");
            continue;
        }
        const JournalFile& jf = f.journal.files[size_t(f.self)];
        uint64_t last = txn.Id();
        JournalId mark;
        FileState state;
        if (env.LoadMark(txn, mark) || env.LoadState(txn, state)) {
            problems.push_back(name + " cannot be compared with the file");
            continue;
        }
        if (mark == f.journal.id || last > jf.baseTxn + 1) continue;  // applied
        if (last == jf.baseTxn && state.Serialize() == jf.baseState)
            problems.push_back(name +
                               " is committed but not yet applied: the next open finishes it");
        else
            problems.push_back(name + " was made on another state of the file and cannot apply");
    }
}

}  // namespace recman
