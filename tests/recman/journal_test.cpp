// Commit journals: their format, failures before the commit record, journals
// that are damaged, foreign or made on another state of a file, folders
// moved, files on two file systems, and when journals are removed.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "ledger.h"
#include "recman/check.h"
#include "recman/journal.h"

namespace {

namespace fs = std::filesystem;
using rmtest::Handle;
using rmtest::Ledger;
using rmtest::LedgerClient;

constexpr int kKilled = 128 + SIGKILL;
constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;

std::string Committed(recman::Journal& j, std::string& body) {
    j.id = recman::NewJournalId();
    j.files.resize(2);
    j.files[0].rel = "a.dat";
    j.files[0].up = ".";
    j.files[0].baseTxn = 7;
    j.files[0].baseState = "state";
    recman::Change c;
    uint8_t key[4] = {1, 0, 0, 0}, value[9] = {0, 0, 0, 0, 0, 'x', 'y', 'z', '!'};
    c.put = true;
    c.db = recman::ChangeDb::Records;
    c.key = key;
    c.keyLen = 4;
    c.value = value;
    c.valueLen = 9;
    recman::AppendChange(j.files[0].changes, c);
    j.files[1].rel = "../other/b.dat";
    j.files[1].up = "../here";
    j.files[1].copy = true;
    body = recman::EncodeJournalBody(j);
    return body + recman::EncodeCommitRecord(j.id, body);
}

recman::JournalState Decode(const std::string& s) {
    recman::Journal out;
    return recman::DecodeJournal(reinterpret_cast<const uint8_t*>(s.data()), s.size(), out);
}

// A journal cut short anywhere, or with any bit flipped, never reads as
// committed; cut at the end of its body it reads as written but uncommitted.
TEST(JournalFormat, OnlyAWholeJournalIsCommitted) {
    recman::Journal j;
    std::string body, whole = Committed(j, body);
    recman::Journal back;
    ASSERT_EQ(
        recman::DecodeJournal(reinterpret_cast<const uint8_t*>(whole.data()), whole.size(), back),
        recman::JournalState::Committed);
    EXPECT_EQ(back.id, j.id);
    ASSERT_EQ(back.files.size(), 2u);
    EXPECT_EQ(back.files[1].rel, "../other/b.dat");
    EXPECT_TRUE(back.files[1].copy);
    EXPECT_EQ(back.files[0].changes, j.files[0].changes);
    for (size_t n = 0; n < whole.size(); ++n)
        EXPECT_EQ(Decode(whole.substr(0, n)), n < body.size() ? recman::JournalState::Unreadable
                                                              : recman::JournalState::Uncommitted)
            << "cut at " << n;
    for (size_t i = 0; i < whole.size(); ++i) {
        std::string bad = whole;
        bad[i] = char(bad[i] ^ (1 << (i % 8)));
        EXPECT_NE(Decode(bad), recman::JournalState::Committed) << "bit flipped in byte " << i;
    }
    // Another journal's commit record does not commit this one. What
    // follows a commit record (a reused file's old bytes) does not count;
    // a journal marked retired counts for nothing.
    recman::Journal other;
    std::string otherBody, otherWhole = Committed(other, otherBody);
    EXPECT_EQ(Decode(body + recman::EncodeCommitRecord(other.id, body)),
              recman::JournalState::Uncommitted);
    EXPECT_EQ(Decode(whole + otherWhole), recman::JournalState::Committed);
    EXPECT_EQ(Decode(body + otherWhole), recman::JournalState::Uncommitted);
    EXPECT_EQ(Decode("RMJ-" + whole.substr(4)), recman::JournalState::Retired);
}

class JournalTest : public ::testing::Test {
  protected:
    void SetUp() override { l.Create(); }
    void TearDown() override {
        unsetenv("RECMAN_FAULT");
        unsetenv("RECMAN_MAP_RESERVE_MB");
    }
    std::vector<std::string> Problems(int i) {
        std::vector<std::string> problems;
        EXPECT_EQ(recman::CheckFile(l.Path(i), problems), RM_OK);
        return problems;
    }
    rmtest::TempDir dir;
    Ledger l{dir.path(), 2};
};

// A disk that fills up on the second file ends the transaction with the
// status, and both files are as before.
TEST_F(JournalTest, FullDiskOnTheSecondFile) {
    std::string big = dir.File("big.dat");
    setenv("RECMAN_MAP_RESERVE_MB", "1", 1);
    ASSERT_EQ(rmtest::CreateFile(
                  big, rmtest::Spec(8, {{{1, 4, EXT, RM_TYPE_INTEGER}}}, RM_FILE_VAR_LENGTH)),
              RM_OK);
    std::string before0 = rmtest::Image(l.Path(0)), beforeBig = rmtest::Image(big);
    Handle a(1), b(1);
    ASSERT_EQ(a.Open(l.Path(0)), RM_OK);
    ASSERT_EQ(b.Open(big), RM_OK);
    ASSERT_EQ(rmtest::Txn(RM_BEGIN_TRANSACTION + RM_CONCURRENT, a.client()), RM_OK);
    std::vector<uint8_t> rec;
    rmtest::Put32(a.key(), 1);
    ASSERT_EQ(a.Get(RM_GET_EQUAL, 0, rec, nullptr, 16), RM_OK);
    rec[4] ^= 1;
    ASSERT_EQ(a.Update(rec), RM_OK);
    int16_t st = RM_OK;
    for (uint32_t i = 1; st == RM_OK && i < 10000; ++i) {
        std::vector<uint8_t> r(20000, uint8_t(i));
        rmtest::Put32(r.data(), i);
        st = b.Insert(r);
    }
    ASSERT_EQ(st, RM_DISK_FULL);
    EXPECT_EQ(rmtest::Txn(RM_END_TRANSACTION, a.client()), RM_DISK_FULL);
    EXPECT_EQ(rmtest::Image(l.Path(0)), before0);
    EXPECT_EQ(rmtest::Image(big), beforeBig);
    EXPECT_TRUE(rmtest::JournalsIn(dir.path()).empty());
}

// A journal that cannot be written (the disk full) ends the transaction with
// the status, leaves every file as it was and nothing beside them, and the
// files are free for the next transaction.
TEST_F(JournalTest, JournalThatCannotBeWritten) {
    NEED_FAULTS();
    LedgerClient c(l, 1);
    ASSERT_EQ(c.Open(), RM_OK);
    std::string before0 = rmtest::Image(l.Path(0)), before1 = rmtest::Image(l.Path(1));
    setenv("RECMAN_FAULT", "fail:journal-write", 1);
    EXPECT_EQ(c.Transfer(0), RM_DISK_FULL);
    unsetenv("RECMAN_FAULT");
    EXPECT_EQ(rmtest::Image(l.Path(0)), before0);
    EXPECT_EQ(rmtest::Image(l.Path(1)), before1);
    EXPECT_TRUE(rmtest::JournalsIn(dir.path()).empty());
    EXPECT_EQ(c.Transfer(0), RM_OK);
    ASSERT_EQ(rmtest::Audit(l, {0}), "");
}

// A transaction that changed one file commits it directly, even when it
// read others: a process told to die once its journal is written lives on
// past it, and dies in the next transaction, which changes two files.
TEST_F(JournalTest, OneChangedFileTakesNoJournal) {
    NEED_FAULTS();
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        setenv("RECMAN_FAULT", "journal", 1);
        Handle a(1), b(1);
        if (a.Open(l.Path(0)) || b.Open(l.Path(1))) _exit(2);
        if (rmtest::Txn(RM_BEGIN_TRANSACTION, a.client())) _exit(3);
        std::vector<uint8_t> rec;
        if (b.Get(RM_GET_FIRST, 0, rec, nullptr, 16)) _exit(4);  // takes file 1 unchanged
        for (uint32_t id = 1; id <= 3; ++id) {
            rmtest::Put32(a.key(), id);
            if (a.Get(RM_GET_EQUAL, 0, rec, nullptr, 16) || a.Update(rec)) _exit(5);
        }
        if (rmtest::Txn(RM_END_TRANSACTION, a.client())) _exit(6);
        if (write(fds[1], "1", 1) != 1) _exit(9);
        LedgerClient c(l, 2);
        if (c.Open()) _exit(7);
        c.Transfer(0);  // the fault ends the process here
        _exit(8);
    }
    close(fds[1]);
    char ended = 0;
    EXPECT_EQ(read(fds[0], &ended, 1), 1) << "the one-file transaction did not end";
    close(fds[0]);
    EXPECT_EQ(rmtest::ExitCode(pid), kKilled);
}

