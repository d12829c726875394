// Drives recman and the in-memory model side by side through long random
// sequences of operations on files with mixed key types and flags, and
// compares every answer. A failing run prints its seed; RECMAN_MODEL_SEED
// replays it, RECMAN_MODEL_OPS sets the length of a run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "model.h"
#include "recman/check.h"
#include "rm_util.h"

namespace {

using rmmodel::Answer;
using rmtest::Seg;

constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE, DUP = RM_KEY_DUPLICATES, MOD = RM_KEY_MODIFIABLE,
                   CI = RM_KEY_CASE_INSENSITIVE, DESC = RM_KEY_DESCENDING, NUL = RM_KEY_NULL,
                   MAN = RM_KEY_MANUAL, BIN = RM_KEY_BINARY;

struct Schema {
    const char* name;
    uint16_t recLen;
    uint16_t fileFlags;
    std::vector<rmtest::Key> keys;
};

// Record layout shared by every schema (offsets from 0):
//  0 int32 | 4 string[6] | 10 int16 | 12 float | 16 double | 24 date | 28 time |
// 32 decimal[4] | 36 zstring[6] | 42 lstring[5] | 47 unsigned[3] | 50 logical |
// 51 money[3] | 54 filler[2] | 56 autoinc int32 | 60 filler[4]
const Schema kSchemas[] = {
    {"fixed, every type",
     64,
     0,
     {{{1, 4, EXT, RM_TYPE_INTEGER}},
      {{5, 6, EXT | DUP | MOD | CI, RM_TYPE_STRING}},
      {{11, 2, EXT | DUP | MOD | DESC, RM_TYPE_INTEGER}, {13, 4, EXT | DUP | MOD, RM_TYPE_FLOAT}},
      {{17, 8, EXT | DUP | MOD | NUL, RM_TYPE_FLOAT, 0}},
      {{25, 4, EXT | DUP | MOD, RM_TYPE_DATE}, {29, 4, EXT | DUP | MOD, RM_TYPE_TIME}},
      {{33, 4, EXT | MOD | MAN, RM_TYPE_DECIMAL, 0}},
      {{37, 6, EXT | DUP | MOD | CI, RM_TYPE_ZSTRING},
       {43, 5, EXT | DUP | MOD | CI | DESC, RM_TYPE_LSTRING}},
      {{48, 3, EXT | DUP | MOD | DESC, RM_TYPE_UNSIGNED_BINARY},
       {51, 1, EXT | DUP | MOD, RM_TYPE_LOGICAL}},
      {{52, 3, EXT | DUP | MOD, RM_TYPE_MONEY}}}},
    {"variable length, numbered and old-style keys",
     64,
     RM_FILE_VAR_LENGTH | RM_FILE_KEY_NUMBERS,
     {{{1, 4, EXT, RM_TYPE_INTEGER, 0, 3}},
      {{5, 6, DUP | MOD | CI, 0, 0, 0}},
      {{48, 3, DUP | MOD | BIN, 0, 0, 7}},
      {{17, 8, EXT | DUP | MOD | NUL, RM_TYPE_FLOAT, 0, 1}},
      {{37, 6, EXT | MOD | CI, RM_TYPE_ZSTRING, 0, 5}, {25, 4, EXT | MOD, RM_TYPE_DATE, 0, 5}},
      {{33, 4, EXT | DUP | MOD | DESC, RM_TYPE_DECIMAL, 0, 2},
       {11, 2, EXT | DUP | MOD, RM_TYPE_INTEGER, 0, 2}}}},
    {"autoincrement",
     64,
     0,
     {{{57, 4, EXT | MOD, RM_TYPE_AUTOINCREMENT}},
      {{5, 6, EXT | DUP | MOD, RM_TYPE_STRING}},
      {{1, 4, EXT | MOD, RM_TYPE_INTEGER}, {11, 2, EXT | MOD | DESC, RM_TYPE_INTEGER}}}},
};

rmmodel::Model ModelOf(const Schema& s) {
    rmmodel::Model m;
    m.recLen = s.recLen;
    m.var = s.fileFlags & RM_FILE_VAR_LENGTH;
    int id = 0;
    for (size_t i = 0; i < s.keys.size(); ++i) {
        rmmodel::Key k;
        k.number = (s.fileFlags & RM_FILE_KEY_NUMBERS) ? s.keys[i][0].number : int(i);
        k.id = ++id;
        for (const Seg& g : s.keys[i]) {
            rmmodel::Seg ms;
            ms.off = uint16_t(g.pos - 1);
            ms.len = g.len;
            ms.kind = (g.flags & EXT) ? g.type : ((g.flags & BIN) ? RM_TYPE_UNSIGNED_BINARY : 0);
            ms.ci = (g.flags & CI) &&
                    (ms.kind == 0 || ms.kind == RM_TYPE_LSTRING || ms.kind == RM_TYPE_ZSTRING);
            ms.desc = g.flags & DESC;
            ms.nullValue = g.nullValue;
            if (ms.kind == RM_TYPE_AUTOINCREMENT) k.autoSeg = int(k.segs.size());
            k.segs.push_back(ms);
            k.len = uint16_t(k.len + g.len);
            k.dup = g.flags & DUP;
            k.mod = g.flags & MOD;
            k.nullKey = k.nullKey || (g.flags & NUL);
            k.manual = k.manual || (g.flags & MAN);
        }
        m.keys.push_back(k);
    }
    std::sort(m.keys.begin(), m.keys.end(),
              [](const rmmodel::Key& a, const rmmodel::Key& b) { return a.number < b.number; });
    return m;
}

class Gen {
  public:
    explicit Gen(uint64_t seed) : rng_(seed) {}
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
    bool Chance(int percent) { return Int(1, 100) <= percent; }
    template <class T>
    const T& Pick(const std::vector<T>& v) {
        return v[size_t(Int(0, int(v.size()) - 1))];
    }

