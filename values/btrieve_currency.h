// BtrieveCurrency: an 8-byte packed-decimal amount (15 digits and the sign)
// as a plain value for record and key buffers. Its decimal places are those
// of the Currency that reads or writes it: the regional default unless that
// Currency carries its own.
#pragma once

class Currency;

class BtrieveCurrency {
  public:
    BtrieveCurrency();  // the packed form of 0
    BtrieveCurrency(const BtrieveCurrency& b);
    BtrieveCurrency(Currency& c);  // NOLINT: amounts convert freely
    BtrieveCurrency(double d);     // NOLINT
    ~BtrieveCurrency();            // clears the bytes

    BtrieveCurrency& operator=(const BtrieveCurrency& b);
    double operator=(Currency& c);  // answers c's value
    double operator=(double d);

    // 0 when every digit is 0; -1 when the sign is 0xD; else 1.
    int GetSign() const;

    unsigned char m_Bytes[8];
};
