// Transactions over several files, with the process killed at each step of
// End and at random moments, recovered by whoever opens the files next.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

#include "ledger.h"
#include "recman/check.h"

namespace {

using rmtest::ExitCode;
using rmtest::Ledger;
using rmtest::LedgerClient;

constexpr int kKilled = 128 + SIGKILL;

// Kills a process at every step of End, and at random moments, 200 times
// over; after each kill the files must hold whole transfers only, every
// transfer End confirmed, and no journal once opened.
TEST(JournalCrash, KilledAtEveryStepAndAtRandom) {
    NEED_FAULTS();
    rmtest::TempDir dir;
    Ledger l(dir.path(), 3);
    l.Create();
    // Kept open throughout, so that each audit reuses this process's
    // storage environments (an audit's opens still settle the journals).
    LedgerClient held(l, 50);
    ASSERT_EQ(held.Open(), RM_OK);
    const char* steps[] = {"journal", "commit", "file1", "file2", "file3", "cleanup", nullptr};
    std::mt19937 rng(std::random_device{}());
    uint32_t next = 0;
    std::set<uint32_t> everCommitted;
    for (int round = 0; round < 200; ++round) {
        const char* step = steps[round % 7];
        const char* sync = (round / 7) % 2 ? "normal" : "off";
        std::string fault = step ? std::string(step) + "@" + std::to_string(1 + rng() % 3) : "";
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            rmtest::Transfers(l, next, fault, sync, fds[1]);
        }
        close(fds[1]);
        std::set<uint32_t> committed;
        uint32_t n;
        if (!step) {
            // Let it get going, then kill it wherever it is.
            ASSERT_EQ(read(fds[0], &n, 4), 4) << "the child confirmed nothing";
            committed.insert(n);
            std::this_thread::sleep_for(std::chrono::microseconds(rng() % 20000));
            kill(pid, SIGKILL);
        }
        ASSERT_EQ(ExitCode(pid), kKilled) << "round " << round << " " << fault;
        while (read(fds[0], &n, 4) == 4)
            committed.insert(n);
        close(fds[0]);
        std::set<uint32_t> present;
        ASSERT_EQ(rmtest::Audit(l, committed, &present), "")
            << "round " << round << ": " << (step ? fault : "random") << ", " << sync;
        for (uint32_t p : present)
            next = std::max(next, p + 1);
        everCommitted.insert(committed.begin(), committed.end());
    }
    // Nothing confirmed in an earlier round went missing later.
    ASSERT_EQ(rmtest::Audit(l, everCommitted), "");
}

// A transaction over three files that a dead process left is settled by
// whoever opens one of them next, and the consistency check reports its
// journal until then. One process opening one file finishes it in every
// file; three processes opening the three at the same moment each settle
// what they can take, none waiting for another. Committed, it is finished
// everywhere; never committed, discarded everywhere.
TEST(JournalCrash, NextOpenSettlesWhatADeadProcessLeft) {
    NEED_FAULTS();
    for (const char* step : {"commit", "file1", "journal"}) {
        bool committed = std::string(step) != "journal";
        // The file one process opens; 3: all three at once.
        for (int opened = committed ? 0 : 3; opened <= 3; ++opened) {
            SCOPED_TRACE(std::string(step) + ", opening " + std::to_string(opened));
            rmtest::TempDir dir;
            Ledger l(dir.path(), 3);
            l.Create();
            uint32_t n = rmtest::TransferOver(3, 3);
            ASSERT_EQ(rmtest::RunTransfers(l, n, step), kKilled);
            if (committed) {
                ASSERT_EQ(rmtest::JournalsIn(dir.path()).size(), 3u);
            }
            std::vector<std::string> problems;
            ASSERT_EQ(recman::CheckFile(l.Path(2), problems), RM_OK);  // its part not yet taken
            ASSERT_EQ(problems.size(), 1u);
            EXPECT_NE(problems[0].find(committed ? "not yet applied" : "never committed"),
                      std::string::npos)
                << problems[0];
            if (opened < 3) {
                EXPECT_EQ(rmtest::OpenInChild(l, opened), RM_OK);
            } else {
                int gate[2];
                ASSERT_EQ(pipe(gate), 0);
                std::vector<pid_t> pids;
                for (int i = 0; i < 3; ++i) {
                    pid_t pid = fork();
                    if (pid == 0) {
                        close(gate[1]);
                        char c;
                        if (read(gate[0], &c, 1) != 0) _exit(9);  // released together, by the close
                        rmtest::Handle h(3);
                        _exit(h.Open(l.Path(i)));
                    }
                    pids.push_back(pid);
                }
                close(gate[0]);
                close(gate[1]);
                for (pid_t pid : pids)
                    EXPECT_EQ(ExitCode(pid), RM_OK);
            }
            EXPECT_TRUE(rmtest::JournalsIn(dir.path()).empty());
            std::set<uint32_t> present;
            ASSERT_EQ(rmtest::Audit(l, {}, &present), "");
            EXPECT_EQ(present.count(n), committed ? 1u : 0u);
        }
    }
}

// Recovery killed after applying the journal to one file, then to another,
// and run again: the transaction ends whole, each file taking it once.
TEST(JournalCrash, RecoveryKilledAndRunAgain) {
    NEED_FAULTS();
    rmtest::TempDir dir;
    Ledger l(dir.path(), 3);
    l.Create();
    uint32_t n = rmtest::TransferOver(3, 3);
    ASSERT_EQ(rmtest::RunTransfers(l, n, "commit"), kKilled);
    EXPECT_EQ(rmtest::OpenInChild(l, 1, "recover"), kKilled);
    EXPECT_EQ(rmtest::JournalsIn(dir.path()).size(), 3u);
    EXPECT_EQ(rmtest::OpenInChild(l, 2, "recover@2"), kKilled);
    EXPECT_EQ(rmtest::OpenInChild(l, 0), RM_OK);
    ASSERT_EQ(rmtest::Audit(l, {n}), "");
}

// Two processes run transfers over files they share, competing for them:
// every transfer arrives whole and the total holds. One flushes its
// commits and the other not, so each meets the journals the other leaves.
TEST(JournalCrash, TwoProcessesOnOverlappingFiles) {
    constexpr uint32_t kEach = 40;
    rmtest::TempDir dir;
    Ledger l(dir.path(), 3);
    l.Create();
    std::vector<pid_t> pids;
    for (int p = 0; p < 2; ++p) {
        pid_t pid = fork();
        if (pid == 0) {
            setenv("RECMAN_SYNC", p ? "normal" : "off", 1);
            setenv("RECMAN_LOCK_WAIT_MS", "600000", 1);
            LedgerClient c(l, 1);
            if (c.Open()) _exit(2);
            for (uint32_t n = p * 10000; n < p * 10000 + kEach; ++n) {
                // A file taken by the other transaction, or a record it
                // changed meanwhile, sends the transfer round again.
                int16_t st;
                while ((st = c.Transfer(n, true)) == RM_RECORD_LOCKED || st == RM_CONFLICT) {
                }
                if (st) _exit(st);
            }
            _exit(0);
        }
        pids.push_back(pid);
    }
    for (pid_t pid : pids)
        EXPECT_EQ(ExitCode(pid), 0);
    std::set<uint32_t> all;
    for (uint32_t n = 0; n < kEach; ++n) {
        all.insert(n);
        all.insert(10000 + n);
    }
    std::set<uint32_t> present;
    ASSERT_EQ(rmtest::Audit(l, all, &present), "");
    EXPECT_EQ(present, all);
}

}  // namespace
