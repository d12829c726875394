// SplayTree: an owning search tree of elements ordered by their own
// comparison; each search moves the element found (or its neighbour) to the
// root, so that runs of lookups near one another are cheap.
#pragma once

class SplayElem {
  public:
    SplayElem() = default;
    SplayElem(const SplayElem&) = delete;
    SplayElem& operator=(const SplayElem&) = delete;
    virtual ~SplayElem() = default;
    // <0, 0 or >0 as this element orders before, with or after `o`.
    virtual int Compare(const SplayElem& o) const = 0;

  private:
    friend class SplayTree;
    SplayElem* left_ = nullptr;
    SplayElem* right_ = nullptr;
};

class SplayTree {
  public:
    SplayTree() = default;
    SplayTree(const SplayTree&) = delete;
    SplayTree& operator=(const SplayTree&) = delete;
    ~SplayTree() { Reset(); }

    // Takes the element. One equal to an element already there is destroyed
    // and 0 answered.
    int Add(SplayElem* e);
    // The element equal to `probe`, or null.
    SplayElem* Find(const SplayElem& probe);
    int Count() const { return count_; }
    // Destroys every element.
    void Reset();

  private:
    // Brings the element nearest to `probe` to the root.
    void Splay(const SplayElem& probe);

    SplayElem* root_ = nullptr;
    int count_ = 0;
};
