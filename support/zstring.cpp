#include "support/zstring.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/numeric_text.h"
#include "platform/profile.h"

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

namespace {

// printf of one conversion with its argument.
template <class T>
std::string One(const std::string& spec, T v) {
    int n = std::snprintf(nullptr, 0, spec.c_str(), v);
    std::string out(size_t(std::max(n, 0)), '\0');
    if (n > 0) std::snprintf(out.data(), size_t(n) + 1, spec.c_str(), v);
    return out;
}

// The whole part of the number in `text` grouped in thousands with `sep`.
std::string Grouped(std::string text, const std::string& sep) {
    size_t start = text.find_first_of("0123456789");
    if (start == std::string::npos || sep.empty()) return text;
    size_t end = start;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])))
        ++end;
    for (size_t at = end; at > start + 3; at -= 3)
        text.insert(at - 3, sep);
    return text;
}

}  // namespace

ZString& ZString::Format(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    // One plain number, the commonest call (field texts of every record):
    // the same digits without parsing the format.
    if (fmt && fmt[0] == '%' && (fmt[1] == 'd' || fmt[1] == 'u') && fmt[2] == '\0') {
        char buf[16];
        auto r = fmt[1] == 'd' ? std::to_chars(buf, buf + sizeof(buf), va_arg(ap, int))
                               : std::to_chars(buf, buf + sizeof(buf), va_arg(ap, unsigned));
        va_end(ap);
        s_.assign(buf, r.ptr);
        return *this;
    }
    std::string out;
    for (const char* p = fmt ? fmt : ""; *p;) {
        if (*p != '%') {
            out += *p++;
            continue;
        }
        // One conversion: flags, width, precision, length, type.
        const char* start = p;
        std::string spec = "%";
        const char* q = p + 1;
        bool group = false, left = false;
        for (; *q && std::strchr("-+ #0,'", *q); ++q) {
            if (*q == ',') {
                group = true;
                continue;
            }
            left = left || *q == '-';
            spec += *q;
        }
        int width = -1;
        if (*q == '*') {
            width = va_arg(ap, int);
            ++q;
        } else if (std::isdigit(static_cast<unsigned char>(*q))) {
            width = 0;
            for (; std::isdigit(static_cast<unsigned char>(*q)); ++q)
                width = width * 10 + (*q - '0');
        }
        if (*q == '.') {
            spec += *q++;
            if (*q == '*') {
                spec += std::to_string(va_arg(ap, int));
                ++q;
            } else {
                for (; std::isdigit(static_cast<unsigned char>(*q)); ++q)
                    spec += *q;
            }
        }
        std::string length;
        for (; *q && std::strchr("hlLzjt", *q); ++q)
            length += *q;
        char type = *q ? *q++ : '\0';
        p = q;
        if (type == '%') {
            out += '%';
            continue;
        }
        spec += length;
        spec += type;
        std::string text;
        bool number = true;
        switch (type) {
            case 'd':
            case 'i':
                text = length == "ll" || length == "j" ? One(spec, va_arg(ap, long long))
                       : length == "l" || length == "z" || length == "t"
                           ? One(spec, va_arg(ap, long))
                           : One(spec, va_arg(ap, int));
                break;
            case 'u':
            case 'o':
            case 'x':
            case 'X':
                text = length == "ll" || length == "j" ? One(spec, va_arg(ap, unsigned long long))
                       : length == "l" || length == "z" || length == "t"
                           ? One(spec, va_arg(ap, unsigned long))
                           : One(spec, va_arg(ap, unsigned));
                break;
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                text = length == "L" ? One(spec, va_arg(ap, long double))
                                     : One(spec, va_arg(ap, double));
                break;
            case 'c':
                number = false;
                text = One(spec, va_arg(ap, int));
                break;
            case 's': {
                number = false;
                const char* arg = va_arg(ap, const char*);
                text = One(spec, arg ? arg : "");
                break;
            }
            case 'p':
                number = false;
                text = One(spec, va_arg(ap, void*));
                break;
            default:  // not a conversion: kept as written
                out.append(start, q);
                continue;
        }
        if (group && number)
            text = Grouped(text, ProfileString("intl", "sThousand", ",").substr(0, 1));
        // The width applies to the text as it finally stands; a zero flag
        // pads a number with zeros after its sign.
        bool zeros =
            !left && number && spec.find('0') < spec.find_first_of("123456789.diuoxXfFeEgGaA");
        if (zeros && width > int(text.size())) {
            size_t at = text.find_first_of("0123456789");
            if (at == std::string::npos) at = 0;
            text.insert(at, size_t(width) - text.size(), '0');
        } else if (width > int(text.size()))
            text = left ? text + std::string(size_t(width) - text.size(), ' ')
                        : std::string(size_t(width) - text.size(), ' ') + text;
        out += text;
    }
    va_end(ap);
    s_ = out;
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

unsigned long ZString::ToULong() const {
    return std::strtoul(s_.c_str(), nullptr, 10);
}

double ZString::ToDouble() const {
    return TextToDouble(s_.c_str());
}

ZString& ZString::operator=(double v) {
    char buf[64];
    double magnitude = std::fabs(v);
    bool plain = magnitude == 0 || (magnitude >= 1e-5 && magnitude < 1e17);
    auto r = std::to_chars(buf, buf + sizeof(buf), v,
                           plain ? std::chars_format::fixed : std::chars_format::general);
    s_.assign(buf, r.ec == std::errc() ? size_t(r.ptr - buf) : 0);
    return *this;
}

ZString& ZString::operator=(const char* s) {
    s_ = s ? s : "";
    return *this;
}

ZString& ZString::Append(const char* s, int len) {
    if (s && len > 0) s_.append(s, size_t(len));
    return *this;
}

ZString& ZString::Truncate(int len) {
    if (len >= 0 && len < Length()) s_.resize(size_t(len));
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
