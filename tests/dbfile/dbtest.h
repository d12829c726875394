// Helpers for the library's tests: the message log of the test common
// library, a user interface host that records and can cancel, and files.
#pragma once

#include <dbfile/dbfile.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "rm_util.h"

namespace dbtest {

// Points the library at the test common library and a fresh message log.
class MessageLog {
  public:
    MessageLog();
    ~MessageLog();
    // The messages shown since the last call: "kind|text" each.
    std::vector<std::string> Take();
    // The one message shown since the last call; "" unless there was one.
    std::string TakeOne();

  private:
    std::string path_;
};

// A host with a main window, that records what the lock-wait dialog shows
// and presses Cancel on a chosen attempt.
class TestHost : public HeadlessUiHost {
  public:
    TestHost();
    ~TestHost() override;
    HWND MainWindow() override { return main_; }
    bool IsWindow(HWND w) override { return w == main_ || HeadlessUiHost::IsWindow(w); }
    bool IsWindowEnabled(HWND w) override {
        return w == main_ ? mainEnabled : HeadlessUiHost::IsWindowEnabled(w);
    }
    void EnableWindow(HWND w, bool on) override;
    HWND CreateDialog(unsigned templateId, HWND owner, DialogEvents* events) override;
    void SetItemText(HWND dialog, int item, const char* text) override;
    void SetItemInt(HWND dialog, int item, int value) override;
    void DestroyWindow(HWND w) override;
    bool PumpMessage() override;
    HWND GetFocus() override { return focus; }
    int MessageBox(HWND owner, const char* text, const char* caption, unsigned style) override {
        boxes.push_back({owner, text ? text : "", caption ? caption : "", style});
        return 7;
    }

    struct Box {
        HWND owner;
        std::string text, caption;
        unsigned style;
    };
    HWND focus = reinterpret_cast<HWND>(uintptr_t(0x5151));
    std::vector<Box> boxes;  // message boxes shown, in order

    int cancelOnAttempt = 0;             // 0: never
    std::function<void(int)> onAttempt;  // called with each count shown
    bool failCreate = false;
    bool mainEnabled = true;
    std::vector<int> attempts;  // counts shown in control 1003, in order
    std::string fileShown;      // text of control 1002
    int dialogsCreated = 0;
    int dialogsOpen = 0;
    int waitCursors = 0;                 // wait cursors shown
    std::function<void()> onWaitCursor;  // called as each is shown
    void BeginWaitCursor() override {
        ++waitCursors;
        if (onWaitCursor) onWaitCursor();
    }

  private:
    HWND main_;
    DialogEvents* events_ = nullptr;
    bool cancelNow_ = false;
};

// The statuses of the status messages among `shown`, in order; other
// messages count as -1.
std::vector<int> Statuses(const std::vector<std::string>& shown);

// Runs `body` in a forked process and answers its result (its exit code;
// 128 + the signal when it died of one). The child starts on a fresh
// dictionary object, as the parent's belongs to the parent's engine client.
int InAnotherProcess(const std::function<int()>& body);

// What `make` throws, or -1 when it throws nothing.
int Thrown(const std::function<void()>& make);

// One field of a dictionary entry, and one key segment on a field.
struct FieldDef {
    const char* name;
    int length;
    dbFieldType type;
    uint32_t series = 0;  // numbering series of an auto-increment field
    int dp = 0;
    int codeTable = 0;  // shown through this code table when not 0
};
struct KeyDef {
    int keyNo;
    const char* field;
    int flags;
};
// Describes `file` in the dictionary object, fields end to end with ids
// from 0 (as the dictionary numbers them) and their own names as catalogue
// columns, page size 4096. When the dictionary is open the entry is added,
// and the status of that answered.
int AddEntry(CCdd& cdd, const char* file, dbFileType type, const std::vector<FieldDef>& fields,
             const std::vector<KeyDef>& keys);
// Gives a record file the description such an entry holds, without any
// dictionary file.
void Describe(CDbFile& f, const std::vector<FieldDef>& fields, const std::vector<KeyDef>& keys);

// 32-byte customer records: id (int32, key 0), name (zstring[20], key 1,
// duplicates), 8 spare bytes. The hooks keep id and name in the members and
// count their calls.
class Customer : public CDbFile {
  public:
    explicit Customer(const std::string& path, short client = 0)
        : CDbFile(path.c_str(), nullptr, 1, client) {}
    int32_t id = 0;
    std::string name;
    int reads = 0, writes = 0;

    void OnReadRecord() override;
    void OnWriteRecord() override;
    int Add(int32_t newId, const char* newName = "");
    int Find(int32_t wanted, int lock = 0);
    // The stored name of record `wanted`, read afresh.
    std::string Stored(int32_t wanted) { return Find(wanted) == 0 ? name : "(status)"; }
    using CDbFile::SetRcdBufLen;
};
// The engine's create spec of the customer file.
std::vector<uint8_t> CustomerSpec(uint16_t fileFlags = 0);

// The test probe program run as a child process, talking through pipes.
class Child {
  public:
    // With `env` the child runs in that environment and this process's own
    // without its DBFILE_ and RECMAN_ settings.
    explicit Child(const std::vector<std::string>& args, const std::vector<std::string>& env = {});
    ~Child();  // kills the child if it still runs
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    // The next line the child writes; "" at its end.
    std::string ReadLine();
    void WriteLine(const std::string& line);
    void Kill();
    int Wait();  // the exit status (-1 when killed)

  private:
    pid_t pid_ = -1;
    int in_ = -1, out_ = -1;
    std::string buffered_;
};

// Names the dictionary file for the record files built from now on.
void UseDictionary(const std::string& path);
// Back to the library's state at load: no shared dictionary, empty paths,
// no alternates, no dictionary name.
void ResetLibrary();

// A folder of the test's own holding the dictionary file vexa.ddf, made
// empty and open in `cdd`; the system data directory is the folder and the
// data directory "data" under it. The library is reset afterwards.
class DictionaryFolder : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    rmtest::TempDir dir;
    MessageLog log;
    std::unique_ptr<CCdd> cdd;
};

}  // namespace dbtest
