#include "recman/journal_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "recman/fault.h"
#include "recman/recman.h"

namespace recman {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxJournal = size_t(1) << 31;

Status IoStatus(int err) {
    return (err == ENOSPC || err == EDQUOT) ? RM_DISK_FULL : RM_IO_ERROR;
}

bool WriteAll(int fd, const std::string& s, off_t at) {
    for (size_t done = 0; done < s.size();) {
        ssize_t n = ::pwrite(fd, s.data() + done, s.size() - done, at + off_t(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

bool ReadAll(const std::string& path, std::string& out) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat sb {};
    bool ok = ::fstat(fd, &sb) == 0 && S_ISREG(sb.st_mode) && size_t(sb.st_size) < kMaxJournal;
    if (ok) {
        out.resize(size_t(sb.st_size));
        for (size_t done = 0; ok && done < out.size();) {
            ssize_t n = ::pread(fd, out.data() + done, out.size() - done, off_t(done));
            if (n < 0 && errno == EINTR) continue;
            ok = n > 0;
            if (ok) done += size_t(n);
        }
    }
    ::close(fd);
    return ok;
}

bool SameFile(const struct stat& a, const std::string& path) {
    struct stat b {};
    return ::stat(path.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

constexpr size_t kPage = 4096;

// True when `fd` is a retired journal; `sb` receives its status.
bool IsRetired(int fd, struct stat& sb) {
    char head[sizeof(kRetiredMark)];
    return ::fstat(fd, &sb) == 0 && S_ISREG(sb.st_mode) &&
           ::pread(fd, head, sizeof(head), 0) == ssize_t(sizeof(head)) &&
           std::memcmp(head, kRetiredMark, sizeof(head)) == 0;
}

bool SyncDir(const std::string& dir) {
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

}  // namespace

std::string SidecarPath(const std::string& file, int slot) {
    return file + (slot ? "-journal1" : "-journal0");
}

std::vector<std::string> SidecarsOf(const std::string& file) {
    std::vector<std::string> out;
    for (int slot = 0; slot < 2; ++slot) {
        std::string p = SidecarPath(file, slot);
        struct stat sb {};
        if (::lstat(p.c_str(), &sb) == 0) out.push_back(std::move(p));
    }
    return out;
}

void RemoveSidecars(const std::string& file) {
    for (int slot = 0; slot < 2; ++slot)
        ::unlink(SidecarPath(file, slot).c_str());
}

void RetireNames(const std::vector<std::string>& names, bool remove) {
    std::vector<bool> done(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        if (done[i]) continue;
        // The names given of this journal file.
        struct stat sb {};
        if (::stat(names[i].c_str(), &sb) != 0) continue;
        std::vector<size_t> same{i};
        for (size_t j = i + 1; j < names.size(); ++j)
            if (!done[j] && SameFile(sb, names[j])) same.push_back(j);
        for (size_t j : same)
            done[j] = true;
        int fd = -1;
        if (!remove && same.size() == size_t(sb.st_nlink))
            fd = ::open(names[i].c_str(), O_WRONLY | O_CLOEXEC);
        bool marked = fd >= 0 && ::pwrite(fd, kRetiredMark, sizeof(kRetiredMark), 0) ==
                                     ssize_t(sizeof(kRetiredMark));
        if (fd >= 0) ::close(fd);
        if (!marked)
            for (size_t j : same)
                ::unlink(names[j].c_str());
        FaultPoint("cleanup");
    }
}

FoundJournal ReadFound(const std::string& file, const std::string& sidecar) {
    FoundJournal out;
    out.sidecar = sidecar;
    std::string bytes;
    if (!ReadAll(sidecar, bytes)) return out;
    out.state =
        DecodeJournal(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), out.journal);
    if (out.state == JournalState::Unreadable) return out;
    const auto& files = out.journal.files;

    // Which of the journal's files this one is: the one whose path, taken
    // from here, leads back to it; failing that (a folder moved in part),
    // the only one of its name.
    fs::path here(file), dir = here.parent_path();
    struct stat self {};
    bool known = ::stat(file.c_str(), &self) == 0;
    int byName = -1, named = 0;
    for (size_t j = 0; j < files.size() && out.self < 0; ++j) {
        fs::path rel(files[j].rel);
        if (rel.filename() != here.filename()) continue;
        byName = int(j);
        ++named;
        if (known && SameFile(self, ((dir / files[j].up) / rel).lexically_normal().string()))
            out.self = int(j);
    }
    if (out.self < 0 && named == 1) out.self = byName;
    if (out.self < 0) return out;
    fs::path home = (dir / files[size_t(out.self)].up).lexically_normal();
    for (const JournalFile& f : files)
        out.paths.push_back((home / f.rel).lexically_normal().string());

    // A copy is committed when the journal it copies is.
    if (out.state == JournalState::Uncommitted && files[size_t(out.self)].copy && out.self != 0) {
        for (const std::string& p : SidecarsOf(out.paths[0])) {
            std::string primary;
            Journal pj;
            if (ReadAll(p, primary) &&
                DecodeJournal(reinterpret_cast<const uint8_t*>(primary.data()), primary.size(),
                              pj) == JournalState::Committed &&
                pj.id == out.journal.id)
                out.state = JournalState::Committed;
        }
    }
    return out;
}

JournalWriter::~JournalWriter() {
    for (int fd : fds_)
        ::close(fd);
    if (reused_ >= 0 && fds_.empty()) ::close(reused_);
}

Status JournalWriter::Place(const std::vector<std::string>& files, const std::vector<bool>& copy) {
    size_t n = files.size();
    names_.assign(n, std::string());
    existing_.assign(n, false);
    copy_ = copy;
    bool anyCopy = std::find(copy.begin(), copy.end(), true) != copy.end();
    // A retired journal beside the first file whose every name lies beside
    // one of these files takes this one.
    for (int slot = 0; slot < 2 && reused_ < 0 && !anyCopy; ++slot) {
        std::string p = SidecarPath(files[0], slot);
        int fd = ::open(p.c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0) continue;
        struct stat sb {};
        size_t named = 0;
        if (IsRetired(fd, sb)) {
            for (size_t i = 0; i < n; ++i)
                for (int s = 0; s < 2 && names_[i].empty(); ++s)
                    if (SameFile(sb, SidecarPath(files[i], s))) {
                        names_[i] = SidecarPath(files[i], s);
                        existing_[i] = true;
                        ++named;
                    }
        }
        if (named > 0 && named == size_t(sb.st_nlink)) {
            reused_ = fd;
            continue;
        }
        ::close(fd);
        names_.assign(n, std::string());
        existing_.assign(n, false);
    }
    // Free names for the others: one not in use, else a retired journal's
    // (let go of here; it is not this one's).
    for (size_t i = 0; i < n; ++i) {
        for (int s = 0; s < 2 && names_[i].empty(); ++s) {
            std::string p = SidecarPath(files[i], s);
            struct stat sb {};
            if (::lstat(p.c_str(), &sb) != 0 && errno == ENOENT) names_[i] = p;
        }
        for (int s = 0; s < 2 && names_[i].empty(); ++s) {
            std::string p = SidecarPath(files[i], s);
            int fd = ::open(p.c_str(), O_RDONLY | O_CLOEXEC);
            struct stat sb {};
            bool retired = fd >= 0 && IsRetired(fd, sb);
            if (fd >= 0) ::close(fd);
            if (retired && ::unlink(p.c_str()) == 0) names_[i] = p;
        }
        if (names_[i].empty()) return RM_IO_ERROR;  // two live journals beside it
    }
    return RM_OK;
}

Status JournalWriter::Write(const std::string& body) {
    bodyLen_ = body.size();
    size_t first = 0;
    if (reused_ >= 0) {
        fds_.push_back(reused_);
        if (!WriteAll(reused_, body, 0)) return IoStatus(errno);
        while (!existing_[first])
            ++first;
    }
    for (size_t i = 0; i < names_.size(); ++i) {
        if (existing_[i]) continue;
        const std::string& name = names_[i];
        if ((reused_ < 0 && i == 0) || copy_[i]) {
            int fd = ::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
            if (fd < 0) return IoStatus(errno);
            made_.push_back(name);
            fds_.push_back(fd);
            if (!WriteAll(fd, body, 0)) return IoStatus(errno);
        } else {
            if (::link(names_[first].c_str(), name.c_str()) != 0) return IoStatus(errno);
            made_.push_back(name);
        }
    }
    if (FaultFails("journal-write")) return RM_DISK_FULL;
    for (const std::string& name : names_) {
        std::string dir = fs::path(name).parent_path().string();
        if (std::find(dirs_.begin(), dirs_.end(), dir) == dirs_.end()) dirs_.push_back(dir);
    }
    return RM_OK;
}

Status JournalWriter::Commit(const std::string& record, SyncMode mode) {
    // Zeros after the record keep the file a whole number of pages long, so
    // that a reused journal seldom grows.
    std::string tail = record;
    tail.resize(((bodyLen_ + record.size() + kPage - 1) / kPage) * kPage - bodyLen_, '\0');
    for (size_t i = 0; i < fds_.size(); ++i) {
        if (!WriteAll(fds_[i], tail, off_t(bodyLen_))) return IoStatus(errno);
        if (mode != SyncMode::Off && ::fsync(fds_[i]) != 0) return IoStatus(errno);
        // The names are made durable with the journal by the file systems
        // that journal their metadata; a full flush asks for them anyway.
        if (i == 0 && mode == SyncMode::Full)
            for (const std::string& d : dirs_)
                if (!SyncDir(d)) return RM_IO_ERROR;
        if (i == 0 && fds_.size() > 1) FaultPoint("copies");
    }
    return RM_OK;
}

void JournalWriter::Discard() {
    // Retired first, so that a name that stays reads as nothing.
    for (int fd : fds_)
        if (::pwrite(fd, kRetiredMark, sizeof(kRetiredMark), 0) == ssize_t(sizeof(kRetiredMark)))
            (void)::fdatasync(fd);
    for (const std::string& name : made_)
        ::unlink(name.c_str());
    made_.clear();
}

}  // namespace recman
