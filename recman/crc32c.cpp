#include "recman/crc32c.h"

#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#endif

namespace recman {

namespace {

constexpr uint32_t kPoly = 0x82F63B78;  // reflected Castagnoli polynomial

// Eight tables, so that the portable form takes eight bytes a step.
struct Tables {
    uint32_t t[8][256];
    Tables() {
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? (c >> 1) ^ kPoly : c >> 1;
            t[0][i] = c;
        }
        for (int j = 1; j < 8; ++j)
            for (uint32_t i = 0; i < 256; ++i)
                t[j][i] = (t[j - 1][i] >> 8) ^ t[0][t[j - 1][i] & 0xFF];
    }
};

const Tables& Table() {
    static const Tables tables;
    return tables;
}

uint32_t Portable(const uint8_t* p, size_t n, uint32_t c) {
    const Tables& tb = Table();
    while (n >= 8) {
        uint32_t lo, hi;
        std::memcpy(&lo, p, 4);
        std::memcpy(&hi, p + 4, 4);
        lo ^= c;
        c = tb.t[7][lo & 0xFF] ^ tb.t[6][(lo >> 8) & 0xFF] ^ tb.t[5][(lo >> 16) & 0xFF] ^
            tb.t[4][lo >> 24] ^ tb.t[3][hi & 0xFF] ^ tb.t[2][(hi >> 8) & 0xFF] ^
            tb.t[1][(hi >> 16) & 0xFF] ^ tb.t[0][hi >> 24];
        p += 8;
        n -= 8;
    }
    while (n--)
        c = tb.t[0][(c ^ *p++) & 0xFF] ^ (c >> 8);
    return c;
}

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) inline uint32_t Hardware(const uint8_t* p, size_t n, uint32_t c) {
    uint64_t c64 = c;
    while (n >= 8) {
        uint64_t v;
        std::memcpy(&v, p, 8);
        c64 = _mm_crc32_u64(c64, v);
        p += 8;
        n -= 8;
    }
    c = uint32_t(c64);
    if (n >= 4) {
        uint32_t v;
        std::memcpy(&v, p, 4);
        c = _mm_crc32_u32(c, v);
        p += 4;
        n -= 4;
    }
    while (n--)
        c = _mm_crc32_u8(c, *p++);
    return c;
}

// Both spans in one call of the instruction's code.
__attribute__((target("sse4.2"))) uint32_t HardwareTwo(const uint8_t* a, size_t an,
                                                       const uint8_t* b, size_t bn) {
    return Hardware(b, bn, Hardware(a, an, ~0u));
}

bool HasHardware() {
    static const bool has = __builtin_cpu_supports("sse4.2");
    return has;
}
#endif

}  // namespace

uint32_t Crc32c(const void* p, size_t n, uint32_t crc) {
    const uint8_t* b = static_cast<const uint8_t*>(p);
#if defined(__x86_64__)
    if (HasHardware()) return ~Hardware(b, n, ~crc);
#endif
    return ~Portable(b, n, ~crc);
}

uint32_t Crc32c(const void* a, size_t an, const void* b, size_t bn) {
    const uint8_t* x = static_cast<const uint8_t*>(a);
    const uint8_t* y = static_cast<const uint8_t*>(b);
#if defined(__x86_64__)
    if (HasHardware()) return ~HardwareTwo(x, an, y, bn);
#endif
    return ~Portable(y, bn, Portable(x, an, ~0u));
}

uint32_t Crc32cPortable(const void* p, size_t n, uint32_t crc) {
    return ~Portable(static_cast<const uint8_t*>(p), n, ~crc);
}

}  // namespace recman
