// Record operations of CDbFile: reads in key and physical order, positions,
// locks, inserts, updates and deletes, with compare-on-lock checking and
// growth of the record buffer for variable-length records.
#include <cstdlib>
#include <cstring>
#include <new>

#include "dbfile/db_file.h"
#include "engine/dbfile_app.h"
#include "recman/recman.h"

namespace {

// Operations whose record comes back in the record buffer.
bool KeyedByValue(int op) {
    return op == RM_GET_EQUAL || (op >= RM_GET_GREATER && op <= RM_GET_LESS_OR_EQUAL);
}

bool Positional(int op) {
    switch (op) {
        case 6:
        case 7:
        case 12:
        case 13:
        case 18:
        case 22:
        case 23:
        case 24:
        case 33:
        case 34:
        case 35:
        case 36:
        case 37:
        case 38:
        case 39:
        case 44:
        case 50:
            return true;
        default:
            return false;
    }
}

constexpr int kLockBias = RM_LOCK_MULTI_NOWAIT;
constexpr unsigned short kGrowStep = 4096;
// What an insert answers when its record got no number (the engine is not asked).
constexpr int kNoNumber = 5;

}  // namespace

int CDbFile::GetLogical(int op, int lock, int keySet) {
    if (lock && IsExclusive()) lock = 0;  // an exclusive file takes no locks
    bool growable = false;
    if (KeyedByValue(op)) {
        if (!keySet) SetKeyFields();
        SetDataLen(m_nRcdBufLen);
        growable = true;
    } else if (Positional(op)) {
        SetDataLen(m_nRcdBufLen);
        growable = true;
    }
    int status =
        Call(uint16_t(op + (lock ? kLockBias : 0)), m_pRcdBuf, &m_nDataLen, int8_t(m_nKeyNo));
    if (growable && status == RM_DATA_BUFFER_TOO_SHORT) {
        if (!IsVarLength()) return TranslateError(status);
        status = ResizeRcdBuf(0);
    }
    if (status == 0 && !m_bBrowser) {
        OnReadRecord();
        if (m_bLockChecking) {
            if (lock && IsDataChanged()) status = RM_CONFLICT;
            SaveDataForCompare();
        }
    }
    return TranslateError(status);
}

int CDbFile::GetEqual(HWND, int lock, int keySet) {
    return GetLogical(RM_GET_EQUAL, lock, keySet);
}

uint16_t CDbFile::GetOpOfRelation(dbRelOp op) {
    switch (op) {
        case dbRelGreater:
            return RM_GET_GREATER;
        case dbRelLess:
            return RM_GET_LESS;
        case dbRelGreaterEqual:
            return RM_GET_GREATER_OR_EQUAL;
        case dbRelLessEqual:
            return RM_GET_LESS_OR_EQUAL;
        default:  // equal, not equal and anything else
            return RM_GET_EQUAL;
    }
}

int CDbFile::GetUsing(dbRelOp op, int lock, int keySet) {
    return GetLogical(GetOpOfRelation(op), lock, keySet);
}

int CDbFile::GetUsing(HWND, dbRelOp op, int lock, int keySet) {
    return GetUsing(op, lock, keySet);
}
int CDbFile::GetFirst(HWND, int lock) {
    return GetLogical(RM_GET_FIRST, lock, 0);
}
int CDbFile::GetLast(HWND, int lock) {
    return GetLogical(RM_GET_LAST, lock, 0);
}
int CDbFile::GetNext(HWND, int lock) {
    return GetLogical(RM_GET_NEXT, lock, 0);
}
int CDbFile::GetPrev(HWND, int lock) {
    return GetLogical(RM_GET_PREVIOUS, lock, 0);
}
int CDbFile::StepFirst(HWND, int lock) {
    return GetLogical(RM_STEP_FIRST, lock, 0);
}
int CDbFile::StepLast(HWND, int lock) {
    return GetLogical(RM_STEP_LAST, lock, 0);
}
int CDbFile::StepNext(HWND, int lock) {
    return GetLogical(RM_STEP_NEXT, lock, 0);
}
int CDbFile::StepPrev(HWND, int lock) {
    return GetLogical(RM_STEP_PREVIOUS, lock, 0);
}

int CDbFile::GetPosition(long& address) {
    uint8_t buf[4] = {};
    uint16_t len = 4;
    int status = Call(RM_GET_POSITION, buf, &len, 0);
    uint32_t a;
    std::memcpy(&a, buf, 4);
    if (status == 0) address = long(a);
    return TranslateError(status);
}

int CDbFile::SetPosition(HWND, long address, int lock, int read) {
    return SetPosition(address, lock, read);
}

int CDbFile::SetPosition(long address, int lock, int read) {
    if (lock && IsExclusive()) lock = 0;
    SetDataLen(m_nRcdBufLen);
    if (m_nRcdBufLen < 4) SetDataLen(4);
    uint32_t a = uint32_t(address);
    std::memcpy(m_pRcdBuf, &a, 4);
    int status = Call(uint16_t(RM_GET_DIRECT + (lock ? kLockBias : 0)), m_pRcdBuf, &m_nDataLen,
                      int8_t(m_nKeyNo));
    if (status == RM_DATA_BUFFER_TOO_SHORT) {
        if (!IsVarLength()) return TranslateError(status);
        status = ResizeRcdBuf(0);
    }
    if (status == 0 && !m_bBrowser && read) {
        OnReadRecord();
        if (m_bLockChecking) {
            if (!lock)
                SaveDataForCompare();
            else if (IsDataChanged())
                return TranslateError(RM_CONFLICT);  // the old copy stays
        }
    }
    return TranslateError(status);
}

