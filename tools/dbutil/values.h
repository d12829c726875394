// Field values of a record for dbutil: the cells of an export (plain text
// for comma-separated text and JSON, display text for the table) and the
// checked conversion of imported text into a field's bytes. The
// conversions themselves are the library's.
#pragma once

#include <dbfile/dbfile.h>

#include <string>
#include <vector>

#include "output.h"
#include "sqlite/column_value.h"

namespace dbutil {

// A field as the dictionary describes it (the same description the SQL
// columns are made from).
using FieldDesc = dbsql::ColumnDef;

// The file's fields in dictionary order. Throws Failure when the
// description is damaged: a field outside the longest record the library
// can hold, or none at all.
std::vector<FieldDesc> FieldsOf(CDbFile& file);

// A field of the record of `length` bytes as plain text: the stored bytes
// for comma-separated text, UTF-8 for JSON. A field the record is too short
// for is an empty cell.
// Fills `out`, whose text keeps its room from one record to the next.
void PlainCell(const FieldDesc& f, const char* record, unsigned length, bool utf8, Cell& out);
// The field of the file's current record as its user sees it, in UTF-8.
Cell DisplayCell(CDbFile& file, const FieldDesc& f);

// Checks `text` for the field and writes the field's stored form to
// `dest` (the field's `length` bytes). An empty text leaves the bytes zero.
// False, with the reason in `why`, for text the field cannot take: a
// number that is not one or does not fit, a date or time that is not one,
// a text longer than the field.
bool StoreText(const FieldDesc& f, const std::string& text, char* dest, std::string& why);

}  // namespace dbutil
