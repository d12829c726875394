#include "dbfile/rcd_lock_mgr.h"

#include <algorithm>
#include <cstring>

#include "dbfile/db_file.h"

CRcdLockMgr::CRcdLockMgr(const CRcdLockMgr& o)
    : m_rcdAddr(o.m_rcdAddr), m_bLockChecking(o.m_bLockChecking), m_nSavedLen(o.m_nSavedLen) {
    if (o.m_pSavedRcd) {
        m_pSavedRcd = std::make_unique<char[]>(m_nSavedLen);
        std::memcpy(m_pSavedRcd.get(), o.m_pSavedRcd.get(), m_nSavedLen);
    }
}

CRcdLockMgr& CRcdLockMgr::operator=(const CRcdLockMgr& o) {
    if (this != &o) {
        CRcdLockMgr copy(o);
        m_rcdAddr = copy.m_rcdAddr;
        m_bLockChecking = copy.m_bLockChecking;
        m_nSavedLen = copy.m_nSavedLen;
        m_pSavedRcd = std::move(copy.m_pSavedRcd);
    }
    return *this;
}

CRcdLockMgr::~CRcdLockMgr() = default;

int CRcdLockMgr::SaveBuffer(CDbFile* file) {
    // A file that never had a record buffer has no data, whatever its data
    // length says; and no more than the buffer holds is data.
    size_t len = file->RcdBuf() ? std::min(file->GetBytesRead(), file->GetRcdBufLen()) : 0;
    if (len) {
        if (!m_pSavedRcd || m_nSavedLen != len) m_pSavedRcd = std::make_unique<char[]>(len);
        std::memcpy(m_pSavedRcd.get(), file->RcdBuf(), len);
        m_nSavedLen = len;
    }
    return m_pSavedRcd != nullptr;
}

int CRcdLockMgr::BufferCompare(CDbFile* file) {
    if (!file || !m_pSavedRcd || !file->RcdBuf()) return 0;
    size_t len = file->GetBytesRead();
    if (len > m_nSavedLen || len > file->GetRcdBufLen()) return 0;
    return std::memcmp(file->RcdBuf(), m_pSavedRcd.get(), len) == 0;
}

int CRcdLockMgr::LoadRcd(HWND, CDbFile* file, int lock) {
    if (!file) return 0;
    if (lock && m_bLockChecking) {
        if (file->SetPosition(m_rcdAddr, lock, 1) != 0) return 0;
        return BufferCompare(file);
    }
    if (!SaveBuffer(file)) return 0;
    return file->GetPosition(m_rcdAddr) == 0;
}

int CRcdLockMgr::SaveRcd(HWND hwnd, CDbFile* file, int isNew) {
    if (!file) return 0;
    if (isNew) return file->Insert(hwnd) == 0;
    if (file->SetPosition(m_rcdAddr, 0, 0) != 0) return 0;
    return file->Update(hwnd) == 0;
}

int CRcdLockMgr::DeleteRcd(HWND hwnd, CDbFile* file) {
    if (!file) return 0;
    if (file->SetPosition(m_rcdAddr, 0, 0) != 0) return 0;
    return file->Delete(hwnd) == 0;
}
