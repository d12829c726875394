// Reads: keyed gets, physical steps, direct access and positions.
#include <algorithm>
#include <cstring>

#include "recman/bytes.h"
#include "recman/engine.h"
#include "recman/keycodec.h"

namespace recman {

namespace {

Status NotFound(int rc, Status whenAbsent) {
    if (rc == MDB_NOTFOUND) return whenAbsent;
    return StatusOf(rc);
}

// Fetches the record at `address` through `c`, leaving the cursor on it.
Status FetchRecord(MDB_cursor* c, uint32_t address, StoredRecord& rec) {
    MDB_val k{4, &address}, v;
    int rc = mdb_cursor_get(c, &k, &v, MDB_SET_KEY);
    if (rc == MDB_NOTFOUND) return RM_INVALID_RECORD_ADDRESS;
    if (rc != 0) return StatusOf(rc);
    return DecodeRecord(v, address, rec) ? RM_OK : RM_IO_ERROR;
}

}  // namespace

Status Engine::Deliver(Request& r, Handle& h, const StoredRecord& rec, const KeyDef* path,
                       const MDB_val* entry, bool shared) {
    if (r.lock)
        if (Status st = TakeLock(h, rec.address, r.lock, shared)) return st;
    Status st = RM_OK;
    if (!r.keyOnly) {
        uint32_t n = std::min(r.DataLen(), rec.length);
        if (n) std::memcpy(r.data, rec.data, n);
        *r.dataLen = n;
        if (n < rec.length) st = RM_DATA_BUFFER_TOO_SHORT;
    }
    if (path && entry) {
        ExtractKey(*path, rec.data, r.key);
        h.cur.logical = Pos::On;
        h.cur.indexId = path->id;
        h.cur.entry.len = uint16_t(std::min(entry->mv_size, kMaxEntry));
        std::memcpy(h.cur.entry.bytes, entry->mv_data, h.cur.entry.len);
    } else {
        h.cur.logical = Pos::None;
    }
    h.cur.physical = Pos::On;
    h.cur.address = rec.address;
    h.cur.version = rec.version;
    return st;
}

Status Engine::GetKeyed(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    MDB_txn* txn;
    bool shared;
    if ((st = ReadTxn(*h, txn, shared))) return st;
    const KeyDef* key = h->env->def().FindKey(r.keyNum);
    if (!key) return RM_INVALID_KEY_NUMBER;
    if (!r.keyOnly && (!r.data || !r.dataLen)) return RM_DATA_BUFFER_TOO_SHORT;
    if (!r.key || r.keyLen < key->length) return RM_KEY_BUFFER_TOO_SHORT;
    bool step = r.op == RM_GET_NEXT || r.op == RM_GET_PREVIOUS;
    if (step) {
        if (h->cur.logical == Pos::None) return RM_INVALID_POSITIONING;
        if (h->cur.indexId != key->id) return RM_DIFFERENT_KEY_NUMBER;
    }
    CursorRef c;
    if ((st = IndexCursor(*h, txn, shared, *key, c))) return st;

    size_t entryLen = EntryLength(*key);
    uint8_t sk[RM_MAX_KEY_LENGTH];
    MDB_val k, v;
    int rc;
    const Entry& e = h->cur.entry;
    switch (r.op) {
        case RM_GET_EQUAL:
            SortKeyFromKeyBuffer(*key, r.key, sk);
            rc = SeekFirstAtOrAfter(c.c, sk, key->length, k, v);
            if (rc == 0 && (k.mv_size < key->length || std::memcmp(k.mv_data, sk, key->length)))
                rc = MDB_NOTFOUND;
            break;
        case RM_GET_GREATER:
            SortKeyFromKeyBuffer(*key, r.key, sk);
            rc = SeekFirstAfter(c.c, sk, key->length, entryLen, k, v);
            break;
        case RM_GET_GREATER_OR_EQUAL:
            SortKeyFromKeyBuffer(*key, r.key, sk);
            rc = SeekFirstAtOrAfter(c.c, sk, key->length, k, v);
            break;
        case RM_GET_LESS:
            SortKeyFromKeyBuffer(*key, r.key, sk);
            rc = SeekLastBefore(c.c, sk, key->length, k, v);
            break;
        case RM_GET_LESS_OR_EQUAL:
            SortKeyFromKeyBuffer(*key, r.key, sk);
            rc = SeekLastAtOrBefore(c.c, sk, key->length, entryLen, k, v);
            break;
        case RM_GET_FIRST:
            rc = mdb_cursor_get(c.c, &k, &v, MDB_FIRST);
            break;
        case RM_GET_LAST:
            rc = mdb_cursor_get(c.c, &k, &v, MDB_LAST);
            break;
        case RM_GET_NEXT:
            if (shared && h->idxAtCurrency && h->cur.logical == Pos::On)
                rc = mdb_cursor_get(c.c, &k, &v, MDB_NEXT);
            else if (h->cur.logical == Pos::Before)
                rc = SeekFirstAtOrAfter(c.c, e.bytes, e.len, k, v);
            else
                rc = SeekFirstAfter(c.c, e.bytes, e.len, e.len, k, v);
            break;
        default:  // RM_GET_PREVIOUS
            if (shared && h->idxAtCurrency && h->cur.logical == Pos::On)
                rc = mdb_cursor_get(c.c, &k, &v, MDB_PREV);
            else if (h->cur.logical == Pos::After)
                rc = SeekLastAtOrBefore(c.c, e.bytes, e.len, e.len, k, v);
            else
                rc = SeekLastBefore(c.c, e.bytes, e.len, k, v);
            break;
    }
    h->idxAtCurrency = h->recAtCurrency = false;
    if (rc == MDB_NOTFOUND && step) {
        // Ran off an end: the way back still leads to the record at that end.
        h->cur.logical = r.op == RM_GET_NEXT ? Pos::After : Pos::Before;
        h->cur.physical = Pos::None;
        return RM_END_OF_FILE;
    }
    if (rc != 0) return NotFound(rc, r.op == RM_GET_EQUAL ? RM_KEY_NOT_FOUND : RM_END_OF_FILE);
    if (step) TouchPage(k.mv_data, h->touchedPage);

    StoredRecord rec;
    bool fetched = !key->clustered;  // the primary key's entries carry the record
    if (!fetched) {
        if (!DecodeClustered(v, rec)) return RM_IO_ERROR;
    } else {
        CursorRef rc2;
        if ((st = RecordCursor(*h, txn, shared, rc2))) return st;
        if ((st = FetchRecord(rc2.c, AddressOf(v), rec)))
            return st == RM_INVALID_RECORD_ADDRESS ? RM_IO_ERROR : st;
    }
    st = Deliver(r, *h, rec, key, &k, shared);
    h->idxAtCurrency = shared && (st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT);
    h->recAtCurrency = fetched && h->idxAtCurrency;
    return st;
}

Status Engine::Step(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (!r.data || !r.dataLen) return RM_DATA_BUFFER_TOO_SHORT;
    bool next = r.op == RM_STEP_NEXT, prev = r.op == RM_STEP_PREVIOUS;
    if ((next || prev) && h->cur.physical == Pos::None) return RM_INVALID_POSITIONING;
    MDB_txn* txn;
    bool shared;
    if ((st = ReadTxn(*h, txn, shared))) return st;
    CursorRef c;
    if ((st = RecordCursor(*h, txn, shared, c))) return st;
    bool atCurrency = shared && h->cur.physical == Pos::On && h->recAtCurrency;
    uint32_t at = h->cur.address;
    MDB_val k, v;
    int rc;
    if (r.op == RM_STEP_FIRST)
        rc = mdb_cursor_get(c.c, &k, &v, MDB_FIRST);
    else if (r.op == RM_STEP_LAST)
        rc = mdb_cursor_get(c.c, &k, &v, MDB_LAST);
    else if (next && atCurrency)
        rc = mdb_cursor_get(c.c, &k, &v, MDB_NEXT);
    else if (prev && atCurrency)
        rc = mdb_cursor_get(c.c, &k, &v, MDB_PREV);
    else if (next)
        rc = h->cur.physical == Pos::Before ? SeekFirstAtOrAfter(c.c, &at, 4, k, v)
                                            : SeekFirstAfter(c.c, &at, 4, 4, k, v);
    else
        rc = h->cur.physical == Pos::After ? SeekLastAtOrBefore(c.c, &at, 4, 4, k, v)
                                           : SeekLastBefore(c.c, &at, 4, k, v);
    h->idxAtCurrency = h->recAtCurrency = false;
    if (rc == MDB_NOTFOUND) {
        if (next || prev) {
            h->cur.physical = next ? Pos::After : Pos::Before;
            h->cur.logical = Pos::None;
        }
        return RM_END_OF_FILE;
    }
    if (rc != 0) return StatusOf(rc);
    if (next || prev) TouchPage(k.mv_data, h->touchedPage);
    uint32_t address = 0;
    std::memcpy(&address, k.mv_data, 4);
    StoredRecord rec;
    if (!DecodeRecord(v, address, rec)) return RM_IO_ERROR;
    st = Deliver(r, *h, rec, nullptr, nullptr, shared);
    h->recAtCurrency = shared && (st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT);
    return st;
}

Status Engine::GetDirect(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (!r.data || r.DataLen() < 4) return RM_DATA_BUFFER_TOO_SHORT;
    MDB_txn* txn;
    bool shared;
    if ((st = ReadTxn(*h, txn, shared))) return st;
    const KeyDef* key = h->env->def().FindKey(r.keyNum);
    if (!key) return RM_INVALID_KEY_NUMBER;
    if (!r.key || r.keyLen < key->length) return RM_KEY_BUFFER_TOO_SHORT;
    CursorRef c;
    if ((st = RecordCursor(*h, txn, shared, c))) return st;
    StoredRecord rec;
    h->idxAtCurrency = h->recAtCurrency = false;
    if ((st = FetchRecord(c.c, LoadLe32(r.data), rec))) return st;
    Entry e;
    bool inPath = !ExcludedFromIndex(*key, rec.data);
    if (inPath) MakeEntry(*key, rec.data, rec.SeqOf(key->id), e);
    MDB_val ev{e.len, e.bytes};
    st = Deliver(r, *h, rec, inPath ? key : nullptr, inPath ? &ev : nullptr, shared);
    h->recAtCurrency = shared && (st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT);
    return st;
}

Status Engine::GetPosition(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (!r.data || r.DataLen() < 4) return RM_DATA_BUFFER_TOO_SHORT;
    if (!h->cur.HasRecord()) return RM_INVALID_POSITIONING;
    StoreLe32(r.data, h->cur.address);
    *r.dataLen = 4;
    return RM_OK;
}

}  // namespace recman
