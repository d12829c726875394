// A process killed in the middle of a stream of inserts leaves a file that
// opens, is consistent, and holds every insert the process reported done.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <set>
#include <thread>

#include "rm_util.h"

namespace {

// Records: a number (unique), a name (duplicates), filler.
std::vector<uint8_t> Record(uint32_t n) {
    return rmtest::Numbered(n, 40);
}

// Child: inserts numbers from `first` on and writes each done number to `fd`.
[[noreturn]] void InsertForever(const std::string& path, uint32_t first, int fd, const char* sync) {
    setenv("RECMAN_SYNC", sync, 1);
    rmtest::Handle h;
    if (h.Open(path) != RM_OK) _exit(2);
    for (uint32_t n = first;; ++n) {
        std::vector<uint8_t> r = Record(n);
        int16_t st = h.Insert(r);
        if (st != RM_OK) _exit(3);
        if (write(fd, &n, 4) != 4) _exit(4);
    }
}

TEST(CrashTest, KilledWriterLosesNothingReported) {
    rmtest::TempDir dir;
    std::string path = dir.File("crash.dat");
    ASSERT_EQ(rmtest::CreateFile(path, rmtest::NumberedSpec(40)), RM_OK);
    std::mt19937 rng(std::random_device{}());
    std::set<uint32_t> reported;
    uint32_t next = 1;
    const char* modes[] = {"normal", "off", "full"};
    for (int round = 0; round < 3; ++round) {  // once in each sync mode
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            InsertForever(path, next, fds[1], modes[round % 3]);
        }
        close(fds[1]);
        // Let the child get going, then kill it at a random moment.
        uint32_t n;
        ASSERT_EQ(read(fds[0], &n, 4), 4) << "the child reported nothing";
        reported.insert(n);
        std::this_thread::sleep_for(std::chrono::microseconds(rng() % 150000));
        kill(pid, SIGKILL);
        int status;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "child ended on its own: " << status;
        while (read(fds[0], &n, 4) == 4)
            reported.insert(n);
        close(fds[0]);
        next = *reported.rbegin() + 2;  // leaves room for one insert done but not reported

        EXPECT_EQ(rmtest::Problem(path), "");
        rmtest::Handle h;
        ASSERT_EQ(h.Open(path), RM_OK);
        for (uint32_t want : reported) {
            std::vector<uint8_t> rec;
            rmtest::Put32(h.key(), want);
            ASSERT_EQ(h.Get(RM_GET_EQUAL, 0, rec), RM_OK) << "insert " << want << " lost";
            ASSERT_EQ(rec, Record(want));
        }
        uint32_t count;
        ASSERT_EQ(h.RecordCount(count), RM_OK);
        EXPECT_GE(count, reported.size());
        EXPECT_LE(count, reported.size() + round + 1);  // at most one unreported a round
    }
}

}  // namespace
