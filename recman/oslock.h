// Kernel byte-range locks on open file descriptions. Each holder opens the
// data file itself, so locks conflict between holders in one process as well
// as between processes, and vanish when a process dies.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace recman {

// Lock bytes far beyond any data, so they never meet the storage's own I/O.
inline constexpr off_t kOpenLockByte = off_t(1) << 60;        // shared per handle; exclusive open
inline constexpr off_t kWriterLockByte = kOpenLockByte + 1;   // one writing process a file
inline constexpr off_t kTxnLockByte = kOpenLockByte + 2;      // a transaction holds the writer slot
inline constexpr off_t kRecordLockBase = kOpenLockByte + 16;  // + record address

class LockFile {
  public:
    LockFile() = default;
    ~LockFile();
    LockFile(LockFile&& o) noexcept : fd_(o.fd_) { o.fd_ = -1; }
    LockFile& operator=(LockFile&& o) noexcept;
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    // Opens the file for locking; false with errno set on failure.
    bool Open(const std::string& path);
    bool IsOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }

    // Non-blocking: true when granted, false when another holder conflicts.
    bool TryLock(off_t at, bool exclusive);
    void Unlock(off_t at);
    // True when some other holder has a lock on `at` that would block ours.
    bool HeldByOther(off_t at, bool exclusive);
    // Gives up the descriptor without closing it (a forked child inherits
    // descriptions whose locks belong to its parent).
    void Abandon() { fd_ = -1; }

  private:
    int fd_ = -1;
    bool writable_ = false;
};

}  // namespace recman
