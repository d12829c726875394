#include "platform/cfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "support/path.h"

CFileException::Cause CFileException::CauseOf(int osError) {
    switch (osError) {
        case ENOENT:
            return fileNotFound;
        case ENOTDIR:
        case ENAMETOOLONG:
        case EISDIR:
            return badPath;
        case EACCES:
        case EPERM:
        case EROFS:
            return accessDenied;
        case EBADF:
            return invalidFile;
        case EWOULDBLOCK:
            return sharingViolation;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return diskFull;
        case EIO:
            return hardIO;
        default:
            return generic;
    }
}

CFile::~CFile() {
    Abort();
}

bool CFile::Open(const char* fileName, unsigned openFlags, CFileException* error) {
    Abort();
    Path full(fileName ? fileName : "");
    full.QualifyPath();
    path_ = full.c_str();
    auto failed = [&](int osError) {
        if (error)
            *error = CFileException(CFileException::CauseOf(osError), osError, path_,
                                    path_.str() + ": " + std::strerror(osError));
        if (m_hFile != hFileNull) ::close(m_hFile);
        m_hFile = hFileNull;
        path_.Empty();
        return false;
    };
    if (!fileName || !*fileName) return failed(ENOENT);

    int flags = O_CLOEXEC;
    switch (openFlags & 3) {
        case modeWrite:
            flags |= O_WRONLY;
            break;
        case modeReadWrite:
            flags |= O_RDWR;
            break;
        default:
            flags |= O_RDONLY;
    }
    if (openFlags & modeCreate) flags |= O_CREAT;
    // Not waiting on a pipe's other end: only files and devices are files.
    m_hFile = ::open(fileName, flags | O_NONBLOCK, 0666);
    if (m_hFile < 0) return failed(errno);
    struct stat st {};
    if (::fstat(m_hFile, &st) != 0) return failed(errno);
    if (S_ISDIR(st.st_mode)) return failed(EISDIR);
    if (S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) return failed(EINVAL);
    if (::fcntl(m_hFile, F_SETFL, ::fcntl(m_hFile, F_GETFL) & ~O_NONBLOCK) != 0)
        return failed(errno);

    // The share mode as a lock on the open file, taken before any
    // truncation so that a refused open changes nothing.
    shared_ = (openFlags & 0x70) != shareExclusive;
    if (::flock(m_hFile, (shared_ ? LOCK_SH : LOCK_EX) | LOCK_NB) != 0) return failed(errno);
    if ((openFlags & modeCreate) && !(openFlags & modeNoTruncate) && st.st_size != 0) {
        if (::ftruncate(m_hFile, 0) != 0) return failed(errno);
        st.st_size = 0;
    }
    size_ = uint64_t(st.st_size);
    pos_ = bufStart_ = 0;
    bufLen_ = dirtyLo_ = dirtyHi_ = 0;
    return true;
}

void CFile::Close() {
    if (m_hFile == hFileNull) return;
    int osError = 0;
    try {
        FlushBuffer();
    } catch (const CFileException& e) {
        osError = e.m_lOsError ? e.m_lOsError : EIO;
    }
    if (::close(m_hFile) != 0 && !osError) osError = errno;
    m_hFile = hFileNull;
    buf_.clear();
    buf_.shrink_to_fit();
    bufLen_ = dirtyLo_ = dirtyHi_ = 0;
    if (osError) Fail(CFileException::CauseOf(osError), osError, "closing");
}

void CFile::Abort() {
    try {
        Close();
    } catch (const CFileException&) {
    }
}

void CFile::Check() const {
    if (m_hFile == hFileNull) Fail(CFileException::invalidFile, 0, "the file is not open");
}

void CFile::Fail(CFileException::Cause cause, int osError, const char* what) const {
    std::string text = (path_.IsEmpty() ? std::string("file") : path_.str()) + ": " + what;
    if (osError) text += std::string(": ") + std::strerror(osError);
    throw CFileException(cause, osError, path_, text);
}

uint64_t CFile::Seek(int64_t offset, unsigned from) {
    Check();
    int64_t base = from == current ? int64_t(pos_) : from == end ? int64_t(GetLength()) : 0;
    if ((offset < 0 && base < -offset) || (offset > 0 && base > INT64_MAX - offset))
        Fail(CFileException::badSeek, EINVAL, "seek outside the file");
    pos_ = uint64_t(base + offset);
    return pos_;
}

uint64_t CFile::RefreshLength() {
    Check();
    // Another handle may have grown a shared file; the answer only matters
    // for reading once the position has come to the length known so far.
    if (shared_ && pos_ >= size_) {
        struct stat st {};
        if (::fstat(m_hFile, &st) != 0) Fail(CFileException::CauseOf(errno), errno, "stat");
        size_ = std::max(uint64_t(st.st_size), bufStart_ + dirtyHi_);
    }
    return size_;
}

void CFile::FlushBuffer() {
    while (dirtyLo_ < dirtyHi_) {
        ssize_t n = ::pwrite(m_hFile, buf_.data() + dirtyLo_, dirtyHi_ - dirtyLo_,
                             off_t(bufStart_ + dirtyLo_));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            int e = n < 0 ? errno : EIO;
            Fail(CFileException::CauseOf(e), e, "writing");
        }
        dirtyLo_ += size_t(n);
    }
    dirtyLo_ = dirtyHi_ = 0;
}

void CFile::Flush() {
    Check();
    FlushBuffer();
}

void CFile::SetLength(uint64_t length) {
    Check();
    FlushBuffer();
    if (::ftruncate(m_hFile, off_t(length)) != 0)
        Fail(CFileException::CauseOf(errno), errno, "sizing");
    Resync();
}

