// Bringing one file up to date with the journals beside it: a journal never
// committed is discarded, a committed one is applied unless the file holds it
// already, and one applied is removed once the file's commit of it is flushed.
// Applying twice changes nothing: each file's commit of a journal carries the
// journal's mark, and a journal applies only to the very commit it was made
// on (the file's last commit and counters at the time).
#pragma once

#include <string>
#include <vector>

#include "recman/fileenv.h"
#include "recman/journal_file.h"

namespace recman {

// Journals applied to a file whose removal waits for the file's next flushed
// commit: meanwhile they can redo the file's last commit, if a stopped machine
// loses it.
struct Leftover {
    std::vector<std::string> sidecars;
    uint64_t coveredTxn = 0;  // the commit they can redo (0: none)
};

enum class Retire {
    Now,              // flush the file if need be, and remove what is done
    AfterNextCommit,  // a write follows: its flushed commit makes them removable
};

// Settles the journals beside `env`'s file. The caller holds the file's
// writer slot and has no write transaction open on it. `found`, when given,
// receives every journal read, so that their other files can be settled too.
Status SettleJournals(FileEnv& env, Retire retire, Leftover& left,
                      std::vector<FoundJournal>* found = nullptr);

// Applies file `i` of `j` to `env`'s file unless it holds it already.
// `applied` is the file's commit that holds it; `now` tells whether this call
// made that commit.
Status ApplyJournalFile(FileEnv& env, const Journal& j, size_t i, uint64_t& applied, bool& now);

// What a consistency check reports of the journals beside the file, as seen
// from the read transaction `txn`.
void DescribeJournals(FileEnv& env, Txn txn, std::vector<std::string>& problems);

}  // namespace recman