    void Put(std::vector<uint8_t>& r, size_t off, uint64_t v, int n) {
        for (int i = 0; i < n; ++i)
            r[off + i] = uint8_t(v >> (8 * i));
    }
    void PutText(std::vector<uint8_t>& r, size_t off, size_t n, const std::string& s, uint8_t pad) {
        for (size_t i = 0; i < n; ++i)
            r[off + i] = i < s.size() ? uint8_t(s[i]) : pad;
    }
    void PutBcd(std::vector<uint8_t>& r, size_t off, int n, long v, bool negZero = false) {
        bool neg = v < 0 || negZero;
        unsigned long m = neg ? (unsigned long)(-v) : (unsigned long)v;
        std::vector<uint8_t> digits(size_t(2 * n - 1));
        for (size_t i = digits.size(); i-- > 0; m /= 10)
            digits[i] = uint8_t(m % 10);
        for (int i = 0; i < n; ++i)
            r[off + i] = 0;
        for (size_t i = 0; i < digits.size(); ++i)
            r[off + i / 2] |= uint8_t(i % 2 == 0 ? digits[i] << 4 : digits[i]);
        r[off + n - 1] |= neg ? (Chance(50) ? 0x0D : 0x0B) : (Chance(80) ? 0x0F : 0x0C);
    }

