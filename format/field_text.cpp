// Conversions of a field between its stored bytes and text: plain text for
// keys, comparisons and exports; display text in the user's style; stored
// form from typed text; literals for query and report formulas. None of
// them reads or writes more than the field's length.
#include <algorithm>
#include <cstring>

#include "dbfile/db_file.h"
#include "format/code_table.h"
#include "support/date_time.h"
#include "support/win_string.h"
#include "values/currency.h"

namespace {

// The field's bytes as a little-endian number of at most 8 bytes; lengths
// other than 1, 2, 4 and 8 keep the bytes there are.
uint64_t Raw(const char* data, int length) {
    uint64_t v = 0;
    if (data && length > 0) std::memcpy(&v, data, size_t(std::min(length, 8)));
    return v;
}

// 16-bit at length 2, 32-bit otherwise (a shorter field keeps its bytes).
int32_t Signed(const char* data, int length) {
    return length == 2 ? int32_t(int16_t(Raw(data, 2)))
                       : int32_t(uint32_t(Raw(data, std::min(length, 4))));
}

uint32_t Unsigned(const char* data, int length) {
    return length == 2 ? uint32_t(uint16_t(Raw(data, 2)))
                       : uint32_t(Raw(data, std::min(length, 4)));
}

// A float field of 4 bytes, a double otherwise (which dbDecimal reverses:
// a double only at 8 bytes).
double Floating(const char* data, int length, bool doubleAtEight) {
    uint64_t bits = Raw(data, length);
    bool isFloat = doubleAtEight ? length != 8 : length == 4;
    if (isFloat) {
        float f;
        uint32_t b = uint32_t(bits);
        std::memcpy(&f, &b, 4);
        return f;
    }
    double d;
    std::memcpy(&d, &bits, 8);
    return d;
}

// Text of a field that ends at its length or at a NUL, whichever comes first.
ZString Bytes(const char* data, int length) {
    if (!data || length <= 0) return ZString();
    return ZString(data, int(strnlen(data, size_t(length))));
}

void Put(char* dest, int length, const void* v, size_t size) {
    std::memcpy(dest, v, std::min(size, size_t(length)));
}

}  // namespace

const char* CDbFile::FormatFileDataToString(CString& out, const char* data, int length,
                                            dbFieldType type, int numDP) {
    out = "";
    if (length < 0) length = 0;
    switch (type) {
        case dbString:
        case dbFixedText:
        case dbZString:
        case dbPhone:
            out = Bytes(data, length);
            break;
        case dbInteger:
            out.Format("%d", Signed(data, length));
            break;
        case dbUnsigned:
        case dbAutoInc:
        case dbUnsignedText:
            out.Format("%u", Unsigned(data, length));
            break;
        case dbFloat:
            out = Floating(data, length, false);
            break;
        case dbDate:
            out = Date(uint32_t(Raw(data, std::min(length, 4)))).Short();
            break;
        case dbTime:
            out = Time(uint32_t(Raw(data, std::min(length, 4)))).Short();
            break;
        case dbMoney: {
            BCD amount(reinterpret_cast<const unsigned char*>(data), std::min(length, 10), numDP);
            out = double(amount);
            break;
        }
        case dbBoolean:
            out = length > 0 && data && data[0] ? "1" : "0";
            break;
        default:  // decimals and types without a text of their own
            out.Fill('*', length);
    }
    return out;
}

const char* CDbFile::FormatFileDataToDisplay(CString& out, const char* data, int length,
                                             dbFieldType type, dbDispCode display, int numDP,
                                             CCodeTable* table, int phoneValue) {
    if (length < 0) length = 0;
    signed char first = length > 0 && data ? static_cast<signed char>(data[0]) : 0;
    switch (display) {
        case dbDispAccount:
            return FormatAccount(out, Bytes(data, length));
        case dbDispTrueFalse:
        case dbDispYesNo:
        case dbDispOnOff:
        case dbDispActiveInactive:
            return FormatBoolean(out, first, display);
        case dbDispPlain:
            out.Format("%d", length == 4 ? int(Signed(data, 4))
                                         : int(uint16_t(Raw(data, std::min(length, 2)))));
            return out;
        case dbDispCodeTable:
            if (table)
                table->TranslateToDesc(data, out);
            else
                out = "";
            return out;
        case dbDispJob:
            return FormatJob(out, Bytes(data, length));
        default:
            break;
    }
    bool separators = display != dbDispNoSeparators;
    switch (type) {
        case dbInteger: {
            int v =
                length == 4 ? int(Signed(data, 4)) : int(int16_t(Raw(data, std::min(length, 2))));
            out.Format(separators ? "%,d" : "%d", v);
            break;
        }
        case dbUnsigned:
        case dbAutoInc: {
            unsigned v = length == 4 ? Unsigned(data, 4)
                                     : unsigned(uint16_t(Raw(data, std::min(length, 2))));
            out.Format(separators ? "%,u" : "%u", v);
            break;
        }
        case dbFloat:
            out.Format(numDP == 4 ? "%.4f" : "%.2f", Floating(data, length, false));
            break;
        case dbDecimal: {
            Decimal d(Floating(data, length, true));
            out = static_cast<char*>(d);
            break;
        }
        case dbMoney: {
            Currency amount;
            amount.SetNumDP(numDP);
            amount.SetToBCD(reinterpret_cast<const unsigned char*>(data), std::min(length, 10),
                            numDP);
            out = static_cast<char*>(amount);
            break;
        }
        case dbPhone:
            return FormatPhone(out, Bytes(data, length), phoneValue);
        case dbString:
        case dbDate:
        case dbTime:
        case dbBoolean:
        case dbZString:
        case dbFixedText:
        case dbUnsignedText:
            return FormatFileDataToString(out, data, length, type, numDP);
        default:  // no text of its own: the text stays as it was
            break;
    }
    return out;
}

