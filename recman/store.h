// Records and indexes of one file inside one storage transaction.
//
// A record is stored under its address as: version (4 bytes), the number of
// duplicate sequences (1 byte), one (index id, sequence) pair per key that
// allows duplicates (10 bytes each), then the record's bytes. An index entry's
// key is the key's sort form, followed for duplicate keys by the 8-byte
// sequence that keeps insertion order among equal values; its value is the
// record's address, and in the clustered (primary) key also the record's
// version and bytes.
//
// In files of the current format every stored record and index entry ends in
// a CRC-32C over its key and the rest of its value, so that bytes changed on
// disk are noticed on every read instead of being returned as data.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "recman/changes.h"
#include "recman/filedef.h"
#include "recman/fileenv.h"
#include "recman/kv.h"
#include "recman/recman.h"

namespace recman {

inline constexpr size_t kMaxEntry = RM_MAX_KEY_LENGTH + 8;

struct StoredRecord {
    uint32_t address = 0;
    uint32_t version = 0;
    const uint8_t* data = nullptr;
    uint32_t length = 0;
    const uint8_t* seqs = nullptr;
    uint8_t seqCount = 0;

    uint64_t SeqOf(uint16_t indexId) const;  // 0 when the record has none for it
};

inline constexpr size_t kChecksumSize = 4;

// Reads a stored record; false when it is malformed or, with `checked`, when
// its checksum does not match.
bool DecodeRecord(const Val& v, uint32_t address, StoredRecord& out, bool checked);
// The record copy in an entry `k` of the clustered key: address, version, bytes.
bool DecodeClustered(const Val& k, const Val& v, StoredRecord& out, bool checked);
// Whether an entry `k` of another key is whole: its value is the address,
// and with `checked` the checksum after it.
bool EntryIntact(const Val& k, const Val& v, bool checked);

struct Entry {
    uint8_t bytes[kMaxEntry];
    uint16_t len = 0;
};

// The index entry of a record under `key` (seq only counts for duplicate keys).
void MakeEntry(const KeyDef& key, const uint8_t* record, uint64_t seq, Entry& out);
inline size_t EntryLength(const KeyDef& key) {
    return key.length + (key.Duplicates() ? 8 : 0);
}

// Positioning of a cursor relative to `x`, which is a whole entry or the
// sort form alone (then it stands for every entry that begins with it).
// `entryLen` is the length of the index's entries. MDB_NOTFOUND when nothing fits.
int SeekFirstAtOrAfter(Cursor& c, const void* x, size_t n, Val& k, Val& v);
int SeekFirstAfter(Cursor& c, const void* x, size_t n, size_t entryLen, Val& k, Val& v);
int SeekLastBefore(Cursor& c, const void* x, size_t n, Val& k, Val& v);
int SeekLastAtOrBefore(Cursor& c, const void* x, size_t n, size_t entryLen, Val& k, Val& v);

// The sequence of `id` among (index id, sequence) pairs; 0 when absent.
uint64_t SeqIn(const std::vector<std::pair<uint16_t, uint64_t>>& seqs, uint16_t id);

// Reads in key or address order are bound by memory latency: entries lie in
// their storage page in the order they were written, not in key order, so
// each one read alone is a cache miss of its own. Asking for the whole page
// of `at` when a walk enters it lets those misses overlap. `page` remembers
// the page asked for last. A prefetch is only a hint and never faults.
inline void TouchPage(const void* at, uintptr_t& page) {
    constexpr uintptr_t kPage = 4096, kLine = 64;
    uintptr_t p = uintptr_t(at) & ~(kPage - 1);
    if (p == page) return;
    page = p;
    for (uintptr_t line = 0; line < kPage; line += kLine)
        __builtin_prefetch(reinterpret_cast<const void*>(p + line));
}

// The address an index entry points at (the first 4 bytes of its value).
inline uint32_t AddressOf(const Val& v) {
    uint32_t a = 0;
    if (v.mv_size >= 4) std::memcpy(&a, v.mv_data, 4);
    return a;
}

class Store {
  public:
    // `changes`, when given, notes every key written (for a commit journal).
    Store(FileEnv& env, Txn txn, ChangeSet* changes = nullptr)
        : env_(env), txn_(txn), changes_(changes) {}

    const FileDef& def() const { return env_.def(); }
    Txn txn() const { return txn_; }

    // The record at `address`; MDB_NOTFOUND when there is none.
    int Get(uint32_t address, StoredRecord& out);

    using Seqs = std::vector<std::pair<uint16_t, uint64_t>>;

    // Stores a new record. Autoincrement fields that hold 0 are given the
    // file's highest value + 1 in `record` itself. `seqs` receives the
    // record's duplicate sequences.
    Status Insert(FileState& state, std::vector<uint8_t>& record, uint32_t& address, Seqs& seqs);
    // Replaces the record `old` with `data`.
    Status Update(FileState& state, const StoredRecord& old, const uint8_t* data, uint32_t len,
                  uint32_t& newVersion, Seqs& seqs);
    Status Delete(FileState& state, const StoredRecord& old);

    // Builds the index of `key` over every record (Create Index).
    Status BuildIndex(FileState& state, const KeyDef& key);

  private:
    Status FillAutoIncrement(std::vector<uint8_t>& record);
    Status HighestValue(const KeyDef& key, int seg, int64_t& out);
    // Adds `e` for the record at `address`; a clustered key's entry also
    // carries the record's version and bytes.
    Status AddEntry(FileState& state, const KeyDef& key, const Entry& e, uint32_t address,
                    uint32_t version, const uint8_t* data, uint32_t len);
    Val EntryValue(const KeyDef& key, const Entry& e, uint32_t address, uint32_t version,
                   const uint8_t* data, uint32_t len);
    Status RemoveEntry(FileState& state, const KeyDef& key, const Entry& e);
    Status Conflicts(const KeyDef& key, const Entry& e, uint32_t self, bool& conflict);
    Status PutRecord(uint32_t address, uint32_t version, const Seqs& seqs, const uint8_t* data,
                     uint32_t len, unsigned flags);
    Table IndexTable(const KeyDef& key) const { return env_.Index(key.id); }
    void NoteRecord(const uint32_t& address) {
        if (changes_) changes_->Note(ChangeDb::Records, 0, &address, 4);
    }
    void NoteEntry(const KeyDef& key, const void* bytes, size_t n) {
        if (changes_) changes_->Note(ChangeDb::Index, key.id, bytes, n);
    }

    FileEnv& env_;
    Txn txn_;
    ChangeSet* changes_;
    std::string scratch_;
    std::string value_;
};

}  // namespace recman
