// Record checksums: a record whose bytes changed on disk answers 2 on every
// read and is named by the check, the file is then left as it is while the
// process goes on serving its other files; files of the format before
// checksums still open and are brought to the current one by pack and
// reindex (a new file, the records copied over).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "recman/check.h"
#include "recman/crc32c.h"
#include "recman/engine.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
namespace fs = std::filesystem;

constexpr uint16_t kLength = 60;

std::vector<uint8_t> Record(uint32_t id) {
    return rmtest::Numbered(id, kLength);
}

void Fill(const std::string& path, uint32_t count) {
    ASSERT_EQ(rmtest::CreateFile(path, rmtest::NumberedSpec(kLength)), RM_OK);
    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    for (uint32_t i = 0; i < count; ++i) {
        auto r = Record(i);
        ASSERT_EQ(h.Insert(r), RM_OK);
    }
}

TEST(Checksum, KnownValuesAndBothWaysAgree) {
    const char* text = "123456789";
    EXPECT_EQ(recman::Crc32c(text, 9), 0xE3069283u);
    EXPECT_EQ(recman::Crc32cPortable(text, 9), 0xE3069283u);
    EXPECT_EQ(recman::Crc32c(text, 0), 0u);
    std::mt19937 rng(5);
    std::vector<uint8_t> buf(400);
    for (auto& b : buf)
        b = uint8_t(rng());
    for (size_t at = 0; at < 9; ++at)
        for (size_t n = 0; n + at <= 300; n += 7) {
            uint32_t whole = recman::Crc32c(buf.data() + at, n);
            ASSERT_EQ(whole, recman::Crc32cPortable(buf.data() + at, n)) << at << " " << n;
            // Continued in two parts, the same.
            uint32_t split = recman::Crc32c(buf.data() + at + n / 3, n - n / 3,
                                            recman::Crc32c(buf.data() + at, n / 3));
            ASSERT_EQ(whole, split);
            ASSERT_EQ(whole,
                      recman::Crc32c(buf.data() + at, n / 3, buf.data() + at + n / 3, n - n / 3));
        }
}

// A record's bytes are kept twice: under its address, and beside its entry of
// the first key (older copies may linger in free pages). Whichever live copy
// changes, no read returns it as data, the check names it, nothing more is
// written into the file, and the process's other files go on working.
TEST(Checksum, ChangedRecordBytesAnswerTwoAndAreNamed) {
    rmtest::TempDir dir;
    std::string path = dir.File("a.dat"), other = dir.File("b.dat");
    Fill(path, 300);
    Fill(other, 10);
    const uint32_t victim = 123;
    const std::string whole = rmtest::ReadAll(path);
    auto want = Record(victim);
    std::string tail(reinterpret_cast<const char*>(want.data()) + 20, kLength - 20);
    std::vector<std::string> lines;
    for (size_t at = whole.find(tail); at != std::string::npos; at = whole.find(tail, at + 1)) {
        SCOPED_TRACE(at);
        std::string bytes = whole;
        bytes[at + 10] ^= 0x01;
        rmtest::WriteAll(path, bytes);
        std::vector<std::string> problems;
        ASSERT_EQ(recman::CheckFile(path, problems), RM_OK);
        if (problems.empty()) continue;  // a stale copy in a free page
        lines.push_back(problems[0]);

        Handle h;
        ASSERT_EQ(h.Open(path), RM_OK);
        // A transaction that changed the file before the damage was found
        // does not end in it.
        uint32_t none = 0;
        ASSERT_EQ(h.Call(RM_BEGIN_TRANSACTION, nullptr, &none, nullptr, 0), RM_OK);
        auto early = Record(2000 + uint32_t(lines.size()));
        ASSERT_EQ(h.Insert(early), RM_OK);
        int damaged = 0;
        auto read = [&](int16_t st, const std::vector<uint8_t>& r) {
            if (st == RM_IO_ERROR) damaged++;
            if (st == RM_OK) {
                EXPECT_EQ(r, Record(rmtest::Get32(r.data())));
            }
        };
        std::vector<uint8_t> r;
        rmtest::Put32(h.key(), victim);
        read(h.Get(RM_GET_EQUAL, 0, r), r);
        read(h.Direct(victim + 1, 0, r), r);
        for (int16_t st = h.Get(RM_GET_FIRST, 1, r); st != RM_END_OF_FILE;
             st = h.Get(RM_GET_NEXT, 1, r)) {
            read(st, r);
            if (st != RM_OK) break;
        }
        EXPECT_GE(damaged, 1);
        // Damage seen, nothing more is written into the file: not the
        // transaction's insert, not another.
        std::string seen = rmtest::ReadAll(path);
        EXPECT_EQ(h.Call(RM_END_TRANSACTION, nullptr, &none, nullptr, 0), RM_IO_ERROR);
        auto fresh = Record(1000 + uint32_t(lines.size()));
        EXPECT_EQ(h.Insert(fresh), RM_IO_ERROR);
        h.Close();
        EXPECT_TRUE(rmtest::ReadAll(path) == seen);
        // Other records still read, and other files still work.
        ASSERT_EQ(h.Open(path), RM_OK);
        rmtest::Put32(h.key(), victim + 1);
        EXPECT_EQ(h.Get(RM_GET_EQUAL, 0, r), RM_OK);
        EXPECT_EQ(r, Record(victim + 1));
        Handle o;
        ASSERT_EQ(o.Open(other), RM_OK);
        EXPECT_EQ(o.Insert(fresh), RM_OK);
        EXPECT_EQ(rmtest::Problem(other), "");
        h.Close();
    }
    // The copy under its address and the one beside the first key's entry.
    ASSERT_EQ(lines.size(), 2u);
    std::sort(lines.begin(), lines.end());
    EXPECT_NE(lines[0].find("copy of record 124 is damaged: its checksum"), std::string::npos)
        << lines[0];
    EXPECT_EQ(lines[1], "record 124 is damaged: its checksum does not match");
    rmtest::WriteAll(path, whole);
}

