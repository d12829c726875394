// The user interface the library shows itself through: modeless dialogs from
// the library's templates, message pumping, window enabling, the wait cursor
// and message boxes. The application installs its own host; without one the
// library runs headless.
#pragma once

#include "platform/hwnd.h"

// What a dialog hears from its window.
class DialogEvents {
  public:
    virtual ~DialogEvents() = default;
    virtual void OnOK() {}
    virtual void OnCancel() {}
};

class UiHost {
  public:
    virtual ~UiHost() = default;

    virtual HWND MainWindow() = 0;
    virtual HWND LastActivePopup(HWND window) = 0;  // the window itself when it has none
    virtual HWND DesktopWindow() = 0;
    virtual bool IsWindow(HWND window) = 0;
    virtual bool IsWindowEnabled(HWND window) = 0;
    virtual void EnableWindow(HWND window, bool enable) = 0;
    virtual HWND GetFocus() = 0;

    // A modeless dialog from one of the library's templates; null on failure.
    virtual HWND CreateDialog(unsigned templateId, HWND owner, DialogEvents* events) = 0;
    virtual void CenterWindow(HWND window, HWND owner) = 0;
    virtual void DestroyWindow(HWND window) = 0;
    virtual void SetItemText(HWND dialog, int item, const char* text) = 0;
    virtual void SetItemInt(HWND dialog, int item, int value) = 0;
    // A progress bar control of a dialog: its range, then where it stands.
    virtual void SetProgressRange(HWND dialog, int item, int lower, int upper) {
        (void)dialog, (void)item, (void)lower, (void)upper;
    }
    virtual void SetProgressPos(HWND dialog, int item, int pos) {
        (void)dialog, (void)item, (void)pos;
    }
    // Draws a window at once (invalidate, erase, update now).
    virtual void RedrawWindow(HWND window) { (void)window; }

    // Removes, translates and dispatches one waiting message of the thread;
    // false when none waits.
    virtual bool PumpMessage() = 0;
    virtual void BeginWaitCursor() = 0;
    virtual void EndWaitCursor() = 0;
    virtual int MessageBox(HWND owner, const char* text, const char* caption, unsigned style) = 0;
    // Width of a text as the display would draw it.
    virtual int TextExtent(const char* text) = 0;
    // Width of a text drawn on a device context, in its logical units; a
    // host without contexts of its own measures as the display does.
    virtual int TextExtentOn(HDC dc, const char* text) {
        (void)dc;
        return TextExtent(text);
    }
};

// The host in use: the one installed, else the headless one.
UiHost& GetUiHost();
// Installs `host` (the caller keeps it alive); null goes back to headless.
void SetUiHost(UiHost* host);

// The headless host: no windows are drawn. A lock-wait dialog gives up by
// itself once DBFILE_LOCK_WAIT_S seconds have passed, when that is set;
// message boxes go to standard error; a progress bar is drawn on standard
// error when that is a terminal, and not at all otherwise; a text is one
// unit a character wide.
class HeadlessUiHost : public UiHost {
  public:
    HWND MainWindow() override { return nullptr; }
    HWND LastActivePopup(HWND window) override { return window; }
    HWND DesktopWindow() override;
    bool IsWindow(HWND window) override;
    bool IsWindowEnabled(HWND window) override;
    void EnableWindow(HWND window, bool enable) override;
    HWND GetFocus() override { return nullptr; }
    HWND CreateDialog(unsigned templateId, HWND owner, DialogEvents* events) override;
    void CenterWindow(HWND, HWND) override {}
    void DestroyWindow(HWND window) override;
    void SetItemText(HWND dialog, int item, const char* text) override;
    void SetItemInt(HWND, int, int) override {}
    void SetProgressRange(HWND dialog, int item, int lower, int upper) override;
    void SetProgressPos(HWND dialog, int item, int pos) override;
    bool PumpMessage() override;
    void BeginWaitCursor() override {}
    void EndWaitCursor() override {}
    int MessageBox(HWND owner, const char* text, const char* caption, unsigned style) override;
    int TextExtent(const char* text) override;
};
