#include "dictionary/fld_list.h"

#include <cstring>
#include <initializer_list>

namespace {

// Fixed part of the flattened field, before its four texts.
constexpr int kFlatFixed = 23;

template <class T>
void Put(char*& p, T v) {
    std::memcpy(p, &v, sizeof(T));
    p += sizeof(T);
}

// Reads a value and steps past it. It answers by value: the members it goes
// into are packed and may not be bound to a reference.
template <class T>
T Take(const char*& p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    p += sizeof(T);
    return v;
}

// Reads one zero-terminated text, keeping at most `size` bytes of it
// (terminated), and steps past its terminator.
void GetText(const char*& p, char* member, size_t size) {
    size_t n = std::strlen(p);
    std::memset(member, 0, size);
    std::memcpy(member, p, n < size ? n : size - 1);
    p += n + 1;
}

}  // namespace

CddFldElem::CddFldElem() {
    std::memset(&m_Fld, 0, sizeof(m_Fld));
}

CddFldElem::CddFldElem(const CddFldElem& o) : ListElem(o), m_Fld(o.m_Fld) {
    NewIdentity();
}

CddFldElem::CddFldElem(const char* flat) : CddFldElem() {
    Reconstitute(flat);
}

CddFldElem& CddFldElem::operator=(const CddFldElem& o) {
    ListElem::operator=(o);
    m_Fld = o.m_Fld;
    return *this;
}

int CddFldElem::SizeWhenFlat() const {
    return kFlatFixed + 4 +
           int(std::strlen(m_Fld.Name) + std::strlen(m_Fld.Desc) + std::strlen(m_Fld.Prompt) +
               std::strlen(m_Fld.NameForDDF));
}

int CddFldElem::Flatten(char* out) const {
    char* p = out;
    int size = SizeWhenFlat();
    Put<uint16_t>(p, uint16_t(size));
    Put(p, m_Fld.FldId);
    Put(p, m_Fld.Offset);
    Put(p, m_Fld.Length);
    Put(p, m_Fld.Type);
    Put(p, m_Fld.VarLen);
    Put(p, m_Fld.NumDP);
    Put(p, m_Fld.DispCode);
    Put(p, m_Fld.CodeId);
    Put(p, m_Fld.HighWaterId);
    for (const char* t : {m_Fld.Name, m_Fld.Desc, m_Fld.Prompt, m_Fld.NameForDDF}) {
        size_t n = std::strlen(t) + 1;
        std::memcpy(p, t, n);
        p += n;
    }
    return size;
}

int CddFldElem::Reconstitute(const char* in) {
    const char* p = in;
    uint16_t size = Take<uint16_t>(p);
    m_Fld.FldId = Take<decltype(m_Fld.FldId)>(p);
    m_Fld.Offset = Take<decltype(m_Fld.Offset)>(p);
    m_Fld.Length = Take<decltype(m_Fld.Length)>(p);
    m_Fld.Type = Take<decltype(m_Fld.Type)>(p);
    m_Fld.VarLen = Take<decltype(m_Fld.VarLen)>(p);
    m_Fld.NumDP = Take<decltype(m_Fld.NumDP)>(p);
    m_Fld.DispCode = Take<decltype(m_Fld.DispCode)>(p);
    m_Fld.CodeId = Take<decltype(m_Fld.CodeId)>(p);
    m_Fld.HighWaterId = Take<decltype(m_Fld.HighWaterId)>(p);
    GetText(p, m_Fld.Name, sizeof(m_Fld.Name));
    GetText(p, m_Fld.Desc, sizeof(m_Fld.Desc));
    GetText(p, m_Fld.Prompt, sizeof(m_Fld.Prompt));
    GetText(p, m_Fld.NameForDDF, sizeof(m_Fld.NameForDDF));
    return size;
}

int CddFldList::FindByFldId(unsigned short id) {
    return SelectFirst([&](const CddFldElem& e) { return e.m_Fld.FldId == id; });
}

int CddFldList::FindByOffset(unsigned short offset) {
    return SelectFirst([&](const CddFldElem& e) { return e.m_Fld.Offset == offset; });
}

int CddFldList::FindByName(const char* name) {
    return SelectFirst(
        [&](const CddFldElem& e) { return name && std::strcmp(e.m_Fld.Name, name) == 0; });
}

int CddFldList::AddFld(CddFldElem* e) {
    Add(e);
    Select(e);
    return 1;
}

int CddFldList::InsFld(int index, CddFldElem* e) {
    Insert(index, e);
    Select(e);
    return 1;
}

int CddFldList::DelFld() {
    if (!cur_) return m_nDelResult = 0;
    Delete(cur_);
    Select(nullptr);
    return m_nDelResult = 1;
}

int CddFldList::DelFld(unsigned short id) {
    return FindByFldId(id) ? DelFld() : (m_nDelResult = 0);
}

void CddFldList::SetFldId(unsigned short v) {
    if (cur_) cur_->m_Fld.FldId = v;
}
void CddFldList::SetFldLen(unsigned short v) {
    if (cur_) cur_->m_Fld.Length = v;
}
void CddFldList::SetFldOffset(unsigned short v) {
    if (cur_) cur_->m_Fld.Offset = v;
}
void CddFldList::SetFldType(dbFieldType v) {
    if (cur_) cur_->m_Fld.Type = uint8_t(v);
}
void CddFldList::SetFldNumDP(unsigned char v) {
    if (cur_) cur_->m_Fld.NumDP = v;
}
void CddFldList::SetFldVarLen(int v) {
    if (cur_) cur_->m_Fld.VarLen = v;
}
void CddFldList::SetFldDispCode(dbDispCode v) {
    if (cur_) cur_->m_Fld.DispCode = uint8_t(v);
}
void CddFldList::SetFldCodeId(int v) {
    if (cur_) cur_->m_Fld.CodeId = v;
}
void CddFldList::SetFldHighWaterId(unsigned long v) {
    if (cur_) cur_->m_Fld.HighWaterId = uint32_t(v);
}
void CddFldList::SetFldName(const char* s) {
    if (cur_) CopyFixedText(cur_->m_Fld.Name, sizeof(cur_->m_Fld.Name), s);
}
void CddFldList::SetFldDesc(const char* s) {
    if (cur_) CopyFixedText(cur_->m_Fld.Desc, sizeof(cur_->m_Fld.Desc), s);
}
void CddFldList::SetFldPrompt(const char* s) {
    if (cur_) CopyFixedText(cur_->m_Fld.Prompt, sizeof(cur_->m_Fld.Prompt), s);
}
void CddFldList::SetFldNameForDDF(const char* s) {
    if (cur_) CopyFixedText(cur_->m_Fld.NameForDDF, sizeof(cur_->m_Fld.NameForDDF), s);
}
