#include "recman/fileenv.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "recman/bytes.h"
#include "recman/guard.h"
#include "recman/journal_file.h"
#include "recman/pg_storage.h"
#include "recman/recman.h"
#include "recman/status.h"
#include "recman/structure.h"

namespace recman {

namespace {

constexpr size_t kMiB = size_t(1) << 20;
constexpr unsigned kMaxDbs = 2 * RM_MAX_KEYS + 16;
const char kDefKey[] = "def";
const char kStateKey[] = "state";
const char kMarkKey[] = "journal";

// Address space reserved beyond a file's data, so that it can grow without
// remapping; RECMAN_MAP_RESERVE_MB, 1 GiB by default. Only address space: no
// memory or disk is taken until data is written.
size_t Headroom() {
    const char* s = std::getenv("RECMAN_MAP_RESERVE_MB");
    long mb = s ? std::strtol(s, nullptr, 10) : 0;
    return (mb > 0 ? size_t(mb) : size_t(1024)) * kMiB;
}

unsigned SyncFlags(SyncMode mode) {
    switch (mode) {
        case SyncMode::Full:
            return 0;
        case SyncMode::Off:
            return MDB_NOSYNC | MDB_NOMETASYNC;
        default:
            return MDB_NOMETASYNC;
    }
}

std::string IndexName(uint16_t id) {
    char name[8];
    std::snprintf(name, sizeof(name), "i%u", unsigned(id));
    return name;
}

// A value of the file's own table (its description or its state), copied
// out of the map under the guard; a value too long to be one is damage.
int ReadMetaValue(Txn txn, const Table& table, const char* key, std::string& copy) {
    Val k = ValOf(key, std::strlen(key)), v;
    return Guarded([&] {
        int rc = txn.Get(table, &k, &v);
        if (rc == 0 && v.mv_size > 65536) rc = MDB_CORRUPTED;
        if (rc == 0) copy.assign(static_cast<const char*>(v.mv_data), v.mv_size);
        return rc;
    });
}

// Checks what can be checked cheaply before the storage library touches the
// file (it would turn an empty file into a new store, and trusts every page
// it maps): 30 for a foreign file, 2 for a damaged one.
Status CheckHeader(int fd) {
    // Writers in other processes go on committing while the file is read,
    // and may reuse the very pages being read: what a reading finds counts
    // only when the meta pages stood still from its start to its end. When
    // they never do, live writers are committing to the file through the
    // storage library, and it is left to its own reads (and the records'
    // checksums).
    StructureResult r = CheckSettled(fd, StructureDepth::Cheap, 20);
    if (!r.settled || (r.status == RM_OK && r.faults.empty())) return RM_OK;
    return r.status ? r.status : RM_IO_ERROR;
}

size_t RoundUp(size_t n, size_t unit) {
    return (n + unit - 1) / unit * unit;
}

}  // namespace

std::string CanonicalPath(const std::string& path) {
    if (char* real = ::realpath(path.c_str(), nullptr)) {
        std::string s = real;
        std::free(real);
        return s;
    }
    std::error_code ec;
    std::string abs = std::filesystem::absolute(path, ec).lexically_normal().string();
    return ec ? path : abs;
}

SyncMode SyncModeFromEnv() {
    const char* s = std::getenv("RECMAN_SYNC");
    if (s && std::strcmp(s, "full") == 0) return SyncMode::Full;
    if (s && std::strcmp(s, "off") == 0) return SyncMode::Off;
    return SyncMode::Normal;
}

Status StatusOf(int rc) {
    switch (rc) {
        case MDB_SUCCESS:
            return RM_OK;
        case MDB_MAP_FULL:
            return kMapFull;
        case MDB_KEYEXIST:
            return RM_DUPLICATE_KEY;  // a server finds it when the row is sent
        case kPgRefused:
            return RM_SERVER_ERROR;
        case kPgLost:
            return RM_SESSION_INVALID;
        case ENOSPC:
        case EDQUOT:
            return RM_DISK_FULL;
        default:
            return RM_IO_ERROR;
    }
}

uint32_t FileState::Unique(uint16_t id) const {
    for (auto& [k, v] : unique)
        if (k == id) return v;
    return 0;
}

uint32_t& FileState::UniqueRef(uint16_t id) {
    for (auto& [k, v] : unique)
        if (k == id) return v;
    unique.emplace_back(id, 0);
    return unique.back().second;
}

std::string FileState::Serialize() const {
    ByteWriter w;
    w.U32(records);
    w.U32(nextAddress);
    w.U64(nextSeq);
    w.U32(defGen);
    w.U16(uint16_t(unique.size()));
    for (auto& [k, v] : unique) {
        w.U16(k);
        w.U32(v);
    }
    return w.str();
}

bool FileState::Deserialize(const void* data, size_t len) {
    ByteReader r(data, len);
    FileState s;
    uint16_t n = 0;
    if (!r.U32(s.records) || !r.U32(s.nextAddress) || !r.U64(s.nextSeq) || !r.U32(s.defGen) ||
        !r.U16(n))
        return false;
    for (uint16_t i = 0; i < n; ++i) {
        uint16_t k;
        uint32_t v;
        if (!r.U16(k) || !r.U32(v)) return false;
        s.unique.emplace_back(k, v);
    }
    if (r.left() != 0) return false;
    *this = std::move(s);
    return true;
}

FileEnv::~FileEnv() {
    if (!env_) return;
    if (snap_) mdb_txn_abort(snap_);
    mdb_env_close(env_);
}

void FileEnv::Abandon() {
    env_ = nullptr;
    snap_ = nullptr;
    writerLock_.Abandon();
}

void FileEnv::Flush() {
    if (env_ && !readOnly_) mdb_env_sync(env_, 1);
}

Status FileEnv::Open(const std::string& path, std::unique_ptr<FileEnv>& out) {
    std::unique_ptr<FileEnv> fe(new FileEnv);
    Status st = pg::ServerFromEnv().empty() ? fe->Init(path) : fe->InitServer(path);
    if (st == RM_OK) out = std::move(fe);
    return st;
}

Status FileEnv::Init(const std::string& path) {
    path_ = path;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return (errno == ENOENT || errno == ENOTDIR) ? RM_FILE_NOT_FOUND : RM_IO_ERROR;
    struct stat sb {};
    Status st = ::fstat(fd, &sb) == 0 ? RM_OK : RM_IO_ERROR;
    if (st == RM_OK && !S_ISREG(sb.st_mode)) st = RM_NOT_A_RECMAN_FILE;
    if (st == RM_OK) st = CheckHeader(fd);
    ::close(fd);
    if (st) return st;
    dev_ = sb.st_dev;
    ino_ = sb.st_ino;
    canonical_ = CanonicalPath(path);
    sync_ = SyncModeFromEnv();

    if (mdb_env_create(&env_) != 0) return RM_IO_ERROR;
    mdb_env_set_maxdbs(env_, kMaxDbs);
    mapSize_ =
        RoundUp(std::max<size_t>(size_t(sb.st_size) * 2, size_t(sb.st_size) + Headroom()), kMiB);
    mdb_env_set_mapsize(env_, mapSize_);
    unsigned flags = MDB_NOSUBDIR | MDB_NOTLS | SyncFlags(sync_);
    int rc = mdb_env_open(env_, path.c_str(), flags, 0644);
    if (rc == EACCES || rc == EROFS) {
        mdb_env_close(env_);
        mdb_env_create(&env_);
        mdb_env_set_maxdbs(env_, kMaxDbs);
        mdb_env_set_mapsize(env_, mapSize_);
        readOnly_ = true;
        rc = mdb_env_open(env_, path.c_str(), flags | MDB_RDONLY, 0644);
    }
    if (rc != 0)
        return rc == MDB_INVALID || rc == MDB_VERSION_MISMATCH ? RM_NOT_A_RECMAN_FILE : RM_IO_ERROR;
    mdb_env_set_assert(env_, OnStorageAssert);
    // A file cut short would fault when its missing pages are touched. The size
    // is read after the page count: pages reach the file before the meta page
    // that counts them, while other processes keep writing.
    MDB_envinfo info;
    MDB_stat est;
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &est);
    if (::stat(path.c_str(), &sb) != 0) return RM_IO_ERROR;
    if ((uint64_t(info.me_last_pgno) + 1) * est.ms_psize > uint64_t(sb.st_size)) return RM_IO_ERROR;
    if (info.me_mapsize > mapSize_) mapSize_ = info.me_mapsize;

