// Locks, transactions, opens and index changes between processes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "recman/structure.h"
#include "rm_util.h"

namespace {

using rmtest::Child;
using rmtest::ExitCode;
using rmtest::Handle;
using rmtest::Pipe;
using rmtest::Txn;
constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;

std::vector<uint8_t> Rec(uint32_t id) {
    std::vector<uint8_t> r(16, 0);
    rmtest::Put32(r.data(), id);
    return r;
}

class ProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(rmtest::CreateFile(path, rmtest::Spec(16, {{{1, 4, EXT, RM_TYPE_INTEGER}}})),
                  RM_OK);
        Handle h;
        ASSERT_EQ(h.Open(path), RM_OK);
        for (uint32_t i = 1; i <= 3; ++i) {
            auto r = Rec(i);
            ASSERT_EQ(h.Insert(r), RM_OK);
        }
    }
    void TearDown() override { unsetenv("RECMAN_LOCK_WAIT_MS"); }

    // Reads record `id` with a lock bias in `h`; the record comes back in `rec`.
    int16_t LockedRead(Handle& h, int id, uint16_t bias, std::vector<uint8_t>& rec) {
        rmtest::Put32(h.key(), uint32_t(id));
        return h.Get(uint16_t(RM_GET_EQUAL + bias), 0, rec);
    }

    rmtest::TempDir dir;
    std::string path = dir.File("shared.dat");
};

// A record locked in another process: locking reads, changes and waits.
TEST_F(ProcessTest, LockHeldInAnotherProcess) {
    setenv("RECMAN_LOCK_WAIT_MS", "600000", 1);
    Pipe locked, release;
    pid_t pid = Child([&] {
        Handle h;
        std::vector<uint8_t> rec;
        if (h.Open(path) || LockedRead(h, 2, RM_LOCK_MULTI_NOWAIT, rec)) return 1;
        locked.Send();
        release.Wait();
        uint32_t len = 0;
        if (h.Call(RM_UNLOCK, nullptr, &len, h.key(), RM_UNLOCK_ALL_MULTI)) return 2;
        release.Wait();
        return 0;
    });
    locked.Wait();
    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    std::vector<uint8_t> rec;
    EXPECT_EQ(LockedRead(h, 2, RM_LOCK_MULTI_NOWAIT, rec), RM_RECORD_LOCKED);
    EXPECT_EQ(LockedRead(h, 2, RM_LOCK_SINGLE_NOWAIT, rec), RM_RECORD_LOCKED);
    EXPECT_EQ(LockedRead(h, 1, RM_LOCK_SINGLE_NOWAIT, rec), RM_OK);  // others are free
    EXPECT_EQ(LockedRead(h, 2, 0, rec), RM_OK);  // reading without a lock is never refused
    EXPECT_EQ(h.Delete(), RM_RECORD_LOCKED);
    EXPECT_EQ(h.Update(rec), RM_RECORD_LOCKED);
    // The holder lets go a moment after the wait has begun (or, on a slow
    // machine, before it: the read then gets the record at once).
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        release.Send();
    });
    EXPECT_EQ(LockedRead(h, 2, RM_LOCK_SINGLE_WAIT, rec), RM_OK);
    releaser.join();
    EXPECT_EQ(h.Update(rec), RM_OK);
    release.Send();
    EXPECT_EQ(ExitCode(pid), 0);
    // Without a wait, a waiting bias gives up at once.
    ASSERT_EQ(LockedRead(h, 2, RM_LOCK_SINGLE_NOWAIT, rec), RM_OK);
    setenv("RECMAN_LOCK_WAIT_MS", "0", 1);
    Handle other;
    ASSERT_EQ(other.Open(path), RM_OK);
    EXPECT_EQ(LockedRead(other, 2, RM_LOCK_MULTI_WAIT, rec), RM_RECORD_LOCKED);
}

// Writers outside transactions queue for the file one behind the other:
// none of them is ever told that the file is locked, whatever the load, and
// every change arrives. Records of 8,000 bytes in a file whose map starts
// small make each commit long and the map grow under the writers.
struct WritersCase {
    int processes;
    uint32_t length;
};

class ConcurrentWriters : public ::testing::TestWithParam<WritersCase> {};

