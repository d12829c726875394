// Drives recman and the in-memory model side by side through long random
// sequences of operations by one client or several on shared files with
// mixed key types and flags, and compares every answer: records up to the
// largest length and past it, keyed and physical reads with short buffers,
// key-only reads, record locks of every bias, changes, transactions begun,
// ended, aborted and reset, indexes created and dropped, extended operations
// with random filters and extractors, Stat and the walk of every key. A
// failing run prints its seed; RECMAN_MODEL_SEED replays it, RECMAN_MODEL_OPS
// sets the length of a run and RECMAN_MODEL_TRACE prints one line an
// operation.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <random>
#include <set>

#include "model.h"
#include "model_gen.h"
#include "rm_util.h"

namespace {

using namespace rmgen;
using rmmodel::Answer;
using rmmodel::P;

// One file as every client sees it: committed records, and the records of the
// transaction that holds the writer slot.
struct FileWorld {
    const Schema* schema;
    std::string path;
    rmmodel::Model committed;
    std::optional<rmmodel::Model> working;
    int slot = -1;  // the client whose transaction holds the writer slot

    rmmodel::Model& View(int client) { return slot == client ? *working : committed; }
};

struct ClientWorld {
    bool active = false, exclusive = false;
    struct Lock {
        int handle;
        int generation;
        uint32_t address;
    };
    std::vector<Lock> locks;  // taken inside the transaction
};

struct HandleWorld {
    int client = 0, file = 0;
    int generation = 0;
    rmmodel::Handle cur;
    int kind = 0;  // 0 no locks, 1 single, 2 multiple
    std::set<uint32_t> locks;
    std::unique_ptr<rmtest::Handle> engine;
};

// Fields of the shared record layout that filter terms compare.
struct Field {
    uint16_t offset, length;
    uint8_t type;
};
const std::vector<Field> kFields = {
    {0, 4, RM_TYPE_INTEGER},       {4, 6, RM_TYPE_STRING},   {10, 2, RM_TYPE_INTEGER},
    {12, 4, RM_TYPE_FLOAT},        {24, 4, RM_TYPE_DATE},    {32, 4, RM_TYPE_DECIMAL},
    {36, 6, RM_TYPE_ZSTRING},      {42, 5, RM_TYPE_LSTRING}, {47, 3, RM_TYPE_UNSIGNED_BINARY},
    {56, 4, RM_TYPE_AUTOINCREMENT}};

class ModelRun {
  public:
    ModelRun(uint64_t seed, std::vector<int> schemas, int clients)
        : gen_(seed), schemas_(std::move(schemas)), clients_(size_t(clients)) {}

    void Run(int ops) {
        for (int s : schemas_) {
            FileWorld w;
            w.schema = &kSchemas[s];
            w.path = dir_.File("file" + std::to_string(files_.size()) + ".dat");
            w.committed = ModelOf(*w.schema);
            ASSERT_EQ(
                rmtest::CreateFile(w.path, rmtest::Spec(w.schema->recLen, w.schema->keys,
                                                        w.schema->fileFlags, w.schema->pageSize)),
                RM_OK);
            files_.push_back(std::move(w));
        }
        // Each client has two handles on the first file and one on each other.
        for (int c = 0; c < int(clients_.size()); ++c)
            for (int f = -1; f < int(files_.size()); ++f) {
                HandleWorld h;
                h.client = c;
                h.file = std::max(f, 0);
                h.engine = std::make_unique<rmtest::Handle>(uint16_t(c + 1));
                ASSERT_EQ(h.engine->Open(files_[size_t(h.file)].path), RM_OK);
                handles_.push_back(std::move(h));
            }
        for (step_ = 0; step_ < ops && !::testing::Test::HasFailure(); ++step_) {
            OneOperation();
            if (step_ % 250 == 249) CheckCommitted();
        }
        for (int c = 0; c < int(clients_.size()) && !::testing::Test::HasFailure(); ++c)
            Finish(c, false);
        if (!::testing::Test::HasFailure()) CheckCommitted();
    }