    MDB_txn* txn = nullptr;
    if (Status st = BeginRead(txn)) return st;
    st = RM_OK;
    int orc = Guarded([&] {
        int rc = mdb_dbi_open(txn, "meta", 0, &metaDbi_);
        return rc ? rc : mdb_dbi_open(txn, "rec", MDB_INTEGERKEY, &recDbi_);
    });
    if (orc != 0) {
        st = orc == MDB_NOTFOUND || orc == MDB_INCOMPATIBLE ? RM_NOT_A_RECMAN_FILE : RM_IO_ERROR;
    } else {
        FileState state;
        st = LoadState(txn, state);
        if (st == RM_OK) st = ReloadDef(txn, state.defGen);
    }
    if (st == RM_OK)
        mdb_txn_commit(txn);  // keeps the database handles opened in it
    else
        mdb_txn_abort(txn);
    if (st == RM_OK) st = OpenIndexDbs();
    if (st == RM_OK && !readOnly_ && !writerLock_.Open(path)) st = RM_IO_ERROR;
    return st;
}

Status FileEnv::LoadState(Txn t, FileState& state) {
    std::string copy;
    int rc = ReadMetaValue(t, meta(), kStateKey, copy);
    if (rc == MDB_NOTFOUND) return RM_NOT_A_RECMAN_FILE;
    if (rc == kGuardFault) return Damaged();
    if (rc != 0) return StatusOf(rc);
    return state.Deserialize(copy.data(), copy.size()) ? RM_OK : Damaged();
}

