// Schemas and random records shared by the model-based tests.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "model.h"
#include "rm_util.h"

namespace rmgen {

constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE, DUP = RM_KEY_DUPLICATES, MOD = RM_KEY_MODIFIABLE,
                   CI = RM_KEY_CASE_INSENSITIVE, DESC = RM_KEY_DESCENDING, NUL = RM_KEY_NULL,
                   MAN = RM_KEY_MANUAL, BIN = RM_KEY_BINARY;

struct Schema {
    const char* name;
    uint16_t recLen;
    uint16_t fileFlags;
    std::vector<rmtest::Key> keys;
    uint16_t pageSize = 4096;
};

// Record layout shared by every schema (offsets from 0):
//  0 int32 | 4 string[6] | 10 int16 | 12 float | 16 double | 24 date | 28 time |
// 32 decimal[4] | 36 zstring[6] | 42 lstring[5] | 47 unsigned[3] | 50 logical |
// 51 money[3] | 54 autoinc int16 | 56 autoinc int32 | 60 filler[4]
// Keys also read fields as other types: the double as an 8-byte integer,
// the int16 as a 1-byte integer and as a logical.
extern const Schema kSchemas[3];

rmmodel::Model ModelOf(const Schema& s);
rmmodel::Key ModelKey(const rmtest::Key& segs, bool numbered, int index);

class Gen {
  public:
    explicit Gen(uint64_t seed) : rng_(seed) {}
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
    bool Chance(int percent) { return Int(1, 100) <= percent; }
    template <class T>
    const T& Pick(const std::vector<T>& v) {
        return v[size_t(Int(0, int(v.size()) - 1))];
    }
    // A record with every field drawn from a small domain, so that equal
    // values, edges and case variants meet often.
    std::vector<uint8_t> Record(const rmmodel::Model& m);
    // A record to take search values from: a stored one (60%) or a fresh one.
    std::vector<uint8_t> SearchSource(const rmmodel::Model& m);

  private:
    void Put(std::vector<uint8_t>& r, size_t off, uint64_t v, int n);
    void PutText(std::vector<uint8_t>& r, size_t off, size_t n, const std::string& s, uint8_t pad);
    void PutBcd(std::vector<uint8_t>& r, size_t off, int n, long v, bool negZero = false);
    std::mt19937_64 rng_;
};

}  // namespace rmgen
