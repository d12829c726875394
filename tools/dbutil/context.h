// What every dbutil command shares: the global options (data folder,
// system folder, dictionary, regional profile, owner name), failures as
// one-line messages, and record files built and opened through them.
#pragma once

#include <dbfile/dbfile.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace dbutil {

// A failure the user is told about in one line; main prints it and exits 1.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct GlobalOptions {
    std::string data;        // where data files lie (and history and GL files)
    std::string system;      // where system files lie; the data folder when empty
    std::string dictionary;  // the dictionary file; vexa.ddf in the system folder when empty
    std::string profile;     // the regional profile (DBFILE_PROFILE otherwise)
    std::string owner;       // owner name for files that have one
    bool quiet = false;      // no progress bars
};

// An engine status in words: "status 12 (...)".
std::string StatusText(int status);

class Context {
  public:
    GlobalOptions options;

    // Sets the library's data paths, dictionary name and profile from the
    // options. Every command calls it first.
    void Apply();
    const std::string& DictionaryPath() const { return dictionary_; }

    // The record file object of a data file: `name` is looked up in the
    // dictionary; with a folder in front, the file lies in that folder.
    std::unique_ptr<CDbFile> Build(const std::string& name) const;
    // Opens it, with the owner name when one is given.
    void Open(CDbFile& file, dbOpenType mode) const;

    // The path of a record file for commands that need no dictionary entry:
    // the entry's file when the dictionary has one, else the name itself,
    // taken in the data folder when it carries no folder.
    std::string PathOf(const std::string& name) const;

    // Progress bars are drawn only on a terminal, and not with --quiet.
    bool ShowProgress() const;

  private:
    std::string dictionary_;
    std::string data_;
};

}  // namespace dbutil
