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
    enum class How : uint8_t { Signed, Unsigned, Bytes, SortForm } how = How::SortForm;
    uint64_t number = 0;          // the constant as a number (Signed, Unsigned)
    std::vector<uint8_t> sorted;  // the constant's sort form (SortForm)

    void Prepare();
    // <0, 0 or >0: the record's field against the constant or other field.
    int Compare(const uint8_t* field, const uint8_t* other) const;
    bool Holds(const uint8_t* record, uint32_t recordLength) const;
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
    bool Qualifies(const uint8_t* record, uint32_t length) const;
    // The selected fields concatenated; bytes past the record's end read as zero.
    void Extract(const uint8_t* record, uint32_t length, uint8_t* out) const;
};

// Reads a descriptor from `len` bytes of `buf` for records of `recordLength`
// fixed bytes: 62 when it is malformed, 65 when a field lies outside.
Status ParseDescriptor(const uint8_t* buf, uint32_t len, uint16_t recordLength, ExtDescriptor& out);

}  // namespace recman
