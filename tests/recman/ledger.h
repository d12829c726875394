// A ledger spread over several record files, for tests of transactions that
// span files: each file holds accounts, and transfer n moves amounts between
// accounts of two or three files (the amounts sum to zero) and writes a
// posting record for n into each file it touches. Whatever is committed, the
// total of all balances never changes, and a transfer's postings are in all
// of its files or in none.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "rm_util.h"

// Tests that kill the process at a named step need the fault points.
#ifndef RECMAN_FAULTS
#define NEED_FAULTS() GTEST_SKIP() << "fault points are compiled only into the test build"
#else
#define NEED_FAULTS() (void)0
#endif

namespace rmtest {

inline constexpr uint32_t kAccounts = 8;
inline constexpr int64_t kOpening = 1000;
inline constexpr uint32_t kPostingBase = 1000000;

struct Leg {
    int file;
    uint32_t account;  // 1..kAccounts
    int64_t delta;
};

// Transfer n over `files` files: two or three of them, chosen from n.
std::vector<Leg> Plan(uint32_t n, int files);
// The files a plan touches, in order.
std::vector<int> FilesOf(const std::vector<Leg>& plan);

class Ledger {
  public:
    Ledger(const std::string& dir, int files);
    explicit Ledger(std::vector<std::string> paths) : paths_(std::move(paths)) {}
    int files() const { return int(paths_.size()); }
    const std::string& Path(int i) const { return paths_[size_t(i)]; }
    // The folders holding the files.
    std::vector<std::string> Dirs() const;

    // Creates every file with its accounts at the opening balance.
    void Create() const;

  private:
    std::vector<std::string> paths_;
};

// One client's open handles, one per file of the ledger.
class LedgerClient {
  public:
    LedgerClient(const Ledger& l, uint16_t client);
    // 0 when every file opened, else the first failing status.
    int16_t Open();
    // Runs transfer n in a transaction and answers End's status, or the first
    // failing status (the transaction is then aborted). `waitLocks` reads the
    // accounts with a waiting lock, for clients that compete for the files.
    int16_t Transfer(uint32_t n, bool waitLocks = false);
    int16_t Begin();
    int16_t End();

  private:
    const Ledger& l_;
    uint16_t client_;
    std::vector<std::unique_ptr<Handle>> h_;
};

// Opens every file of the ledger (which finishes or discards any journal
// left) and checks it: the total, every transfer's postings in all of its
// files or none, each balance as the postings present make it, every file
// consistent, no journal left in the folders, and every transfer of
// `committed` present. Answers what is wrong, or "" when nothing is.
// `present` receives the transfers found.
std::string Audit(const Ledger& l, const std::set<uint32_t>& committed,
                  std::set<uint32_t>* present = nullptr);

// The commit journals in `dir` that still count: not those retired and kept
// for reuse.
std::vector<std::string> JournalsIn(const std::string& dir);

// The first transfer from `n` on that touches `count` files of a ledger of
// `files` files.
uint32_t TransferOver(int files, int count, uint32_t n = 0);

// In a child process: transfers from `first` on, until `fault`
// (RECMAN_FAULT) kills the process (or after 200, exit 6), each number End
// answered 0 for going to `report` when given.
[[noreturn]] void Transfers(const Ledger& l, uint32_t first, const std::string& fault,
                            const char* sync = "off", int report = -1);

// Child processes. Each answers its exit code, or 128 + the signal that
// ended it. Transfers as above in a child of its own:
int RunTransfers(const Ledger& l, uint32_t first, const std::string& fault,
                 const char* sync = "off", int report = -1);
// Opens file `i` (which settles the journals beside it) and exits with the status.
int OpenInChild(const Ledger& l, int i, const char* fault = nullptr);

}  // namespace rmtest
