#include "dictionary/cdd.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "dictionary/create_spec.h"

char g_CddFileName[261];

namespace {

constexpr size_t kFileDat = sizeof(CddFileDat);
constexpr size_t kKeyDat = sizeof(CddKeyDat);
const char kRelList[] = "RelList";        // 8 bytes with its terminator
const char kOneRcdFile[] = "OneRcdFile";  // 11
const char kOutdated[] = "Outdated";      // 9

// True when the `avail` bytes at `p` begin with a readable flattened field:
// its size word fits them and its four texts end within that size. Another
// program may have padded the field or written texts longer than the
// members keep; the size word, not the texts, says where the next begins.
bool ReadableField(const char* p, size_t avail) {
    if (avail < 27) return false;
    uint16_t size;
    std::memcpy(&size, p, 2);
    if (size < 27 || size > avail) return false;
    size_t at = 23;
    for (int t = 0; t < 4; ++t) {
        if (at >= size) return false;
        const void* nul = std::memchr(p + at, 0, size - at);
        if (!nul) return false;
        at = size_t(static_cast<const char*>(nul) - p) + 1;
    }
    return true;
}

// The dictionary file's create buffer: a 175-byte file record, key 0 the
// entry's file id (engine autoincrement), key 1 the data file's name
// (zstring, case-insensitive); variable-length, key numbers given.
std::vector<uint8_t> DictionarySpec() {
    std::vector<uint8_t> b(48, 0);
    auto put16 = [&](size_t at, uint16_t v) { std::memcpy(&b[at], &v, 2); };
    put16(0, kFileDat);
    put16(2, 4096);
    put16(4, 2);
    put16(10, 0x0401);
    put16(16, 1);
    put16(18, 2);
    put16(20, 0x0104);
    b[26] = 15;
    b[30] = 0;
    put16(32, 24);
    put16(34, 65);
    put16(36, 0x0502);
    b[42] = 11;
    b[46] = 1;
    return b;
}

}  // namespace

CCdd::CCdd(HWND, const char* name) : CDbFile(name, nullptr, 1, 0) {
    Clear();
}

CCdd::~CCdd() {
    Clear();
}

int CCdd::CreateCddFile(HWND hwnd) {
    std::vector<uint8_t> spec = DictionarySpec();
    return Create(hwnd, spec.data(), uint16_t(spec.size()), 1);
}

int CCdd::Open(HWND hwnd, dbOpenType mode, int create) {
    bool createBit = mode & dbOpenCreate;
    // The file is created here, from the dictionary's own shape, never from
    // the (empty) description.
    dbOpenType plain = dbOpenType(mode & ~dbOpenCreate);
    if (!plain) plain = dbOpenNormal;
    int status;
    if (createBit && create) {
        status = CreateCddFile(hwnd);
        if (status == 0) status = CDbFile::Open(hwnd, plain, nullptr);
        return status;
    }
    SetErrOverride(1);  // a missing file is not news when it is to be created
    status = CDbFile::Open(hwnd, plain, nullptr);
    SetErrOverride(0);
    if (status == 12 && createBit) {
        status = CreateCddFile(hwnd);
        if (status == 0) status = CDbFile::Open(hwnd, plain, nullptr);
    } else if (status) {
        status = TranslateError(status);  // shown now
    }
    return status;
}

void CCdd::Clear() {
    std::memset(&m_FileDat, 0, sizeof(m_FileDat));
    m_FldList.Reset();
    m_FldList.First();
    m_KeyList.Reset();
    m_KeyList.First();
    m_RelList.Reset();
}

void CCdd::OverrideDemographics(CddFileDat* file, CddFldList* fields, CddKeyList* keys,
                                CddRelList* rels, int* oneRcdFile, int* outdated) {
    m_bOverride = file != nullptr;
    m_pOvFile = file;
    m_pOvFields = file ? fields : nullptr;
    m_pOvKeys = file ? keys : nullptr;
    m_pOvRels = file ? rels : nullptr;
    m_pOvOneRcdFile = file ? oneRcdFile : nullptr;
    m_pOvOutdated = file ? outdated : nullptr;
}

