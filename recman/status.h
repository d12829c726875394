// Internal answers that never leave the engine: they ask the dispatcher to
// grow the map or to wait and run the operation again.
#pragma once

#include "recman/filedef.h"

namespace recman {

inline constexpr Status kMapFull = -1;          // grow the map and run the write again
inline constexpr Status kBlockedByLock = -2;    // another handle holds the record
inline constexpr Status kBlockedByWriter = -3;  // another client holds the file's writer slot
inline constexpr Status kReadAgain = -4;        // a lock came after a newer commit: read afresh

}  // namespace recman
