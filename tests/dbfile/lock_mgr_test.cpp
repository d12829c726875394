// The record lock manager on a real file, edited by two client numbers of one
// process and by two processes: locking loads that find the record as it
// was shown or changed by the other side, saves, inserts and deletes by the
// remembered address, the comparison, copies, and misuse.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "dbtest.h"

namespace {

using dbtest::Customer;

class LockMgrTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // Locked records answer 84 at once instead of waiting.
        CDbFile::PersistentLocking(false);
        ASSERT_EQ(rmtest::CreateFile(path, dbtest::CustomerSpec()), RM_OK);
        ASSERT_EQ(editor.Open(nullptr), 0);
        ASSERT_EQ(other.Open(nullptr), 0);
        const char* names[] = {"Adams", "Baker", "Lee"};
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(editor.Add(10 * (i + 1), names[i]), 0);
        log.Take();
    }
    void TearDown() override { CDbFile::PersistentLocking(true); }

    // Shows record `id` to the editor: read without lock and remembered.
    void Show(int32_t id) {
        ASSERT_EQ(editor.Find(id), 0);
        ASSERT_EQ(mgr.LoadRcd(nullptr, &editor, 0), 1);
    }
    // The other client changes record `id`'s name.
    void OtherRenames(int32_t id, const char* newName) {
        ASSERT_EQ(other.Find(id), 0);
        other.name = newName;
        ASSERT_EQ(other.Update(nullptr), 0);
    }

    dbtest::MessageLog log;
    rmtest::TempDir dir;
    std::string path = dir.File("cust.dat");
    Customer editor{path, 1};
    Customer other{path, 2};
    CRcdLockMgr mgr;
};

// A locking load with checking on: unchanged, it locks against the other
// client and the save writes the members; changed by the other client, it is
// refused and leaves the other side's change in the file and in the members,
// and a reload starts the edit afresh.
TEST_F(LockMgrTest, LockingLoadSeesTheOtherClient) {
    struct Case {
        const char* what;
        bool otherChanges;
        int fileChecking;  // the file's own compare-on-lock as well
        int lastError;     // after the refused load
    } cases[] = {{"unchanged", false, 0, 0},
                 {"changed", true, 0, 0},
                 {"changed, file checking too", true, 1, RM_CONFLICT}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(editor.Find(20), 0);
        editor.SetLockChecking(c.fileChecking);
        mgr.SetLockChecking(1);
        Show(20);
        long shown = mgr.GetRcdAddr();
        if (!c.fileChecking) {  // the editor reads on elsewhere
            ASSERT_EQ(editor.Find(10), 0);
        }
        if (c.otherChanges) OtherRenames(20, "Other's edit");
        editor.name = "scribble";  // replaced by the locking read
        int reads = editor.reads;
        int loaded = mgr.LoadRcd(nullptr, &editor, 1);
        EXPECT_EQ(editor.reads, reads + 1);
        EXPECT_EQ(mgr.GetRcdAddr(), shown);
        if (c.otherChanges) {
            EXPECT_EQ(loaded, 0);
            EXPECT_EQ(editor.GetLastError(), c.lastError);
            EXPECT_EQ(dbtest::Statuses(log.Take()),
                      c.lastError ? std::vector<int>{c.lastError} : std::vector<int>{});
            EXPECT_EQ(editor.name, "Other's edit");
            EXPECT_EQ(other.Stored(20), "Other's edit");
            // Shown again, the record locks and is edited.
            Show(20);
            ASSERT_EQ(mgr.LoadRcd(nullptr, &editor, 1), 1);
        } else {
            EXPECT_EQ(loaded, 1);
            EXPECT_EQ(editor.name, "Baker");
        }
        // Locked: the other client can read it, but neither lock nor change it.
        EXPECT_EQ(other.Find(20, 1), RM_RECORD_LOCKED);
        ASSERT_EQ(other.Find(20), 0);
        other.name = "Too late";
        EXPECT_EQ(other.Update(nullptr), RM_RECORD_LOCKED);
        log.Take();
        // The save positions by address without the read hook, so the edit
        // in the members is what is written; it releases the lock.
        editor.name = "Editor's edit";
        reads = editor.reads;
        int writes = editor.writes;
        ASSERT_EQ(mgr.SaveRcd(nullptr, &editor, 0), 1);
        EXPECT_EQ(editor.reads, reads);
        EXPECT_EQ(editor.writes, writes + 1);
        EXPECT_EQ(other.Find(20, 1), 0);
        EXPECT_EQ(other.name, "Editor's edit");
        ASSERT_EQ(other.UnlockAll(nullptr), 0);
        OtherRenames(20, "Baker");
        EXPECT_TRUE(log.Take().empty());
    }
}

