// An owning, doubly linked list of elements. A list destroys its elements; an
// element destroyed on its own leaves its list. Cursors (LLPosition) walk it.
#pragma once

#include <cstdint>

class LinkList;

// The identity of an element: unique in the process unless taken over by a copy.
class ID {
  public:
    ID();
    bool operator==(const ID& o) const { return value_ == o.value_; }
    bool operator!=(const ID& o) const { return value_ != o.value_; }
    uint64_t Value() const { return value_; }

  private:
    uint64_t value_;
};

class ListElem {
  public:
    ListElem() = default;
    // A copy takes over the source's identity and belongs to no list.
    ListElem(const ListElem& o) : id_(o.id_) {}
    ListElem& operator=(const ListElem& o) {
        id_ = o.id_;
        return *this;
    }
    virtual ~ListElem();
    virtual bool operator<(const ListElem&) const { return true; }
    virtual bool operator==(const ListElem& o) const { return id_ == o.id_; }

    const ID& Id() const { return id_; }
    LinkList* List() const { return list_; }

  protected:
    void NewIdentity() { id_ = ID(); }
    // A copy of the element for a copied list; the element's own type makes it.
    virtual ListElem* Clone() const = 0;

  private:
    friend class LinkList;
    LinkList* list_ = nullptr;
    ListElem* prev_ = nullptr;
    ListElem* next_ = nullptr;
    ID id_;
};

// A cursor into a list: the element it rests on, or none.
struct LLPosition {
    ListElem* at = nullptr;
};

class LinkList {
  public:
    // The argument is kept for the shape of the original; lists keep the
    // order elements are added in.
    explicit LinkList(int sorted = 0) : sorted_(sorted) {}
    LinkList(const LinkList& o);
    LinkList& operator=(const LinkList& o);
    virtual ~LinkList();

    void Add(ListElem* e);                // appends
    void Insert(int index, ListElem* e);  // before the element at index; appends past the end
    void Remove(ListElem* e);             // unlinks without destroying
    void Delete(ListElem* e);             // unlinks and destroys
    void Reset();                         // destroys every element

    int Count() const { return count_; }
    ListElem* Find(int index) const;
    int Find(const ListElem* e) const;  // index, or -1
    // The first element, from `from` on, equal (operator==) to `like`.
    ListElem* Find(const ListElem& like, int from) const;

    ListElem* First(LLPosition& p) const { return p.at = head_; }
    ListElem* Last(LLPosition& p) const { return p.at = tail_; }
    ListElem* Next(LLPosition& p) const { return p.at = p.at ? p.at->next_ : nullptr; }
    ListElem* Prev(LLPosition& p) const { return p.at = p.at ? p.at->prev_ : nullptr; }

  private:
    friend class ListElem;
    void CopyFrom(const LinkList& o);
    int sorted_;
    ListElem* head_ = nullptr;
    ListElem* tail_ = nullptr;
    int count_ = 0;
};
