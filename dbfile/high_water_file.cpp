// The number file: opening it, its records and their locks, and handing out
// numbers.
#include "dbfile/high_water_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "dbfile/db_file.h"
#include "engine/lock_wait.h"
#include "engine/messages.h"
#include "platform/ui_host.h"
#include "support/path.h"

const char* CHighWaterFile::kFileName = "SmNumber.dat";

namespace {

constexpr unsigned kRecord = 4;
constexpr unsigned kMessageBase = 160;
// A series beyond this would grow the file by gigabytes: a damaged
// dictionary, not a numbering series.
constexpr uint32_t kMaxSeries = 1u << 20;

// The record manager's durability setting covers this file too: with
// RECMAN_SYNC=off nothing is flushed to the device (other processes see a
// write at once either way).
bool DurableWrites() {
    const char* s = std::getenv("RECMAN_SYNC");
    return !(s && std::strcmp(s, "off") == 0);
}

}  // namespace

CHighWaterFile& TheNumberFile(int kind) {
    // Built once and never destroyed: numbering may run while the process exits.
    static CHighWaterFile* data = new CHighWaterFile(1);
    static CHighWaterFile* generalLedger = new CHighWaterFile(2);
    return kind == 2 ? *generalLedger : *data;
}

int CHighWaterFile::OpenNumberFile() {
    if (IsOpen()) return 1;
    m_nValue = m_nPosition = 0;
    Path folder;
    const char* dir = m_nKind == 2 ? g_GLDataPath : g_DataPath;
    if (dir[0] == '\\' && dir[1] == '\\')
        folder.GetLocalName(dir);
    else
        folder = dir;
    if (!folder.IsEmpty()) folder.SetBackslash(1);
    folder << kFileName;
    try {
        struct stat sb;
        if (::stat(folder, &sb) != 0) {
            if (!Open(folder, modeCreate | modeNoTruncate | shareDenyNone | modeReadWrite))
                return 0;
            SeekToBegin();
            uint8_t zero[kRecord] = {};
            Write(zero, kRecord);
            FlushDurably();
            return 1;
        }
        if (!Open(folder, shareDenyNone | modeReadWrite)) return 0;
        uint64_t length = GetLength();
        if (length % kRecord != 0) {
            // Not a file this library wrote: its records cannot be found.
            Abort();
            return 0;
        }
        if (length == 0) {
            // Made but never written: it gets its record 0, as a new file does.
            SeekToBegin();
            uint8_t zero[kRecord] = {};
            Write(zero, kRecord);
            FlushDurably();
        }
    } catch (const CFileException&) {
        Abort();
        return 0;
    }
    return 1;
}

int CHighWaterFile::CloseNumberFile(int lock) {
    if (lock) m_Lock.Lock();
    try {
        Close();
    } catch (const CFileException&) {
        Abort();
    }
    m_nValue = m_nPosition = 0;
    if (lock) m_Lock.Unlock();
    return 1;
}

uint32_t CHighWaterFile::GetMaxRecord() {
    uint64_t length = 0;
    try {
        length = GetLength();
    } catch (const CFileException&) {
    }
    return uint32_t(length / kRecord) - 1;
}

int CHighWaterFile::GotoRecord(uint32_t n) {
    m_nValue = 0;
    if (n > GetMaxRecord()) return 0;
    m_nPosition = n * kRecord;
    try {
        Seek(m_nPosition, begin);
    } catch (const CFileException&) {
        return 0;
    }
    return 1;
}

int CHighWaterFile::LockRecord() {
    UiHost& ui = GetUiHost();
    bool waited = false, locked = false;
    try {
        LockRange(m_nPosition, kRecord);
        locked = true;
    } catch (const CFileException& e) {
        // Another holder has the record: its use of it takes moments. The
        // wait is the kernel's, so the record is ours as soon as it lets go,
        // or dies.
        if (e.m_cause == CFileException::sharingViolation ||
            e.m_cause == CFileException::lockViolation) {
            ui.BeginWaitCursor();
            waited = true;
            try {
                LockRangeWait(m_nPosition, kRecord);
                locked = true;
            } catch (const CFileException&) {
            }
        }
    }
    if (waited) ui.EndWaitCursor();
    if (!locked) return 0;
    bool read = false;
    try {
        Seek(m_nPosition, begin);
        uint8_t bytes[kRecord];
        read = Read(bytes, kRecord) == kRecord;
        if (read) std::memcpy(&m_nValue, bytes, kRecord);
    } catch (const CFileException&) {
    }
    if (!read) UnlockRecord();
    return read;
}