void CFile::Resync() {
    FlushBuffer();
    bufStart_ = 0;
    bufLen_ = 0;
    struct stat st {};
    if (::fstat(m_hFile, &st) != 0) Fail(CFileException::CauseOf(errno), errno, "stat");
    size_ = uint64_t(st.st_size);
}

void CFile::RangeLock(short type, uint64_t position, uint64_t count, bool wait) {
    Check();
    if (type == F_UNLCK) FlushBuffer();
    struct flock fl {};
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = off_t(position);
    fl.l_len = off_t(count);
    while (::fcntl(m_hFile, wait ? F_OFD_SETLKW : F_OFD_SETLK, &fl) != 0) {
        if (errno == EINTR) continue;
        int e = errno;
        bool held = e == EAGAIN || e == EACCES;
        Fail(held ? CFileException::lockViolation : CFileException::CauseOf(e), e, "locking");
    }
    if (type != F_UNLCK) Resync();
}

void CFile::LockRange(uint64_t position, uint64_t count) {
    RangeLock(F_WRLCK, position, count, false);
}

void CFile::LockRangeWait(uint64_t position, uint64_t count) {
    RangeLock(F_WRLCK, position, count, true);
}

void CFile::UnlockRange(uint64_t position, uint64_t count) {
    RangeLock(F_UNLCK, position, count, false);
}

size_t CFile::Fill(uint64_t at, size_t want) {
    if (at >= bufStart_ && at < bufStart_ + bufLen_) return size_t(bufStart_ + bufLen_ - at);
    FlushBuffer();
    if (buf_.empty()) buf_.resize(kBlock);
    want = std::min(want, kBlock);
    // Reading backwards keeps the block ending where the read ends, so a
    // walk towards the file's start costs one system call a block.
    uint64_t start = at;
    if (at < bufStart_) start = at + want > kBlock ? at + want - kBlock : 0;
    bufStart_ = start;
    bufLen_ = 0;
    while (bufLen_ < kBlock) {
        ssize_t n =
            ::pread(m_hFile, buf_.data() + bufLen_, kBlock - bufLen_, off_t(start + bufLen_));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) Fail(CFileException::CauseOf(errno), errno, "reading");
        if (n == 0) break;
        bufLen_ += size_t(n);
    }
    if (bufStart_ + bufLen_ > size_) size_ = bufStart_ + bufLen_;
    return at < bufStart_ + bufLen_ ? size_t(bufStart_ + bufLen_ - at) : 0;
}

const char* CFile::Buffered(size_t& count) const {
    if (pos_ >= bufStart_ && pos_ < bufStart_ + bufLen_) {
        count = size_t(bufStart_ + bufLen_ - pos_);
        return buf_.data() + (pos_ - bufStart_);
    }
    count = 0;
    return nullptr;
}

unsigned CFile::Read(void* buffer, unsigned count) {
    Check();
    char* out = static_cast<char*>(buffer);
    unsigned done = 0;
    while (done < count) {
        size_t have = Fill(pos_, count - done);
        if (have == 0) break;
        size_t take = std::min(have, size_t(count - done));
        std::memcpy(out + done, buf_.data() + (pos_ - bufStart_), take);
        pos_ += take;
        done += unsigned(take);
    }
    return done;
}

void CFile::Write(const void* buffer, unsigned count) {
    Check();
    const char* in = static_cast<const char*>(buffer);
    while (count > 0) {
        bool inside = pos_ >= bufStart_ && pos_ <= bufStart_ + bufLen_ && pos_ < bufStart_ + kBlock;
        if (!inside || buf_.empty()) {
            // A new block starts at the position; what lies beyond it in the
            // file is not known yet, so it holds only what is written.
            FlushBuffer();
            if (buf_.empty()) buf_.resize(kBlock);
            bufStart_ = pos_;
            bufLen_ = 0;
        }
        size_t off = size_t(pos_ - bufStart_);
        size_t take = std::min(size_t(count), kBlock - off);
        std::memcpy(buf_.data() + off, in, take);
        if (dirtyLo_ == dirtyHi_) dirtyLo_ = off, dirtyHi_ = off + take;
        dirtyLo_ = std::min(dirtyLo_, off);
        dirtyHi_ = std::max(dirtyHi_, off + take);
        bufLen_ = std::max(bufLen_, off + take);
        pos_ += take;
        size_ = std::max(size_, pos_);
        in += take;
        count -= unsigned(take);
    }
}

CString CFile::GetFileName() const {
    return Path(path_.c_str()).LastComponent();
}

CString CFile::GetFilePath() const {
    return path_;
}

CString CFile::GetFileTitle() const {
    CString name = GetFileName();
    int dot = name.ReverseFind('.');
    return dot > 0 ? CString(name.Left(dot)) : name;
}

bool CStdioFile::Open(const char* fileName, unsigned openFlags, CFileException* error) {
    text_ = !(openFlags & typeBinary);
    return CFile::Open(fileName, openFlags, error);
}

bool CStdioFile::ReadString(CString& line) {
    Check();
    line.Empty();
    bool any = false;
    for (;;) {
        size_t have = 0;
        const char* at = Buffered(have);
        if (!at) {
            have = Fill(GetPosition(), kBlock);
            if (have == 0) break;
            at = Buffered(have);
        }
        any = true;
        const char* lf = static_cast<const char*>(std::memchr(at, '\n', have));
        if (!lf) {
            line.Append(at, int(have));
            Advance(have);
            continue;
        }
        line.Append(at, int(lf - at));
        Advance(size_t(lf - at) + 1);
        if (text_ && line.Length() > 0 && line.GetAt(line.Length() - 1) == '\r')
            line.Truncate(line.Length() - 1);
        return true;
    }
    return any;
}
