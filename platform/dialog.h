// CDialog: a modeless dialog of the library's, drawn by the user interface
// host, with data exchange between its controls and members.
#pragma once

#include "platform/cstring.h"
#include "platform/hwnd.h"
#include "platform/ui_host.h"

// One direction of data exchange: from members to controls (save false) or back.
struct CDataExchange {
    HWND dialog;
    bool save;
};

// Exchanges a text or an integer with a control. The host draws controls
// but keeps no values, so only the direction towards the controls acts.
void DDX_Text(CDataExchange& dx, int item, CString& value);
void DDX_Text(CDataExchange& dx, int item, int& value);

class CDialog : public DialogEvents {
  public:
    explicit CDialog(unsigned templateId) : templateId_(templateId) {}
    ~CDialog() override;
    CDialog(const CDialog&) = delete;
    CDialog& operator=(const CDialog&) = delete;

    // Creates the modeless window and fills its controls; false on failure.
    bool Create(HWND owner);
    bool UpdateData(bool save = true);
    void DestroyWindow();
    void CenterWindow(HWND owner);

    HWND m_hWnd = nullptr;

  protected:
    virtual void DoDataExchange(CDataExchange&) {}

  private:
    unsigned templateId_;
};
