// Path: a directory or file name with the path operations the library uses.
// Both '/' and '\\' separate on input; '/' is written.
#pragma once

#include "support/zstring.h"

class Path : public ZString {
  public:
    Path() = default;
    Path(const char* s) : ZString(s) {}  // NOLINT: text converts freely
    Path& operator=(const char* s) {
        ZString::operator=(s);
        return *this;
    }

    // Makes the path absolute against the current directory, with '/'
    // separators and no "." or ".." parts.
    Path& QualifyPath();
    // add 1: a trailing separator is added when missing; 0: one is removed.
    Path& SetBackslash(int add);
    // Creates every missing directory of the path; false on failure.
    bool CreatePath() const;
    bool FileExists() const;
    // The drive-letter form of a directory: here the directory itself.
    int GetLocalName(const char* directory);
    // The last component.
    ZString LastComponent() const;
    // Index of the last separator, -1 when there is none.
    int LastSeparator() const;

    Path& operator<<(const char* s) {
        ZString::operator+=(s);
        return *this;
    }
};

inline bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}
