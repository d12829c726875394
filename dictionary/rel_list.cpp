#include "dictionary/rel_list.h"

bool CddRelElem::operator<(const ListElem& o) const {
    const auto* r = dynamic_cast<const CddRelElem*>(&o);
    return r && m_Name.CompareNoCase(r->m_Name) < 0;
}

bool CddRelElem::operator==(const ListElem& o) const {
    const auto* r = dynamic_cast<const CddRelElem*>(&o);
    return r && m_Name.CompareNoCase(r->m_Name) == 0;
}

CddRelElem* CddRelList::Find(const char* name, int from) const {
    CddRelElem like(name);
    return static_cast<CddRelElem*>(LinkList::Find(like, from));
}

int CddRelList::WriteSize() const {
    int n = 0;
    LLPosition p;
    for (CddRelElem* e = First(p); e; e = Next(p))
        n += e->WriteSize();
    return n;
}
