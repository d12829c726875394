// The descriptor of the extended operations (Get/Step Next/Previous Extended):
// which records qualify (filter terms) and what of each is returned.
//
// Layout, little-endian: total length (2), "UC" or "EG" (2), reject count
// (2), term count (2), the terms, maximum records (2), field count (2), the
// fields. A term: type (1), length (2), offset (2), comparison code (1),
// connector (1), then the constant (length bytes) or, with code +64, the
// 2-byte offset of another field. A field: length (2), offset (2).
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "recman/filedef.h"

namespace recman {

struct ExtTerm {
    uint8_t type = 0;
    uint16_t length = 0, offset = 0;
    uint8_t op = 0;  // 1 equal, 2 greater, 3 less, 4 not equal, 5 >=, 6 <=
    bool caseInsensitive = false;
    bool withField = false;  // compare with the field at otherOffset
    uint16_t otherOffset = 0;
    std::vector<uint8_t> value;
    uint8_t connector = 0;  // 0 last, 1 AND, 2 OR

    // How the comparison runs: integers and plain text directly, the other
    // types through their sort form (the constant's made once, here).
    // Int16 and Int32 are signed integers of those widths against a constant,
    // the common filter, read in one load.
    enum class How : uint8_t {
        Signed,
        Unsigned,
        Bytes,
        SortForm,
        Int16,
        Int32
    } how = How::SortForm;
    uint64_t number = 0;          // the constant as a number (Signed, Unsigned)
    std::vector<uint8_t> sorted;  // the constant's sort form (SortForm)
    // Bit c + 1 is set when the comparison holds for an order c of -1, 0, 1.
    uint8_t truth = 0;
    // The record length the term's bytes lie within.
    uint32_t end = 0;

    void Prepare();
    // <0, 0 or >0: the record's field against the constant or other field.
    int Compare(const uint8_t* field, const uint8_t* other) const;
    bool Holds(const uint8_t* record, uint32_t recordLength) const {
        if (end > recordLength) return HoldsInShort(record, recordLength);
        int c;
        if (how == How::Int32) {
            int32_t v;
            std::memcpy(&v, record + offset, 4);
            c = (v > int32_t(number)) - (v < int32_t(number));
        } else if (how == How::Int16) {
            int16_t v;
            std::memcpy(&v, record + offset, 2);
            c = (v > int16_t(number)) - (v < int16_t(number));
        } else {
            c = Compare(record + offset, withField ? record + otherOffset : nullptr);
            c = (c > 0) - (c < 0);
        }
        return (truth >> (c + 1)) & 1;
    }

  private:
    // A record too short for the term: the missing bytes read as zero.
    bool HoldsInShort(const uint8_t* record, uint32_t recordLength) const;
};

struct ExtField {
    uint16_t length = 0, offset = 0;
};

struct ExtDescriptor {
    bool useCurrent = false;  // "UC": the scan starts with the current record
    uint16_t rejectCount = 0;
    std::vector<ExtTerm> terms;
    uint16_t maxRecords = 0;
    std::vector<ExtField> fields;

    uint32_t ExtractLength() const;
    // AND binds tighter than OR; no terms means every record qualifies.
    bool Qualifies(const uint8_t* record, uint32_t length) const {
        if (terms.empty()) return true;
        bool group = true;  // the AND-group being read
        for (const ExtTerm& t : terms) {
            group = group && t.Holds(record, length);
            if (t.connector != 1) {  // OR or the end closes the group
                if (group) return true;
                group = true;
            }
        }
        return false;
    }
    // The selected fields concatenated; bytes past the record's end read as zero.
    void Extract(const uint8_t* record, uint32_t length, uint8_t* out) const;
};

// Reads a descriptor from `len` bytes of `buf` for records of `recordLength`
// fixed bytes: 62 when it is malformed, 65 when a field lies outside.
Status ParseDescriptor(const uint8_t* buf, uint32_t len, uint16_t recordLength, ExtDescriptor& out);

}  // namespace recman
