// The engine outside any file: resetting one client, the version report,
// where temporary files go, and transactions of client numbers.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

using dbtest::Customer;

class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(rmtest::CreateFile(path, dbtest::CustomerSpec()), RM_OK);
        CDbFile::PersistentLocking(false);
    }
    void TearDown() override {
        CDbFile::PersistentLocking(true);
        CDbFile::m_bInTransaction = 0;
    }
    uint32_t CountSeenByAnother() {
        rmtest::Handle h(40);
        uint32_t n = 0;
        if (h.Open(path) != RM_OK || h.RecordCount(n) != RM_OK) return 9999;
        return n;
    }
    rmtest::TempDir dir;
    std::string path = dir.File("items.dat");
    dbtest::MessageLog log;
};

TEST_F(EngineTest, ResetReleasesOneClientQuietly) {
    Customer held(path, 3), other(path, 4);
    ASSERT_EQ(held.Open(nullptr), 0);
    ASSERT_EQ(other.Open(nullptr), 0);
    ASSERT_EQ(held.Add(1), 0);
    ASSERT_EQ(held.Find(1, 1), 0);
    other.SetErrOverride(1);
    EXPECT_EQ(other.Find(1, 1), 84);
    EXPECT_EQ(CDbFile::ResetBTI(3), 0);
    EXPECT_EQ(other.Find(1, 1), 0);
    EXPECT_TRUE(log.Take().empty());
    // The reset client's handle is gone.
    EXPECT_EQ(held.Find(1), 3);
    log.Take();
}

TEST_F(EngineTest, VersionReport) {
    CStringArray lines;
    // The engine has no remote part (version 0): old, unless allowed.
    EXPECT_EQ(CDbFile::BtrvVersion(nullptr, lines, 0), -1);
    ASSERT_EQ(lines.GetSize(), 3);
    EXPECT_EQ(lines[0], "8.0\tClient Requester");
    EXPECT_EQ(lines[1], "8.0\tLinux Server");
    EXPECT_EQ(std::string(lines[2]).substr(0, 12), "0.0\tUnknown ");
    EXPECT_EQ(CDbFile::BtrvVersion(path.c_str(), lines, 1), 8);
    EXPECT_EQ(lines.GetSize(), 6);
}

TEST_F(EngineTest, TemporaryFilesPlaceIsDecidedOnce) {
    const char* before = getenv("TMPDIR");
    std::string saved = before ? before : "";
    bool first = TheDbFileApp().UseSystemTemp();
    setenv("TMPDIR", dir.File("no/such/dir").c_str(), 1);
    EXPECT_EQ(TheDbFileApp().UseSystemTemp(), first);
    if (before)
        setenv("TMPDIR", saved.c_str(), 1);
    else
        unsetenv("TMPDIR");
}

TEST_F(EngineTest, TransactionsBelongToTheirClient) {
    Customer mine(path, 0);
    ASSERT_EQ(mine.Open(nullptr), 0);
    ASSERT_EQ(mine.Add(1), 0);
    // Seen by others only once ended.
    EXPECT_EQ(BeginTransaction(HWND(nullptr)), 1);
    EXPECT_EQ(CDbFile::TransactionInProgress(), 1);
    ASSERT_EQ(mine.Add(2), 0);
    ASSERT_EQ(mine.Add(3), 0);
    EXPECT_EQ(CountSeenByAnother(), 1u);
    EXPECT_EQ(EndTransaction(HWND(nullptr)), 1);
    EXPECT_EQ(CDbFile::TransactionInProgress(), 0);
    EXPECT_EQ(CountSeenByAnother(), 3u);
    // Aborted: the file as it was.
    ASSERT_EQ(CDbFile::BeginExclusiveTransaction(short(0)), 0);
    ASSERT_EQ(mine.Add(4), 0);
    ASSERT_EQ(mine.Find(1), 0);
    ASSERT_EQ(mine.Delete(nullptr), 0);
    EXPECT_EQ(AbortTransaction(HWND(nullptr)), 1);
    EXPECT_EQ(CDbFile::TransactionInProgress(), 0);
    EXPECT_EQ(CountSeenByAnother(), 3u);
    EXPECT_EQ(mine.Find(1), 0);
    EXPECT_EQ(mine.Find(4), 9);
    EXPECT_TRUE(log.Take().empty());

    // Another client's transaction is not ended by client 0's end, and the
    // failure leaves the flag set.
    Customer other(path, 5);
    ASSERT_EQ(other.Open(nullptr), 0);
    ASSERT_EQ(CDbFile::BeginTransaction(short(5)), 0);
    ASSERT_EQ(other.Add(6), 0);
    EXPECT_EQ(EndTransaction(HWND(nullptr)), 0);
    EXPECT_EQ(CDbFile::TransactionInProgress(), 1);
    std::string shown = log.TakeOne();
    EXPECT_NE(shown.find("Code:\\t39"), std::string::npos) << shown;
    // A second begin of the same client: 37, shown; the flag stays.
    EXPECT_EQ(CDbFile::BeginTransaction(short(5)), 37);
    EXPECT_EQ(CDbFile::TransactionInProgress(), 1);
    EXPECT_EQ(log.Take().size(), 1u);
    EXPECT_EQ(CountSeenByAnother(), 3u);
    EXPECT_EQ(CDbFile::EndTransaction(short(5)), 0);
    EXPECT_EQ(CDbFile::TransactionInProgress(), 0);
    EXPECT_EQ(CountSeenByAnother(), 4u);
}

}  // namespace