Status FileEnv::Damaged() {
    damaged_ = true;
    return RM_IO_ERROR;
}

Status FileEnv::VerifyBeforeWrite() {
    if (damaged_) return RM_IO_ERROR;
    if (verified_) return RM_OK;
    int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return RM_IO_ERROR;
    StructureResult r = CheckStructure(fd, StructureDepth::Full);
    ::close(fd);
    if (r.status || !r.faults.empty()) return Damaged();
    verified_ = true;
    return RM_OK;
}

Status FileEnv::ReloadDef(Txn t, uint32_t defGen) {
    if (defGen == defGen_) return RM_OK;
    std::string copy;
    int rc = ReadMetaValue(t, meta(), kDefKey, copy);
    if (rc == MDB_NOTFOUND) return RM_NOT_A_RECMAN_FILE;
    if (rc == kGuardFault) return Damaged();
    if (rc != 0) return StatusOf(rc);
    FileDef def;
    if (!DeserializeDef(copy.data(), copy.size(), def)) {
        // A format this engine does not know is another file; a definition
        // that does not decode is damage.
        uint16_t version = StoredFormatVersion(copy.data(), copy.size());
        return version > kFormatVersion || version < kOldestFormatVersion ? RM_NOT_A_RECMAN_FILE
                                                                          : Damaged();
    }
    def_ = std::move(def);
    // A server keeps its own checks on its pages: records carry no checksum.
    def_.onServer = server();
    defGen_ = defGen;
    return RM_OK;
}

// Opens the handles of indexes the definition names, in a read transaction of
// their own: handles opened in a write transaction stay private to it until it
// commits, while every reader of this process shares them.
Status FileEnv::OpenIndexDbs() {
    MDB_txn* txn = nullptr;
    for (const KeyDef& k : def_.keys) {
        if (indexDbi_.count(k.id)) continue;
        if (!txn)
            if (Status st = BeginRead(txn)) return st;
        MDB_dbi dbi;
        std::string name = IndexName(k.id);
        int rc = Guarded([&] { return mdb_dbi_open(txn, name.c_str(), 0, &dbi); });
        if (rc != 0) {
            mdb_txn_abort(txn);
            return rc == MDB_NOTFOUND || rc == MDB_INCOMPATIBLE ? RM_IO_ERROR : StatusOf(rc);
        }
        indexDbi_[k.id] = dbi;
    }
    if (txn) mdb_txn_commit(txn);
    return RM_OK;
}

Table FileEnv::Index(uint16_t id) const {
    const KeyDef* key = nullptr;
    for (const KeyDef& k : def_.keys)
        if (k.id == id) key = &k;
    if (server()) {
        if (!key) return {};
        return {Table::Kind::Index, id, key->clustered, 0};
    }
    auto it = indexDbi_.find(id);
    if (it == indexDbi_.end()) return {};
    return {Table::Kind::Index, id, key && key->clustered, it->second};
}

// A short read transaction of its own. Another process may have grown the
// file past this process's map; the map then takes the new size first.
Status FileEnv::BeginRead(MDB_txn*& txn) {
    for (int attempt = 0; attempt < 4; ++attempt) {
        int rc = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn);
        if (rc != MDB_MAP_RESIZED) return StatusOf(rc);
        if (Status st = AdoptMapSize()) return st;
    }
    return RM_IO_ERROR;
}

