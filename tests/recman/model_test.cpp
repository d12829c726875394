// Drives recman and the in-memory model side by side through long random
// sequences of operations on files with mixed key types and flags, and
// compares every answer. A failing run prints its seed; RECMAN_MODEL_SEED
// replays it, RECMAN_MODEL_OPS sets the length of a run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "model.h"
#include "model_gen.h"
#include "recman/check.h"
#include "rm_util.h"

namespace {

using namespace rmgen;
using rmmodel::Answer;

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
                auto kv = model_.KeyOf(*k, gen_.SearchSource(model_));
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
