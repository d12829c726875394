// Field metadata of a record file: its fields by id or by name.
#include <cstring>

#include "dbfile/db_file.h"

unsigned short CDbFile::GetFieldCount() {
    return uint16_t(m_FldList.Count());
}

unsigned short CDbFile::GetFieldLength(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldLen() : 0;
}
unsigned short CDbFile::GetFieldNumDP(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldNumDP() : 0;
}
unsigned short CDbFile::GetFieldOffset(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldOffset() : 0;
}
const char* CDbFile::GetFieldPrompt(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldPrompt() : nullptr;
}
const char* CDbFile::GetFieldDesc(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldDesc() : nullptr;
}
const char* CDbFile::GetFieldName(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldName() : nullptr;
}
const char* CDbFile::GetFieldNameForDDF(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldNameForDDF() : nullptr;
}
dbFieldType CDbFile::GetFieldType(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldType() : dbString;
}
dbDispCode CDbFile::GetFieldDispCode(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldDispCode() : dbDispNone;
}
long CDbFile::GetFieldCodeId(unsigned short id) {
    return m_FldList.FindByFldId(id) ? m_FldList.GetFldCodeId() : 0;
}

// A name that no field has becomes id 0xFFFF, which finds no field.
unsigned short CDbFile::GetFieldLength(const char* name) {
    return GetFieldLength(uint16_t(GetFieldIdOfName(name)));
}
unsigned short CDbFile::GetFieldNumDP(const char* name) {
    return GetFieldNumDP(uint16_t(GetFieldIdOfName(name)));
}
unsigned short CDbFile::GetFieldOffset(const char* name) {
    return GetFieldOffset(uint16_t(GetFieldIdOfName(name)));
}
const char* CDbFile::GetFieldPrompt(const char* name) {
    return GetFieldPrompt(uint16_t(GetFieldIdOfName(name)));
}
const char* CDbFile::GetFieldDesc(const char* name) {
    return GetFieldDesc(uint16_t(GetFieldIdOfName(name)));
}
const char* CDbFile::GetFieldName(const char* name) {
    return GetFieldName(uint16_t(GetFieldIdOfName(name)));
}
dbFieldType CDbFile::GetFieldType(const char* name) {
    return GetFieldType(uint16_t(GetFieldIdOfName(name)));
}
dbDispCode CDbFile::GetFieldDispCode(const char* name) {
    return GetFieldDispCode(uint16_t(GetFieldIdOfName(name)));
}

short CDbFile::GetFieldIdOfName(const char* name) {
    return m_FldList.FindByName(name) ? short(m_FldList.GetFldId()) : -1;
}

short CDbFile::GetFieldIdOfPrompt(const char* prompt) {
    for (int ok = m_FldList.First(); ok; ok = m_FldList.Next())
        if (prompt && std::strcmp(m_FldList.GetFldPrompt(), prompt) == 0)
            return short(m_FldList.GetFldId());
    return -1;
}

short CDbFile::GetFieldIdOfKey(short keyNo) {
    if (!m_pStat || !m_pStat->m_KeyList.FindByKeyNo(keyNo)) return -1;
    return m_FldList.FindByOffset(m_pStat->m_KeyList.GetFldOffset()) ? short(m_FldList.GetFldId())
                                                                     : -1;
}

const char* CDbFile::GetFieldNameForCrystal(unsigned short id, CString& out) {
    out = "{";
    CString file = m_FileDat.FileName;
    int dot = file.Find('.');
    if (dot > 0) file = file.Left(dot);
    out += file;
    out += ".";
    if (m_FldList.FindByFldId(id)) out += m_FldList.GetFldNameForDDF();
    out += "}";
    return out;
}
