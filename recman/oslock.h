// Kernel byte-range locks on open file descriptions. Each holder opens the
// data file itself, so locks conflict between holders in one process as well
// as between processes, and vanish when a process dies.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace recman {

// Lock bytes far beyond any data, so they never meet the storage's own I/O.
inline constexpr off_t kOpenLockByte = off_t(1) << 60;        // shared per handle; exclusive open
inline constexpr off_t kWriterLockByte = kOpenLockByte + 1;   // one writing process a file
inline constexpr off_t kTxnLockByte = kOpenLockByte + 2;      // a transaction holds the writer slot
inline constexpr off_t kQueueLockByte = kOpenLockByte + 3;    // writers queue here for the slot
inline constexpr off_t kRecordLockBase = kOpenLockByte + 16;  // + record address

// Locks of a file kept on a server (server storage): held by the process's
// connection as advisory locks, and among the holders of one process here.
bool ServerTryLock(int64_t file, off_t at, bool exclusive, const void* holder);
void ServerUnlock(int64_t file, off_t at, const void* holder);
bool ServerHeldByOther(int64_t file, off_t at, bool exclusive, const void* holder);
void ServerForgetLocks();  // after fork: the parent's connection holds them

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
    // Locks of the file numbered `file` on the server instead.
    void OpenServer(int64_t file) { serverFile_ = file; }
    bool IsOpen() const { return fd_ >= 0 || serverFile_ != 0; }
    int fd() const { return fd_; }

    // Non-blocking: true when granted, false when another holder conflicts.
    bool TryLock(off_t at, bool exclusive);
    void Unlock(off_t at);
    // True when some other holder has a lock on `at` that would block ours.
    bool HeldByOther(off_t at, bool exclusive);
    // Gives up the descriptor without closing it (a forked child inherits
    // descriptions whose locks belong to its parent).
    void Abandon() {
        fd_ = -1;
        serverFile_ = 0;
    }

  private:
    int fd_ = -1;
    int64_t serverFile_ = 0;
    bool writable_ = false;
};

// Waits in the kernel for an exclusive lock on one byte, through an open file
// description of its own, so that waiters are served as soon as the holder
// lets go. A helper thread makes the blocking call, so that the wait can be
// given up at a deadline; the lock, once granted, is held until the waiter is
// destroyed.
class LockWaiter {
  public:
    // `fd` is any descriptor of the file: the waiter opens its own.
    LockWaiter(int fd, const std::string& path, off_t at);
    ~LockWaiter();
    LockWaiter(const LockWaiter&) = delete;
    LockWaiter& operator=(const LockWaiter&) = delete;

    // True once the lock is granted; false when the deadline comes first or
    // the wait could not be set up.
    bool WaitUntil(std::chrono::steady_clock::time_point deadline);

  private:
    struct Shared;
    std::shared_ptr<Shared> s_;
};

}  // namespace recman
