#include "recman/engine.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "recman/bytes.h"
#include "recman/pg_storage.h"
#include "recman/recman.h"
#include "recman/status.h"

namespace recman {

namespace {

constexpr uint32_t kBlockMagic = 0x42504D52;  // "RMPB"
constexpr auto kRetryPause = std::chrono::milliseconds(2);
constexpr auto kIdleSnapshot = std::chrono::milliseconds(250);

using Clock = std::chrono::steady_clock;

int LockWaitMs() {
    const char* s = std::getenv("RECMAN_LOCK_WAIT_MS");
    if (!s || !*s) return 10000;
    char* end;
    long v = std::strtol(s, &end, 10);
    return (*end || v < 0) ? 10000 : int(std::min<long>(v, 24L * 3600 * 1000));
}

uint32_t NewToken() {
    std::random_device rd;
    uint32_t t = rd() ^ uint32_t(::getpid());
    return t ? t : 1;
}

}  // namespace

bool Request::IsChange() const {
    switch (op) {
        case RM_INSERT:
        case RM_UPDATE:
        case RM_DELETE:
        case RM_SET_OWNER:
        case RM_CLEAR_OWNER:
        case RM_CREATE_INDEX:
        case RM_DROP_INDEX:
            return true;
        default:
            return false;
    }
}

size_t ClientKeyHash::operator()(const ClientKey& k) const {
    uint64_t a, b;
    std::memcpy(&a, k.data(), 8);
    std::memcpy(&b, k.data() + 8, 8);
    return std::hash<uint64_t>()(a * 31 + b);
}

void ForkPrepare() {
    Engine::Instance().mu_.lock();
}
void ForkParent() {
    Engine::Instance().mu_.unlock();
}
void ForkChild() {
    Engine& e = Engine::Instance();
    new (&e.mu_) std::mutex;  // the child's only thread is not the one that locked it
    e.forked_ = true;
}

Engine& Engine::Instance() {
    // Never destroyed: calls may still arrive while the process exits.
    static Engine* e = new Engine;
    return *e;
}

Engine::Engine() : server_(!pg::ServerFromEnv().empty()), token_(NewToken()) {
    pthread_atfork(ForkPrepare, ForkParent, ForkChild);
    StartReaper();
}

void Engine::StartReaper() {
    std::thread([this] {
        for (;;) {
            std::this_thread::sleep_for(kIdleSnapshot);
            ReleaseIdleSnapshots();
        }
    }).detach();
}

void Engine::ReleaseIdleSnapshots() {
    std::lock_guard<std::mutex> lk(mu_);
    if (forked_) return;
    for (auto& [id, weak] : envs_)
        if (auto env = weak.lock()) env->SweepSnapshot();
}

void Engine::AfterFork() {
    // Everything open belongs to the parent: leave its descriptors, locks and
    // storage handles alone and start afresh.
    for (auto& h : handles_) {
        if (!h) continue;
        h->Abandon();
        if (h->env) h->env->Abandon();
        (void)h.release();
    }
    for (auto& [id, weak] : envs_)
        if (auto env = weak.lock()) env->Abandon();
    for (auto& [path, weak] : serverEnvs_)
        if (auto env = weak.lock()) env->Abandon();
    handles_.clear();
    freeHandles_.clear();
    envs_.clear();
    serverEnvs_.clear();
    // The connections are the parent's: their sockets stay open for it.
    for (auto& [key, c] : clients_)
        (void)c->server.release();
    clients_.clear();
    pg::AbandonMainSession();
    ServerForgetLocks();
    lastClient_ = nullptr;
    keeper_ = nullptr;  // its thread stayed with the parent
    token_ = NewToken();
    forked_ = false;
    StartReaper();
}

bool Engine::Decode(uint16_t op, Request& r) {
    if (op < RM_KEY_ONLY) {  // the common case: no bias
        r.op = op;
        return true;
    }
    if (op >= 1000) {
        if (op != RM_CONCURRENT + RM_BEGIN_TRANSACTION) return false;
        r.op = RM_BEGIN_TRANSACTION;
        r.concurrent = true;
        return true;
    }
    uint16_t base = op % 100, bias = uint16_t(op - base);
    if (bias > RM_LOCK_MULTI_NOWAIT) return false;
    if (base >= RM_GET_EQUAL + RM_KEY_ONLY && base <= RM_GET_LAST + RM_KEY_ONLY) {
        if (bias) return false;
        r.keyOnly = true;
        base = uint16_t(base - RM_KEY_ONLY);
    }
    if (bias) {
        bool lockable = (base >= RM_GET_EQUAL && base <= RM_GET_LAST) || base == RM_GET_DIRECT ||
                        base == RM_STEP_NEXT ||
                        (base >= RM_STEP_FIRST && base <= RM_STEP_PREVIOUS_EXTENDED);
        if (!lockable) return false;
    }
    r.op = base;
    r.lock = bias;
    return true;
}

int16_t Engine::Call(uint16_t op, void* pos, void* data, uint32_t* dataLen, void* key,
                     uint8_t keyLen, int8_t keyNum, const uint8_t* clientId) {
    Request r;
    if (!Decode(op, r)) return RM_INVALID_OPERATION;
    r.pos = static_cast<uint8_t*>(pos);
    r.data = static_cast<uint8_t*>(data);
    r.dataLen = dataLen;
    r.key = static_cast<uint8_t*>(key);
    r.keyLen = keyLen;
    r.keyNum = keyNum;

    std::unique_lock<std::mutex> lk(mu_);
    if (forked_) AfterFork();
    r.client = ClientFor(clientId);
    Clock::time_point deadline{};
    bool waiting = false;
    // The writer queue, once waited for, is held for one run of the request.
    std::unique_ptr<LockWaiter> queue;
    std::shared_ptr<FileEnv> queueEnv;
    for (int fresh = 0;;) {
        queueHeld_ = queue ? queueEnv.get() : nullptr;
        ++g_engineCall;
        Status st = Dispatch(r);
        queueHeld_ = nullptr;
        if (st == RM_SESSION_INVALID) DropLostTransaction(*r.client);
        queue.reset();
        queueEnv = std::move(queueWanted_);  // the file whose queue the request waits for
        if (st >= 0) return int16_t(st);
        if (st == kReadAgain && ++fresh < 100) continue;  // at once, with a new snapshot
        // Writers queue behind one another's single changes; a lock held by
        // another handle, or a file held by a transaction, is waited for only
        // when the request says so.
        bool queued = st == kWaitForQueue || st == kWriterBusy;
        if (!queued && !r.Waits()) return RM_RECORD_LOCKED;
        if (!waiting) {
            deadline = Clock::now() + std::chrono::milliseconds(LockWaitMs());
            waiting = true;
        }
        if (Clock::now() >= deadline) return RM_RECORD_LOCKED;
        if (st == kWaitForQueue && queueEnv) {
            // The write to come gives up the snapshot anyway; held through
            // the wait it would keep the pages others free from use.
            queueEnv->ReleaseSnapshot();
            auto waiter =
                std::make_unique<LockWaiter>(queueEnv->lockFd(), queueEnv->path(), kQueueLockByte);
            lk.unlock();
            bool granted = waiter->WaitUntil(deadline);
            lk.lock();
            if (granted) queue = std::move(waiter);
        } else {
            lk.unlock();
            std::this_thread::sleep_for(kRetryPause);
            lk.lock();
        }
        if (forked_) {
            (void)queue.release();  // its description is the parent's
            AfterFork();
        }
        r.client = ClientFor(clientId);
    }
}

Status Engine::EnterQueue(const std::shared_ptr<FileEnv>& env, bool& own) {
    own = false;
    if (queueHeld_ == env.get()) return RM_OK;
    if (!env->TryQueue()) {
        queueWanted_ = env;
        return kWaitForQueue;
    }
    own = true;
    return RM_OK;
}

Status Engine::Dispatch(Request& r) {
    switch (r.op) {
        case RM_OPEN:
            return Open(r);
        case RM_CLOSE:
            return Close(r);
        case RM_INSERT:
            return Insert(r);
        case RM_UPDATE:
            return Update(r);
        case RM_DELETE:
            return Delete(r);
        case RM_GET_EQUAL:
        case RM_GET_NEXT:
        case RM_GET_PREVIOUS:
        case RM_GET_GREATER:
        case RM_GET_GREATER_OR_EQUAL:
        case RM_GET_LESS:
        case RM_GET_LESS_OR_EQUAL:
        case RM_GET_FIRST:
        case RM_GET_LAST:
            return GetKeyed(r);
        case RM_CREATE:
            return Create(r);
        case RM_STAT:
            return Stat(r);
        case RM_GET_POSITION:
            return GetPosition(r);
        case RM_GET_DIRECT:
            return GetDirect(r);
        case RM_STEP_NEXT:
        case RM_STEP_FIRST:
        case RM_STEP_LAST:
        case RM_STEP_PREVIOUS:
            return Step(r);
        case RM_STOP:
            return Stop(r);
        case RM_VERSION:
            return Version(r);
        case RM_UNLOCK:
            return Unlock(r);
        case RM_RESET:
            return Reset(r);
        case RM_SET_OWNER:
            return SetOwner(r);
        case RM_CLEAR_OWNER:
            return ClearOwner(r);
        case RM_CREATE_INDEX:
            return CreateIndex(r);
        case RM_DROP_INDEX:
            return DropIndex(r);
        case RM_GET_NEXT_EXTENDED:
        case RM_GET_PREVIOUS_EXTENDED:
        case RM_STEP_NEXT_EXTENDED:
        case RM_STEP_PREVIOUS_EXTENDED:
            return Extended(r);
        case RM_BEGIN_TRANSACTION:
            return BeginTransaction(r);
        case RM_END_TRANSACTION:
            return FinishTransaction(r, true);
        case RM_ABORT_TRANSACTION:
            return FinishTransaction(r, false);
        default:
            return RM_INVALID_OPERATION;
    }
}

Client* Engine::ClientFor(const uint8_t* id) {
    static const ClientKey kNone{};
    if (!id) id = kNone.data();
    if (lastClient_ && std::memcmp(lastClient_->key.data(), id, 16) == 0) return lastClient_;
    ClientKey key;
    std::memcpy(key.data(), id, key.size());
    auto& slot = clients_[key];
    if (!slot) {
        slot = std::make_unique<Client>();
        slot->key = key;
    }
    lastClient_ = slot.get();
    return lastClient_;
}

Handle* Engine::HandleOf(const Request& r, Status& st) {
    if (!r.pos) {
        st = RM_POSITION_BLOCK_MISSING;
        return nullptr;
    }
    st = RM_FILE_NOT_OPEN;
    if (LoadLe32(r.pos) != kBlockMagic || LoadLe32(r.pos + 4) != token_) return nullptr;
    uint32_t number = LoadLe32(r.pos + 8);
    if (number == 0 || number > handles_.size()) return nullptr;
    Handle* h = handles_[number - 1].get();
    if (!h || h->generation != LoadLe32(r.pos + 12) || h->client != r.client) return nullptr;
    st = RM_OK;
    return h;
}

void Engine::CloseHandle(Handle* h) {
    auto& list = h->client->handles;
    list.erase(std::remove(list.begin(), list.end(), h), list.end());
    uint32_t number = h->number;
    handles_[number - 1].reset();
    freeHandles_.push_back(number);
}

void Engine::ResetClient(Client& c) {
    if (c.txn.active) {
        Status st;
        EndFiles(c, false, st);
    }
    while (!c.handles.empty())
        CloseHandle(c.handles.back());
}

Status Engine::AcquireEnv(const std::string& path, std::shared_ptr<FileEnv>& out) {
    if (server_) {
        // A file on a server is its path in the catalogue.
        auto it = serverEnvs_.find(path);
        if (it != serverEnvs_.end()) {
            if ((out = it->second.lock())) return RM_OK;
            serverEnvs_.erase(it);
        }
        std::unique_ptr<FileEnv> env;
        if (Status st = FileEnv::Open(path, env)) return st;
        out = std::shared_ptr<FileEnv>(std::move(env));
        serverEnvs_[path] = out;
        return RM_OK;
    }
    struct stat sb {};
    if (::stat(path.c_str(), &sb) != 0)
        return (errno == ENOENT || errno == ENOTDIR) ? RM_FILE_NOT_FOUND : RM_IO_ERROR;
    auto id = std::make_pair(sb.st_dev, sb.st_ino);
    auto it = envs_.find(id);
    if (it != envs_.end()) {
        if ((out = it->second.lock())) return RM_OK;
        envs_.erase(it);
    }
    std::unique_ptr<FileEnv> env;
    if (Status st = FileEnv::Open(path, env)) return st;
    out = std::shared_ptr<FileEnv>(std::move(env));
    envs_[std::make_pair(out->device(), out->inode())] = out;
    return RM_OK;
}

bool Engine::FileInUse(const std::string& path) {
    if (server_) {
        auto it = serverEnvs_.find(path);
        if (it != serverEnvs_.end() && !it->second.expired()) return true;
        pg::Session* s;
        int64_t id;
        if (pg::MainSession(s, true) || pg::LookupFile(*s, path, id)) return false;
        LockFile probe;
        probe.OpenServer(id);
        return !probe.TryLock(kOpenLockByte, true);
    }
    struct stat sb {};
    if (::stat(path.c_str(), &sb) != 0) return false;
    auto it = envs_.find(std::make_pair(sb.st_dev, sb.st_ino));
    if (it != envs_.end() && !it->second.expired()) return true;
    LockFile probe;
    if (!probe.Open(path)) return false;
    return !probe.TryLock(kOpenLockByte, true);
}

Status Engine::ReadTxn(Handle& h, Txn& txn, bool& shared, const FileState** pending) {
    Client& c = *h.client;
    if (c.txn.active) {
        // A client reads its own uncommitted changes; in an exclusive
        // transaction its first access takes the file.
        TxnFile* f = FindTxnFile(c, h.env.get());
        if (!f && c.txn.exclusive)
            if (Status st = JoinFile(c, h.env, f)) return st;
        if (f) {
            if (f->doomed) return f->doomed;
            txn = f->txn;
            shared = false;
            if (pending) *pending = &f->state;
            return RM_OK;
        }
    }
    shared = true;
    if (pending) *pending = nullptr;
    return h.env->Snapshot(txn);
}

void Engine::SyncCursors(Handle& h) {
    if (h.cursorGen == h.env->generation()) return;
    Txn txn;
    if (h.env->Snapshot(txn) != RM_OK) {
        h.CloseCursors();
        return;
    }
    if (h.idxCursor.open()) {
        bool live = false;
        for (const KeyDef& k : h.env->def().keys)
            live = live || k.id == h.idxCursorId;
        if (!live)
            h.idxCursor.Close();
        else
            h.idxCursor.Renew(txn);
    }
    if (h.recCursor.open()) h.recCursor.Renew(txn);
    h.idxAtCurrency = h.recAtCurrency = false;
    h.cursorGen = h.env->generation();
}

Status Engine::IndexCursor(Handle& h, Txn txn, bool shared, const KeyDef& key, CursorRef& out) {
    if (shared) {
        SyncCursors(h);
        if (h.idxCursor.open() && h.idxCursorId == key.id) {
            out.c = &h.idxCursor;
            return RM_OK;
        }
    }
    Table index = h.env->Index(key.id);
    if (!index) return RM_IO_ERROR;
    if (!shared) {
        out.c = &out.temp;
        return StatusOf(out.temp.Open(txn, index));
    }
    if (int rc = h.idxCursor.Open(txn, index)) return StatusOf(rc);
    h.idxCursorId = key.id;
    h.idxAtCurrency = false;
    out.c = &h.idxCursor;
    return RM_OK;
}

Status Engine::RecordCursor(Handle& h, Txn txn, bool shared, CursorRef& out) {
    if (!shared) {
        out.c = &out.temp;
        return StatusOf(out.temp.Open(txn, h.env->records()));
    }
    SyncCursors(h);
    if (!h.recCursor.open()) {
        if (int rc = h.recCursor.Open(txn, h.env->records())) return StatusOf(rc);
        h.recAtCurrency = false;
    }
    out.c = &h.recCursor;
    return RM_OK;
}

Status Engine::TakeLock(Handle& h, uint32_t address, uint32_t version, uint16_t bias, bool shared) {
    LockKind kind = (bias == RM_LOCK_SINGLE_WAIT || bias == RM_LOCK_SINGLE_NOWAIT)
                        ? LockKind::Single
                        : LockKind::Multiple;
    if (h.lockKind != LockKind::None && h.lockKind != kind) return RM_INCOMPATIBLE_LOCK;
    // Another client's transaction holds the file: its changes are not done.
    if (h.env->txnOwner && h.env->txnOwner != h.client) return kBlockedByWriter;
    if (!h.env->txnOwner && h.env->TxnInOtherProcess()) return kBlockedByWriter;
    if (h.Holds(address)) return RM_OK;
    if (!h.lock.TryLock(kRecordLockBase + address, true)) return kBlockedByLock;
    // The lock's last holder may have committed a change to the record after
    // the snapshot this read saw began: give the lock back and read again.
    if (shared && h.env->ChangedSince(address, version)) {
        h.lock.Unlock(kRecordLockBase + address);
        return kReadAgain;
    }
    if (kind == LockKind::Single) h.ReleaseAllLocks();  // the next locking read frees it
    h.locks.push_back(address);
    h.lockKind = kind;
    if (h.client->txn.active)  // End and Abort release what was locked inside
        h.client->txn.locks.push_back({h.number, h.generation, address});
    return RM_OK;
}

Status Engine::CheckNotLockedByOther(Handle& h, uint32_t address) {
    return h.lock.HeldByOther(kRecordLockBase + address, true) ? kBlockedByLock : RM_OK;
}

}  // namespace recman
