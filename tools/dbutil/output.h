// Rows written as comma-separated text (the form the library's reader
// takes back), as an aligned table, or as JSON, one object per row.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace dbutil {

enum class Format { Csv, Table, Json };

struct Cell {
    enum Kind { Null, Number, Text, Bool } kind = Null;
    std::string text;  // a number's or a text's characters; "1" or "0" for a flag
};

class Writer {
  public:
    virtual ~Writer() = default;
    virtual void Header(const std::vector<std::string>& names) = 0;
    virtual void Row(const std::vector<Cell>& cells) = 0;
    virtual void End() = 0;
};

// Writes to `out`. JSON and the table take UTF-8 text; CSV writes the bytes
// it is given. A CSV cell that the format cannot carry (a line break, or a
// quote followed by a comma) raises Failure, naming `rowName` and the row.
std::unique_ptr<Writer> MakeWriter(Format format, FILE* out, std::string rowName = "row");

// Appends the text of a cell as comma-separated text takes it to `out`;
// false, leaving `out` as it was, when it cannot.
bool AppendCsvField(const std::string& text, std::string& out);

}  // namespace dbutil
