// ZString: an owned 8-bit string with the searching, cutting, trimming,
// comparing and number conversions the library uses.
#pragma once

#include <string>

class ZString {
  public:
    ZString() = default;
    ZString(const char* s) : s_(s ? s : "") {}  // NOLINT: text converts freely
    ZString(const char* s, int len) : s_(s ? std::string(s, size_t(len < 0 ? 0 : len)) : "") {}
    ZString(const std::string& s) : s_(s) {}  // NOLINT
    ZString(char c, int count) : s_(size_t(count < 0 ? 0 : count), c) {}

    operator const char*() const { return s_.c_str(); }  // NOLINT
    const char* c_str() const { return s_.c_str(); }
    const std::string& str() const { return s_; }
    int Length() const { return int(s_.size()); }
    bool IsEmpty() const { return s_.empty(); }
    void Empty() { s_.clear(); }

    char GetAt(int i) const { return i >= 0 && i < Length() ? s_[size_t(i)] : '\0'; }
    void SetAt(int i, char c);
    // Index of `c` (or of `text`) at or after `from`, -1 when absent.
    int Find(char c, int from = 0) const;
    int Find(const char* text, int from = 0) const;
    // Index of the last `c`, -1 when absent.
    int ReverseFind(char c) const;

    ZString Left(int n) const;
    ZString Mid(int from) const;
    ZString Mid(int from, int n) const;
    ZString Right(int n) const;

    ZString& TrimLeft();
    ZString& TrimRight();
    ZString& Trim();
    ZString& MakeUpper();
    ZString& MakeLower();
    ZString& Fill(char c, int count);  // `count` copies of c

    int Compare(const char* other) const;        // as strcmp
    int CompareNoCase(const char* other) const;  // letters folded

    // printf-style formatting. A ',' among a conversion's flags groups the
    // whole part of the number with the regional thousands separator
    // ("%,d", "%,u", "%,.2f").
    ZString& Format(const char* fmt, ...);
    // The number in `digits` with commas between the thousands of its integer part.
    static ZString Group(const char* digits);

    // The number at the start of the text (blanks and a sign may come
    // first), as the runtime's conversions read it; 0 when there is none.
    // The narrower forms keep the low bits, as a C cast does.
    long ToLong() const;
    short ToShort() const { return short(ToLong()); }
    unsigned long ToULong() const;
    unsigned short ToUShort() const { return static_cast<unsigned short>(ToULong()); }
    double ToDouble() const;

    // The shortest text that reads back as the same double, without an
    // exponent unless the value is very large or very small.
    ZString& operator=(double v);

    ZString& operator=(const char* s);
    // Appends `len` bytes (NULs included) and keeps the first `len` bytes.
    ZString& Append(const char* s, int len);
    ZString& Truncate(int len);
    // The characters themselves, to change in place (the length stays).
    char* GetBuffer() { return s_.data(); }
    ZString& operator+=(const char* s);
    ZString& operator+=(char c);
    ZString& operator<<(const char* s) { return *this += s; }
    ZString& operator<<(long v);
    friend ZString operator+(const ZString& a, const char* b) { return ZString(a.s_ + b); }
    bool operator==(const char* o) const { return s_ == (o ? o : ""); }
    bool operator!=(const char* o) const { return !(*this == o); }

  private:
    std::string s_;
};
