#include "support/zstring.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void ZString::SetAt(int i, char c) {
    if (i >= 0 && i < Length()) s_[size_t(i)] = c;
}

int ZString::Find(char c, int from) const {
    if (from < 0 || from >= Length()) return -1;
    size_t at = s_.find(c, size_t(from));
    return at == std::string::npos ? -1 : int(at);
}

int ZString::Find(const char* text, int from) const {
    if (!text || from < 0 || from > Length()) return -1;
    size_t at = s_.find(text, size_t(from));
    return at == std::string::npos ? -1 : int(at);
}

int ZString::ReverseFind(char c) const {
    size_t at = s_.rfind(c);
    return at == std::string::npos ? -1 : int(at);
}

ZString ZString::Left(int n) const {
    return ZString(s_.substr(0, size_t(std::clamp(n, 0, Length()))));
}

ZString ZString::Mid(int from) const {
    return Mid(from, Length());
}

ZString ZString::Mid(int from, int n) const {
    from = std::clamp(from, 0, Length());
    n = std::clamp(n, 0, Length() - from);
    return ZString(s_.substr(size_t(from), size_t(n)));
}

ZString ZString::Right(int n) const {
    n = std::clamp(n, 0, Length());
    return ZString(s_.substr(size_t(Length() - n)));
}

ZString& ZString::TrimLeft() {
    size_t i = 0;
    while (i < s_.size() && std::isspace(static_cast<unsigned char>(s_[i])))
        ++i;
    s_.erase(0, i);
    return *this;
}

ZString& ZString::TrimRight() {
    while (!s_.empty() && std::isspace(static_cast<unsigned char>(s_.back())))
        s_.pop_back();
    return *this;
}

ZString& ZString::Trim() {
    return TrimLeft().TrimRight();
}

ZString& ZString::MakeUpper() {
    for (char& c : s_)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    return *this;
}

ZString& ZString::MakeLower() {
    for (char& c : s_)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return *this;
}

ZString& ZString::Fill(char c, int count) {
    s_.assign(size_t(std::max(count, 0)), c);
    return *this;
}

int ZString::Compare(const char* other) const {
    return std::strcmp(s_.c_str(), other ? other : "");
}

int ZString::CompareNoCase(const char* other) const {
    return strcasecmp(s_.c_str(), other ? other : "");
}

ZString& ZString::Format(const char* fmt, ...) {
    va_list ap, copy;
    va_start(ap, fmt);
    va_copy(copy, ap);
    int n = std::vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    s_.assign(size_t(std::max(n, 0)), '\0');
    if (n > 0) std::vsnprintf(s_.data(), size_t(n) + 1, fmt, copy);
    va_end(copy);
    return *this;
}

ZString ZString::Group(const char* digits) {
    // Commas between the thousands of the integer part of the number in text.
    std::string s = digits ? digits : "";
    size_t start = (!s.empty() && (s[0] == '-' || s[0] == '+')) ? 1 : 0;
    size_t end = start;
    while (end < s.size() && std::isdigit(static_cast<unsigned char>(s[end])))
        ++end;
    for (size_t at = end; at > start + 3; at -= 3)
        s.insert(at - 3, ",");
    return ZString(s);
}

long ZString::ToLong() const {
    return std::strtol(s_.c_str(), nullptr, 10);
}

double ZString::ToDouble() const {
    return std::strtod(s_.c_str(), nullptr);
}

ZString& ZString::operator=(const char* s) {
    s_ = s ? s : "";
    return *this;
}

ZString& ZString::operator+=(const char* s) {
    if (s) s_ += s;
    return *this;
}

ZString& ZString::operator+=(char c) {
    s_ += c;
    return *this;
}

ZString& ZString::operator<<(long v) {
    s_ += std::to_string(v);
    return *this;
}
