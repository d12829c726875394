// What reaches the engine over a whole process, seen through a requester
// that writes every request down: the module's exit, exclusive opens, and a
// requester that cannot be loaded.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

struct ProbeRun {
    int exitCode = -1;
    std::string out, last;  // all its output, and the last line
};

// Runs the probe with the given requester and spy log, capturing its output;
// `onLine` sees each line as it comes.
ProbeRun Probe(const std::vector<std::string>& args, const std::string& requester,
               const std::string& spyLog, std::vector<std::string> env = {},
               const std::function<void(const std::string&)>& onLine = nullptr) {
    env.push_back("DBFILE_REQUESTER=" + requester);
    env.push_back("DBFILE_SPY_LOG=" + spyLog);
    env.push_back("RECMAN_SYNC=off");
    dbtest::Child child(args, env);
    ProbeRun run;
    for (std::string line; !(line = child.ReadLine()).empty();) {
        run.out += line + "\n";
        run.last = line;
        if (onLine) onLine(line);
    }
    run.exitCode = child.Wait();
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

// Another process (this one, on its own engine) holds a lock on record 5
// while the probe, through the shared requester, reads it with lock.
TEST(Requester, LockWaitThroughTheSharedRequester) {
    rmtest::TempDir dir;
    std::string path = dir.File("held.dat");
    ASSERT_EQ(rmtest::CreateFile(
                  path, rmtest::Spec(8, {{{1, 4, RM_KEY_EXTENDED_TYPE, RM_TYPE_INTEGER}}})),
              RM_OK);
    rmtest::Handle holder(2);
    ASSERT_EQ(holder.Open(path), RM_OK);
    std::vector<uint8_t> rec(8, 0);
    rec[0] = 5;
    ASSERT_EQ(holder.Insert(rec), RM_OK);
    auto hold = [&] {
        rmtest::Put32(holder.key(), 5);
        ASSERT_EQ(holder.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_OK);
    };
    auto release = [&] {
        uint32_t len = 0;
        holder.Call(RM_UNLOCK, nullptr, &len, holder.key(), RM_UNLOCK_ALL_MULTI);
    };

    // Released once the dialog has shown its second attempt: the read gets
    // through on one of the next (the probe retries at once after showing
    // a count, so the release may come a retry later).
    hold();
    bool released = false;
    ProbeRun run = Probe({"wait", path, "5"}, DBFILE_TEST_RECMAN_SHARED, dir.File("spy.log"), {},
                         [&](const std::string& line) {
                             if (!released && line == "+2") {
                                 release();
                                 released = true;
                             }
                         });
    ASSERT_EQ(run.exitCode, 0);
    std::string counts = "0:";
    for (int n = 1; n <= 2 || counts.size() < run.last.size(); ++n)
        counts += " " + std::to_string(n);
    EXPECT_EQ(run.last, counts) << run.out;

    // Never released: the headless dialog gives up after its time, 84.
    hold();
    run = Probe({"wait", path, "5"}, DBFILE_TEST_RECMAN_SHARED, dir.File("spy.log"),
                {"DBFILE_LOCK_WAIT_S=1"});
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.last.substr(0, 3), "84:") << run.out;
    release();
}

TEST(Requester, VersionsOfAllThreeComponents) {
    rmtest::TempDir dir;
    ProbeRun run = Probe({"version"}, DBFILE_TEST_SPY_REQUESTER, dir.File("spy.log"),
                         {"DBFILE_SPY_REMOTE=9.5T"});
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "8|8.0\tClient Requester|8.0\tLinux Server|9.5\tWindows Server Engine\n");
    run = Probe({"version"}, DBFILE_TEST_SPY_REQUESTER, dir.File("spy.log"),
                {"DBFILE_SPY_REMOTE=7.9S"});
    EXPECT_EQ(run.out, "-1|8.0\tClient Requester|8.0\tLinux Server|7.9\tNetware Server\n");
}

TEST(Requester, AMissingRequesterAnswers20) {
    rmtest::TempDir dir;
    ProbeRun run =
        Probe({"open", dir.File("any.dat")}, dir.File("libnothing.so"), dir.File("spy.log"));
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "20\n");
}

}  // namespace
