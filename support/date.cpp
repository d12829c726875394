#include "support/date.h"

namespace {

int DaysIn(int year, int month) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : days[month - 1];
}

}  // namespace

Date::Date(int year, int month, int day) {
    if (year >= 0 && year < 100) year += year < 30 ? 2000 : 1900;
    if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 || day > DaysIn(year, month))
        return;
    year_ = year;
    month_ = month;
    day_ = day;
}

uint32_t Date::GetStored() const {
    return uint32_t(day_) | uint32_t(month_) << 8 | uint32_t(year_) << 16;
}
