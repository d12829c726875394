// CLockWait: the small dialog shown while a locked record is retried.
#pragma once

#include <cstdint>

#include "platform/dialog.h"

class CLockWait : public CDialog {
  public:
    explicit CLockWait(const char* fileName);
    ~CLockWait() override;

    // Shows the dialog, disabling its owner; false when it cannot be created.
    bool Start();
    // Lets the user interface run for `ms` milliseconds; raises the attempt
    // count unless cancelled. Answers whether the user cancelled.
    bool Wait(uint32_t ms);

    void OnCancel() override { m_bCancelled = true; }  // the window stays up
    void OnOK() override {}  // Enter neither closes the dialog nor cancels

    bool m_bCancelled = false;
    HWND m_hDisabledOwner = nullptr;
    CString m_strFileName;
    int m_nRetryCount = 1;

  protected:
    void DoDataExchange(CDataExchange& dx) override;
};