  private:
    // Rules of the writer slot. A change joins the client's transaction to
    // the file; outside a transaction it needs the slot free.
    int WriteGate(int c, FileWorld& f) {
        if (f.slot != -1 && f.slot != c) return RM_RECORD_LOCKED;
        if (clients_[size_t(c)].active && f.slot == -1) {
            f.slot = c;
            f.working = f.committed;
        }
        return 0;
    }
    // In an exclusive transaction every access joins.
    int ReadGate(int c, FileWorld& f) {
        if (!clients_[size_t(c)].active || !clients_[size_t(c)].exclusive || f.slot == c) return 0;
        if (f.slot != -1) return RM_RECORD_LOCKED;
        f.slot = c;
        f.working = f.committed;
        return 0;
    }

    int TakeLock(int hi, uint32_t address, int bias) {
        HandleWorld& h = handles_[size_t(hi)];
        int kind = (bias == 100 || bias == 200) ? 1 : 2;
        if (h.kind && h.kind != kind) return RM_INCOMPATIBLE_LOCK;
        FileWorld& f = files_[size_t(h.file)];
        if (f.slot != -1 && f.slot != h.client) return RM_RECORD_LOCKED;
        if (h.locks.count(address)) return 0;
        if (LockedByOther(hi, address)) return RM_RECORD_LOCKED;
        if (kind == 1) h.locks.clear();
        h.locks.insert(address);
        h.kind = kind;
        if (clients_[size_t(h.client)].active)
            clients_[size_t(h.client)].locks.push_back({hi, h.generation, address});
        return 0;
    }
    bool LockedByOther(int hi, uint32_t address) {
        for (size_t j = 0; j < handles_.size(); ++j)
            if (int(j) != hi && handles_[j].file == handles_[size_t(hi)].file &&
                handles_[j].locks.count(address))
                return true;
        return false;
    }
    void Release(HandleWorld& h, uint32_t address) {
        h.locks.erase(address);
        if (h.locks.empty()) h.kind = 0;
    }
    void Forget(HandleWorld& h) {  // closed: no locks, no currency
        h.cur = rmmodel::Handle{};
        h.locks.clear();
        h.kind = 0;
        h.generation++;
    }

    // A read through the model on a copy of the handle's place. With a lock
    // bias the record delivered is locked; a refused lock leaves place and
    // key buffer as they were.
    template <class F>
    Answer Read(int hi, uint16_t bias, uint8_t* mkey, F read) {
        HandleWorld& hw = handles_[size_t(hi)];
        if (int g = ReadGate(hw.client, files_[size_t(hw.file)])) return g;
        rmmodel::Handle tmp = hw.cur;
        uint8_t tkey[255];
        std::memcpy(tkey, mkey, 255);
        Answer a = read(files_[size_t(hw.file)].View(hw.client), tmp, tkey);
        if (bias && (a.status == RM_OK || a.status == RM_DATA_BUFFER_TOO_SHORT))
            if (int ls = TakeLock(hi, tmp.addr, bias)) return ls;
        hw.cur = tmp;
        std::memcpy(mkey, tkey, 255);
        return a;
    }

    // Reset: the client's transaction is aborted and its handles closed (the
    // driver opens them again at once).
    void ResetClient(int c) {
        ASSERT_EQ(rmtest::Txn(RM_RESET, uint16_t(c + 1)), RM_OK);
        FinishModel(c, false);
        for (HandleWorld& h : handles_) {
            if (h.client != c) continue;
            Forget(h);
            ASSERT_EQ(h.engine->Open(files_[size_t(h.file)].path), RM_OK);
        }
    }

    void Finish(int c, bool commit) {
        bool active = clients_[size_t(c)].active;
        FinishModel(c, commit);
        int st = rmtest::Txn(commit ? RM_END_TRANSACTION : RM_ABORT_TRANSACTION, uint16_t(c + 1));
        ASSERT_EQ(st, active ? RM_OK : RM_NO_TRANSACTION) << Where("end of transaction");
    }

    void FinishModel(int c, bool commit) {
        for (FileWorld& f : files_) {
            if (f.slot != c) continue;
            if (commit) f.committed = *f.working;
            f.working.reset();
            f.slot = -1;
        }
        for (auto& l : clients_[size_t(c)].locks) {
            HandleWorld& h = handles_[size_t(l.handle)];
            if (h.generation == l.generation) Release(h, l.address);
        }
        clients_[size_t(c)] = ClientWorld{};
    }

    std::string Where(const char* what) {
        return std::string(what) + " at step " + std::to_string(step_);
    }

