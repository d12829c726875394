#include "context.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "platform/profile.h"
#include "support/win_string.h"

namespace fs = std::filesystem;

namespace dbutil {

namespace {

// Folders the library keeps in 64-character buffers.
constexpr size_t kPathLimit = 64;

std::string Folder(const std::string& given, const char* what) {
    std::error_code ec;
    fs::path p = fs::absolute(given.empty() ? "." : given, ec).lexically_normal();
    std::string s = p.string();
    while (s.size() > 1 && s.back() == '/')
        s.pop_back();
    if (ec || !fs::is_directory(p, ec))
        throw Failure(std::string(what) + " " + given + " is not a folder");
    if (s.size() > kPathLimit)
        throw Failure(std::string(what) + " " + s + " is longer than 64 characters");
    return s;
}

}  // namespace

std::string StatusText(int status) {
    WinString text;
    std::string s = "status " + std::to_string(status);
    if (status > 0 && text.Load(10000 + unsigned(status))) s += " (" + text.str() + ")";
    return s;
}

void Context::Apply() {
    if (!options.profile.empty()) {
        std::error_code ec;
        if (!fs::is_regular_file(options.profile, ec))
            throw Failure("profile " + options.profile + " is not a file");
        setenv("DBFILE_PROFILE", options.profile.c_str(), 1);
        ReloadProfile();
    }
    data_ = Folder(options.data, "data folder");
    std::string system = options.system.empty() ? data_ : Folder(options.system, "system folder");
    CDbFile::SetSysDataPath(system.c_str());
    CDbFile::SetDataPath(data_.c_str());
    CDbFile::SetHistPath(data_.c_str());
    CDbFile::SetGLDataPath(data_.c_str());
    CDbFile::SetGLHistPath(data_.c_str());
    fs::path dict = options.dictionary.empty() ? fs::path(system) / "vexa.ddf"
                                               : fs::absolute(options.dictionary);
    dictionary_ = dict.lexically_normal().string();
    if (dictionary_.size() >= sizeof(g_CddFileName))
        throw Failure("dictionary path " + dictionary_ + " is too long");
    std::snprintf(g_CddFileName, sizeof(g_CddFileName), "%s", dictionary_.c_str());
}

std::unique_ptr<CDbFile> Context::Build(const std::string& name) const {
    std::error_code ec;
    if (!fs::exists(dictionary_, ec))
        throw Failure("dictionary " + dictionary_ + " not found (--dictionary names it)");
    fs::path given(name);
    std::string folder;
    if (given.has_parent_path()) {
        folder = fs::absolute(given.parent_path(), ec).lexically_normal().string();
        if (!fs::is_directory(folder, ec)) throw Failure("folder of " + name + " not found");
    }
    std::string bare = given.filename().string();
    if (bare.empty()) throw Failure("no file name in " + name);
    try {
        auto f = std::make_unique<CDbFile>(bare.c_str(), folder.empty() ? nullptr : folder.c_str());
        f->SetErrOverride(1);
        return f;
    } catch (int) {
        if (!CDbFile::m_TheCdd)
            throw Failure("cannot open the dictionary " + dictionary_ + ": " +
                          StatusText(CDbFile::m_CddError));
        throw Failure("the dictionary " + dictionary_ + " has no entry for " + bare);
    }
}

void Context::Open(CDbFile& file, dbOpenType mode) const {
    std::string owner = options.owner;
    int st = file.Open(nullptr, mode, owner.empty() ? nullptr : owner.data());
    if (st == 46 && owner.empty())
        throw Failure(std::string(file.FileName()) + " has an owner name; give it with --owner");
    if (st) throw Failure(std::string(file.FileName()) + ": " + StatusText(st));
}

std::string Context::PathOf(const std::string& name) const {
    std::error_code ec;
    fs::path given(name);
    if (fs::exists(dictionary_, ec) && !given.has_parent_path()) {
        try {
            CDbFile f(name.c_str());
            return f.FileName();
        } catch (int) {
            // Not described: the name is taken as a file in the data folder.
        }
    }
    if (given.has_parent_path()) return fs::absolute(given, ec).lexically_normal().string();
    return (fs::path(data_) / given).string();
}

bool Context::ShowProgress() const {
    return !options.quiet && isatty(STDERR_FILENO);
}

}  // namespace dbutil