Status FileEnv::AdoptMapSize() {
    ReleaseSnapshot();
    if (mdb_env_set_mapsize(env_, 0) != 0) return RM_IO_ERROR;
    MDB_envinfo info;
    mdb_env_info(env_, &info);
    mapSize_ = info.me_mapsize;
    return RM_OK;
}

Status FileEnv::Grow() {
    ReleaseSnapshot();
    MDB_envinfo info;
    MDB_stat est;
    mdb_env_info(env_, &info);
    mdb_env_stat(env_, &est);
    size_t used = (size_t(info.me_last_pgno) + 1) * est.ms_psize;
    size_t size = RoundUp(std::max(mapSize_ * 2, used + Headroom()), kMiB);
    if (mdb_env_set_mapsize(env_, size) != 0) return RM_DISK_FULL;
    mapSize_ = size;
    return RM_OK;
}

void FileEnv::ReleaseSnapshot() {
    if (snap_ && snapLive_) {
        mdb_txn_reset(snap_);
        snapLive_ = false;
        ++gen_;
    }
}

bool FileEnv::SnapshotStale() const {
    if (server()) return false;  // each call reads the latest commit
    if (!snap_ || !snapLive_) return true;
    MDB_envinfo info;
    mdb_env_info(env_, &info);
    return info.me_last_txnid != mdb_txn_id(snap_);
}

void FileEnv::SweepSnapshot() {
    if (!used_) ReleaseSnapshot();
    used_ = false;
}

Status FileEnv::Snapshot(Txn& out) {
    if (server()) return ServerSnapshot(out);
    used_ = true;
    if (snap_ && snapLive_) {
        MDB_envinfo info;
        mdb_env_info(env_, &info);
        if (info.me_last_txnid == mdb_txn_id(snap_) && defGen_ != 0) {
            out = snap_;
            return RM_OK;
        }
        ReleaseSnapshot();
    }
    for (int attempt = 0; attempt < 4; ++attempt) {
        int rc = snap_ ? mdb_txn_renew(snap_) : mdb_txn_begin(env_, nullptr, MDB_RDONLY, &snap_);
        if (rc == MDB_MAP_RESIZED) {
            if (Status st = AdoptMapSize()) return st;
            continue;
        }
        if (rc != 0) return StatusOf(rc);
        snapLive_ = true;
        ++gen_;
        FileState state;
        Status st = LoadState(snap_, state);
        if (st == RM_OK && state.defGen != defGen_) {
            // The definition changed elsewhere: read it, open the new indexes,
            // and begin again, since a transaction knows only the handles that
            // were open when it began.
            st = ReloadDef(snap_, state.defGen);
            ReleaseSnapshot();
            if (st == RM_OK) st = OpenIndexDbs();
            if (st != RM_OK) return st;
            continue;
        }
        if (st != RM_OK) {
            ReleaseSnapshot();
            return st;
        }
        out = snap_;
        return RM_OK;
    }
    return RM_IO_ERROR;
}

Status FileEnv::BeginWrite(Txn& out, FileState& state) {
    if (readOnly_) return RM_ACCESS_DENIED;
    if (server()) return BeginServerWrite(serverSnap_->session(), true, out, state);
    if (Status st = VerifyBeforeWrite()) return st;
    // The snapshot is out of date once this write commits, and until then it
    // would keep the pages the write frees from being used again.
    ReleaseSnapshot();
    for (int attempt = 0; attempt < 4; ++attempt) {
        MDB_txn* txn = nullptr;
        int rc = mdb_txn_begin(env_, nullptr, 0, &txn);
        if (rc == MDB_MAP_RESIZED) {
            if (Status st = AdoptMapSize()) return st;
            continue;
        }
        if (rc != 0) return StatusOf(rc);
        defTouched_ = false;
        Status st = LoadState(txn, state);
        if (st == RM_OK && state.defGen != defGen_) {
            // As for the snapshot: open the new indexes, then begin again.
            st = ReloadDef(txn, state.defGen);
            AbortWrite(txn);
            if (st == RM_OK) st = OpenIndexDbs();
            if (st != RM_OK) return st;
            continue;
        }
        if (st != RM_OK) {
            AbortWrite(txn);
            return st;
        }
        out = txn;
        return RM_OK;
    }
    return RM_IO_ERROR;
}

Status FileEnv::CommitWrite(Txn t, const FileState& state) {
    if (server()) return ServerCommit(t, state);
    MDB_txn* txn = t.mdb();
    if (Status st = PutState(txn, state)) {
        AbortWrite(txn);
        return st;
    }
    return Commit(txn);
}

