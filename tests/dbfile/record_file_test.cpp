// Record files on real engine files: navigation, positions, locks and the
// lock-wait retry, compare-on-lock, buffer growth, counts, and how statuses
// are folded, kept and shown.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "dbtest.h"

namespace {

using dbtest::Customer;
using dbtest::CustomerSpec;

// The description a dictionary would give: the customer file with its id key.
void Describe(CDbFile& f) {
    dbtest::Describe(f, {{"Id", 4, dbInteger}, {"Name", 20, dbZString}, {"Spare", 8, dbString}},
                     {{0, "Id", 0}});
}

class RecordFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(rmtest::CreateFile(path, CustomerSpec()), RM_OK);
        ASSERT_EQ(file.Open(nullptr, dbOpenNormal), 0);
        const char* names[] = {"Morgan", "Adams", "Lee", "Baker", "Ng"};
        for (int i = 0; i < 5; ++i)
            ASSERT_EQ(file.Add(10 * (i + 1), names[i]), 0);
        log.Take();
    }
    void TearDown() override { CDbFile::PersistentLocking(true); }

    // Another client, straight to the engine, holding a lock on record `id`.
    void HoldLock(rmtest::Handle& h, int32_t id) {
        ASSERT_EQ(h.Open(path), RM_OK);
        std::vector<uint8_t> rec;
        rmtest::Put32(h.key(), uint32_t(id));
        ASSERT_EQ(h.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_OK);
    }

    dbtest::MessageLog log;
    rmtest::TempDir dir;
    std::string path = dir.File("cust.dat");
    Customer file{path};
};

TEST_F(RecordFileTest, KeyAndPhysicalOrder) {
    std::vector<std::string> names;
    file.SetKey(1);
    for (int st = file.GetFirst(nullptr); st == 0; st = file.GetNext(nullptr))
        names.push_back(file.name);
    EXPECT_EQ(names, (std::vector<std::string>{"Adams", "Baker", "Lee", "Morgan", "Ng"}));
    EXPECT_EQ(file.GetNext(nullptr), 9);  // the end, folded and silent
    EXPECT_EQ(file.GetLastError(), 9);
    ASSERT_EQ(file.GetLast(nullptr), 0);
    EXPECT_EQ(file.name, "Ng");
    ASSERT_EQ(file.GetPrev(nullptr), 0);
    EXPECT_EQ(file.name, "Morgan");
    std::vector<int> ids;
    for (int st = file.StepFirst(nullptr); st == 0; st = file.StepNext(nullptr))
        ids.push_back(file.id);
    EXPECT_EQ(ids, (std::vector<int>{10, 20, 30, 40, 50}));
    ASSERT_EQ(file.StepLast(nullptr), 0);
    ASSERT_EQ(file.StepPrev(nullptr), 0);
    EXPECT_EQ(file.id, 40);
    // Searches by relation; not equal reads as equal.
    file.SetKey(0);
    int32_t k = 25;
    file.SetKey(&k, 4, 0);
    ASSERT_EQ(file.GetUsing(dbRelGreater, 0, 1), 0);
    EXPECT_EQ(file.id, 30);
    file.SetKey(&k, 4, 0);
    ASSERT_EQ(file.GetUsing(nullptr, dbRelLessEqual, 0, 1), 0);
    EXPECT_EQ(file.id, 20);
    k = 40;
    file.SetKey(&k, 4, 0);
    ASSERT_EQ(file.GetUsing(dbRelNotEqual, 0, 1), 0);
    EXPECT_EQ(file.id, 40);
    k = 41;
    file.SetKey(&k, 4, 0);
    EXPECT_EQ(file.GetEqual(nullptr, 0, 1), 9);  // 4 folded to 9
    EXPECT_TRUE(log.Take().empty());
    // A position comes back to its record.
    ASSERT_EQ(file.Find(30), 0);
    long address = 0;
    ASSERT_EQ(file.GetPosition(address), 0);
    ASSERT_EQ(file.GetFirst(nullptr), 0);
    ASSERT_EQ(file.SetPosition(address, 0, 1), 0);
    EXPECT_EQ(file.id, 30);
    EXPECT_EQ(file.GetNext(nullptr), 0);  // current in key 0's order
    EXPECT_EQ(file.id, 40);
}

