// Reads: keyed gets, physical steps, direct access and positions.
#include <algorithm>
#include <cstring>

#include "recman/bytes.h"
#include "recman/engine.h"
#include "recman/guard.h"
#include "recman/keycodec.h"

namespace recman {

namespace {

Status NotFound(int rc, Status whenAbsent) {
    if (rc == MDB_NOTFOUND) return whenAbsent;
    return StatusOf(rc);
}

// Fetches the record at `address` through `c`, leaving the cursor on it.
Status FetchRecord(Cursor& c, uint32_t address, StoredRecord& rec, bool checked) {
    Val k = ValOf(&address, 4), v;
    int rc = c.Get(&k, &v, MDB_SET_KEY);
    if (rc == MDB_NOTFOUND) return RM_INVALID_RECORD_ADDRESS;
    if (rc != 0) return StatusOf(rc);
    return DecodeRecord(v, address, rec, checked) ? RM_OK : RM_IO_ERROR;
}

}  // namespace

Status Engine::Deliver(Request& r, Handle& h, const StoredRecord& rec, const KeyDef* path,
                       const Val* entry, bool shared) {
    if (r.lock)
        if (Status st = TakeLock(h, rec.address, rec.version, r.lock, shared)) return st;
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
    Txn txn;
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
    bool fetched = !key->clustered;  // the primary key's entries carry the record
    CursorRef rc2;
    if (fetched && (st = RecordCursor(*h, txn, shared, rc2))) return st;

    size_t entryLen = EntryLength(*key);
    uint8_t sk[RM_MAX_KEY_LENGTH];
    if (r.op != RM_GET_FIRST && r.op != RM_GET_LAST && !step) SortKeyFromKeyBuffer(*key, r.key, sk);
    Val k, v;
    int rc;
    const Entry& e = h->cur.entry;
    bool checked = h->env->def().Checksummed();
    StoredRecord rec;
    Status found = RM_OK;
    // The walk through the pages and the reading of what it finds run
    // guarded: a damaged page ends them with a fault, not the process.
    int g = Guarded([&] {
        switch (r.op) {
            case RM_GET_EQUAL:
                rc = SeekFirstAtOrAfter(*c.c, sk, key->length, k, v);
                if (rc == 0 && (k.mv_size < key->length || std::memcmp(k.mv_data, sk, key->length)))
                    rc = MDB_NOTFOUND;
                break;
            case RM_GET_GREATER:
                rc = SeekFirstAfter(*c.c, sk, key->length, entryLen, k, v);
                break;
            case RM_GET_GREATER_OR_EQUAL:
                rc = SeekFirstAtOrAfter(*c.c, sk, key->length, k, v);
                break;
            case RM_GET_LESS:
                rc = SeekLastBefore(*c.c, sk, key->length, k, v);
                break;
            case RM_GET_LESS_OR_EQUAL:
                rc = SeekLastAtOrBefore(*c.c, sk, key->length, entryLen, k, v);
                break;
            case RM_GET_FIRST:
                rc = c.c->Get(&k, &v, MDB_FIRST);
                break;
            case RM_GET_LAST:
                rc = c.c->Get(&k, &v, MDB_LAST);
                break;
            case RM_GET_NEXT:
                if (shared && h->idxAtCurrency && h->cur.logical == Pos::On)
                    rc = c.c->Get(&k, &v, MDB_NEXT);
                else if (h->cur.logical == Pos::Before)
                    rc = SeekFirstAtOrAfter(*c.c, e.bytes, e.len, k, v);
                else
                    rc = SeekFirstAfter(*c.c, e.bytes, e.len, e.len, k, v);
                break;
            default:  // RM_GET_PREVIOUS
                if (shared && h->idxAtCurrency && h->cur.logical == Pos::On)
                    rc = c.c->Get(&k, &v, MDB_PREV);
                else if (h->cur.logical == Pos::After)
                    rc = SeekLastAtOrBefore(*c.c, e.bytes, e.len, e.len, k, v);
                else
                    rc = SeekLastBefore(*c.c, e.bytes, e.len, k, v);
                break;
        }
        if (rc != 0) return 0;
        if (step) TouchPage(k.mv_data, h->touchedPage);
        if (!fetched) {
            if (!DecodeClustered(k, v, rec, checked)) found = RM_IO_ERROR;
        } else if (!EntryIntact(k, v, checked)) {
            found = RM_IO_ERROR;
        } else {
            found = FetchRecord(*rc2.c, AddressOf(v), rec, checked);
            // An entry pointing at no record is damage as well.
            if (found == RM_INVALID_RECORD_ADDRESS) found = RM_IO_ERROR;
        }
        return 0;
    });
    h->idxAtCurrency = h->recAtCurrency = false;
    if (g || rc == MDB_CORRUPTED || rc == MDB_PAGE_NOTFOUND || found == RM_IO_ERROR)
        return Damage(*h);
    if (rc == MDB_NOTFOUND && step) {
        // Ran off an end: the way back still leads to the record at that end.
        h->cur.logical = r.op == RM_GET_NEXT ? Pos::After : Pos::Before;
        h->cur.physical = Pos::None;
        return RM_END_OF_FILE;
    }
    if (rc != 0) return NotFound(rc, r.op == RM_GET_EQUAL ? RM_KEY_NOT_FOUND : RM_END_OF_FILE);
    if (found) return found;

    st = Deliver(r, *h, rec, key, &k, shared);
    h->idxAtCurrency = shared && (st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT);
    h->recAtCurrency = fetched && h->idxAtCurrency;
    return st;
}

Status Engine::Damage(Handle& h) {
    // The handle's cursors may have stopped half way through a page; the
    // snapshot itself holds nothing a fault could have left half done.
    h.CloseCursors();
    return h.env->Damaged();
}

Status Engine::Step(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (!r.data || !r.dataLen) return RM_DATA_BUFFER_TOO_SHORT;
    bool next = r.op == RM_STEP_NEXT, prev = r.op == RM_STEP_PREVIOUS;
    if ((next || prev) && h->cur.physical == Pos::None) return RM_INVALID_POSITIONING;
    Txn txn;
    bool shared;
    if ((st = ReadTxn(*h, txn, shared))) return st;
    CursorRef c;
    if ((st = RecordCursor(*h, txn, shared, c))) return st;
    bool atCurrency = shared && h->cur.physical == Pos::On && h->recAtCurrency;
    uint32_t at = h->cur.address;
    Val k, v;
    int rc;
    StoredRecord rec;
    bool intact = true;
    int g = Guarded([&] {
        if (r.op == RM_STEP_FIRST)
            rc = c.c->Get(&k, &v, MDB_FIRST);
        else if (r.op == RM_STEP_LAST)
            rc = c.c->Get(&k, &v, MDB_LAST);
        else if (next && atCurrency)
            rc = c.c->Get(&k, &v, MDB_NEXT);
        else if (prev && atCurrency)
            rc = c.c->Get(&k, &v, MDB_PREV);
        else if (next)
            rc = h->cur.physical == Pos::Before ? SeekFirstAtOrAfter(*c.c, &at, 4, k, v)
                                                : SeekFirstAfter(*c.c, &at, 4, 4, k, v);
        else
            rc = h->cur.physical == Pos::After ? SeekLastAtOrBefore(*c.c, &at, 4, 4, k, v)
                                               : SeekLastBefore(*c.c, &at, 4, k, v);
        if (rc == 0) {
            if (next || prev) TouchPage(k.mv_data, h->touchedPage);
            uint32_t address = 0;
            std::memcpy(&address, k.mv_data, std::min<size_t>(k.mv_size, 4));
            intact = k.mv_size == 4 && DecodeRecord(v, address, rec, h->env->def().Checksummed());
        }
        return 0;
    });
    h->idxAtCurrency = h->recAtCurrency = false;
    if (g || rc == MDB_CORRUPTED || rc == MDB_PAGE_NOTFOUND || !intact) return Damage(*h);
    if (rc == MDB_NOTFOUND) {
        if (next || prev) {
            h->cur.physical = next ? Pos::After : Pos::Before;
            h->cur.logical = Pos::None;
        }
        return RM_END_OF_FILE;
    }
    if (rc != 0) return StatusOf(rc);
    st = Deliver(r, *h, rec, nullptr, nullptr, shared);
    h->recAtCurrency = shared && (st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT);
    return st;
}

Status Engine::GetDirect(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (!r.data || r.DataLen() < 4) return RM_DATA_BUFFER_TOO_SHORT;
    Txn txn;
    bool shared;
    if ((st = ReadTxn(*h, txn, shared))) return st;
    const KeyDef* key = h->env->def().FindKey(r.keyNum);
    if (!key) return RM_INVALID_KEY_NUMBER;
    if (!r.key || r.keyLen < key->length) return RM_KEY_BUFFER_TOO_SHORT;
    CursorRef c;
    if ((st = RecordCursor(*h, txn, shared, c))) return st;
    StoredRecord rec;
    h->idxAtCurrency = h->recAtCurrency = false;
    uint32_t address = LoadLe32(r.data);
    bool checked = h->env->def().Checksummed();
    if (Guarded([&] { return st = FetchRecord(*c.c, address, rec, checked), 0; }))
        return Damage(*h);
    if (st == RM_IO_ERROR) return Damage(*h);
    if (st) return st;
    Entry e;
    bool inPath = !ExcludedFromIndex(*key, rec.data);
    if (inPath) MakeEntry(*key, rec.data, rec.SeqOf(key->id), e);
    Val ev = ValOf(e.bytes, e.len);
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
