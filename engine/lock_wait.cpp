#include "engine/lock_wait.h"

#include <chrono>
#include <thread>

#include "resources/dialogs.h"

CLockWait::CLockWait(const char* fileName)
    : CDialog(dbfile::kLockWaitDialog), m_strFileName(fileName ? fileName : "") {}

CLockWait::~CLockWait() {
    UiHost& ui = GetUiHost();
    if (m_hDisabledOwner && ui.IsWindow(m_hDisabledOwner)) ui.EnableWindow(m_hDisabledOwner, true);
    DestroyWindow();
}

bool CLockWait::Start() {
    UiHost& ui = GetUiHost();
    HWND main = ui.MainWindow();
    HWND owner = main ? ui.LastActivePopup(main) : ui.DesktopWindow();
    if (!owner) owner = main;
    // The desktop is never disabled: it stands for no owner at all.
    if (owner && owner != ui.DesktopWindow() && ui.IsWindow(owner) && ui.IsWindowEnabled(owner)) {
        ui.EnableWindow(owner, false);
        m_hDisabledOwner = owner;
    }
    if (!Create(owner)) return false;
    CenterWindow(owner);
    return true;
}

bool CLockWait::Wait(uint32_t ms) {
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    UiHost& ui = GetUiHost();
    while (!m_bCancelled && Clock::now() - start < std::chrono::milliseconds(ms)) {
        // With no message waiting, rest a moment rather than spin a core.
        if (!ui.PumpMessage()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!m_bCancelled) {
        ++m_nRetryCount;
        UpdateData(false);
    }
    return m_bCancelled;
}

void CLockWait::DoDataExchange(CDataExchange& dx) {
    DDX_Text(dx, 1002, m_strFileName);
    DDX_Text(dx, 1003, m_nRetryCount);
}
