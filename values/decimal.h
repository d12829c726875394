// Decimal: one number held as a double that shows itself in the user's
// regional style (separators, grouping, decimal places, leading zero and
// negative style), reads back what a user typed, rounds itself and measures
// its text so that columns line up on their separators.
//
// Formatting runs as a fixed row of virtual steps (GetParts,
// AddThousandsSeparators, AssembleString, AddSpecialSymbols, and the getters
// they consult), so a subclass that replaces one step changes only that one.
// The regional settings are read once per process and cached; see
// LoadIntlSettings.
#pragma once

#include <cstdint>

#include "platform/hwnd.h"

// The value that stands for "no value": arithmetic and comparisons read it
// as 0, and nothing here produces it by itself.
constexpr double DecimalBlank = -1.0e-35;

class Decimal {
  public:
    Decimal();
    Decimal(double v);  // NOLINT: numbers convert freely
    Decimal(const Decimal& d);
    Decimal& operator=(const Decimal& d);  // the value and the three texts
    double operator=(double v);
    double operator=(char* text);
    double operator=(const char* text);

    // The display text, formatted afresh; valid until the next formatting.
    operator char*();

  protected:
    // The steps, in their slot order.
    virtual void InitDecimal(double v);
    virtual void GetParts();
    virtual void AddThousandsSeparators();
    virtual int UseSeparatorIfNoFrac() const;
    virtual char GetDecimalSeparator() const;
    virtual char GetThousandsSeparator() const;
    virtual int UseLeadingZero() const;
    virtual void AddSpecialSymbols();
    virtual void AssembleString();
    virtual int IsStringNegative(const char* text) const;

  public:
    virtual ~Decimal();
    // Rounds half away from zero at `places` (NumDecimalPlaces() when negative).
    virtual void Round(int places);
    // Width of the display text on dc.
    virtual int Extent(HDC dc);
    // Width up to and including the decimal separator, plus the width of the
    // fraction and negative decoration a sample number would have after it.
    virtual int DecimalExtent(HDC dc);
    virtual int IsNegative() const;  // the blank counts as negative
    virtual int NumDecimalPlaces() const;
    virtual operator double() const;  // a blank reads 0.0
    // Drops the cached regional settings and reads them again.
    virtual void LoadIntlSettings();

    // Arithmetic with a blank read as 0; division by 0 gives 0.
    double operator+(double d) const;
    double operator-(double d) const;
    double operator*(double d) const;
    double operator/(double d) const;
    // A blank value stays blank when the result is 0.
    void operator+=(double d);
    void operator-=(double d);
    void operator*=(double d);
    void operator/=(double d);
    // Exact comparisons, a blank read as 0.
    int operator<(double d) const;
    int operator>(double d) const;
    int operator<=(double d) const;
    int operator>=(double d) const;
    int operator==(double d) const;
    int operator!=(double d) const;

    // The cached regional number settings, each read on first use.
    static char IntlThousandsSeparator();
    static char IntlDecimalSeparator();
    static int IntlDecimalDigits();
    static int IntlLeadingZero();
    // When the number settings were last loaded (seconds); 0 before that.
    static int64_t IntlStamp();

  protected:
    void Zero();                   // a blank becomes 0.0
    double Plain() const;          // the value, a blank read as 0.0
    void Parse(const char* text);  // the text typed, through the virtual steps

    double m_Value = 0.0;
    char m_Fraction[80] = {};
    char m_Whole[80] = {};
    char m_Display[160] = {};

  private:
    double floor(double x);
    double __round(double x, int n);
};

// A Decimal with a fixed number of decimal places, for samples.
class BabyDecimal : public Decimal {
  public:
    BabyDecimal(double v, int places) : Decimal(v), m_NumDP(places) {}
    ~BabyDecimal() override;
    int NumDecimalPlaces() const override { return m_NumDP; }

  private:
    int m_NumDP;
};
