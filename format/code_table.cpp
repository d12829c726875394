#include "format/code_table.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "dbfile/db_file.h"
#include "format/code_file.h"

namespace {

// The alternate map: table ids and the ids loaded in their place, in the
// order they were set.
std::vector<std::pair<unsigned long, unsigned long>>& Alternates() {
    static std::vector<std::pair<unsigned long, unsigned long>> map;
    return map;
}

constexpr int kCodeTableKey = 0;

}  // namespace

CCodeEntry::CCodeEntry(const char* code, const char* description)
    : m_Code(code ? code : ""), m_Desc(description ? description : "") {}

CCodeEntry::CCodeEntry(const CCodeEntry& o) : ListElem(o), m_Code(o.m_Code), m_Desc(o.m_Desc) {}

CCodeEntry& CCodeEntry::operator=(const CCodeEntry& o) {
    ListElem::operator=(o);
    m_Code = o.m_Code;
    m_Desc = o.m_Desc;
    return *this;
}

CCodeEntry::~CCodeEntry() = default;

bool CCodeEntry::operator<(const ListElem& o) const {
    auto* e = dynamic_cast<const CCodeEntry*>(&o);
    return e && m_Code.Compare(e->m_Code) < 0;
}

bool CCodeEntry::operator==(const ListElem& o) const {
    auto* e = dynamic_cast<const CCodeEntry*>(&o);
    return e && m_Code.Compare(e->m_Code) == 0;
}

CCodeTable::CCodeTable() = default;

CCodeTable::CCodeTable(const CCodeTable& o) : LinkList(o), m_Type(o.m_Type), m_Length(o.m_Length) {
    // The cursor rests on the copy of the element the other's rests on.
    if (o.m_Pos.at) m_Pos.at = LinkList::Find(o.LinkList::Find(o.m_Pos.at));
}

CCodeTable& CCodeTable::operator=(const CCodeTable& o) {
    if (this == &o) return *this;
    InitTable(o.m_Type, o.m_Length);
    LLPosition p;
    for (ListElem* e = o.LinkList::First(p); e; e = o.LinkList::Next(p)) {
        auto* c = static_cast<CCodeEntry*>(e);
        Add(*c, c->Desc());
    }
    return *this;
}

CCodeTable::~CCodeTable() = default;

void CCodeTable::InitTable(dbFieldType type, int length) {
    Reset();
    m_Pos.at = nullptr;
    m_Type = type;
    m_Length = std::max(length, 0);
}

void CCodeTable::Add(const char* code, const char* description) {
    LinkList::Add(new CCodeEntry(code, description));
}

CCodeEntry* CCodeTable::First() {
    return static_cast<CCodeEntry*>(LinkList::First(m_Pos));
}
CCodeEntry* CCodeTable::Next() {
    return static_cast<CCodeEntry*>(LinkList::Next(m_Pos));
}
CCodeEntry* CCodeTable::Last() {
    return static_cast<CCodeEntry*>(LinkList::Last(m_Pos));
}
CCodeEntry* CCodeTable::Prev() {
    return static_cast<CCodeEntry*>(LinkList::Prev(m_Pos));
}

void CCodeTable::LoadTable(dbFieldType type, int length, const char* text) {
    InitTable(type, length);
    ParseTableElements(ZString(text ? text : ""));
}

void CCodeTable::LoadTable(dbFieldType type, int length, int tableId) {
    InitTable(type, length);
    RetrieveTableElements(tableId);
}

void CCodeTable::LoadTable(CDbFile* file, int fieldId) {
    Reset();
    m_Pos.at = nullptr;
    if (!file) return;
    uint16_t id = uint16_t(fieldId);
    m_Type = file->GetFieldType(id);
    m_Length = file->GetFieldLength(id);
    RetrieveTableElements(int(file->GetFieldCodeId(id)));
}

void CCodeTable::ParseTableElements(ZString text) {
    std::string rest = text.str();
    size_t at = 0;
    while (at < rest.size()) {
        size_t end = rest.find_first_of("\r\n", at);
        std::string line = rest.substr(at, end == std::string::npos ? std::string::npos : end - at);
        if (end == std::string::npos)
            at = rest.size();
        else
            at =
                end + (rest[end] == '\r' && end + 1 < rest.size() && rest[end + 1] == '\n' ? 2 : 1);
        size_t eq = line.find('=');
        ZString code(eq == std::string::npos ? std::string() : line.substr(0, eq));
        ZString desc(eq == std::string::npos ? line : line.substr(eq + 1));
        code.Trim();
        desc.Trim();
        if (code.IsEmpty()) code = " ";
        if (desc.IsEmpty()) desc = " ";
        Add(code, desc);
    }
}

