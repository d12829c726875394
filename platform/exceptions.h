// The framework's exceptions that the library raises to its callers: file
// failures and arguments out of range.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/cstring.h"

class CFileException : public std::runtime_error {
  public:
    // Why a file operation failed.
    enum Cause {
        none = 0,
        generic = 1,
        fileNotFound = 2,
        badPath = 3,
        accessDenied = 5,
        invalidFile = 6,
        badSeek = 10,
        hardIO = 11,
        sharingViolation = 12,
        lockViolation = 13,
        diskFull = 14,
        endOfFile = 15,
    };

    CFileException(Cause cause, int osError, const char* fileName, const std::string& text)
        : std::runtime_error(text), m_cause(cause), m_lOsError(osError), m_strFileName(fileName) {}

    // The cause that matches an errno value.
    static Cause CauseOf(int osError);

    Cause m_cause;
    int m_lOsError;  // errno, 0 when the failure is not the system's
    CString m_strFileName;
};

class CInvalidArgException : public std::invalid_argument {
  public:
    explicit CInvalidArgException(const std::string& text) : std::invalid_argument(text) {}
};