void CCdd::OnReadRecord() {
    Clear();
    CddFileDat* file = m_bOverride && m_pOvFile ? m_pOvFile : &m_FileDat;
    CddFldList* fields = m_bOverride && m_pOvFields ? m_pOvFields : &m_FldList;
    CddKeyList* keys = m_bOverride && m_pOvKeys ? m_pOvKeys : &m_KeyList;
    CddRelList* rels = m_bOverride && m_pOvRels ? m_pOvRels : &m_RelList;
    int* oneRcdFile = m_bOverride && m_pOvOneRcdFile ? m_pOvOneRcdFile : &m_bOneRcdFile;
    int* outdated = m_bOverride && m_pOvOutdated ? m_pOvOutdated : &m_bOutdated;

    const char* rec = m_pRcdBuf;
    size_t len = m_nDataLen;
    *oneRcdFile = *outdated = 0;  // unless their markers are found
    if (len < kFileDat) {
        // A record cut short: what there is of the file record, nothing more.
        std::memset(file, 0, kFileDat);
        if (len) std::memcpy(file, rec, len);
        return;
    }
    std::memcpy(file, rec, kFileDat);
    size_t at = kFileDat;
    for (int i = 0; i < file->FldCount && ReadableField(rec + at, len - at); ++i) {
        auto* e = new CddFldElem;
        at += size_t(e->Reconstitute(rec + at));
        fields->AddFld(e);
    }
    int keysLeft = file->FileSpec.NdxCount;
    while (at + kKeyDat <= len && keysLeft > 0) {
        auto* e = new CddKeyElem;
        std::memcpy(&e->m_Key, rec + at, kKeyDat);
        keys->AddKey(e);
        if (!(e->m_Key.KeySpec.Flags & kKeySegmented)) --keysLeft;
        at += kKeyDat;
    }
    if (len - at >= sizeof(kRelList) && std::memcmp(rec + at, kRelList, sizeof(kRelList)) == 0 &&
        len - at >= 12) {
        uint32_t count;
        std::memcpy(&count, rec + at + 8, 4);
        at += 12;
        for (uint32_t i = 0; i < count && at < len; ++i) {
            const char* a = rec + at;
            const void* end = std::memchr(a, 0, len - at);
            if (!end) break;
            at = size_t(static_cast<const char*>(end) - rec) + 1;
            const char* b = rec + at;
            end = at < len ? std::memchr(b, 0, len - at) : nullptr;
            if (!end) break;
            at = size_t(static_cast<const char*>(end) - rec) + 1;
            rels->Add(new CddRelElem(a, b));
        }
    }
    if (len - at >= sizeof(kOneRcdFile) &&
        std::memcmp(rec + at, kOneRcdFile, sizeof(kOneRcdFile)) == 0) {
        *oneRcdFile = 1;
        at += sizeof(kOneRcdFile);
    }
    *outdated =
        len - at >= sizeof(kOutdated) && std::memcmp(rec + at, kOutdated, sizeof(kOutdated)) == 0;
}

int CCdd::CalcRcdSize() {
    int size = int(kFileDat) + int(kKeyDat) * m_KeyList.Count();
    LLPosition p;
    for (ListElem* e = m_FldList.LinkList::First(p); e; e = m_FldList.LinkList::Next(p))
        size += static_cast<CddFldElem*>(e)->SizeWhenFlat();
    if (m_RelList.Count()) size += 12 + m_RelList.WriteSize();
    if (m_bOneRcdFile) size += int(sizeof(kOneRcdFile));
    if (m_bOutdated) size += int(sizeof(kOutdated));
    return size;
}

