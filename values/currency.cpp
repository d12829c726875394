// Currency: construction, assignment, the packed form and the currency
// decoration.
#include "values/currency.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "dbfile/db_file.h"
#include "platform/ui_host.h"

Currency::Currency() {
    LockDecimalPoint(0);
    m_NumDP = -1;
    InitCurrency(nullptr, 0);
}

Currency::Currency(const unsigned char* data, int length) : Currency() {
    InitCurrency(data, length);
}

Currency::Currency(CDbFile* file, int field) : Currency() {
    // A missing file counts as a field without places.
    SetNumDP(file ? file->GetFieldNumDP(static_cast<unsigned short>(field)) : 0);
}

Currency::Currency(double v) : Currency() {
    *this = v;
}

Currency::Currency(const BtrieveCurrency& b) : Currency() {
    *this = b;
}

Currency::Currency(const Currency& other) : BCD(other) {}

void Currency::InitCurrency(const unsigned char* data, int length) {
    if (IntlStamp() == 0) LoadIntlSettings();
    if (data)
        InitBCD(data, length, NumDecimalPlaces());
    else
        InitBCD(nullptr, 0, -1);
}

double Currency::operator=(double v) {
    InitCurrency(nullptr, 0);
    InitDecimal(v);
    return m_Value;
}

double Currency::operator=(char* text) {
    return *this = static_cast<const char*>(text);
}

double Currency::operator=(const char* text) {
    InitCurrency(nullptr, 0);
    Parse(text);
    return m_Value;
}

double Currency::operator=(const Currency& other) {
    if (this == &other) return m_Value;
    double value = other.m_Value;
    int own = other.HasDecimalOverride(), places = other.NumDecimalPlaces();
    InitCurrency(nullptr, 0);
    if (!m_Locked && own) SetNumDP(places);
    InitDecimal(value);
    return m_Value;
}

double Currency::operator=(const BtrieveCurrency& b) {
    InitCurrency(b.m_Bytes, sizeof(b.m_Bytes));
    return m_Value;
}

void Currency::CopyToBtrieveCurrency(BtrieveCurrency& b) {
    CopyBCD(b.m_Bytes, sizeof(b.m_Bytes), NumDecimalPlaces());
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wclass-conversion"
Currency::operator BCD() {
    Round(-1);
    if (m_PackedLen == 0) m_PackedLen = 8;
    CopyBCD(m_Packed, m_PackedLen, NumDecimalPlaces());
    return BCD(*this);
}
#pragma GCC diagnostic pop

const char* Currency::BCDStr() {
    operator BCD();
    return reinterpret_cast<const char*>(m_Packed);
}

int Currency::BCDLen() {
    operator BCD();
    return m_PackedLen;
}

void Currency::Round(int places) {
    if (places < 0) places = NumDecimalPlaces();
    Decimal::Round(places);
}

namespace {

// A pattern with "#" replaced by the number's text and "$" by the symbol.
std::string Fill(const char* pattern, const char* number) {
    std::string out;
    for (const char* p = pattern; *p; ++p) {
        if (*p == '$')
            out += Currency::IntlSymbol();
        else if (*p == '#')
            out += number;
        else
            out += *p;
    }
    return out;
}

}  // namespace

void Currency::AddSpecialSymbols() {
    std::string out = Fill(m_Value < 0.0 ? IntlNegativeFormat() : IntlPositiveFormat(), m_Display);
    out.resize(std::min<size_t>(out.size(), sizeof(m_Display) - 1));
    std::memcpy(m_Display, out.c_str(), out.size() + 1);
}

int Currency::IsStringNegative(const char* text) const {
    if (!text) return 0;
    std::string copy(text, strnlen(text, 63));
    size_t first = copy.find_first_not_of(' '), last = copy.find_last_not_of(' ');
    copy = first == std::string::npos ? "" : copy.substr(first, last - first + 1);
    if (!copy.empty() && copy.front() == '(' && copy.back() == ')') return 1;
    return std::strchr(text, '-') != nullptr;
}

// Room after the separator for what a negative amount shows behind its
// number: a ")", a "-" or the symbol.
int Currency::DecimalExtent(HDC dc) {
    int width = Decimal::DecimalExtent(dc);
    const char* hash = std::strchr(IntlNegativeFormat(), '#');
    std::string after = Fill(hash ? hash + 1 : "", "");
    if (!after.empty()) width += GetUiHost().TextExtentOn(dc, after.c_str());
    return width;
}
