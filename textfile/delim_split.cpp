#include "textfile/delim_split.h"

namespace {

// Index of `c` in line[from, length), or -1. Fields are short: a plain
// loop beats a library call here.
int FindFrom(const char* line, int length, int from, char c) {
    for (int i = from; i < length; ++i)
        if (line[i] == c) return i;
    return -1;
}

}  // namespace

int SplitDelimitedLine(char* line, int length, std::vector<unsigned>& starts) {
    starts.clear();
    int i = 0;
    while (i < length) {
        bool quoted = line[i] == '"';
        if (quoted) line[i++] = '\0';
        if (i < length) starts.push_back(unsigned(i));
        if (quoted) {
            // The closing quote is the first one followed by a comma or
            // standing last; without one the field runs to the line's end.
            int q = FindFrom(line, length, i, '"');
            while (q >= 0 && q < length - 1 && line[q + 1] != ',')
                q = FindFrom(line, length, q + 1, '"');
            if (q < 0) break;
            line[q] = '\0';
            i = q + 1;
        } else {
            int comma = FindFrom(line, length, i, ',');
            if (comma < 0) break;
            i = comma;
        }
        if (i >= length) break;
        line[i++] = '\0';
        if (i == length) starts.push_back(unsigned(i - 1));  // a trailing comma: one more, empty
    }
    return int(starts.size());
}
