#include "recman/extended.h"

#include <algorithm>
#include <cstring>

#include "recman/bytes.h"
#include "recman/keycodec.h"
#include "recman/recman.h"

namespace recman {

namespace {

constexpr uint8_t kWithField = 64;
constexpr uint8_t kNoCase = 128;

// A field's bytes, zero past the end of a short record.
const uint8_t* FieldBytes(const uint8_t* record, uint32_t length, uint16_t offset, uint16_t len,
                          std::vector<uint8_t>& scratch) {
    if (uint32_t(offset) + len <= length) return record + offset;
    scratch.assign(len, 0);
    if (offset < length) std::memcpy(scratch.data(), record + offset, length - offset);
    return scratch.data();
}

uint64_t LoadUnsigned(const uint8_t* p, uint16_t n) {
    uint64_t v = 0;
    for (uint16_t i = n; i-- > 0;)
        v = (v << 8) | p[i];
    return v;
}

// Integers of the usual widths are read in one go (the host is little-endian
// like the stored form).
int64_t LoadSigned(const uint8_t* p, uint16_t n) {
    switch (n) {
        case 1:
            return int8_t(p[0]);
        case 2: {
            int16_t v;
            std::memcpy(&v, p, 2);
            return v;
        }
        case 4: {
            int32_t v;
            std::memcpy(&v, p, 4);
            return v;
        }
        case 8: {
            int64_t v;
            std::memcpy(&v, p, 8);
            return v;
        }
        default: {
            uint64_t v = LoadUnsigned(p, n);
            if (n < 8 && (v >> (8 * n - 1)) & 1) v |= ~uint64_t(0) << (8 * n);
            return int64_t(v);
        }
    }
}

template <class T>
int Order(T a, T b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

}  // namespace

void ExtTerm::Prepare() {
    bool integral = length <= 8;
    if ((type == RM_TYPE_INTEGER || type == RM_TYPE_AUTOINCREMENT) && integral)
        how = How::Signed;
    else if ((type == RM_TYPE_UNSIGNED_BINARY || type == RM_TYPE_LOGICAL) && integral)
        how = How::Unsigned;
    else if (type == RM_TYPE_STRING && !caseInsensitive)
        how = How::Bytes;  // unsigned bytes, left to right: memcmp itself
    else
        how = How::SortForm;
    // Less, equal, greater: bits 0, 1, 2.
    static const uint8_t kTruth[7] = {0, 0b010, 0b100, 0b001, 0b101, 0b110, 0b011};
    truth = kTruth[op <= 6 ? op : 0];
    end = uint32_t(offset) + length;
    if (withField) {
        end = std::max(end, uint32_t(otherOffset) + length);
        return;
    }
    if (how == How::Signed && length == 4) how = How::Int32;
    if (how == How::Signed && length == 2) how = How::Int16;
    if (how == How::Signed || how == How::Int16 || how == How::Int32)
        number = uint64_t(LoadSigned(value.data(), length));
    if (how == How::Unsigned) number = LoadUnsigned(value.data(), length);
    if (how == How::SortForm) {
        sorted.resize(length);
        EncodeValue(type, length, caseInsensitive, false, value.data(), sorted.data());
    }
}

int ExtTerm::Compare(const uint8_t* field, const uint8_t* other) const {
    switch (how) {
        case How::Signed:
        case How::Int16:
        case How::Int32:
            return Order(LoadSigned(field, length),
                         other ? LoadSigned(other, length) : int64_t(number));
        case How::Unsigned:
            return Order(LoadUnsigned(field, length), other ? LoadUnsigned(other, length) : number);
        case How::Bytes:
            return std::memcmp(field, other ? other : value.data(), length);
        default:
            if (other) return CompareValues(type, length, caseInsensitive, field, other);
            uint8_t small[64];
            std::vector<uint8_t> big;
            uint8_t* out = small;
            if (length > sizeof(small)) {
                big.resize(length);
                out = big.data();
            }
            EncodeValue(type, length, caseInsensitive, false, field, out);
            return std::memcmp(out, sorted.data(), length);
    }
}

bool ExtTerm::HoldsInShort(const uint8_t* record, uint32_t recordLength) const {
    std::vector<uint8_t> a, b;
    const uint8_t* left = FieldBytes(record, recordLength, offset, length, a);
    const uint8_t* right =
        withField ? FieldBytes(record, recordLength, otherOffset, length, b) : nullptr;
    int c = Compare(left, right);
    c = (c > 0) - (c < 0);
    return (truth >> (c + 1)) & 1;
}

uint32_t ExtDescriptor::ExtractLength() const {
    uint32_t n = 0;
    for (const ExtField& f : fields)
        n += f.length;
    return n;
}

void ExtDescriptor::Extract(const uint8_t* record, uint32_t length, uint8_t* out) const {
    std::vector<uint8_t> scratch;
    for (const ExtField& f : fields) {
        std::memcpy(out, FieldBytes(record, length, f.offset, f.length, scratch), f.length);
        out += f.length;
    }
}

Status ParseDescriptor(const uint8_t* buf, uint32_t len, uint16_t recordLength,
                       ExtDescriptor& out) {
    if (!buf || len < 12) return RM_INVALID_DESCRIPTOR;
    uint16_t total = LoadLe16(buf);
    if (total < 12 || total > len) return RM_INVALID_DESCRIPTOR;
    ExtDescriptor d;
    if (buf[2] == 'U' && buf[3] == 'C')
        d.useCurrent = true;
    else if (!(buf[2] == 'E' && buf[3] == 'G'))
        return RM_INVALID_DESCRIPTOR;
    d.rejectCount = LoadLe16(buf + 4);
    uint16_t termCount = LoadLe16(buf + 6);
    uint32_t at = 8;
    bool outside = false;
    for (uint16_t i = 0; i < termCount; ++i) {
        if (at + 7 > total) return RM_INVALID_DESCRIPTOR;
        ExtTerm t;
        t.type = buf[at];
        t.length = LoadLe16(buf + at + 1);
        t.offset = LoadLe16(buf + at + 3);
        uint8_t code = buf[at + 5];
        t.connector = buf[at + 6];
        at += 7;
        t.op = code & 0x3F;
        t.withField = code & kWithField;
        if (!KnownKeyType(t.type) || !KeyLengthFits(t.type, t.length) || t.op < 1 || t.op > 6)
            return RM_INVALID_DESCRIPTOR;
        bool last = i + 1 == termCount;
        if (last ? t.connector != 0 : (t.connector != 1 && t.connector != 2))
            return RM_INVALID_DESCRIPTOR;
        t.caseInsensitive =
            (code & kNoCase) &&
            (t.type == RM_TYPE_STRING || t.type == RM_TYPE_LSTRING || t.type == RM_TYPE_ZSTRING);
        uint32_t valueLen = t.withField ? 2 : t.length;
        if (at + valueLen > total) return RM_INVALID_DESCRIPTOR;
        if (t.withField) {
            t.otherOffset = LoadLe16(buf + at);
            outside = outside || uint32_t(t.otherOffset) + t.length > recordLength;
        } else {
            t.value.assign(buf + at, buf + at + valueLen);
        }
        at += valueLen;
        outside = outside || uint32_t(t.offset) + t.length > recordLength;
        t.Prepare();
        d.terms.push_back(std::move(t));
    }
    if (at + 4 > total) return RM_INVALID_DESCRIPTOR;
    d.maxRecords = LoadLe16(buf + at);
    uint16_t fieldCount = LoadLe16(buf + at + 2);
    at += 4;
    if (d.maxRecords == 0 || at + 4u * fieldCount != total) return RM_INVALID_DESCRIPTOR;
    for (uint16_t i = 0; i < fieldCount; ++i, at += 4) {
        ExtField f{LoadLe16(buf + at), LoadLe16(buf + at + 2)};
        outside = outside || uint32_t(f.offset) + f.length > recordLength;
        d.fields.push_back(f);
    }
    if (outside) return RM_INVALID_FIELD_OFFSET;
    out = std::move(d);
    return RM_OK;
}

}  // namespace recman
