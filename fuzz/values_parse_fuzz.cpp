// Typed text and packed bytes from anywhere. Reading either must never step
// outside a buffer; writing a packed field must stay within its length; and
// a well-formed packed field that a double holds exactly is written back
// byte for byte.
//
// Input: byte 0 picks the packed length (0 to 11) and the decimal places
// (-1 to 18); byte 1 the decimal and thousands separators of a number
// whose steps are replaced; the rest is the packed bytes and the text.
#include <dbfile/dbfile.h>

#include <cstring>
#include <string>

namespace {

// A number whose separators come from the input, NUL included.
class OddSeparators : public Decimal {
  public:
    OddSeparators(char decimal, char thousands) : m_Dec(decimal), m_Thou(thousands) {}
    using Decimal::operator=;
    char GetDecimalSeparator() const override { return m_Dec; }
    char GetThousandsSeparator() const override { return m_Thou; }

  private:
    char m_Dec, m_Thou;
};

const char kSeparators[] = {'.', ',', ' ', '\'', '\0', '-', '(', '5', '\xA0'};

// A packed field as the library writes it: first digit 0, digits 0 to 9,
// few enough digits for a double to carry them through the places.
bool WellFormed(const unsigned char* p, int length, int places) {
    if (length < 1 || length > 10 || places < 0 || places > 2 * length - 2 || (p[0] >> 4) != 0)
        return false;
    double units = 0;
    for (int k = 0; k < 2 * length - 1; ++k) {
        int nibble = (k % 2 ? p[k / 2] : p[k / 2] >> 4) & 0x0F;
        if (nibble > 9) return false;
        units = units * 10 + nibble;
    }
    return units * (places > 0 ? places : 1) * 1.2e-16 < 0.4;
}

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const int length = data[0] % 12;
    const int places = (data[0] / 12) % 20 - 1;
    const unsigned char* rest = data + 2;
    const size_t restSize = size - 2;

    // The packed bytes, read from a buffer exactly as long as the field.
    std::string field(reinterpret_cast<const char*>(rest), std::min(restSize, size_t(length)));
    field.resize(size_t(length), '\0');
    auto* bytes = reinterpret_cast<const unsigned char*>(field.data());
    BCD packed(bytes, length, places);
    Check(std::strlen(packed) < 160);

    unsigned char out[16];
    std::memset(out, 0xA5, sizeof(out));
    packed.CopyBCD(out, length, places);
    int written = length <= 10 ? length : 0;
    for (int i = written; i < 16; ++i)
        Check(out[i] == 0xA5);
    if (WellFormed(bytes, length, places)) {
        unsigned char want[10];
        std::memcpy(want, bytes, size_t(length));
        unsigned char& sign = want[length - 1];
        bool zero = true;
        for (int k = 0; k < 2 * length - 1; ++k)
            zero = zero && ((k % 2 ? want[k / 2] : want[k / 2] >> 4) & 0x0F) == 0;
        sign = (sign & 0xF0) | ((sign & 0x0F) == 0x0D && !zero ? 0x0D : 0x0F);
        Check(std::memcmp(out, want, size_t(length)) == 0);
    }

    // The text, read by each kind of number and shown again.
    std::string text(reinterpret_cast<const char*>(rest), restSize);
    text = text.c_str();  // a NUL ends it, as it would any caller's
    OddSeparators odd(kSeparators[data[1] % 9], kSeparators[(data[1] / 9) % 9]);
    odd = text.c_str();
    Check(std::strlen(odd) < 160);
    Decimal plain;
    plain = text.c_str();
    Check(std::strlen(plain) < 160);
    Currency money;
    if (places >= 0) money.SetNumDP(places);
    money = text.c_str();
    Check(std::strlen(money) < 160);
    const char* form = money.BCDStr();
    Check(money.BCDLen() == 8 && (form[7] & 0x0F) >= 0x0D);
    BtrieveCurrency amount(money);
    Currency again(amount);
    again.Round(places);
    Check(std::strlen(again) < 160);
    (void)money.DecimalExtent(nullptr);
    return 0;
}
