// CRC-32C (Castagnoli), the checksum records carry in the file. The
// processor's CRC instruction computes it where there is one; a table does
// elsewhere, with the same results.
#pragma once

#include <cstddef>
#include <cstdint>

namespace recman {

// Continues `crc` (0 to start) over `n` bytes at `p`.
uint32_t Crc32c(const void* p, size_t n, uint32_t crc = 0);

// The checksum of `a` followed by `b`, in one pass (a stored value's key
// and its bytes).
uint32_t Crc32c(const void* a, size_t an, const void* b, size_t bn);

// The table's answer alone, so that tests can hold the two against each other.
uint32_t Crc32cPortable(const void* p, size_t n, uint32_t crc = 0);

}  // namespace recman