    // A record with every field drawn from a small domain, so that equal
    // values, edges and case variants meet often.
    std::vector<uint8_t> Record(const rmmodel::Model& m) {
        size_t tail = m.var ? size_t(Int(0, 3) == 0 ? 0 : Int(0, 120)) : 0;
        std::vector<uint8_t> r(m.recLen + tail, 0);
        static const std::vector<int64_t> ints = {INT32_MIN, -70000, -1,  0,     1,
                                                  2,         255,    256, 70000, INT32_MAX};
        Put(r, 0, uint64_t(Chance(85) ? Int(-3000, 3000) : Pick(ints)), 4);
        static const std::vector<std::string> strs = {"abc",  "ABC",       "Abd",       "ab",
                                                      "ab c", "\xe9t\xe9", "\xc9T\xc9", "zz",
                                                      "",     "\xf7x",     "\xd7x"};
        PutText(r, 4, 6, Pick(strs), Chance(50) ? ' ' : 0);
        static const std::vector<int64_t> shorts = {-32768, -2, -1, 0, 1, 3, 32767};
        Put(r, 10, uint64_t(Pick(shorts)), 2);
        static const std::vector<float> floats = {-1e30f, -2.5f, -0.0f, 0.0f, 1e-30f, 2.5f, 7.0f};
        float f = Pick(floats);
        std::memcpy(&r[12], &f, 4);
        static const std::vector<double> doubles = {0.0, 0.0, -0.0, -3.25, 1e300, -1e300, 4.5};
        double d = Pick(doubles);
        std::memcpy(&r[16], &d, 8);
        static const std::vector<int> years = {1999, 2000, 2024, 2025};
        r[24] = uint8_t(Int(1, 31));
        r[25] = uint8_t(Int(1, 12));
        Put(r, 26, uint64_t(Pick(years)), 2);
        for (int i = 0; i < 4; ++i)
            r[28 + i] = uint8_t(Int(0, 2));
        static const std::vector<long> decs = {-100, -1, 0, 1, 99, 12345, 9999999};
        if (Chance(15))
            std::fill(r.begin() + 32, r.begin() + 36, 0);  // null for the manual key
        else
            PutBcd(r, 32, 4, Chance(70) ? Int(-99999, 99999) : Pick(decs), Chance(10));
        static const std::vector<std::string> zs = {"a", "ab",        "abc",   "AB",
                                                    "",  "\xe9t\xe9", "ABCDEF"};
        PutText(r, 36, 6, Pick(zs), 0);
        if (Chance(30)) r[41] = uint8_t(Int(1, 255));  // garbage after a short text's end
        static const std::vector<std::string> ls = {"", "a", "ab", "AB", "abcd", "b"};
        std::string l = Pick(ls);
        r[42] = uint8_t(Chance(10) ? Int(5, 255) : int(l.size()));
        PutText(r, 43, 4, l, Chance(50) ? 0 : 'x');
        Put(r, 47, uint64_t(Int(0, 3) * 0x10001 + Int(0, 1)), 3);
        r[50] = uint8_t(Int(0, 2));
        PutBcd(r, 51, 3, Pick(decs) % 100000, Chance(5));
        Put(r, 56, uint64_t(Chance(60) ? 0 : Int(-3, 400)), 4);
        for (size_t i = m.recLen; i < r.size(); ++i)
            r[i] = uint8_t(Int(0, 255));
        return r;
    }

    std::mt19937_64 rng_;
};

uint64_t SeedFromEnv(uint64_t fallback) {
    const char* s = std::getenv("RECMAN_MODEL_SEED");
    return s ? std::strtoull(s, nullptr, 10) : fallback;
}

int OpsFromEnv(int fallback) {
    const char* s = std::getenv("RECMAN_MODEL_OPS");
    return s ? std::atoi(s) : fallback;
}

class ModelRun {
  public:
    ModelRun(const Schema& schema, uint64_t seed)
        : schema_(schema), model_(ModelOf(schema)), gen_(seed) {}

    void Run(int ops) {
        ASSERT_EQ(rmtest::CreateFile(path_,
                                     rmtest::Spec(schema_.recLen, schema_.keys, schema_.fileFlags)),
                  RM_OK);
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(handles_[i].Open(path_), RM_OK);
            mh_[i].open = true;
        }
        for (step_ = 0; step_ < ops && !::testing::Test::HasFailure(); ++step_) {
            OneOperation();
            if (step_ % 250 == 249) CheckWhole();
        }
        if (!::testing::Test::HasFailure()) CheckWhole();
    }

  private:
    int KeyNumber() {
        if (gen_.Chance(3)) return gen_.Pick(std::vector<int>{-1, 9, 50, 118});
        return model_.keys[size_t(gen_.Int(0, int(model_.keys.size()) - 1))].number;
    }

    uint32_t BufLen(size_t typical) {
        if (gen_.Chance(8)) return uint32_t(gen_.Int(0, int(typical) + 10));
        return 70000;
    }

    void Expect(const char* what, int engineStatus, const Answer& a, const uint8_t* engineData,
                uint32_t engineLen, const uint8_t* engineKey, const uint8_t* modelKey) {
        std::string where = std::string(what) + " at step " + std::to_string(step_);
        ASSERT_EQ(engineStatus, a.status) << where;
        if (a.status == RM_OK || a.status == RM_DATA_BUFFER_TOO_SHORT) {
            if (!a.data.empty() || a.dataLen) {
                ASSERT_EQ(engineLen, a.dataLen) << where;
                ASSERT_EQ(0, std::memcmp(engineData, a.data.data(), a.data.size())) << where;
            }
        }
        ASSERT_EQ(0, std::memcmp(engineKey, modelKey, 255)) << where << ": key buffer";
    }

