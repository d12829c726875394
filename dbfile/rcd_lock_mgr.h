// CRcdLockMgr carries one record through an edit in a form or grid. When the
// record is shown it remembers the record's address and a copy of its data;
// when the user starts to change it, it re-reads the record with a lock and
// checks that nobody changed it meanwhile; at the end it writes the edit
// (update or insert) or deletes the record, positioning on the remembered
// address first. It works through the file's virtual operations, so a
// derived record file's hooks take part. Operations answer 1 for success and
// 0 for failure; the status behind a failure is the file's last error.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/hwnd.h"

class CDbFile;

class CRcdLockMgr {
  public:
    CRcdLockMgr() = default;
    // Each copy holds its own duplicate of the saved data.
    CRcdLockMgr(const CRcdLockMgr& o);
    CRcdLockMgr& operator=(const CRcdLockMgr& o);
    virtual ~CRcdLockMgr();

    // Checking on: a locking load compares the fresh record with the copy.
    virtual void SetLockChecking(int on) { m_bLockChecking = on; }
    int LockChecking() const { return m_bLockChecking; }
    long GetRcdAddr() const { return m_rcdAddr; }

    // Without lock (or with checking off): remembers the file's current
    // record and its address. With lock and checking on: re-reads the
    // remembered record with a lock and answers 1 only when it is unchanged;
    // the lock stays taken either way, and after a refusal the file holds the
    // record as the other user left it.
    virtual int LoadRcd(HWND hwnd, CDbFile* file, int lock);
    // A new record is inserted; an existing one is positioned on by its
    // remembered address (without running the read hook, so the members keep
    // the edit) and updated, which releases its lock.
    virtual int SaveRcd(HWND hwnd, CDbFile* file, int isNew);
    virtual int DeleteRcd(HWND hwnd, CDbFile* file);
    // 1 when the file's current data equals the copy. Data longer than the
    // copy counts as changed, as does having no copy at all.
    virtual int BufferCompare(CDbFile* file);

  protected:
    // Copies the file's current data when there is any; answers whether a
    // copy is held.
    int SaveBuffer(CDbFile* file);

    long m_rcdAddr = 0;
    std::unique_ptr<char[]> m_pSavedRcd;
    int m_bLockChecking = 0;

  private:
    size_t m_nSavedLen = 0;
};
