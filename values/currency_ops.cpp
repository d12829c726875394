// Currency: arithmetic with other amounts and comparisons of rounded amounts.
#include "values/currency.h"

double Currency::Packed(const BtrieveCurrency& b) const {
    Currency t;
    t = *this;  // takes this amount's places, so b reads at them
    t = b;
    return static_cast<double>(t);
}

std::pair<double, double> Currency::Sides(double d, bool samePlaces) const {
    Currency a(*this);
    Currency t(d);
    if (samePlaces) t.SetNumDP(a.NumDecimalPlaces());
    a.Decimal::Round(-1);
    t.Decimal::Round(-1);
    return {a.m_Value, t.m_Value};
}

double Currency::operator+(const Currency& c) const {
    return *this + static_cast<double>(c);
}
double Currency::operator-(const Currency& c) const {
    return *this - static_cast<double>(c);
}
double Currency::operator*(const Currency& c) const {
    return *this * static_cast<double>(c);
}
double Currency::operator/(const Currency& c) const {
    return *this / static_cast<double>(c);
}
double Currency::operator+(const BtrieveCurrency& b) const {
    return *this + Packed(b);
}
double Currency::operator-(const BtrieveCurrency& b) const {
    return *this - Packed(b);
}
double Currency::operator*(const BtrieveCurrency& b) const {
    return *this * Packed(b);
}
double Currency::operator/(const BtrieveCurrency& b) const {
    return *this / Packed(b);
}

void Currency::operator+=(const Currency& c) {
    *this += static_cast<double>(c);
}
void Currency::operator-=(const Currency& c) {
    *this -= static_cast<double>(c);
}
void Currency::operator*=(const Currency& c) {
    *this *= static_cast<double>(c);
}
void Currency::operator/=(const Currency& c) {
    *this /= static_cast<double>(c);
}
void Currency::operator+=(const BtrieveCurrency& b) {
    *this += Packed(b);
}
void Currency::operator-=(const BtrieveCurrency& b) {
    *this -= Packed(b);
}
void Currency::operator*=(const BtrieveCurrency& b) {
    *this *= Packed(b);
}
void Currency::operator/=(const BtrieveCurrency& b) {
    *this /= Packed(b);
}

int Currency::operator==(double d) const {
    auto [a, t] = Sides(d, false);
    return a == t;
}
int Currency::operator!=(double d) const {
    auto [a, t] = Sides(d, true);
    return a != t;
}
int Currency::operator<(double d) const {
    auto [a, t] = Sides(d, false);
    return a < t;
}
int Currency::operator>(double d) const {
    auto [a, t] = Sides(d, false);
    return a > t;
}
int Currency::operator<=(double d) const {
    auto [a, t] = Sides(d, false);
    return a <= t;
}
int Currency::operator>=(double d) const {
    auto [a, t] = Sides(d, false);
    return a >= t;
}

int Currency::operator==(const Currency& c) const {
    return *this == static_cast<double>(c);
}
int Currency::operator!=(const Currency& c) const {
    return *this != static_cast<double>(c);
}
int Currency::operator<(const Currency& c) const {
    return *this < static_cast<double>(c);
}
int Currency::operator>(const Currency& c) const {
    return *this > static_cast<double>(c);
}
int Currency::operator<=(const Currency& c) const {
    return *this <= static_cast<double>(c);
}
int Currency::operator>=(const Currency& c) const {
    return *this >= static_cast<double>(c);
}

int Currency::operator==(const BtrieveCurrency& b) const {
    return *this == Packed(b);
}
int Currency::operator!=(const BtrieveCurrency& b) const {
    return *this != Packed(b);
}
int Currency::operator<(const BtrieveCurrency& b) const {
    return *this < Packed(b);
}
int Currency::operator>(const BtrieveCurrency& b) const {
    return *this > Packed(b);
}
int Currency::operator<=(const BtrieveCurrency& b) const {
    return *this <= Packed(b);
}
int Currency::operator>=(const BtrieveCurrency& b) const {
    return *this >= Packed(b);
}
