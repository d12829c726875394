// BCD: a Decimal that reads and writes the packed-decimal form of record
// fields (two digits a byte, the sign in the last half-byte: 0xF positive,
// 0xD negative) and carries its own number of decimal places.
//
// Decimal places are none (-1: the regional default applies), locked at a
// number (SetNumDP, loading a packed form), or kept but unlocked
// (LockDecimalPoint(0)). While locked, loads and assignments keep them.
#pragma once

#include "values/decimal.h"

class BCD : public Decimal {
  public:
    BCD() = default;
    BCD(const unsigned char* data, int length, int places);
    BCD(const BCD& other);
    // Takes the value, and the places when this one is not locked and
    // `other` has its own; the packed form stays behind.
    double operator=(const BCD& other);
    using Decimal::operator=;

    ~BCD() override;
    int NumDecimalPlaces() const override;  // own places, else the regional default

    virtual void SetNumDP(int places);  // sets and locks (unlocks for -1)
    virtual int HasDecimalOverride() const;
    virtual int LockDecimalPoint(int flag);  // answers the previous flag
    virtual int DecimalPointIsLocked() const;
    virtual void ResetDecimalPoint();
    virtual void SetToBCD(const unsigned char* data, int length, int places);

    // Writes the value as `length` packed bytes at `places` decimals (this
    // object's places when negative) into `destination`, which must hold
    // them. A value whose integer part does not fit is written as the
    // largest amount the field holds, with its sign. Lengths of 1 to 10
    // are written; others write nothing.
    void CopyBCD(unsigned char* destination, int length, int places);

  protected:
    // Loads `length` packed bytes (1 to 10; other lengths read as no data)
    // with `places` decimals (-1: this object's places). Digits above 9 are
    // taken at face value; a sign other than 0xD is positive.
    void InitBCD(const unsigned char* data, int length, int places);

    unsigned char m_Packed[10] = {};
    int m_PackedLen = 0;
    int m_NumDP = -1;
    int m_Locked = 0;
};