TEST_P(ConcurrentWriters, NeverAnswerLockedToEachOther) {
    constexpr int kRecords = 150;
    const WritersCase c = GetParam();
    rmtest::TempDir dir;
    std::string path = dir.File("busy.dat");
    setenv("RECMAN_MAP_RESERVE_MB", "1", 1);
    ASSERT_EQ(rmtest::CreateFile(
                  path, rmtest::Spec(16, {{{1, 4, EXT, RM_TYPE_INTEGER}}}, RM_FILE_VAR_LENGTH)),
              RM_OK);
    auto record = [&](uint32_t id, uint8_t fill) {
        std::vector<uint8_t> r(c.length, fill);
        rmtest::Put32(r.data(), id);
        return r;
    };
    std::vector<pid_t> pids;
    for (int p = 0; p < c.processes; ++p)
        // Each child inserts its records, rewrites them, then deletes every
        // other one; the exit code is the first status that was not 0.
        // Commits are flushed, as they are in use, so that each holds the
        // file for a while.
        pids.push_back(Child([&, p]() -> int {
            setenv("RECMAN_SYNC", "normal", 1);
            Handle h;
            if (int16_t st = h.Open(path)) return st;
            uint32_t base = uint32_t(p) * 100000;
            for (uint32_t i = 0; i < kRecords; ++i) {
                auto r = record(base + i, 1);
                if (int16_t st = h.Insert(r)) return st;
            }
            std::vector<uint8_t> got;
            for (uint32_t i = 0; i < kRecords; ++i) {
                rmtest::Put32(h.key(), base + i);
                if (int16_t st = h.Get(RM_GET_EQUAL, 0, got)) return st;
                auto r = record(base + i, 2);
                if (int16_t st = h.Update(r)) return st;
                if (i % 2 == 0) continue;
                if (int16_t st = h.Delete()) return st;
            }
            return 0;
        }));
    for (pid_t pid : pids)
        EXPECT_EQ(ExitCode(pid), 0) << "a writer got this status";
    unsetenv("RECMAN_MAP_RESERVE_MB");

    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    std::vector<uint8_t> got;
    uint32_t seen = 0;
    for (int16_t st = h.Get(RM_GET_FIRST, 0, got); st == RM_OK;
         st = h.Get(RM_GET_NEXT, 0, got), ++seen) {
        uint32_t id = rmtest::Get32(got.data());
        ASSERT_EQ(id % 100000 % 2, 0u) << "a deleted record is back: " << id;
        ASSERT_EQ(got, record(id, 2)) << id;
    }
    EXPECT_EQ(seen, uint32_t(c.processes * kRecords / 2));
    EXPECT_EQ(rmtest::Problem(path), "");
}

INSTANTIATE_TEST_SUITE_P(Load, ConcurrentWriters,
                         ::testing::Values(WritersCase{2, 16}, WritersCase{2, 8000},
                                           WritersCase{4, 16}, WritersCase{4, 8000}),
                         [](const auto& info) {
                             return std::to_string(info.param.processes) + "x" +
                                    std::to_string(info.param.length);
                         });

