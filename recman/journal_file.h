// Commit journals on disk. A journal lives beside every file it changed,
// under the file's name with "-journal0" or "-journal1" added: one file, with
// a hard link to it beside each other file (a copy where a file lies on
// another file system). A file has at most one live journal beside it at a
// time besides the one being written: the last one applied, kept until the
// file's commit of it is flushed.
//
// A journal done with is retired: when the names being let go are all the
// names its file has, the file stays, marked retired, and the next journal
// over the same files is written into it; otherwise the names go. Freeing a
// journal file costs a file system as much as a flush, creating one no more
// than writing into an old one.
#pragma once

#include <string>
#include <vector>

#include "recman/fileenv.h"
#include "recman/journal.h"

namespace recman {

std::string SidecarPath(const std::string& file, int slot);
// The journal names beside `file`, retired ones included.
std::vector<std::string> SidecarsOf(const std::string& file);
// Removes the journals beside `file` (the file itself is being replaced).
void RemoveSidecars(const std::string& file);
// Retires the journals named (see above); with `remove`, the names go in
// any case.
void RetireNames(const std::vector<std::string>& names, bool remove);

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

    // Chooses the journal's name beside each of `files` (absolute paths; on
    // another file system than the first where `copy[i]`): the retired
    // journal of exactly these files, if there is one, else free names.
    Status Place(const std::vector<std::string>& files, const std::vector<bool>& copy);
    // Writes the journal's body and puts it under every name.
    Status Write(const std::string& body);
    // Appends the commit record to the journal, then to each copy, each
    // flushed (unless `mode` is Off) before the next is written.
    Status Commit(const std::string& record, SyncMode mode);
    // Takes back what Write did, after a failure before the commit record was
    // durable: the journal is marked retired, and names it made go.
    void Discard();
    const std::vector<std::string>& names() const { return names_; }

  private:
    std::vector<std::string> names_;  // beside each file
    std::vector<bool> copy_;
    std::vector<bool> existing_;     // the name is the reused journal's already
    int reused_ = -1;                // the retired journal written into, if any
    std::vector<std::string> made_;  // names Write made
    std::vector<int> fds_;           // the journal and its copies
    std::vector<std::string> dirs_;  // folders holding the names
    size_t bodyLen_ = 0;
};

}  // namespace recman
