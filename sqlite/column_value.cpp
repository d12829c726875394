#include "sqlite/column_value.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "dbfile/db_file.h"
#include "platform/code_page.h"
#include "support/date_time.h"

namespace dbsql {

namespace {

// Key flags that make a key order otherwise than plain values, or leave
// records out of it.
constexpr unsigned kNullKey = 0x0008, kAltCollating = 0x0020, kDescending = 0x0040,
                   kManualKey = 0x0200, kNoCase = 0x0400;

bool IsFixedText(dbFieldType t) {
    return t == dbString || t == dbFixedText;
}

bool IsAscii(const unsigned char* s, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (s[i] >= 0x80) return false;
    return true;
}

// Printable ASCII bounds compare with UTF-8 values as with the stored
// Windows-1252 bytes, and above the blanks that pad fixed texts.
bool IsPrintableAscii(const unsigned char* s, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (s[i] < 0x20 || s[i] >= 0x80) return false;
    return true;
}

// The range of an integer field, as its key orders it.
bool IntegerRange(const ColumnDef& c, int64_t& lo, int64_t& hi) {
    bool isSigned = c.type == dbInteger;
    if (c.type == dbBoolean) {
        lo = 0, hi = 255;
        return true;
    }
    if (c.length == 2) {
        lo = isSigned ? -32768 : 0;
        hi = isSigned ? 32767 : 65535;
        return true;
    }
    if (c.length == 4) {
        lo = isSigned ? std::numeric_limits<int32_t>::min() : 0;
        hi = isSigned ? std::numeric_limits<int32_t>::max() : std::numeric_limits<uint32_t>::max();
        return true;
    }
    return false;
}

int CompareNumbers(long double a, long double b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

int CompareBytes(const std::string& a, const void* b, size_t bn) {
    int c = std::memcmp(a.data(), b, std::min(a.size(), bn));
    if (c) return c;
    return a.size() < bn ? -1 : a.size() > bn ? 1 : 0;
}

int Rank(int sqliteType) {
    switch (sqliteType) {
        case SQLITE_NULL:
            return 0;
        case SQLITE_INTEGER:
        case SQLITE_FLOAT:
            return 1;
        case SQLITE_TEXT:
            return 2;
        default:
            return 3;
    }
}

int Rank(SqlValue::Tag t) {
    switch (t) {
        case SqlValue::Null:
            return 0;
        case SqlValue::Int:
        case SqlValue::Real:
            return 1;
        case SqlValue::Text:
            return 2;
        default:
            return 3;
    }
}

}  // namespace

ColumnKind KindOfField(dbFieldType type, int length) {
    switch (type) {
        case dbInteger:
        case dbUnsigned:
        case dbAutoInc:
        case dbUnsignedText:
        case dbBoolean:
            return ColumnKind::Integer;
        case dbFloat:
        case dbMoney:
            return ColumnKind::Real;
        case dbDecimal:  // stored as a float or a double, as dbFloat is
            return length == 4 || length == 8 ? ColumnKind::Real : ColumnKind::Blob;
        case dbDate:
            return ColumnKind::Date;
        case dbTime:
            return ColumnKind::Time;
        case dbString:
        case dbZString:
        case dbPhone:
        case dbFixedText:
            return ColumnKind::Text;
        default:
            return ColumnKind::Blob;
    }
}

const char* DeclaredType(ColumnKind kind) {
    switch (kind) {
        case ColumnKind::Integer:
            return "INTEGER";
        case ColumnKind::Real:
            return "REAL";
        case ColumnKind::Blob:
            return "BLOB";
        default:
            return "TEXT";
    }
}

void FieldValue(const ColumnDef& c, const char* record, unsigned length, SqlValue& out) {
    out.tag = SqlValue::Null;
    if (unsigned(c.offset) + c.length > length) return;
    const char* data = record + c.offset;
    if (c.kind == ColumnKind::Blob) {
        out.tag = SqlValue::Blob;
        out.s.assign(data, c.length);
        return;
    }
    // Decimals have no plain text of their own; their bytes are a float's.
    dbFieldType type = c.type == dbDecimal ? dbFloat : c.type;
    CString text;
    CDbFile::FormatFileDataToString(text, data, c.length, type, c.numDP);
    const char* s = text.c_str();
    size_t n = size_t(text.GetLength());
    switch (c.kind) {
        case ColumnKind::Integer: {
            auto r = std::from_chars(s, s + n, out.i);
            if (r.ec == std::errc() && r.ptr == s + n) out.tag = SqlValue::Int;
            return;
        }
        case ColumnKind::Real: {
            auto r = std::from_chars(s, s + n, out.r);
            if (r.ec == std::errc() && r.ptr == s + n) out.tag = SqlValue::Real;
            return;
        }
        case ColumnKind::Date:
            // The plain text is MM/DD/YYYY.
            if (n == 10) {
                out.tag = SqlValue::Text;
                out.s.assign(s + 6, 4);
                out.s.append("-").append(s, 2).append("-").append(s + 3, 2);
            }
            return;
        case ColumnKind::Time:
            if (n) {
                out.tag = SqlValue::Text;
                out.s.assign(s, n);
            }
            return;
        default:
            if (IsFixedText(c.type))
                while (n && s[n - 1] == ' ')
                    --n;
            out.tag = SqlValue::Text;
            if (IsAscii(reinterpret_cast<const unsigned char*>(s), n))
                out.s.assign(s, n);
            else
                out.s = Utf8FromAnsi(std::string_view(s, n));
    }
}

void ResultValue(sqlite3_context* ctx, const SqlValue& v) {
    switch (v.tag) {
        case SqlValue::Int:
            sqlite3_result_int64(ctx, v.i);
            break;
        case SqlValue::Real:
            sqlite3_result_double(ctx, v.r);
            break;
        case SqlValue::Text:
            sqlite3_result_text(ctx, v.s.data(), int(v.s.size()), SQLITE_TRANSIENT);
            break;
        case SqlValue::Blob:
            sqlite3_result_blob(ctx, v.s.data(), int(v.s.size()), SQLITE_TRANSIENT);
            break;
        default:
            sqlite3_result_null(ctx);
    }
}

int Compare(const SqlValue& v, sqlite3_value* other) {
    int t = sqlite3_value_type(other);
    int ra = Rank(v.tag), rb = Rank(t);
    if (ra != rb) return ra < rb ? -1 : 1;
    switch (ra) {
        case 0:
            return 0;
        case 1: {
            if (v.tag == SqlValue::Int && t == SQLITE_INTEGER) {
                int64_t b = sqlite3_value_int64(other);
                return v.i < b ? -1 : v.i > b ? 1 : 0;
            }
            long double a = v.tag == SqlValue::Int ? (long double)v.i : (long double)v.r;
            long double b = t == SQLITE_INTEGER ? (long double)sqlite3_value_int64(other)
                                                : (long double)sqlite3_value_double(other);
            return CompareNumbers(a, b);
        }
        case 2:
            return CompareBytes(v.s, sqlite3_value_text(other), size_t(sqlite3_value_bytes(other)));
        default:
            return CompareBytes(v.s, sqlite3_value_blob(other), size_t(sqlite3_value_bytes(other)));
    }
}

bool KeyOrdersLikeColumn(const ColumnDef& c, unsigned flags) {
    if (flags & (kNullKey | kAltCollating | kDescending | kManualKey | kNoCase)) return false;
    switch (c.type) {
        case dbInteger:
        case dbUnsigned:
            return c.length == 2 || c.length == 4;
        case dbBoolean:
            return c.length == 1;
        case dbFloat:
            return c.length == 4 || c.length == 8;
        case dbDate:
            return c.length == 4;
        case dbString:
        case dbFixedText:
        case dbZString:
        case dbPhone:
            return c.length > 0;
        default:
            // Auto-increment numbers are unsigned in text but signed in their
            // key; unsigned texts order as bytes; times, money and decimals
            // build no key from text that orders exactly like their column.
            return false;
    }
}

LowerBound LowerBoundText(const ColumnDef& c, sqlite3_value* v, std::string& text) {
    int t = sqlite3_value_type(v);
    switch (c.type) {
        case dbInteger:
        case dbUnsigned:
        case dbBoolean: {
            if (t != SQLITE_INTEGER && t != SQLITE_FLOAT) return LowerBound::None;
            int64_t lo, hi;
            if (!IntegerRange(c, lo, hi)) return LowerBound::None;
            long double b;
            if (t == SQLITE_INTEGER) {
                b = (long double)sqlite3_value_int64(v);
            } else {
                double d = sqlite3_value_double(v);
                if (std::isnan(d)) return LowerBound::None;
                b = std::ceil((long double)d);
            }
            if (b > hi) return LowerBound::Empty;
            if (b <= lo) return LowerBound::None;
            int64_t n = int64_t(b);
            if (c.type == dbBoolean) {
                // Only the first character of the text is read.
                if (n > 9) return LowerBound::None;
            }
            text = std::to_string(n);
            return LowerBound::Exact;
        }
        case dbFloat: {
            if (t != SQLITE_INTEGER && t != SQLITE_FLOAT) return LowerBound::None;
            double d = sqlite3_value_double(v);
            if (std::isnan(d) || std::isinf(d)) return LowerBound::None;
            if (t == SQLITE_INTEGER && double(int64_t(d)) != d) return LowerBound::None;
            char buf[40];
            auto r = std::to_chars(buf, buf + sizeof(buf), d, std::chars_format::scientific, 17);
            text.assign(buf, r.ptr);
            // A float field holds the nearest float; rows below it are below d.
            return LowerBound::Exact;
        }
        case dbDate: {
            if (t != SQLITE_TEXT) return LowerBound::None;
            const char* s = reinterpret_cast<const char*>(sqlite3_value_text(v));
            int n = sqlite3_value_bytes(v);
            // Only a whole ISO date names the first date it admits.
            if (n != 10 || s[4] != '-' || s[7] != '-') return LowerBound::None;
            for (int i : {0, 1, 2, 3, 5, 6, 8, 9})
                if (s[i] < '0' || s[i] > '9') return LowerBound::None;
            text.assign(s + 5, 2).append("/").append(s + 8, 2).append("/").append(s, 4);
            // A date that does not exist (February 30) starts no search.
            Date date;
            date = text.c_str();
            if (date.IsBlank() || date.Short().str() != text) return LowerBound::None;
            return LowerBound::Exact;
        }
        case dbString:
        case dbFixedText:
        case dbZString:
        case dbPhone: {
            if (t != SQLITE_TEXT) return LowerBound::None;
            const unsigned char* s = sqlite3_value_text(v);
            int n = sqlite3_value_bytes(v);
            if (!IsPrintableAscii(s, size_t(n))) return LowerBound::None;
            // A key holds at most the field's length; a longer bound starts
            // the scan at its prefix.
            text.assign(reinterpret_cast<const char*>(s), std::min<size_t>(size_t(n), c.length));
            if (text.empty()) return LowerBound::None;
            return LowerBound::Exact;
        }
        default:
            return LowerBound::None;
    }
}

bool UsableUpperBound(const ColumnDef& c, sqlite3_value* v) {
    int t = sqlite3_value_type(v);
    if (t == SQLITE_NULL || t == SQLITE_BLOB) return false;
    if (c.kind == ColumnKind::Text || c.kind == ColumnKind::Date)
        return t == SQLITE_TEXT &&
               IsPrintableAscii(sqlite3_value_text(v), size_t(sqlite3_value_bytes(v)));
    if (t == SQLITE_FLOAT && std::isnan(sqlite3_value_double(v))) return false;
    return t == SQLITE_INTEGER || t == SQLITE_FLOAT;
}

}  // namespace dbsql
