// The relations of a data file: named entries, each with a second text that
// the library stores and finds but gives no further meaning.
#pragma once

#include "support/link_list.h"
#include "support/zstring.h"

class CddRelElem : public ListElem {
  public:
    CddRelElem() = default;
    explicit CddRelElem(const char* name) : m_Name(name) {}
    CddRelElem(const char* name, const char* text) : m_Name(name), m_Text(text) {}
    CddRelElem(const CddRelElem& o) = default;
    CddRelElem& operator=(const CddRelElem& o) = default;

    // Ordered and found by name, ignoring case.
    bool operator<(const ListElem& o) const override;
    bool operator==(const ListElem& o) const override;
    // Bytes of the stored form: both texts with their terminators.
    int WriteSize() const { return m_Name.Length() + m_Text.Length() + 2; }

    ZString m_Name;
    ZString m_Text;

  protected:
    ListElem* Clone() const override { return new CddRelElem(*this); }
};

class CddRelList : public LinkList {
  public:
    CddRelElem* First(LLPosition& p) const { return static_cast<CddRelElem*>(LinkList::First(p)); }
    CddRelElem* Last(LLPosition& p) const { return static_cast<CddRelElem*>(LinkList::Last(p)); }
    CddRelElem* Next(LLPosition& p) const { return static_cast<CddRelElem*>(LinkList::Next(p)); }
    CddRelElem* Prev(LLPosition& p) const { return static_cast<CddRelElem*>(LinkList::Prev(p)); }
    CddRelElem* CurElem(const LLPosition& p) const { return static_cast<CddRelElem*>(p.at); }
    void Add(CddRelElem* e) { LinkList::Add(e); }
    // The first entry named `name` (ignoring case), searching from index `from`.
    CddRelElem* Find(const char* name, int from) const;
    int WriteSize() const;
};
