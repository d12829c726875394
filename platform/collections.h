// CArray and CMap: the framework's array and map templates, with the members
// the library uses. A map is walked in ascending key order.
#pragma once

#include <map>
#include <vector>

// Where a walk over a map stands; null at its end.
struct PositionTag;
using POSITION = PositionTag*;

template <class TYPE, class ARG_TYPE = const TYPE&>
class CArray {
  public:
    int GetSize() const { return int(items_.size()); }
    int GetCount() const { return GetSize(); }
    bool IsEmpty() const { return items_.empty(); }
    int GetUpperBound() const { return GetSize() - 1; }
    // Elements beyond the old size are value-initialised.
    void SetSize(int n) { items_.resize(n > 0 ? size_t(n) : 0); }
    int Add(ARG_TYPE item) {
        items_.push_back(item);
        return GetSize() - 1;
    }
    void RemoveAt(int i, int count = 1) {
        items_.erase(items_.begin() + i, items_.begin() + i + count);
    }
    void RemoveAll() { items_.clear(); }
    const TYPE& GetAt(int i) const { return items_.at(size_t(i)); }
    void SetAt(int i, ARG_TYPE item) { items_.at(size_t(i)) = item; }
    TYPE& ElementAt(int i) { return items_.at(size_t(i)); }
    TYPE& operator[](int i) { return items_.at(size_t(i)); }
    const TYPE& operator[](int i) const { return items_.at(size_t(i)); }
    void Copy(const CArray& o) { items_ = o.items_; }

  private:
    std::vector<TYPE> items_;
};

template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
class CMap {
  public:
    // The block size and the hash table's size are the framework's tuning;
    // they change nothing here.
    explicit CMap(int blockSize = 10) { (void)blockSize; }
    void InitHashTable(unsigned size, bool allocNow = true) { (void)size, (void)allocNow; }

    int GetCount() const { return int(items_.size()); }
    int GetSize() const { return GetCount(); }
    bool IsEmpty() const { return items_.empty(); }

    bool Lookup(ARG_KEY key, VALUE& value) const {
        auto it = items_.find(key);
        if (it == items_.end()) return false;
        value = it->second;
        return true;
    }
    // The value under key, added empty when missing.
    VALUE& operator[](ARG_KEY key) { return items_[key]; }
    void SetAt(ARG_KEY key, ARG_VALUE value) { items_[key] = value; }
    bool RemoveKey(ARG_KEY key) { return items_.erase(key) != 0; }
    void RemoveAll() { items_.clear(); }

    POSITION GetStartPosition() const { return items_.empty() ? nullptr : At(*items_.begin()); }
    // The entry at pos; pos moves to the next one (null after the last).
    void GetNextAssoc(POSITION& pos, KEY& key, VALUE& value) const {
        auto* entry = reinterpret_cast<const typename Items::value_type*>(pos);
        key = entry->first;
        value = entry->second;
        auto next = std::next(items_.find(entry->first));
        pos = next == items_.end() ? nullptr : At(*next);
    }

  private:
    using Items = std::map<KEY, VALUE>;
    static POSITION At(const typename Items::value_type& entry) {
        return reinterpret_cast<POSITION>(const_cast<typename Items::value_type*>(&entry));
    }

    Items items_;
};
