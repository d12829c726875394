// Little-endian and big-endian loads and stores on unaligned byte buffers.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace recman {

inline uint16_t LoadLe16(const uint8_t* p) {
    return uint16_t(p[0] | (p[1] << 8));
}
inline uint32_t LoadLe32(const uint8_t* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline uint64_t LoadLe64(const uint8_t* p) {
    return uint64_t(LoadLe32(p)) | (uint64_t(LoadLe32(p + 4)) << 32);
}
inline void StoreLe16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void StoreLe32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = uint8_t(v >> (8 * i));
}
inline void StoreLe64(uint8_t* p, uint64_t v) {
    for (int i = 0; i < 8; ++i)
        p[i] = uint8_t(v >> (8 * i));
}
inline uint64_t LoadBe64(const uint8_t* p) {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i)
        v = (v << 8) | p[i];
    return v;
}
inline void StoreBe64(uint8_t* p, uint64_t v) {
    for (int i = 7; i >= 0; --i) {
        p[i] = uint8_t(v);
        v >>= 8;
    }
}

// Appends to and reads from a byte string, for the small stored structures.
class ByteWriter {
  public:
    void U8(uint8_t v) { out_.push_back(char(v)); }
    void U16(uint16_t v) {
        uint8_t b[2];
        StoreLe16(b, v);
        out_.append(reinterpret_cast<char*>(b), 2);
    }
    void U32(uint32_t v) {
        uint8_t b[4];
        StoreLe32(b, v);
        out_.append(reinterpret_cast<char*>(b), 4);
    }
    void U64(uint64_t v) {
        uint8_t b[8];
        StoreLe64(b, v);
        out_.append(reinterpret_cast<char*>(b), 8);
    }
    void Bytes(const void* p, size_t n) { out_.append(static_cast<const char*>(p), n); }
    const std::string& str() const { return out_; }

  private:
    std::string out_;
};

class ByteReader {
  public:
    ByteReader(const void* p, size_t n) : p_(static_cast<const uint8_t*>(p)), n_(n) {}
    bool U8(uint8_t& v) {
        return Take(1, [&](const uint8_t* q) { v = q[0]; });
    }
    bool U16(uint16_t& v) {
        return Take(2, [&](const uint8_t* q) { v = LoadLe16(q); });
    }
    bool U32(uint32_t& v) {
        return Take(4, [&](const uint8_t* q) { v = LoadLe32(q); });
    }
    bool U64(uint64_t& v) {
        return Take(8, [&](const uint8_t* q) { v = LoadLe64(q); });
    }
    bool Bytes(void* dst, size_t n) {
        return Take(n, [&](const uint8_t* q) { std::memcpy(dst, q, n); });
    }
    size_t left() const { return n_ - at_; }

  private:
    template <class F>
    bool Take(size_t n, F f) {
        if (n_ - at_ < n) return false;
        f(p_ + at_);
        at_ += n;
        return true;
    }
    const uint8_t* p_;
    size_t n_;
    size_t at_ = 0;
};

}  // namespace recman