TEST_F(RecordFileTest, ChangesAndCounts) {
    EXPECT_EQ(file.GetRcdCount(), 5u);
    ASSERT_EQ(file.Add(60, "Young"), 0);
    EXPECT_EQ(file.GetRcdCount(), 6u);
    ASSERT_EQ(file.Find(20), 0);
    ASSERT_EQ(file.Delete(nullptr), 0);
    EXPECT_EQ(file.GetRcdCount(), 5u);
    ASSERT_EQ(file.Find(30), 0);
    file.name = "Li";
    ASSERT_EQ(file.Update(nullptr), 0);
    EXPECT_EQ(file.GetRcdCount(), 5u);
    ASSERT_EQ(file.Find(30), 0);
    EXPECT_EQ(file.name, "Li");
    // Browser mode leaves the hooks out: the buffer goes as it stands.
    EXPECT_EQ(file.SetBrowser(1), 0);
    int reads = file.reads;
    ASSERT_EQ(file.Find(40), 0);
    EXPECT_EQ(file.reads, reads);
    std::memcpy(file.RcdBuf() + 4, "Raw", 4);
    ASSERT_EQ(file.Update(nullptr), 0);
    file.SetBrowser(0);
    ASSERT_EQ(file.Find(40), 0);
    EXPECT_EQ(file.name, "Raw");
}

TEST_F(RecordFileTest, StatusesAreKeptAndShown) {
    EXPECT_EQ(file.Add(10, "Again"), 5);
    EXPECT_EQ(file.GetLastError(), 5);
    EXPECT_EQ(log.TakeOne(),
              "5|File:\\t" + path +
                  "\\nCode:\\t5\\n\\nMessage:\\nThe record has a key field containing a "
                  "duplicate key value.");
    // With the override the status is kept and returned, not shown.
    file.SetErrOverride(1);
    EXPECT_EQ(file.Add(10, "Again"), 5);
    EXPECT_TRUE(log.Take().empty());
    file.ClearError();
    EXPECT_EQ(file.GetLastError(), 0);
    file.SetErrOverride(0);
    // A key buffer shorter than the key: 21 with its own sentence.
    Customer other(dir.File("missing.dat"));
    EXPECT_EQ(other.Open(nullptr, dbOpenNormal), 12);
    EXPECT_NE(log.TakeOne().find("Btrieve cannot find the specified file."), std::string::npos);
    // Without the common library nothing is shown, and nothing fails.
    setenv("DBFILE_COMMON_LIB", "libno-such-library.so", 1);
    EXPECT_EQ(file.Add(10, "Again"), 5);
    setenv("DBFILE_COMMON_LIB", DBFILE_TEST_COMMON_LIB, 1);
    EXPECT_TRUE(log.Take().empty());
    // A message function that fails: the text goes to a message box with the
    // exclamation icon, owned by the window that had the focus.
    {
        dbtest::TestHost host;
        setenv("DBFILE_TEST_MESSAGE_THROW", "1", 1);
        EXPECT_EQ(file.Add(10, "Again"), 5);
        EXPECT_EQ(ShowMessage(15, kMsgError, "cust"), 7);  // the box's answer
        unsetenv("DBFILE_TEST_MESSAGE_THROW");
        ASSERT_EQ(host.boxes.size(), 2u);
        EXPECT_EQ(host.boxes[0].owner, host.focus);
        EXPECT_EQ(host.boxes[0].caption, "File System Notification");
        EXPECT_EQ(host.boxes[0].style, 0x30u);
        EXPECT_NE(host.boxes[0].text.find("Code:\t5"), std::string::npos);
        EXPECT_EQ(host.boxes[1].text,
                  "No entry exists in the Data Dictionary file for cust. Cannot continue.");
    }
    // A layout the common library fails on comes back empty.
    CString out = "old";
    EXPECT_STREQ(CDbFile::FormatAccount(out, "throw"), "");
}

