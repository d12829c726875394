// CPackProgress: the modeless dialog that shows how far a pack and reindex
// has copied: a title line and a progress bar over the source's records.
#pragma once

#include "platform/dialog.h"
#include "platform/progress_ctrl.h"

class CDbFile;

class CPackProgress : public CDialog {
  public:
    explicit CPackProgress(const char* title);
    ~CPackProgress() override = default;

    // Shows the dialog (owned by `parent`); the bar steps by one.
    bool Create(HWND parent);
    // The bar's range: the file's record count; back to the start.
    void SetRange(CDbFile* file);
    void Step() { m_Progress.StepIt(); }

    CProgressCtrl m_Progress;
    CString m_strTitle;

  protected:
    void DoDataExchange(CDataExchange& dx) override;
};
