// The currency settings shared by every Currency: read from the profile's
// section "intl" once and cached, until LoadIntlSettings.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/profile.h"
#include "values/currency.h"
#include "values/intl_patterns.h"

namespace {

constexpr int kNotLoaded = -1;
constexpr unsigned kLastPositive = 3, kLastNegative = 10, kMaxDigits = 9;

int g_Positive = kNotLoaded;
int g_Negative = kNotLoaded;
char g_Symbol[32] = "";
int g_Digits = kNotLoaded;
int64_t g_Stamp = 0;

int Capped(const char* key, unsigned def, unsigned last) {
    unsigned v = ProfileInt("intl", key, def);
    return int(v > last ? last : v);
}

}  // namespace

const char* Currency::IntlPositiveFormat() {
    if (g_Positive == kNotLoaded) g_Positive = Capped("iCurrency", 0, kLastPositive);
    return PositiveCurrencyPattern(g_Positive);
}

const char* Currency::IntlNegativeFormat() {
    if (g_Negative == kNotLoaded) g_Negative = Capped("iNegCurr", 0, kLastNegative);
    return NegativeCurrencyPattern(g_Negative);
}

const char* Currency::IntlSymbol() {
    if (!g_Symbol[0]) {
        std::string s = ProfileString("intl", "sCurrency", "$");
        s.resize(std::min<size_t>(s.size(), sizeof(g_Symbol) - 1));
        std::memcpy(g_Symbol, s.c_str(), s.size() + 1);
    }
    return g_Symbol;
}

int Currency::IntlDecimalDigits() {
    if (g_Digits == kNotLoaded) g_Digits = Capped("iCurrDigits", 2, kMaxDigits);
    return g_Digits;
}

int64_t Currency::IntlStamp() {
    return g_Stamp;
}

void Currency::LoadIntlSettings() {
    ReloadProfile();
    g_Symbol[0] = '\0';
    g_Positive = g_Negative = g_Digits = kNotLoaded;
    IntlPositiveFormat();
    IntlNegativeFormat();
    IntlSymbol();
    IntlDecimalDigits();
    int64_t now = std::time(nullptr);
    g_Stamp = now > 0 ? now : 1;  // 0 stays "never loaded"
    Decimal::LoadIntlSettings();
}
