// What the model tests do not reach: create and remove, create and index
// specs refused, open modes and names, owner names, clients and handles,
// Version and Stop, reuse of freed pages, threads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "recman/engine.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
using rmtest::Spec;
namespace fs = std::filesystem;

constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE, DUP = RM_KEY_DUPLICATES, MOD = RM_KEY_MODIFIABLE;

// 32-byte records: an id (key 0) and a name (key 1, duplicates).
std::vector<uint8_t> Rec(int32_t id) {
    return rmtest::Numbered(uint32_t(id), 32);
}
const std::vector<uint8_t> kSpec32 = rmtest::NumberedSpec(32);

class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(rmtest::CreateFile(path, kSpec32), RM_OK); }
    rmtest::TempDir dir;
    std::string path = dir.File("people.dat");
};

TEST_F(EngineTest, CreateFormsAndRemove) {
    EXPECT_EQ(rmtest::CreateFile(path, kSpec32, RM_CREATE_NO_REPLACE), RM_FILE_EXISTS);
    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    auto r = Rec(1);
    ASSERT_EQ(h.Insert(r), RM_OK);
    // A file open anywhere is neither replaced nor removed.
    EXPECT_EQ(rmtest::CreateFile(path, kSpec32), RM_INCOMPATIBLE_MODE);
    EXPECT_EQ(rmtest::CreateFile(path, {}, RM_CREATE_REMOVE), RM_INCOMPATIBLE_MODE);
    ASSERT_EQ(h.Close(), RM_OK);
    // Replacing leaves an empty file.
    ASSERT_EQ(rmtest::CreateFile(path, kSpec32), RM_OK);
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
    // On a server a path is a name: no folder has to exist.
    EXPECT_EQ(rmtest::CreateFile(dir.File("no/such/dir.dat"), kSpec32),
              rmtest::OnServer() ? RM_OK : RM_CREATE_IO_ERROR);
    EXPECT_EQ(rmtest::CreateFile("", kSpec32), RM_INVALID_FILE_NAME);
    EXPECT_EQ(h.Open(""), RM_INVALID_FILE_NAME);
}

