// Fault injection for the tests of crashes in the middle of a commit: built
// only when RECMAN_FAULTS is defined (the test build), inert otherwise.
//
// RECMAN_FAULT names one step, optionally followed by "@n" for its n-th
// passage in the process (the first by default):
//   journal        after the journal's body is beside every file, before the
//                  commit record
//   copies         after the journal's own commit record, before those of its
//                  copies (files on other file systems)
//   commit         after the commit record is durable
//   file1, file2.. after that many files of the transaction are committed
//   cleanup        after the first journal done with is retired (or names of
//                  it removed)
//   recover        after recovery has applied a journal to one file
// The process kills itself there (SIGKILL). "fail:journal-write" makes the
// writing of a journal answer that the disk is full.
#pragma once

namespace recman {

// `n`, when not 0, is part of the step's name ("file" and 2: "file2").
#ifdef RECMAN_FAULTS
void FaultPoint(const char* step, int n = 0);
bool FaultFails(const char* step);
#else
inline void FaultPoint(const char*, int = 0) {}
inline bool FaultFails(const char*) {
    return false;
}
#endif

}  // namespace recman
