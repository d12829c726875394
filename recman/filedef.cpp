#include "recman/filedef.h"

#include <algorithm>
#include <set>

#include "recman/bytes.h"
#include "recman/recman.h"

namespace recman {

namespace {

constexpr uint16_t kKnownKeyFlags = RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE | RM_KEY_BINARY |
                                    RM_KEY_NULL | RM_KEY_SEGMENTED | RM_KEY_ALT_COLLATION |
                                    RM_KEY_DESCENDING | RM_KEY_EXTENDED_TYPE | RM_KEY_MANUAL |
                                    RM_KEY_CASE_INSENSITIVE;

bool ValidPageSize(uint16_t p) {
    return (p >= 512 && p <= 4096 && p % 512 == 0) || p == 8192 || p == 16384;
}

Segment ReadSegment(const uint8_t* p) {
    Segment s;
    s.position = LoadLe16(p);
    s.length = LoadLe16(p + 2);
    s.flags = LoadLe16(p + 4);
    s.type = p[10];
    s.nullValue = p[11];
    s.acs = p[15];
    return s;
}

}  // namespace

// Length rules of each key type.
bool KeyLengthFits(uint8_t kind, uint16_t len) {
    switch (kind) {
        case RM_TYPE_INTEGER:
            return len == 1 || len == 2 || len == 4 || len == 8;
        case RM_TYPE_FLOAT:
            return len == 4 || len == 8;
        case RM_TYPE_DATE:
        case RM_TYPE_TIME:
            return len == 4;
        case RM_TYPE_LOGICAL:
            return len == 1 || len == 2;
        case RM_TYPE_AUTOINCREMENT:
            return len == 2 || len == 4;
        default:
            return len >= 1;
    }
}

bool KnownKeyType(uint8_t t) {
    switch (t) {
        case RM_TYPE_STRING:
        case RM_TYPE_INTEGER:
        case RM_TYPE_FLOAT:
        case RM_TYPE_DATE:
        case RM_TYPE_TIME:
        case RM_TYPE_DECIMAL:
        case RM_TYPE_MONEY:
        case RM_TYPE_LOGICAL:
        case RM_TYPE_LSTRING:
        case RM_TYPE_ZSTRING:
        case RM_TYPE_UNSIGNED_BINARY:
        case RM_TYPE_AUTOINCREMENT:
            return true;
        default:
            return false;
    }
}

namespace {

Status CheckSegment(const Segment& s, uint16_t recordLength) {
    if (s.flags & RM_KEY_ALT_COLLATION) return RM_INVALID_ACS;
    if (s.flags & ~kKnownKeyFlags) return RM_INCONSISTENT_KEY_FLAGS;
    if ((s.flags & RM_KEY_EXTENDED_TYPE) && !KnownKeyType(s.type)) return RM_INVALID_KEY_TYPE;
    if (!KeyLengthFits(s.Kind(), s.length)) return RM_INVALID_KEY_LENGTH;
    if (s.position < 1 || uint32_t(s.position) + s.length - 1 > recordLength)
        return RM_INVALID_KEY_POSITION;
    return RM_OK;
}

// Checks what concerns a whole key: its length and the flags all its segments share.
Status CheckKey(KeyDef& k) {
    uint32_t total = 0;
    const uint16_t shared = RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE;
    for (const Segment& s : k.segments) {
        total += s.length;
        if ((s.flags & shared) != (k.segments[0].flags & shared)) return RM_INCONSISTENT_KEY_FLAGS;
    }
    if (total > RM_MAX_KEY_LENGTH) return RM_INVALID_KEY_LENGTH;
    if (k.AutoIncSegment() >= 0 && k.Duplicates()) return RM_AUTOINC_DUPLICATES;
    k.length = uint16_t(total);
    return RM_OK;
}

// Reads one key's segments from p (up to end), advancing p.
Status ReadKey(const uint8_t*& p, const uint8_t* end, uint16_t recordLength, size_t& segTotal,
               KeyDef& k, uint8_t& numberByte) {
    for (;;) {
        if (end - p < 16) return RM_DATA_BUFFER_TOO_SHORT;
        if (++segTotal > kMaxSegments) return RM_NUMBER_OF_KEYS;
        Segment s = ReadSegment(p);
        uint8_t n = p[14];
        p += 16;
        if (k.segments.empty())
            numberByte = n;
        else if (n != numberByte)
            numberByte = 0xFF;  // segments of one key disagree on the number
        if (Status st = CheckSegment(s, recordLength)) return st;
        k.segments.push_back(s);
        if (!(s.flags & RM_KEY_SEGMENTED)) break;
    }
    return CheckKey(k);
}

}  // namespace

uint8_t Segment::Kind() const {
    if (flags & RM_KEY_EXTENDED_TYPE) return type;
    return (flags & RM_KEY_BINARY) ? uint8_t(RM_TYPE_UNSIGNED_BINARY) : uint8_t(RM_TYPE_STRING);
}

bool Segment::CaseInsensitive() const {
    uint8_t k = Kind();
    return (flags & RM_KEY_CASE_INSENSITIVE) &&
           (k == RM_TYPE_STRING || k == RM_TYPE_LSTRING || k == RM_TYPE_ZSTRING);
}

bool Segment::Descending() const {
    return flags & RM_KEY_DESCENDING;
}

bool KeyDef::Duplicates() const {
    return segments[0].flags & RM_KEY_DUPLICATES;
}
bool KeyDef::Modifiable() const {
    return segments[0].flags & RM_KEY_MODIFIABLE;
}
bool KeyDef::NullKey() const {
    return std::any_of(segments.begin(), segments.end(),
                       [](const Segment& s) { return s.flags & RM_KEY_NULL; });
}
bool KeyDef::ManualKey() const {
    return std::any_of(segments.begin(), segments.end(),
                       [](const Segment& s) { return s.flags & RM_KEY_MANUAL; });
}
int KeyDef::AutoIncSegment() const {
    for (size_t i = 0; i < segments.size(); ++i)
        if (segments[i].Kind() == RM_TYPE_AUTOINCREMENT) return int(i);
    return -1;
}

const KeyDef* FileDef::FindKey(int number) const {
    for (const KeyDef& k : keys)
        if (k.number == number) return &k;
    return nullptr;
}

size_t FileDef::SegmentCount() const {
    size_t n = 0;
    for (const KeyDef& k : keys)
        n += k.segments.size();
    return n;
}

int FileDef::LowestFreeNumber() const {
    for (int n = 0; n < RM_MAX_KEYS; ++n)
        if (!FindKey(n)) return n;
    return -1;
}

void FileDef::AddKey(KeyDef key) {
    auto at = std::find_if(keys.begin(), keys.end(),
                           [&](const KeyDef& k) { return k.number > key.number; });
    keys.insert(at, std::move(key));
}

Status ParseCreateSpec(const uint8_t* buf, uint32_t len, FileDef& out) {
    if (!buf || len < 16) return RM_DATA_BUFFER_TOO_SHORT;
    FileDef def;
    def.recordLength = LoadLe16(buf);
    def.pageSize = LoadLe16(buf + 2);
    uint16_t keyCount = LoadLe16(buf + 4);
    def.flags = LoadLe16(buf + 10);
    if (!ValidPageSize(def.pageSize)) return RM_PAGE_SIZE_ERROR;
    if (keyCount > RM_MAX_KEYS) return RM_NUMBER_OF_KEYS;
    if (def.recordLength < 1 || def.recordLength > RM_MAX_RECORD_LENGTH)
        return RM_INVALID_RECORD_LENGTH;

    const uint8_t* p = buf + 16;
    const uint8_t* end = buf + len;
    size_t segTotal = 0;
    std::set<int> numbers;
    bool numbered = def.flags & RM_FILE_KEY_NUMBERS;
    for (uint16_t i = 0; i < keyCount; ++i) {
        KeyDef k;
        uint8_t numberByte = 0;
        if (Status st = ReadKey(p, end, def.recordLength, segTotal, k, numberByte)) return st;
        int number = numbered ? numberByte : i;
        if (number >= RM_MAX_KEYS || !numbers.insert(number).second) return RM_INVALID_KEY_NUMBER;
        k.number = uint8_t(number);
        k.id = def.nextIndexId++;
        def.AddKey(std::move(k));
    }
    if (!def.keys.empty()) def.keys.front().clustered = true;
    out = std::move(def);
    return RM_OK;
}

Status ParseIndexSpec(const uint8_t* buf, uint32_t len, const FileDef& file, int number,
                      KeyDef& out) {
    if (!buf || len < 16) return RM_DATA_BUFFER_TOO_SHORT;
    if (file.keys.size() >= RM_MAX_KEYS) return RM_NUMBER_OF_KEYS;
    if (number < 0) number = file.LowestFreeNumber();
    if (number < 0 || number >= RM_MAX_KEYS || file.FindKey(number)) return RM_INVALID_KEY_NUMBER;
    const uint8_t* p = buf;
    const uint8_t* end = buf + len;
    size_t segTotal = file.SegmentCount();
    KeyDef k;
    uint8_t numberByte = 0;
    if (Status st = ReadKey(p, end, file.recordLength, segTotal, k, numberByte)) return st;
    k.number = uint8_t(number);
    k.id = file.nextIndexId;
    out = std::move(k);
    return RM_OK;
}

std::string SerializeDef(const FileDef& def) {
    ByteWriter w;
    w.U16(def.formatVersion);
    w.U16(def.recordLength);
    w.U16(def.pageSize);
    w.U16(def.flags);
    w.U16(def.nextIndexId);
    w.U8(def.ownerMode);
    w.U8(uint8_t(def.owner.size()));
    w.Bytes(def.owner.data(), def.owner.size());
    w.U16(uint16_t(def.keys.size()));
    for (const KeyDef& k : def.keys) {
        w.U8(k.number);
        w.U16(k.id);
        w.U8(k.clustered ? 1 : 0);
        w.U8(uint8_t(k.segments.size()));
        for (const Segment& s : k.segments) {
            w.U16(s.position);
            w.U16(s.length);
            w.U16(s.flags);
            w.U8(s.type);
            w.U8(s.nullValue);
            w.U8(s.acs);
        }
    }
    return w.str();
}

bool DeserializeDef(const void* data, size_t len, FileDef& out) {
    ByteReader r(data, len);
    FileDef def;
    uint16_t version = 0, keyCount = 0;
    uint8_t ownerLen = 0;
    if (!r.U16(version) || version < kOldestFormatVersion || version > kFormatVersion) return false;
    def.formatVersion = version;
    if (!r.U16(def.recordLength) || !r.U16(def.pageSize) || !r.U16(def.flags) ||
        !r.U16(def.nextIndexId) || !r.U8(def.ownerMode) || !r.U8(ownerLen) || ownerLen > 24)
        return false;
    def.owner.resize(ownerLen);
    if (!r.Bytes(def.owner.data(), ownerLen) || !r.U16(keyCount) || keyCount > RM_MAX_KEYS)
        return false;
    if (def.recordLength < 1 || def.recordLength > RM_MAX_RECORD_LENGTH) return false;
    for (uint16_t i = 0; i < keyCount; ++i) {
        KeyDef k;
        uint8_t segCount = 0, clustered = 0;
        if (!r.U8(k.number) || !r.U16(k.id) || !r.U8(clustered) || clustered > 1 ||
            !r.U8(segCount) || segCount == 0)
            return false;
        k.clustered = clustered;
        for (uint8_t j = 0; j < segCount; ++j) {
            Segment s;
            if (!r.U16(s.position) || !r.U16(s.length) || !r.U16(s.flags) || !r.U8(s.type) ||
                !r.U8(s.nullValue) || !r.U8(s.acs))
                return false;
            // A stored definition obeys the same rules as a created one.
            if (CheckSegment(s, def.recordLength) != RM_OK) return false;
            k.segments.push_back(s);
        }
        if (CheckKey(k) != RM_OK || k.number >= RM_MAX_KEYS || def.FindKey(k.number) ||
            k.id >= def.nextIndexId)
            return false;
        def.AddKey(std::move(k));
    }
    if (r.left() != 0) return false;
    out = std::move(def);
    return true;
}

uint16_t StoredFormatVersion(const void* data, size_t len) {
    ByteReader r(data, len);
    uint16_t version = 0;
    return r.U16(version) ? version : 0;
}

size_t StatSize(const FileDef& def) {
    return 16 + 16 * def.SegmentCount();
}

void WriteStatFileSpec(const FileDef& def, uint32_t records, uint8_t* out) {
    std::fill(out, out + 16, 0);
    StoreLe16(out, def.recordLength);
    StoreLe16(out + 2, def.pageSize);
    out[4] = uint8_t(def.keys.size());
    out[5] = uint8_t(def.formatVersion);
    StoreLe32(out + 6, records);
    StoreLe16(out + 10, def.flags);
}

void WriteStatSegment(const KeyDef& key, const Segment& seg, bool last, uint32_t unique,
                      uint8_t* out) {
    std::fill(out, out + 16, 0);
    StoreLe16(out, seg.position);
    StoreLe16(out + 2, seg.length);
    uint16_t flags = seg.flags & ~RM_KEY_SEGMENTED;
    if (!last) flags |= RM_KEY_SEGMENTED;
    StoreLe16(out + 4, flags);
    StoreLe32(out + 6, unique);
    out[10] = seg.type;
    out[11] = seg.nullValue;
    out[14] = key.number;
    out[15] = seg.acs;
}

}  // namespace recman