// A transaction holds the file from its first change to its end: other
// processes' changes answer 84 at once (the library's lock wait takes over),
// their locking reads of any record too, and their plain reads see the file
// as last committed. The engine is told to wait longer than any run: had a
// change waited, it would wait for the transaction's end, which comes only
// after it. Ended, the transaction's changes are there; its process killed,
// they are not, and nothing of it holds the file.
TEST_F(ProcessTest, TransactionHoldsTheFileUntilItEndsOrDies) {
    setenv("RECMAN_LOCK_WAIT_MS", "86400000", 1);
    for (bool dies : {true, false}) {
        SCOPED_TRACE(dies ? "killed" : "ended");
        Pipe ready, finish, ended;
        pid_t pid = Child([&] {
            Handle h;
            std::vector<uint8_t> rec;
            if (h.Open(path) || Txn(RM_BEGIN_TRANSACTION + RM_CONCURRENT, h.client())) return 1;
            if (LockedRead(h, 1, RM_LOCK_MULTI_NOWAIT, rec)) return 3;
            rec[8] = 42;
            auto r = Rec(77);
            if (h.Update(rec) || h.Insert(r)) return 4;
            ready.Send();
            finish.Wait();
            if (Txn(RM_END_TRANSACTION, h.client())) return 5;
            ended.Send();
            finish.Wait();
            return 0;
        });
        ready.Wait();
        Handle h;
        ASSERT_EQ(h.Open(path), RM_OK);
        std::vector<uint8_t> rec;
        ASSERT_EQ(LockedRead(h, 2, 0, rec), RM_OK);
        EXPECT_EQ(h.Update(rec), RM_RECORD_LOCKED);
        EXPECT_EQ(h.Delete(), RM_RECORD_LOCKED);
        auto fresh = Rec(50);
        EXPECT_EQ(h.Insert(fresh), RM_RECORD_LOCKED);
        EXPECT_EQ(LockedRead(h, 1, RM_LOCK_MULTI_NOWAIT, rec), RM_RECORD_LOCKED);
        EXPECT_EQ(LockedRead(h, 3, RM_LOCK_SINGLE_NOWAIT, rec), RM_RECORD_LOCKED);
        ASSERT_EQ(LockedRead(h, 1, 0, rec), RM_OK);
        EXPECT_EQ(rec[8], 0);  // not yet committed
        if (dies) {
            kill(pid, SIGKILL);
            ExitCode(pid);
        } else {
            finish.Send();
            ended.Wait();
        }
        // A server learns of the death when the connection closes, a moment
        // after it: the lock is waited for.
        ASSERT_EQ(LockedRead(h, 1, RM_LOCK_MULTI_WAIT, rec), RM_OK);
        EXPECT_EQ(rec[8], dies ? 0 : 42);
        EXPECT_EQ(LockedRead(h, 77, 0, rec), dies ? RM_KEY_NOT_FOUND : RM_OK);
        EXPECT_EQ(h.Insert(fresh), RM_OK);
        ASSERT_EQ(h.Delete(), RM_OK);
        if (!dies) {
            finish.Send();
            EXPECT_EQ(ExitCode(pid), 0);
        }
        EXPECT_EQ(rmtest::Problem(path), "");
    }
}

// Four processes each add 1 to one counter 500 times, one transaction each.
TEST_F(ProcessTest, CountersAddUpAcrossProcesses) {
    constexpr int kProcesses = 4, kRounds = 500;
    std::vector<pid_t> pids;
    for (int p = 0; p < kProcesses; ++p)
        pids.push_back(Child([&] {
            Handle h;
            if (h.Open(path)) return 1;
            for (int i = 0; i < kRounds; ++i) {
                for (;;) {
                    // Exclusive and concurrent transactions, alternately.
                    if (Txn(i % 2 ? RM_BEGIN_TRANSACTION : RM_BEGIN_TRANSACTION + RM_CONCURRENT,
                            h.client()))
                        return 2;
                    std::vector<uint8_t> rec;
                    int16_t st = LockedRead(h, 1, RM_LOCK_MULTI_NOWAIT, rec);
                    if (st == RM_OK) {
                        rmtest::Put32(&rec[4], rmtest::Get32(&rec[4]) + 1);
                        st = h.Update(rec);
                    }
                    if (st == RM_OK) {
                        if (Txn(RM_END_TRANSACTION, h.client())) return 3;
                        break;
                    }
                    if (st != RM_RECORD_LOCKED) return 4;
                    Txn(RM_ABORT_TRANSACTION, h.client());
                    usleep(200);
                }
            }
            return 0;
        }));
    for (pid_t pid : pids)
        EXPECT_EQ(ExitCode(pid), 0);
    Handle h;
    ASSERT_EQ(h.Open(path), RM_OK);
    std::vector<uint8_t> rec;
    ASSERT_EQ(LockedRead(h, 1, 0, rec), RM_OK);
    EXPECT_EQ(rmtest::Get32(&rec[4]), uint32_t(kProcesses * kRounds));
}

