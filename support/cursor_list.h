// CursorList: a LinkList of one element type with a current element that the
// derived list's accessors work on. Moving answers 1 when an element was
// reached (it becomes current), else 0 with no current element.
#pragma once

#include "support/link_list.h"

template <class Elem>
class CursorList : public LinkList {
  public:
    explicit CursorList(int sorted = 0) : LinkList(sorted) {}
    // A copy has its own elements; its current element is the copy of the
    // source's current one.
    CursorList(const CursorList& o) : LinkList(o) { SelectLike(o); }
    CursorList& operator=(const CursorList& o) {
        if (this != &o) {
            LinkList::operator=(o);
            SelectLike(o);
        }
        return *this;
    }

    int First() { return Select(LinkList::First(pos_)); }
    int Last() { return Select(LinkList::Last(pos_)); }
    // Without a current element these do nothing and answer 0.
    int Next() { return cur_ ? Select(LinkList::Next(pos_)) : 0; }
    int Prev() { return cur_ ? Select(LinkList::Prev(pos_)) : 0; }
    int Find(int index) { return Select(LinkList::Find(index)); }

    Elem* Current() const { return cur_; }

  protected:
    int Select(ListElem* e) {
        cur_ = static_cast<Elem*>(e);
        pos_.at = e;
        return cur_ ? 1 : 0;
    }
    // The first element, from the first on, for which `match` holds.
    template <class Match>
    int SelectFirst(Match match) {
        return SelectFrom(LinkList::First(pos_), match);
    }
    // The next one after the current element; 0 without a current element.
    template <class Match>
    int SelectNext(Match match) {
        return cur_ ? SelectFrom(LinkList::Next(pos_), match) : 0;
    }

    Elem* cur_ = nullptr;

  private:
    template <class Match>
    int SelectFrom(ListElem* e, Match match) {
        for (; e; e = LinkList::Next(pos_))
            if (match(*static_cast<Elem*>(e))) return Select(e);
        return Select(nullptr);
    }
    void SelectLike(const CursorList& o) {
        Select(o.cur_ ? LinkList::Find(o.LinkList::Find(o.cur_)) : nullptr);
    }

    LLPosition pos_;
};