    void Expect(const char* what, int st, const Answer& a, const uint8_t* data, uint32_t len,
                const uint8_t* key, const uint8_t* mkey) {
        if (trace_) {
            std::fprintf(stderr, "%d: %s handle %d client %d -> %d (model %d)", step_, what,
                         traceHandle_, handles_[size_t(traceHandle_)].client, st, a.status);
            for (size_t j = 0; j < handles_.size(); ++j)
                for (uint32_t l : handles_[j].locks)
                    std::fprintf(stderr, " [h%zu:%u]", j, l);
            for (size_t f = 0; f < files_.size(); ++f)
                if (files_[f].slot >= 0) std::fprintf(stderr, " slot%zu=c%d", f, files_[f].slot);
            std::fprintf(stderr, "\n");
        }
        ASSERT_EQ(st, a.status) << Where(what);
        if ((st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT) && !a.data.empty()) {
            ASSERT_EQ(len, a.dataLen) << Where(what);
            ASSERT_EQ(0, std::memcmp(data, a.data.data(), a.data.size())) << Where(what);
        }
        if (key) {
            ASSERT_EQ(0, std::memcmp(key, mkey, 255)) << Where(what) << ": key buffer";
        }
    }

    int KeyNumber(const rmmodel::Model& m) {
        if (m.keys.empty() || gen_.Chance(3)) return gen_.Pick(std::vector<int>{-1, 9, 50, 118});
        return m.keys[size_t(gen_.Int(0, int(m.keys.size()) - 1))].number;
    }

    // Mostly a buffer for anything, now and then one too short.
    uint32_t BufLen(const rmmodel::Model& m) {
        return gen_.Chance(8) ? uint32_t(gen_.Int(0, m.recLen + 70)) : 70000;
    }

    uint16_t LockBias() {
        static const std::vector<int> biases = {0, 0, 0, 0, 100, 200, 300, 400, 400};
        return uint16_t(gen_.Pick(biases));
    }

    rmmodel::ExtDesc Descriptor(const rmmodel::Model& m) {
        rmmodel::ExtDesc d;
        d.useCurrent = gen_.Chance(50);
        d.reject = uint16_t(gen_.Chance(30) ? 0 : gen_.Int(1, 30));
        d.max = uint16_t(gen_.Int(1, 12));
        int terms = gen_.Int(0, 3);
        std::vector<uint8_t> sample = gen_.SearchSource(m);
        for (int i = 0; i < terms; ++i) {
            const Field& f = gen_.Pick(kFields);
            rmmodel::ExtTerm t;
            t.type = f.type;
            t.length = f.length;
            t.offset = f.offset;
            t.op = gen_.Int(1, 6);
            t.noCase = gen_.Chance(40);
            if (f.offset == 0 && gen_.Chance(30)) {  // two 4-byte integers
                t.withField = true;
                t.other = 56;
            } else {
                t.value.assign(sample.begin() + f.offset, sample.begin() + f.offset + f.length);
            }
            t.connector = i + 1 == terms ? 0 : gen_.Int(1, 2);
            d.terms.push_back(t);
        }
        for (int n = gen_.Int(0, 3); n > 0; --n) {
            uint16_t off = uint16_t(gen_.Int(0, 60));
            d.fields.emplace_back(uint16_t(gen_.Int(1, 64 - off)), off);
        }
        return d;
    }

