#include "recman/keycodec.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "recman/recman.h"

namespace recman {

namespace {

void Reverse(const uint8_t* src, uint16_t len, uint8_t* out) {
    for (uint16_t i = 0; i < len; ++i)
        out[i] = src[len - 1 - i];
}

void EncodeFloat(const uint8_t* src, uint16_t len, uint8_t* out) {
    Reverse(src, len, out);  // big-endian: sign and exponent first
    bool allZero =
        (out[0] & 0x7F) == 0 && std::all_of(out + 1, out + len, [](uint8_t b) { return b == 0; });
    if (allZero) out[0] = 0;  // -0 equals +0
    if (out[0] & 0x80) {
        for (uint16_t i = 0; i < len; ++i)
            out[i] = uint8_t(~out[i]);
    } else {
        out[0] |= 0x80;
    }
}

// Packed decimal: two digits a byte, the last half-byte the sign. The sort form
// puts a sign nibble first (0 negative, 1 otherwise) then the digits,
// complemented when negative so that larger magnitudes sort lower.
void EncodeDecimal(const uint8_t* src, uint16_t len, uint8_t* out) {
    uint8_t sign = src[len - 1] & 0x0F;
    bool negative = sign == 0x0D || sign == 0x0B;
    int digits = 2 * len - 1;
    auto digit = [&](int i) -> uint8_t {
        uint8_t b = src[i / 2];
        return (i % 2 == 0) ? uint8_t(b >> 4) : uint8_t(b & 0x0F);
    };
    if (negative) {
        bool zero = true;
        for (int i = 0; i < digits && zero; ++i)
            zero = digit(i) == 0;
        negative = !zero;
    }
    auto put = [&](int i, uint8_t nib) {
        if (i % 2 == 0)
            out[i / 2] = uint8_t(nib << 4);
        else
            out[i / 2] |= nib;
    };
    put(0, negative ? 0 : 1);
    for (int i = 0; i < digits; ++i) {
        uint8_t d = digit(i);
        put(i + 1, negative ? uint8_t(0x0F - d) : d);
    }
}

void CopyText(const uint8_t* src, uint16_t len, bool ci, uint8_t* out) {
    for (uint16_t i = 0; i < len; ++i)
        out[i] = ci ? FoldCase(src[i]) : src[i];
}

}  // namespace

uint8_t FoldCase(uint8_t c) {
    if (c >= 'a' && c <= 'z') return uint8_t(c - 32);
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return uint8_t(c - 32);
    return c;
}

void EncodeValue(uint8_t kind, uint16_t len, bool ci, bool descending, const uint8_t* src,
                 uint8_t* out) {
    switch (kind) {
        case RM_TYPE_INTEGER:
        case RM_TYPE_AUTOINCREMENT:
            Reverse(src, len, out);
            out[0] ^= 0x80;
            break;
        case RM_TYPE_FLOAT:
            EncodeFloat(src, len, out);
            break;
        case RM_TYPE_DATE:  // day, month, year (LE): reversed gives year, month, day
        case RM_TYPE_TIME:  // hundredths, seconds, minutes, hours: reversed
        case RM_TYPE_LOGICAL:
        case RM_TYPE_UNSIGNED_BINARY:
            Reverse(src, len, out);
            break;
        case RM_TYPE_DECIMAL:
        case RM_TYPE_MONEY:
            EncodeDecimal(src, len, out);
            break;
        case RM_TYPE_LSTRING: {
            // Text padded with zeros, then its length: a prefix sorts first.
            uint8_t n = std::min<uint16_t>(src[0], uint16_t(len - 1));
            std::memset(out, 0, len);
            CopyText(src + 1, n, ci, out);
            out[len - 1] = n;
            break;
        }
        case RM_TYPE_ZSTRING: {
            const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(src, 0, len));
            uint16_t n = nul ? uint16_t(nul - src) : len;
            std::memset(out, 0, len);
            CopyText(src, n, ci, out);
            break;
        }
        default:  // string
            CopyText(src, len, ci, out);
            break;
    }
    if (descending)
        for (uint16_t i = 0; i < len; ++i)
            out[i] = uint8_t(~out[i]);
}

void SortKeyFromRecord(const KeyDef& key, const uint8_t* record, uint8_t* out) {
    for (const Segment& s : key.segments) {
        EncodeValue(s.Kind(), s.length, s.CaseInsensitive(), s.Descending(), record + s.Offset(),
                    out);
        out += s.length;
    }
}

void SortKeyFromKeyBuffer(const KeyDef& key, const uint8_t* keyBuf, uint8_t* out) {
    for (const Segment& s : key.segments) {
        EncodeValue(s.Kind(), s.length, s.CaseInsensitive(), s.Descending(), keyBuf, out);
        keyBuf += s.length;
        out += s.length;
    }
}

void ExtractKey(const KeyDef& key, const uint8_t* record, uint8_t* out) {
    for (const Segment& s : key.segments) {
        std::memcpy(out, record + s.Offset(), s.length);
        out += s.length;
    }
}

bool ExcludedFromIndex(const KeyDef& key, const uint8_t* record) {
    bool manual = key.ManualKey(), nullKey = key.NullKey();
    if (!manual && !nullKey) return false;
    size_t nullSegments = 0;
    for (const Segment& s : key.segments) {
        const uint8_t* p = record + s.Offset();
        if (std::all_of(p, p + s.length, [&](uint8_t b) { return b == s.nullValue; }))
            ++nullSegments;
    }
    if (manual && nullSegments > 0) return true;
    return nullKey && nullSegments == key.segments.size();
}

int CompareValues(uint8_t kind, uint16_t len, bool ci, const uint8_t* a, const uint8_t* b) {
    uint8_t ea[RM_MAX_KEY_LENGTH + 1], eb[RM_MAX_KEY_LENGTH + 1];
    uint8_t* pa = ea;
    uint8_t* pb = eb;
    std::unique_ptr<uint8_t[]> big;
    if (len > sizeof(ea)) {  // filter fields may be longer than any key
        big.reset(new uint8_t[size_t(len) * 2]);
        pa = big.get();
        pb = big.get() + len;
    }
    EncodeValue(kind, len, ci, false, a, pa);
    EncodeValue(kind, len, ci, false, b, pb);
    return std::memcmp(pa, pb, len);
}

}  // namespace recman
