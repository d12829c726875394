// The regional number settings shared by every Decimal: read from the
// profile's section "intl" once and cached, until LoadIntlSettings.
#include <ctime>
#include <string>

#include "platform/profile.h"
#include "values/decimal.h"

namespace {

constexpr char kNotLoadedChar = char(0xFF);
constexpr int kNotLoaded = -1;
// Windows locales carry at most 9 decimal digits; larger values count as 9.
constexpr unsigned kMaxDigits = 9;

char g_Thousands = kNotLoadedChar;
char g_Decimal = kNotLoadedChar;
int g_Digits = kNotLoaded;
int g_LeadingZero = kNotLoaded;
int64_t g_Stamp = 0;

// Only the first character counts; an empty value gives NUL.
char FirstChar(const char* key, const char* def) {
    std::string v = ProfileString("intl", key, def);
    return v.empty() ? '\0' : v[0];
}

}  // namespace

char Decimal::IntlThousandsSeparator() {
    if (g_Thousands == kNotLoadedChar) g_Thousands = FirstChar("sThousand", ",");
    return g_Thousands;
}

char Decimal::IntlDecimalSeparator() {
    if (g_Decimal == kNotLoadedChar) g_Decimal = FirstChar("sDecimal", ".");
    return g_Decimal;
}

int Decimal::IntlDecimalDigits() {
    if (g_Digits == kNotLoaded) {
        unsigned v = ProfileInt("intl", "iDigits", 2);
        g_Digits = int(v > kMaxDigits ? kMaxDigits : v);
    }
    return g_Digits;
}

int Decimal::IntlLeadingZero() {
    if (g_LeadingZero == kNotLoaded) g_LeadingZero = ProfileInt("intl", "iLzero", 1) != 0;
    return g_LeadingZero;
}

int64_t Decimal::IntlStamp() {
    return g_Stamp;
}

void Decimal::LoadIntlSettings() {
    ReloadProfile();
    g_Thousands = g_Decimal = kNotLoadedChar;
    g_Digits = g_LeadingZero = kNotLoaded;
    IntlThousandsSeparator();
    IntlDecimalSeparator();
    IntlDecimalDigits();
    IntlLeadingZero();
    int64_t now = std::time(nullptr);
    g_Stamp = now > 0 ? now : 1;  // 0 stays "never loaded"
}