    void OneOperation() {
        int hi = gen_.Int(0, 1);
        rmtest::Handle& h = handles_[hi];
        rmmodel::Handle& mh = mh_[hi];
        uint8_t key[255], mkey[255];
        for (auto& b : key)
            b = uint8_t(gen_.Int(0, 255));
        int roll = gen_.Int(1, 100);
        if (roll <= 22) {  // insert
            std::vector<uint8_t> rec = gen_.Record(model_);
            if (gen_.Chance(4)) rec.resize(size_t(gen_.Int(0, model_.recLen)));
            int kn = KeyNumber();
            std::memcpy(mkey, key, 255);
            Answer a = model_.Insert(mh, rec, kn, mkey);
            uint32_t len = uint32_t(rec.size());
            int st = h.Call(RM_INSERT, rec.data(), &len, key, int8_t(kn));
            Expect("insert", st, a, rec.data(), a.dataLen, key, mkey);
        } else if (roll <= 36) {  // update: a fresh record, or the current one with a change
            std::vector<uint8_t> rec = gen_.Record(model_);
            auto cur = model_.recs.find(mh.addr);
            if (cur != model_.recs.end() && gen_.Chance(75)) {
                std::vector<uint8_t> fresh = rec;
                rec = cur->second.data;
                size_t at = size_t(gen_.Int(4, model_.recLen - 1));  // keep the first key mostly
                rec[at] = fresh[at];
                if (gen_.Chance(20)) rec[0] = fresh[0];
            }
            int kn = gen_.Chance(70) ? -1 : KeyNumber();
            std::memcpy(mkey, key, 255);
            Answer a = model_.Update(mh, rec, kn, mkey);
            uint32_t len = uint32_t(rec.size());
            int st = h.Call(RM_UPDATE, rec.data(), &len, key, int8_t(kn));
            Expect("update", st, a, nullptr, 0, key, mkey);
        } else if (roll <= 44) {  // delete
            std::memcpy(mkey, key, 255);
            Answer a = model_.Delete(mh);
            uint32_t len = 0;
            int st = h.Call(RM_DELETE, nullptr, &len, key, 0);
            Expect("delete", st, a, nullptr, 0, key, mkey);
        } else if (roll <= 80) {  // keyed reads
            static const std::vector<int> ops = {
                RM_GET_EQUAL, RM_GET_GREATER,       RM_GET_GREATER_OR_EQUAL,
                RM_GET_LESS,  RM_GET_LESS_OR_EQUAL, RM_GET_FIRST,
                RM_GET_LAST,  RM_GET_NEXT,          RM_GET_NEXT,
                RM_GET_NEXT,  RM_GET_PREVIOUS,      RM_GET_PREVIOUS};
            int op = gen_.Pick(ops);
            int kn = (op == RM_GET_NEXT || op == RM_GET_PREVIOUS) && mh.lg != rmmodel::P::None &&
                             gen_.Chance(90) && model_.ById(mh.keyId)
                         ? model_.ById(mh.keyId)->number
                         : KeyNumber();
            if (const rmmodel::Key* k = model_.Find(kn)) {
                // Search values: an existing record's key or a fresh one.
                std::vector<uint8_t> src = gen_.Record(model_);
                if (!model_.recs.empty() && gen_.Chance(60)) {
                    auto it = model_.recs.begin();
                    std::advance(it, gen_.Int(0, int(model_.recs.size()) - 1));
                    src = it->second.data;
                }
                auto kv = model_.KeyOf(*k, src);
                std::memcpy(key, kv.data(), kv.size());
            }
            bool keyOnly = gen_.Chance(10);
            uint32_t bufLen = BufLen(model_.recLen + 60);
            std::memcpy(mkey, key, 255);
            Answer a = model_.Get(mh, op, kn, keyOnly, bufLen, mkey);
            std::vector<uint8_t> buf(bufLen + 1, 0xEE);
            uint32_t len = bufLen;
            int st = h.Call(uint16_t(op + (keyOnly ? RM_KEY_ONLY : 0)), buf.data(), &len, key,
                            int8_t(kn));
            Expect("get", st, a, buf.data(), len, key, mkey);
            if (keyOnly && st == RM_OK) {
                ASSERT_EQ(buf[0], 0xEE) << "key-only read wrote data";
            }
        } else if (roll <= 92) {  // physical steps
            static const std::vector<int> ops = {RM_STEP_FIRST, RM_STEP_LAST, RM_STEP_NEXT,
                                                 RM_STEP_NEXT, RM_STEP_PREVIOUS};
            int op = gen_.Pick(ops);
            uint32_t bufLen = BufLen(model_.recLen + 60);
            std::memcpy(mkey, key, 255);
            Answer a = model_.Step(mh, op, bufLen);
            std::vector<uint8_t> buf(bufLen + 1);
            uint32_t len = bufLen;
            int st = h.Call(uint16_t(op), buf.data(), &len, key, 0);
            Expect("step", st, a, buf.data(), len, key, mkey);
        } else if (roll <= 96) {  // get direct, at a live address or not
            uint32_t addr = uint32_t(gen_.Int(0, int(model_.nextAddr)));
            if (!model_.recs.empty() && gen_.Chance(80)) {
                auto it = model_.recs.begin();
                std::advance(it, gen_.Int(0, int(model_.recs.size()) - 1));
                addr = it->first;
            }
            int kn = KeyNumber();
            uint32_t bufLen = gen_.Chance(5) ? 3 : BufLen(model_.recLen + 60);
            std::memcpy(mkey, key, 255);
            Answer a = model_.Direct(mh, addr, kn, bufLen, mkey);
            std::vector<uint8_t> buf(std::max<uint32_t>(bufLen, 4) + 1);
            rmtest::Put32(buf.data(), addr);
            uint32_t len = bufLen;
            int st = h.Call(RM_GET_DIRECT, buf.data(), &len, key, int8_t(kn));
            Expect("get direct", st, a, buf.data(), len, key, mkey);
        } else if (roll <= 98) {  // get position
            std::memcpy(mkey, key, 255);
            Answer a = model_.Position(mh);
            uint8_t buf[4] = {};
            uint32_t len = 4;
            int st = h.Call(RM_GET_POSITION, buf, &len, key, 0);
            Expect("get position", st, a, buf, len, key, mkey);
        } else {  // close and reopen: the currency goes
            ASSERT_EQ(h.Close(), RM_OK);
            ASSERT_EQ(h.Open(path_), RM_OK);
            mh = rmmodel::Handle{};
            mh.open = true;
        }
    }

