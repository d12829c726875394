// Decimal: rounding, arithmetic and comparisons with a double, and the
// widths of the display text.
#include <cmath>
#include <string>

#include "platform/ui_host.h"
#include "values/decimal.h"

namespace {

// Beyond this many places a double has no digits left to round.
constexpr int kMaxRoundPlaces = 21;

}  // namespace

// Floor after a nudge of 10^-(places + 3) upwards, which absorbs the
// representation error of doubles: 1004.9999999999999 floors to 1005 at two
// places.
double Decimal::floor(double x) {
    double epsilon = 1.0;
    long long steps = (long long)NumDecimalPlaces() + 3;
    for (long long i = 0; i < steps && epsilon != 0.0; ++i)
        epsilon /= 10.0;
    return std::floor(x + epsilon);
}

// Half away from zero at n places, decided on the first dropped digit once
// the tail beyond it is cut off. Positive values get the nudge, negative
// ones do not: 1.005 gives 1.01 and -1.005 gives -1.00 at two places.
double Decimal::__round(double x, int n) {
    // The scale, 10^(n + 1), is exact as a double as far as it can matter.
    int k = n <= 0 ? 0 : n > kMaxRoundPlaces ? kMaxRoundPlaces : n;
    double m = 10.0;
    for (int i = 0; i < k; ++i)
        m *= 10.0;
    double y = m * x;
    if (!std::isfinite(y)) return x;
    double r = y >= 0 ? floor(floor(y) / 10 + 0.5) : std::ceil(std::ceil(y) / 10 - 0.5);
    return r / (m / 10);
}

void Decimal::Round(int places) {
    if (places < 0) places = NumDecimalPlaces();
    InitDecimal(__round(m_Value, places));
}

int Decimal::IsNegative() const {
    return m_Value < 0.0;
}

int Decimal::NumDecimalPlaces() const {
    return IntlDecimalDigits();
}

Decimal::operator double() const {
    return Plain();
}

double Decimal::operator+(double d) const {
    return Plain() + d;
}

double Decimal::operator-(double d) const {
    return Plain() - d;
}

double Decimal::operator*(double d) const {
    return Plain() * d;
}

double Decimal::operator/(double d) const {
    return d == 0.0 ? 0.0 : Plain() / d;
}

namespace {

// A blank stays blank when what replaces it is 0.
double Keep(double before, double result) {
    return before == DecimalBlank && result == 0.0 ? DecimalBlank : result;
}

}  // namespace

void Decimal::operator+=(double d) {
    m_Value = Keep(m_Value, *this + d);
}

void Decimal::operator-=(double d) {
    m_Value = Keep(m_Value, *this - d);
}

void Decimal::operator*=(double d) {
    m_Value = Keep(m_Value, *this * d);
}

void Decimal::operator/=(double d) {
    m_Value = Keep(m_Value, *this / d);
}

int Decimal::operator<(double d) const {
    return Plain() < d;
}

int Decimal::operator>(double d) const {
    return Plain() > d;
}

int Decimal::operator<=(double d) const {
    return Plain() <= d;
}

int Decimal::operator>=(double d) const {
    return Plain() >= d;
}

int Decimal::operator==(double d) const {
    return Plain() == d;
}

int Decimal::operator!=(double d) const {
    return Plain() != d;
}

int Decimal::Extent(HDC dc) {
    return GetUiHost().TextExtentOn(dc, static_cast<char*>(*this));
}

int Decimal::DecimalExtent(HDC dc) {
    UiHost& host = GetUiHost();
    std::string a = static_cast<char*>(*this);
    if (m_Value < 0.0) return host.TextExtentOn(dc, a.c_str());
    BabyDecimal sample(-1.23456789, NumDecimalPlaces());
    std::string b = static_cast<char*>(sample);
    char sep = IntlDecimalSeparator();
    size_t at = a.rfind(sep);
    std::string head = at == std::string::npos ? a : a.substr(0, at + 1);
    size_t bt = b.rfind(sep);
    std::string tail = bt == std::string::npos ? "" : b.substr(bt + 1);
    return host.TextExtentOn(dc, head.c_str()) + host.TextExtentOn(dc, tail.c_str());
}
