// Damaged record files: every page of a filled file overwritten in turn (zeros,
// 0xFF, random bytes), the file cut short at every page boundary and inside
// pages, its meta pages swapped or zeroed. Each copy is checked, opened,
// walked on every key, read record by record and changed, in a child process
// of its own: no child dies or hangs, nothing returned was never written, and
// the check reports damage whenever the file does not give back exactly what
// was written.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "recman/check.h"
#include "recman/engine.h"
#include "recman/guard.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
namespace fs = std::filesystem;

constexpr size_t kPage = 4096;
constexpr uint16_t kLength = 48;
#if defined(__SANITIZE_ADDRESS__)
constexpr uint32_t kRecords = 1000;  // every page is still swept, in fewer pages
#else
constexpr uint32_t kRecords = 3000;
#endif

// Writes a new file (a new inode: nothing of an earlier copy is reused).
void WriteFresh(const std::string& p, const std::string& s) {
    fs::remove(p);
    fs::remove(p + "-lock");
    rmtest::WriteAll(p, s);
}

std::vector<uint8_t> Record(uint32_t id) {
    return rmtest::Numbered(id, kLength);
}

// What a child found in one copy.
struct Outcome {
    int16_t check = -1;
    uint32_t problems = 0;
    int16_t open = -1;
    bool exact = true;     // walks and reads gave back exactly the records written
    uint32_t foreign = 0;  // records returned that were never written
    int16_t insert = -1, update = -1;
    bool reported = false;  // the check found damage
};

// The intact file, its records and the order of each key.
struct Original {
    rmtest::TempDir dir;
    std::string path = dir.File("whole.dat");
    std::string bytes;
    std::set<std::string> written;  // as text: GCC's -O3 misreads sets of byte vectors
    std::vector<std::vector<uint8_t>> order[2];

    Original() {
        EXPECT_EQ(rmtest::CreateFile(path, rmtest::NumberedSpec(kLength)), RM_OK);
        Handle h;
        EXPECT_EQ(h.Open(path), RM_OK);
        for (uint32_t i = 0; i < kRecords; ++i) {
            auto r = Record((i * 7919u) % kRecords);
            written.insert(std::string(r.begin(), r.end()));
            EXPECT_EQ(h.Insert(r), RM_OK);
        }
        for (int k = 0; k < 2; ++k) {
            std::vector<uint8_t> r;
            for (int16_t st = h.Get(RM_GET_FIRST, int8_t(k), r); st == RM_OK;
                 st = h.Get(RM_GET_NEXT, int8_t(k), r))
                order[k].push_back(r);
        }
        h.Close();
        bytes = rmtest::ReadAll(path);
    }
};

const Original& Whole() {
    static Original* o = new Original;
    return *o;
}

Outcome Probe(const std::string& path) {
    const Original& o = Whole();
    Outcome out;
    std::vector<std::string> problems;
    out.check = int16_t(recman::CheckFile(path, problems));
    out.problems = uint32_t(problems.size());
    Handle h;
    out.open = h.Open(path);
    if (out.open != RM_OK) {
        out.exact = false;
        return out;
    }
    auto note = [&](const std::vector<uint8_t>& r) {
        if (!o.written.count(std::string(r.begin(), r.end()))) out.foreign++;
    };
    std::vector<uint8_t> r;
    for (int k = 0; k < 2; ++k) {
        std::vector<std::vector<uint8_t>> seen;
        int16_t st = h.Get(RM_GET_FIRST, int8_t(k), r, nullptr, kLength);
        for (size_t steps = 0; st == RM_OK && steps < 2 * kRecords + 10; ++steps) {
            note(r);
            seen.push_back(r);
            st = h.Get(RM_GET_NEXT, int8_t(k), r, nullptr, kLength);
        }
        if (st != RM_END_OF_FILE || seen != o.order[k]) out.exact = false;
    }
    for (const auto& want : o.order[0]) {
        std::memcpy(h.key(), want.data(), 4);
        int16_t st = h.Get(RM_GET_EQUAL, 0, r, nullptr, kLength);
        if (st == RM_OK) note(r);
        if (st != RM_OK || r != want) out.exact = false;
    }
    auto fresh = Record(kRecords + 5);
    out.insert = h.Insert(fresh);
    std::memcpy(h.key(), o.order[0][kRecords / 2].data(), 4);
    if (h.Get(RM_GET_EQUAL, 0, r, nullptr, kLength) == RM_OK) {
        r[40] ^= 0x5A;
        out.update = h.Update(r);
    }
    return out;
}

// Runs the probe in a child; false when the child died or hung.
bool ProbeInChild(const std::string& path, Outcome& out, std::string& why) {
    int fds[2];
    if (pipe(fds) != 0) return false;
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        alarm(120);  // a hang ends in SIGALRM, which the parent reports
        Outcome o = Probe(path);
        ssize_t n = write(fds[1], &o, sizeof(o));
        _exit(n == ssize_t(sizeof(o)) ? 0 : 3);
    }
    close(fds[1]);
    ssize_t n = read(fds[0], &out, sizeof(out));
    close(fds[0]);
    int code = rmtest::ExitCode(pid);
    if (code != 0 || n != ssize_t(sizeof(out))) {
        why = code > 128 ? "child died of signal " + std::to_string(code - 128)
                         : "child exited with " + std::to_string(code);
        return false;
    }
    return true;
}

