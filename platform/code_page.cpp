#include "platform/code_page.h"

#include <iconv.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>

namespace {

bool IsUndefined(unsigned c) {
    return c == 0x81 || c == 0x8D || c == 0x8F || c == 0x90 || c == 0x9D;
}

// One converter each way for the thread, opened on first use.
class Converter {
  public:
    Converter(const char* to, const char* from) : cd_(iconv_open(to, from)) {
        if (cd_ == iconv_t(-1))
            throw std::runtime_error(std::string("no converter from ") + from + " to " + to);
    }
    ~Converter() { iconv_close(cd_); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    // Converts as much as it can: appends to `out` and answers the bytes
    // of `in` that were used; stops at a byte it cannot convert.
    size_t Run(std::string_view in, std::string& out) {
        iconv(cd_, nullptr, nullptr, nullptr, nullptr);
        char* src = const_cast<char*>(in.data());
        size_t left = in.size();
        char chunk[4096];
        while (left > 0) {
            char* dst = chunk;
            size_t room = sizeof(chunk);
            size_t r = iconv(cd_, &src, &left, &dst, &room);
            out.append(chunk, size_t(dst - chunk));
            if (r == size_t(-1) && errno != E2BIG) break;
        }
        return in.size() - left;
    }

  private:
    iconv_t cd_;
};

Converter& ToUtf8() {
    thread_local Converter c("UTF-8", "WINDOWS-1252");
    return c;
}

Converter& FromUtf8() {
    thread_local Converter c("WINDOWS-1252", "UTF-8");
    return c;
}

// The length of the UTF-8 sequence at `s` and its code point; 0 when the
// bytes there are not one.
size_t DecodeOne(std::string_view s, unsigned& cp) {
    unsigned char b = static_cast<unsigned char>(s[0]);
    size_t n = b < 0x80             ? 1
               : (b & 0xE0) == 0xC0 ? 2
               : (b & 0xF0) == 0xE0 ? 3
               : (b & 0xF8) == 0xF0 ? 4
                                    : 0;
    if (n == 0 || n > s.size()) return 0;
    cp = n == 1 ? b : b & (0x7F >> n);
    for (size_t i = 1; i < n; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if ((c & 0xC0) != 0x80) return 0;
        cp = cp << 6 | (c & 0x3F);
    }
    static const unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < least[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return n;
}

}  // namespace

std::string Utf8FromAnsi(std::string_view ansi) {
    std::string out;
    out.reserve(ansi.size() + ansi.size() / 8);
    while (!ansi.empty()) {
        ansi.remove_prefix(ToUtf8().Run(ansi, out));
        if (ansi.empty()) break;
        // Only the undefined bytes stop the converter; they keep their value.
        unsigned c = static_cast<unsigned char>(ansi[0]);
        if (!IsUndefined(c)) c = '?';
        if (c < 0x80) {
            out += char(c);
        } else {
            out += char(0xC0 | c >> 6);
            out += char(0x80 | (c & 0x3F));
        }
        ansi.remove_prefix(1);
    }
    return out;
}

std::string AnsiFromUtf8(std::string_view utf8, bool references) {
    std::string out;
    out.reserve(utf8.size());
    while (!utf8.empty()) {
        utf8.remove_prefix(FromUtf8().Run(utf8, out));
        if (utf8.empty()) break;
        unsigned cp = 0;
        size_t n = DecodeOne(utf8, cp);
        if (n == 0) {
            out += '?';
            n = 1;
        } else if (IsUndefined(cp)) {
            out += char(cp);
        } else if (references) {
            out += "&#" + std::to_string(cp) + ";";
        } else {
            out += '?';
        }
        utf8.remove_prefix(n);
    }
    return out;
}