TEST_F(RecordFileTest, LockWaitRetriesUntilReleased) {
    dbtest::TestHost host;
    rmtest::Handle holder(9);
    HoldLock(holder, 30);
    // The holder lets go once the dialog has shown its third attempt.
    host.onAttempt = [&](int n) {
        if (n != 3) return;
        uint32_t len = 0;
        BTRCALLID(RM_UNLOCK, holder.pos(), nullptr, &len, holder.key(), 255, RM_UNLOCK_ALL_MULTI,
                  holder.client());
    };
    EXPECT_EQ(file.Find(30, 1), 0);
    EXPECT_EQ(file.id, 30);
    EXPECT_EQ(host.attempts, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(host.fileShown, path);
    EXPECT_EQ(host.dialogsOpen, 0);
    EXPECT_TRUE(host.mainEnabled);
    EXPECT_TRUE(log.Take().empty());
}

TEST_F(RecordFileTest, LockWaitCancelledOrOff) {
    dbtest::TestHost host;
    rmtest::Handle holder(9);
    HoldLock(holder, 20);
    host.cancelOnAttempt = 2;
    EXPECT_EQ(file.Find(20, 1), 84);
    EXPECT_EQ(host.attempts, (std::vector<int>{1, 2}));
    std::string shown = log.TakeOne();
    EXPECT_NE(shown.find("The record or page is locked. Someone else may be editing this "
                         "record, or the record may be locked by some other process. Please "
                         "try again later."),
              std::string::npos);
    EXPECT_EQ(shown.substr(0, 2), "5|");
    EXPECT_TRUE(host.mainEnabled);
    // Lock-wait off: 84 at once, no dialog.
    EXPECT_TRUE(CDbFile::PersistentLocking(false));
    int before = host.dialogsCreated;
    EXPECT_EQ(file.Find(20, 1), 84);
    EXPECT_EQ(host.dialogsCreated, before);
    EXPECT_EQ(host.attempts.size(), 2u);
    EXPECT_FALSE(CDbFile::PersistentLocking(true));
    // A dialog that cannot be made gives 84 at once too.
    host.failCreate = true;
    EXPECT_EQ(file.Find(20, 1), 84);
    // Reading without a lock is never refused.
    EXPECT_EQ(file.Find(20), 0);
}

TEST_F(RecordFileTest, CompareOnLock) {
    file.SetLockChecking(1);
    ASSERT_EQ(file.Find(40), 0);  // shown to the user: the copy is kept
    rmtest::Handle other(3);
    ASSERT_EQ(other.Open(path), RM_OK);
    std::vector<uint8_t> rec;
    rmtest::Put32(other.key(), 40);
    ASSERT_EQ(other.Get(RM_GET_EQUAL, 0, rec), RM_OK);
    std::memcpy(&rec[4], "Changed", 8);
    ASSERT_EQ(other.Update(rec), RM_OK);
    // Lock finds the change: 80, no lock left, the old copy kept.
    EXPECT_EQ(file.Lock(nullptr), 80);
    EXPECT_EQ(file.name, "Changed");  // the record was read all the same
    ASSERT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_OK);
    uint32_t len = 0;
    ASSERT_EQ(other.Call(RM_UNLOCK, nullptr, &len, other.key(), RM_UNLOCK_ALL_MULTI), RM_OK);
    EXPECT_EQ(file.Lock(nullptr), 80);  // still compared with the old copy
    auto shown = log.Take();
    ASSERT_FALSE(shown.empty());
    EXPECT_NE(shown[0].find("Btrieve encountered a record-level conflict."), std::string::npos);
    // A locking logical read finds the change too, and leaves no lock, but
    // takes the fresh record as the copy: the second one passes and keeps
    // its lock.
    EXPECT_EQ(file.Find(40, 1), 80);
    ASSERT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_OK);
    ASSERT_EQ(other.Call(RM_UNLOCK, nullptr, &len, other.key(), RM_UNLOCK_ALL_MULTI), RM_OK);
    EXPECT_EQ(file.Find(40, 1), 0);
    EXPECT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_RECORD_LOCKED);
    file.UnlockAll(nullptr);
    // A record nobody changed locks and stays locked.
    ASSERT_EQ(file.Find(50), 0);
    EXPECT_EQ(file.Lock(nullptr), 0);
    rmtest::Put32(other.key(), 50);
    EXPECT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_RECORD_LOCKED);
    // Update releases the lock it held.
    file.name = "Ngo";
    ASSERT_EQ(file.Update(nullptr), 0);
    EXPECT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_OK);
}

