// A small in-memory model of the record manager's behaviour, written to be
// obviously right rather than fast: records in a map by address, every key
// order computed by sorting with a typed comparison of the key's values.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace rmmodel {

struct Seg {
    uint16_t off = 0, len = 0;
    uint8_t kind = 0;  // the type that orders the segment
    bool ci = false, desc = false;
    uint8_t nullValue = 0;
};

struct Key {
    int number = 0;
    int id = 0;
    std::vector<Seg> segs;
    bool dup = false, mod = false, nullKey = false, manual = false;
    uint16_t len = 0;
    int autoSeg = -1;
};

enum class P { None, On, Gone, After, Before };

struct Handle {
    bool open = false;
    P lg = P::None;  // logical currency
    int keyId = -1;
    std::vector<uint8_t> key;  // key value and sequence of the logical position
    uint64_t seq = 0;
    P ph = P::None;  // physical currency
    uint32_t addr = 0;
    uint32_t version = 0;
};

struct Rec {
    uint32_t version = 0;
    std::vector<uint8_t> data;
    std::map<int, uint64_t> seq;  // by key id, for duplicate keys
};

// An extended operation's descriptor, as the model reads it.
struct ExtTerm {
    uint8_t type = 0;
    uint16_t length = 0, offset = 0;
    int op = 1;  // 1 =, 2 >, 3 <, 4 <>, 5 >=, 6 <=
    bool noCase = false;
    bool withField = false;
    uint16_t other = 0;
    std::vector<uint8_t> value;
    int connector = 0;  // 0 end, 1 AND, 2 OR
};

struct ExtDesc {
    bool useCurrent = false;
    uint16_t reject = 0;
    std::vector<ExtTerm> terms;
    uint16_t max = 1;
    std::vector<std::pair<uint16_t, uint16_t>> fields;  // (length, offset)

    std::vector<uint8_t> Bytes() const;  // the engine's layout of it
};

// What a call gave back: status, data returned and the key buffer after it.
struct Answer {
    Answer() = default;
    Answer(int s) : status(s) {}  // NOLINT: a bare status is an answer
    int status = 0;
    std::vector<uint8_t> data;
    uint32_t dataLen = 0;
};

class Model {
  public:
    uint16_t recLen = 0;
    bool var = false;
    std::vector<Key> keys;  // ascending key number
    std::map<uint32_t, Rec> recs;
    uint32_t nextAddr = 1;
    uint64_t nextSeq = 1;
    int nextIndexId = 1;

    const Key* Find(int number) const;
    const Key* ById(int id) const;
    std::vector<uint8_t> KeyOf(const Key& k, const std::vector<uint8_t>& data) const;
    bool Excluded(const Key& k, const std::vector<uint8_t>& data) const;
    int CompareKey(const Key& k, const uint8_t* a, const uint8_t* b) const;
    std::vector<uint32_t> Ordered(const Key& k) const;
    uint32_t Unique(const Key& k) const;

    // Operations; `key` is the caller's 255-byte key buffer.
    Answer Get(Handle& h, int op, int keyNum, bool keyOnly, uint32_t bufLen, uint8_t* key);
    Answer Step(Handle& h, int op, uint32_t bufLen);
    Answer Direct(Handle& h, uint32_t address, int keyNum, uint32_t bufLen, uint8_t* key);
    Answer Position(const Handle& h) const;
    Answer Insert(Handle& h, std::vector<uint8_t> data, int keyNum, uint8_t* key);
    Answer Update(Handle& h, std::vector<uint8_t> data, int keyNum, uint8_t* key);
    Answer Delete(Handle& h);

    // Create Index: a key of the given segments under `number`, or the
    // lowest free number when it is -1. Drop Index: with `keep` the other
    // keys keep their numbers.
    Answer CreateIndex(Key key, int number);
    Answer DropIndex(int number, bool keep);

    // Extended operations. `lock` is asked for every record returned and
    // answers 0 or the status that ends the call.
    using LockFn = std::function<int(uint32_t address)>;
    Answer Extended(Handle& h, bool physical, bool forward, int keyNum, const ExtDesc& d,
                    uint32_t bufLen, const LockFn& lock);
    bool Qualifies(const ExtDesc& d, const std::vector<uint8_t>& rec) const;

  private:
    int CompareEntry(const Key& k, const std::vector<uint8_t>& ka, uint64_t sa,
                     const std::vector<uint8_t>& kb, uint64_t sb) const;
    Answer Deliver(Handle& h, uint32_t addr, const Key* path, bool keyOnly, uint32_t bufLen,
                   uint8_t* key);
    // Puts the handle on the record at `addr`, logically too when the record
    // is in `path`.
    void Place(Handle& h, const Key* path, uint32_t addr) const;
};

// Typed comparison of one segment's values.
int CompareSegment(const Seg& s, const uint8_t* a, const uint8_t* b);

}  // namespace rmmodel
