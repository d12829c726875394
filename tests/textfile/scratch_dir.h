// A fresh folder for a test's files, removed with everything in it when the
// test ends, and whole-file reads and writes.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class ScratchDir {
  public:
    ScratchDir() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "dbfile-text-XXXXXX").string();
        dir_ = mkdtemp(pattern.data());
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string Path(const std::string& name) const { return dir_ + "/" + name; }
    const std::string& Dir() const { return dir_; }

    std::string Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }
    static std::string Read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::stringstream all;
        all << in.rdbuf();
        return all.str();
    }

  private:
    std::string dir_;
};
