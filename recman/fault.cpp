#include "recman/fault.h"

#ifdef RECMAN_FAULTS

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace recman {

namespace {

std::mutex g_mu;
std::string g_spec;                   // the RECMAN_FAULT the counts are for
std::map<std::string, int> g_passed;  // passages of each step since it was set

// The step RECMAN_FAULT names and the passage it acts on.
bool Named(const char* step, const char* prefix, int& passage) {
    const char* s = std::getenv("RECMAN_FAULT");
    if (!s) return false;
    size_t n = std::strlen(prefix);
    if (std::strncmp(s, prefix, n) != 0) return false;
    s += n;
    const char* at = std::strchr(s, '@');
    std::string name = at ? std::string(s, size_t(at - s)) : std::string(s);
    passage = at ? std::atoi(at + 1) : 1;
    return name == step;
}

bool Due(const char* step, const char* prefix) {
    // Counting starts afresh whenever the variable changes (or goes).
    std::lock_guard<std::mutex> lk(g_mu);
    const char* spec = std::getenv("RECMAN_FAULT");
    if (g_spec != (spec ? spec : "")) {
        g_spec = spec ? spec : "";
        g_passed.clear();
    }
    int passage;
    if (!Named(step, prefix, passage)) return false;
    return ++g_passed[std::string(prefix) + step] == passage;
}

}  // namespace

void FaultPoint(const char* step, int n) {
    std::string name = n ? step + std::to_string(n) : std::string(step);
    if (Due(name.c_str(), "")) ::kill(::getpid(), SIGKILL);
}

bool FaultFails(const char* step) {
    return Due(step, "fail:");
}

}  // namespace recman

#endif
