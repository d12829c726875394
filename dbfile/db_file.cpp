// CDbFile: construction, open and close, temporary files, the record buffer,
// owner names and client numbers, and the module's life.
#include "dbfile/db_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "dbfile/extended.h"
#include "dictionary/cdd.h"
#include "dictionary/create_spec.h"
#include "engine/dbfile_app.h"
#include "platform/temp_files.h"
#include "recman/recman.h"

CCdd* CDbFile::m_TheCdd = nullptr;
int CDbFile::m_CddError = 0;

namespace {

// At exit the shared dictionary closes and the engine is reset and stopped,
// if it was ever called. It lives here, beside the constructor, so that every
// program using a record file links it.
void ReleaseDictionary() {
    delete CDbFile::m_TheCdd;
    CDbFile::m_TheCdd = nullptr;
}

struct ModuleLifetime {
    ModuleLifetime() { TheDbFileApp(); }  // the application object exists from load on
    ~ModuleLifetime() { TheDbFileApp().ExitInstance(&ReleaseDictionary); }
};

ModuleLifetime g_module;

}  // namespace

bool CDbFile::PersistentLocking() {
    return LockWaitRetry();
}

bool CDbFile::PersistentLocking(bool on) {
    bool was = LockWaitRetry();
    SetLockWaitRetry(on);
    return was;
}

CDbFile::CDbFile(const char* name, const char* path, int noDictionary, short clientId) {
    std::memset(&m_FileDat, 0, sizeof(m_FileDat));
    std::memset(m_PosBlock, 0, sizeof(m_PosBlock));
    bool useDefaultPath = !path && name && !std::strchr(name, '\\') && !std::strchr(name, '/');
    SetPath(path, name);
    std::memset(m_KeyBuf, 0, sizeof(m_KeyBuf));
    m_nClientId = clientId;
    if (!noDictionary) OpenDictionary();
    m_pFilter = new CExtended;
    m_pStat = new DbStatStruct;
    if (!noDictionary) {
        try {
            LoadDescription(useDefaultPath);
        } catch (...) {
            delete m_pFilter;
            delete m_pStat;
            m_pFilter = nullptr;
            m_pStat = nullptr;
            throw;
        }
    }
    // A fresh file lists whole records and has no filter.
    ResetFields(1);
    ResetTerms();
}

CDbFile::CDbFile(const CDbFile& o) {
    CopyMembers(o);
}

CDbFile& CDbFile::operator=(const CDbFile& o) {
    if (this == &o) return *this;
    std::free(m_pRcdBuf);
    std::free(m_pCompareBuf);
    delete m_pFilter;
    delete m_pStat;
    CopyMembers(o);
    return *this;
}

namespace {

// A copy of `n` bytes in a buffer of its own; null for no bytes.
char* Duplicate(const char* from, size_t n) {
    if (!from || !n) return nullptr;
    char* p = static_cast<char*>(std::malloc(n));
    if (!p) throw std::bad_alloc();
    std::memcpy(p, from, n);
    return p;
}

}  // namespace

