// Date: a calendar date kept in the engine's 4-byte form: the day, the month,
// then the year in 16 bits, low byte first, so that date keys order by time.
#pragma once

#include <cstdint>

class Date {
  public:
    Date() = default;
    // A two-digit year (0 to 99) falls in 1930 to 2029. A day or month that
    // no calendar has gives the empty date.
    Date(int year, int month, int day);

    // The 4-byte form as a number: day | month << 8 | year << 16; 0 for the
    // empty date.
    uint32_t GetStored() const;
    int Year() const { return year_; }
    int Month() const { return month_; }
    int Day() const { return day_; }
    bool IsEmpty() const { return month_ == 0; }

  private:
    int year_ = 0, month_ = 0, day_ = 0;
};
