#include "recman/oslock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <thread>

namespace recman {

namespace {

struct flock Range(off_t at, short type) {
    struct flock fl {};
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = at;
    fl.l_len = 1;
    fl.l_pid = 0;  // required for open-file-description locks
    return fl;
}

}  // namespace

LockFile::~LockFile() {
    if (fd_ >= 0) ::close(fd_);
    if (serverFile_) ServerUnlock(serverFile_, -1, this);  // every lock it holds
}

LockFile& LockFile::operator=(LockFile&& o) noexcept {
    if (this != &o) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = o.fd_;
        writable_ = o.writable_;
        o.fd_ = -1;
    }
    return *this;
}

bool LockFile::Open(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    writable_ = fd >= 0;
    if (fd < 0 && (errno == EACCES || errno == EROFS))
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
    return true;
}

bool LockFile::TryLock(off_t at, bool exclusive) {
    if (serverFile_) return ServerTryLock(serverFile_, at, exclusive, this);
    // A description opened read-only can hold only shared locks; it then
    // stands in with a shared lock, which still keeps exclusive holders out.
    short type = (exclusive && writable_) ? F_WRLCK : F_RDLCK;
    struct flock fl = Range(at, type);
    for (;;) {
        if (::fcntl(fd_, F_OFD_SETLK, &fl) == 0) return true;
        if (errno != EINTR) return false;
    }
}

void LockFile::Unlock(off_t at) {
    if (serverFile_) return ServerUnlock(serverFile_, at, this);
    struct flock fl = Range(at, F_UNLCK);
    while (::fcntl(fd_, F_OFD_SETLK, &fl) != 0 && errno == EINTR) {
    }
}

bool LockFile::HeldByOther(off_t at, bool exclusive) {
    if (serverFile_) return ServerHeldByOther(serverFile_, at, exclusive, this);
    struct flock fl = Range(at, exclusive ? F_WRLCK : F_RDLCK);
    if (::fcntl(fd_, F_OFD_GETLK, &fl) != 0) return false;
    return fl.l_type != F_UNLCK;
}

// State shared by a waiter and its helper thread; whichever of the two is
// last to be done with it closes the description (unlocking first, since a
// forked child may share the description and keep its lock alive).
struct LockWaiter::Shared {
    std::mutex mu;
    std::condition_variable cv;
    int fd = -1;
    off_t at = 0;
    bool done = false;  // the helper's call has returned
    bool granted = false;
    bool abandoned = false;  // the waiter is gone

    void Close() {
        if (granted) {
            struct flock fl = Range(at, F_UNLCK);
            while (::fcntl(fd, F_OFD_SETLK, &fl) != 0 && errno == EINTR) {
            }
        }
        ::close(fd);
        fd = -1;
    }
};

LockWaiter::LockWaiter(int fd, const std::string& path, off_t at) : s_(std::make_shared<Shared>()) {
    // Through /proc the same file is reached even if its name has moved on.
    char self[64];
    std::snprintf(self, sizeof(self), "/proc/self/fd/%d", fd);
    int own = fd >= 0 ? ::open(self, O_RDWR | O_CLOEXEC) : -1;
    if (own < 0) own = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    s_->at = at;
    s_->fd = own;
    if (own < 0) {
        s_->done = true;
        return;
    }
    try {
        std::thread([s = s_] {
            struct flock fl = Range(s->at, F_WRLCK);
            int rc;
            while ((rc = ::fcntl(s->fd, F_OFD_SETLKW, &fl)) != 0 && errno == EINTR) {
            }
            std::lock_guard<std::mutex> lk(s->mu);
            s->done = true;
            s->granted = rc == 0;
            if (s->abandoned) s->Close();
            s->cv.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        s_->done = true;  // no thread: the caller polls instead
    }
}

LockWaiter::~LockWaiter() {
    std::lock_guard<std::mutex> lk(s_->mu);
    s_->abandoned = true;
    if (s_->done && s_->fd >= 0) s_->Close();
}

bool LockWaiter::WaitUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lk(s_->mu);
    s_->cv.wait_until(lk, deadline, [this] { return s_->done; });
    return s_->granted;
}

}  // namespace recman