int CHighWaterFile::UnlockRecord() {
    try {
        UnlockRange(m_nPosition, kRecord);
    } catch (const CFileException&) {
    }
    GotoRecord(0);
    return 1;
}

// What was written reaches the file at once, for the other holders to read;
// the device too unless the durability setting says otherwise.
bool CHighWaterFile::FlushDurably() {
    Flush();
    if (DurableWrites()) ::fdatasync(m_hFile);
    return true;
}

int CHighWaterFile::WriteRecord(uint32_t v) {
    if (!GotoRecord(m_nPosition / kRecord)) return 0;
    m_nValue = v;
    try {
        uint8_t bytes[kRecord];
        std::memcpy(bytes, &v, kRecord);  // little-endian, as the file is
        Write(bytes, kRecord);
        FlushDurably();
    } catch (const CFileException&) {
        return 0;
    }
    return 1;
}

int CHighWaterFile::AddRecords(uint32_t n) {
    m_nValue = 0;
    if (n > kMaxSeries || !GotoRecord(0) || !LockRecord()) return 0;
    uint32_t m = GetMaxRecord();
    bool ok = true;
    if (m < n) {  // else another process grew it meanwhile
        try {
            SetLength(uint64_t(n) * kRecord + kRecord);
            ok = GotoRecord(m + 1);
            uint8_t bytes[kRecord];
            std::memcpy(bytes, &m_nValue, kRecord);  // record 0's content: 0
            for (uint32_t i = m; ok && i < n; ++i)
                Write(bytes, kRecord);
            if (ok) FlushDurably();
        } catch (const CFileException&) {
            ok = false;
        }
    }
    GotoRecord(0);
    UnlockRecord();
    return ok;
}

AI_Err CHighWaterFile::PrepareRecord(uint32_t n) {
    if (!OpenNumberFile()) return AI_OpenFailed;
    if (n > GetMaxRecord() && !AddRecords(n)) return AI_AddFailed;
    // Record 0 guards the file's growth; it is no series.
    if (n == 0 || !GotoRecord(n)) return AI_GotoFailed;
    if (!LockRecord()) return AI_LockFailed;
    if (m_nValue != 0) return AI_OK;
    AI_Err code = FindHighestUsed(n);
    if (code != AI_OK) UnlockRecord();
    return code;
}

template <class Apply>
AI_Err CHighWaterFile::OnSeries(uint32_t n, Apply apply) {
    AI_Err code;
    {
        CSingleLock hold(m_Lock);
        code = PrepareRecord(n);
        if (code != AI_OK) {
            // Tried again every second, for as long as the user lets it.
            CLockWait wait(kFileName);
            if (wait.Start()) {
                UiHost& ui = GetUiHost();
                ui.BeginWaitCursor();
                while (!wait.Wait(1000))
                    if ((code = PrepareRecord(n)) == AI_OK) break;
                ui.EndWaitCursor();
            }
        }
        if (code == AI_OK) {
            code = apply();
            UnlockRecord();
        }
    }
    ReportError(code, n);
    return code;
}

AI_Err CHighWaterFile::GetNextNumber(uint32_t n, uint32_t& out) {
    return OnSeries(n, [&] {
        out = m_nValue + 1;
        return WriteRecord(out) ? AI_OK : AI_WriteFailed;
    });
}

AI_Err CHighWaterFile::SetNumber(uint32_t n, uint32_t v) {
    return OnSeries(n, [&] {
        // The mark only rises.
        return v <= m_nValue || WriteRecord(v) ? AI_OK : AI_WriteFailed;
    });
}

void CHighWaterFile::ReportError(AI_Err code, uint32_t n) {
    if (code == AI_OK) return;
    ShowMessage(kMessageBase + unsigned(code), kMsgNotice, std::to_string(n).c_str(),
                m_strDataFile.c_str());
}