void CCodeTable::RetrieveTableElements(int tableId) {
    unsigned long id = static_cast<unsigned long>(static_cast<uint32_t>(tableId));
    for (const auto& [from, to] : Alternates())
        if (from == id) {
            id = to;
            break;
        }
    CDbFile codes(CCodeFile::kFileName, CDbFile::GetSysDataPath(), 0, 0);
    if (codes.Open(nullptr, dbOpenReadOnly) != 0) return;
    codes.SetKey(kCodeTableKey);
    int32_t key = int32_t(id);
    codes.SetKeyData(&key, nullptr);
    // A description without the text field has no tables to give.
    if (codes.GetFieldIdOfName("Codes") >= 0 && codes.GetEqual(nullptr) == 0) {
        uint16_t offset = codes.GetFieldOffset("Codes");
        uint16_t read = codes.GetBytesRead();
        ZString text;
        if (offset < read)
            text = ZString(codes.RcdBuf() + offset,
                           int(strnlen(codes.RcdBuf() + offset, size_t(read - offset))));
        codes.Close(nullptr);
        ParseTableElements(text);
        return;
    }
    codes.Close(nullptr);
}

const char* CCodeTable::RollUpCodes(CString& out) {
    out = "";
    LLPosition p;
    for (ListElem* e = LinkList::First(p); e; e = LinkList::Next(p)) {
        auto* c = static_cast<CCodeEntry*>(e);
        if (!out.IsEmpty()) out += "\r\n";
        out += static_cast<const char*>(*c);
        out += "=";
        out += c->Desc();
    }
    return out;
}

int CCodeTable::LongestDesc() {
    int longest = 0;
    LLPosition p;
    for (ListElem* e = LinkList::First(p); e; e = LinkList::Next(p))
        longest = std::max(longest, int(std::strlen(static_cast<CCodeEntry*>(e)->Desc())));
    return longest;
}

int CCodeTable::Find(const void* storedCode) {
    m_Pos.at = nullptr;
    if (!storedCode) return 0;
    CString code;
    CDbFile::FormatFileDataToString(code, static_cast<const char*>(storedCode), m_Length, m_Type,
                                    -1);
    CCodeEntry like(code, "");
    m_Pos.at = LinkList::Find(like, -1);
    return m_Pos.at != nullptr;
}

int CCodeTable::Find(const char* description) {
    LLPosition p;
    for (ListElem* e = LinkList::First(p); e; e = LinkList::Next(p))
        if (std::strcmp(static_cast<CCodeEntry*>(e)->Desc(), description ? description : "") == 0) {
            m_Pos.at = e;
            return 1;
        }
    return 0;
}

int CCodeTable::FindPartial(const char* text) {
    const char* t = text ? text : "";
    size_t n = std::strlen(t);
    LLPosition p;
    for (ListElem* e = LinkList::First(p); e; e = LinkList::Next(p))
        if (strncasecmp(static_cast<CCodeEntry*>(e)->Desc(), t, n) == 0) {
            m_Pos.at = e;
            return 1;
        }
    return 0;
}

const char* CCodeTable::TranslateToDesc(const void* storedCode, CString& out) {
    if (Find(storedCode))
        out = Current()->Desc();
    else
        out.Fill('*', LongestDesc());
    return out;
}

const char* CCodeTable::TranslateToDesc(const void* storedCode, char* out) {
    if (!out) return out;
    CString text;
    TranslateToDesc(storedCode, text);
    std::memcpy(out, text.c_str(), size_t(text.Length()) + 1);
    return out;
}

void CCodeTable::TranslateToCode(const char* description, void* out) {
    if (!out) return;
    if (Find(description))
        CDbFile::FormatStringToFileData(*Current(), static_cast<char*>(out), m_Length, m_Type, -1);
    else if (m_Length > 0)
        std::memset(out, 0, size_t(m_Length));
}

void CCodeTable::TranslatePartialToCode(const char* text, void* out) {
    if (!out) return;
    if (FindPartial(text))
        CDbFile::FormatStringToFileData(*Current(), static_cast<char*>(out), m_Length, m_Type, -1);
    else if (m_Length > 0)
        std::memset(out, 0, size_t(m_Length));
}

void CCodeTable::SetAlternate(unsigned long id, unsigned long alternate) {
    auto& map = Alternates();
    for (auto it = map.begin(); it != map.end(); ++it)
        if (it->first == id) {
            if (alternate == 0)
                map.erase(it);
            else
                it->second = alternate;
            return;
        }
    map.emplace_back(id, alternate);
}
