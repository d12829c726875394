// CHighWaterFile: the shared number file "SmNumber.dat" that auto-increment
// numbers come from. It holds fixed 4-byte little-endian records and no
// header: record 0 stays 0 and its bytes are the lock under which the file
// grows; record n (n >= 1) is the last number handed out in series n, 0 while
// the series has not been used. A number is taken by locking the series'
// record against every other holder (other processes and other objects),
// reading it, writing it back one higher and unlocking it. The first use of
// a series starts it at the highest number already stored in the data files
// that use it.
//
// Two objects serve the process: kind 1, the number file in the data path
// (data and history files), and kind 2, the one in the general-ledger data
// path (general-ledger data and history files).
#pragma once

#include <cstdint>

#include "dbfile/db_types.h"
#include "platform/cfile.h"
#include "platform/critical_section.h"
#include "platform/exceptions.h"

class CCdd;

class CHighWaterFile : public CFile {
  public:
    explicit CHighWaterFile(int kind) : m_nKind(kind) {}
    ~CHighWaterFile() override = default;

    // 1 when the file is open (it is opened, or created, on first use).
    int OpenNumberFile();
    // Closes the file; with lock non-zero inside the critical section.
    // Failures are swallowed.
    int CloseNumberFile(int lock);
    // The highest record index: length / 4 - 1.
    uint32_t GetMaxRecord();
    int GotoRecord(uint32_t n);
    // Locks the current record (waiting while another holder has it) and
    // reads it into the value.
    int LockRecord();
    int UnlockRecord();
    int WriteRecord(uint32_t v);
    // Grows the file so that record n exists.
    int AddRecords(uint32_t n);

    // Leaves record n locked and read, initialised from the data files when
    // it held 0.
    AI_Err PrepareRecord(uint32_t n);
    // The highest number stored in the data files of series n, written to
    // the current record.
    AI_Err FindHighestUsed(uint32_t n);
    // The highest value of field `fieldId` in the data file that the
    // dictionary's current entry describes; 0 when the file does not exist.
    AI_Err GetHighestInFile(CCdd& entry, unsigned short fieldId, uint32_t& out);
    // The next number of series n.
    AI_Err GetNextNumber(uint32_t n, uint32_t& out);
    // Raises the mark of series n to v when it is lower.
    AI_Err SetNumber(uint32_t n, uint32_t v);
    // Shows the message of `code` (none for AI_OK).
    void ReportError(AI_Err code, uint32_t n);

    int Kind() const { return m_nKind; }
    uint32_t Value() const { return m_nValue; }

    // The file's name in its folder.
    static const char* kFileName;

  private:
    // Both operations on a series: the record is prepared (through the
    // lock-wait dialog when that fails at first) and `apply` runs on it.
    template <class Apply>
    AI_Err OnSeries(uint32_t n, Apply apply);
    bool FlushDurably();

    CCriticalSection m_Lock;
    uint32_t m_nValue = 0;     // the value last read or written; 0 after GotoRecord
    uint32_t m_nPosition = 0;  // byte position of the current record
    int m_nKind;
    CString m_strDataFile;  // the data file a failure names
};

// The process's number file of `kind` (1 or 2).
CHighWaterFile& TheNumberFile(int kind);
