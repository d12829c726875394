#include "values/bcd.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

namespace {

constexpr int kMaxPacked = 10;

unsigned char Nibble(char c) {
    return c == 'D' ? 0xD : c == 'F' ? 0xF : static_cast<unsigned char>(c - '0');
}

}  // namespace

BCD::BCD(const unsigned char* data, int length, int places) {
    InitBCD(data, length, places);
}

BCD::BCD(const BCD& other) : Decimal() {
    *this = other;
}

BCD::~BCD() = default;

double BCD::operator=(const BCD& other) {
    double value = other.m_Value;
    int own = other.HasDecimalOverride(), places = other.NumDecimalPlaces();
    InitBCD(nullptr, 0, -1);
    InitDecimal(value);
    if (!m_Locked && own) SetNumDP(places);
    return m_Value;
}

int BCD::NumDecimalPlaces() const {
    return m_NumDP == -1 ? Decimal::IntlDecimalDigits() : m_NumDP;
}

void BCD::SetNumDP(int places) {
    m_NumDP = places;
    LockDecimalPoint(places > -1);
}

int BCD::HasDecimalOverride() const {
    return m_NumDP != -1;
}

int BCD::LockDecimalPoint(int flag) {
    int previous = m_Locked;
    m_Locked = flag;
    return previous;
}

int BCD::DecimalPointIsLocked() const {
    return m_Locked;
}

void BCD::ResetDecimalPoint() {
    LockDecimalPoint(0);
    SetNumDP(-1);
}

void BCD::SetToBCD(const unsigned char* data, int length, int places) {
    InitBCD(data, length, places);
}

void BCD::InitBCD(const unsigned char* data, int length, int places) {
    std::memset(m_Packed, 0, sizeof(m_Packed));
    m_PackedLen = 0;
    if (!m_Locked) SetNumDP(-1);
    if (!data || length < 0 || length > kMaxPacked) {
        Decimal::InitDecimal(0.0);
        return;
    }
    if (places == -1) places = NumDecimalPlaces();
    double value = 0.0;
    bool negative = false;
    for (int i = 0; i < length; ++i) {
        value = value * 10 + (data[i] >> 4);
        if (i < length - 1)
            value = value * 10 + (data[i] & 0x0F);
        else
            negative = (data[i] & 0x0F) == 0x0D;
    }
    for (int i = 0; i < places && value != 0.0; ++i)
        value /= 10.0;
    if (negative) value = -value;
    std::memcpy(m_Packed, data, size_t(length));
    m_PackedLen = length;
    SetNumDP(places);
    Decimal::InitDecimal(value);
}

void BCD::CopyBCD(unsigned char* destination, int length, int places) {
    if (length != 0) m_PackedLen = std::max(length, 0);
    if (m_PackedLen > kMaxPacked) m_PackedLen = 0;  // not a packed field
    if (m_PackedLen <= 0) return;
    const int L = m_PackedLen;
    std::memset(m_Packed, 0, sizeof(m_Packed));
    char buf[2 * kMaxPacked];
    std::memset(buf, '0', sizeof(buf));

    GetParts();  // at the places the value has now
    if (places < 0)
        places = NumDecimalPlaces();
    else
        SetNumDP(places);
    const int dp = std::max(places, 0);
    const int last = 2 * L - 2;  // the last digit position; the sign follows

    // Every digit goes where its weight puts it; position 0 stays 0. A
    // digit that would land before position 1 means the value does not fit.
    bool overflow = false;
    if (!std::isnan(m_Value)) {
        const std::string whole = m_Whole, fraction = m_Fraction;
        const int units = last - dp;
        for (int j = 0; j < int(whole.size()); ++j) {
            char c = whole[whole.size() - 1 - size_t(j)];
            int pos = units - j;
            if (c < '0' || c > '9')
                overflow = true;
            else if (pos >= 1)
                buf[pos] = c;
            else if (c != '0')
                overflow = true;
        }
        for (int k = 0; k < std::min(dp, int(fraction.size())); ++k) {
            int pos = units + 1 + k;
            if (pos >= 1)
                buf[pos] = fraction[size_t(k)];
            else if (fraction[size_t(k)] != '0')
                overflow = true;
        }
    }
    if (overflow) {  // the largest amount the field holds
        std::memset(buf, '9', sizeof(buf));
        buf[0] = '0';
    }
    bool nonZero = std::any_of(buf, buf + last + 1, [](char c) { return c != '0'; });
    buf[last + 1] = m_Value < 0.0 && nonZero ? 'D' : 'F';
    for (int k = 0; k <= last + 1; ++k)
        m_Packed[k / 2] |= static_cast<unsigned char>(Nibble(buf[k]) << (k % 2 ? 0 : 4));
    if (destination) std::memmove(destination, m_Packed, size_t(L));
}