// Bytes that are no journal, or a journal cut short, beside a file are
// discarded by the next open, which leaves the file as it was.
TEST_F(JournalTest, DamagedJournalsAreDiscarded) {
    std::string before0 = rmtest::Image(l.Path(0)), before1 = rmtest::Image(l.Path(1));
    recman::Journal j;
    std::string body, whole = Committed(j, body);
    std::mt19937 rng(7);
    std::string noise(300, 0);
    for (char& ch : noise)
        ch = char(rng());
    std::ofstream(l.Path(0) + "-journal0") << noise;
    std::ofstream(l.Path(1) + "-journal1") << whole.substr(0, body.size() / 2);
    std::ofstream(l.Path(1) + "-journal0");  // empty
    ASSERT_EQ(Problems(0).size(), 1u);
    ASSERT_EQ(Problems(1).size(), 2u);
    Handle a, b;
    EXPECT_EQ(a.Open(l.Path(0)), RM_OK);
    EXPECT_EQ(b.Open(l.Path(1)), RM_OK);
    EXPECT_TRUE(rmtest::JournalsIn(dir.path()).empty());
    EXPECT_EQ(rmtest::Image(l.Path(0)), before0);
    EXPECT_EQ(rmtest::Image(l.Path(1)), before1);
    EXPECT_TRUE(Problems(0).empty());
}