TEST_F(RecordFileTest, ExclusiveOpenTakesNoLocks) {
    Customer excl(dir.File("excl.dat"));
    ASSERT_EQ(rmtest::CreateFile(dir.File("excl.dat"), CustomerSpec()), RM_OK);
    ASSERT_EQ(excl.Open(nullptr, dbOpenExclusive), 0);
    EXPECT_EQ(excl.IsExclusive(), 2);
    ASSERT_EQ(excl.Add(1, "One"), 0);
    excl.SetLockChecking(1);
    ASSERT_EQ(excl.Find(1, 1), 0);
    EXPECT_EQ(excl.Unlock(1L), 0);
    EXPECT_EQ(excl.UnlockAll(nullptr), 0);
    // A second handle would be shut out anyway, so the proof is that a
    // single-record lock asked for afterwards does not meet a multiple one.
    EXPECT_EQ(excl.Find(1, 1), 0);
}

TEST_F(RecordFileTest, VariableLengthGrowthAndFixedLength22) {
    std::string var = dir.File("var.dat");
    ASSERT_EQ(rmtest::CreateFile(var, CustomerSpec(RM_FILE_VAR_LENGTH)), RM_OK);
    Customer v(var);
    ASSERT_EQ(v.Open(nullptr, dbOpenNormal), 0);
    EXPECT_GE(v.GetRcdBufLen(), 32);
    v.SetBrowser(1);
    v.SetDataLen(20000);
    std::memset(v.RcdBuf(), 'x', 20000);
    int32_t one = 1;
    std::memcpy(v.RcdBuf(), &one, 4);
    std::memcpy(v.RcdBuf() + 4, "Big", 4);
    ASSERT_EQ(v.Insert(nullptr), 0);
    ASSERT_EQ(v.Close(nullptr), 0);
    ASSERT_EQ(v.Open(nullptr, dbOpenNormal), 0);
    v.SetBrowser(0);
    unsigned short start = v.GetRcdBufLen();
    ASSERT_EQ(v.GetFirst(nullptr), 0);
    EXPECT_EQ(v.GetBytesRead(), 20000);
    EXPECT_EQ(v.name, "Big");
    EXPECT_EQ((v.GetRcdBufLen() - start) % 4096, 0);
    EXPECT_GE(v.GetRcdBufLen(), 20000);
    EXPECT_LT(v.GetRcdBufLen(), 20000 + 4096);

    // An update the engine refuses with 22 becomes a delete and an insert;
    // when the insert fails too (the record is shorter than the fixed part),
    // the old record is still there.
    struct Shrunk : Customer {
        using Customer::Customer;
        void OnWriteRecord() override { SetDataLen(10); }
    } s(var);
    ASSERT_EQ(s.Open(nullptr, dbOpenNormal), 0);
    ASSERT_EQ(s.GetFirst(nullptr), 0);
    unsigned long count = s.GetRcdCount();
    EXPECT_EQ(s.Update(nullptr), 22);
    EXPECT_EQ(s.GetRcdCount(), count);
    ASSERT_EQ(v.GetFirst(nullptr), 0);
    EXPECT_EQ(v.GetBytesRead(), 20000);
    EXPECT_EQ(v.name, "Big");
    log.Take();

    // A fixed-length file whose record no longer fits: 22, not growth.
    file.SetRcdBufLen(16);
    EXPECT_EQ(file.GetFirst(nullptr), 22);
    EXPECT_NE(
        log.TakeOne().find("The data buffer parameter is too short.  Possible cause: the file's "
                           "layout was changed after Vexa was built."),
        std::string::npos);
}

