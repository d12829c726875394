// Changes: insert, update, delete, and the release of record locks.
#include <cstring>

#include "recman/bytes.h"
#include "recman/engine.h"
#include "recman/keycodec.h"

namespace recman {

namespace {

// The record length a write stores, or a status when the length is refused.
Status StoredLength(const FileDef& d, uint32_t given, uint32_t& len) {
    if (given < d.recordLength) return RM_DATA_BUFFER_TOO_SHORT;
    if (!d.VarLength()) {
        len = d.recordLength;  // a fixed-length file keeps only its record length
        return RM_OK;
    }
    if (given > RM_MAX_RECORD_LENGTH) return RM_INVALID_RECORD_LENGTH;
    len = given;
    return RM_OK;
}

// Puts the logical currency on `record` in `path`, or drops it when the
// record is left out of that index.
void PlaceOnPath(Currency& cur, const KeyDef* path, const uint8_t* record,
                 const Store::Seqs& seqs) {
    if (!path || ExcludedFromIndex(*path, record)) {
        cur.logical = Pos::None;
        return;
    }
    MakeEntry(*path, record, SeqIn(seqs, path->id), cur.entry);
    cur.logical = Pos::On;
    cur.indexId = path->id;
}

const KeyDef* KeyById(const FileDef& d, uint16_t id) {
    for (const KeyDef& k : d.keys)
        if (k.id == id) return &k;
    return nullptr;
}

}  // namespace

Status Engine::Insert(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (h->readOnly) return RM_ACCESS_DENIED;
    if (!r.data || !r.dataLen) return RM_DATA_BUFFER_TOO_SHORT;
    std::vector<uint8_t> record;
    uint32_t address = 0;
    const KeyDef* path = nullptr;
    Store::Seqs seqs;
    st = RunWrite(*h, [&](Store& s, FileState& state) -> Status {
        const FileDef& d = s.def();
        uint32_t len;
        if (Status e = StoredLength(d, r.DataLen(), len)) return e;
        path = nullptr;
        if (r.keyNum != -1) {
            if (!(path = d.FindKey(r.keyNum))) return RM_INVALID_KEY_NUMBER;
            if (!r.key || r.keyLen < path->length) return RM_KEY_BUFFER_TOO_SHORT;
        }
        record.assign(r.data, r.data + len);
        return s.Insert(state, record, address, seqs);
    });
    if (st) return st;
    std::memcpy(r.data, record.data(), record.size());  // autoincrement values
    if (path) ExtractKey(*path, record.data(), r.key);
    PlaceOnPath(h->cur, path, record.data(), seqs);
    h->cur.physical = Pos::On;
    h->cur.address = address;
    h->cur.version = 0;
    h->idxAtCurrency = h->recAtCurrency = false;
    return RM_OK;
}

Status Engine::Update(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (h->readOnly) return RM_ACCESS_DENIED;
    if (!r.data || !r.dataLen) return RM_DATA_BUFFER_TOO_SHORT;
    if (!h->cur.HasRecord()) return RM_INVALID_POSITIONING;
    uint32_t address = h->cur.address;
    if ((st = CheckNotLockedByOther(*h, address))) return st;
    uint32_t version = 0;
    std::vector<uint8_t> record;
    const KeyDef* path = nullptr;
    Store::Seqs seqs;
    st = RunWrite(*h, [&](Store& s, FileState& state) -> Status {
        const FileDef& d = s.def();
        uint32_t len;
        if (Status e = StoredLength(d, r.DataLen(), len)) return e;
        path = nullptr;
        if (r.keyNum != -1) {
            if (!(path = d.FindKey(r.keyNum))) return RM_INVALID_KEY_NUMBER;
            if (!r.key || r.keyLen < path->length) return RM_KEY_BUFFER_TOO_SHORT;
        } else if (h->cur.logical != Pos::None) {
            path = KeyById(d, h->cur.indexId);
        }
        StoredRecord old;
        int rc = s.Get(address, old);
        if (rc == MDB_NOTFOUND) return RM_CONFLICT;
        if (rc != 0) return StatusOf(rc);
        if (old.version != h->cur.version) return RM_CONFLICT;
        record.assign(r.data, r.data + len);
        return s.Update(state, old, record.data(), len, version, seqs);
    });
    if (st) return st;
    if (path && r.keyNum != -1) ExtractKey(*path, record.data(), r.key);
    if (path || r.keyNum != -1) PlaceOnPath(h->cur, path, record.data(), seqs);
    h->cur.version = version;
    h->idxAtCurrency = h->recAtCurrency = false;
    if (h->lockKind == LockKind::Single) h->ReleaseLock(address);
    return RM_OK;
}

Status Engine::Delete(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (h->readOnly) return RM_ACCESS_DENIED;
    if (!h->cur.HasRecord()) return RM_INVALID_POSITIONING;
    uint32_t address = h->cur.address;
    if ((st = CheckNotLockedByOther(*h, address))) return st;
    st = RunWrite(*h, [&](Store& s, FileState& state) -> Status {
        StoredRecord old;
        int rc = s.Get(address, old);
        if (rc == MDB_NOTFOUND) return RM_CONFLICT;
        if (rc != 0) return StatusOf(rc);
        if (old.version != h->cur.version) return RM_CONFLICT;
        return s.Delete(state, old);
    });
    if (st) return st;
    // The handle keeps its place between the deleted record's neighbours.
    if (h->cur.logical == Pos::On) h->cur.logical = Pos::Gone;
    h->cur.physical = Pos::Gone;
    h->idxAtCurrency = h->recAtCurrency = false;
    h->ReleaseLock(address);
    return RM_OK;
}

Status Engine::Unlock(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (r.keyNum == RM_UNLOCK_ONE_MULTI) {
        if (!r.data || r.DataLen() < 4) return RM_DATA_BUFFER_TOO_SHORT;
        if (h->lockKind == LockKind::Multiple) h->ReleaseLock(LoadLe32(r.data));
    } else if (r.keyNum == RM_UNLOCK_ALL_MULTI) {
        if (h->lockKind == LockKind::Multiple) h->ReleaseAllLocks();
    } else if (r.keyNum >= 0) {
        if (h->lockKind == LockKind::Single) h->ReleaseAllLocks();
    } else {
        return RM_INVALID_OPERATION;
    }
    return RM_OK;
}

}  // namespace recman