// A committed journal never applies to a file that has since become
// something else (here, restored from a copy taken before): the file is
// refused until someone looks into it, and the check says why.
TEST_F(JournalTest, JournalForAnotherStateOfTheFileIsRefused) {
    NEED_FAULTS();
    std::string copy = dir.File("copy.dat");
    fs::copy_file(l.Path(1), copy);
    {
        LedgerClient c(l, 1);
        ASSERT_EQ(c.Open(), RM_OK);
        ASSERT_EQ(c.Transfer(0), RM_OK);
    }
    ASSERT_EQ(rmtest::RunTransfers(l, 1, "commit"), kKilled);
    fs::remove(l.Path(1) + "-lock");
    fs::copy_file(copy, l.Path(1), fs::copy_options::overwrite_existing);
    std::vector<std::string> problems = Problems(1);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_NE(problems[0].find("another state"), std::string::npos) << problems[0];
    Handle b;
    EXPECT_EQ(b.Open(l.Path(1)), RM_IO_ERROR);
    // The transaction is committed: file 0 took its part with that open.
    EXPECT_EQ(rmtest::JournalsIn(dir.path()), std::vector<std::string>{"book1.dat-journal0"});
    EXPECT_TRUE(Problems(0).empty());
}

// Journals travel with their folder: moved whole, the next open of one file
// finishes every file at the new place.
TEST_F(JournalTest, MovedFolderKeepsItsJournals) {
    NEED_FAULTS();
    uint32_t n = rmtest::TransferOver(2, 2);
    ASSERT_EQ(rmtest::RunTransfers(l, n, "commit"), kKilled);
    rmtest::TempDir there;
    std::string moved = there.path() + "/company";
    fs::rename(dir.path(), moved);
    Ledger m(moved, 2);
    EXPECT_EQ(rmtest::OpenInChild(m, 1), RM_OK);
    EXPECT_TRUE(rmtest::JournalsIn(moved).empty());
    ASSERT_EQ(rmtest::Audit(m, {n}), "");
    fs::rename(moved, dir.path());  // for the folder's own cleanup
}

