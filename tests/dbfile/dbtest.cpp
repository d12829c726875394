#include "dbtest.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

std::string MessageLog::TakeOne() {
    std::vector<std::string> shown = Take();
    return shown.size() == 1 ? shown[0] : "";
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

int Thrown(const std::function<void()>& make) {
    try {
        make();
    } catch (int e) {
        return e;
    }
    return -1;
}

int AddEntry(CCdd& cdd, const char* file, dbFileType type, const std::vector<FieldDef>& fields,
             const std::vector<KeyDef>& keys) {
    cdd.Clear();
    std::strcpy(cdd.m_FileDat.FileName, file);
    cdd.m_FileDat.FileType = type;
    cdd.m_FileDat.FileSpec.PageSize = 4096;
    uint16_t offset = 0, id = 0;
    for (const FieldDef& f : fields) {
        cdd.AddField(id++, offset, f.length, f.type, f.dp, f.name, "", "");
        cdd.m_FldList.FindByName(f.name);
        cdd.m_FldList.SetFldHighWaterId(f.series);
        cdd.m_FldList.SetFldNameForDDF(f.name);
        if (f.codeTable) {
            cdd.m_FldList.SetFldDispCode(dbDispCodeTable);
            cdd.m_FldList.SetFldCodeId(f.codeTable);
        }
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
    return cdd.IsOpen() ? cdd.Insert(nullptr) : 0;
}

void Describe(CDbFile& f, const std::vector<FieldDef>& fields, const std::vector<KeyDef>& keys) {
    CCdd d(nullptr, "describe.ddf");
    AddEntry(d, "", dbFileData, fields, keys);
    f.m_FileDat = d.m_FileDat;
    f.m_FldList = d.m_FldList;
    f.m_KeyList = d.m_KeyList;
}

void Customer::OnReadRecord() {
    std::memcpy(&id, RcdBuf(), 4);
    name.assign(RcdBuf() + 4, strnlen(RcdBuf() + 4, 20));
    ++reads;
}

void Customer::OnWriteRecord() {
    SetDataLen(32);
    std::memset(RcdBuf(), 0, 32);
    std::memcpy(RcdBuf(), &id, 4);
    std::memcpy(RcdBuf() + 4, name.data(), std::min<size_t>(name.size(), 19));
    ++writes;
}

int Customer::Add(int32_t newId, const char* newName) {
    id = newId;
    name = newName;
    return Insert(nullptr);
}

int Customer::Find(int32_t wanted, int lock) {
    SetKey(&wanted, 4, 0);
    return GetEqual(nullptr, lock, 1);
}

std::vector<uint8_t> CustomerSpec(uint16_t fileFlags) {
    constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;
    return rmtest::Spec(32,
                        {{{1, 4, EXT, RM_TYPE_INTEGER}},
                         {{5, 20, EXT | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE, RM_TYPE_ZSTRING}}},
                        fileFlags);
}

Child::Child(const std::vector<std::string>& args, const std::vector<std::string>& env) {
    // Everything the child needs is made before the fork: other threads of
    // this process may hold the allocator's lock at that moment.
    std::vector<char*> argv{const_cast<char*>(DBFILE_TEST_PROBE)};
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> vars = env;
    for (char** e = environ; *e && !env.empty(); ++e)
        if (std::strncmp(*e, "DBFILE_", 7) != 0 && std::strncmp(*e, "RECMAN_", 7) != 0)
            vars.push_back(*e);
    std::vector<char*> envp;
    for (std::string& v : vars)
        envp.push_back(v.data());
    envp.push_back(nullptr);
    int toChild[2], fromChild[2];
    if (pipe(toChild) != 0 || pipe(fromChild) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        dup2(toChild[0], 0);
        dup2(fromChild[1], 1);
        close(toChild[1]);
        close(fromChild[0]);
        execve(DBFILE_TEST_PROBE, argv.data(), env.empty() ? environ : envp.data());
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

void DictionaryFolder::SetUp() {
    UseDictionary(dir.File("vexa.ddf"));
    CDbFile::SetSysDataPath(dir.path().c_str());
    CDbFile::SetDataPath("data");
    cdd = std::make_unique<CCdd>(nullptr, g_CddFileName);
    ASSERT_EQ(cdd->Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate), 1), 0);
    log.Take();
}

void DictionaryFolder::TearDown() {
    cdd.reset();
    ResetLibrary();
}

}  // namespace dbtest
