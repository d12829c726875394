// CString and CStringArray: the framework's string and string array, with
// the members the library uses.
#pragma once

#include <vector>

#include "support/zstring.h"

class CString : public ZString {
  public:
    using ZString::ZString;
    CString() = default;
    CString(const ZString& z) : ZString(z) {}  // NOLINT: the two string kinds mix freely
    int GetLength() const { return Length(); }
    // Replaces every `from` with `to`; answers how many there were.
    int Replace(char from, char to) {
        int n = 0;
        for (int i = 0; i < Length(); ++i)
            if (GetAt(i) == from) {
                SetAt(i, to);
                ++n;
            }
        return n;
    }
    using ZString::operator=;  // numbers too
    CString& operator=(const char* s) {
        ZString::operator=(s);
        return *this;
    }
    CString& operator=(const ZString& z) {
        ZString::operator=(z.c_str());
        return *this;
    }
};

class CStringArray {
  public:
    int GetSize() const { return int(items_.size()); }
    int GetCount() const { return GetSize(); }
    int Add(const char* s) {
        items_.emplace_back(s);
        return GetSize() - 1;
    }
    const CString& GetAt(int i) const { return items_.at(size_t(i)); }
    void SetAt(int i, const char* s) { items_.at(size_t(i)) = s; }
    void RemoveAt(int i) { items_.erase(items_.begin() + i); }
    void RemoveAll() { items_.clear(); }
    CString& operator[](int i) { return items_.at(size_t(i)); }
    const CString& operator[](int i) const { return items_.at(size_t(i)); }

  private:
    std::vector<CString> items_;
};
