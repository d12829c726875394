// The runtime's number conversions that the value types rely on, rebuilt on
// std::to_chars/std::from_chars so that no C locale can change them: the
// fixed-point digit conversion (_fcvt), text to double (atof) and the test
// for a digit character of the 8-bit text.
#pragma once

#include <string>

// Digits of a value as the fixed-point conversion reports them.
struct FixedDigits {
    std::string digits;  // no leading zeros; empty when the value rounds to 0
    int point = 0;       // digits before the decimal point (0 or less: leading zeros after it)
    bool negative = false;
    bool finite = true;  // false for infinities and NaN: no digits
};

// The value rounded to `places` decimals (0 when negative, at most 340) the
// way the classic runtime's _fcvt does it: first to 17 significant digits,
// then half away from zero on those digits.
FixedDigits FixedConvert(double value, int places);

// The longest number at the start of `text` (after blanks: optional sign,
// digits with one ".", optional exponent; also "inf", "nan" and 0x forms),
// as atof reads it; 0.0 when there is none. Overflow gives +-HUGE_VAL,
// underflow 0.0.
double TextToDouble(const char* text);

// A digit of the 8-bit (Windows-1252) text: alphanumeric but not a letter,
// so "0" to "9" and the superscripts one, two and three.
bool IsAnsiDigit(char c);
