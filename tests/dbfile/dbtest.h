// Helpers for the library's tests: the message log of the test common
// library, a user interface host that records and can cancel, and files.
#pragma once

#include <dbfile/dbfile.h>

#include <functional>
#include <map>
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

// A file spec for CDbFile::Create: record length, file flags and the keys
// as rmtest segments.
std::vector<uint8_t> Spec(uint16_t recordLength, const std::vector<rmtest::Key>& keys,
                          uint16_t flags = 0);

// The statuses of the status messages among `shown`, in order; other
// messages count as -1.
std::vector<int> Statuses(const std::vector<std::string>& shown);

// Runs `body` in a forked process and answers its result (its exit code;
// 128 + the signal when it died of one). The child starts on a fresh
// dictionary object, as the parent's belongs to the parent's engine client.
int InAnotherProcess(const std::function<int()>& body);

// One field of a dictionary entry, and one key segment on a field.
struct FieldDef {
    const char* name;
    int length;
    dbFieldType type;
    uint32_t series = 0;  // numbering series of an auto-increment field
};
struct KeyDef {
    int keyNo;
    const char* field;
    int flags;
};
// Describes `file` in the dictionary object, fields end to end with ids
// from 0 (as the dictionary numbers them), page size 4096; the entry is added when the dictionary
// is open.
void AddEntry(CCdd& cdd, const char* file, dbFileType type, const std::vector<FieldDef>& fields,
              const std::vector<KeyDef>& keys);

// The test probe program run as a child process, talking through pipes.
class Child {
  public:
    explicit Child(const std::vector<std::string>& args);
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

}  // namespace dbtest
