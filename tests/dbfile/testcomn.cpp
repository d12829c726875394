// A stand-in for the application's common library: it records every message
// it is handed, one line each, in the file named by DBFILE_TEST_MESSAGE_LOG,
// and answers the message kind (or throws, with DBFILE_TEST_MESSAGE_THROW). It also lays out
// account, job and phone numbers in a recognisable way.
#include <dbfile/dbfile.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

std::string Escaped(const char* s) {
    std::string out;
    for (; s && *s; ++s) {
        if (*s == '\n')
            out += "\\n";
        else if (*s == '\t')
            out += "\\t";
        else
            out += *s;
    }
    return out;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int VEXA_MessageString(const char* system,
                                                                         const char* module,
                                                                         const char* caption,
                                                                         const char* text, int zero,
                                                                         int kind) {
    // A test can make the library fail the way a broken one would.
    if (std::getenv("DBFILE_TEST_MESSAGE_THROW")) throw std::runtime_error("message failed");
    const char* log = std::getenv("DBFILE_TEST_MESSAGE_LOG");
    if (!log) return kind;
    if (FILE* f = std::fopen(log, "a")) {
        std::fprintf(f, "%s|%s|%s|%d|%d|%s\n", system, module, caption, zero, kind,
                     Escaped(text).c_str());
        std::fclose(f);
    }
    return kind;
}

// Account numbers as 2-4 groups, job numbers in brackets; a raw text "throw"
// makes the entry fail. Phones get the value as an area code.
extern "C" __attribute__((visibility("default"))) const char* FormatAcct(const char* raw) {
    static std::string out;
    std::string s = raw;
    if (s == "throw") throw 1;
    out = s.size() > 2 ? s.substr(0, 2) + "-" + s.substr(2) : s;
    return out.c_str();
}

extern "C" __attribute__((visibility("default"))) const char* FormatJob(const char* raw) {
    static std::string out;
    out = std::string("[") + raw + "]";
    return out.c_str();
}

extern "C" __attribute__((visibility("default"))) void FormatPhone(CString& out, const char* raw,
                                                                   int phoneValue) {
    out = ("(" + std::to_string(phoneValue) + ") " + raw).c_str();
}
