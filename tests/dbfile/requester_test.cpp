// What reaches the engine over a whole process, seen through a requester
// that writes every request down: the module's exit, exclusive opens, and a
// requester that cannot be loaded.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "rm_util.h"

namespace {

struct ProbeRun {
    int exitCode = -1;
    std::string out;
};

// Runs the probe with the given requester and spy log, capturing its output.
ProbeRun Probe(const std::vector<std::string>& args, const std::string& requester,
               const std::string& spyLog) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return {};
    pid_t pid = fork();
    if (pid == 0) {
        dup2(pipeFds[1], 1);
        close(pipeFds[0]);
        setenv("DBFILE_REQUESTER", requester.c_str(), 1);
        setenv("DBFILE_SPY_LOG", spyLog.c_str(), 1);
        setenv("RECMAN_SYNC", "off", 1);
        std::vector<char*> argv{const_cast<char*>(DBFILE_TEST_PROBE)};
        for (auto& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(DBFILE_TEST_PROBE, argv.data());
        _exit(127);
    }
    close(pipeFds[1]);
    ProbeRun run;
    char buf[256];
    for (ssize_t n; (n = read(pipeFds[0], buf, sizeof(buf))) > 0;)
        run.out.append(buf, size_t(n));
    close(pipeFds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

// The requests written down: "op keyNum" each.
std::vector<std::string> Requests(const std::string& log) {
    std::vector<std::string> out;
    std::ifstream in(log);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

TEST(Requester, ExitResetsAndStopsOnlyAnEngineThatWasUsed) {
    rmtest::TempDir dir;
    std::string log = dir.File("spy.log");
    ProbeRun idle = Probe({"idle"}, DBFILE_TEST_SPY_REQUESTER, log);
    ASSERT_EQ(idle.exitCode, 0);
    EXPECT_TRUE(Requests(log).empty());

    ProbeRun used = Probe({"use", dir.File("probe.dat")}, DBFILE_TEST_SPY_REQUESTER, log);
    ASSERT_EQ(used.exitCode, 0);
    auto requests = Requests(log);
    ASSERT_GE(requests.size(), 4u);
    // The last two: Reset, then Stop.
    EXPECT_EQ(requests[requests.size() - 2], "28 0");
    EXPECT_EQ(requests.back(), "25 0");
    // Exclusive open (key number -4), and a read with lock on it goes
    // without the lock bias.
    EXPECT_NE(std::find(requests.begin(), requests.end(), "0 -4"), requests.end());
    EXPECT_NE(std::find(requests.begin(), requests.end(), "5 0"), requests.end());
    for (auto& r : requests)
        EXPECT_LT(std::stoi(r), 100) << r;
}

TEST(Requester, AMissingRequesterAnswers20) {
    rmtest::TempDir dir;
    ProbeRun run =
        Probe({"open", dir.File("any.dat")}, dir.File("libnothing.so"), dir.File("spy.log"));
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "20\n");
}

}  // namespace