// Copies every member; the owned buffers and states are copied, not shared.
void CDbFile::CopyMembers(const CDbFile& o) {
    m_FileDat = o.m_FileDat;
    m_FldList = o.m_FldList;
    m_KeyList = o.m_KeyList;
    m_RelList = o.m_RelList;
    m_bOneRcdFile = o.m_bOneRcdFile;
    m_bOutdated = o.m_bOutdated;
    m_FileStat = o.m_FileStat;
    std::memcpy(m_PosBlock, o.m_PosBlock, sizeof(m_PosBlock));
    m_nKeyNo = o.m_nKeyNo;
    std::memcpy(m_KeyBuf, o.m_KeyBuf, sizeof(m_KeyBuf));
    m_nRcdAlloc = o.m_pRcdBuf ? o.m_nRcdAlloc : 0;
    m_pRcdBuf = Duplicate(o.m_pRcdBuf, m_nRcdAlloc);
    m_nRcdBufLen = o.m_nRcdBufLen;
    m_nDataLen = o.m_nDataLen;
    m_strPath = o.m_strPath;
    m_strFileName = o.m_strFileName;
    m_bOpen = o.m_bOpen;
    m_nOpenMode = o.m_nOpenMode;
    m_nLastError = o.m_nLastError;
    m_pFilter = o.m_pFilter ? new CExtended(*o.m_pFilter) : nullptr;
    m_pStat = o.m_pStat ? new DbStatStruct(*o.m_pStat) : nullptr;
    m_bBrowser = o.m_bBrowser;
    m_bErrOverride = o.m_bErrOverride;
    m_bLockChecking = o.m_bLockChecking;
    m_nCompareLen = o.m_nCompareLen;
    m_pCompareBuf = Duplicate(o.m_pCompareBuf, m_nCompareLen);
    m_nAutoIncMode = o.m_nAutoIncMode;
    m_nClientId = o.m_nClientId;
}

CDbFile::~CDbFile() {
    if (m_bOpen) Close(nullptr);
    std::free(m_pRcdBuf);
    delete m_pFilter;
    delete m_pStat;
    std::free(m_pCompareBuf);
}

int CDbFile::Call(uint16_t op, void* data, uint16_t* len, int8_t keyNum) {
    return TheDbFileApp().BtrvCall(op, m_PosBlock, data, len, m_KeyBuf, keyNum,
                                   uint16_t(m_nClientId), m_strFileName);
}

bool CDbFile::IsVarLength() const {
    return m_pStat && m_pStat->IsVarLen();
}

unsigned short CDbFile::GetRcdLength() const {
    return m_pStat ? m_pStat->m_Spec.RecLen : 0;
}

unsigned long CDbFile::GetRcdCount() const {
    return m_pStat ? m_pStat->m_Spec.RecCount : 0;
}

int CDbFile::SetBrowser(int on) {
    int was = m_bBrowser;
    m_bBrowser = on;
    return was;
}

void CDbFile::SetClientId(short id) {
    if (!m_bOpen) m_nClientId = id;
}

void CDbFile::OnWriteRecord() {
    if (m_pRcdBuf) std::memset(m_pRcdBuf, 0, m_nRcdBufLen);
}

int CDbFile::Open(HWND hwnd, dbOpenType mode, char* owner) {
    if (m_bOpen) return 0;
    m_nOpenMode = mode;
    int8_t engineMode = RM_OPEN_NORMAL;
    if (mode & dbOpenExclusive) {
        engineMode = RM_OPEN_EXCLUSIVE;
        // A file held alone is where numbering gets set up: every series of
        // its fields is started.
        if (m_nAutoIncMode) ForceAutoIncrementConfig();
    } else if (mode & dbOpenReadOnly) {
        engineMode = RM_OPEN_READ_ONLY;
    }
    auto openOnce = [&] {
        uint16_t len = owner ? uint16_t(std::strlen(owner) + 1) : 0;
        std::memset(m_KeyBuf, 0, sizeof(m_KeyBuf));
        std::strncpy(reinterpret_cast<char*>(m_KeyBuf), m_strFileName, sizeof(m_KeyBuf) - 1);
        return Call(RM_OPEN, owner, &len, engineMode);
    };
    int status = openOnce();
    struct stat sb;
    if (status == RM_FILE_NOT_FOUND && (mode & dbOpenCreate) && mode != dbOpenCreate &&
        ::stat(m_strFileName, &sb) != 0) {
        // Create the missing file from this object's description, then open it.
        std::vector<uint8_t> spec = BuildCreateSpec(m_FileDat, m_KeyList);
        if (Create(hwnd, spec.data(), uint16_t(spec.size()), 1) == 0) status = openOnce();
    }
    status = TranslateError(status);
    m_bOpen = status == 0;
    return m_bOpen ? GetStatistics(hwnd) : status;
}

