#include "platform/dialog.h"

void DDX_Text(CDataExchange& dx, int item, CString& value) {
    if (!dx.save) GetUiHost().SetItemText(dx.dialog, item, value);
}

void DDX_Text(CDataExchange& dx, int item, int& value) {
    if (!dx.save) GetUiHost().SetItemInt(dx.dialog, item, value);
}

CDialog::~CDialog() {
    DestroyWindow();
}

bool CDialog::Create(HWND owner) {
    m_hWnd = GetUiHost().CreateDialog(templateId_, owner, this);
    if (!m_hWnd) return false;
    UpdateData(false);  // the first display shows the members' values
    return true;
}

bool CDialog::UpdateData(bool save) {
    if (!m_hWnd) return false;
    CDataExchange dx{m_hWnd, save};
    DoDataExchange(dx);
    return true;
}

void CDialog::DestroyWindow() {
    if (m_hWnd) GetUiHost().DestroyWindow(m_hWnd);
    m_hWnd = nullptr;
}

void CDialog::CenterWindow(HWND owner) {
    if (m_hWnd) GetUiHost().CenterWindow(m_hWnd, owner);
}