void CDbFile::FormatStringToFileData(const char* text, char* dest, int length, dbFieldType type,
                                     int numDP) {
    if (!dest || length <= 0) return;
    std::memset(dest, 0, size_t(length));
    ZString t(text ? text : "");
    switch (type) {
        case dbString:
        case dbFixedText:
            std::memcpy(dest, t.c_str(), size_t(std::min(t.Length(), length)));
            break;
        case dbZString:
        case dbPhone:
            std::memcpy(dest, t.c_str(), size_t(std::min(t.Length(), length - 1)));
            break;
        case dbInteger:
            if (length == 2) {
                int16_t v = t.ToShort();
                Put(dest, length, &v, 2);
            } else {
                int32_t v = int32_t(t.ToLong());
                Put(dest, length, &v, 4);
            }
            break;
        case dbUnsigned:
        case dbAutoInc:
        case dbUnsignedText:
            if (length == 2) {
                uint16_t v = t.ToUShort();
                Put(dest, length, &v, 2);
            } else {
                uint32_t v = uint32_t(t.ToULong());
                Put(dest, length, &v, 4);
            }
            break;
        case dbFloat:
            if (length == 4) {
                float v = float(t.ToDouble());
                Put(dest, length, &v, 4);
            } else {
                double v = t.ToDouble();
                Put(dest, length, &v, 8);
            }
            break;
        case dbDate: {
            Date d;
            d = t.c_str();
            uint32_t v = d.Value();
            Put(dest, length, &v, 4);
            break;
        }
        case dbTime: {
            Time tm;
            tm = t.c_str();
            uint32_t v = tm.Value();
            Put(dest, length, &v, 4);
            break;
        }
        case dbMoney: {
            Currency amount;
            amount.SetNumDP(numDP);
            amount = t.c_str();
            amount.CopyBCD(reinterpret_cast<unsigned char*>(dest), std::min(length, 10), numDP);
            break;
        }
        case dbBoolean:
            dest[0] = t.GetAt(0) == '0' ? 0 : 1;
            break;
        default:  // decimals and types without a stored form of their own: zeros
            break;
    }
}

const char* CDbFile::FormatSQLData(SQLType style, const char* text, short fieldType, CString& out) {
    out = "";
    ZString t(text ? text : "");
    switch (fieldType) {
        case dbString:
        case dbZString:
        case dbPhone:
        case dbFixedText:
            out = "\"";
            out += t.c_str();
            out += "\"";
            break;
        case dbInteger:
        case dbUnsigned:
        case dbFloat:
        case dbDecimal:
        case dbMoney:
        case dbAutoInc:
            out = t;
            break;
        case dbDate: {
            Date d;
            d = t.c_str();
            if (style == sqlQuoted) {
                out = "\"";
                out += d.Short().c_str();
                out += "\"";
            } else if (style == sqlFormula) {
                out.Format("DateTime(%04d,%02d,%02d)", d.Year(), d.Month(), d.Day());
            }
            break;
        }
        case dbBoolean:
            if (style == sqlQuoted)
                out = t.Left(1);
            else if (style == sqlFormula)
                out = t.GetAt(0) == '1' ? "True" : "False";
            break;
        default:  // times and the rest have no literal
            break;
    }
    return out;
}

const char* FormatSQLData(SQLType style, const char* text, short fieldType, CString& out) {
    return CDbFile::FormatSQLData(style, text, fieldType, out);
}

const char* CDbFile::FormatBoolean(CString& out, int value, dbDispCode display) {
    // The eight words, loaded once for the process.
    static const struct Words {
        WinString yes[4], no[4];
        Words() {
            for (unsigned i = 0; i < 4; ++i) {
                yes[i].Load(32 + 2 * i);
                no[i].Load(33 + 2 * i);
            }
        }
    } words;
    int pair;
    switch (display) {
        case dbDispTrueFalse:
            pair = 0;
            break;
        case dbDispYesNo:
        case dbDispYesNoAlt:
            pair = 1;
            break;
        case dbDispOnOff:
            pair = 2;
            break;
        case dbDispActiveInactive:
            pair = 3;
            break;
        default:
            out = value ? "1" : "0";
            return out;
    }
    out = value ? words.yes[pair].c_str() : words.no[pair].c_str();
    return out;
}
