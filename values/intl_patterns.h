// The regional patterns of negative numbers and of currency amounts: "#"
// stands for the number's text, "$" for the currency symbol.
#pragma once

// Negative numbers by the locale's style, taken modulo 5.
const char* NegativeNumberPattern(unsigned style);
// Currency amounts by pattern index, 0 to 3 for positive and 0 to 10 for
// negative amounts; larger indexes take the last entry, smaller the first.
const char* PositiveCurrencyPattern(int index);
const char* NegativeCurrencyPattern(int index);
