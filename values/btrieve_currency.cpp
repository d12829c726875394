#include "values/btrieve_currency.h"

#include <cstring>

#include "values/currency.h"

BtrieveCurrency::BtrieveCurrency() : m_Bytes{0, 0, 0, 0, 0, 0, 0, 0x0F} {}

BtrieveCurrency::BtrieveCurrency(const BtrieveCurrency& b) {
    std::memcpy(m_Bytes, b.m_Bytes, sizeof(m_Bytes));
}

BtrieveCurrency::BtrieveCurrency(Currency& c) : BtrieveCurrency() {
    c.CopyToBtrieveCurrency(*this);
}

BtrieveCurrency::BtrieveCurrency(double d) : BtrieveCurrency() {
    *this = d;
}

BtrieveCurrency::~BtrieveCurrency() {
    std::memset(m_Bytes, 0, sizeof(m_Bytes));
}

BtrieveCurrency& BtrieveCurrency::operator=(const BtrieveCurrency& b) {
    std::memmove(m_Bytes, b.m_Bytes, sizeof(m_Bytes));
    return *this;
}

double BtrieveCurrency::operator=(Currency& c) {
    c.CopyToBtrieveCurrency(*this);
    return static_cast<double>(c);
}

double BtrieveCurrency::operator=(double d) {
    Currency c(d);
    c.CopyToBtrieveCurrency(*this);
    return d;
}

int BtrieveCurrency::GetSign() const {
    bool zero = (m_Bytes[7] >> 4) == 0;
    for (int i = 0; i < 7 && zero; ++i)
        zero = m_Bytes[i] == 0;
    if (zero) return 0;
    return (m_Bytes[7] & 0x0F) == 0x0D ? -1 : 1;
}