// With checking off a locking load is an unlocked one: it remembers the
// record and takes no lock, so a save then overwrites the other side.
TEST_F(LockMgrTest, WithoutCheckingNothingIsLockedOrCompared) {
    Show(30);
    ASSERT_EQ(editor.Find(10), 0);
    ASSERT_EQ(mgr.LoadRcd(nullptr, &editor, 1), 1);  // remembers record 10 now
    EXPECT_EQ(other.Find(10, 1), 0);
    ASSERT_EQ(other.UnlockAll(nullptr), 0);
    OtherRenames(10, "Other's edit");
    editor.name = "Editor's edit";
    ASSERT_EQ(mgr.SaveRcd(nullptr, &editor, 0), 1);
    EXPECT_EQ(other.Stored(10), "Editor's edit");
}

// A new record is inserted where the file stands, the remembered address
// kept; a delete goes to the remembered record wherever the file stands.
TEST_F(LockMgrTest, InsertAndDeletePaths) {
    Show(30);
    long remembered = mgr.GetRcdAddr();
    editor.id = 40;
    editor.name = "New";
    ASSERT_EQ(mgr.SaveRcd(nullptr, &editor, 1), 1);
    EXPECT_EQ(mgr.GetRcdAddr(), remembered);
    EXPECT_EQ(editor.GetRcdCount(), 4u);
    EXPECT_EQ(other.Stored(40), "New");
    // The same id again: refused by the unique key.
    ASSERT_EQ(mgr.SaveRcd(nullptr, &editor, 1), 0);
    EXPECT_EQ(editor.GetLastError(), 5);

    ASSERT_EQ(editor.Find(10), 0);
    ASSERT_EQ(mgr.DeleteRcd(nullptr, &editor), 1);
    EXPECT_EQ(other.Find(30), 9);
    EXPECT_EQ(other.Stored(10), "Adams");
    EXPECT_EQ(editor.GetRcdCount(), 3u);
    // Gone: neither a second delete nor a save finds it.
    EXPECT_EQ(mgr.DeleteRcd(nullptr, &editor), 0);
    EXPECT_EQ(editor.GetLastError(), RM_INVALID_RECORD_ADDRESS);
    EXPECT_EQ(mgr.SaveRcd(nullptr, &editor, 0), 0);
    // A record the other client holds is not deleted.
    Show(10);
    ASSERT_EQ(other.Find(10, 1), 0);
    EXPECT_EQ(mgr.DeleteRcd(nullptr, &editor), 0);
    EXPECT_EQ(editor.GetLastError(), RM_RECORD_LOCKED);
    EXPECT_EQ(dbtest::Statuses(log.Take()),
              (std::vector<int>{5, RM_INVALID_RECORD_ADDRESS, RM_INVALID_RECORD_ADDRESS,
                                RM_RECORD_LOCKED}));
    ASSERT_EQ(other.UnlockAll(nullptr), 0);
    EXPECT_EQ(mgr.DeleteRcd(nullptr, &editor), 1);
}

// Data longer than the copy counts as changed; a file without data keeps
// the copy; copies of a manager own their data.
TEST_F(LockMgrTest, ComparisonAndCopies) {
    EXPECT_EQ(mgr.BufferCompare(&editor), 0);  // nothing saved yet
    Show(20);
    EXPECT_EQ(mgr.BufferCompare(&editor), 1);
    ASSERT_EQ(editor.SetDataLen(33), 1);
    EXPECT_EQ(mgr.BufferCompare(&editor), 0);
    ASSERT_EQ(editor.SetDataLen(16), 1);
    EXPECT_EQ(mgr.BufferCompare(&editor), 1);  // the shorter data is as saved
    editor.RcdBuf()[5] ^= 1;
    EXPECT_EQ(mgr.BufferCompare(&editor), 0);
    editor.RcdBuf()[5] ^= 1;
    ASSERT_EQ(editor.SetDataLen(0), 1);
    ASSERT_EQ(mgr.LoadRcd(nullptr, &editor, 0), 1);
    ASSERT_EQ(editor.SetDataLen(32), 1);
    EXPECT_EQ(mgr.BufferCompare(&editor), 1);

    mgr.SetLockChecking(1);
    auto original = std::make_unique<CRcdLockMgr>(mgr);
    CRcdLockMgr assigned;
    CRcdLockMgr& same = assigned;
    assigned = *original;
    assigned = same;
    CRcdLockMgr copied(*original);
    Show(30);  // the first manager moves on
    original.reset();
    for (CRcdLockMgr* m : {&copied, &assigned}) {
        EXPECT_EQ(m->LockChecking(), 1);
        EXPECT_NE(m->GetRcdAddr(), mgr.GetRcdAddr());
        ASSERT_EQ(editor.Find(20), 0);
        EXPECT_EQ(m->BufferCompare(&editor), 1);
        EXPECT_EQ(m->LoadRcd(nullptr, &editor, 1), 1);
        EXPECT_EQ(editor.id, 20);
    }
}