// Files of the format before checksums open and read as they always did;
// pack and reindex (a fresh file, every record inserted again) brings them
// to the current format.
TEST(Checksum, OldFormatOpensAndPackBringsItUpToDate) {
    rmtest::TempDir dir;
    std::string old = dir.File("old.dat"), packed = dir.File("packed.dat");
    recman::Engine::Instance().SetCreateVersionForComparison(1);
    Fill(old, 200);
    recman::Engine::Instance().SetCreateVersionForComparison(recman::kFormatVersion);
    EXPECT_EQ(rmtest::Problem(old), "");

    Handle h;
    ASSERT_EQ(h.Open(old), RM_OK);
    std::vector<uint8_t> stat;
    ASSERT_EQ(h.Stat(stat), RM_OK);
    EXPECT_EQ(stat[5], 1);
    std::vector<uint8_t> r;
    rmtest::Put32(h.key(), 77);
    ASSERT_EQ(h.Get(RM_GET_EQUAL, 0, r), RM_OK);
    EXPECT_EQ(r, Record(77));
    // Changes keep the file in its own format.
    r[30] ^= 1;
    ASSERT_EQ(h.Update(r), RM_OK);
    EXPECT_EQ(rmtest::Problem(old), "");

    ASSERT_EQ(rmtest::CreateFile(packed, rmtest::NumberedSpec(kLength)), RM_OK);
    Handle n;
    ASSERT_EQ(n.Open(packed), RM_OK);
    size_t copied = 0;
    for (int16_t st = h.Get(RM_STEP_FIRST, 0, r); st == RM_OK; st = h.Get(RM_STEP_NEXT, 0, r)) {
        ASSERT_EQ(n.Insert(r), RM_OK);
        ++copied;
    }
    EXPECT_EQ(copied, 200u);
    ASSERT_EQ(n.Stat(stat), RM_OK);
    EXPECT_EQ(stat[5], recman::kFormatVersion);
    EXPECT_EQ(rmtest::Problem(packed), "");
    rmtest::Put32(n.key(), 77);
    ASSERT_EQ(n.Get(RM_GET_EQUAL, 0, r), RM_OK);
    EXPECT_EQ(r[30], uint8_t(Record(77)[30] ^ 1));
}

}  // namespace