int CDbFile::Lock(HWND) {
    long address;
    if (GetPosition(address) == 0) SetPosition(address, 1, 1);
    return m_nLastError;
}

int CDbFile::Unlock(long address) {
    if (IsExclusive()) return 0;
    // The address travels in its own buffer: the record stays as read.
    m_nDataLen = 4;
    uint32_t a = uint32_t(address);
    uint16_t len = 4;
    return TranslateError(Call(RM_UNLOCK, &a, &len, RM_UNLOCK_ONE_MULTI));
}

int CDbFile::Unlock(HWND, long address) {
    return Unlock(address);
}

int CDbFile::Unlock(HWND) {
    long address;
    if (GetPosition(address) == 0) Unlock(address);
    return m_nLastError;
}

int CDbFile::UnlockAll(HWND) {
    if (IsExclusive()) return 0;
    SetDataLen(m_nRcdBufLen);
    return TranslateError(Call(RM_UNLOCK, m_pRcdBuf, &m_nDataLen, RM_UNLOCK_ALL_MULTI));
}

int CDbFile::Insert(HWND) {
    if (!m_bBrowser) OnWriteRecord();
    // Without its numbers the record is not added; the numbering has said why.
    if (m_nAutoIncMode && AutoIncrement(1) != AI_OK) return kNoNumber;
    int status = Call(RM_INSERT, m_pRcdBuf, &m_nDataLen, int8_t(m_nKeyNo));
    if (status == 0 && m_pStat) m_pStat->m_Spec.RecCount++;
    return TranslateError(status);
}

int CDbFile::Update(HWND) {
    if (!m_bBrowser) OnWriteRecord();
    int status = Call(RM_UPDATE, m_pRcdBuf, &m_nDataLen, -1);
    if (status == RM_DATA_BUFFER_TOO_SHORT && IsVarLength()) {
        // The record no longer fits where it was: delete it and insert it
        // anew. Unless the caller's transaction already holds the pair (its
        // own abort then undoes it), the two run in a transaction of their
        // own, so that an insert that fails leaves the old record in place.
        m_nLastError = 0;
        CDbFileApp& app = TheDbFileApp();
        bool own = app.BtrvCall(RM_BEGIN_TRANSACTION + RM_CONCURRENT, nullptr, nullptr, nullptr,
                                nullptr, 0, uint16_t(m_nClientId), nullptr) == 0;
        status = Delete(nullptr);
        bool deleted = status == 0;
        if (deleted) status = Insert(nullptr);  // the two leave the count as it was
        if (own) {
            uint16_t end = status == 0 ? RM_END_TRANSACTION : RM_ABORT_TRANSACTION;
            int ended = app.BtrvCall(end, nullptr, nullptr, nullptr, nullptr, 0,
                                     uint16_t(m_nClientId), nullptr);
            if (status == 0 && ended != 0) status = TranslateError(ended);
            // Undone: the record and its count are back.
            if (status != 0 && deleted && m_pStat) m_pStat->m_Spec.RecCount++;
        }
        return status;
    }
    if (status == 0 && !IsExclusive()) {
        // Release the lock the edit held.
        uint8_t buf[4] = {};
        uint16_t len = 4;
        if (Call(RM_GET_POSITION, buf, &len, 0) == 0) {
            len = 4;
            Call(RM_UNLOCK, buf, &len, RM_UNLOCK_ONE_MULTI);
        }
    }
    return TranslateError(status);
}

int CDbFile::Delete(HWND) {
    SetDataLen(m_nRcdBufLen);
    int status = Call(RM_DELETE, m_pRcdBuf, &m_nDataLen, 0);
    if (status == 0 && m_pStat && m_pStat->m_Spec.RecCount > 0) m_pStat->m_Spec.RecCount--;
    return TranslateError(status);
}

void CDbFile::SaveDataForCompare() {
    m_nCompareLen = m_nDataLen;
    char* p = static_cast<char*>(std::realloc(m_pCompareBuf, m_nDataLen ? m_nDataLen : 1));
    if (!p) throw std::bad_alloc();
    m_pCompareBuf = p;
    if (m_nDataLen) std::memcpy(m_pCompareBuf, m_pRcdBuf, m_nDataLen);
}

int CDbFile::IsDataChanged() {
    // Data longer than the saved copy counts as changed.
    bool changed = !m_pCompareBuf || m_nDataLen > m_nCompareLen ||
                   std::memcmp(m_pRcdBuf, m_pCompareBuf, m_nDataLen) != 0;
    if (!changed) return 0;
    // Releasing the lock must not shorten the data length: the fresh record
    // may become the comparison copy next.
    unsigned short dataLen = m_nDataLen;
    Unlock(nullptr);
    m_nDataLen = dataLen;
    return 1;
}

int CDbFile::ResizeRcdBuf(unsigned short n) {
    uint32_t size = n ? n : uint32_t(m_nRcdBufLen) + kGrowStep;
    if (size > 65535) return RM_DATA_BUFFER_TOO_SHORT;
    if (!m_pStat || m_pStat->GetRcdCount() < 1) {
        SetDataLen(uint16_t(size));
        return 0;
    }
    uint8_t buf[4] = {};
    uint16_t len = 4;
    int status = Call(RM_GET_POSITION, buf, &len, 0);
    if (status) return status;
    for (;;) {
        SetDataLen(uint16_t(size));
        std::memcpy(m_pRcdBuf, buf, 4);
        status = Call(RM_GET_DIRECT, m_pRcdBuf, &m_nDataLen, int8_t(m_nKeyNo));
        if (status != RM_DATA_BUFFER_TOO_SHORT || size + kGrowStep > CalcMaxRcdLen()) break;
        size += kGrowStep;
    }
    return status;
}