void CCdd::OnWriteRecord() {
    AdjustFieldIds();
    SetDataLen(uint16_t(CalcRcdSize()));
    char* out = m_pRcdBuf;
    size_t at = kFileDat;
    m_FileDat.FldCount = 0;
    m_FileDat.FileSpec.RecLen = 0;
    LLPosition p;
    for (ListElem* e = m_FldList.LinkList::First(p); e; e = m_FldList.LinkList::Next(p)) {
        auto* f = static_cast<CddFldElem*>(e);
        at += size_t(f->Flatten(out + at));
        m_FileDat.FldCount++;
        m_FileDat.FileSpec.RecLen = uint16_t(m_FileDat.FileSpec.RecLen + f->m_Fld.Length);
    }
    m_FileDat.FileSpec.NdxCount = 0;
    for (ListElem* e = m_KeyList.LinkList::First(p); e; e = m_KeyList.LinkList::Next(p)) {
        auto* k = static_cast<CddKeyElem*>(e);
        std::memcpy(out + at, &k->m_Key, kKeyDat);
        at += kKeyDat;
        if (!(k->m_Key.KeySpec.Flags & kKeySegmented)) m_FileDat.FileSpec.NdxCount++;
    }
    if (m_RelList.Count()) {
        std::memcpy(out + at, kRelList, sizeof(kRelList));
        uint32_t count = uint32_t(m_RelList.Count());
        std::memcpy(out + at + 8, &count, 4);
        at += 12;
        for (CddRelElem* r = m_RelList.First(p); r; r = m_RelList.Next(p)) {
            for (const ZString* t : {&r->m_Name, &r->m_Text}) {
                std::memcpy(out + at, t->c_str(), size_t(t->Length()) + 1);
                at += size_t(t->Length()) + 1;
            }
        }
    }
    if (m_bOneRcdFile) {
        std::memcpy(out + at, kOneRcdFile, sizeof(kOneRcdFile));
        at += sizeof(kOneRcdFile);
    }
    if (m_bOutdated) std::memcpy(out + at, kOutdated, sizeof(kOutdated));
    std::memcpy(out, &m_FileDat, kFileDat);
}

char* CCdd::GetCreateSpec(unsigned short* len) {
    const CddFileDat& file = m_bOverride && m_pOvFile ? *m_pOvFile : m_FileDat;
    const CddKeyList& keys = m_bOverride && m_pOvKeys ? *m_pOvKeys : m_KeyList;
    std::vector<uint8_t> spec = BuildCreateSpec(file, keys);
    *len = uint16_t(spec.size());
    SetDataLen(*len);
    std::memcpy(m_pRcdBuf, spec.data(), spec.size());
    return m_pRcdBuf;
}

void CCdd::AddField(unsigned short id, unsigned short offset, int length, dbFieldType type,
                    int numDP, const char* name, const char* desc, const char* prompt) {
    auto* e = new CddFldElem;
    e->m_Fld.FldId = id;
    e->m_Fld.Offset = offset;
    e->m_Fld.Length = uint16_t(length);
    e->m_Fld.Type = uint8_t(type);
    e->m_Fld.NumDP = uint8_t(numDP);
    CopyFixedText(e->m_Fld.Name, sizeof(e->m_Fld.Name), name);
    CopyFixedText(e->m_Fld.Desc, sizeof(e->m_Fld.Desc), desc);
    CopyFixedText(e->m_Fld.Prompt, sizeof(e->m_Fld.Prompt), prompt);
    m_FldList.AddFld(e);
}

void CCdd::AddKey(unsigned char keyNo, const char* keyName, const char* fieldName, int flags) {
    auto* e = new CddKeyElem;
    CopyFixedText(e->m_Key.KeyName, sizeof(e->m_Key.KeyName), keyName);
    DbCreateKeySpec& k = e->m_Key.KeySpec;
    if (m_FldList.FindByName(fieldName)) {
        const CddFldDat* f = m_FldList.GetFldSpec();
        e->m_Key.FldId = f->FldId;
        k.Position = uint16_t(f->Offset + 1);
        k.Length = f->Length;
        k.Type = f->Type;
    } else {
        e->m_Key.FldId = 0xFFFF;
        k.Position = 0;
        k.Length = 0xFFFF;
        k.Type = 0xFF;
    }
    k.Flags = uint16_t(flags);
    k.KeyNo = keyNo;
    if (m_FileDat.FileType != dbFileSystem && k.Type == dbAutoInc) k.Type = dbUnsigned;
    m_KeyList.AddKey(e);
}

