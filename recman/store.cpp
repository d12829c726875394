#include "recman/store.h"

#include <algorithm>
#include <cstring>

#include "recman/bytes.h"
#include "recman/crc32c.h"
#include "recman/guard.h"
#include "recman/keycodec.h"
#include "recman/status.h"

namespace recman {

namespace {

constexpr size_t kHeader = 5;
constexpr size_t kSeqPair = 10;

bool StartsWith(const Val& k, const void* x, size_t n) {
    return k.mv_size >= n && std::memcmp(k.mv_data, x, n) == 0;
}

bool Equals(const Val& k, const void* x, size_t n) {
    return k.mv_size == n && std::memcmp(k.mv_data, x, n) == 0;
}

// Reads a little-endian signed integer of 2 or 4 bytes.
int64_t LoadSigned(const uint8_t* p, uint16_t len) {
    return len == 2 ? int64_t(int16_t(LoadLe16(p))) : int64_t(int32_t(LoadLe32(p)));
}

}  // namespace

uint64_t StoredRecord::SeqOf(uint16_t indexId) const {
    for (uint8_t i = 0; i < seqCount; ++i) {
        const uint8_t* p = seqs + i * kSeqPair;
        if (LoadLe16(p) == indexId) return LoadLe64(p + 2);
    }
    return 0;
}

namespace {

// The checksum of a stored value: over `key` and the value without its last
// four bytes. The key binds the value to the place it is stored under.
uint32_t ValueCrc(const void* key, size_t keyLen, const uint8_t* value, size_t n) {
    return Crc32c(key, keyLen, value, n);
}

bool ChecksumHolds(const void* key, size_t keyLen, const Val& v) {
    if (v.mv_size < kChecksumSize) return false;
    const uint8_t* p = static_cast<const uint8_t*>(v.mv_data);
    size_t n = v.mv_size - kChecksumSize;
    return ValueCrc(key, keyLen, p, n) == LoadLe32(p + n);
}

}  // namespace

bool DecodeRecord(const Val& v, uint32_t address, StoredRecord& out, bool checked) {
    const uint8_t* p = static_cast<const uint8_t*>(v.mv_data);
    size_t size = v.mv_size;
    if (checked) {
        uint8_t key[4];
        StoreLe32(key, address);
        if (!ChecksumHolds(key, 4, v)) return false;
        size -= kChecksumSize;
    }
    if (size < kHeader || size > kHeader + 255 * kSeqPair + RM_MAX_RECORD_LENGTH) return false;
    uint8_t n = p[4];
    size_t head = kHeader + n * kSeqPair;
    if (size < head) return false;
    out.address = address;
    out.version = LoadLe32(p);
    out.seqCount = n;
    out.seqs = p + kHeader;
    out.data = p + head;
    out.length = uint32_t(size - head);
    return true;
}

bool DecodeClustered(const Val& k, const Val& v, StoredRecord& out, bool checked) {
    size_t size = v.mv_size;
    if (checked) {
        if (!ChecksumHolds(k.mv_data, k.mv_size, v)) return false;
        size -= kChecksumSize;
    }
    if (size < 8 || size > 8 + RM_MAX_RECORD_LENGTH) return false;
    const uint8_t* p = static_cast<const uint8_t*>(v.mv_data);
    std::memcpy(&out.address, p, 4);
    out.version = LoadLe32(p + 4);
    out.data = p + 8;
    out.length = uint32_t(size - 8);
    out.seqs = nullptr;
    out.seqCount = 0;
    return true;
}

bool EntryIntact(const Val& k, const Val& v, bool checked) {
    if (!checked) return v.mv_size == 4;
    return v.mv_size == 4 + kChecksumSize && ChecksumHolds(k.mv_data, k.mv_size, v);
}

void MakeEntry(const KeyDef& key, const uint8_t* record, uint64_t seq, Entry& out) {
    SortKeyFromRecord(key, record, out.bytes);
    out.len = key.length;
    if (key.Duplicates()) {
        StoreBe64(out.bytes + key.length, seq);
        out.len += 8;
    }
}

int SeekFirstAtOrAfter(Cursor& c, const void* x, size_t n, Val& k, Val& v) {
    k = ValOf(x, n);
    return c.Get(&k, &v, MDB_SET_RANGE);
}

int SeekFirstAfter(Cursor& c, const void* x, size_t n, size_t entryLen, Val& k, Val& v) {
    // A sort form alone stands for all its entries: skip them by padding the
    // sequence part with the highest value, which no entry carries.
    uint8_t buf[kMaxEntry];
    size_t len = std::max(n, entryLen);
    if (len > sizeof(buf)) return EINVAL;
    std::memcpy(buf, x, n);
    std::memset(buf + n, 0xFF, len - n);
    k = ValOf(buf, len);
    int rc = c.Get(&k, &v, MDB_SET_RANGE);
    if (rc == 0 && Equals(k, buf, len)) rc = c.Get(&k, &v, MDB_NEXT);
    return rc;
}

int SeekLastBefore(Cursor& c, const void* x, size_t n, Val& k, Val& v) {
    k = ValOf(x, n);
    int rc = c.Get(&k, &v, MDB_SET_RANGE);
    if (rc == MDB_NOTFOUND) return c.Get(&k, &v, MDB_LAST);
    if (rc != 0) return rc;
    return c.Get(&k, &v, MDB_PREV);
}

int SeekLastAtOrBefore(Cursor& c, const void* x, size_t n, size_t entryLen, Val& k, Val& v) {
    uint8_t buf[kMaxEntry];
    size_t len = std::max(n, entryLen);
    if (len > sizeof(buf)) return EINVAL;
    std::memcpy(buf, x, n);
    std::memset(buf + n, 0xFF, len - n);
    k = ValOf(buf, len);
    int rc = c.Get(&k, &v, MDB_SET_RANGE);
    if (rc == MDB_NOTFOUND) return c.Get(&k, &v, MDB_LAST);
    if (rc != 0) return rc;
    if (Equals(k, buf, len)) return 0;
    return c.Get(&k, &v, MDB_PREV);
}

int Store::Get(uint32_t address, StoredRecord& out) {
    Val k = ValOf(&address, 4), v;
    int rc = txn_.Get(env_.records(), &k, &v);
    if (rc != 0) return rc;
    return DecodeRecord(v, address, out, def().Checksummed()) ? 0 : MDB_CORRUPTED;
}

uint64_t SeqIn(const std::vector<std::pair<uint16_t, uint64_t>>& seqs, uint16_t id) {
    for (auto& [k, seq] : seqs)
        if (k == id) return seq;
    return 0;
}

Status Store::PutRecord(uint32_t address, uint32_t version, const Seqs& seqs, const uint8_t* data,
                        uint32_t len, unsigned flags) {
    bool checked = def().Checksummed();
    scratch_.resize(kHeader + seqs.size() * kSeqPair + len + (checked ? kChecksumSize : 0));
    uint8_t* p = reinterpret_cast<uint8_t*>(scratch_.data());
    StoreLe32(p, version);
    p[4] = uint8_t(seqs.size());
    p += kHeader;
    for (auto& [id, seq] : seqs) {
        StoreLe16(p, id);
        StoreLe64(p + 2, seq);
        p += kSeqPair;
    }
    std::memcpy(p, data, len);
    if (checked) {
        uint8_t key[4];
        StoreLe32(key, address);
        size_t n = scratch_.size() - kChecksumSize;
        const uint8_t* head = reinterpret_cast<const uint8_t*>(scratch_.data());
        StoreLe32(p + len, ValueCrc(key, 4, head, n));
    }
    Val k = ValOf(&address, 4), v = ValOf(scratch_.data(), scratch_.size());
    NoteRecord(address);
    int rc = txn_.Put(env_.records(), &k, &v, flags);
    if (rc == MDB_KEYEXIST) return RM_IO_ERROR;  // addresses are never reused
    return StatusOf(rc);
}

Status Store::Conflicts(const KeyDef& key, const Entry& e, uint32_t self, bool& conflict) {
    Val k = ValOf(e.bytes, key.length), v;
    int rc = txn_.Get(IndexTable(key), &k, &v);
    if (rc == MDB_NOTFOUND) {
        conflict = false;
        return RM_OK;
    }
    if (rc != 0) return StatusOf(rc);
    conflict = AddressOf(v) != self;
    return RM_OK;
}

Val Store::EntryValue(const KeyDef& key, const Entry& e, uint32_t address, uint32_t version,
                      const uint8_t* data, uint32_t len) {
    if (!key.clustered) {
        value_.assign(reinterpret_cast<const char*>(&address), 4);
    } else {
        value_.resize(8 + size_t(len));
        std::memcpy(value_.data(), &address, 4);
        StoreLe32(reinterpret_cast<uint8_t*>(value_.data()) + 4, version);
        std::memcpy(value_.data() + 8, data, len);
    }
    if (def().Checksummed()) {
        size_t n = value_.size();
        value_.resize(n + kChecksumSize);
        uint8_t* p = reinterpret_cast<uint8_t*>(value_.data());
        StoreLe32(p + n, ValueCrc(e.bytes, e.len, p, n));
    }
    return ValOf(value_.data(), value_.size());
}

Status Store::AddEntry(FileState& state, const KeyDef& key, const Entry& e, uint32_t address,
                       uint32_t version, const uint8_t* data, uint32_t len) {
    Table table = IndexTable(key);
    if (key.Duplicates()) {
        // A value seen for the first time raises the key's count of distinct values.
        Cursor c;
        if (int rc = c.Open(txn_, table)) return StatusOf(rc);
        Val k, v;
        int rc = SeekFirstAtOrAfter(c, e.bytes, key.length, k, v);
        if (rc != 0 && rc != MDB_NOTFOUND) return StatusOf(rc);
        if (rc == MDB_NOTFOUND || !StartsWith(k, e.bytes, key.length)) state.UniqueRef(key.id)++;
    } else {
        state.UniqueRef(key.id)++;
    }
    Val k = ValOf(e.bytes, e.len), v = EntryValue(key, e, address, version, data, len);
    NoteEntry(key, e.bytes, e.len);
    int rc = txn_.Put(table, &k, &v, key.Duplicates() ? 0 : MDB_NOOVERWRITE);
    if (rc == MDB_KEYEXIST) return RM_DUPLICATE_KEY;
    return StatusOf(rc);
}

Status Store::RemoveEntry(FileState& state, const KeyDef& key, const Entry& e) {
    Table table = IndexTable(key);
    Val k = ValOf(e.bytes, e.len);
    NoteEntry(key, e.bytes, e.len);
    int rc = txn_.Del(table, &k);
    if (rc == MDB_NOTFOUND) return RM_IO_ERROR;  // the index lost an entry
    if (rc != 0) return StatusOf(rc);
    bool last = true;
    if (key.Duplicates()) {
        Cursor c;
        if ((rc = c.Open(txn_, table))) return StatusOf(rc);
        Val fk, fv;
        rc = SeekFirstAtOrAfter(c, e.bytes, key.length, fk, fv);
        if (rc != 0 && rc != MDB_NOTFOUND) return StatusOf(rc);
        last = rc == MDB_NOTFOUND || !StartsWith(fk, e.bytes, key.length);
    }
    uint32_t& n = state.UniqueRef(key.id);
    if (last && n > 0) --n;
    return RM_OK;
}

Status Store::HighestValue(const KeyDef& key, int seg, int64_t& out) {
    const Segment& s = key.segments[seg];
    out = 0;
    bool any = false;
    auto consider = [&](const StoredRecord& r) {
        if (r.length < uint32_t(s.Offset()) + s.length) return;
        int64_t v = LoadSigned(r.data + s.Offset(), s.length);
        if (!any || v > out) out = v;
        any = true;
    };
    Cursor c;
    if (seg == 0 && !key.NullKey() && !key.ManualKey()) {
        // The key's first segment orders the index by this value.
        if (int rc = c.Open(txn_, IndexTable(key))) return StatusOf(rc);
        Val k, v;
        int rc = c.Get(&k, &v, s.Descending() ? MDB_FIRST : MDB_LAST);
        c.Close();
        if (rc == MDB_NOTFOUND) return RM_OK;
        if (rc != 0) return StatusOf(rc);
        StoredRecord r;
        if ((rc = Get(AddressOf(v), r))) return rc == MDB_NOTFOUND ? RM_IO_ERROR : StatusOf(rc);
        consider(r);
        return RM_OK;
    }
    if (int rc = c.Open(txn_, env_.records())) return StatusOf(rc);
    Val k, v;
    int rc;
    for (rc = c.Get(&k, &v, MDB_FIRST); rc == 0; rc = c.Get(&k, &v, MDB_NEXT)) {
        StoredRecord r;
        uint32_t address = 0;
        std::memcpy(&address, k.mv_data, std::min<size_t>(k.mv_size, 4));
        if (!DecodeRecord(v, address, r, def().Checksummed())) {
            rc = MDB_CORRUPTED;
            break;
        }
        consider(r);
    }
    return rc == MDB_NOTFOUND ? RM_OK : StatusOf(rc);
}

Status Store::FillAutoIncrement(std::vector<uint8_t>& record) {
    for (const KeyDef& key : def().keys) {
        int seg = key.AutoIncSegment();
        if (seg < 0) continue;
        const Segment& s = key.segments[seg];
        uint8_t* p = record.data() + s.Offset();
        if (LoadSigned(p, s.length) != 0) continue;
        int64_t high;
        if (Status st = HighestValue(key, seg, high)) return st;
        int64_t next = std::max<int64_t>(high, 0) + 1;
        if (s.length == 2)
            StoreLe16(p, uint16_t(next));
        else
            StoreLe32(p, uint32_t(next));
    }
    return RM_OK;
}

Status Store::Insert(FileState& state, std::vector<uint8_t>& record, uint32_t& address,
                     Seqs& seqs) {
    if (Status st = FillAutoIncrement(record)) return st;
    const FileDef& d = def();
    std::vector<Entry> entries(d.keys.size());
    std::vector<bool> excluded(d.keys.size());
    for (size_t i = 0; i < d.keys.size(); ++i) {
        const KeyDef& key = d.keys[i];
        excluded[i] = ExcludedFromIndex(key, record.data());
        if (excluded[i] || key.Duplicates()) continue;
        MakeEntry(key, record.data(), 0, entries[i]);
        bool conflict = false;
        if (Status st = Conflicts(key, entries[i], 0, conflict)) return st;
        if (conflict) return RM_DUPLICATE_KEY;
    }
    if (state.nextAddress == 0) return RM_IO_ERROR;  // every address has been used
    address = state.nextAddress++;
    seqs.clear();
    for (size_t i = 0; i < d.keys.size(); ++i) {
        const KeyDef& key = d.keys[i];
        if (excluded[i]) continue;
        if (key.Duplicates()) {
            uint64_t seq = state.nextSeq++;
            seqs.emplace_back(key.id, seq);
            MakeEntry(key, record.data(), seq, entries[i]);
        }
        if (Status st = AddEntry(state, key, entries[i], address, 0, record.data(),
                                 uint32_t(record.size())))
            return st;
    }
    if (Status st = PutRecord(address, 0, seqs, record.data(), uint32_t(record.size()), MDB_APPEND))
        return st;
    state.records++;
    return RM_OK;
}

Status Store::Update(FileState& state, const StoredRecord& old, const uint8_t* data, uint32_t len,
                     uint32_t& newVersion, Seqs& seqs) {
    const FileDef& d = def();
    std::vector<uint8_t> before(old.data, old.data + old.length);
    // Everything needed from `old` is taken before the first write: values
    // read from the store are not valid across writes.
    struct Change {
        bool oldOut, newOut, moved;
        uint64_t oldSeq;
        Entry oldEntry, newEntry;
    };
    std::vector<Change> changes(d.keys.size());
    uint8_t a[RM_MAX_KEY_LENGTH], b[RM_MAX_KEY_LENGTH];
    for (size_t i = 0; i < d.keys.size(); ++i) {
        const KeyDef& key = d.keys[i];
        Change& c = changes[i];
        ExtractKey(key, before.data(), a);
        ExtractKey(key, data, b);
        if (!key.Modifiable() && std::memcmp(a, b, key.length) != 0)
            return RM_MODIFIABLE_KEY_CHANGED;
        c.oldOut = ExcludedFromIndex(key, before.data());
        c.newOut = ExcludedFromIndex(key, data);
        c.oldSeq = old.SeqOf(key.id);
        MakeEntry(key, before.data(), c.oldSeq, c.oldEntry);
        MakeEntry(key, data, 0, c.newEntry);
        c.moved = c.oldOut != c.newOut ||
                  std::memcmp(c.oldEntry.bytes, c.newEntry.bytes, key.length) != 0;
        if (c.moved && !c.newOut && !key.Duplicates()) {
            bool conflict = false;
            if (Status st = Conflicts(key, c.newEntry, old.address, conflict)) return st;
            if (conflict) return RM_DUPLICATE_KEY;
        }
    }
    newVersion = old.version + 1;
    uint32_t address = old.address;
    seqs.clear();
    for (size_t i = 0; i < d.keys.size(); ++i) {
        const KeyDef& key = d.keys[i];
        Change& c = changes[i];
        if (c.moved) {
            if (!c.oldOut)
                if (Status st = RemoveEntry(state, key, c.oldEntry)) return st;
            if (!c.newOut) {
                // A changed value goes last among its new duplicates.
                uint64_t seq = key.Duplicates() ? state.nextSeq++ : 0;
                MakeEntry(key, data, seq, c.newEntry);
                if (Status st = AddEntry(state, key, c.newEntry, address, newVersion, data, len))
                    return st;
                if (key.Duplicates()) seqs.emplace_back(key.id, seq);
            }
        } else if (!c.newOut) {
            if (key.Duplicates()) seqs.emplace_back(key.id, c.oldSeq);
            if (key.clustered) {
                // Same place in the index, new copy of the record.
                Val k = ValOf(c.oldEntry.bytes, c.oldEntry.len),
                    v = EntryValue(key, c.oldEntry, address, newVersion, data, len);
                NoteEntry(key, c.oldEntry.bytes, c.oldEntry.len);
                if (int rc = txn_.Put(IndexTable(key), &k, &v, 0)) return StatusOf(rc);
            }
        }
    }
    return PutRecord(address, newVersion, seqs, data, len, 0);
}

Status Store::Delete(FileState& state, const StoredRecord& old) {
    // Entries are made before the first write: `old` is not valid across writes.
    std::vector<std::pair<const KeyDef*, Entry>> entries;
    for (const KeyDef& key : def().keys) {
        if (ExcludedFromIndex(key, old.data)) continue;
        entries.emplace_back(&key, Entry{});
        MakeEntry(key, old.data, old.SeqOf(key.id), entries.back().second);
    }
    for (auto& [key, e] : entries)
        if (Status st = RemoveEntry(state, *key, e)) return st;
    uint32_t address = old.address;
    Val k = ValOf(&address, 4);
    NoteRecord(address);
    if (int rc = txn_.Del(env_.records(), &k)) return StatusOf(rc);
    if (state.records > 0) state.records--;
    return RM_OK;
}

Status Store::BuildIndex(FileState& state, const KeyDef& key) {
    Cursor c;
    if (int rc = c.Open(txn_, env_.records())) return StatusOf(rc);
    Val k, v;
    int rc;
    Status st = RM_OK;
    std::vector<uint8_t> copy;
    Seqs seqs;
    for (rc = c.Get(&k, &v, MDB_FIRST); rc == 0 && st == RM_OK; rc = c.Get(&k, &v, MDB_NEXT)) {
        StoredRecord r;
        uint32_t address = 0;
        std::memcpy(&address, k.mv_data, 4);
        if (!DecodeRecord(v, address, r, def().Checksummed())) {
            st = RM_IO_ERROR;
            break;
        }
        if (ExcludedFromIndex(key, r.data)) continue;
        Entry e;
        if (key.Duplicates()) {
            // The new key's sequence goes into the record's header.
            uint64_t seq = state.nextSeq++;
            copy.assign(r.data, r.data + r.length);
            seqs.clear();
            for (uint8_t i = 0; i < r.seqCount; ++i) {
                const uint8_t* p = r.seqs + i * kSeqPair;
                if (LoadLe16(p) != key.id) seqs.emplace_back(LoadLe16(p), LoadLe64(p + 2));
            }
            seqs.emplace_back(key.id, seq);
            uint32_t version = r.version;
            MakeEntry(key, copy.data(), seq, e);
            st = AddEntry(state, key, e, address, version, copy.data(), uint32_t(copy.size()));
            if (st == RM_OK)
                st = PutRecord(address, version, seqs, copy.data(), uint32_t(copy.size()), 0);
            if (st == RM_OK) {
                // The put may have moved the cursor's page; find our place again.
                k = ValOf(&address, 4);
                rc = c.Get(&k, &v, MDB_SET);
                if (rc != 0) break;
            }
        } else {
            MakeEntry(key, r.data, 0, e);
            st = AddEntry(state, key, e, address, r.version, r.data, r.length);
        }
    }
    if (st != RM_OK) return st;
    return rc == MDB_NOTFOUND ? RM_OK : StatusOf(rc);
}

}  // namespace recman
