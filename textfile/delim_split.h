// Splits one comma-separated line in place: separators and the quotes around
// quoted fields become NULs, and the start of each field is recorded.
#pragma once

#include <vector>

// `line` holds `length` characters (and a NUL after them). A field may be
// enclosed in double quotes to hold commas; a quote inside it ends it only
// when a comma or the line's end follows, and doubled quotes stay as they
// are. Answers the number of fields; `starts` holds their offsets, each
// field running to the next NUL.
int SplitDelimitedLine(char* line, int length, std::vector<unsigned>& starts);
