#include "dbfile/db_stat.h"

#include <cstring>

DbStatKeyElem::DbStatKeyElem() {
    std::memset(&m_Key, 0, sizeof(m_Key));
}

DbStatKeyList::DbStatKeyList(const DbStatKeyList& o) : LinkList(o) {
    Select(o.cur_ ? LinkList::Find(o.LinkList::Find(o.cur_)) : nullptr);
}

DbStatKeyList& DbStatKeyList::operator=(const DbStatKeyList& o) {
    if (this == &o) return *this;
    LinkList::operator=(o);
    Select(o.cur_ ? LinkList::Find(o.LinkList::Find(o.cur_)) : nullptr);
    return *this;
}

int DbStatKeyList::Select(ListElem* e) {
    cur_ = static_cast<DbStatKeyElem*>(e);
    pos_.at = e;
    return cur_ ? 1 : 0;
}

int DbStatKeyList::First() {
    return Select(LinkList::First(pos_));
}
int DbStatKeyList::Last() {
    return Select(LinkList::Last(pos_));
}
int DbStatKeyList::Next() {
    return cur_ ? Select(LinkList::Next(pos_)) : 0;
}
int DbStatKeyList::Prev() {
    return cur_ ? Select(LinkList::Prev(pos_)) : 0;
}
int DbStatKeyList::Find(int index) {
    return Select(LinkList::Find(index));
}

int DbStatKeyList::FindByKeyNo(int keyNo) {
    for (ListElem* e = LinkList::First(pos_); e; e = LinkList::Next(pos_))
        if (static_cast<DbStatKeyElem*>(e)->m_Key.KeyNo == keyNo) return Select(e);
    return Select(nullptr);
}

int DbStatKeyList::FindIndex(unsigned short offset, int anySegment) {
    bool keyStart = true;  // the element is the first segment of its key
    for (ListElem* e = LinkList::First(pos_); e; e = LinkList::Next(pos_)) {
        const DbStatKeySpec& k = static_cast<DbStatKeyElem*>(e)->m_Key;
        if ((anySegment || keyStart) && k.Position == offset + 1) return Select(e);
        keyStart = !(k.Flags & kKeySegmented);
    }
    return Select(nullptr);
}

void DbStatKeyList::AddKey(DbStatKeyElem* e) {
    Add(e);
    Select(e);
}

DbStatStruct::DbStatStruct() {
    std::memset(&m_Spec, 0, sizeof(m_Spec));
}
