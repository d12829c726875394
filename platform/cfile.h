// CFile and CStdioFile: the framework's files, with the members the library
// uses. Reads and writes go through one block buffer, so records and lines
// cost no system call of their own; Flush hands written bytes to the system.
// Failures raise CFileException. Share modes hold between every open handle,
// in this process or another: an exclusive open stands alone, an open that
// shares with everyone only keeps exclusive ones out.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/cstring.h"
#include "platform/exceptions.h"

class CFile {
  public:
    enum OpenFlags : unsigned {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareExclusive = 0x0010,
        shareDenyNone = 0x0040,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000,
    };
    enum SeekPosition { begin = 0, current = 1, end = 2 };
    static constexpr int hFileNull = -1;

    CFile() = default;
    virtual ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // False when the file cannot be opened; `error`, when given, says why.
    virtual bool Open(const char* fileName, unsigned openFlags, CFileException* error = nullptr);
    // Writes what is buffered and closes; raises when the buffer cannot be
    // written (the file is closed all the same).
    virtual void Close();
    // Closes without raising, dropping what could not be written.
    void Abort();

    // Moves the position (past the end is allowed); answers the new one.
    uint64_t Seek(int64_t offset, unsigned from);
    void SeekToBegin() { Seek(0, begin); }
    // Copies up to `count` bytes at the position; fewer at the end.
    unsigned Read(void* buffer, unsigned count);
    void Write(const void* buffer, unsigned count);
    void Flush();
    // Makes the file `length` bytes long.
    void SetLength(uint64_t length);

    // Byte-range locks: the kernel's open-file-description locks, which hold
    // between processes and between two CFile objects of one process, and
    // go when the process dies. Taking one drops what the buffer holds, so
    // that reads see what other holders wrote; letting one go first writes
    // out what is buffered.
    // Fails at once with lockViolation when another holder has any of the bytes.
    void LockRange(uint64_t position, uint64_t count);
    // The same lock, waited for in the kernel for as long as it takes.
    void LockRangeWait(uint64_t position, uint64_t count);
    void UnlockRange(uint64_t position, uint64_t count);

    uint64_t GetLength() {
        return m_hFile != hFileNull && (!shared_ || pos_ < size_) ? size_ : RefreshLength();
    }
    uint64_t GetPosition() const { return pos_; }
    CString GetFileName() const;   // the last component
    CString GetFilePath() const;   // the full path
    CString GetFileTitle() const;  // the last component without its extension
    bool IsOpen() const { return m_hFile != hFileNull; }

    int m_hFile = hFileNull;

  protected:
    static constexpr size_t kBlock = 64 * 1024;

    void Check() const;  // raises unless open
    uint64_t RefreshLength();
    [[noreturn]] void Fail(CFileException::Cause cause, int osError, const char* what) const;
    // Makes the buffer hold the file from `at` on, at least `want` bytes of
    // it where the file has them; answers the bytes available from `at`.
    size_t Fill(uint64_t at, size_t want);
    void FlushBuffer();
    // Forgets the buffer (written out first) and the length known so far.
    void Resync();
    void RangeLock(short type, uint64_t position, uint64_t count, bool wait);
    // The buffered bytes from the position on, and how many there are.
    const char* Buffered(size_t& count) const;
    void Advance(size_t count) { pos_ += count; }

  private:
    CString path_;
    bool shared_ = false;  // other handles may change the file's length
    std::vector<char> buf_;
    uint64_t bufStart_ = 0;  // file offset of buf_[0]
    size_t bufLen_ = 0;      // bytes of buf_ that hold the file
    size_t dirtyLo_ = 0, dirtyHi_ = 0;
    uint64_t pos_ = 0;
    uint64_t size_ = 0;
};

// A file read as text lines. In text mode a line ends at LF, and a CR
// before that LF belongs to the line end (the bytes are kept as stored;
// only ReadString folds the pair).
class CStdioFile : public CFile {
  public:
    bool Open(const char* fileName, unsigned openFlags, CFileException* error = nullptr) override;
    // The next line without its line end; false at the end of the file.
    bool ReadString(CString& line);

  private:
    bool text_ = true;
};
