#include "values/intl_patterns.h"

namespace {

const char* const kNegativeNumber[] = {"(#)", "-#", "- #", "#-", "# -"};
const char* const kPositiveCurrency[] = {"$#", "#$", "$ #", "# $"};
const char* const kNegativeCurrency[] = {"($#)", "-$#", "$-#",  "$#-",  "(#$)", "-#$",
                                         "#-$",  "#$-", "-# $", "-$ #", "# $-"};

template <int N>
const char* Entry(const char* const (&table)[N], int index) {
    return table[index < 0 ? 0 : index >= N ? N - 1 : index];
}

}  // namespace

const char* NegativeNumberPattern(unsigned style) {
    return kNegativeNumber[style % 5];
}

const char* PositiveCurrencyPattern(int index) {
    return Entry(kPositiveCurrency, index);
}

const char* NegativeCurrencyPattern(int index) {
    return Entry(kNegativeCurrency, index);
}
