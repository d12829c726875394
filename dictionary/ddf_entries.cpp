// Dictionary entries of the SQL catalogue's three files. Their layouts are
// the engine's published catalogue records; the keys are the ones SQL tools
// search the catalogue by.
#include <cstring>

#include "dictionary/cdd.h"

namespace {
constexpr int kPageSize = 4096;
}

void CCdd::BeginDdfEntry(const char* fileName, const char* symName, const char* desc) {
    Clear();
    m_bOneRcdFile = 0;
    m_bOutdated = 0;
    CopyFixedText(m_FileDat.FileName, sizeof(m_FileDat.FileName), fileName);
    CopyFixedText(m_FileDat.SymName, sizeof(m_FileDat.SymName), symName);
    CopyFixedText(m_FileDat.FileDesc, sizeof(m_FileDat.FileDesc), desc);
    m_FileDat.FileType = dbFileData;
    m_FileDat.FileSpec.PageSize = kPageSize;
}

int CCdd::InsertDdfEntry(HWND hwnd) {
    // Columns take the fields' own names, so that the catalogue can describe
    // its own files too.
    for (int ok = m_FldList.First(); ok; ok = m_FldList.Next())
        m_FldList.SetFldNameForDDF(m_FldList.GetFldName());
    return Insert(hwnd);  // the engine numbers the file id
}

int CCdd::CreateFileDdfRec(HWND hwnd) {
    BeginDdfEntry("FILE.DDF", "CFileDdf", "File Data Dictionary");
    AddField(0, 0, 2, dbUnsigned, 0, "Id", "", "");
    AddField(1, 2, 20, dbString, 0, "SymName", "", "");
    AddField(2, 22, 64, dbString, 0, "FileName", "", "");
    AddField(3, 86, 1, dbUnsigned, 0, "Flags", "", "");
    AddField(4, 87, 10, dbString, 0, "Reserved", "", "");
    AddKey(0, "Id", "Id", 0x0000);
    AddKey(1, "SymName", "SymName", 0x0402);
    return InsertDdfEntry(hwnd);
}

int CCdd::CreateFieldDdfRec(HWND hwnd) {
    BeginDdfEntry("FIELD.DDF", "CFieldDdf", "Field Data Dictionary");
    AddField(0, 0, 2, dbUnsigned, 0, "Id", "", "");
    AddField(1, 2, 2, dbUnsigned, 0, "FileId", "", "");
    AddField(2, 4, 20, dbString, 0, "Name", "", "");
    AddField(3, 24, 1, dbUnsigned, 0, "Type", "", "");
    AddField(4, 25, 2, dbUnsigned, 0, "Offset", "", "");
    AddField(5, 27, 2, dbUnsigned, 0, "Length", "", "");
    AddField(6, 29, 1, dbUnsigned, 0, "NumDP", "", "");
    AddField(7, 30, 2, dbUnsigned, 0, "Flags", "", "");
    AddKey(0, "Id", "Id", 0x0000);
    AddKey(1, "FileId", "FileId", 0x0001);
    AddKey(2, "Name", "Name", 0x0403);
    AddKey(3, "FileId_Name", "FileId", 0x0012);
    AddKey(3, "FileId_Name", "Name", 0x0402);
    AddKey(4, "FileId_Offset_NumDP", "FileId", 0x0413);
    AddKey(4, "FileId_Offset_NumDP", "Offset", 0x0013);
    AddKey(4, "FileId_Offset_NumDP", "NumDP", 0x0003);
    return InsertDdfEntry(hwnd);
}

int CCdd::CreateIndexDdfRec(HWND hwnd) {
    BeginDdfEntry("INDEX.DDF", "CIndexDdf", "Index Data Dictionary");
    AddField(0, 0, 2, dbUnsigned, 0, "FileId", "", "");
    AddField(1, 2, 2, dbUnsigned, 0, "FieldId", "", "");
    AddField(2, 4, 2, dbUnsigned, 0, "KeyNo", "", "");
    AddField(3, 6, 2, dbUnsigned, 0, "SegmentNo", "", "");
    AddField(4, 8, 2, dbUnsigned, 0, "Flags", "", "");
    AddKey(0, "FileId", "FileId", 0x0001);
    AddKey(1, "FieldId", "FieldId", 0x0001);
    AddKey(2, "FileId_KeyNo_SegNo", "FileId", 0x0413);
    AddKey(2, "FileId_KeyNo_SegNo", "KeyNo", 0x0013);
    AddKey(2, "FileId_KeyNo_SegNo", "SegmentNo", 0x0003);
    return InsertDdfEntry(hwnd);
}
