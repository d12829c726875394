// BTRV: the thin wrapper over the engine requester's entry point BTRCALLID.
#pragma once

#include <cstdint>

// Calls the engine with a 32-bit length taken from (and given back to) the
// 16-bit `dataLen` (null passes 0) and a key length of 255 always. The engine
// is the linked recman, or the requester library named by DBFILE_REQUESTER
// (loaded once); 20 when that library cannot be loaded.
int16_t BTRV(uint16_t op, void* posBlock, void* dataBuf, uint16_t* dataLen, void* keyBuf,
             int8_t keyNum, const uint8_t* clientId);
