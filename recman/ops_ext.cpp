// Extended operations: many records, filtered and cut to selected fields, in
// one call, following a key path (36, 37) or physical order (38, 39).
#include <algorithm>
#include <cstring>

#include "recman/bytes.h"
#include "recman/engine.h"
#include "recman/extended.h"
#include "recman/guard.h"
#include "recman/keycodec.h"

namespace recman {

Status Engine::Extended(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (!r.data || !r.dataLen) return RM_DATA_BUFFER_TOO_SHORT;
    Txn txn;
    bool shared;
    if ((st = ReadTxn(*h, txn, shared))) return st;
    const FileDef& def = h->env->def();
    ExtDescriptor d;
    if ((st = ParseDescriptor(r.data, r.DataLen(), def.recordLength, d))) return st;

    bool physical = r.op == RM_STEP_NEXT_EXTENDED || r.op == RM_STEP_PREVIOUS_EXTENDED;
    bool forward = r.op == RM_GET_NEXT_EXTENDED || r.op == RM_STEP_NEXT_EXTENDED;
    const KeyDef* key = nullptr;
    if (!physical) {
        if (!(key = def.FindKey(r.keyNum))) return RM_INVALID_KEY_NUMBER;
        if (h->cur.logical == Pos::None) return RM_INVALID_POSITIONING;
        if (h->cur.indexId != key->id) return RM_DIFFERENT_KEY_NUMBER;
    } else if (h->cur.physical == Pos::None) {
        return RM_INVALID_POSITIONING;
    }
    CursorRef c, rc;
    if ((st = physical ? RecordCursor(*h, txn, shared, c) : IndexCursor(*h, txn, shared, *key, c)))
        return st;
    if (!physical && !key->clustered && (st = RecordCursor(*h, txn, shared, rc))) return st;
    h->idxAtCurrency = h->recAtCurrency = false;

    // The first record to examine: the current one for "UC" when the handle
    // is on it, else the next one in the scan's direction.
    Pos pos = physical ? h->cur.physical : h->cur.logical;
    uint32_t address = h->cur.address;
    const void* at = physical ? static_cast<const void*>(&address) : h->cur.entry.bytes;
    size_t atLen = physical ? 4 : h->cur.entry.len;
    Val k, v;
    const bool checked = def.Checksummed();
    // Positions the cursor (first: where the scan starts, else the next
    // record) and reads what it finds, guarded against damaged pages: the
    // record, or false when it does not hold.
    bool first = true;
    uintptr_t page = 0;  // the storage page asked for last
    auto fetch = [&](int& rc1, StoredRecord& rec) {
        bool intact = true;
        int g = Guarded([&] {
            if (!first) {
                rc1 = c.c->Get(&k, &v, forward ? MDB_NEXT : MDB_PREV);
            } else if (d.useCurrent && pos == Pos::On) {
                rc1 = forward ? SeekFirstAtOrAfter(*c.c, at, atLen, k, v)
                              : SeekLastAtOrBefore(*c.c, at, atLen, atLen, k, v);
            } else if (forward) {
                rc1 = pos == Pos::Before ? SeekFirstAtOrAfter(*c.c, at, atLen, k, v)
                                         : SeekFirstAfter(*c.c, at, atLen, atLen, k, v);
            } else {
                rc1 = pos == Pos::After ? SeekLastAtOrBefore(*c.c, at, atLen, atLen, k, v)
                                        : SeekLastBefore(*c.c, at, atLen, k, v);
            }
            if (rc1 != 0) return 0;
            TouchPage(k.mv_data, page);
            if (physical) {
                uint32_t a = 0;
                std::memcpy(&a, k.mv_data, std::min<size_t>(k.mv_size, 4));
                intact = DecodeRecord(v, a, rec, checked);
            } else if (key->clustered) {
                intact = DecodeClustered(k, v, rec, checked);
            } else {
                uint32_t a = AddressOf(v);
                Val rk = ValOf(&a, 4), rv;
                intact = EntryIntact(k, v, checked) && rc.c->Get(&rk, &rv, MDB_SET_KEY) == 0 &&
                         DecodeRecord(rv, a, rec, checked);
            }
            return 0;
        });
        first = false;
        return g == 0 && intact && rc1 != MDB_CORRUPTED && rc1 != MDB_PAGE_NOTFOUND;
    };

    const uint32_t capacity = r.DataLen();
    const uint32_t entrySize = 6 + d.ExtractLength();
    std::vector<uint8_t> out(2, 0);
    uint16_t found = 0, rejected = 0;
    std::vector<uint32_t> taken;  // locks this call took
    bool examined = false;
    uint32_t lastAddress = 0, lastVersion = 0;
    Val lastKey{0, nullptr};
    Status result = RM_OK;
    for (;;) {
        int rc1 = 0;
        StoredRecord rec;
        if (!fetch(rc1, rec)) {
            for (uint32_t a : taken)
                h->ReleaseLock(a);
            return Damage(*h);
        }
        if (rc1 == MDB_NOTFOUND) {
            result = RM_END_OF_FILE;
            break;
        }
        if (rc1 != 0) return StatusOf(rc1);
        if (d.Qualifies(rec.data, rec.length)) {
            if (out.size() + entrySize > capacity) break;  // the next entry does not fit
            if (r.lock) {
                bool held = h->Holds(rec.address);
                Status ls = TakeLock(*h, rec.address, rec.version, r.lock, shared);
                if (ls == RM_INCOMPATIBLE_LOCK) return ls;
                if (ls == kReadAgain) {
                    // Newer commits than the records gathered: start over.
                    for (uint32_t a : taken)
                        h->ReleaseLock(a);
                    return ls;
                }
                if (ls == RM_OK && !held) taken.push_back(rec.address);
                if (ls) {
                    // Nothing gathered yet: nothing has moved, the call may wait.
                    if (found == 0) return ls;
                    result = RM_RECORD_LOCKED;
                    break;
                }
            }
            size_t o = out.size();
            out.resize(o + entrySize);
            StoreLe16(&out[o], uint16_t(d.ExtractLength()));
            StoreLe32(&out[o + 2], rec.address);
            d.Extract(rec.data, rec.length, &out[o + 6]);
            ++found;
        } else {
            ++rejected;
        }
        // Storage memory stays valid to the end of the call: no copies yet.
        examined = true;
        lastAddress = rec.address;
        lastVersion = rec.version;
        lastKey = k;
        if (found == d.maxRecords) break;
        if (d.rejectCount && rejected >= d.rejectCount) {
            if (found == 0) result = RM_REJECT_COUNT_REACHED;
            break;
        }
    }
    // Currency rests on the last record examined.
    if (examined) {
        h->cur.physical = Pos::On;
        h->cur.address = lastAddress;
        h->cur.version = lastVersion;
        if (physical) {
            h->cur.logical = Pos::None;
        } else {
            h->cur.logical = Pos::On;
            h->cur.indexId = key->id;
            h->cur.entry.len = uint16_t(std::min(lastKey.mv_size, kMaxEntry));
            std::memcpy(h->cur.entry.bytes, lastKey.mv_data, h->cur.entry.len);
        }
    }
    StoreLe16(out.data(), found);
    std::memcpy(r.data, out.data(), out.size());
    *r.dataLen = uint32_t(out.size());
    return result;
}

}  // namespace recman
