#include "recman/oslock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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
    struct flock fl = Range(at, F_UNLCK);
    while (::fcntl(fd_, F_OFD_SETLK, &fl) != 0 && errno == EINTR) {
    }
}

bool LockFile::HeldByOther(off_t at, bool exclusive) {
    struct flock fl = Range(at, exclusive ? F_WRLCK : F_RDLCK);
    if (::fcntl(fd_, F_OFD_GETLK, &fl) != 0) return false;
    return fl.l_type != F_UNLCK;
}

}  // namespace recman
