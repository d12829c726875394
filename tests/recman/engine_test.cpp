// Behaviour of the engine's file-level operations: create and remove, open
// modes, owner names, record lengths, autoincrement, Stat, Version, clients
// and handles, reuse of freed pages, threads.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "recman/check.h"
#include "recman/engine.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
using rmtest::Seg;
using rmtest::Spec;
namespace fs = std::filesystem;

constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE, DUP = RM_KEY_DUPLICATES, MOD = RM_KEY_MODIFIABLE;

// 32-byte records: id (int32, key 0), name (zstring[20], key 1, duplicates), 8 spare.
std::vector<uint8_t> Spec32(uint16_t flags = 0) {
    return Spec(32, {{{1, 4, EXT, RM_TYPE_INTEGER}}, {{5, 20, EXT | DUP | MOD, RM_TYPE_ZSTRING}}},
                flags);
}

std::vector<uint8_t> Rec(int32_t id, const char* name, size_t len = 32) {
    std::vector<uint8_t> r(len, 0);
    rmtest::Put32(r.data(), uint32_t(id));
    std::strncpy(reinterpret_cast<char*>(&r[4]), name, 19);
    return r;
}

class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(rmtest::CreateFile(path, Spec32()), RM_OK); }
    rmtest::TempDir dir;
    std::string path = dir.File("people.dat");
};

TEST_F(EngineTest, CreateFormsAndRemove) {
    EXPECT_EQ(rmtest::CreateFile(path, Spec32(), RM_CREATE_NO_REPLACE), RM_FILE_EXISTS);
    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    auto r = Rec(1, "one");
    ASSERT_EQ(h.Insert(r), RM_OK);
    // A file open anywhere is neither replaced nor removed.
    EXPECT_EQ(rmtest::CreateFile(path, Spec32()), RM_INCOMPATIBLE_MODE);
    EXPECT_EQ(rmtest::CreateFile(path, {}, RM_CREATE_REMOVE), RM_INCOMPATIBLE_MODE);
    ASSERT_EQ(h.Close(), RM_OK);
    // Replacing leaves an empty file.
    ASSERT_EQ(rmtest::CreateFile(path, Spec32()), RM_OK);
    uint32_t count = 99;
    ASSERT_EQ(h.Open(path), RM_OK);
    ASSERT_EQ(h.RecordCount(count), RM_OK);
    EXPECT_EQ(count, 0u);
    ASSERT_EQ(h.Close(), RM_OK);
    EXPECT_EQ(rmtest::CreateFile(path, {}, RM_CREATE_REMOVE), RM_OK);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(fs::exists(path + "-lock"));
    EXPECT_EQ(rmtest::CreateFile(path, {}, RM_CREATE_REMOVE), RM_FILE_NOT_FOUND);
    EXPECT_EQ(h.Open(path), RM_FILE_NOT_FOUND);
    EXPECT_EQ(rmtest::CreateFile(dir.File("no/such/dir.dat"), Spec32()), RM_CREATE_IO_ERROR);
    EXPECT_EQ(rmtest::CreateFile("", Spec32()), RM_INVALID_FILE_NAME);
    EXPECT_EQ(h.Open(""), RM_INVALID_FILE_NAME);
}