// Keys that Create refuses, Create Index refuses the same way and leaves the
// file as it was; the rest concerns a whole file.
TEST_F(EngineTest, BadSpecsAreRefused) {
    const struct {
        rmtest::Key key;
        int16_t status;
    } keys[] = {
        {{{30, 4, EXT, RM_TYPE_INTEGER}}, RM_INVALID_KEY_POSITION},  // past the record's end
        {{{0, 4, EXT, RM_TYPE_INTEGER}}, RM_INVALID_KEY_POSITION},
        {{{1, 3, EXT, RM_TYPE_INTEGER}}, RM_INVALID_KEY_LENGTH},
        {{{1, 5, EXT, RM_TYPE_DATE}}, RM_INVALID_KEY_LENGTH},
        {{{1, 3, EXT, RM_TYPE_AUTOINCREMENT}}, RM_INVALID_KEY_LENGTH},
        {{{1, 0, 0, 0}}, RM_INVALID_KEY_LENGTH},
        {{{1, 4, EXT, 9}}, RM_INVALID_KEY_TYPE},
        {{{1, 4, EXT, 12}}, RM_INVALID_KEY_TYPE},
        {{{1, 4, RM_KEY_ALT_COLLATION, 0}}, RM_INVALID_ACS},
        {{{1, 4, 0x0080, 0}}, RM_INCONSISTENT_KEY_FLAGS},
        {{{1, 2, DUP, 0}, {3, 2, 0, 0}}, RM_INCONSISTENT_KEY_FLAGS},
        {{{1, 2, MOD, 0}, {3, 2, 0, 0}}, RM_INCONSISTENT_KEY_FLAGS},
        {{{1, 4, EXT | DUP, RM_TYPE_AUTOINCREMENT}}, RM_AUTOINC_DUPLICATES},
    };
    std::string bad = dir.File("bad.dat");
    Handle h, ro;
    ASSERT_EQ(h.Open(path), RM_OK);
    for (const auto& k : keys) {
        EXPECT_EQ(rmtest::CreateFile(bad, Spec(32, {k.key})), k.status) << k.status;
        auto spec = Spec(32, {k.key});
        uint32_t len = uint32_t(spec.size() - 16);
        EXPECT_EQ(h.Call(RM_CREATE_INDEX, spec.data() + 16, &len, h.key(), 0), k.status);
    }
    std::vector<uint8_t> stat;
    ASSERT_EQ(h.Stat(stat), RM_OK);
    EXPECT_EQ(stat[4], 2);
    uint32_t len = 0;
    EXPECT_EQ(h.Call(RM_CREATE_INDEX, nullptr, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    ASSERT_EQ(ro.Open(path, RM_OPEN_READ_ONLY), RM_OK);
    auto good = Spec(32, {{{5, 8, EXT, RM_TYPE_ZSTRING}}});
    len = 16;
    EXPECT_EQ(ro.Call(RM_CREATE_INDEX, good.data() + 16, &len, ro.key(), 0), RM_ACCESS_DENIED);
    EXPECT_EQ(ro.Call(RM_DROP_INDEX, nullptr, &len, ro.key(), 1), RM_ACCESS_DENIED);

    const struct {
        std::vector<uint8_t> spec;
        int16_t status;
    } files[] = {
        {Spec(32, {{{1, 4, EXT, RM_TYPE_INTEGER}}}, 0, 100), RM_PAGE_SIZE_ERROR},
        {Spec(0, {}), RM_INVALID_RECORD_LENGTH},
        {Spec(300, {{{1, 200, 0, 0}, {201, 60, 0, 0}}}), RM_INVALID_KEY_LENGTH},  // over 255
        // Key numbers from the segments: below 119, one per key, no repeats.
        {Spec(32, {{{1, 4, 0, 0, 0, 2}}, {{5, 4, 0, 0, 0, 2}}}, RM_FILE_KEY_NUMBERS),
         RM_INVALID_KEY_NUMBER},
        {Spec(32, {{{1, 4, 0, 0, 0, 119}}}, RM_FILE_KEY_NUMBERS), RM_INVALID_KEY_NUMBER},
        {Spec(32, {{{1, 4, 0, 0, 0, 1}, {5, 4, 0, 0, 0, 2}}}, RM_FILE_KEY_NUMBERS),
         RM_INVALID_KEY_NUMBER},
    };
    for (const auto& f : files)
        EXPECT_EQ(rmtest::CreateFile(bad, f.spec), f.status) << f.status;
    std::vector<uint8_t> many = Spec(32, {});
    rmtest::Put16(&many[4], 120);
    EXPECT_EQ(rmtest::CreateFile(bad, many), RM_NUMBER_OF_KEYS);
    // Every cut of a valid spec short of its end.
    auto whole = Spec(30, {{{1, 4, EXT, RM_TYPE_INTEGER}}, {{5, 2, 0, 0}, {7, 3, 0, 0}}});
    for (size_t n = 0; n < whole.size(); ++n)
        EXPECT_EQ(rmtest::CreateFile(bad, std::vector<uint8_t>(whole.begin(), whole.begin() + n)),
                  RM_DATA_BUFFER_TOO_SHORT)
            << n;
    uint8_t key[255] = {};
    std::strcpy(reinterpret_cast<char*>(key), bad.c_str());
    len = 64;
    EXPECT_EQ(BTRCALLID(RM_CREATE, nullptr, nullptr, &len, key, 255, 0, nullptr),
              RM_DATA_BUFFER_TOO_SHORT);
    EXPECT_EQ(BTRCALLID(RM_CREATE, nullptr, whole.data(), &len, nullptr, 255, 0, nullptr),
              RM_KEY_BUFFER_TOO_SHORT);
    EXPECT_FALSE(fs::exists(bad));
    EXPECT_EQ(rmtest::CreateFile(bad, Spec(32, {})), RM_OK);  // a file without keys is fine
}

TEST_F(EngineTest, OpenModesAndNames) {
    std::string alias = dir.File("alias.dat");
    fs::create_symlink(path, alias);
    Handle a, b(1), c;
    ASSERT_EQ(a.Open(path, RM_OPEN_EXCLUSIVE), RM_OK);
    EXPECT_EQ(b.Open(path), RM_INCOMPATIBLE_MODE);
    // One file under several names; on a server, a link is no name of it.
    EXPECT_EQ(b.Open(alias), rmtest::OnServer() ? RM_FILE_NOT_FOUND : RM_INCOMPATIBLE_MODE);
    EXPECT_EQ(c.Open(path, RM_OPEN_READ_ONLY), RM_INCOMPATIBLE_MODE);
    ASSERT_EQ(a.Close(), RM_OK);
    ASSERT_EQ(b.Open(path, RM_OPEN_ACCELERATED), RM_OK);
    EXPECT_EQ(a.Open(path, RM_OPEN_EXCLUSIVE), RM_INCOMPATIBLE_MODE);
    ASSERT_EQ(c.Open(rmtest::OnServer() ? path : alias, RM_OPEN_READ_ONLY), RM_OK);
    auto r = Rec(1);
    EXPECT_EQ(c.Insert(r), RM_ACCESS_DENIED);
    ASSERT_EQ(b.Insert(r), RM_OK);
    std::vector<uint8_t> got;
    ASSERT_EQ(c.Get(RM_GET_FIRST, 0, got), RM_OK);
    EXPECT_EQ(got, r);
    EXPECT_EQ(c.Update(got), RM_ACCESS_DENIED);
    EXPECT_EQ(c.Delete(), RM_ACCESS_DENIED);
    EXPECT_EQ(a.Open(path, 7), RM_INVALID_OPERATION);
}

TEST_F(EngineTest, OwnerNames) {
    Handle h(1), other(3);
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
    // Definitions change outside transactions.
    ASSERT_EQ(rmtest::Txn(RM_BEGIN_TRANSACTION, 1), RM_OK);
    EXPECT_EQ(setOwner("secret", "secret", 0), RM_TRANSACTION_ACTIVE);
    ASSERT_EQ(rmtest::Txn(RM_END_TRANSACTION, 1), RM_OK);
    ASSERT_EQ(setOwner("secret", "secret", 0), RM_OK);
    EXPECT_EQ(setOwner("again", "again", 0), RM_OWNER_ALREADY_SET);
    // Access mode 0: no access at all without the name.
    EXPECT_EQ(other.Open(path), RM_ACCESS_DENIED);
    EXPECT_EQ(other.Open(path, RM_OPEN_NORMAL, "wrong"), RM_INVALID_OWNER);
    ASSERT_EQ(other.Open(path, RM_OPEN_NORMAL, "secret"), RM_OK);
    auto r = Rec(1);
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
    auto r2 = Rec(2);
    EXPECT_EQ(other.Insert(r2), RM_ACCESS_DENIED);
    EXPECT_EQ(other.Call(RM_CLEAR_OWNER, nullptr, &len, other.key(), 0), RM_INVALID_OWNER);
}

TEST_F(EngineTest, ClientsHandlesVersionAndStop) {
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
    ASSERT_EQ(rmtest::Txn(RM_RESET, a.client()), RM_OK);
    EXPECT_EQ(a.Get(RM_STEP_FIRST, 0, got), RM_FILE_NOT_OPEN);
    EXPECT_EQ(b.Get(RM_STEP_FIRST, 0, got), RM_END_OF_FILE);
    // A new handle may take the old number, never the old block.
    Handle c(1);
    ASSERT_EQ(c.Open(path), RM_OK);
    len = 32;
    EXPECT_EQ(BTRCALLID(RM_STEP_FIRST, saved, got.data(), &len, a.key(), 255, 0, a.client()),
              RM_FILE_NOT_OPEN);
    for (uint16_t op :
         {44, RM_INSERT + RM_LOCK_MULTI_NOWAIT, RM_GET_EQUAL + RM_KEY_ONLY + RM_LOCK_SINGLE_WAIT})
        EXPECT_EQ(BTRCALLID(op, c.pos(), got.data(), &len, a.key(), 255, 0, a.client()),
                  RM_INVALID_OPERATION)
            << op;

    uint8_t v[15];
    len = 14;
    EXPECT_EQ(BTRCALLID(RM_VERSION, nullptr, v, &len, nullptr, 255, 0, nullptr),
              RM_DATA_BUFFER_TOO_SHORT);
    len = 15;
    ASSERT_EQ(BTRCALLID(RM_VERSION, nullptr, v, &len, nullptr, 255, 0, nullptr), RM_OK);
    // The remote engine's entry tells a server's files.
    uint8_t remote = rmtest::OnServer() ? 8 : 0, platform = rmtest::OnServer() ? 'S' : 0;
    EXPECT_EQ(std::vector<uint8_t>(v, v + 15),
              (std::vector<uint8_t>{8, 0, 0, 0, 'N', 8, 0, 0, 0, 'U', remote, 0, 0, 0, platform}));
    // Stop closes every handle of every client.
    len = 0;
    EXPECT_EQ(BTRCALLID(RM_STOP, nullptr, nullptr, &len, nullptr, 255, 0, nullptr), RM_OK);
    EXPECT_EQ(b.Get(RM_STEP_FIRST, 0, got), RM_FILE_NOT_OPEN);
    EXPECT_EQ(c.Get(RM_STEP_FIRST, 0, got), RM_FILE_NOT_OPEN);
}

// Pages that writes free are used again: neither a reader in the same
// process nor an idle one in another process keeps the file growing.
TEST_F(EngineTest, FreedPagesAreReused) {
    Handle reader, writer;
    ASSERT_EQ(reader.Open(path), RM_OK);
    ASSERT_EQ(writer.Open(path), RM_OK);
    // 3000 inserts over 50 ids, each deleting the id's record before.
    auto churn = [&](Handle& h, int base, Handle* read) {
        std::vector<uint8_t> rec;
        for (int i = 0; i < 3000; ++i) {
            auto r = Rec(base + i % 50);
            if (i >= 50) {
                rmtest::Put32(h.key(), uint32_t(base + i % 50));
                if (h.Get(RM_GET_EQUAL, 0, rec) || h.Delete()) return 1;
            }
            if (h.Insert(r) || (read && read->Get(RM_GET_FIRST, 1, rec))) return 2;
        }
        return 0;
    };
    ASSERT_EQ(churn(writer, 0, &reader), 0);
    EXPECT_LT(fs::file_size(path), 512u * 1024);

    // The parent reads once and then sits idle while a child writes. Two
    // sweeps of idle snapshots (the engine's own thread runs them every
    // little while) give up the parent's.
    std::vector<uint8_t> got;
    ASSERT_EQ(reader.Get(RM_GET_LAST, 0, got), RM_OK);
    recman::Engine::Instance().ReleaseIdleSnapshots();
    recman::Engine::Instance().ReleaseIdleSnapshots();
    EXPECT_EQ(rmtest::ExitCode(rmtest::Child([&] {
                  Handle h;
                  return h.Open(path) ? 9 : churn(h, 1000, nullptr);
              })),
              0);
    EXPECT_LT(fs::file_size(path), 1024u * 1024);
}

TEST_F(EngineTest, ThreadsOfOneProcess) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            Handle h{uint16_t(t)};
            ASSERT_EQ(h.Open(path), RM_OK);
            for (int i = 0; i < 200; ++i) {
                auto r = Rec(t * 1000 + i);
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

}  // namespace
