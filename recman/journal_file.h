// Commit journals on disk. A journal lives beside every file it changed,
// under the file's name with "-journal0" or "-journal1" added: one file, with
// a hard link to it beside each other file (a copy where a file lies on
// another file system). A file has at most two journals beside it: one
// being written, and the one before it, kept until the file's commit of it
// is flushed.
#pragma once

#include <string>
#include <vector>

#include "recman/fileenv.h"
#include "recman/journal.h"

namespace recman {

std::string SidecarPath(const std::string& file, int slot);
// The journals beside `file`.
std::vector<std::string> SidecarsOf(const std::string& file);
// Removes the journals beside `file` (the file itself is being replaced).
void RemoveSidecars(const std::string& file);
// Removes each journal named; true when all are gone.
bool RemoveNames(const std::vector<std::string>& names);

// A journal found beside a file, as that file sees it.
struct FoundJournal {
    std::string sidecar;
    JournalState state = JournalState::Unreadable;
    Journal journal;
    int self = -1;                   // the file's place among the journal's files
    std::vector<std::string> paths;  // where the journal's files lie now
};

// Reads the journal `sidecar` found beside `file` (an absolute path). A copy
// without a commit record of its own follows the journal it copies.
FoundJournal ReadFound(const std::string& file, const std::string& sidecar);

class JournalWriter {
  public:
    JournalWriter() = default;
    ~JournalWriter();
    JournalWriter(const JournalWriter&) = delete;
    JournalWriter& operator=(const JournalWriter&) = delete;

    // Writes `body` as the journal `sidecars[0]` and puts it beside the other
    // files: a link to it, or a copy where `copy[i]`.
    Status Write(const std::string& body, const std::vector<std::string>& sidecars,
                 const std::vector<bool>& copy);
    // Appends the commit record to the journal, then to each copy, each
    // flushed (unless `mode` is Off) before the next is written.
    Status Commit(const std::string& record, SyncMode mode);
    // Takes back what Write made, after a failure before the commit record
    // was durable: the record is cut off first, so that a name left behind
    // reads as never committed.
    void Discard();

  private:
    std::vector<std::string> names_;  // every name made
    std::vector<int> fds_;            // the journal and its copies
    std::vector<std::string> dirs_;   // folders holding the names
    size_t bodyLen_ = 0;
};

}  // namespace recman
