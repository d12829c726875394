// Decimal: construction, the formatting steps and the reading of typed text.
#include "values/decimal.h"

#include <cmath>
#include <cstring>
#include <string>

#include "platform/numeric_text.h"
#include "platform/profile.h"
#include "values/intl_patterns.h"

namespace {

// Copies text into a fixed buffer of `size` bytes, cut to fit, always ended.
template <size_t N>
void Store(char (&into)[N], const std::string& text) {
    size_t n = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(into, text.data(), n);
    into[n] = '\0';
}

// Places the fraction text can hold.
constexpr int kMaxPlaces = 79;

// Shown instead of a number whose integer part is too long for its text,
// or that is no number at all.
constexpr const char* kOutOfRange = "***";

}  // namespace

Decimal::Decimal() {
    InitDecimal(0.0);
}

Decimal::Decimal(double v) {
    InitDecimal(v);
}

Decimal::Decimal(const Decimal& d) {
    InitDecimal(d.m_Value);
}

Decimal::~Decimal() = default;

Decimal& Decimal::operator=(const Decimal& d) {
    if (this == &d) return *this;
    m_Value = d.m_Value;
    std::memcpy(m_Fraction, d.m_Fraction, sizeof(m_Fraction));
    std::memcpy(m_Whole, d.m_Whole, sizeof(m_Whole));
    std::memcpy(m_Display, d.m_Display, sizeof(m_Display));
    return *this;
}

double Decimal::operator=(double v) {
    InitDecimal(v);
    return m_Value;
}

double Decimal::operator=(char* text) {
    Parse(text);
    return m_Value;
}

double Decimal::operator=(const char* text) {
    Parse(text);
    return m_Value;
}

Decimal::operator char*() {
    m_Fraction[0] = m_Whole[0] = m_Display[0] = '\0';
    GetParts();
    AddThousandsSeparators();
    AssembleString();
    AddSpecialSymbols();
    return m_Display;
}

void Decimal::InitDecimal(double v) {
    if (IntlStamp() == 0) LoadIntlSettings();
    m_Value = v;
}

void Decimal::GetParts() {
    int places = NumDecimalPlaces();
    places = places < 0 ? 0 : places > kMaxPlaces ? kMaxPlaces : places;
    FixedDigits f = FixedConvert(std::fabs(m_Value), places);
    std::string whole, fraction;
    if (f.point > 0) {
        whole = f.digits.substr(0, size_t(f.point));
        fraction = f.digits.substr(size_t(f.point));
    } else {
        whole = "0";
        if (-places < f.point) fraction = std::string(size_t(-f.point), '0') + f.digits;
    }
    fraction.resize(size_t(places), '0');
    if (!f.finite || whole.size() >= sizeof(m_Whole)) {
        whole = kOutOfRange;
        fraction.assign(size_t(places), '*');
    }
    Store(m_Whole, whole);
    Store(m_Fraction, fraction);
}

void Decimal::AddThousandsSeparators() {
    size_t w = std::strlen(m_Whole);
    size_t s = w ? (w - 1) / 3 : 0;
    if (s == 0 || w + s + 1 > sizeof(m_Whole)) return;
    char sep = GetThousandsSeparator();
    if (sep == '\0') return;  // an empty separator: no grouping
    std::string grouped;
    for (size_t i = 0; i < w; ++i) {
        if (i && (w - i) % 3 == 0) grouped += sep;
        grouped += m_Whole[i];
    }
    Store(m_Whole, grouped);
}

int Decimal::UseSeparatorIfNoFrac() const {
    return 1;
}

char Decimal::GetDecimalSeparator() const {
    return IntlDecimalSeparator();
}

char Decimal::GetThousandsSeparator() const {
    return IntlThousandsSeparator();
}

int Decimal::UseLeadingZero() const {
    return IntlLeadingZero();
}

void Decimal::AssembleString() {
    std::string out;
    if (m_Whole[0] && std::strcmp(m_Whole, "0") != 0)
        out = m_Whole;
    else if (UseLeadingZero())
        out = "0";
    // An empty decimal separator ends the text here, as its NUL would.
    if (m_Fraction[0] || UseSeparatorIfNoFrac()) out += GetDecimalSeparator();
    out += m_Fraction;
    Store(m_Display, out);
}

void Decimal::AddSpecialSymbols() {
    if (!(m_Value < 0.0)) return;
    std::string style;
    if (!LocaleNegativeNumber(style)) {
        Store(m_Display, std::string("-") + m_Display);
        return;
    }
    std::string out;
    for (const char* p = NegativeNumberPattern(ProfileNumber(style)); *p; ++p) {
        if (*p == '#')
            out += m_Display;
        else
            out += *p;
    }
    out.resize(std::min<size_t>(out.size(), 63));
    Store(m_Display, out);
}

int Decimal::IsStringNegative(const char* text) const {
    if (!text) return 0;
    char thousands = GetThousandsSeparator(), decimal = GetDecimalSeparator();
    std::string sign;
    for (const char* p = text; *p && sign.size() < 63; ++p)
        if (!IsAnsiDigit(*p) && *p != thousands && *p != decimal) sign += *p;
    if (sign.empty()) return 0;
    // The locale's own negative style, its number left out, so that what
    // was shown reads back: "()" for "(#)".
    std::string style;
    if (LocaleNegativeNumber(style)) {
        std::string pattern = NegativeNumberPattern(ProfileNumber(style));
        std::erase(pattern, '#');
        if (sign == pattern) return 1;
    }
    std::erase(sign, ' ');
    return sign == "-";
}

void Decimal::Parse(const char* text) {
    InitDecimal(0.0);
    if (!text || !*text) return;
    std::string number;
    if (IsStringNegative(text)) number = "-";
    char decimal = GetDecimalSeparator();
    for (const char* p = text; *p && number.size() < 159; ++p) {
        if (*p == decimal)
            number += '.';
        else if (*p >= '0' && *p <= '9')
            number += *p;
    }
    Store(m_Display, number);
    InitDecimal(TextToDouble(m_Display));
}

void Decimal::Zero() {
    if (m_Value == DecimalBlank) m_Value = 0.0;
}

double Decimal::Plain() const {
    return m_Value == DecimalBlank ? 0.0 : m_Value;
}

BabyDecimal::~BabyDecimal() = default;
