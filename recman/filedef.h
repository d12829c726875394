// The shape of a record file: record length, flags and keys, as a create spec
// describes them, validated, kept in the file and reported by Stat.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace recman {

using Status = int;

// Format versions of the files: the first kept records without checksums.
inline constexpr uint16_t kFormatVersion = 2;
inline constexpr uint16_t kOldestFormatVersion = 1;

struct Segment {
    uint16_t position = 0;  // in the record, counted from 1
    uint16_t length = 0;
    uint16_t flags = 0;
    uint8_t type = 0;  // the type byte as given
    uint8_t nullValue = 0;
    uint8_t acs = 0;

    // The type that decides the order: the type byte only with the extended
    // flag; otherwise an old-style string or, with the binary flag, unsigned binary.
    uint8_t Kind() const;
    bool CaseInsensitive() const;
    bool Descending() const;
    uint16_t Offset() const { return uint16_t(position - 1); }
};

struct KeyDef {
    uint8_t number = 0;
    uint16_t id = 0;  // names the key's index in the file; never reused
    std::vector<Segment> segments;
    uint16_t length = 0;  // key bytes, = sort-form bytes
    // The primary key: its index entries carry a copy of the record, so that
    // reads in its order need no second lookup.
    bool clustered = false;

    bool Duplicates() const;
    bool Modifiable() const;
    bool NullKey() const;        // left out when every segment is null
    bool ManualKey() const;      // left out when any segment is null
    int AutoIncSegment() const;  // index of the autoincrement segment, or -1
};

struct FileDef {
    uint16_t recordLength = 0;
    uint16_t pageSize = 0;
    uint16_t flags = 0;
    std::vector<KeyDef> keys;  // ascending key number
    uint16_t nextIndexId = 1;
    std::string owner;  // empty: none
    uint8_t ownerMode = 0;
    // The file's format: from the second on, records and index entries carry
    // checksums. Files of the first still open; pack and reindex brings them
    // to the current one.
    uint16_t formatVersion = kFormatVersion;

    bool onServer = false;  // kept by a server (not stored with the definition)
    bool Checksummed() const { return formatVersion >= 2 && !onServer; }

    bool VarLength() const { return flags & 0x0001; }
    const KeyDef* FindKey(int number) const;
    size_t SegmentCount() const;
    int LowestFreeNumber() const;
    void AddKey(KeyDef key);  // keeps key-number order
};

// The key types, and the lengths each allows (integers 1, 2, 4 or 8 bytes...).
bool KnownKeyType(uint8_t type);
bool KeyLengthFits(uint8_t type, uint16_t length);

inline constexpr size_t kMaxSegments = 255;

// Parses and validates a create spec: 16-byte file spec then 16-byte segments.
Status ParseCreateSpec(const uint8_t* buf, uint32_t len, FileDef& out);

// Parses and validates the segments of a Create Index request for `file`.
// `number` is the key number asked for, or -1 for the lowest free number.
Status ParseIndexSpec(const uint8_t* buf, uint32_t len, const FileDef& file, int number,
                      KeyDef& out);

// Stored form of the definition, kept in the file.
std::string SerializeDef(const FileDef& def);
bool DeserializeDef(const void* data, size_t len, FileDef& out);
// The format version a stored definition names (0 when it names none).
uint16_t StoredFormatVersion(const void* data, size_t len);

// Stat answer: 16-byte file spec, then one 16-byte spec per segment in key
// number order. `uniqueCount(id)` gives a key's count of distinct values.
size_t StatSize(const FileDef& def);
template <class Counts>
void WriteStat(const FileDef& def, uint32_t records, const Counts& uniqueCount, uint8_t* out);
void WriteStatFileSpec(const FileDef& def, uint32_t records, uint8_t* out);
void WriteStatSegment(const KeyDef& key, const Segment& seg, bool last, uint32_t unique,
                      uint8_t* out);

template <class Counts>
void WriteStat(const FileDef& def, uint32_t records, const Counts& uniqueCount, uint8_t* out) {
    WriteStatFileSpec(def, records, out);
    uint8_t* p = out + 16;
    for (const KeyDef& k : def.keys) {
        for (size_t i = 0; i < k.segments.size(); ++i, p += 16)
            WriteStatSegment(k, k.segments[i], i + 1 == k.segments.size(), uniqueCount(k.id), p);
    }
}

}  // namespace recman