// Probes one damaged copy, holds the outcome to the promises and answers it.
Outcome Expect(const std::string& copy, const std::string& what) {
    std::string before = rmtest::ReadAll(copy);
    Outcome o;
    std::string why;
    EXPECT_TRUE(ProbeInChild(copy, o, why)) << what << ": " << why;
    EXPECT_EQ(o.foreign, 0u) << what << ": records returned that were never written";
    o.reported = o.check != RM_OK || o.problems > 0;
    if (!o.exact) {
        EXPECT_TRUE(o.reported) << what << ": a walk lost records but the check passed";
    }
    // A file found damaged is left as it was: nothing is written into it.
    if (o.reported) {
        EXPECT_EQ(rmtest::ReadAll(copy), before) << what << ": a damaged file was changed";
    }
    return o;
}

class DamageSweep : public ::testing::TestWithParam<int> {};

// Every page, overwritten with one pattern.
TEST_P(DamageSweep, EveryPageOverwritten) {
    const Original& o = Whole();
    rmtest::TempDir dir;
    std::string copy = dir.File("copy.dat");
    size_t pages = o.bytes.size() / kPage;
    std::mt19937 rng(unsigned(GetParam()) * 7 + 1);
    size_t found = 0;
    for (size_t p = 0; p < pages; ++p) {
        std::string b = o.bytes;
        for (size_t i = 0; i < kPage; ++i)
            b[p * kPage + i] = GetParam() == 0 ? 0 : GetParam() == 1 ? char(0xFF) : char(rng());
        WriteFresh(copy, b);
        found +=
            Expect(copy, "page " + std::to_string(p) + " pattern " + std::to_string(GetParam()))
                .reported;
    }
    // Free pages carry nothing; nearly every other page is found.
    EXPECT_GT(found, pages / 2);
}

INSTANTIATE_TEST_SUITE_P(Patterns, DamageSweep, ::testing::Values(0, 1, 2), [](const auto& info) {
    return std::string(info.param == 0 ? "Zeros" : info.param == 1 ? "Ones" : "Random");
});

// The file cut short, at every page boundary and inside pages, and its meta
// pages swapped or zeroed: each is found damaged and refused. An empty file
// is nobody's; one that still begins with a meta page is a record file cut
// short.
TEST(Damage, CutShortOrMetaPagesChanged) {
    const Original& o = Whole();
    rmtest::TempDir dir;
    std::string copy = dir.File("copy.dat");
    auto refused = [&](const std::string& what, const std::string& bytes) {
        WriteFresh(copy, bytes);
        Outcome out = Expect(copy, what);
        EXPECT_TRUE(out.reported) << what;
        EXPECT_EQ(out.open, bytes.empty() ? RM_NOT_A_RECMAN_FILE : RM_IO_ERROR) << what;
    };
    std::string zero(kPage, '\0');
    refused("meta pages swapped",
            o.bytes.substr(kPage, kPage) + o.bytes.substr(0, kPage) + o.bytes.substr(2 * kPage));
    refused("first meta page zeroed", zero + o.bytes.substr(kPage));
    refused("second meta page zeroed", o.bytes.substr(0, kPage) + zero + o.bytes.substr(2 * kPage));
    refused("both meta pages zeroed", zero + zero + o.bytes.substr(2 * kPage));
    for (size_t cut : {size_t(100), o.bytes.size() / 2 + 100})
        refused("cut at " + std::to_string(cut), o.bytes.substr(0, cut));
    for (size_t p = 0; p < o.bytes.size() / kPage; ++p)
        refused("cut at page " + std::to_string(p), o.bytes.substr(0, p * kPage));
}

}  // namespace

namespace {

// Faults inside guarded work end the work, not the process: a wild pointer
// (SIGSEGV), a page of a mapped file that was cut short (SIGBUS), and the
// storage library's assertions; the innermost guard catches, and the next
// guarded call works as before.
TEST(Damage, GuardedWorkSurvivesFaults) {
    rmtest::TempDir dir;
    std::string path = dir.File("short.bin");
    WriteFresh(path, std::string(2 * kPage, 'x'));
    int fd = open(path.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    void* map = mmap(nullptr, 2 * kPage, PROT_READ, MAP_SHARED, fd, 0);
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_EQ(ftruncate(fd, 0), 0);
    const volatile char* past = static_cast<const char*>(map) + kPage;
    const volatile int* wild = reinterpret_cast<const volatile int*>(uintptr_t(8));

    const std::vector<std::pair<const char*, std::function<int()>>> faults = {
        {"wild pointer", [&] { return int(*wild); }},
        {"file cut short", [&] { return int(*past); }},
        {"storage assertion", [] { return recman::OnStorageAssert(nullptr, "test"), 0; }},
        {"inner guard", [&] { return recman::Guarded([&] { return int(*wild); }) + 1; }},
    };
    for (const auto& fault : faults) {
        const char* what = fault.first;
        const std::function<int()>& work = fault.second;
        int rc = recman::Guarded([&] { return work(); });
        if (std::string(what) == "inner guard")
            EXPECT_EQ(rc, recman::kGuardFault + 1) << what;
        else
            EXPECT_EQ(rc, recman::kGuardFault) << what;
        EXPECT_EQ(recman::Guarded([] { return 7; }), 7) << what;
    }
    munmap(map, 2 * kPage);
    close(fd);
}

}  // namespace
