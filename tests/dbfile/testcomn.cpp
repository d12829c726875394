// A stand-in for the application's common library: it records every message
// it is handed, one line each, in the file named by DBFILE_TEST_MESSAGE_LOG,
// and answers the message kind.
#include <cstdio>
#include <cstdlib>
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
    const char* log = std::getenv("DBFILE_TEST_MESSAGE_LOG");
    if (!log) return kind;
    if (FILE* f = std::fopen(log, "a")) {
        std::fprintf(f, "%s|%s|%s|%d|%d|%s\n", system, module, caption, zero, kind,
                     Escaped(text).c_str());
        std::fclose(f);
    }
    return kind;
}
