// The fields of keys as callers describe them: one segment (SKeyField), the
// segments of one key in order (CArraySKeyField) and the map from key number
// to a key's segments that a file's keys are captured in and re-applied from.
#pragma once

#include "platform/collections.h"

struct SKeyField {
    unsigned short FldId = 0;  // field of the segment
    int Descending = 0;        // non-zero: the segment sorts descending
};

class CArraySKeyField : public CArray<SKeyField, SKeyField&> {
  public:
    int Permanent = 0;  // 1 when the dictionary describes the key
};

using CKeyMap = CMap<int, int, CArraySKeyField, CArraySKeyField&>;

// What a map built by the library is sized for.
inline constexpr int kKeyMapBlockSize = 10;
inline constexpr unsigned kKeyMapHashSize = 17;
