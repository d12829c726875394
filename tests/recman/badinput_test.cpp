// Malformed input never crashes the engine or damages a file: random create
// specs, short and missing buffers, garbage position blocks, foreign files
// (the damage test cuts record files short), damaged stored definitions,
// malformed descriptors.
// Random calls of every kind are the fuzzing targets' part.
#include <gtest/gtest.h>
#include <lmdb.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "model.h"
#include "recman/filedef.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
using rmtest::Spec;
namespace fs = std::filesystem;

constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;

// Mostly plausible specs with random damage, some pure noise: each answers
// a status of Create, and what is accepted opens and reports the keys it
// was given.
TEST(BadInput, RandomCreateSpecs) {
    const std::set<int> statuses = {RM_OK,
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
    rmtest::TempDir dir;
    std::string p = dir.File("spec.dat");
    unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    int created = 0;
    for (int i = 0; i < 1500; ++i) {
        std::vector<uint8_t> s;
        if (i % 4 == 0) {
            s.resize(rng() % 200);
            for (auto& b : s)
                b = uint8_t(rng());
        } else {
            std::vector<rmtest::Key> ks(rng() % 4);
            for (rmtest::Key& key : ks)
                for (int g = 1 + int(rng() % 3); g > 0; --g)
                    key.push_back({uint16_t(1 + rng() % 40), uint16_t(1 + rng() % 9),
                                   uint16_t(rng() & 0x07FF), uint8_t(rng() % 17),
                                   uint8_t(rng() % 2), uint8_t(rng() % 4)});
            s = Spec(uint16_t(rng() % 64), ks, uint16_t(rng() & 0x0C01),
                     uint16_t((1 + rng() % 8) * 512));
            for (int d = int(rng() % 3); d > 0; --d)
                s[rng() % s.size()] = uint8_t(rng());
            if (rng() % 5 == 0) s.resize(rng() % (s.size() + 1));
        }
        int st = rmtest::CreateFile(p, s);
        ASSERT_TRUE(statuses.count(st)) << "status " << st;
        if (st != RM_OK) continue;
        ++created;
        Handle h;
        ASSERT_EQ(h.Open(p), RM_OK);
        std::vector<uint8_t> stat;
        ASSERT_EQ(h.Stat(stat), RM_OK);
        EXPECT_EQ(stat[4], rmtest::Get16(&s[4]));
        EXPECT_EQ(rmtest::Get16(&stat[0]), rmtest::Get16(&s[0]));
    }
    EXPECT_GT(created, 20);
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
        std::string before = rmtest::ReadAll(p);
        int st = h.Open(p);
        if (st == RM_OK) h.Close();
        EXPECT_EQ(rmtest::ReadAll(p), before) << "opening changed " << p;
        return st;
    };
    rmtest::WriteAll(dir.File("empty.dat"), "");
    EXPECT_EQ(opens(dir.File("empty.dat")), RM_NOT_A_RECMAN_FILE);
    EXPECT_FALSE(fs::exists(dir.File("empty.dat-lock")));
    rmtest::WriteAll(dir.File("text.dat"), std::string(100000, 'x'));
    EXPECT_EQ(opens(dir.File("text.dat")), RM_NOT_A_RECMAN_FILE);
    std::string noise(50000, 0);
    std::mt19937 rng(3);
    for (auto& c : noise)
        c = char(rng());
    rmtest::WriteAll(dir.File("noise.dat"), noise);
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

    // A stored definition damaged or cut anywhere is read without harm.
    recman::FileDef file;
    auto spec = Spec(40, {{{1, 4, EXT, RM_TYPE_INTEGER}}, {{5, 6, RM_KEY_DUPLICATES, 0}}});
    ASSERT_EQ(recman::ParseCreateSpec(spec.data(), uint32_t(spec.size()), file), RM_OK);
    std::string stored = recman::SerializeDef(file);
    for (int i = 0; i < 20000; ++i) {
        std::string damaged = stored;
        damaged[rng() % damaged.size()] = char(rng());
        damaged.resize(rng() % (damaged.size() + 1));
        recman::DeserializeDef(damaged.data(), damaged.size(), file);
    }
}

// Each fault of a descriptor is refused, and the scan stays where it was.
TEST(BadInput, MalformedDescriptors) {
    rmtest::TempDir dir;
    std::string p = dir.File("ext.dat");
    ASSERT_EQ(rmtest::CreateFile(p, Spec(24, {{{1, 4, EXT, RM_TYPE_INTEGER}}})), RM_OK);
    Handle h;
    ASSERT_EQ(h.Open(p), RM_OK);
    std::vector<uint8_t> r(24, 0);
    for (uint8_t id : {1, 2}) {
        r[0] = id;
        r[4] = uint8_t(10 * id);
        ASSERT_EQ(h.Insert(r), RM_OK);
    }
    ASSERT_EQ(h.Get(RM_GET_FIRST, 0, r), RM_OK);
    auto status = [&](const rmmodel::ExtDesc& d, void (*damage)(std::vector<uint8_t>&)) {
        std::vector<uint8_t> desc = d.Bytes();
        if (damage) damage(desc);
        uint32_t len = desc.size() == 11 ? 11 : 4096;  // a cut one is all the caller has
        desc.resize(4096);
        return h.Call(RM_GET_NEXT_EXTENDED, desc.data(), &len, h.key(), 0);
    };
    rmmodel::ExtDesc good;  // "UC", one record of qty = 10, its first 4 bytes
    good.useCurrent = true;
    good.fields = {{4, 0}};
    rmmodel::ExtTerm t;
    t.type = RM_TYPE_INTEGER;
    t.length = 2;
    t.offset = 4;
    t.value = {10, 0};
    good.terms = {t};
    EXPECT_EQ(status(good, nullptr), RM_OK);
    using Damage = void (*)(std::vector<uint8_t>&);
    const Damage bytes[] = {
        [](std::vector<uint8_t>& b) { b[2] = 'X'; },     // neither "UC" nor "EG"
        [](std::vector<uint8_t>& b) { b[0]++; },         // the total length disagrees
        [](std::vector<uint8_t>& b) { b.resize(11); },   // shorter than its own length
        [](std::vector<uint8_t>& b) { b[8] = 9; },       // unknown type
        [](std::vector<uint8_t>& b) { b[8 + 5] = 7; },   // unknown comparison
        [](std::vector<uint8_t>& b) { b[8 + 6] = 1; },   // the last term says AND
        [](std::vector<uint8_t>& b) { b[8 + 1] = 3; }};  // a 3-byte integer
    for (Damage d : bytes)
        EXPECT_EQ(status(good, d), RM_INVALID_DESCRIPTOR);
    rmmodel::ExtDesc bad = good;
    bad.terms[0].offset = 23;  // past the 24-byte record
    EXPECT_EQ(status(bad, nullptr), RM_INVALID_FIELD_OFFSET);
    bad = good;
    bad.fields = {{8, 20}};
    EXPECT_EQ(status(bad, nullptr), RM_INVALID_FIELD_OFFSET);
    bad = good;
    bad.max = 0;
    EXPECT_EQ(status(bad, nullptr), RM_INVALID_DESCRIPTOR);
    EXPECT_EQ(status(good, nullptr), RM_OK);  // "UC" finds record 1 again
}

}  // namespace
