// The commit journal of a transaction that changed several files: its format
// in bytes, kept apart from the files so that it can be checked on its own.
//
// A journal is a body followed by a commit record. The body names the
// transaction (a random id) and, for each file it changed, where the file
// lies, the file's last commit when the transaction took it and its counters
// then, and the final value of every key the transaction wrote (or that the
// key is gone). It ends in a checksum of itself. The commit record repeats
// the id, the body's length and checksum, and carries a checksum of its own.
// A body whose checksum fails is unreadable; a readable body without a valid
// commit record right after it was never committed. What follows the commit
// record is ignored: journal files are reused. A journal that is done with
// is retired by overwriting its first bytes with another mark.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace recman {

using JournalId = std::array<uint8_t, 16>;

// A fresh id, unique across processes and time.
JournalId NewJournalId();

// One file of a journal. Paths are kept relative to the journal's home (the
// folder of its first file), so that a folder moved or copied as a whole
// keeps its journals usable.
struct JournalFile {
    std::string rel;        // from the home folder to the file
    std::string up;         // from the file's folder back to the home folder
    bool copy = false;      // its journal is a copy (another file system), not a link
    uint64_t baseTxn = 0;   // the file's last commit before the transaction
    std::string baseState;  // the file's counters at that commit
    std::string changes;    // encoded changes (see ChangeWriter)
};

struct Journal {
    JournalId id{};
    std::vector<JournalFile> files;
};

enum class JournalState {
    Retired,      // done with: nothing in it counts
    Unreadable,   // not a journal, or a body cut short or damaged
    Uncommitted,  // a whole body without a valid commit record
    Committed,
};

inline constexpr size_t kCommitRecordSize = 4 + 16 + 4 + 8 + 8;
// The first bytes of a retired journal.
inline constexpr char kRetiredMark[4] = {'R', 'M', 'J', '-'};

std::string EncodeJournalBody(const Journal& j);
std::string EncodeCommitRecord(const JournalId& id, const std::string& body);
// Reads a journal's bytes; `out` is filled unless the body is unreadable.
JournalState DecodeJournal(const uint8_t* p, size_t n, Journal& out);

uint64_t Crc64(const void* p, size_t n, uint64_t crc = 0);

// The storage a change lands in: the file's meta database, its records, or
// one of its indexes.
enum class ChangeDb : uint8_t { Meta = 0, Records = 1, Index = 2 };

struct Change {
    bool put = false;  // else the key is deleted
    ChangeDb db = ChangeDb::Meta;
    uint16_t index = 0;  // the index id, for ChangeDb::Index
    const uint8_t* key = nullptr;
    uint16_t keyLen = 0;
    const uint8_t* value = nullptr;
    uint32_t valueLen = 0;
};

void AppendChange(std::string& out, const Change& c);

// Walks encoded changes; Next answers false at the end or on damage (then
// ok() is false).
class ChangeReader {
  public:
    explicit ChangeReader(const std::string& s) : s_(s) {}
    bool Next(Change& c);
    bool ok() const { return ok_; }

  private:
    const std::string& s_;
    size_t at_ = 0;
    bool ok_ = true;
};

}  // namespace recman
