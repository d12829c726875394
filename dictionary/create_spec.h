// The engine's create buffer for a described file: its 16-byte file
// spec block, then each key segment converted for the engine.
#pragma once

#include <cstdint>
#include <vector>

#include "dictionary/key_list.h"
#include "dictionary/records.h"

std::vector<uint8_t> BuildCreateSpec(const CddFileDat& file, const CddKeyList& keys);
