// Internal answers that never leave the engine: they ask the dispatcher to
// grow the map or to wait and run the operation again.
#pragma once

#include "recman/filedef.h"

namespace recman {

inline constexpr Status kMapFull = -1;          // grow the map and run the write again
inline constexpr Status kBlockedByLock = -2;    // another handle holds the record
inline constexpr Status kBlockedByWriter = -3;  // another client's transaction holds the file
inline constexpr Status kReadAgain = -4;        // a lock came after a newer commit: read afresh
inline constexpr Status kWaitForQueue = -5;     // wait in the file's writer queue, then run again
inline constexpr Status kWriterBusy = -6;       // the slot is changing hands: run again shortly

}  // namespace recman