int CCdd::AddFld(CddFldElem* e) {
    m_FldList.Add(e);
    AdjustFieldOffsets();
    m_FldList.Find(m_FldList.LinkList::Find(e));
    return 1;
}

int CCdd::InsFld(int index, CddFldElem* e) {
    m_FldList.Insert(index, e);
    AdjustFieldOffsets();
    m_FldList.Find(m_FldList.LinkList::Find(e));
    return 1;
}

int CCdd::DelFld(unsigned short id) {
    if (!m_FldList.DelFld(id)) return 0;
    AdjustFieldOffsets();
    return 1;
}

void CCdd::AdjustFieldOffsets() {
    uint16_t offset = 0;
    LLPosition p;
    for (ListElem* e = m_FldList.LinkList::First(p); e; e = m_FldList.LinkList::Next(p)) {
        auto* f = static_cast<CddFldElem*>(e);
        f->m_Fld.Offset = offset;
        offset = uint16_t(offset + f->m_Fld.Length);
    }
    m_FileDat.FldCount = uint16_t(m_FldList.Count());
    AdjustKeysUsingFldId();
}

void CCdd::AdjustFieldIds() {
    uint16_t id = 0;
    LLPosition p;
    for (ListElem* e = m_FldList.LinkList::First(p); e; e = m_FldList.LinkList::Next(p))
        static_cast<CddFldElem*>(e)->m_Fld.FldId = id++;
    m_FileDat.FldCount = uint16_t(m_FldList.Count());
    AdjustKeysUsingFldOffset();
}

namespace {

// The field whose `match` is true, or null.
template <class Match>
const CddFldDat* FieldWhere(const CddFldList& list, Match match) {
    LLPosition p;
    for (ListElem* e = list.LinkList::First(p); e; e = list.LinkList::Next(p))
        if (match(static_cast<CddFldElem*>(e)->m_Fld)) return &static_cast<CddFldElem*>(e)->m_Fld;
    return nullptr;
}

}  // namespace

void CCdd::AdjustKeysUsingFldId() {
    LLPosition p;
    for (ListElem* e = m_KeyList.LinkList::First(p); e; e = m_KeyList.LinkList::Next(p)) {
        CddKeyDat& k = static_cast<CddKeyElem*>(e)->m_Key;
        if (const CddFldDat* f =
                FieldWhere(m_FldList, [&](const CddFldDat& d) { return d.FldId == k.FldId; })) {
            k.KeySpec.Position = uint16_t(f->Offset + 1);
            k.KeySpec.Length = f->Length;
        }
    }
}

void CCdd::AdjustKeysUsingFldOffset() {
    LLPosition p;
    for (ListElem* e = m_KeyList.LinkList::First(p); e; e = m_KeyList.LinkList::Next(p)) {
        CddKeyDat& k = static_cast<CddKeyElem*>(e)->m_Key;
        if (const CddFldDat* f = FieldWhere(m_FldList, [&](const CddFldDat& d) {
                return d.Offset + 1 == k.KeySpec.Position;
            })) {
            k.FldId = f->FldId;
            k.KeySpec.Position = uint16_t(f->Offset + 1);
            k.KeySpec.Length = f->Length;
        }
    }
}

int CCdd::GetSortKeyNo() {
    int highest = -1;
    LLPosition p;
    for (ListElem* e = m_KeyList.LinkList::First(p); e; e = m_KeyList.LinkList::Next(p))
        highest = std::max<int>(highest, static_cast<CddKeyElem*>(e)->m_Key.KeySpec.KeyNo);
    return highest + 1 < 1 ? 1 : highest + 1;
}

int CCdd::GetKeyNoUsingFldId(unsigned short fldId) {
    bool keyStart = true;
    LLPosition p;
    for (ListElem* e = m_KeyList.LinkList::First(p); e; e = m_KeyList.LinkList::Next(p)) {
        const CddKeyDat& k = static_cast<CddKeyElem*>(e)->m_Key;
        if (keyStart && k.FldId == fldId) return k.KeySpec.KeyNo;
        keyStart = !(k.KeySpec.Flags & kKeySegmented);
    }
    return -1;
}