    void OneOperation() {
        int hi = gen_.Int(0, int(handles_.size()) - 1);
        traceHandle_ = hi;
        HandleWorld& hw = handles_[size_t(hi)];
        int c = hw.client;
        FileWorld& fw = files_[size_t(hw.file)];
        rmmodel::Model& m0 = fw.View(c);  // as the client sees the file before the call
        rmtest::Handle& h = *hw.engine;
        uint8_t key[255], mkey[255];
        for (auto& b : key)
            b = uint8_t(gen_.Int(0, 255));
        std::memcpy(mkey, key, 255);
        int roll = gen_.Int(1, 100);

        if (roll <= 4) {  // transactions
            int what = gen_.Int(0, 6);
            if (what == 0) {
                bool exclusive = gen_.Chance(30);
                int st = rmtest::Txn(
                    exclusive ? RM_BEGIN_TRANSACTION : RM_BEGIN_TRANSACTION + RM_CONCURRENT,
                    uint16_t(c + 1));
                ASSERT_EQ(st, clients_[size_t(c)].active ? RM_TRANSACTION_ACTIVE : RM_OK)
                    << Where("begin");
                if (!st) clients_[size_t(c)] = {true, exclusive, {}};
            } else if (what == 6) {
                ResetClient(c);
            } else {
                Finish(c, what % 2 == 1);
            }
            return;
        }
        // A change that would wait 50 ms for another client's transaction is
        // mostly not worth the wait.
        bool change = roll <= 40 || (roll > 96);
        if (change && fw.slot != -1 && fw.slot != c && gen_.Chance(85)) return;

        if (roll <= 18) {  // insert, now and then of a record too short
            std::vector<uint8_t> rec = gen_.Record(m0);
            if (gen_.Chance(4)) rec.resize(size_t(gen_.Int(0, m0.recLen - 1)));
            int kn = gen_.Chance(5) ? -1 : KeyNumber(m0);
            Answer a;
            if (int g = WriteGate(c, fw))
                a = Answer(g);
            else
                a = fw.View(c).Insert(hw.cur, rec, kn, mkey);
            uint32_t len = uint32_t(rec.size());
            int st = h.Call(RM_INSERT, rec.data(), &len, key, int8_t(kn));
            Expect("insert", st, a, rec.data(), a.dataLen, key, mkey);
        } else if (roll <= 30) {  // update: a fresh record, or the current one with a change
            std::vector<uint8_t> rec = gen_.Record(m0);
            auto cur = m0.recs.find(hw.cur.addr);
            if (cur != m0.recs.end() && gen_.Chance(80)) {
                std::vector<uint8_t> fresh = rec;
                rec = cur->second.data;
                size_t at = size_t(gen_.Int(4, m0.recLen - 1));  // keep the first key mostly
                rec[at] = fresh[at];
                if (gen_.Chance(10)) rec[0] = fresh[0];
            }
            int kn = gen_.Chance(80) ? -1 : KeyNumber(m0);
            Answer a;
            if (hw.cur.ph != P::On)
                a = Answer(RM_INVALID_POSITIONING);
            else if (LockedByOther(hi, hw.cur.addr))
                a = Answer(RM_RECORD_LOCKED);
            else if (int g = WriteGate(c, fw))
                a = Answer(g);
            else {
                a = fw.View(c).Update(hw.cur, rec, kn, mkey);
                if (a.status == 0 && hw.kind == 1) Release(hw, hw.cur.addr);
            }
            uint32_t len = uint32_t(rec.size());
            int st = h.Call(RM_UPDATE, rec.data(), &len, key, int8_t(kn));
            Expect("update", st, a, nullptr, 0, key, mkey);
        } else if (roll <= 36) {  // delete
            Answer a;
            uint32_t addr = hw.cur.addr;
            if (hw.cur.ph != P::On)
                a = Answer(RM_INVALID_POSITIONING);
            else if (LockedByOther(hi, addr))
                a = Answer(RM_RECORD_LOCKED);
            else if (int g = WriteGate(c, fw))
                a = Answer(g);
            else {
                a = fw.View(c).Delete(hw.cur);
                if (a.status == 0) Release(hw, addr);
            }
            uint32_t len = 0;
            int st = h.Call(RM_DELETE, nullptr, &len, key, 0);
            Expect("delete", st, a, nullptr, 0, key, mkey);
        } else if (roll <= 40) {  // create or drop an index
            bool create = gen_.Chance(60);
            Answer a;
            int st;
            if (create) {
                // A key of one field or two, duplicates allowed or not.
                rmtest::Key k;
                uint16_t dup = gen_.Chance(70) ? DUP : 0;
                for (int n = gen_.Chance(30) ? 2 : 1; n > 0; --n) {
                    const Field& f = gen_.Pick(kFields);
                    k.push_back(
                        {uint16_t(f.offset + 1), f.length,
                         uint16_t(EXT | MOD | dup | (gen_.Chance(30) ? DESC : 0)),
                         f.type == RM_TYPE_AUTOINCREMENT ? uint8_t(RM_TYPE_INTEGER) : f.type});
                }
                int number = gen_.Chance(50) ? -1 : gen_.Int(0, 12);
                if (clients_[size_t(c)].active)
                    a = Answer(RM_TRANSACTION_ACTIVE);
                else if (int g = WriteGate(c, fw))
                    a = Answer(g);
                else
                    a = fw.View(c).CreateIndex(ModelKey(k, false, 0), number);
                std::vector<uint8_t> spec = rmtest::Spec(64, {k});
                std::vector<uint8_t> segs(spec.begin() + 16, spec.end());
                uint32_t len = uint32_t(segs.size());
                st = h.Call(RM_CREATE_INDEX, segs.data(), &len, key,
                            int8_t(number < 0 ? 0 : 0x80 | number));
            } else {
                int number = KeyNumber(m0);
                bool keep = gen_.Chance(50);
                if (m0.keys.size() <= 1 && gen_.Chance(90)) return;  // keep something to walk
                if (number < 0 || number > 118) return;
                if (clients_[size_t(c)].active)
                    a = Answer(RM_TRANSACTION_ACTIVE);
                else if (int g = WriteGate(c, fw))
                    a = Answer(g);
                else
                    a = fw.View(c).DropIndex(number, keep);
                uint32_t len = 0;
                st = h.Call(RM_DROP_INDEX, nullptr, &len, key, int8_t((keep ? 0x80 : 0) | number));
            }
            Expect(create ? "create index" : "drop index", st, a, nullptr, 0, nullptr, nullptr);
        } else if (roll <= 66) {  // keyed reads: key-only, or perhaps locking
            static const std::vector<int> ops = {
                RM_GET_EQUAL,   RM_GET_GREATER,       RM_GET_GREATER_OR_EQUAL,
                RM_GET_LESS,    RM_GET_LESS_OR_EQUAL, RM_GET_FIRST,
                RM_GET_LAST,    RM_GET_NEXT,          RM_GET_NEXT,
                RM_GET_PREVIOUS};
            int op = gen_.Pick(ops);
            uint16_t bias = LockBias();
            bool keyOnly = !bias && gen_.Chance(15);
            uint32_t bufLen = BufLen(m0);
            int kn = (op == RM_GET_NEXT || op == RM_GET_PREVIOUS) && m0.ById(hw.cur.keyId) &&
                             gen_.Chance(90)
                         ? m0.ById(hw.cur.keyId)->number
                         : KeyNumber(m0);
            if (const rmmodel::Key* k = m0.Find(kn)) {
                auto kv = m0.KeyOf(*k, gen_.SearchSource(m0));
                std::memcpy(key, kv.data(), kv.size());
                std::memcpy(mkey, key, 255);
            }
            Answer a = Read(hi, bias, mkey, [&](rmmodel::Model& m, rmmodel::Handle& t, uint8_t* k) {
                return m.Get(t, op, kn, keyOnly, bufLen, k);
            });
            std::vector<uint8_t> buf(bufLen + 1, 0xEE);
            uint32_t len = bufLen;
            int st = h.Call(uint16_t(op + bias + (keyOnly ? RM_KEY_ONLY : 0)), buf.data(), &len,
                            key, int8_t(kn));
            Expect("get", st, a, buf.data(), len, key, mkey);
            if (keyOnly) {
                ASSERT_EQ(buf[0], 0xEE) << Where("key-only read wrote data");
            }
        } else if (roll <= 76) {  // physical steps, perhaps locking
            static const std::vector<int> ops = {RM_STEP_FIRST, RM_STEP_LAST, RM_STEP_NEXT,
                                                 RM_STEP_NEXT, RM_STEP_PREVIOUS};
            int op = gen_.Pick(ops);
            uint16_t bias = LockBias();
            uint32_t bufLen = BufLen(m0);
            bool relative = op == RM_STEP_NEXT || op == RM_STEP_PREVIOUS;
            Answer a =
                relative && hw.cur.ph == P::None
                    ? Answer(RM_INVALID_POSITIONING)
                    : Read(hi, bias, mkey, [&](rmmodel::Model& m, rmmodel::Handle& t, uint8_t*) {
                          return m.Step(t, op, bufLen);
                      });
            std::vector<uint8_t> buf(bufLen + 1);
            uint32_t len = bufLen;
            int st = h.Call(uint16_t(op + bias), buf.data(), &len, key, 0);
            Expect("step", st, a, buf.data(), len, key, mkey);
        } else if (roll <= 82) {  // extended operations
            static const std::vector<int> ops = {RM_GET_NEXT_EXTENDED, RM_GET_PREVIOUS_EXTENDED,
                                                 RM_STEP_NEXT_EXTENDED, RM_STEP_PREVIOUS_EXTENDED};
            int op = gen_.Pick(ops);
            bool physical = op >= RM_STEP_NEXT_EXTENDED;
            bool forward = op == RM_GET_NEXT_EXTENDED || op == RM_STEP_NEXT_EXTENDED;
            uint16_t bias = gen_.Chance(25) ? uint16_t(gen_.Chance(50) ? 400 : 200) : 0;
            rmmodel::ExtDesc d = Descriptor(m0);
            std::vector<uint8_t> desc = d.Bytes();
            uint32_t bufLen = uint32_t(gen_.Chance(20) ? gen_.Int(int(desc.size()), 200) : 4096);
            int kn = m0.ById(hw.cur.keyId) && gen_.Chance(85) ? m0.ById(hw.cur.keyId)->number
                                                              : KeyNumber(m0);
            Answer a;
            rmmodel::Handle tmp = hw.cur;
            if (int g = ReadGate(c, fw)) {
                a = Answer(g);
            } else {
                a = fw.View(c).Extended(tmp, physical, forward, kn, d, bufLen, [&](uint32_t addr) {
                    return bias ? TakeLock(hi, addr, bias) : 0;
                });
                bool moved = a.status != RM_RECORD_LOCKED && a.status != RM_INCOMPATIBLE_LOCK;
                if (moved || a.data.size() > 2) hw.cur = tmp;
            }
            std::vector<uint8_t> buf(std::max<size_t>(bufLen, desc.size()) + 8);
            std::memcpy(buf.data(), desc.data(), desc.size());
            uint32_t len = bufLen;
            int st = h.Call(uint16_t(op + bias), buf.data(), &len, key, int8_t(kn));
            Expect("extended", st, a, buf.data(), len, key, mkey);
            if (st == RM_RECORD_LOCKED && a.data.empty()) {  // to be sent again as it is
                ASSERT_EQ(0, std::memcmp(buf.data(), desc.data(), desc.size()))
                    << Where("descriptor of a refused call");
            }
        } else if (roll <= 88) {  // get direct, at a live address or not, perhaps locking
            uint32_t addr = uint32_t(gen_.Int(0, int(m0.nextAddr)));
            if (!m0.recs.empty() && gen_.Chance(80)) {
                auto it = m0.recs.begin();
                std::advance(it, gen_.Int(0, int(m0.recs.size()) - 1));
                addr = it->first;
            }
            uint16_t bias = LockBias();
            int kn = KeyNumber(m0);
            uint32_t bufLen = gen_.Chance(5) ? 3 : BufLen(m0);
            Answer a = bufLen < 4 ? Answer(RM_DATA_BUFFER_TOO_SHORT)
                                  : Read(hi, bias, mkey,
                                         [&](rmmodel::Model& m, rmmodel::Handle& t, uint8_t* k) {
                                             return m.Direct(t, addr, kn, bufLen, k);
                                         });
            std::vector<uint8_t> buf(std::max<uint32_t>(bufLen, 4) + 1);
            rmtest::Put32(buf.data(), addr);
            uint32_t len = bufLen;
            int st = h.Call(uint16_t(RM_GET_DIRECT + bias), buf.data(), &len, key, int8_t(kn));
            Expect("get direct", st, a, buf.data(), len, key, mkey);
        } else if (roll <= 90) {  // get position
            Answer a = m0.Position(hw.cur);
            uint8_t buf[4] = {};
            uint32_t len = 4;
            int st = h.Call(RM_GET_POSITION, buf, &len, key, 0);
            Expect("get position", st, a, buf, len, key, mkey);
        } else if (roll <= 94) {  // unlock
            int how = gen_.Int(0, 2);
            uint32_t addr =
                hw.locks.empty() || gen_.Chance(20) ? uint32_t(gen_.Int(0, 50)) : *hw.locks.begin();
            if (how == 0 && hw.kind == 2) Release(hw, addr);
            if (how == 1 && hw.kind == 2) hw.locks.clear(), hw.kind = 0;
            if (how == 2 && hw.kind == 1) hw.locks.clear(), hw.kind = 0;
            uint8_t buf[4];
            rmtest::Put32(buf, addr);
            uint32_t len = 4;
            int st = h.Call(RM_UNLOCK, buf, &len, key, int8_t(how == 0 ? -1 : how == 1 ? -2 : 0));
            ASSERT_EQ(st, RM_OK) << Where("unlock");
        } else if (roll <= 96) {  // stat: the view's record count, and the key buffer emptied
            int g = ReadGate(c, fw);
            std::vector<uint8_t> stat(16 + 16 * 255);
            uint32_t len = uint32_t(stat.size());
            int st = h.Call(RM_STAT, stat.data(), &len, key, -1);
            ASSERT_EQ(st, g) << Where("stat");
            if (!st) {
                ASSERT_EQ(rmtest::Get32(&stat[6]), fw.View(c).recs.size()) << Where("stat");
                ASSERT_TRUE(std::all_of(key, key + 255, [](uint8_t b) { return b == 0; }));
            }
        } else {  // close and reopen: locks and currency go
            ASSERT_EQ(h.Close(), RM_OK);
            ASSERT_EQ(h.Open(fw.path), RM_OK);
            Forget(hw);
        }
    }

