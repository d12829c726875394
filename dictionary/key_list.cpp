#include "dictionary/key_list.h"

#include <cstring>
#include <vector>

CddKeyElem::CddKeyElem() {
    std::memset(&m_Key, 0, sizeof(m_Key));
}

void CddKeyElem::SetSegment(const CddFldDat* fld) {
    if (!fld) return;
    m_Key.FldId = fld->FldId;
    m_Key.KeySpec.Position = uint16_t(fld->Offset + 1);
    m_Key.KeySpec.Length = fld->Length;
}

int CddKeyList::FindByKeyNo(int keyNo) {
    return SelectFirst([&](const CddKeyElem& e) { return e.m_Key.KeySpec.KeyNo == keyNo; });
}

int CddKeyList::FindByFldId(unsigned short fldId) {
    return SelectFirst([&](const CddKeyElem& e) { return e.m_Key.FldId == fldId; });
}

int CddKeyList::NextByFldId(unsigned short fldId) {
    return SelectNext([&](const CddKeyElem& e) { return e.m_Key.FldId == fldId; });
}

int CddKeyList::AddKey(int keyNo) {
    auto* e = new CddKeyElem;
    e->m_Key.KeySpec.KeyNo = uint8_t(keyNo);
    return AddKey(e);
}

int CddKeyList::AddKey(CddKeyElem* e) {
    Add(e);
    return Select(e);
}

int CddKeyList::InsKey(int keyNo) {
    // The segments already in the key say that one follows; the new one goes
    // before the first segment of a higher key.
    int index = 0;
    LLPosition p;
    for (ListElem* e = LinkList::First(p); e; e = LinkList::Next(p), ++index) {
        auto* k = static_cast<CddKeyElem*>(e);
        if (k->m_Key.KeySpec.KeyNo > keyNo) break;
        if (k->m_Key.KeySpec.KeyNo == keyNo) k->m_Key.KeySpec.Flags |= kKeySegmented;
    }
    auto* n = new CddKeyElem;
    n->m_Key.KeySpec.KeyNo = uint8_t(keyNo);
    Insert(index, n);
    return Select(n);
}

int CddKeyList::DelKey() {
    if (!cur_) return 0;
    Delete(cur_);
    Select(nullptr);
    return 1;
}

int CddKeyList::DelKey(short keyNo) {
    if (!FindByKeyNo(keyNo)) return 0;
    std::vector<ListElem*> run{cur_};
    while (cur_ && (cur_->m_Key.KeySpec.Flags & kKeySegmented) && Next())
        run.push_back(cur_);
    for (auto it = run.rbegin(); it != run.rend(); ++it)
        Delete(*it);
    Select(nullptr);
    return 1;
}

int CddKeyList::MakeNewKeyNo() const {
    int answer = -1;
    LLPosition p;
    for (ListElem* e = LinkList::First(p); e; e = LinkList::Next(p)) {
        int n = static_cast<CddKeyElem*>(e)->m_Key.KeySpec.KeyNo;
        if (answer <= n) answer = n + 1;
    }
    return answer < 1 ? 0 : answer;
}

void CddKeyList::SetFldId(unsigned short v) {
    if (cur_) cur_->m_Key.FldId = v;
}
void CddKeyList::SetKeyName(const char* s) {
    if (cur_) CopyFixedText(cur_->m_Key.KeyName, sizeof(cur_->m_Key.KeyName), s);
}
void CddKeyList::SetPosition(unsigned short v) {
    if (cur_) cur_->m_Key.KeySpec.Position = v;
}
void CddKeyList::SetLength(unsigned short v) {
    if (cur_) cur_->m_Key.KeySpec.Length = v;
}
void CddKeyList::SetFlags(unsigned short v) {
    if (cur_) cur_->m_Key.KeySpec.Flags = v;
}
void CddKeyList::SetNullVal(unsigned char v) {
    if (cur_) cur_->m_Key.KeySpec.NullValue = v;
}
void CddKeyList::SetKeyNo(int v) {
    if (cur_) cur_->m_Key.KeySpec.KeyNo = uint8_t(v);
}
void CddKeyList::SetAcsNo(unsigned char v) {
    if (cur_) cur_->m_Key.KeySpec.AcsNo = v;
}
void CddKeyList::SetType(dbFieldType v) {
    if (cur_) cur_->m_Key.KeySpec.Type = uint8_t(v);
}
void CddKeyList::SetSegment(const CddFldDat* fld) {
    if (cur_) cur_->SetSegment(fld);
}