int CDbFile::Close(HWND) {
    int status = 0;
    if (m_bOpen) {
        SetDataLen(m_nRcdBufLen);
        status = Call(RM_CLOSE, m_pRcdBuf, &m_nDataLen, 0);
        if (status == 0) m_bOpen = 0;
    }
    return TranslateError(status);
}

int CDbFile::OpenTemp(HWND) {
    return OpenTemp(dbOpenType(dbOpenExclusive | dbOpenCreate));
}

int CDbFile::OpenTemp(dbOpenType mode) {
    auto dataTemp = [] {
        char buf[300];
        GetDataTempPath(buf, sizeof(buf));
        return std::string(buf);
    };
    std::string dir = TheDbFileApp().UseSystemTemp() ? SystemTempDirectory() : dataTemp();
    std::string name = UniqueTempFile(dir, "DAT");
    if (name.empty()) name = UniqueTempFile(dataTemp(), "DAT");
    SetFileName(name.c_str(), "");
    ::unlink(name.c_str());
    return Open(nullptr, mode, nullptr);
}

int CDbFile::CloseTemp(HWND) {
    return CloseTemp();
}

int CDbFile::CloseTemp() {
    CString fullName = m_strFileName;
    CString dictName = m_FileDat.FileName;
    int status = Close(nullptr);
    // A file opened under its dictionary name is only closed; a temporary one
    // goes. Every name contains the empty one, so a file without a dictionary
    // entry is only closed.
    if (fullName.Find(dictName) < 0) {
        uint8_t key[255] = {};
        std::strncpy(reinterpret_cast<char*>(key), fullName, sizeof(key) - 1);
        status = TheDbFileApp().BtrvCall(RM_CREATE, nullptr, nullptr, nullptr, key,
                                         RM_CREATE_REMOVE, uint16_t(m_nClientId), fullName);
    }
    return status;
}

int CDbFile::SetRcdBufLen(unsigned short n) {
    if (!m_pRcdBuf || m_nRcdAlloc < n) {
        char* p = static_cast<char*>(std::realloc(m_pRcdBuf, n ? n : 1));
        if (!p) throw std::bad_alloc();
        m_pRcdBuf = p;
        m_nRcdAlloc = n;
    }
    m_nRcdBufLen = m_nDataLen = n;
    std::memset(m_pRcdBuf, 0, n);
    return 1;
}

int CDbFile::SetDataLen(unsigned short n) {
    if (n > m_nRcdBufLen) SetRcdBufLen(n);
    m_nDataLen = n;
    return 1;
}

void CDbFile::CopyRcdData(CDbFile* other) {
    SetDataLen(other->m_nDataLen);
    if (m_nDataLen) std::memcpy(m_pRcdBuf, other->m_pRcdBuf, m_nDataLen);
    OnReadRecord();
}

int CDbFile::SetOwner(HWND, const char* owner, int access) {
    return SetOwner(owner, access);
}

int CDbFile::SetOwner(const char* owner, int access) {
    uint16_t len = uint16_t(std::strlen(owner) + 1);
    SetDataLen(len);
    std::memcpy(m_pRcdBuf, owner, len);
    std::memset(m_KeyBuf, 0, sizeof(m_KeyBuf));
    std::memcpy(m_KeyBuf, owner, std::min<size_t>(len, sizeof(m_KeyBuf)));
    int status = TheDbFileApp().BtrvCall(RM_SET_OWNER, m_PosBlock, m_pRcdBuf, &m_nDataLen, m_KeyBuf,
                                         int8_t(access), uint16_t(m_nClientId), nullptr);
    return TranslateError(status);
}

int CDbFile::ClearOwner(HWND) {
    SetDataLen(m_nRcdBufLen);
    int status =
        TheDbFileApp().BtrvCall(RM_CLEAR_OWNER, m_PosBlock, m_pRcdBuf, &m_nDataLen, m_KeyBuf,
                                int8_t(m_nKeyNo), uint16_t(m_nClientId), nullptr);
    return TranslateError(status);
}