    // Committed state, as a client outside every transaction sees it: the
    // file consistent, Stat's description and counts, and every key walked.
    void CheckCommitted() {
        for (FileWorld& f : files_) {
            const rmmodel::Model& m = f.committed;
            ASSERT_EQ(rmtest::Problem(f.path), "");
            rmtest::Handle walker(99);
            ASSERT_EQ(walker.Open(f.path), RM_OK);
            std::vector<uint8_t> st;
            ASSERT_EQ(walker.Stat(st), RM_OK);
            ASSERT_EQ(rmtest::Get16(&st[0]), m.recLen);
            ASSERT_EQ(rmtest::Get16(&st[2]), f.schema->pageSize);
            ASSERT_EQ(st[4], m.keys.size());
            ASSERT_EQ(st[5], 2);  // format version: records carry checksums
            ASSERT_EQ(rmtest::Get32(&st[6]), m.recs.size()) << Where("record count");
            ASSERT_EQ(rmtest::Get16(&st[10]), f.schema->fileFlags);
            const uint8_t* g = &st[16];
            for (const rmmodel::Key& k : m.keys) {
                ASSERT_EQ(rmtest::Get32(g + 6), m.Unique(k)) << Where("unique") << " " << k.number;
                for (size_t i = 0; i < k.segs.size(); ++i, g += 16) {
                    uint16_t flags = rmtest::Get16(g + 4);
                    ASSERT_EQ(g[14], k.number);
                    ASSERT_EQ(rmtest::Get16(g), k.segs[i].off + 1);
                    ASSERT_EQ(rmtest::Get16(g + 2), k.segs[i].len);
                    ASSERT_EQ(bool(flags & RM_KEY_SEGMENTED), i + 1 < k.segs.size());
                    ASSERT_EQ(bool(flags & DUP), k.dup);
                    ASSERT_EQ(bool(flags & DESC), k.segs[i].desc);
                    if (flags & EXT) {
                        ASSERT_EQ(g[10], k.segs[i].kind);
                    }
                }
            }
            for (const rmmodel::Key& k : m.keys)
                ASSERT_EQ(walker.Walk(int8_t(k.number)), m.Ordered(k))
                    << Where("walk") << " key " << k.number;
        }
    }