TEST_F(EngineTest, CreateRefusesBadSpecs) {
    auto bad = [&](const std::vector<uint8_t>& s) {
        return rmtest::CreateFile(dir.File("b.dat"), s);
    };
    EXPECT_EQ(bad(Spec(32, {{{1, 4, EXT, RM_TYPE_INTEGER}}}, 0, 100)), RM_PAGE_SIZE_ERROR);
    EXPECT_EQ(bad(Spec(0, {})), RM_INVALID_RECORD_LENGTH);
    EXPECT_EQ(bad(Spec(32, {{{30, 4, EXT, RM_TYPE_INTEGER}}})), RM_INVALID_KEY_POSITION);
    EXPECT_EQ(bad(Spec(32, {{{0, 4, EXT, RM_TYPE_INTEGER}}})), RM_INVALID_KEY_POSITION);
    EXPECT_EQ(bad(Spec(32, {{{1, 3, EXT, RM_TYPE_INTEGER}}})), RM_INVALID_KEY_LENGTH);
    EXPECT_EQ(bad(Spec(32, {{{1, 5, EXT, RM_TYPE_DATE}}})), RM_INVALID_KEY_LENGTH);
    EXPECT_EQ(bad(Spec(32, {{{1, 0, 0, 0}}})), RM_INVALID_KEY_LENGTH);
    EXPECT_EQ(bad(Spec(32, {{{1, 4, EXT, 9}}})), RM_INVALID_KEY_TYPE);
    EXPECT_EQ(bad(Spec(32, {{{1, 4, RM_KEY_ALT_COLLATION, 0}}})), RM_INVALID_ACS);
    EXPECT_EQ(bad(Spec(32, {{{1, 4, 0x0080, 0}}})), RM_INCONSISTENT_KEY_FLAGS);
    EXPECT_EQ(bad(Spec(32, {{{1, 2, DUP, 0}, {3, 2, 0, 0}}})), RM_INCONSISTENT_KEY_FLAGS);
    EXPECT_EQ(bad(Spec(32, {{{1, 4, EXT | DUP, RM_TYPE_AUTOINCREMENT}}})), RM_AUTOINC_DUPLICATES);
    EXPECT_EQ(bad(Spec(300, {{{1, 200, 0, 0}, {201, 60, 0, 0}}})), RM_INVALID_KEY_LENGTH);
    // Key numbers from the segments: below 119, one per key, no repeats.
    EXPECT_EQ(bad(Spec(32, {{{1, 4, 0, 0, 0, 2}}, {{5, 4, 0, 0, 0, 2}}}, RM_FILE_KEY_NUMBERS)),
              RM_INVALID_KEY_NUMBER);
    EXPECT_EQ(bad(Spec(32, {{{1, 4, 0, 0, 0, 119}}}, RM_FILE_KEY_NUMBERS)), RM_INVALID_KEY_NUMBER);
    EXPECT_EQ(bad(Spec(32, {{{1, 4, 0, 0, 0, 1}, {5, 4, 0, 0, 0, 2}}}, RM_FILE_KEY_NUMBERS)),
              RM_INVALID_KEY_NUMBER);
    std::vector<uint8_t> many = Spec(32, {});
    rmtest::Put16(&many[4], 120);
    EXPECT_EQ(bad(many), RM_NUMBER_OF_KEYS);
    // A spec shorter than its keys need.
    auto s = Spec(32, {{{1, 4, 0, 0}}, {{5, 4, 0, 0}}});
    s.resize(s.size() - 1);
    EXPECT_EQ(bad(s), RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_FALSE(fs::exists(dir.File("b.dat")));
    // A file without keys is fine.
    EXPECT_EQ(bad(Spec(32, {})), RM_OK);
}

TEST_F(EngineTest, OpenModes) {
    Handle a, b(1), c;
    ASSERT_EQ(a.Open(path, RM_OPEN_EXCLUSIVE), RM_OK);
    EXPECT_EQ(b.Open(path), RM_INCOMPATIBLE_MODE);
    EXPECT_EQ(c.Open(path, RM_OPEN_READ_ONLY), RM_INCOMPATIBLE_MODE);
    ASSERT_EQ(a.Close(), RM_OK);
    ASSERT_EQ(b.Open(path, RM_OPEN_ACCELERATED), RM_OK);
    EXPECT_EQ(a.Open(path, RM_OPEN_EXCLUSIVE), RM_INCOMPATIBLE_MODE);
    ASSERT_EQ(c.Open(path, RM_OPEN_READ_ONLY), RM_OK);
    auto r = Rec(1, "x");
    EXPECT_EQ(c.Insert(r), RM_ACCESS_DENIED);
    ASSERT_EQ(b.Insert(r), RM_OK);
    std::vector<uint8_t> got;
    ASSERT_EQ(c.Get(RM_GET_FIRST, 0, got), RM_OK);
    EXPECT_EQ(c.Update(got), RM_ACCESS_DENIED);
    EXPECT_EQ(c.Delete(), RM_ACCESS_DENIED);
    EXPECT_EQ(a.Open(path, 7), RM_INVALID_OPERATION);
}

TEST_F(EngineTest, OneEnvironmentUnderSeveralNames) {
    std::string alias = dir.File("alias.dat");
    fs::create_symlink(path, alias);
    Handle a, b;
    ASSERT_EQ(a.Open(path, RM_OPEN_EXCLUSIVE), RM_OK);
    EXPECT_EQ(b.Open(alias), RM_INCOMPATIBLE_MODE);
    ASSERT_EQ(a.Close(), RM_OK);
    ASSERT_EQ(a.Open(path), RM_OK);
    ASSERT_EQ(b.Open(alias), RM_OK);
    auto r = Rec(5, "five");
    ASSERT_EQ(a.Insert(r), RM_OK);
    std::vector<uint8_t> got;
    ASSERT_EQ(b.Get(RM_GET_FIRST, 0, got), RM_OK);
    EXPECT_EQ(got, r);
}

TEST_F(EngineTest, OwnerNames) {
    Handle h, other(3);
    ASSERT_EQ(h.Open(path), RM_OK);
    auto setOwner = [&](const char* data, const char* key, int8_t mode) {
        uint8_t k[255] = {};
        std::strncpy(reinterpret_cast<char*>(k), key, 254);
        uint32_t len = uint32_t(std::strlen(data) + 1);
        return h.Call(RM_SET_OWNER, const_cast<char*>(data), &len, k, mode);
    };
    EXPECT_EQ(setOwner("secret", "Secret", 0), RM_INVALID_OWNER);
    EXPECT_EQ(setOwner("", "", 0), RM_INVALID_OWNER);
    EXPECT_EQ(setOwner("0123456789012345678901234", "0123456789012345678901234", 0),
              RM_INVALID_OWNER);
    EXPECT_EQ(setOwner("secret", "secret", 4), RM_INVALID_OWNER);
    ASSERT_EQ(setOwner("secret", "secret", 0), RM_OK);
    EXPECT_EQ(setOwner("again", "again", 0), RM_OWNER_ALREADY_SET);
    // Access mode 0: no access at all without the name.
    EXPECT_EQ(other.Open(path), RM_ACCESS_DENIED);
    EXPECT_EQ(other.Open(path, RM_OPEN_NORMAL, "wrong"), RM_INVALID_OWNER);
    ASSERT_EQ(other.Open(path, RM_OPEN_NORMAL, "secret"), RM_OK);
    auto r = Rec(1, "a");
    EXPECT_EQ(other.Insert(r), RM_OK);
    ASSERT_EQ(other.Close(), RM_OK);
    ASSERT_EQ(h.Close(), RM_OK);
    // The name is kept with the file.
    EXPECT_EQ(h.Open(path), RM_ACCESS_DENIED);
    ASSERT_EQ(h.Open(path, RM_OPEN_NORMAL, "secret"), RM_OK);
    uint32_t len = 0;
    EXPECT_EQ(h.Call(RM_CLEAR_OWNER, nullptr, &len, h.key(), 0), RM_OK);
    ASSERT_EQ(setOwner("reader", "reader", 1), RM_OK);
    // Access mode 1: reading without the name, writing only with it.
    ASSERT_EQ(other.Open(path), RM_OK);
    std::vector<uint8_t> got;
    EXPECT_EQ(other.Get(RM_GET_FIRST, 0, got), RM_OK);
    auto r2 = Rec(2, "b");
    EXPECT_EQ(other.Insert(r2), RM_ACCESS_DENIED);
    EXPECT_EQ(other.Call(RM_CLEAR_OWNER, nullptr, &len, other.key(), 0), RM_INVALID_OWNER);
}

TEST_F(EngineTest, RecordLengths) {
    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    auto shortRec = Rec(1, "short", 31);
    EXPECT_EQ(h.Insert(shortRec), RM_DATA_BUFFER_TOO_SHORT);
    // A fixed-length file keeps only its record length.
    auto longRec = Rec(2, "long", 50);
    longRec[40] = 7;
    ASSERT_EQ(h.Insert(longRec), RM_OK);
    std::vector<uint8_t> got;
    rmtest::Put32(h.key(), 2);
    ASSERT_EQ(h.Get(RM_GET_EQUAL, 0, got), RM_OK);
    EXPECT_EQ(got.size(), 32u);

    std::string var = dir.File("var.dat");
    ASSERT_EQ(rmtest::CreateFile(var, Spec32(RM_FILE_VAR_LENGTH)), RM_OK);
    Handle v;
    ASSERT_EQ(v.Open(var), RM_OK);
    auto big = Rec(3, "big", 20000);
    for (size_t i = 32; i < big.size(); ++i)
        big[i] = uint8_t(i);
    ASSERT_EQ(v.Insert(big), RM_OK);
    auto huge = Rec(4, "huge", RM_MAX_RECORD_LENGTH + 1);
    EXPECT_EQ(v.Insert(huge), RM_INVALID_RECORD_LENGTH);
    auto most = Rec(4, "most", RM_MAX_RECORD_LENGTH);
    EXPECT_EQ(v.Insert(most), RM_OK);
    // A short buffer gets the first bytes, 22, and the currency.
    rmtest::Put32(v.key(), 3);
    ASSERT_EQ(v.Get(RM_GET_EQUAL, 0, got, nullptr, 4096), RM_DATA_BUFFER_TOO_SHORT);
    ASSERT_EQ(got.size(), 4096u);
    EXPECT_TRUE(std::equal(got.begin(), got.end(), big.begin()));
    uint32_t address;
    ASSERT_EQ(v.Position(address), RM_OK);
    ASSERT_EQ(v.Direct(address, 0, got), RM_OK);
    EXPECT_EQ(got, big);
}

TEST_F(EngineTest, AutoIncrement) {
    std::string p = dir.File("auto.dat");
    ASSERT_EQ(rmtest::CreateFile(p, Spec(16, {{{5, 4, EXT | MOD, RM_TYPE_AUTOINCREMENT}},
                                              {{9, 2, EXT, RM_TYPE_AUTOINCREMENT}}})),
              RM_OK);
    Handle h;
    ASSERT_EQ(h.Open(p), RM_OK);
    std::vector<uint8_t> r(16, 0);
    ASSERT_EQ(h.Insert(r), RM_OK);
    EXPECT_EQ(rmtest::Get32(&r[4]), 1u);  // the caller's buffer gets the values
    EXPECT_EQ(rmtest::Get16(&r[8]), 1u);
    std::fill(r.begin(), r.end(), 0);
    rmtest::Put32(&r[4], 40);
    ASSERT_EQ(h.Insert(r), RM_OK);
    EXPECT_EQ(rmtest::Get16(&r[8]), 2u);
    std::fill(r.begin(), r.end(), 0);
    ASSERT_EQ(h.Insert(r), RM_OK);
    EXPECT_EQ(rmtest::Get32(&r[4]), 41u);
    EXPECT_EQ(h.key()[0], 41);  // the key buffer holds the new key
    rmtest::Put32(&r[4], 40);
    rmtest::Put16(&r[8], 9);
    EXPECT_EQ(h.Insert(r), RM_DUPLICATE_KEY);
}

TEST_F(EngineTest, StatAndVersion) {
    std::string p = dir.File("stat.dat");
    auto spec = Spec(40,
                     {{{1, 4, EXT, RM_TYPE_INTEGER, 0, 4}},
                      {{5, 10, EXT | DUP | MOD | RM_KEY_CASE_INSENSITIVE, RM_TYPE_STRING, 0, 1},
                       {15, 2, EXT | DUP | MOD | RM_KEY_DESCENDING, RM_TYPE_INTEGER, 0, 1}}},
                     RM_FILE_VAR_LENGTH | RM_FILE_KEY_NUMBERS, 2048);
    ASSERT_EQ(rmtest::CreateFile(p, spec), RM_OK);
    Handle h;
    ASSERT_EQ(h.Open(p), RM_OK);
    for (int i = 0; i < 5; ++i) {
        std::vector<uint8_t> r(40 + i, 0);
        rmtest::Put32(r.data(), uint32_t(i));
        r[4] = uint8_t(i % 2 ? 'a' : 'A');  // folded to one value
        r[14] = uint8_t(i / 2);
        ASSERT_EQ(h.Insert(r, 4), RM_OK);
    }
    std::vector<uint8_t> st(16 + 48, 0xAA);
    uint8_t key[255];
    std::memset(key, 0x55, sizeof(key));
    uint32_t len = 16 + 47;
    EXPECT_EQ(h.Call(RM_STAT, st.data(), &len, key, -1), RM_DATA_BUFFER_TOO_SHORT);
    len = uint32_t(st.size());
    ASSERT_EQ(h.Call(RM_STAT, st.data(), &len, key, -1), RM_OK);
    EXPECT_EQ(len, 64u);
    EXPECT_EQ(rmtest::Get16(&st[0]), 40);
    EXPECT_EQ(rmtest::Get16(&st[2]), 2048);
    EXPECT_EQ(st[4], 2);  // keys
    EXPECT_EQ(st[5], 2);  // format version: records carry checksums
    EXPECT_EQ(rmtest::Get32(&st[6]), 5u);
    EXPECT_EQ(rmtest::Get16(&st[10]), RM_FILE_VAR_LENGTH | RM_FILE_KEY_NUMBERS);
    // Segments come in key-number order: key 1's two segments, then key 4.
    EXPECT_EQ(st[16 + 14], 1);
    EXPECT_EQ(rmtest::Get16(&st[16 + 4]) & RM_KEY_SEGMENTED, RM_KEY_SEGMENTED);
    EXPECT_EQ(rmtest::Get32(&st[16 + 6]), 3u);  // (A,0) (a,0) (A,1) (a,1) (A,2)
    EXPECT_EQ(st[32 + 14], 1);
    EXPECT_EQ(rmtest::Get16(&st[32 + 4]) & RM_KEY_SEGMENTED, 0);
    EXPECT_EQ(st[48 + 14], 4);
    EXPECT_EQ(st[48 + 10], RM_TYPE_INTEGER);
    EXPECT_EQ(rmtest::Get32(&st[48 + 6]), 5u);
    EXPECT_TRUE(std::all_of(key, key + 255, [](uint8_t b) { return b == 0; }));

    uint8_t v[15];
    len = 14;
    EXPECT_EQ(BTRCALLID(RM_VERSION, nullptr, v, &len, nullptr, 255, 0, nullptr),
              RM_DATA_BUFFER_TOO_SHORT);
    len = 15;
    ASSERT_EQ(BTRCALLID(RM_VERSION, nullptr, v, &len, nullptr, 255, 0, nullptr), RM_OK);
    EXPECT_EQ(rmtest::Get16(v), 8);
    EXPECT_EQ(v[4], 'N');
    EXPECT_EQ(rmtest::Get16(v + 5), 8);
    EXPECT_EQ(v[9], 'U');
    EXPECT_EQ(rmtest::Get16(v + 10), 0);
    EXPECT_EQ(v[14], 0);
}

TEST_F(EngineTest, ClientsAndHandles) {
    Handle a(1), b(2);
    ASSERT_EQ(a.Open(path), RM_OK);
    ASSERT_EQ(b.Open(path), RM_OK);
    std::vector<uint8_t> got(32);
    uint32_t len = 32;
    auto c2 = rmtest::ClientId(2);
    // A client cannot use another client's position block.
    EXPECT_EQ(BTRCALLID(RM_STEP_FIRST, a.pos(), got.data(), &len, a.key(), 255, 0, c2.data()),
              RM_FILE_NOT_OPEN);
    EXPECT_EQ(BTRCALLID(RM_STEP_FIRST, nullptr, got.data(), &len, a.key(), 255, 0, c2.data()),
              RM_POSITION_BLOCK_MISSING);
    // Reset closes the calling client's handles only.
    uint8_t saved[RM_POSITION_BLOCK_SIZE];
    std::memcpy(saved, a.pos(), sizeof(saved));
    len = 0;
    ASSERT_EQ(BTRCALLID(RM_RESET, nullptr, nullptr, &len, nullptr, 255, 0, a.client()), RM_OK);
    EXPECT_EQ(a.Get(RM_STEP_FIRST, 0, got), RM_FILE_NOT_OPEN);
    EXPECT_EQ(b.Get(RM_STEP_FIRST, 0, got), RM_END_OF_FILE);
    // A new handle may take the old number, never the old block.
    Handle c(1);
    ASSERT_EQ(c.Open(path), RM_OK);
    len = 32;
    EXPECT_EQ(BTRCALLID(RM_STEP_FIRST, saved, got.data(), &len, a.key(), 255, 0, a.client()),
              RM_FILE_NOT_OPEN);
    EXPECT_EQ(BTRCALLID(44, c.pos(), got.data(), &len, a.key(), 255, 0, a.client()),
              RM_INVALID_OPERATION);
    EXPECT_EQ(BTRCALLID(RM_INSERT + RM_LOCK_MULTI_NOWAIT, c.pos(), got.data(), &len, a.key(), 255,
                        0, a.client()),
              RM_INVALID_OPERATION);
    EXPECT_EQ(BTRCALLID(RM_GET_EQUAL + RM_KEY_ONLY + RM_LOCK_SINGLE_WAIT, c.pos(), got.data(), &len,
                        a.key(), 255, 0, a.client()),
              RM_INVALID_OPERATION);
}

// Pages that writes free are used again: neither a reader in the same
// process nor an idle one in another process keeps the file growing.
TEST_F(EngineTest, FreedPagesAreReused) {
    Handle reader, writer;
    ASSERT_EQ(reader.Open(path), RM_OK);
    ASSERT_EQ(writer.Open(path), RM_OK);
    std::vector<uint8_t> got;
    for (int i = 0; i < 3000; ++i) {
        auto r = Rec(i % 50, "churn");
        if (i >= 50) {
            rmtest::Put32(writer.key(), uint32_t(i % 50));
            ASSERT_EQ(writer.Get(RM_GET_EQUAL, 0, got), RM_OK);
            ASSERT_EQ(writer.Delete(), RM_OK);
        }
        ASSERT_EQ(writer.Insert(r), RM_OK);
        ASSERT_EQ(reader.Get(RM_GET_FIRST, 1, got), RM_OK);
    }
    EXPECT_LT(fs::file_size(path), 512u * 1024);

    // The parent reads once and then sits idle while a child writes. Two
    // sweeps of idle snapshots (the engine's own thread runs them every
    // little while) give up the parent's.
    ASSERT_EQ(reader.Get(RM_GET_LAST, 0, got), RM_OK);
    recman::Engine::Instance().ReleaseIdleSnapshots();
    recman::Engine::Instance().ReleaseIdleSnapshots();
    pid_t pid = fork();
    if (pid == 0) {
        Handle h;
        if (h.Open(path) != RM_OK) _exit(1);
        std::vector<uint8_t> rec;
        for (int i = 0; i < 3000; ++i) {
            auto r = Rec(1000 + i % 50, "child");
            if (i >= 50) {
                rmtest::Put32(h.key(), uint32_t(1000 + i % 50));
                if (h.Get(RM_GET_EQUAL, 0, rec) != RM_OK || h.Delete() != RM_OK) _exit(2);
            }
            if (h.Insert(r) != RM_OK) _exit(3);
        }
        _exit(0);
    }
    int status;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_LT(fs::file_size(path), 1024u * 1024);
}

TEST_F(EngineTest, ThreadsOfOneProcess) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            Handle h{uint16_t(t)};
            ASSERT_EQ(h.Open(path), RM_OK);
            for (int i = 0; i < 200; ++i) {
                auto r = Rec(t * 1000 + i, "thread");
                ASSERT_EQ(h.Insert(r), RM_OK);
                std::vector<uint8_t> got;
                rmtest::Put32(h.key(), uint32_t(t * 1000 + i));
                ASSERT_EQ(h.Get(RM_GET_EQUAL, 0, got), RM_OK);
            }
        });
    for (auto& t : threads)
        t.join();
    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    uint32_t count;
    ASSERT_EQ(h.RecordCount(count), RM_OK);
    EXPECT_EQ(count, 800u);
}

TEST_F(EngineTest, DurabilityModesKeepCommittedWork) {
    for (const char* mode : {"normal", "full", "off"}) {
        setenv("RECMAN_SYNC", mode, 1);
        std::string p = dir.File(std::string(mode) + ".dat");
        ASSERT_EQ(rmtest::CreateFile(p, Spec32()), RM_OK);
        {
            Handle h;
            ASSERT_EQ(h.Open(p), RM_OK);
            auto r = Rec(1, mode);
            ASSERT_EQ(h.Insert(r), RM_OK);
        }
        Handle h;
        ASSERT_EQ(h.Open(p), RM_OK);
        std::vector<uint8_t> got;
        ASSERT_EQ(h.Get(RM_GET_FIRST, 1, got), RM_OK);
        EXPECT_STREQ(reinterpret_cast<char*>(&got[4]), mode);
    }
    setenv("RECMAN_SYNC", "off", 1);
    uint32_t len = 0;
    EXPECT_EQ(BTRCALLID(RM_STOP, nullptr, nullptr, &len, nullptr, 255, 0, nullptr), RM_OK);
}

}  // namespace
