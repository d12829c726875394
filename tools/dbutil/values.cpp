#include "values.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "context.h"
#include "platform/code_page.h"
#include "support/date_time.h"

namespace dbutil {

namespace {

bool IsNumberType(dbFieldType t) {
    switch (t) {
        case dbInteger:
        case dbUnsigned:
        case dbAutoInc:
        case dbUnsignedText:
        case dbFloat:
        case dbDecimal:
        case dbMoney:
            return true;
        default:
            return false;
    }
}

// Decimals are stored as floats or doubles but have no plain text or entry
// conversion of their own: they take a float field's.
dbFieldType TextType(const FieldDesc& f) {
    return f.type == dbDecimal ? dbFloat : f.type;
}

bool ParseInteger(const std::string& s, long long& v) {
    size_t i = 0;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    if (i == s.size()) return false;
    for (size_t j = i; j < s.size(); ++j)
        if (!std::isdigit((unsigned char)s[j])) return false;
    errno = 0;
    v = std::strtoll(s.c_str(), nullptr, 10);
    return errno == 0;
}

bool ParseReal(const std::string& s, double& v) {
    if (s.empty() || std::isspace((unsigned char)s.front())) return false;
    char* end = nullptr;
    errno = 0;
    v = std::strtod(s.c_str(), &end);
    return end == s.c_str() + s.size() && errno == 0 && std::isfinite(v);
}

bool HasNonZeroDigit(const std::string& s) {
    for (char c : s)
        if (c >= '1' && c <= '9') return true;
    return false;
}

}  // namespace

std::vector<FieldDesc> FieldsOf(CDbFile& file) {
    std::vector<FieldDesc> out;
    CddFldList& list = file.m_FldList;
    for (int ok = list.First(); ok; ok = list.Next()) {
        FieldDesc d;
        d.fldId = list.GetFldId();
        const char* name = list.GetFldName();
        d.name = name ? name : "";
        if (d.name.empty()) d.name = "field" + std::to_string(d.fldId);
        d.type = dbFieldType(list.GetFldType());
        d.offset = list.GetFldOffset();
        d.length = list.GetFldLen();
        d.numDP = list.GetFldNumDP();
        d.kind = dbsql::KindOfField(d.type, d.length);
        if (unsigned(d.offset) + d.length > 64512 || d.length == 0)
            throw Failure(std::string("the dictionary entry of ") + file.FileName() +
                          " is damaged: field " + d.name + " lies outside any record");
        out.push_back(std::move(d));
    }
    if (out.empty())
        throw Failure(std::string("the dictionary entry of ") + file.FileName() +
                      " describes no fields");
    return out;
}

void PlainCell(const FieldDesc& f, const char* record, unsigned length, bool utf8, Cell& out) {
    out.kind = Cell::Null;
    out.text.clear();
    if (unsigned(f.offset) + f.length > length) return;
    static CString text;  // one string for every call spares an allocation each
    CDbFile::FormatFileDataToString(text, record + f.offset, f.length, TextType(f), f.numDP);
    out.kind = IsNumberType(f.type) ? Cell::Number : f.type == dbBoolean ? Cell::Bool : Cell::Text;
    if (utf8 && out.kind == Cell::Text)
        out.text = Utf8FromAnsi(text.str());
    else
        out.text.assign(text.c_str(), size_t(text.GetLength()));
}

Cell DisplayCell(CDbFile& file, const FieldDesc& f) {
    Cell c;
    if (unsigned(f.offset) + f.length > file.GetBytesRead()) return c;
    CString text;
    if (f.type == dbDecimal && f.length != 4 && f.length != 8)
        text = "";
    else
        file.FormatFileDataToDisplay(text, int(f.fldId));
    c.kind = IsNumberType(f.type) ? Cell::Number : Cell::Text;
    c.text = Utf8FromAnsi(text.str());
    return c;
}

bool StoreText(const FieldDesc& f, const std::string& text, char* dest, std::string& why) {
    std::memset(dest, 0, f.length);
    if (text.empty()) return true;
    switch (f.type) {
        case dbInteger:
        case dbUnsigned:
        case dbAutoInc:
        case dbUnsignedText: {
            long long v;
            if (!ParseInteger(text, v)) {
                why = "is not a whole number";
                return false;
            }
            bool isSigned = f.type == dbInteger;
            int bits = f.length == 2 ? 16 : 32;
            long long lo = isSigned ? -(1LL << (bits - 1)) : 0;
            long long hi = isSigned ? (1LL << (bits - 1)) - 1 : (1LL << bits) - 1;
            if (v < lo || v > hi) {
                why = "does not fit the field (" + std::to_string(lo) + " to " +
                      std::to_string(hi) + ")";
                return false;
            }
            break;
        }
        case dbFloat:
        case dbDecimal: {
            double v;
            if (!ParseReal(text, v)) {
                why = "is not a number";
                return false;
            }
            if (f.length == 4 && std::fabs(v) > 3.4028234663852886e38) {
                why = "does not fit a 4-byte number";
                return false;
            }
            break;
        }
        case dbMoney: {
            double v;
            if (!ParseReal(text, v)) {
                why = "is not an amount";
                return false;
            }
            int digits = 2 * f.length - 1 - f.numDP;
            if (digits < 0 || std::fabs(v) >= std::pow(10.0, digits)) {
                why = "does not fit the field (" + std::to_string(std::max(digits, 0)) +
                      " digits before the point)";
                return false;
            }
            break;
        }
        case dbDate: {
            Date d;
            d = text.c_str();
            if (d.IsBlank()) {
                why = "is not a date (MM/DD/YYYY)";
                return false;
            }
            break;
        }
        case dbTime: {
            Time t;
            t = text.c_str();
            if (t.IsBlank() && HasNonZeroDigit(text)) {
                why = "is not a time (HH:MM:SS)";
                return false;
            }
            if (t.IsBlank() && text.find(':') == std::string::npos) {
                why = "is not a time (HH:MM:SS)";
                return false;
            }
            break;
        }
        case dbBoolean:
            if (text != "0" && text != "1") {
                why = "is not 0 or 1";
                return false;
            }
            break;
        case dbString:
        case dbFixedText:
            if (text.size() > f.length) {
                why = "is longer than the field's " + std::to_string(f.length) + " characters";
                return false;
            }
            break;
        case dbZString:
        case dbPhone:
            if (text.size() + 1 > f.length) {
                why = "is longer than the field's " + std::to_string(f.length - 1) + " characters";
                return false;
            }
            break;
        default:
            // Types without a text of their own export as asterisks.
            if (text.find_first_not_of('*') != std::string::npos) {
                why = "is text for a field of a type that takes none";
                return false;
            }
            return true;
    }
    CDbFile::FormatStringToFileData(text.c_str(), dest, f.length, TextType(f), f.numDP);
    return true;
}

}  // namespace dbutil
