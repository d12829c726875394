// Export of a data file's description into the engine's SQL catalogue: one
// FILE.DDF record for the table, one FIELD.DDF record per field and one
// INDEX.DDF record per key segment, numbered after what the catalogue holds.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "dbfile/db_file.h"
#include "dictionary/ddf_files.h"
#include "engine/messages.h"

namespace {

constexpr unsigned kDuplicateColumn = 20;
constexpr uint8_t kSystemTable = 0x10;
constexpr uint8_t kLongText = 12;    // a note column
constexpr uint8_t kSystemText = 13;  // a system table's fixed long text
constexpr uint16_t kLongTextLength = 32765;
constexpr uint16_t kCaseInsensitiveColumn = 1;
constexpr uint16_t kCatalogueCaseInsensitive = 0x0020;

// Index flags of the catalogue's own system tables, by table id, key number
// and column id; searched in order, the first match wins.
struct SystemIndexFlags {
    uint16_t table, key, column, flags;
};
constexpr SystemIndexFlags kSystemIndexFlags[] = {
    {1, 0, 1, 0x100},  {1, 1, 2, 0x122},  {2, 0, 6, 0x100},   {2, 1, 7, 0x103},  {2, 2, 8, 0x123},
    {2, 3, 7, 0x112},  {2, 3, 8, 0x122},  {2, 4, 7, 0x113},   {2, 4, 10, 0x113}, {2, 4, 12, 0x103},
    {3, 0, 14, 0x101}, {3, 1, 15, 0x101}, {3, 2, 14, 0x112},  {3, 2, 16, 0x112}, {3, 2, 17, 0x102},
    {4, 0, 19, 0x123}, {4, 1, 19, 0x132}, {4, 1, 20, 0x112},  {4, 1, 21, 0x102}, {5, 0, 23, 0x132},
    {5, 0, 25, 0x102}, {6, 0, 28, 0x101}, {6, 1, 30, 0x101},  {6, 2, 32, 0x122}, {6, 3, 28, 0x112},
    {6, 3, 32, 0x122}, {6, 4, 30, 0x112}, {6, 4, 32, 0x122},  {7, 0, 36, 0x132}, {7, 0, 43, 0x102},
    {7, 1, 38, 0x112}, {7, 1, 36, 0x132}, {7, 1, 43, 0x102},  {7, 2, 38, 0x113}, {7, 2, 39, 0x113},
    {7, 2, 40, 0x113}, {7, 2, 41, 0x113}, {7, 2, 42, 0x113},  {7, 2, 43, 0x103}, {8, 0, 45, 0x112},
    {8, 0, 46, 0x102}, {9, 0, 49, 0x100}, {10, 0, 56, 0x100},
};
static_assert(std::size(kSystemIndexFlags) == 43);

uint16_t SystemFlags(uint16_t table, uint16_t key, uint16_t column) {
    for (const SystemIndexFlags& r : kSystemIndexFlags)
        if (r.table == table && r.key == key && r.column == column) return r.flags;
    return 0;
}

// The long-text columns of the system tables, with their own type and size.
struct SystemText {
    const char* name;
    uint8_t type;
    uint16_t length;
};
constexpr SystemText kSystemTexts[] = {{"Xv$Misc", kSystemText, 2000},
                                       {"Xp$Misc", kSystemText, 990},
                                       {"Xt$Misc", kSystemText, 4054},
                                       {"Xa$Attrs", kLongText, 2048}};

// Fills a catalogue text with spaces and copies at most its size of `text`.
void PutPadded(char* member, size_t size, const std::string& text) {
    std::memset(member, ' ', size);
    std::memcpy(member, text.data(), std::min(size, text.size()));
}

// The file name without any directory, given with either separator.
std::string BareName(const char* fileName, size_t size) {
    std::string name(fileName, strnlen(fileName, size));
    for (char sep : {'\\', '/'}) {
        size_t cut = name.rfind(sep);
        if (cut != std::string::npos) name.erase(0, cut + 1);
    }
    return name;
}

// Where SQL tools find the file: its name without the system tables' "X$".
std::string Location(std::string name) {
    size_t at = name.find("X$");
    if (at != std::string::npos) name.erase(at, 2);
    return name;
}

// The table's name: the file name without its extension, except that a
// year-like extension (".2004") stays, joined by "_", so that yearly files
// remain tables of their own.
std::string TableName(std::string name) {
    size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return name;
    if (dot + 1 < name.size() && name[dot + 1] == '2') {
        name[dot] = '_';
        return name;
    }
    return name.substr(0, dot);
}

// Reads a catalogue file's last record by key 0 into its members, keeping
// the caller's key number; false when it holds none.
template <class Writer>
bool ReadLastById(Writer& w) {
    int keyNo = w.GetKeyNo();
    w.SetKey(0);
    bool found = w.GetRcdCount() != 0 && w.GetLast(nullptr) == 0;
    w.SetKey(keyNo);
    return found;
}

// Whether the first key segment on field `id` ignores case.
bool FirstSegmentIgnoresCase(const CddKeyList& keys, uint16_t id) {
    LLPosition p;
    for (ListElem* e = keys.LinkList::First(p); e; e = keys.LinkList::Next(p)) {
        const CddKeyDat& k = static_cast<CddKeyElem*>(e)->m_Key;
        if (k.FldId == id) return k.KeySpec.Flags & kKeyCaseInsensitive;
    }
    return false;
}

}  // namespace

