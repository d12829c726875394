// Files as a whole: open, close, create and remove, Stat, owner names, and
// the calls that concern a client or the process.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "recman/bytes.h"
#include "recman/engine.h"
#include "recman/pg_storage.h"

namespace recman {

namespace {

constexpr uint32_t kBlockMagic = 0x42504D52;  // "RMPB"
constexpr size_t kMaxOwner = 24;

// Text in a caller's buffer up to its NUL, or all `n` bytes when there is none.
std::string TextIn(const uint8_t* p, size_t n) {
    const void* nul = std::memchr(p, 0, n);
    return std::string(reinterpret_cast<const char*>(p),
                       nul ? static_cast<const uint8_t*>(nul) - p : n);
}

// An owner name: 1 to 24 characters ending in a NUL within the buffer.
bool OwnerIn(const uint8_t* p, size_t n, std::string& out) {
    if (!p) return false;
    const void* nul = std::memchr(p, 0, std::min(n, kMaxOwner + 1));
    if (!nul) return false;
    out.assign(reinterpret_cast<const char*>(p), static_cast<const uint8_t*>(nul) - p);
    return !out.empty();
}

}  // namespace

Status Engine::Open(Request& r) {
    if (!r.pos) return RM_POSITION_BLOCK_MISSING;
    if (!r.key) return RM_KEY_BUFFER_TOO_SHORT;
    std::string path = TextIn(r.key, r.keyLen);
    if (path.empty()) return RM_INVALID_FILE_NAME;
    bool readOnly = false, exclusive = false;
    switch (r.keyNum) {
        case RM_OPEN_NORMAL:
        case RM_OPEN_ACCELERATED:
        case RM_OPEN_VERIFY:
            break;
        case RM_OPEN_READ_ONLY:
            readOnly = true;
            break;
        case RM_OPEN_EXCLUSIVE:
            exclusive = true;
            break;
        default:
            return RM_INVALID_OPERATION;
    }
    std::string owner;
    bool ownerGiven = r.data && r.DataLen() > 0 &&
                      !(owner = TextIn(r.data, std::min<size_t>(r.DataLen(), 256))).empty();

    if (server_) {
        // An Open is where a lost connection is made again.
        pg::Session* s;
        if (Status st = pg::MainSession(s, true)) return st;
    }
    std::shared_ptr<FileEnv> env;
    if (Status st = AcquireEnv(path, env)) return st;
    // A transaction that a dead process left half done is finished (or
    // discarded) before anyone sees the file.
    if (Status st = RecoverOnOpen(env)) return st;
    Txn txn;
    if (Status st = env->Snapshot(txn)) return st;  // brings the definition up to date
    const FileDef& d = env->def();
    if (!d.owner.empty()) {
        if (ownerGiven) {
            if (owner != d.owner) return RM_INVALID_OWNER;
        } else if (d.ownerMode == 0 || d.ownerMode == 2) {
            return RM_ACCESS_DENIED;
        } else {
            readOnly = true;  // the owner allows reading without the name
        }
    }
    auto h = std::make_unique<Handle>();
    if (env->server())
        h->lock.OpenServer(env->serverFile());
    else if (!h->lock.Open(path))
        return RM_IO_ERROR;
    if (!h->lock.TryLock(kOpenLockByte, exclusive)) return RM_INCOMPATIBLE_MODE;
    h->client = r.client;
    h->env = std::move(env);
    h->readOnly = readOnly;
    h->exclusive = exclusive;
    h->ownerGiven = ownerGiven && !d.owner.empty();

    uint32_t number;
    if (!freeHandles_.empty()) {
        number = freeHandles_.back();
        freeHandles_.pop_back();
    } else {
        handles_.emplace_back();
        number = uint32_t(handles_.size());
    }
    static uint32_t generations = 0;
    h->number = number;
    h->generation = ++generations;
    std::memset(r.pos, 0, RM_POSITION_BLOCK_SIZE);
    StoreLe32(r.pos, kBlockMagic);
    StoreLe32(r.pos + 4, token_);
    StoreLe32(r.pos + 8, number);
    StoreLe32(r.pos + 12, h->generation);
    r.client->handles.push_back(h.get());
    handles_[number - 1] = std::move(h);
    return RM_OK;
}

Status Engine::Close(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    CloseHandle(h);
    std::memset(r.pos, 0, RM_POSITION_BLOCK_SIZE);
    return RM_OK;
}

Status Engine::Create(Request& r) {
    if (!r.key) return RM_KEY_BUFFER_TOO_SHORT;
    std::string path = TextIn(r.key, r.keyLen);
    if (path.empty()) return RM_INVALID_FILE_NAME;
    bool exists = false;
    if (Status st = FileEnv::Exists(path, exists)) return st;
    if (r.keyNum == RM_CREATE_REMOVE) {
        if (!exists) return RM_FILE_NOT_FOUND;
        if (FileInUse(path)) return RM_INCOMPATIBLE_MODE;
        return FileEnv::RemoveFile(path);
    }
    if (r.keyNum != RM_CREATE_REPLACE && r.keyNum != RM_CREATE_NO_REPLACE)
        return RM_INVALID_OPERATION;
    if (!r.data) return RM_DATA_BUFFER_TOO_SHORT;
    FileDef def;
    if (Status st = ParseCreateSpec(r.data, r.DataLen(), def)) return st;
    def.formatVersion = createVersion_;
    if (exists) {
        if (r.keyNum == RM_CREATE_NO_REPLACE) return RM_FILE_EXISTS;
        if (FileInUse(path)) return RM_INCOMPATIBLE_MODE;
    }
    return FileEnv::CreateFile(path, def);
}

void Engine::SetCreateVersionForComparison(uint16_t version) {
    std::lock_guard<std::mutex> lk(mu_);
    createVersion_ = version;
}

Status Engine::Stat(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    Txn txn;
    bool shared;
    const FileState* pending;
    if ((st = ReadTxn(*h, txn, shared, &pending))) return st;
    const FileDef& d = h->env->def();
    size_t size = StatSize(d);
    if (!r.data || r.DataLen() < size) return RM_DATA_BUFFER_TOO_SHORT;
    FileState state;
    if (pending)
        state = *pending;
    else if ((st = h->env->LoadState(txn, state)))
        return st;
    WriteStat(
        d, state.records, [&](uint16_t id) { return state.Unique(id); }, r.data);
    *r.dataLen = uint32_t(size);
    if (r.key) std::memset(r.key, 0, r.keyLen);  // no extension files
    return RM_OK;
}

Status Engine::Version(Request& r) {
    if (!r.data || r.DataLen() < 15) return RM_DATA_BUFFER_TOO_SHORT;
    std::memset(r.data, 0, 15);
    auto entry = [&](int i, uint16_t version, uint16_t revision, char platform) {
        StoreLe16(r.data + 5 * i, version);
        StoreLe16(r.data + 5 * i + 2, revision);
        r.data[5 * i + 4] = uint8_t(platform);
    };
    entry(0, 8, 0, 'N');  // requester
    entry(1, 8, 0, 'U');  // local engine
    if (server_)
        entry(2, 8, 0, 'S');  // the server storage
    else
        entry(2, 0, 0, 0);  // no remote engine
    *r.dataLen = 15;
    return RM_OK;
}

Status Engine::Reset(Request& r) {
    ResetClient(*r.client);
    return RM_OK;
}

Status Engine::Stop(Request&) {
    for (auto& [id, weak] : envs_)
        if (auto env = weak.lock()) env->Flush();
    for (auto& [key, client] : clients_)
        ResetClient(*client);
    envs_.clear();
    return RM_OK;
}

Status Engine::SetOwner(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    std::string name, again;
    if (!OwnerIn(r.data, r.DataLen(), name) || !OwnerIn(r.key, r.keyLen, again) || name != again)
        return RM_INVALID_OWNER;
    if (r.keyNum < 0 || r.keyNum > 3) return RM_INVALID_OWNER;
    if (h->readOnly) return RM_ACCESS_DENIED;
    if (r.client->txn.active) return RM_TRANSACTION_ACTIVE;  // definitions change outside
    st = RunWrite(*h, [&](Store& s, FileState& state) -> Status {
        if (!s.def().owner.empty()) return RM_OWNER_ALREADY_SET;
        FileDef d = s.def();
        d.owner = name;
        d.ownerMode = uint8_t(r.keyNum);
        return h->env->StoreDef(s.txn(), std::move(d), state);
    });
    if (st == RM_OK) h->ownerGiven = true;
    return st;
}

Status Engine::ClearOwner(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (!h->ownerGiven && !h->env->def().owner.empty()) return RM_INVALID_OWNER;
    if (h->readOnly) return RM_ACCESS_DENIED;
    if (r.client->txn.active) return RM_TRANSACTION_ACTIVE;
    return RunWrite(*h, [&](Store& s, FileState& state) -> Status {
        if (s.def().owner.empty()) return RM_OK;
        if (!h->ownerGiven) return RM_INVALID_OWNER;
        FileDef d = s.def();
        d.owner.clear();
        d.ownerMode = 0;
        return h->env->StoreDef(s.txn(), std::move(d), state);
    });
}

}  // namespace recman
