// Date and Time: the 4-byte values that date and time fields hold. Their
// layouts are the record manager's date and time key types, so keys on such
// fields order by the calendar and the clock:
//   Date: day, month (one byte each), year (16-bit little-endian)
//   Time: hundredths, seconds, minutes, hours (one byte each)
// A value of 0 is the blank date or time. Text that does not make a valid
// date or time gives the blank value.
#pragma once

#include <cstdint>

#include "support/zstring.h"

class Date {
  public:
    Date() = default;
    explicit Date(uint32_t stored) : v_(stored) {}
    Date(int year, int month, int day);  // blank when not a valid date

    static Date Today();
    // A two-digit year: 0 to 49 fall in 2000 to 2049, 50 to 99 in 1950 to
    // 1999. Every reading of a short year goes through here.
    static int FullYear(int year);

    // Takes "month/day/year" ("-" and "." separate too, a two- or four-digit
    // year), or the digits alone: "MMDDYY" or "MMDDYYYY".
    Date& operator=(const char* text);
    Date& operator=(uint32_t stored) {
        v_ = stored;
        return *this;
    }

    uint32_t Value() const { return v_; }  // the stored form
    bool IsBlank() const { return v_ == 0; }
    int Day() const { return int(v_ & 0xFF); }
    int Month() const { return int((v_ >> 8) & 0xFF); }
    int Year() const { return int(v_ >> 16); }
    // "MM/DD/YYYY"; the empty text for the blank date. It reads back as the
    // same date.
    ZString Short() const;

    bool operator==(const Date& o) const { return v_ == o.v_; }
    bool operator<(const Date& o) const { return Ordinal() < o.Ordinal(); }

  private:
    uint32_t Ordinal() const {
        return uint32_t(Year()) << 16 | uint32_t(Month()) << 8 | uint32_t(Day());
    }
    uint32_t v_ = 0;
};

class Time {
  public:
    Time() = default;
    explicit Time(uint32_t stored) : v_(stored) {}
    Time(int hours, int minutes, int seconds, int hundredths = 0);  // blank when invalid

    static Time Now();

    // Takes "HH:MM", "HH:MM:SS" or "HH:MM:SS.hh", with an optional "AM" or
    // "PM" after it (12-hour clock then).
    Time& operator=(const char* text);
    Time& operator=(uint32_t stored) {
        v_ = stored;
        return *this;
    }

    uint32_t Value() const { return v_; }
    bool IsBlank() const { return v_ == 0; }
    int Hundredths() const { return int(v_ & 0xFF); }
    int Second() const { return int((v_ >> 8) & 0xFF); }
    int Minute() const { return int((v_ >> 16) & 0xFF); }
    int Hour() const { return int(v_ >> 24); }
    // "HH:MM:SS", with ".hh" when there are hundredths; the empty text for
    // the blank time. It reads back as the same time.
    ZString Short() const;

    bool operator==(const Time& o) const { return v_ == o.v_; }
    bool operator<(const Time& o) const { return v_ < o.v_; }

  private:
    uint32_t v_ = 0;
};
