#include "support/path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

Path& Path::QualifyPath() {
    std::string in = str();
    for (char& c : in)
        if (c == '\\') c = '/';
    if (in.empty()) return *this;
    bool trailing = in.back() == '/';
    if (in[0] != '/') {
        char cwd[4096];
        if (::getcwd(cwd, sizeof(cwd))) in = std::string(cwd) + "/" + in;
    }
    std::vector<std::string> parts;
    size_t at = 0;
    while (at <= in.size()) {
        size_t next = in.find('/', at);
        if (next == std::string::npos) next = in.size();
        std::string part = in.substr(at, next - at);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        at = next + 1;
    }
    std::string out;
    for (const std::string& p : parts)
        out += "/" + p;
    if (out.empty()) out = "/";
    if (trailing && out != "/") out += "/";
    ZString::operator=(out.c_str());
    return *this;
}

Path& Path::SetBackslash(int add) {
    bool has = Length() > 0 && IsSeparator(GetAt(Length() - 1));
    if (add && !has) ZString::operator+=('/');
    if (!add && has) ZString::operator=(Left(Length() - 1).c_str());
    return *this;
}

bool Path::CreatePath() const {
    std::string p = str();
    for (char& c : p)
        if (c == '\\') c = '/';
    for (size_t at = 1; at <= p.size(); ++at) {
        if (at != p.size() && p[at] != '/') continue;
        std::string dir = p.substr(0, at);
        if (dir.empty()) continue;
        if (::mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) return false;
    }
    struct stat sb;
    return ::stat(p.c_str(), &sb) == 0 && S_ISDIR(sb.st_mode);
}

bool Path::FileExists() const {
    struct stat sb;
    return ::stat(c_str(), &sb) == 0;
}

int Path::GetLocalName(const char* directory) {
    ZString::operator=(directory);
    return 1;
}

int Path::LastSeparator() const {
    for (int i = Length() - 1; i >= 0; --i)
        if (IsSeparator(GetAt(i))) return i;
    return -1;
}

ZString Path::LastComponent() const {
    Path p(*this);
    p.SetBackslash(0);
    return p.Mid(p.LastSeparator() + 1);
}
