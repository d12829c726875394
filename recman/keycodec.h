// Keys in sort form: every segment turned into bytes whose plain byte order is
// the order of its type, so that indexes compare keys with memcmp. Each
// segment's sort form has exactly the segment's length.
#pragma once

#include <cstdint>

#include "recman/filedef.h"

namespace recman {

// Folds a byte for case-insensitive comparison: a-z and the Latin-1 letters
// 0xE0-0xFE (but 0xF7) to their capitals.
uint8_t FoldCase(uint8_t c);

// Writes the sort form of `len` bytes of a value of type `kind`.
void EncodeValue(uint8_t kind, uint16_t len, bool caseInsensitive, bool descending,
                 const uint8_t* src, uint8_t* out);

// Sort form of a key taken from a record (which holds every segment).
void SortKeyFromRecord(const KeyDef& key, const uint8_t* record, uint8_t* out);

// Sort form of a key given in a key buffer: the segments' bytes concatenated.
void SortKeyFromKeyBuffer(const KeyDef& key, const uint8_t* keyBuf, uint8_t* out);

// The key as the key buffer exchanges it: the segments' bytes concatenated.
void ExtractKey(const KeyDef& key, const uint8_t* record, uint8_t* out);

// True when the record is left out of the key's index (null and manual keys).
bool ExcludedFromIndex(const KeyDef& key, const uint8_t* record);

// Compares two values of one type as keys compare them: <0, 0 or >0.
int CompareValues(uint8_t kind, uint16_t len, bool caseInsensitive, const uint8_t* a,
                  const uint8_t* b);

}  // namespace recman
