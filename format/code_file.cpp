#include "format/code_file.h"

#include <algorithm>
#include <cstring>

#include "dictionary/cdd.h"
#include "format/code_table.h"
#include "recman/recman.h"

namespace {

constexpr int kDescLength = 32;
constexpr int kStatusTooLong = 97;  // "The data buffer is too small."

}  // namespace

CCodeFile::CCodeFile(short clientId) : CDbFile(kFileName, GetSysDataPath(), 0, clientId) {}

void CCodeFile::Clear() {
    TableId = 0;
    Desc = "";
    Codes = "";
}

namespace {

// Where a field lies in a record of `len` bytes: its offset and how many of
// its bytes the record holds; nothing for a field the description lacks.
struct Span {
    size_t at = 0, size = 0;
};

Span FieldSpan(CDbFile& f, const char* name, size_t len, bool toRecordEnd) {
    short id = f.GetFieldIdOfName(name);
    if (id < 0) return {};
    size_t at = f.GetFieldOffset(uint16_t(id));
    if (at >= len) return {};
    size_t size =
        toRecordEnd ? len - at : std::min<size_t>(f.GetFieldLength(uint16_t(id)), len - at);
    return {at, size};
}

}  // namespace

void CCodeFile::OnReadRecord() {
    Clear();
    const char* rec = RcdBuf();
    size_t len = std::min(GetBytesRead(), GetRcdBufLen());
    if (!rec) return;
    Span id = FieldSpan(*this, "TableId", len, false);
    std::memcpy(&TableId, rec + id.at, std::min<size_t>(id.size, sizeof(TableId)));
    Span desc = FieldSpan(*this, "Desc", len, false);
    Desc = ZString(rec + desc.at, int(strnlen(rec + desc.at, desc.size)));
    // The text runs to its terminator, as the tables read it.
    Span codes = FieldSpan(*this, "Codes", len, true);
    Codes = ZString(rec + codes.at, int(strnlen(rec + codes.at, codes.size)));
}

void CCodeFile::OnWriteRecord() {
    unsigned short len = GetRcdLength() ? GetRcdLength() : m_FileDat.FileSpec.RecLen;
    SetDataLen(len);
    char* rec = RcdBuf();
    if (!rec) return;
    std::memset(rec, 0, len);
    Span id = FieldSpan(*this, "TableId", len, false);
    std::memcpy(rec + id.at, &TableId, std::min<size_t>(id.size, sizeof(TableId)));
    // Texts keep their terminator within the field.
    for (auto [name, text] : {std::pair<const char*, const CString*>{"Desc", &Desc},
                              std::pair<const char*, const CString*>{"Codes", &Codes}}) {
        Span s = FieldSpan(*this, name, len, false);
        if (s.size)
            std::memcpy(rec + s.at, text->c_str(), std::min<size_t>(text->Length(), s.size - 1));
    }
}

int CCodeFile::FindTable(int32_t id, int lock) {
    SetKey(&id, sizeof(id), 0);
    return GetEqual(nullptr, lock, 1);
}

int CCodeFile::WriteTable(int32_t id, const char* desc, const char* text) {
    size_t textLen = text ? std::strlen(text) : 0;
    short codes = GetFieldIdOfName("Codes");
    if (codes < 0 || textLen >= GetFieldLength(uint16_t(codes)))
        return TranslateError(kStatusTooLong);
    // Read with a lock, so that two writers of one table take turns.
    int status = FindTable(id, 1);
    if (status != 0 && status != RM_END_OF_FILE) return status;
    bool exists = status == 0;
    TableId = id;
    Desc = desc ? desc : "";
    Codes = text ? text : "";
    if (!exists) return Insert(nullptr);
    status = Update(nullptr);
    if (status) {
        UnlockAll(nullptr);  // the read's lock; the update's status stays the last error
        m_nLastError = status;
    }
    return status;
}

int CCodeFile::WriteTable(int32_t id, const char* desc, CCodeTable& table) {
    CString text;
    return WriteTable(id, desc, table.RollUpCodes(text));
}

int CCodeFile::DeleteTable(int32_t id) {
    int status = FindTable(id, 1);
    return status ? status : Delete(nullptr);
}

int CCodeFile::AddToDictionary(CCdd& cdd) {
    cdd.Clear();
    cdd.m_bOneRcdFile = 0;
    cdd.m_bOutdated = 0;
    CopyFixedText(cdd.m_FileDat.FileName, sizeof(cdd.m_FileDat.FileName), kFileName);
    CopyFixedText(cdd.m_FileDat.SymName, sizeof(cdd.m_FileDat.SymName), "CCodeFile");
    CopyFixedText(cdd.m_FileDat.FileDesc, sizeof(cdd.m_FileDat.FileDesc), "Code tables");
    cdd.m_FileDat.FileType = dbFileSystem;
    cdd.m_FileDat.FileSpec.PageSize = 4096;
    cdd.AddField(0, 0, 4, dbInteger, 0, "TableId", "Code table id", "Table:");
    cdd.AddField(1, 4, kDescLength, dbZString, 0, "Desc", "What the table is for", "Description:");
    cdd.AddField(2, 4 + kDescLength, kMaxCodesText + 1, dbZString, 0, "Codes",
                 "Codes and their descriptions", "Codes:");
    cdd.AddKey(0, "ById", "TableId", 0);
    for (int ok = cdd.m_FldList.First(); ok; ok = cdd.m_FldList.Next())
        cdd.m_FldList.SetFldNameForDDF(cdd.m_FldList.GetFldName());
    return cdd.Insert(nullptr);
}
