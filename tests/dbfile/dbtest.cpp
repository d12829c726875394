#include "dbtest.h"

#include <signal.h>
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

void AddEntry(CCdd& cdd, const char* file, dbFileType type, const std::vector<FieldDef>& fields,
              const std::vector<KeyDef>& keys) {
    cdd.Clear();
    std::strcpy(cdd.m_FileDat.FileName, file);
    cdd.m_FileDat.FileType = type;
    cdd.m_FileDat.FileSpec.PageSize = 4096;
    uint16_t offset = 0, id = 0;
    for (const FieldDef& f : fields) {
        cdd.AddField(id++, offset, f.length, f.type, 0, f.name, "", "");
        cdd.m_FldList.FindByName(f.name);
        cdd.m_FldList.SetFldHighWaterId(f.series);
        offset = uint16_t(offset + f.length);
    }
    int count = 0, last = -1;
    for (const KeyDef& k : keys) {
        cdd.AddKey(uint8_t(k.keyNo), k.field, k.field, k.flags);
        if (k.keyNo != last) ++count;
        last = k.keyNo;
    }
    cdd.m_FileDat.FileSpec.RecLen = offset;
    cdd.m_FileDat.FileSpec.NdxCount = uint16_t(count);
    if (cdd.IsOpen()) cdd.Insert(nullptr);
}

Child::Child(const std::vector<std::string>& args) {
    // Everything the child needs is made before the fork.
    std::vector<char*> argv{const_cast<char*>(DBFILE_TEST_PROBE)};
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    int toChild[2], fromChild[2];
    if (pipe(toChild) != 0 || pipe(fromChild) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        dup2(toChild[0], 0);
        dup2(fromChild[1], 1);
        close(toChild[1]);
        close(fromChild[0]);
        execv(DBFILE_TEST_PROBE, argv.data());
        _exit(127);
    }
    close(toChild[0]);
    close(fromChild[1]);
    in_ = toChild[1];
    out_ = fromChild[0];
}

Child::~Child() {
    if (pid_ > 0) Kill();
    if (in_ >= 0) close(in_);
    if (out_ >= 0) close(out_);
}

std::string Child::ReadLine() {
    for (;;) {
        size_t nl = buffered_.find('\n');
        if (nl != std::string::npos) {
            std::string line = buffered_.substr(0, nl);
            buffered_.erase(0, nl + 1);
            return line;
        }
        char buf[512];
        ssize_t n = read(out_, buf, sizeof(buf));
        if (n <= 0) return "";
        buffered_.append(buf, size_t(n));
    }
}

void Child::WriteLine(const std::string& line) {
    std::string text = line + "\n";
    if (write(in_, text.data(), text.size()) != ssize_t(text.size())) return;
}

void Child::Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    Wait();
}

int Child::Wait() {
    if (pid_ <= 0) return -1;
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