Status FileEnv::PutState(Txn t, const FileState& state) {
    std::string s = state.Serialize();
    Val k = ValOf(kStateKey, sizeof(kStateKey) - 1), v = ValOf(s);
    return StatusOf(t.Put(meta(), &k, &v, 0));
}

Status FileEnv::PutMark(Txn t, const JournalId& id) {
    Val k = ValOf(kMarkKey, sizeof(kMarkKey) - 1), v = ValOf(id.data(), id.size());
    return StatusOf(t.Put(meta(), &k, &v, 0));
}

Status FileEnv::LoadMark(Txn t, JournalId& id) {
    id.fill(0);
    Val k = ValOf(kMarkKey, sizeof(kMarkKey) - 1), v;
    int rc = t.Get(meta(), &k, &v);
    if (rc == MDB_NOTFOUND) return RM_OK;
    if (rc != 0) return StatusOf(rc);
    if (v.mv_size == id.size()) std::memcpy(id.data(), v.mv_data, id.size());
    return RM_OK;
}

bool FileEnv::MayHaveJournals() {
    if (server()) return false;  // the server's transactions span files
    Txn txn;
    if (Snapshot(txn) != RM_OK) return true;  // look, to be safe
    Val k = ValOf(kMarkKey, sizeof(kMarkKey) - 1), v;
    return txn.Get(meta(), &k, &v) != MDB_NOTFOUND;
}

Status FileEnv::AllowJournals() {
    for (int attempt = 0;; ++attempt) {
        Txn txn;
        FileState state;
        if (Status st = BeginWrite(txn, state)) return st;
        JournalId none{};
        Status st = PutMark(txn, none);
        if (st == RM_OK)
            st = Commit(txn);
        else
            AbortWrite(txn);
        if (st != kMapFull) return st;
        if (attempt == 8 || Grow()) return RM_DISK_FULL;  // the map is full: larger, again
    }
}

Status FileEnv::Commit(Txn t) {
    MDB_txn* txn = t.mdb();
    uint64_t id = mdb_txn_id(txn);
    int rc = mdb_txn_commit(txn);
    if (rc != 0) {
        defGen_ = 0;  // handles opened in the failed transaction are gone
        indexDbi_.clear();
        return StatusOf(rc);
    }
    // A flushed commit flushes whatever came before it; with the meta page
    // flushed too, the commit itself.
    if (sync_ == SyncMode::Full)
        durableTxn_ = std::max(durableTxn_, id);
    else if (sync_ == SyncMode::Normal)
        durableTxn_ = std::max(durableTxn_, id - 1);
    return RM_OK;
}

uint64_t FileEnv::LastCommit() const {
    if (server()) return 0;
    MDB_envinfo info;
    mdb_env_info(env_, &info);
    return info.me_last_txnid;
}

Status FileEnv::SyncNow() {
    if (server()) return RM_OK;  // durability is the server's
    MDB_envinfo info;
    mdb_env_info(env_, &info);
    if (int rc = mdb_env_sync(env_, 1)) return StatusOf(rc);
    durableTxn_ = std::max<uint64_t>(durableTxn_, info.me_last_txnid);
    return RM_OK;
}

void FileEnv::AbortWrite(Txn t) {
    if (server()) return ServerAbort(t);
    MDB_txn* txn = t.mdb();
    mdb_txn_abort(txn);
    if (defTouched_) {
        // Database handles opened or dropped inside the aborted transaction are
        // closed with it; read the definition and its indexes again on next use.
        defGen_ = 0;
        indexDbi_.clear();
        defTouched_ = false;
    }
}

Status FileEnv::StoreDef(Txn t, FileDef def, FileState& state) {
    std::string s = SerializeDef(def);
    Val k = ValOf(kDefKey, sizeof(kDefKey) - 1), v = ValOf(s);
    defTouched_ = true;
    if (int rc = t.Put(meta(), &k, &v, 0)) return StatusOf(rc);
    state.defGen++;
    def_ = std::move(def);
    defGen_ = state.defGen;
    return RM_OK;
}

Status FileEnv::CreateIndexDb(Txn t, uint16_t id) {
    if (server()) return t.pg()->AddIndex(id);
    MDB_txn* txn = t.mdb();
    MDB_dbi dbi;
    defTouched_ = true;
    if (int rc = mdb_dbi_open(txn, IndexName(id).c_str(), MDB_CREATE, &dbi)) return StatusOf(rc);
    indexDbi_[id] = dbi;
    return RM_OK;
}