// With the files on two file systems the second has a copy of the journal:
// committed, it finishes from either side; not committed there, it follows
// the journal it copies.
TEST(JournalTwoFileSystems, CopyFollowsTheJournal) {
    NEED_FAULTS();
    rmtest::TempDir local;
    std::string shm = "/dev/shm/rmtest-" + std::to_string(getpid());
    struct stat a {
    }, b{};
    if (::stat("/dev/shm", &b) != 0 || ::stat(local.path().c_str(), &a) != 0 ||
        a.st_dev == b.st_dev)
        GTEST_SKIP() << "no second file system";
    for (const char* step : {"commit", "copies", "journal"}) {
        fs::remove_all(shm);
        fs::create_directory(shm);
        Ledger l({local.File("book0.dat"), shm + "/book1.dat"});
        l.Create();
        uint32_t n = rmtest::TransferOver(2, 2);
        ASSERT_EQ(rmtest::RunTransfers(l, n, step), kKilled) << step;
        EXPECT_EQ(rmtest::JournalsIn(shm).size(), 1u) << step;
        EXPECT_EQ(rmtest::OpenInChild(l, 1), RM_OK) << step;
        std::set<uint32_t> present;
        ASSERT_EQ(rmtest::Audit(l, {}, &present), "") << step;
        EXPECT_EQ(present.count(n), std::string(step) != "journal" ? 1u : 0u) << step;
    }
    fs::remove_all(shm);
}

// Where commits flush their data but not the meta page, a journal stays
// beside its files until each file's next flushed commit (it can redo the
// file's last commit after a stopped machine); an open removes it too. It is
// no problem for the consistency check. Without flushing it goes at once.
TEST_F(JournalTest, JournalsStayUntilTheNextFlushedCommit) {
    setenv("RECMAN_SYNC", "normal", 1);
    {
        LedgerClient c(l, 1);
        ASSERT_EQ(c.Open(), RM_OK);
        Handle one(2);
        ASSERT_EQ(one.Open(l.Path(1)), RM_OK);
        ASSERT_EQ(c.Transfer(0), RM_OK);
        EXPECT_EQ(rmtest::JournalsIn(dir.path()).size(), 2u);
        EXPECT_TRUE(Problems(0).empty());
        EXPECT_TRUE(Problems(1).empty());
        ASSERT_EQ(c.Transfer(1), RM_OK);  // the first goes, the second stays
        EXPECT_EQ(rmtest::JournalsIn(dir.path()).size(), 2u);
        std::vector<uint8_t> rec(16, 0);
        rmtest::Put32(rec.data(), 500);
        ASSERT_EQ(one.Insert(rec), RM_OK);  // file 1's goes with this commit
        std::vector<std::string> left = rmtest::JournalsIn(dir.path());
        ASSERT_EQ(left.size(), 1u);
        EXPECT_EQ(left[0].rfind("book0.dat-journal", 0), 0u) << left[0];
    }
    {
        Handle reopen(3);
        ASSERT_EQ(reopen.Open(l.Path(0)), RM_OK);
        EXPECT_TRUE(rmtest::JournalsIn(dir.path()).empty());
    }
    setenv("RECMAN_SYNC", "off", 1);
    LedgerClient c(l, 1);
    ASSERT_EQ(c.Open(), RM_OK);
    ASSERT_EQ(c.Transfer(2), RM_OK);
    EXPECT_TRUE(rmtest::JournalsIn(dir.path()).empty());
}

}  // namespace