    Gen gen_;
    std::vector<int> schemas_;
    rmtest::TempDir dir_;
    std::vector<FileWorld> files_;
    std::vector<ClientWorld> clients_;
    std::vector<HandleWorld> handles_;
    int step_ = 0;
    bool trace_ = std::getenv("RECMAN_MODEL_TRACE") != nullptr;
    int traceHandle_ = 0;
};

// One client on a file of each schema, then three clients on two files.
class ModelTest : public ::testing::TestWithParam<int> {};

TEST_P(ModelTest, EngineAgreesWithModel) {
    int p = GetParam();
    std::vector<int> schemas = p < 3 ? std::vector<int>{p} : std::vector<int>{p % 3, (p + 1) % 3};
    const char* s = std::getenv("RECMAN_MODEL_SEED");
    uint64_t seed = s ? std::strtoull(s, nullptr, 10) : std::random_device{}();
    SCOPED_TRACE("RECMAN_MODEL_SEED=" + std::to_string(seed));
    setenv("RECMAN_LOCK_WAIT_MS", "0", 1);  // the wait biases give up at once
    const char* n = std::getenv("RECMAN_MODEL_OPS");
    ModelRun run(seed, schemas, p < 3 ? 1 : 3);
    run.Run(n ? std::atoi(n) : 6000);
    unsetenv("RECMAN_LOCK_WAIT_MS");
}

INSTANTIATE_TEST_SUITE_P(Runs, ModelTest, ::testing::Range(0, 6));

}  // namespace
