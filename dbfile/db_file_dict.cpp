// Construction of a record file through the shared data dictionary.
#include <cstring>
#include <new>

#include "dbfile/db_file.h"
#include "dictionary/cdd.h"
#include "engine/messages.h"

namespace {
constexpr int kOutOfMemory = 101;
constexpr unsigned kNoAlternateFields = 176;
constexpr int kDictionaryKey = 1;  // the data file's name
}  // namespace

int CDbFile::InitCddFile(HWND) {
    if (!m_TheCdd) {
        m_TheCdd = new (std::nothrow) CCdd(nullptr, g_CddFileName);
        if (!m_TheCdd) return kOutOfMemory;
    }
    int status = m_TheCdd->Open(nullptr, dbOpenNormal, 0);
    if (status) {
        delete m_TheCdd;
        m_TheCdd = nullptr;
    }
    return status;
}

void CDbFile::OpenDictionary() {
    if (m_TheCdd) return;
    m_CddError = InitCddFile(nullptr);
    if (m_CddError) throw m_CddError;
}

void CDbFile::LoadDescription(bool useDefaultPath) {
    CString full = m_strFileName;
    int cut = Path(full).LastSeparator();
    CString bare = cut > 0 ? full.Mid(cut + 1) : full;

    CCdd& cdd = *m_TheCdd;
    auto read = [&](const char* name) {
        cdd.SetKey(name, int(std::strlen(name)), kDictionaryKey);
        m_CddError = cdd.GetEqual(nullptr, 0, 0);
        cdd.OverrideDemographics(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        return m_CddError;
    };
    cdd.OverrideDemographics(&m_FileDat, &m_FldList, &m_KeyList, &m_RelList, &m_bOneRcdFile,
                             &m_bOutdated);
    if (read(bare) != 0) {
        CddEntryError(m_strFileName);
        throw 0;
    }
    // An alternate entry lends its fields; everything else stays this file's.
    CString alternate = FindAlternateFile(bare);
    if (!alternate.IsEmpty()) {
        m_FldList.Reset();
        m_FldList.First();
        cdd.OverrideDemographics(&cdd.m_FileDat, &m_FldList, &cdd.m_KeyList, &cdd.m_RelList,
                                 &cdd.m_bOneRcdFile, &cdd.m_bOutdated);
        if (read(alternate) != 0) {
            ShowMessage(kNoAlternateFields, kMsgNotice, alternate.c_str(), bare.c_str());
            CddEntryError(m_strFileName);
            throw 0;
        }
    }
    // Auto-increment numbering applies to files other than system files that
    // have an auto-increment field.
    dbFileType type = GetFileType();
    if (type != dbFileSystem) {
        for (int ok = m_FldList.First(); ok; ok = m_FldList.Next()) {
            if (m_FldList.GetFldType() != dbAutoInc) continue;
            if (type == dbFileData || type == dbFileHistory) m_nAutoIncMode = 1;
            if (type == dbFileGLData || type == dbFileGLHistory) m_nAutoIncMode = 2;
            break;
        }
    }
    if (useDefaultPath) SetPath(GetDefaultPath(type), bare);
}