void CDbFile::WriteToDdf(CFileDdf& fileDdf, CFieldDdf& fieldDdf, CIndexDdf& indexDdf, bool system) {
    // The table.
    uint16_t tableId = ReadLastById(fileDdf) ? uint16_t(fileDdf.Id + 1) : 1;
    fileDdf.Clear();
    fileDdf.Id = tableId;
    fileDdf.Flags = system ? kSystemTable : 0;
    std::string name = BareName(m_FileDat.FileName, sizeof(m_FileDat.FileName));
    std::string location = Location(name).substr(0, sizeof(fileDdf.FileName));
    PutPadded(fileDdf.FileName, sizeof(fileDdf.FileName), location);
    PutPadded(fileDdf.SymName, sizeof(fileDdf.SymName), TableName(name));
    // A table that cannot be written (its name already taken, the catalogue
    // read-only) gets no columns or segments: they would be filed under an id
    // that the next table takes. Its writer has shown why.
    if (fileDdf.Insert(nullptr) != 0) return;

    // The columns, numbered after the catalogue's last one; a column that
    // cannot be written is told as a duplicate and the rest still go in.
    uint16_t base = ReadLastById(fieldDdf) ? fieldDdf.Id : 0;
    CDbFile& columns = fieldDdf;
    int wasOverride = columns.m_bErrOverride;
    columns.SetErrOverride(1);
    uint16_t columnId = base;
    LLPosition p;
    for (ListElem* e = m_FldList.LinkList::First(p); e; e = m_FldList.LinkList::Next(p)) {
        const CddFldDat& f = static_cast<CddFldElem*>(e)->m_Fld;
        std::string column(f.NameForDDF, strnlen(f.NameForDDF, sizeof(f.NameForDDF)));
        fieldDdf.Clear();
        fieldDdf.Id = ++columnId;
        fieldDdf.FileId = tableId;
        if (f.Type == dbZString && f.Length == 0) {
            fieldDdf.Type = kLongText;
            fieldDdf.Length = kLongTextLength;
            for (const SystemText& t : kSystemTexts) {
                if (!system || column != t.name) continue;
                fieldDdf.Type = t.type;
                fieldDdf.Length = t.length;
            }
        } else {
            fieldDdf.Type = uint8_t(CvtDbTypeToBtrType(dbFieldType(f.Type), GetFileType()));
            fieldDdf.Length = f.Length;
        }
        fieldDdf.Offset = f.Offset;
        fieldDdf.NumDP = f.NumDP;
        PutPadded(fieldDdf.Name, sizeof(fieldDdf.Name), column);
        if (system) {
            fieldDdf.Flags = column.find("Name") != std::string::npos ? kCaseInsensitiveColumn : 0;
        } else {
            bool text = f.Type == dbString || f.Type == dbZString || f.Type == dbPhone;
            fieldDdf.Flags =
                text && FirstSegmentIgnoresCase(m_KeyList, f.FldId) ? kCaseInsensitiveColumn : 0;
        }
        if (fieldDdf.Insert(nullptr) != 0)
            ShowMessage(kDuplicateColumn, kMsgWarning, location.c_str(),
                        std::string(f.Name, strnlen(f.Name, sizeof(f.Name))).c_str());
    }
    columns.SetErrOverride(wasOverride);

    // The key segments, numbered from 0 within each key.
    uint16_t segmentNo = 0;
    for (ListElem* e = m_KeyList.LinkList::First(p); e; e = m_KeyList.LinkList::Next(p)) {
        const CddKeyDat& k = static_cast<CddKeyElem*>(e)->m_Key;
        indexDdf.Clear();
        indexDdf.FileId = tableId;
        indexDdf.FieldId = uint16_t(k.FldId + base + 1);
        indexDdf.KeyNo = k.KeySpec.KeyNo;
        indexDdf.SegmentNo = segmentNo++;
        if (system) {
            indexDdf.Flags = SystemFlags(tableId, indexDdf.KeyNo, indexDdf.FieldId);
        } else {
            indexDdf.Flags = uint16_t(k.KeySpec.Flags | kKeyExtendedType);
            if (indexDdf.Flags & kKeyCaseInsensitive)
                indexDdf.Flags =
                    uint16_t((indexDdf.Flags & ~kKeyCaseInsensitive) | kCatalogueCaseInsensitive);
        }
        indexDdf.Insert(nullptr);
        if (!(indexDdf.Flags & kKeySegmented)) segmentNo = 0;
    }
}
