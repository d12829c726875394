#include "platform/profile.h"

#include <iconv.h>
#include <ini.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace {

struct Snapshot {
    std::mutex mu;
    bool loaded = false;
    std::map<std::string, std::string> values;  // "section\nkey", both in lower case
};

Snapshot& TheProfile() {
    static Snapshot* s = new Snapshot;  // may be read while the process exits
    return *s;
}

std::string Lower(const char* s) {
    std::string out(s ? s : "");
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return out;
}

std::string KeyOf(const char* section, const char* key) {
    return Lower(section) + '\n' + Lower(key);
}

// UTF-8 text in the library's code page; text that is not UTF-8 is taken to
// be in that code page already and kept as it is.
std::string ToAnsi(const std::string& text) {
    bool ascii = true;
    for (char c : text)
        ascii = ascii && static_cast<unsigned char>(c) < 0x80;
    if (ascii) return text;
    iconv_t cd = iconv_open("WINDOWS-1252//TRANSLIT", "UTF-8");
    if (cd == iconv_t(-1)) return text;
    std::string in = text, out(text.size() * 4 + 4, '\0');
    char* src = in.data();
    char* dst = out.data();
    size_t srcLeft = in.size(), dstLeft = out.size();
    size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
    iconv_close(cd);
    if (r == size_t(-1)) return text;
    out.resize(out.size() - dstLeft);
    return out;
}

int OnValue(void* user, const char* section, const char* key, const char* value) {
    auto* values = static_cast<std::map<std::string, std::string>*>(user);
    std::string v = value ? value : "";
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
    values->emplace(KeyOf(section, key), ToAnsi(v));  // the first of equal keys stays
    return 1;
}

// Lines for the parser, one at a time; a line too long for its buffer
// comes through empty rather than cut into pieces that would read as lines.
struct LineSource {
    FILE* file;
    char* line = nullptr;
    size_t capacity = 0;
};

char* ReadLine(char* into, int size, void* stream) {
    auto* src = static_cast<LineSource*>(stream);
    ssize_t n = getline(&src->line, &src->capacity, src->file);
    if (n < 0) return nullptr;
    if (n >= size) n = 0;
    std::memcpy(into, src->line, size_t(n));
    into[n] = '\0';
    return into;
}

void Load(Snapshot& s) {
    s.values.clear();
    s.loaded = true;
    std::string path = ProfilePath();
    if (path.empty()) return;
    FILE* f = std::fopen(path.c_str(), "r");
    if (!f) return;
    LineSource src{f};
    ini_parse_stream(ReadLine, &src, OnValue, &s.values);  // bad lines are skipped
    std::free(src.line);
    std::fclose(f);
}

}  // namespace

std::string ProfilePath() {
    const char* named = std::getenv("DBFILE_PROFILE");
    if (named && *named) return named;
    const char* home = std::getenv("HOME");
    std::string dir = home && *home ? home : "";
    if (dir.empty()) {
        if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) dir = pw->pw_dir;
    }
    return dir.empty() ? "" : dir + "/.config/dbfile/profile.ini";
}

void ReloadProfile() {
    Snapshot& s = TheProfile();
    std::lock_guard<std::mutex> lk(s.mu);
    Load(s);
}

std::optional<std::string> ProfileValue(const char* section, const char* key) {
    Snapshot& s = TheProfile();
    std::lock_guard<std::mutex> lk(s.mu);
    if (!s.loaded) Load(s);
    auto it = s.values.find(KeyOf(section, key));
    if (it == s.values.end()) return std::nullopt;
    return it->second;
}

std::string ProfileString(const char* section, const char* key, const char* def) {
    return ProfileValue(section, key).value_or(def ? def : "");
}

unsigned ProfileNumber(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    unsigned v = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
        v = v * 10u + unsigned(text[i] - '0');  // wraps as the 32-bit reading does
    return negative ? 0u - v : v;
}

unsigned ProfileInt(const char* section, const char* key, unsigned def) {
    std::optional<std::string> v = ProfileValue(section, key);
    if (!v || v->empty()) return def;
    return ProfileNumber(*v);
}

bool LocaleNegativeNumber(std::string& out) {
    std::optional<std::string> v = ProfileValue("intl", "iNegNumber");
    if (!v || v->empty()) return false;
    out = *v;
    return true;
}