// The pages of a file are read without trusting them while other processes
// commit to it, and those commits reuse pages a reading is in the middle of:
// such a reading may find faults, or no trees at all, but it is always one
// that the meta pages tell from a reading of damage.
TEST_F(ProcessTest, ReadingsRacingCommitsAreToldApart) {
    constexpr int kWriters = 2, kReadings = 1500;
    const std::string stop = dir.File("stop");
    Pipe writing;
    std::vector<pid_t> writers;
    for (int w = 0; w < kWriters; ++w)
        writers.push_back(Child([&, w] {
            setenv("RECMAN_SYNC", "off", 1);  // as many commits as can be
            Handle h;
            std::vector<uint8_t> rec;
            int st = h.Open(path);
            for (int i = 0; st == RM_OK && ::access(stop.c_str(), F_OK) != 0; ++i) {
                rmtest::Put32(h.key(), uint32_t(w + 1));  // a record of its own
                st = h.Get(RM_GET_EQUAL, 0, rec);
                if (st == RM_OK) st = h.Update(rec);
                if (i == 10) writing.Send();
            }
            if (st != RM_OK) writing.Send();  // the reader is not left waiting
            return st;
        }));
    for (int w = 0; w < kWriters; ++w)
        writing.Wait();
    int fd = ::open(path.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    for (int i = 0; i < kReadings; ++i) {
        recman::StructureResult r = recman::CheckStructure(fd, recman::StructureDepth::Cheap);
        if (r.status == RM_OK && r.faults.empty()) continue;
        ASSERT_NE(recman::CheckStructure(fd, recman::StructureDepth::Meta).metas, r.metas)
            << "reading " << i << " (status " << r.status << ") "
            << (r.faults.empty() ? "" : r.faults[0]);
    }
    ::close(fd);
    Handle h;  // and an open meanwhile answers as for a whole file
    EXPECT_EQ(h.Open(path), RM_OK);
    rmtest::WriteAll(stop, "");
    for (pid_t pid : writers)
        EXPECT_EQ(ExitCode(pid), 0);
}

TEST_F(ProcessTest, ExclusiveOpenKeepsOtherProcessesOut) {
    Pipe opened, done;
    pid_t pid = Child([&] {
        Handle h;
        if (h.Open(path, RM_OPEN_EXCLUSIVE)) return 1;
        opened.Send();
        done.Wait();
        return 0;
    });
    opened.Wait();
    Handle h;
    EXPECT_EQ(h.Open(path), RM_INCOMPATIBLE_MODE);
    EXPECT_EQ(h.Open(path, RM_OPEN_READ_ONLY), RM_INCOMPATIBLE_MODE);
    EXPECT_EQ(h.Open(path, RM_OPEN_EXCLUSIVE), RM_INCOMPATIBLE_MODE);
    EXPECT_EQ(rmtest::CreateFile(path, {}, RM_CREATE_REMOVE), RM_INCOMPATIBLE_MODE);
    done.Send();
    EXPECT_EQ(ExitCode(pid), 0);
    EXPECT_EQ(h.Open(path, RM_OPEN_EXCLUSIVE), RM_OK);
}

// A handle opened before another process adds and drops indexes reads the
// file's new definition.
TEST_F(ProcessTest, IndexChangesReachOtherProcesses) {
    Handle other;
    ASSERT_EQ(other.Open(path), RM_OK);
    ASSERT_EQ(
        ExitCode(Child([&] {
            Handle c;
            if (c.Open(path)) return 1;
            auto spec = rmtest::Spec(16, {{{13, 4, EXT | RM_KEY_DUPLICATES, RM_TYPE_INTEGER}}});
            uint32_t len = 16;
            if (int st = c.Call(RM_CREATE_INDEX, spec.data() + 16, &len, c.key(), 0)) return st;
            return int(c.Call(RM_DROP_INDEX, nullptr, &len, c.key(), int8_t(0x80 | 0)));
        })),
        0);
    EXPECT_EQ(other.Walk(1).size(), 3u);
    std::vector<uint8_t> r;
    EXPECT_EQ(other.Get(RM_GET_FIRST, 0, r), RM_INVALID_KEY_NUMBER);
    auto rec = Rec(99);
    ASSERT_EQ(other.Insert(rec, 1), RM_OK);
    EXPECT_EQ(other.Walk(1).size(), 4u);
    EXPECT_EQ(rmtest::Problem(path), "");
}

}  // namespace
