#include "platform/numeric_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

// The classic runtime keeps 17 significant digits of a double; what lies
// beyond them is written as zeros.
constexpr int kSignificant = 17;
constexpr int kMaxPlaces = 340;

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDecimalDigit(char c) {
    return c >= '0' && c <= '9';
}

// Rough order of magnitude of a decimal number text: above 0 when its value
// is at least 1. Only used to tell overflow from underflow.
long Magnitude(const char* p, const char* end) {
    long whole = 0, leadingZeros = 0, exponent = 0;
    bool inFraction = false, significant = false;
    for (; p < end; ++p) {
        char c = *p;
        if (c == '.') {
            inFraction = true;
        } else if (IsDecimalDigit(c)) {
            if (!inFraction) {
                if (significant || c != '0') {
                    significant = true;
                    ++whole;
                }
            } else if (!significant) {
                if (c == '0')
                    ++leadingZeros;
                else
                    significant = true;
            }
        } else if (c == 'e' || c == 'E') {
            bool minus = p + 1 < end && p[1] == '-';
            for (const char* q = p + 1; q < end; ++q)
                if (IsDecimalDigit(*q)) exponent = std::min(exponent * 10 + (*q - '0'), 100000L);
            if (minus) exponent = -exponent;
            break;
        }
    }
    return (whole > 0 ? whole : -leadingZeros) + exponent;
}

}  // namespace

FixedDigits FixedConvert(double value, int places) {
    FixedDigits out;
    out.negative = value < 0.0;
    if (!std::isfinite(value)) {
        out.finite = false;
        return out;
    }
    places = std::clamp(places, 0, kMaxPlaces);
    out.point = -places;
    double a = std::fabs(value);
    if (a == 0.0) return out;

    char buf[40];
    auto res =
        std::to_chars(buf, buf + sizeof(buf), a, std::chars_format::scientific, kSignificant - 1);
    *res.ptr = '\0';
    // buf holds d.dddddddddddddddde+XX: the value is 0.ddd... times 10^(XX+1).
    std::string d(1, buf[0]);
    d.append(buf + 2, size_t(kSignificant - 1));
    int point = std::atoi(std::strchr(buf, 'e') + 1) + 1;

    int keep = point + places;  // digits up to the last decimal kept
    if (keep < 0) return out;
    if (int(d.size()) > keep) {
        bool up = d[size_t(keep)] >= '5';
        d.resize(size_t(keep));
        if (up) {
            int i = keep - 1;
            while (i >= 0 && d[size_t(i)] == '9')
                d[size_t(i--)] = '0';
            if (i < 0) {
                d.insert(d.begin(), '1');
                ++point;
            } else {
                ++d[size_t(i)];
            }
        }
    } else {
        d.append(size_t(keep) - d.size(), '0');
    }
    size_t first = d.find_first_not_of('0');
    if (first == std::string::npos) return out;
    out.digits = d.substr(first);
    out.point = point - int(first);
    return out;
}

double TextToDouble(const char* text) {
    if (!text) return 0.0;
    const char* s = text;
    while (IsBlank(*s))
        ++s;
    bool negative = false;
    if (*s == '+' || *s == '-') negative = *s++ == '-';
    const char* end = s + std::strlen(s);
    double v = 0.0;
    if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        auto r = std::from_chars(s + 2, end, v, std::chars_format::hex);
        if (r.ec == std::errc::result_out_of_range) {
            const char* p = std::find_if(s + 2, r.ptr, [](char c) { return c == 'p' || c == 'P'; });
            v = (p + 1 < r.ptr && p[1] == '-') ? 0.0 : HUGE_VAL;
        } else if (r.ec != std::errc()) {
            v = 0.0;  // just the "0" before the x
        }
    } else {
        auto r = std::from_chars(s, end, v, std::chars_format::general);
        if (r.ec == std::errc::result_out_of_range)
            v = Magnitude(s, r.ptr) > 0 ? HUGE_VAL : 0.0;
        else if (r.ec != std::errc())
            v = 0.0;
    }
    return negative ? -v : v;
}

bool IsAnsiDigit(char c) {
    unsigned char u = static_cast<unsigned char>(c);
    return (u >= '0' && u <= '9') || u == 0xB2 || u == 0xB3 || u == 0xB9;
}
