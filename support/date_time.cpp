#include "support/date_time.h"

#include <cctype>
#include <cstring>
#include <ctime>
#include <vector>

namespace {

bool LeapYear(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int DaysInMonth(int y, int m) {
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && LeapYear(y) ? 29 : kDays[m - 1];
}

// The runs of digits in `text`, with the count of digits in each; at most
// `max` runs, and false when anything but digits, spaces and `seps` comes
// between them or a run is too long to be a part of a date or time.
bool Numbers(const char* text, const char* seps, size_t max, std::vector<int>& out,
             std::vector<int>& widths, const char** rest) {
    out.clear();
    widths.clear();
    const char* p = text;
    while (*p == ' ')
        ++p;
    while (*p) {
        if (!std::isdigit(static_cast<unsigned char>(*p))) break;
        int v = 0, w = 0;
        for (; std::isdigit(static_cast<unsigned char>(*p)); ++p, ++w) {
            if (w == 8) return false;
            v = v * 10 + (*p - '0');
        }
        out.push_back(v);
        widths.push_back(w);
        if (out.size() > max) return false;
        if (*p && std::strchr(seps, *p)) {
            ++p;
            if (!std::isdigit(static_cast<unsigned char>(*p))) return false;
        }
    }
    while (*p == ' ')
        ++p;
    *rest = p;
    return !out.empty();
}

}  // namespace

int Date::FullYear(int year) {
    if (year >= 100) return year;
    return year < 50 ? 2000 + year : 1900 + year;
}

Date::Date(int year, int month, int day) {
    if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 ||
        day > DaysInMonth(year, month))
        return;
    v_ = uint32_t(day) | uint32_t(month) << 8 | uint32_t(year) << 16;
}

Date Date::Today() {
    std::time_t now = std::time(nullptr);
    std::tm t{};
    localtime_r(&now, &t);
    return Date(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
}

Date& Date::operator=(const char* text) {
    v_ = 0;
    if (!text) return *this;
    std::vector<int> n, w;
    const char* rest;
    if (!Numbers(text, "/-.", 3, n, w, &rest) || *rest) return *this;
    int month, day, year, yearWidth;
    if (n.size() == 3) {
        month = n[0], day = n[1], year = n[2], yearWidth = w[2];
    } else if (n.size() == 1 && (w[0] == 6 || w[0] == 8)) {
        // Digits alone: MMDDYY or MMDDYYYY.
        int v = n[0];
        yearWidth = w[0] - 4;
        int scale = yearWidth == 2 ? 100 : 10000;
        year = v % scale;
        day = v / scale % 100;
        month = v / scale / 100;
    } else {
        return *this;
    }
    if (yearWidth <= 2) year = FullYear(year);
    *this = Date(year, month, day);
    return *this;
}

namespace {

// `n` in `width` digits at `p` (leading zeros; more digits when it needs them).
char* Digits(char* p, int n, int width) {
    char buf[12];
    int len = 0;
    unsigned v = unsigned(n);
    do {
        buf[len++] = char('0' + v % 10);
        v /= 10;
    } while (v);
    for (int i = len; i < width; ++i)
        *p++ = '0';
    while (len)
        *p++ = buf[--len];
    return p;
}

}  // namespace

ZString Date::Short() const {
    // Written digit by digit: exports show a date per record.
    char buf[24];
    char* p = buf;
    if (IsBlank()) return ZString();
    p = Digits(p, Month(), 2);
    *p++ = '/';
    p = Digits(p, Day(), 2);
    *p++ = '/';
    p = Digits(p, Year(), 4);
    return ZString(buf, int(p - buf));
}

Time::Time(int hours, int minutes, int seconds, int hundredths) {
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || seconds < 0 || seconds > 59 ||
        hundredths < 0 || hundredths > 99)
        return;
    v_ = uint32_t(hundredths) | uint32_t(seconds) << 8 | uint32_t(minutes) << 16 |
         uint32_t(hours) << 24;
}

Time Time::Now() {
    std::timespec ts{};
    std::timespec_get(&ts, TIME_UTC);
    std::tm t{};
    localtime_r(&ts.tv_sec, &t);
    return Time(t.tm_hour, t.tm_min, t.tm_sec, int(ts.tv_nsec / 10000000));
}

Time& Time::operator=(const char* text) {
    v_ = 0;
    if (!text) return *this;
    std::vector<int> n, w;
    const char* rest;
    if (!Numbers(text, ":.", 4, n, w, &rest) || n.size() < 2) return *this;
    for (size_t i = 1; i < w.size(); ++i)
        if (w[i] != 2) return *this;  // minutes, seconds and hundredths take two digits
    int hours = n[0];
    if (*rest) {
        bool pm = strcasecmp(rest, "PM") == 0;
        if (!pm && strcasecmp(rest, "AM") != 0) return *this;
        if (hours < 1 || hours > 12) return *this;
        hours = hours % 12 + (pm ? 12 : 0);
    }
    *this = Time(hours, n[1], n.size() > 2 ? n[2] : 0, n.size() > 3 ? n[3] : 0);
    return *this;
}

ZString Time::Short() const {
    if (IsBlank()) return ZString();
    char buf[24];
    char* p = Digits(buf, Hour(), 2);
    *p++ = ':';
    p = Digits(p, Minute(), 2);
    *p++ = ':';
    p = Digits(p, Second(), 2);
    if (Hundredths()) {
        *p++ = '.';
        p = Digits(p, Hundredths(), 2);
    }
    return ZString(buf, int(p - buf));
}
