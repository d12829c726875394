#include "support/link_list.h"

#include <atomic>

namespace {
std::atomic<uint64_t> g_nextId{1};
}

ID::ID() : value_(g_nextId++) {}

ListElem::~ListElem() {
    if (list_) list_->Remove(this);
}

LinkList::LinkList(const LinkList& o) : sorted_(o.sorted_) {
    CopyFrom(o);
}

LinkList& LinkList::operator=(const LinkList& o) {
    if (this != &o) {
        Reset();
        sorted_ = o.sorted_;
        CopyFrom(o);
    }
    return *this;
}

LinkList::~LinkList() {
    Reset();
}

void LinkList::CopyFrom(const LinkList& o) {
    for (ListElem* e = o.head_; e; e = e->next_)
        Add(e->Clone());
}

void LinkList::Add(ListElem* e) {
    Insert(count_, e);
}

void LinkList::Insert(int index, ListElem* e) {
    if (!e) return;
    if (e->list_) e->list_->Remove(e);
    ListElem* before = index < 0 ? head_ : Find(index);
    e->list_ = this;
    e->next_ = before;
    e->prev_ = before ? before->prev_ : tail_;
    if (e->prev_)
        e->prev_->next_ = e;
    else
        head_ = e;
    if (before)
        before->prev_ = e;
    else
        tail_ = e;
    ++count_;
}

void LinkList::Remove(ListElem* e) {
    if (!e || e->list_ != this) return;
    if (e->prev_)
        e->prev_->next_ = e->next_;
    else
        head_ = e->next_;
    if (e->next_)
        e->next_->prev_ = e->prev_;
    else
        tail_ = e->prev_;
    e->list_ = nullptr;
    e->prev_ = e->next_ = nullptr;
    --count_;
}

void LinkList::Delete(ListElem* e) {
    Remove(e);
    delete e;
}

void LinkList::Reset() {
    while (head_)
        Delete(head_);
}

ListElem* LinkList::Find(int index) const {
    if (index < 0) return nullptr;
    ListElem* e = head_;
    while (e && index-- > 0)
        e = e->next_;
    return e;
}

int LinkList::Find(const ListElem* e) const {
    int i = 0;
    for (ListElem* x = head_; x; x = x->next_, ++i)
        if (x == e) return i;
    return -1;
}

ListElem* LinkList::Find(const ListElem& like, int from) const {
    for (ListElem* x = Find(from < 0 ? 0 : from); x; x = x->next_)
        if (*x == like) return x;
    return nullptr;
}