TEST_F(RecordFileTest, OpenModesAndClientNumbers) {
    EXPECT_EQ(file.Open(nullptr, dbOpenExclusive), 0);  // already open: nothing changes
    EXPECT_EQ(file.GetOpenMode(), dbOpenNormal);
    file.SetClientId(4);
    EXPECT_EQ(file.ClientId(), 0);
    ASSERT_EQ(file.Close(nullptr), 0);
    file.SetClientId(4);
    EXPECT_EQ(file.ClientId(), 4);
    ASSERT_EQ(file.Open(nullptr, dbOpenReadOnly), 0);
    EXPECT_EQ(file.Add(70, "Nope"), 46);
    ASSERT_EQ(file.Close(nullptr), 0);
    // The create flag alone opens nothing new; with an access mode it creates.
    std::string fresh = dir.File("fresh.dat");
    Customer c(fresh);
    Describe(c);
    c.SetErrOverride(1);
    EXPECT_EQ(c.Open(nullptr, dbOpenCreate), 12);
    EXPECT_EQ(c.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
    EXPECT_EQ(c.Add(1, "First"), 0);
    EXPECT_EQ(c.GetRcdLength(), 32);
}

TEST_F(RecordFileTest, OwnerNames) {
    ASSERT_EQ(file.SetOwner("boss", 0), 0);
    ASSERT_EQ(file.Close(nullptr), 0);
    file.SetErrOverride(1);
    EXPECT_EQ(file.Open(nullptr, dbOpenNormal), 46);
    char owner[] = "boss";
    ASSERT_EQ(file.Open(nullptr, dbOpenNormal, owner), 0);
    EXPECT_EQ(file.ClearOwner(nullptr), 0);
    ASSERT_EQ(file.Close(nullptr), 0);
    EXPECT_EQ(file.Open(nullptr, dbOpenNormal), 0);
}

TEST_F(RecordFileTest, TemporaryFilesGoWithCloseTemp) {
    Customer temp("cust.dat");
    Describe(temp);
    std::strcpy(temp.m_FileDat.FileName, "cust.dat");
    CDbFile::SetSysDataPath(dir.path().c_str());
    CDbFile::SetDataPath(dir.path().c_str());
    ASSERT_EQ(temp.OpenTemp(nullptr), 0);
    std::string made = temp.FileName();
    EXPECT_NE(made.find("/DAT"), std::string::npos);
    EXPECT_EQ(temp.IsExclusive(), 2);
    ASSERT_EQ(temp.Add(1, "Temp"), 0);
    EXPECT_EQ(access(made.c_str(), F_OK), 0);
    ASSERT_EQ(temp.CloseTemp(), 0);
    EXPECT_NE(access(made.c_str(), F_OK), 0);
    // Under its own name it is only closed, and so is a file that has no
    // dictionary name at all.
    for (const char* dictName : {"cust.dat", ""}) {
        ASSERT_EQ(file.Open(nullptr, dbOpenNormal), 0);
        std::strcpy(file.m_FileDat.FileName, dictName);
        ASSERT_EQ(file.CloseTemp(), 0);
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(access(path.c_str(), F_OK), 0) << "removed with name '" << dictName << "'";
    }
    dbtest::ResetLibrary();
}

}  // namespace

namespace {

// Copies own their record buffer and comparison copy (ASan sees any buffer
// released twice).
TEST(RecordFileCopy, BuffersBelongToEachCopy) {
    CDbFile a("x.dat", nullptr, 1);
    a.SetDataLen(10);
    std::memcpy(a.RcdBuf(), "abcdefghi", 10);
    a.SaveDataForCompare();
    {
        CDbFile b(a);
        EXPECT_NE(b.RcdBuf(), a.RcdBuf());
        EXPECT_STREQ(b.RcdBuf(), "abcdefghi");
        EXPECT_EQ(b.IsDataChanged(), 0);
        b.RcdBuf()[0] = 'z';
    }
    EXPECT_EQ(a.RcdBuf()[0], 'a');
    CDbFile c("y.dat", nullptr, 1);
    c = a;
    EXPECT_STREQ(c.FileName(), "x.dat");
    EXPECT_EQ(c.IsDataChanged(), 0);
}

}  // namespace
