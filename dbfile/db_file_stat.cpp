// File creation and the engine's statistics of an open file.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dbfile/db_file.h"
#include "dictionary/create_spec.h"
#include "engine/dbfile_app.h"
#include "recman/recman.h"

namespace {
constexpr int kOutOfMemory = 101;
constexpr unsigned short kStatBuffer = 8192;
}  // namespace

int CDbFile::Create(HWND, void* spec, unsigned short len, void* fileName, int replace) {
    std::vector<uint8_t> copy;
    try {
        copy.assign(static_cast<uint8_t*>(spec), static_cast<uint8_t*>(spec) + len);
    } catch (const std::bad_alloc&) {
        return TranslateError(kOutOfMemory);
    }
    const char* name = static_cast<const char*>(fileName);
    // Make the file's directory, with every missing parent.
    Path dir(name);
    QualifySysDataPath(dir);
    int cut = dir.LastSeparator();
    Path(dir.Left(cut < 0 ? 0 : cut).c_str()).CreatePath();
    uint8_t key[255] = {};
    std::strncpy(reinterpret_cast<char*>(key), name ? name : "", sizeof(key) - 1);
    int status = TheDbFileApp().BtrvCall(RM_CREATE, m_PosBlock, copy.data(), &len, key,
                                         replace ? RM_CREATE_REPLACE : RM_CREATE_NO_REPLACE,
                                         uint16_t(m_nClientId), m_strFileName);
    return TranslateError(status);
}

int CDbFile::Create(HWND hwnd, void* spec, unsigned short len, int replace) {
    CString name = m_strFileName;
    return Create(hwnd, spec, len, const_cast<char*>(name.c_str()), replace);
}

int CDbFile::Create(HWND hwnd, char* text) {
    // The text only sets the data length, which the next operation overwrites.
    m_nDataLen = text ? uint16_t(std::strlen(text) + 1) : 0;
    std::vector<uint8_t> spec = BuildCreateSpec(m_FileDat, m_KeyList);
    return Create(hwnd, spec.data(), uint16_t(spec.size()), 1);
}

int CDbFile::ReadStatistics(DbStatStruct& into) {
    SetDataLen(kStatBuffer);
    int status = Call(RM_STAT, m_pRcdBuf, &m_nDataLen, -1);
    if (status) return TranslateError(status);
    std::memcpy(&into.m_Spec, m_pRcdBuf, 16);
    into.m_KeyList.Reset();
    int keys = into.GetNdxCount();
    for (size_t at = 16; at + 16 <= m_nDataLen && keys > 0; at += 16) {
        auto* e = new DbStatKeyElem;
        std::memcpy(&e->m_Key, m_pRcdBuf + at, 16);
        into.m_KeyList.AddKey(e);
        if (!(e->m_Key.Flags & kKeySegmented)) --keys;
    }
    SetDataLen(into.m_Spec.RecLen);
    return TranslateError(status);
}

int CDbFile::GetStatistics(HWND) {
    return ReadStatistics(*m_pStat);
}

int CDbFile::GetFileStatistics(HWND) {
    return ReadStatistics(m_FileStat);
}
