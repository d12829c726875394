// Malformed input never crashes the engine or damages a file: random and
// truncated create specs, short and missing buffers, garbage position blocks,
// foreign and truncated files, and random calls of every kind.
#include <gtest/gtest.h>
#include <lmdb.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "recman/check.h"
#include "recman/extended.h"
#include "recman/filedef.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
using rmtest::Spec;
namespace fs = std::filesystem;

constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;

std::string ReadAll(const std::string& p) {
    std::ifstream f(p, std::ios::binary);
    std::ostringstream out;
    out << f.rdbuf();
    return out.str();
}

void WriteAll(const std::string& p, const std::string& s) {
    std::ofstream f(p, std::ios::binary | std::ios::trunc);
    f << s;
}

// Every status the engine can answer.
const std::set<int> kStatuses = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 18,
                                 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 37, 39, 43, 45,
                                 46, 48, 49, 50, 51, 55, 59, 60, 62, 65, 80, 84, 88, 93};

const std::set<int> kCreateStatuses = {RM_OK,
                                       RM_INVALID_KEY_NUMBER,
                                       RM_DATA_BUFFER_TOO_SHORT,
                                       RM_PAGE_SIZE_ERROR,
                                       RM_NUMBER_OF_KEYS,
                                       RM_INVALID_KEY_POSITION,
                                       RM_INVALID_RECORD_LENGTH,
                                       RM_INVALID_KEY_LENGTH,
                                       RM_INCONSISTENT_KEY_FLAGS,
                                       RM_INVALID_ACS,
                                       RM_INVALID_KEY_TYPE,
                                       RM_AUTOINC_DUPLICATES};

