// Currency: a BCD that shows itself in the user's currency style (symbol,
// positive and negative currency patterns) and whose comparisons round both
// sides to their decimal places first. The currency settings are read from
// the profile's section "intl" once per process and cached, and reload
// together with the number settings.
#pragma once

#include <utility>

#include "values/bcd.h"
#include "values/btrieve_currency.h"

class CDbFile;

class Currency : public BCD {
  public:
    Currency();
    Currency(const unsigned char* data, int length);  // read at the regional places
    Currency(CDbFile* file, int field);               // the field's places, locked; value 0
    Currency(double v);                               // NOLINT: numbers convert freely
    Currency(const BtrieveCurrency& b);               // NOLINT
    Currency(const Currency& other);

    double operator=(double v);
    double operator=(char* text);
    double operator=(const char* text);
    double operator=(const Currency& other);
    double operator=(const BtrieveCurrency& b);

    void CopyToBtrieveCurrency(BtrieveCurrency& b);
    // Rounds the value to its places and writes its own packed form (8 bytes
    // unless a form of another length was loaded); answers a copy. Being a
    // conversion to the base class it is only ever called by name.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wclass-conversion"
    operator BCD();
#pragma GCC diagnostic pop
    const char* BCDStr();
    int BCDLen();

    void Round(int places) override;
    int DecimalExtent(HDC dc) override;
    void LoadIntlSettings() override;

    // The cached currency settings, each read on first use.
    static const char* IntlPositiveFormat();
    static const char* IntlNegativeFormat();
    static const char* IntlSymbol();
    static int IntlDecimalDigits();
    // When the currency settings were last loaded (seconds); 0 before that.
    static int64_t IntlStamp();

    // Arithmetic as Decimal's; another amount counts by its double, a packed
    // amount by this object's places.
    using BCD::operator+;
    using BCD::operator-;
    using BCD::operator*;
    using BCD::operator/;
    using BCD::operator+=;
    using BCD::operator-=;
    using BCD::operator*=;
    using BCD::operator/=;
    double operator+(const Currency& c) const;
    double operator-(const Currency& c) const;
    double operator*(const Currency& c) const;
    double operator/(const Currency& c) const;
    double operator+(const BtrieveCurrency& b) const;
    double operator-(const BtrieveCurrency& b) const;
    double operator*(const BtrieveCurrency& b) const;
    double operator/(const BtrieveCurrency& b) const;
    void operator+=(const Currency& c);
    void operator-=(const Currency& c);
    void operator*=(const Currency& c);
    void operator/=(const Currency& c);
    void operator+=(const BtrieveCurrency& b);
    void operator-=(const BtrieveCurrency& b);
    void operator*=(const BtrieveCurrency& b);
    void operator/=(const BtrieveCurrency& b);

    // Comparisons of the two sides each rounded to its places (the right
    // side a Currency at the regional places; for != at this one's places).
    int operator==(double d) const;
    int operator!=(double d) const;
    int operator<(double d) const;
    int operator>(double d) const;
    int operator<=(double d) const;
    int operator>=(double d) const;
    int operator==(const Currency& c) const;
    int operator!=(const Currency& c) const;
    int operator<(const Currency& c) const;
    int operator>(const Currency& c) const;
    int operator<=(const Currency& c) const;
    int operator>=(const Currency& c) const;
    int operator==(const BtrieveCurrency& b) const;
    int operator!=(const BtrieveCurrency& b) const;
    int operator<(const BtrieveCurrency& b) const;
    int operator>(const BtrieveCurrency& b) const;
    int operator<=(const BtrieveCurrency& b) const;
    int operator>=(const BtrieveCurrency& b) const;

  protected:
    void AddSpecialSymbols() override;
    int IsStringNegative(const char* text) const override;
    void InitCurrency(const unsigned char* data, int length);

  private:
    double Packed(const BtrieveCurrency& b) const;  // b read at this one's places
    // This amount and d, each rounded to its places: d at the regional
    // places, or at this amount's when samePlaces.
    std::pair<double, double> Sides(double d, bool samePlaces) const;
};