Status FileEnv::DropIndexDb(Txn t, uint16_t id) {
    if (server()) return t.pg()->DropIndex(id);
    MDB_txn* txn = t.mdb();
    auto it = indexDbi_.find(id);
    if (it == indexDbi_.end()) return RM_IO_ERROR;
    defTouched_ = true;
    int rc = mdb_drop(txn, it->second, 1);
    indexDbi_.erase(it);
    return StatusOf(rc);
}

Status FileEnv::Exists(const std::string& path, bool& exists) {
    if (!pg::ServerFromEnv().empty()) {
        pg::Session* s;
        if (Status st = pg::MainSession(s, true)) return st;
        int64_t id;
        Status st = pg::LookupFile(*s, path, id);
        exists = st == RM_OK;
        return st == RM_FILE_NOT_FOUND ? RM_OK : st;
    }
    struct stat sb {};
    exists = ::stat(path.c_str(), &sb) == 0;
    return RM_OK;
}

Status FileEnv::RemoveFile(const std::string& path) {
    if (!pg::ServerFromEnv().empty()) {
        pg::Session* s;
        if (Status st = pg::MainSession(s, true)) return st;
        return pg::RemoveFile(*s, path);
    }
    std::string real = CanonicalPath(path);
    if (::unlink(path.c_str()) != 0) return RM_IO_ERROR;
    ::unlink((path + "-lock").c_str());
    RemoveSidecars(real);  // journals of the file removed are moot
    return RM_OK;
}

Status FileEnv::CreateFile(const std::string& path, const FileDef& def) {
    if (!pg::ServerFromEnv().empty()) {
        pg::Session* s;
        if (Status st = pg::MainSession(s, true)) return st;
        return pg::CreateFile(*s, path, def);
    }
    std::string tmp = path + ".rmnew" + std::to_string(::getpid());
    std::string tmpLock = tmp + "-lock";
    ::unlink(tmp.c_str());
    ::unlink(tmpLock.c_str());
    MDB_env* env = nullptr;
    if (mdb_env_create(&env) != 0) return RM_CREATE_IO_ERROR;
    mdb_env_set_maxdbs(env, kMaxDbs);
    mdb_env_set_mapsize(env, 64 * kMiB);
    int rc = mdb_env_open(env, tmp.c_str(), MDB_NOSUBDIR | MDB_NOTLS | MDB_NOSYNC, 0644);
    MDB_txn* txn = nullptr;
    if (rc == 0) rc = mdb_txn_begin(env, nullptr, 0, &txn);
    if (rc == 0) {
        MDB_dbi meta, rec, idx;
        rc = mdb_dbi_open(txn, "meta", MDB_CREATE, &meta);
        if (rc == 0) rc = mdb_dbi_open(txn, "rec", MDB_CREATE | MDB_INTEGERKEY, &rec);
        for (const KeyDef& k : def.keys)
            if (rc == 0) rc = mdb_dbi_open(txn, IndexName(k.id).c_str(), MDB_CREATE, &idx);
        std::string d = SerializeDef(def), s = FileState{}.Serialize();
        Val dk = ValOf(kDefKey, sizeof(kDefKey) - 1), dv = ValOf(d);
        Val sk = ValOf(kStateKey, sizeof(kStateKey) - 1), sv = ValOf(s);
        if (rc == 0) rc = mdb_put(txn, meta, &dk, &dv, 0);
        if (rc == 0) rc = mdb_put(txn, meta, &sk, &sv, 0);
        if (rc == 0)
            rc = mdb_txn_commit(txn);
        else
            mdb_txn_abort(txn);
    }
    if (rc == 0) rc = mdb_env_sync(env, 1);
    mdb_env_close(env);
    ::unlink(tmpLock.c_str());
    if (rc == 0 && ::rename(tmp.c_str(), path.c_str()) != 0) rc = errno;
    if (rc != 0) {
        ::unlink(tmp.c_str());
        return (rc == ENOSPC || rc == EDQUOT) ? RM_DISK_FULL : RM_CREATE_IO_ERROR;
    }
    // The old file's lock table, if any, belonged to a file nobody has open;
    // its journals, to a file that is no more.
    ::unlink((path + "-lock").c_str());
    RemoveSidecars(CanonicalPath(path));
    return RM_OK;
}

}  // namespace recman