TEST(BadInput, RandomAndTruncatedCreateSpecs) {
    rmtest::TempDir dir;
    std::string p = dir.File("spec.dat");
    std::mt19937 rng(std::random_device{}());
    unsigned seed = rng();
    SCOPED_TRACE("seed " + std::to_string(seed));
    rng.seed(seed);
    int created = 0;
    for (int i = 0; i < 1500; ++i) {
        // Mostly plausible specs with random damage, some pure noise.
        std::vector<uint8_t> s;
        if (i % 4 == 0) {
            s.resize(rng() % 200);
            for (auto& b : s)
                b = uint8_t(rng());
        } else {
            uint16_t keys = uint16_t(rng() % 4);
            std::vector<rmtest::Key> ks;
            for (uint16_t k = 0; k < keys; ++k) {
                rmtest::Key key;
                int segs = 1 + int(rng() % 3);
                for (int g = 0; g < segs; ++g)
                    key.push_back({uint16_t(1 + rng() % 40), uint16_t(1 + rng() % 9),
                                   uint16_t(rng() & 0x07FF), uint8_t(rng() % 17),
                                   uint8_t(rng() % 2), uint8_t(rng() % 4)});
                ks.push_back(key);
            }
            s = Spec(uint16_t(rng() % 64), ks, uint16_t(rng() & 0x0C01),
                     uint16_t((1 + rng() % 8) * 512));
            for (int d = int(rng() % 3); d > 0; --d)
                s[rng() % s.size()] = uint8_t(rng());
            if (rng() % 5 == 0) s.resize(rng() % (s.size() + 1));
        }
        int st = rmtest::CreateFile(p, s);
        ASSERT_TRUE(kCreateStatuses.count(st)) << "status " << st;
        if (st != RM_OK) continue;
        ++created;
        // What was accepted opens and reports the keys it was given.
        Handle h;
        ASSERT_EQ(h.Open(p), RM_OK);
        std::vector<uint8_t> stat;
        ASSERT_EQ(h.Stat(stat), RM_OK);
        EXPECT_EQ(stat[4], rmtest::Get16(&s[4]));
        EXPECT_EQ(rmtest::Get16(&stat[0]), rmtest::Get16(&s[0]));
    }
    EXPECT_GT(created, 20);
    // Every cut of a valid spec short of its end is refused with 22.
    auto good = Spec(30, {{{1, 4, EXT, RM_TYPE_INTEGER}}, {{5, 2, 0, 0}, {7, 3, 0, 0}}});
    for (size_t n = 0; n < good.size(); ++n) {
        std::vector<uint8_t> cut(good.begin(), good.begin() + long(n));
        EXPECT_EQ(rmtest::CreateFile(dir.File("cut.dat"), cut), RM_DATA_BUFFER_TOO_SHORT) << n;
    }
    uint8_t key[255] = {};
    std::strcpy(reinterpret_cast<char*>(key), dir.File("null.dat").c_str());
    uint32_t len = 64;
    EXPECT_EQ(BTRCALLID(RM_CREATE, nullptr, nullptr, &len, key, 255, 0, nullptr),
              RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_EQ(BTRCALLID(RM_CREATE, nullptr, good.data(), &len, nullptr, 255, 0, nullptr),
              RM_KEY_BUFFER_TOO_SHORT);
}

TEST(BadInput, ShortAndMissingBuffers) {
    rmtest::TempDir dir;
    std::string p = dir.File("buf.dat");
    ASSERT_EQ(rmtest::CreateFile(p, Spec(20, {{{1, 8, EXT, RM_TYPE_INTEGER}}})), RM_OK);
    Handle h;
    ASSERT_EQ(h.Open(p), RM_OK);
    std::vector<uint8_t> r(20, 1);
    ASSERT_EQ(h.Insert(r), RM_OK);
    uint8_t buf[64];
    uint32_t len = 0;
    EXPECT_EQ(h.Call(RM_INSERT, nullptr, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_EQ(h.Call(RM_INSERT, buf, nullptr, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    len = 64;
    EXPECT_EQ(h.Call(RM_GET_FIRST, nullptr, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_EQ(h.Call(RM_GET_FIRST, buf, &len, nullptr, 0), RM_KEY_BUFFER_TOO_SHORT);
    EXPECT_EQ(BTRCALLID(RM_GET_FIRST, h.pos(), buf, &len, h.key(), 7, 0, h.client()),
              RM_KEY_BUFFER_TOO_SHORT);  // the key is 8 bytes
    len = 3;
    EXPECT_EQ(h.Call(RM_GET_POSITION, buf, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_EQ(h.Call(RM_GET_DIRECT, buf, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_EQ(h.Call(RM_UNLOCK, buf, &len, h.key(), -1), RM_DATA_BUFFER_TOO_SHORT);
    len = 31;
    EXPECT_EQ(h.Call(RM_STAT, buf, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    len = 5;
    EXPECT_EQ(h.Call(RM_STEP_FIRST, buf, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_EQ(len, 5u);
    len = 0;
    EXPECT_EQ(h.Call(RM_OPEN, nullptr, &len, nullptr, 0), RM_KEY_BUFFER_TOO_SHORT);
    EXPECT_EQ(BTRCALLID(RM_OPEN, nullptr, nullptr, &len, h.key(), 255, 0, nullptr),
              RM_POSITION_BLOCK_MISSING);
}

TEST(BadInput, GarbagePositionBlocks) {
    rmtest::TempDir dir;
    std::string p = dir.File("pos.dat");
    ASSERT_EQ(rmtest::CreateFile(p, Spec(20, {{{1, 4, EXT, RM_TYPE_INTEGER}}})), RM_OK);
    Handle h;
    ASSERT_EQ(h.Open(p), RM_OK);
    std::mt19937 rng(7);
    uint8_t buf[64], key[255] = {};
    for (int i = 0; i < 2000; ++i) {
        uint8_t pos[RM_POSITION_BLOCK_SIZE];
        std::memcpy(pos, h.pos(), sizeof(pos));
        if (i % 2)
            for (auto& b : pos)
                b = uint8_t(rng());
        else
            pos[rng() % 16] ^= uint8_t(1 + rng() % 255);  // a near miss of a live block
        uint32_t len = sizeof(buf);
        uint16_t op = uint16_t(rng() % 40);
        // Calls that name no open file are not about position blocks.
        if (op == RM_OPEN || op == RM_CREATE || op == RM_VERSION || op == RM_RESET ||
            op == RM_STOP || (op >= 16 && op <= 21))
            continue;
        int st = BTRCALLID(op, pos, buf, &len, key, 255, 0, h.client());
        ASSERT_TRUE(st == RM_FILE_NOT_OPEN || st == RM_INVALID_OPERATION) << op << " " << st;
    }
    std::vector<uint8_t> r(20, 0);
    EXPECT_EQ(h.Insert(r), RM_OK);  // the real block still works
}

TEST(BadInput, ForeignAndDamagedFiles) {
    rmtest::TempDir dir;
    Handle h;
    auto opens = [&](const std::string& p) {
        std::string before = ReadAll(p);
        int st = h.Open(p);
        if (st == RM_OK) h.Close();
        EXPECT_EQ(ReadAll(p), before) << "opening changed " << p;
        return st;
    };
    WriteAll(dir.File("empty.dat"), "");
    EXPECT_EQ(opens(dir.File("empty.dat")), RM_NOT_A_RECMAN_FILE);
    EXPECT_FALSE(fs::exists(dir.File("empty.dat-lock")));
    WriteAll(dir.File("text.dat"), std::string(100000, 'x'));
    EXPECT_EQ(opens(dir.File("text.dat")), RM_NOT_A_RECMAN_FILE);
    std::string noise(50000, 0);
    std::mt19937 rng(3);
    for (auto& c : noise)
        c = char(rng());
    WriteAll(dir.File("noise.dat"), noise);
    EXPECT_EQ(opens(dir.File("noise.dat")), RM_NOT_A_RECMAN_FILE);
    fs::create_directory(dir.File("folder.dat"));
    EXPECT_EQ(h.Open(dir.File("folder.dat")), RM_NOT_A_RECMAN_FILE);

    // A storage file that is not a record file.
    std::string other = dir.File("other.mdb");
    MDB_env* env;
    MDB_txn* txn;
    MDB_dbi dbi;
    ASSERT_EQ(mdb_env_create(&env), 0);
    ASSERT_EQ(mdb_env_open(env, other.c_str(), MDB_NOSUBDIR, 0644), 0);
    ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
    ASSERT_EQ(mdb_dbi_open(txn, nullptr, 0, &dbi), 0);
    MDB_val k{3, const_cast<char*>("abc")}, v{3, const_cast<char*>("def")};
    ASSERT_EQ(mdb_put(txn, dbi, &k, &v, 0), 0);
    ASSERT_EQ(mdb_txn_commit(txn), 0);
    mdb_env_close(env);
    EXPECT_EQ(opens(other), RM_NOT_A_RECMAN_FILE);

    // A record file cut short, at several places.
    std::string p = dir.File("cut.dat");
    ASSERT_EQ(rmtest::CreateFile(p, Spec(200, {{{1, 4, EXT, RM_TYPE_INTEGER}}})), RM_OK);
    {
        Handle w;
        ASSERT_EQ(w.Open(p), RM_OK);
        for (int i = 0; i < 2000; ++i) {
            std::vector<uint8_t> r(200, uint8_t(i));
            rmtest::Put32(r.data(), uint32_t(i));
            ASSERT_EQ(w.Insert(r), RM_OK);
        }
    }
    std::string whole = ReadAll(p);
    for (size_t cut : {size_t(0), size_t(100), size_t(4096), size_t(8192), whole.size() / 2,
                       whole.size() - 4096}) {
        fs::remove(p + "-lock");
        WriteAll(p, whole.substr(0, cut));
        // An empty file is nobody's; one that still begins with a meta page
        // is a record file cut short.
        EXPECT_EQ(opens(p), cut == 0 ? RM_NOT_A_RECMAN_FILE : RM_IO_ERROR) << "cut at " << cut;
    }
    WriteAll(p, whole);
    EXPECT_EQ(opens(p), RM_OK);
}

// Random calls of every kind, with random buffers and lengths, against a live
// file and its handles: every answer is a status and the file stays whole.
TEST(BadInput, RandomCalls) {
    rmtest::TempDir dir;
    std::string p = dir.File("fuzz.dat");
    ASSERT_EQ(rmtest::CreateFile(
                  p, Spec(24,
                          {{{1, 4, EXT, RM_TYPE_INTEGER}},
                           {{5, 6, EXT | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE, RM_TYPE_ZSTRING}}},
                          RM_FILE_VAR_LENGTH)),
              RM_OK);
    std::mt19937 rng(std::random_device{}());
    unsigned seed = rng();
    SCOPED_TRACE("seed " + std::to_string(seed));
    rng.seed(seed);
    Handle handles[3] = {Handle(0), Handle(1), Handle(0)};
    for (auto& h : handles)
        ASSERT_EQ(h.Open(p), RM_OK);
    static const uint16_t ops[] = {RM_INSERT,
                                   RM_UPDATE,
                                   RM_DELETE,
                                   RM_GET_EQUAL,
                                   RM_GET_NEXT,
                                   RM_GET_PREVIOUS,
                                   RM_GET_GREATER,
                                   RM_GET_LESS_OR_EQUAL,
                                   RM_GET_FIRST,
                                   RM_GET_LAST,
                                   RM_STAT,
                                   RM_GET_POSITION,
                                   RM_GET_DIRECT,
                                   RM_STEP_NEXT,
                                   RM_STEP_FIRST,
                                   RM_STEP_PREVIOUS,
                                   RM_UNLOCK,
                                   RM_GET_FIRST + RM_KEY_ONLY,
                                   RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT,
                                   RM_STEP_NEXT + RM_LOCK_SINGLE_NOWAIT,
                                   RM_VERSION,
                                   99,
                                   1019,
                                   16,
                                   RM_BEGIN_TRANSACTION,
                                   RM_END_TRANSACTION,
                                   RM_ABORT_TRANSACTION,
                                   RM_ABORT_TRANSACTION,
                                   RM_CREATE_INDEX,
                                   RM_DROP_INDEX,
                                   RM_GET_NEXT_EXTENDED,
                                   RM_GET_PREVIOUS_EXTENDED,
                                   RM_STEP_NEXT_EXTENDED,
                                   RM_STEP_PREVIOUS_EXTENDED + RM_LOCK_MULTI_NOWAIT};
    std::vector<uint8_t> buf(70000);
    for (int i = 0; i < 12000; ++i) {
        // The second client's changes wait 50 ms when the first one's
        // transaction holds the file, so it gets fewer turns.
        Handle& h = handles[rng() % 40 == 0 ? 1 : (rng() % 2) * 2];
        uint16_t op = ops[rng() % (sizeof(ops) / sizeof(ops[0]))];
        size_t n = rng() % 4 == 0 ? rng() % 70000 : rng() % 64;
        for (size_t j = 0; j < std::min<size_t>(n, 64); ++j)
            buf[j] = uint8_t(rng() % 8);
        if (op >= RM_GET_NEXT_EXTENDED && rng() % 2) {
            // A descriptor that is nearly right: its length, a signature,
            // a term or two, maximum records, fields.
            buf[0] = uint8_t(rng() % 40);
            buf[1] = 0;
            buf[2] = rng() % 2 ? 'U' : 'E';
            buf[3] = buf[2] == 'U' ? 'C' : 'G';
            buf[6] = uint8_t(rng() % 3);
            n = std::max<size_t>(n, 64);
        } else if (op == RM_CREATE_INDEX && rng() % 2) {
            for (size_t j = 0; j < 16; ++j)
                buf[j] = 0;
            buf[0] = uint8_t(1 + rng() % 24);
            buf[2] = uint8_t(1 + rng() % 8);
            buf[4] = uint8_t(rng() % 4);
            buf[5] = uint8_t(rng() % 2);
            buf[10] = uint8_t(rng() % 16);
            n = 16;
        }
        uint8_t key[255];
        for (auto& b : key)
            b = uint8_t(rng() % 4);
        uint32_t len = uint32_t(n);
        int8_t keyNum = int8_t(rng() % 5 == 0 ? int(rng() % 256) - 128 : int(rng() % 3));
        int st = BTRCALLID(op, h.pos(), rng() % 50 ? buf.data() : nullptr, &len, key,
                           uint8_t(rng() % 10 ? 255 : rng() % 8), keyNum, h.client());
        ASSERT_TRUE(kStatuses.count(st)) << "status " << st << " from operation " << op;
        ASSERT_LE(len, 70000u);
    }
    for (auto& h : handles)
        BTRCALLID(RM_ABORT_TRANSACTION, nullptr, nullptr, nullptr, nullptr, 255, 0, h.client());
    std::vector<std::string> problems;
    ASSERT_EQ(recman::CheckFile(p, problems), RM_OK);
    EXPECT_TRUE(problems.empty()) << problems.front();
}

}  // namespace

namespace {

// The parsers on their own, fed noise and near misses: descriptors, create
// and index specs, and the stored definition.
TEST(BadInput, ParsersTakeAnyBytes) {
    std::mt19937 rng(std::random_device{}());
    unsigned seed = rng();
    SCOPED_TRACE("seed " + std::to_string(seed));
    rng.seed(seed);
    recman::FileDef file;
    ASSERT_EQ(recman::ParseCreateSpec(rmtest::Spec(40, {{{1, 4, EXT, RM_TYPE_INTEGER}}}).data(), 32,
                                      file),
              RM_OK);
    std::string stored = recman::SerializeDef(file);
    for (int i = 0; i < 20000; ++i) {
        std::vector<uint8_t> b(rng() % 120);
        for (auto& x : b)
            x = uint8_t(rng() % 4 == 0 ? rng() : rng() % 3);
        if (b.size() >= 8 && rng() % 2) {
            b[0] = uint8_t(b.size());
            b[1] = 0;
            b[2] = 'E';
            b[3] = 'G';
        }
        recman::ExtDescriptor d;
        int st = recman::ParseDescriptor(b.data(), uint32_t(b.size()), 40, d);
        ASSERT_TRUE(st == RM_OK || st == RM_INVALID_DESCRIPTOR || st == RM_INVALID_FIELD_OFFSET);
        if (st == RM_OK) {
            std::vector<uint8_t> rec(40 + rng() % 8, uint8_t(rng()));
            d.Qualifies(rec.data(), uint32_t(rec.size()));
            std::vector<uint8_t> out(d.ExtractLength());
            d.Extract(rec.data(), uint32_t(rng() % 41), out.data());
        }
        recman::KeyDef key;
        st = recman::ParseIndexSpec(b.data(), uint32_t(b.size()), file, int(rng() % 130) - 1, key);
        ASSERT_TRUE(kCreateStatuses.count(st) || st == RM_NUMBER_OF_KEYS) << st;
        recman::FileDef any;
        recman::ParseCreateSpec(b.data(), uint32_t(b.size()), any);
        std::string damaged = stored;
        damaged[rng() % damaged.size()] = char(rng());
        damaged.resize(rng() % (damaged.size() + 1));
        recman::DeserializeDef(damaged.data(), damaged.size(), any);
    }
}

}  // namespace
