#include "dbtest.h"

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "resources/dialogs.h"

namespace dbtest {

MessageLog::MessageLog() {
    char name[] = "/tmp/dbfile-messages-XXXXXX";
    int fd = mkstemp(name);
    if (fd >= 0) close(fd);
    path_ = name;
    setenv("DBFILE_COMMON_LIB", DBFILE_TEST_COMMON_LIB, 1);
    setenv("DBFILE_TEST_MESSAGE_LOG", path_.c_str(), 1);
}

MessageLog::~MessageLog() {
    unsetenv("DBFILE_TEST_MESSAGE_LOG");
    unlink(path_.c_str());
}

std::vector<std::string> MessageLog::Take() {
    std::vector<std::string> out;
    std::ifstream in(path_);
    std::string line;
    while (std::getline(in, line)) {
        // system|module|caption|zero|kind|text
        size_t at = 0;
        for (int i = 0; i < 4; ++i)
            at = line.find('|', at) + 1;
        out.push_back(line.substr(at));
    }
    in.close();
    std::ofstream(path_, std::ios::trunc);
    return out;
}

TestHost::TestHost() : main_(reinterpret_cast<HWND>(uintptr_t(0x7777))) {
    SetUiHost(this);
}

TestHost::~TestHost() {
    SetUiHost(nullptr);
}

void TestHost::EnableWindow(HWND w, bool on) {
    if (w == main_)
        mainEnabled = on;
    else
        HeadlessUiHost::EnableWindow(w, on);
}

HWND TestHost::CreateDialog(unsigned templateId, HWND owner, DialogEvents* events) {
    if (failCreate) return nullptr;
    HWND h = HeadlessUiHost::CreateDialog(templateId, owner, events);
    if (h && templateId == dbfile::kLockWaitDialog) {
        events_ = events;
        ++dialogsCreated;
        ++dialogsOpen;
    }
    return h;
}

void TestHost::SetItemText(HWND, int item, const char* text) {
    if (item == 1002) fileShown = text;
}

void TestHost::SetItemInt(HWND, int item, int value) {
    if (item != 1003) return;
    attempts.push_back(value);
    if (cancelOnAttempt && value >= cancelOnAttempt) cancelNow_ = true;
    if (onAttempt) onAttempt(value);
}

void TestHost::DestroyWindow(HWND w) {
    if (HeadlessUiHost::IsWindow(w)) --dialogsOpen;
    HeadlessUiHost::DestroyWindow(w);
    events_ = nullptr;
}

bool TestHost::PumpMessage() {
    if (!cancelNow_ || !events_) return false;
    cancelNow_ = false;
    events_->OnCancel();  // the user presses Cancel
    return true;
}

std::vector<uint8_t> Spec(uint16_t recordLength, const std::vector<rmtest::Key>& keys,
                          uint16_t flags) {
    return rmtest::Spec(recordLength, keys, flags);
}

std::vector<int> Statuses(const std::vector<std::string>& shown) {
    std::vector<int> out;
    for (const std::string& m : shown) {
        size_t at = m.find("\\nCode:\\t");
        out.push_back(at == std::string::npos ? -1 : std::atoi(m.c_str() + at + 9));
    }
    return out;
}

int InAnotherProcess(const std::function<int()>& body) {
    pid_t pid = fork();
    if (pid == 0) {
        CDbFile::m_TheCdd = nullptr;  // left to the parent, untouched
        _exit(body());
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void UseDictionary(const std::string& path) {
    std::memset(g_CddFileName, 0, sizeof(g_CddFileName));
    std::strncpy(g_CddFileName, path.c_str(), sizeof(g_CddFileName) - 1);
}

void ResetLibrary() {
    delete CDbFile::m_TheCdd;
    CDbFile::m_TheCdd = nullptr;
    for (char* p : {g_SysDataPath, g_DataPath, g_HistPath, g_GLDataPath, g_GLHistPath})
        std::memset(p, 0, 65);
    CDbFile::m_GivenName.RemoveAll();
    CDbFile::m_AlternateName.RemoveAll();
    std::memset(g_CddFileName, 0, sizeof(g_CddFileName));
}

}  // namespace dbtest
