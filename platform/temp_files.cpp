#include "platform/temp_files.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

std::string UniqueTempFile(const std::string& dir, const char* prefix) {
    std::string pattern = (dir.empty() ? std::string(".") : dir);
    if (pattern.back() != '/') pattern += '/';
    pattern += prefix;
    pattern += "XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0) return "";
    ::close(fd);
    return name.data();
}

std::string SystemTempDirectory() {
    std::error_code ec;
    std::string dir = std::filesystem::temp_directory_path(ec).string();
    return ec ? std::string("/tmp") : dir;
}
