#include "dbfile/db_stat.h"

#include <cstring>

DbStatKeyElem::DbStatKeyElem() {
    std::memset(&m_Key, 0, sizeof(m_Key));
}

int DbStatKeyList::FindByKeyNo(int keyNo) {
    return SelectFirst([&](const DbStatKeyElem& e) { return e.m_Key.KeyNo == keyNo; });
}

int DbStatKeyList::FindIndex(unsigned short offset, int anySegment) {
    bool keyStart = true;  // the element is the first segment of its key
    return SelectFirst([&](const DbStatKeyElem& e) {
        bool found = (anySegment || keyStart) && e.m_Key.Position == offset + 1;
        keyStart = !(e.m_Key.Flags & kKeySegmented);
        return found;
    });
}

void DbStatKeyList::AddKey(DbStatKeyElem* e) {
    Add(e);
    Select(e);
}

DbStatStruct::DbStatStruct() {
    std::memset(&m_Spec, 0, sizeof(m_Spec));
}