    // Stat and every index walked end to end agree with the model, and the
    // file is consistent.
    void CheckWhole() {
        std::vector<std::string> problems;
        ASSERT_EQ(recman::CheckFile(path_, problems), RM_OK);
        ASSERT_TRUE(problems.empty()) << problems.front();
        std::vector<uint8_t> stat;
        ASSERT_EQ(handles_[0].Stat(stat), RM_OK);
        ASSERT_EQ(rmtest::Get32(&stat[6]), model_.recs.size()) << "record count";
        size_t at = 16;
        for (const rmmodel::Key& k : model_.keys) {
            ASSERT_EQ(stat[at + 14], k.number);
            ASSERT_EQ(rmtest::Get32(&stat[at + 6]), model_.Unique(k)) << "key " << k.number;
            at += 16 * k.segs.size();
        }
        rmtest::Handle walker;
        ASSERT_EQ(walker.Open(path_), RM_OK);
        for (const rmmodel::Key& k : model_.keys) {
            std::vector<uint32_t> seen;
            std::vector<uint8_t> rec;
            for (int st = walker.Get(RM_GET_FIRST, int8_t(k.number), rec); st == RM_OK;
                 st = walker.Get(RM_GET_NEXT, int8_t(k.number), rec)) {
                uint32_t a;
                ASSERT_EQ(walker.Position(a), RM_OK);
                seen.push_back(a);
            }
            ASSERT_EQ(seen, model_.Ordered(k)) << "order of key " << k.number;
        }
    }

    const Schema& schema_;
    rmmodel::Model model_;
    Gen gen_;
    rmtest::TempDir dir_;
    std::string path_ = dir_.File("model.dat");
    rmtest::Handle handles_[2];
    rmmodel::Handle mh_[2];
    int step_ = 0;
};

class ModelTest : public ::testing::TestWithParam<int> {};

TEST_P(ModelTest, EngineAgreesWithModel) {
    const Schema& schema = kSchemas[GetParam() % 3];
    uint64_t seed = SeedFromEnv(std::random_device{}() ^ (uint64_t(GetParam()) << 32));
    SCOPED_TRACE("schema \"" + std::string(schema.name) +
                 "\", RECMAN_MODEL_SEED=" + std::to_string(seed));
    ModelRun run(schema, seed);
    run.Run(OpsFromEnv(4000));
}

INSTANTIATE_TEST_SUITE_P(Schemas, ModelTest, ::testing::Range(0, 6));

}  // namespace