// Misuse answers 0 and shows what the file says; nothing breaks.
TEST_F(LockMgrTest, ClosedOrMissingFiles) {
    mgr.SetLockChecking(1);
    for (int lock : {0, 1})
        EXPECT_EQ(mgr.LoadRcd(nullptr, nullptr, lock), 0);
    EXPECT_EQ(mgr.SaveRcd(nullptr, nullptr, 0), 0);
    EXPECT_EQ(mgr.DeleteRcd(nullptr, nullptr), 0);
    EXPECT_EQ(mgr.BufferCompare(nullptr), 0);
    // Never opened: no data to remember.
    Customer never(path);
    EXPECT_EQ(mgr.LoadRcd(nullptr, &never, 0), 0);
    EXPECT_EQ(mgr.BufferCompare(&never), 0);
    EXPECT_TRUE(log.Take().empty());
    EXPECT_EQ(mgr.SaveRcd(nullptr, &never, 0), 0);
    EXPECT_EQ(never.GetLastError(), RM_FILE_NOT_OPEN);
    // Shown, then closed.
    Show(20);
    ASSERT_EQ(editor.Close(nullptr), 0);
    EXPECT_EQ(mgr.LoadRcd(nullptr, &editor, 0), 0);
    EXPECT_EQ(mgr.LoadRcd(nullptr, &editor, 1), 0);
    EXPECT_EQ(mgr.SaveRcd(nullptr, &editor, 0), 0);
    EXPECT_EQ(mgr.SaveRcd(nullptr, &editor, 1), 0);
    EXPECT_EQ(mgr.DeleteRcd(nullptr, &editor), 0);
    EXPECT_EQ(editor.GetLastError(), RM_FILE_NOT_OPEN);
    auto shown = log.Take();
    EXPECT_EQ(dbtest::Statuses(shown), std::vector<int>(6, RM_FILE_NOT_OPEN));
    EXPECT_NE(shown.back().find("The file is not open."), std::string::npos);
    EXPECT_EQ(other.Stored(20), "Baker");
}

// The other side is another process: its change refuses the locking load,
// and the lock taken after a reload holds it off until the save.
TEST_F(LockMgrTest, TwoProcesses) {
    mgr.SetLockChecking(1);
    Show(20);
    auto elsewhere = [&](const char* newName, int lock) {
        return dbtest::InAnotherProcess([&] {
            CDbFile::PersistentLocking(false);
            Customer c(path);
            if (int st = c.Open(nullptr)) return st;
            if (int st = c.Find(20, lock)) return st;
            c.name = newName;
            return c.Update(nullptr);
        });
    };
    ASSERT_EQ(elsewhere("Changed elsewhere", 0), 0);
    EXPECT_EQ(mgr.LoadRcd(nullptr, &editor, 1), 0);
    EXPECT_EQ(editor.name, "Changed elsewhere");
    Show(20);
    ASSERT_EQ(mgr.LoadRcd(nullptr, &editor, 1), 1);
    EXPECT_EQ(elsewhere("Too late", 1), RM_RECORD_LOCKED);
    EXPECT_EQ(elsewhere("Too late", 0), RM_RECORD_LOCKED);
    editor.name = "Editor's edit";
    ASSERT_EQ(mgr.SaveRcd(nullptr, &editor, 0), 1);
    EXPECT_EQ(elsewhere("After the save", 1), 0);
    EXPECT_EQ(other.Stored(20), "After the save");
}

}  // namespace
