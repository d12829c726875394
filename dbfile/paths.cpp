// Data paths, the location of a record file, alternates and server paths.
#include <sys/stat.h>

#include <cstring>

#include "dbfile/db_file.h"
#include "dbfile/high_water_file.h"
#include "engine/dbfile_app.h"
#include "engine/messages.h"
#include "recman/recman.h"

char g_SysDataPath[65];
char g_DataPath[65];
char g_HistPath[65];
char g_GLDataPath[65];
char g_GLHistPath[65];

CStringArray CDbFile::m_GivenName;
CStringArray CDbFile::m_AlternateName;

namespace {

constexpr unsigned kCannotCreateDirectory = 17;

bool IsDirectory(const char* p) {
    struct stat sb;
    return ::stat(p, &sb) == 0 && S_ISDIR(sb.st_mode);
}

}  // namespace

void CDbFile::SetSysDataPath(const char* dir) {
    std::memset(g_SysDataPath, 0, sizeof(g_SysDataPath));
    if (dir) std::strncpy(g_SysDataPath, dir, 64);
}

void CDbFile::SetAbsolutePath(char* buffer, const char* path, int length) {
    Path p(path);
    QualifySysDataPath(p);
    std::memset(buffer, 0, size_t(length) + 1);
    std::strncpy(buffer, p, size_t(length));
}

// The number file of a folder is closed before the folder changes, so that
// the next number comes from the new folder's.
void CDbFile::SetDataPath(const char* dir) {
    TheNumberFile(1).CloseNumberFile(1);
    SetAbsolutePath(g_DataPath, dir, 64);
}
void CDbFile::SetHistPath(const char* dir) {
    SetAbsolutePath(g_HistPath, dir, 64);
}
void CDbFile::SetGLDataPath(const char* dir) {
    TheNumberFile(2).CloseNumberFile(1);
    SetAbsolutePath(g_GLDataPath, dir, 64);
}
void CDbFile::SetGLHistPath(const char* dir) {
    SetAbsolutePath(g_GLHistPath, dir, 64);
}
const char* CDbFile::GetSysDataPath() {
    return g_SysDataPath;
}
const char* CDbFile::GetDataPath() {
    return g_DataPath;
}
const char* CDbFile::GetHistPath() {
    return g_HistPath;
}
const char* CDbFile::GetGLDataPath() {
    return g_GLDataPath;
}
const char* CDbFile::GetGLHistPath() {
    return g_GLHistPath;
}

const char* CDbFile::GetDefaultPath(dbFileType type) {
    switch (type) {
        case dbFileData:
            return g_DataPath;
        case dbFileSystem:
            return g_SysDataPath;
        case dbFileHistory:
            return g_HistPath;
        case dbFileGLData:
            return g_GLDataPath;
        case dbFileGLHistory:
            return g_GLHistPath;
        default:
            return nullptr;
    }
}

// A relative path is taken relative to the system data directory (the
// current directory is not touched: the system path is put in front).
const char* CDbFile::QualifySysDataPath(Path& p) {
    if (p.Length() > 0 && !IsSeparator(p.GetAt(0)) && g_SysDataPath[0]) {
        Path base(g_SysDataPath);
        base.QualifyPath().SetBackslash(1);
        p = (base + p.c_str()).c_str();
    }
    p.QualifyPath();
    return p;
}

void CDbFile::SetFileName(const char* name, const char* path) {
    SetPath(path, name);
}

void CDbFile::SetPath(const char* path, const char* name) {
    // Both separators are taken on input; the engine is handed '/' only.
    CString fileName = name ? name : "";
    fileName.Replace('\\', '/');
    Path dirText;
    if (path && *path) {
        dirText = path;
    } else {
        Path n(fileName);
        int at = n.LastSeparator();
        if (at >= 0) {
            dirText = n.Left(at + 1).c_str();
            fileName = n.Mid(at + 1);
        } else {
            dirText = m_strPath.c_str();
        }
    }
    if (dirText.IsEmpty()) {
        m_strFileName = fileName;
        return;
    }
    Path local;
    local.GetLocalName(dirText);  // no shares to connect here
    Path dir(local);
    QualifySysDataPath(dir);
    dir.SetBackslash(1);
    // The "short form" of a directory exists only when the directory does:
    // a missing one is created, one level only.
    if (!IsDirectory(dir)) {
        Path one(dir);
        one.SetBackslash(0);
        ::mkdir(one, 0777);
        if (!IsDirectory(dir)) {
            ShowMessage(kCannotCreateDirectory, kMsgNotice);
            throw 0;
        }
    }
    m_strPath = dir.c_str();
    m_strFileName = (dir + fileName.c_str()).c_str();
}

void CDbFile::SetAlternateFile(const char* given, const char* alternate) {
    for (int i = 0; i < m_GivenName.GetSize(); ++i) {
        if (m_GivenName[i].Compare(given) != 0) continue;
        if (alternate && *alternate) {
            m_AlternateName.SetAt(i, alternate);
        } else {
            m_GivenName.RemoveAt(i);
            m_AlternateName.RemoveAt(i);
        }
        return;
    }
    m_GivenName.Add(given);
    m_AlternateName.Add(alternate ? alternate : "");
}

CString CDbFile::FindAlternateFile(const char* given) {
    for (int i = 0; i < m_GivenName.GetSize(); ++i)
        if (m_GivenName[i].CompareNoCase(given) == 0) return m_AlternateName[i];
    return CString();
}

int CDbFile::IsServerPath(const char* path) {
    CDbFile probe("file.ddf");
    Path p(path);
    if (p.Length() >= 4) {
        ZString tail = p.Right(4);
        if (tail.CompareNoCase(".dat") == 0 || tail.CompareNoCase(".ddf") == 0)
            p = p.Left(p.LastSeparator() < 0 ? 0 : p.LastSeparator()).c_str();
    }
    p.SetBackslash(0);
    probe.SetPath(p, "file.ddf");
    uint8_t versions[15] = {};
    uint16_t len = sizeof(versions);
    uint8_t key[255] = {};
    std::strncpy(reinterpret_cast<char*>(key), probe.FileName(), sizeof(key) - 1);
    TheDbFileApp().BtrvCall(RM_VERSION, nullptr, versions, &len, key, 0, 0, nullptr);
    return versions[4] == 'S' || versions[9] == 'S' || versions[14] == 'S';
}

int CDbFile::GetDataTempPath(char* buffer, int size) {
    Path p(g_DataPath[0] ? g_DataPath : g_SysDataPath);
    p.SetBackslash(1);
    p << "Temp";
    QualifySysDataPath(p);
    p.CreatePath();
    if (!buffer || size <= 0) return 0;  // no room even for the terminator
    int n = std::min(p.Length(), size - 1);
    std::memcpy(buffer, p.c_str(), size_t(n));
    buffer[n] = '\0';
    return n;
}
