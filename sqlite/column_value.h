// Fields as SQL columns: the column type of each field type, a field's
// value taken from a record through the library's plain-text conversion,
// and the comparisons that turn constraints into key searches.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "dictionary/records.h"

namespace dbsql {

enum class ColumnKind { Integer, Real, Text, Date, Time, Blob };

struct ColumnDef {
    unsigned short fldId = 0;
    std::string name;
    dbFieldType type = dbString;
    unsigned short offset = 0;
    unsigned short length = 0;
    int numDP = 0;
    ColumnKind kind = ColumnKind::Text;
};

// Integers, booleans and unsigned numbers are INTEGER; floats, decimals and
// money REAL; dates ISO text ("2024-01-31"), which sorts as the calendar;
// times "HH:MM:SS[.hh]"; texts UTF-8 without the blanks that pad fixed
// texts; types without a text of their own the stored bytes.
ColumnKind KindOfField(dbFieldType type, int length);
const char* DeclaredType(ColumnKind kind);

// One value as SQLite orders it: NULL, then numbers, then text, then blobs.
struct SqlValue {
    enum Tag { Null, Int, Real, Text, Blob } tag = Null;
    int64_t i = 0;
    double r = 0;
    std::string s;  // text (UTF-8) or blob bytes
};

// The column's value in a record of `length` bytes; NULL when the record is
// too short to hold the field, for a blank date or time and for numbers
// whose text does not read back.
void FieldValue(const ColumnDef& c, const char* record, unsigned length, SqlValue& out);
void ResultValue(sqlite3_context* ctx, const SqlValue& v);

// <0, 0 or >0 as SQLite compares the value with `other` without affinity.
int Compare(const SqlValue& v, sqlite3_value* other);

// Whether a key whose first segment is this column orders its values as SQL
// orders the column (so that a range of one is a range of the other), given
// the segment's key flags.
bool KeyOrdersLikeColumn(const ColumnDef& c, unsigned flags);

// How a constraint value bounds a key search from below.
enum class LowerBound {
    Exact,  // `text` builds the smallest key whose first segment can match
    None,   // no key search can use it: the scan starts at the first record
    Empty,  // no record can match
};
// The text that SetKeyFromString takes for the smallest value of the column
// that is >= `v` (the strictness of the constraint is left to SQLite).
LowerBound LowerBoundText(const ColumnDef& c, sqlite3_value* v, std::string& text);

// Whether `v` can end a key scan: a value that every record beyond it in key
// order exceeds as SQL compares them. Bounds that cannot (text outside
// ASCII on a text column, whose byte order differs from the stored one)
// leave the scan running to the end.
bool UsableUpperBound(const ColumnDef& c, sqlite3_value* v);

}  // namespace dbsql
