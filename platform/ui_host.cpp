#include "platform/ui_host.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "resources/dialogs.h"

namespace {

using Clock = std::chrono::steady_clock;

struct HeadlessWindow {
    unsigned templateId = 0;
    DialogEvents* events = nullptr;
    bool enabled = true;
    bool cancelled = false;
    Clock::time_point created = Clock::now();
};

// The headless host's windows, by handle; handles are small numbers.
struct Windows {
    std::mutex mu;
    std::map<HWND, HeadlessWindow> all;
    uintptr_t next = 2;
};

Windows& TheWindows() {
    static Windows* w = new Windows;  // may be used while the process exits
    return *w;
}

const HWND kDesktop = reinterpret_cast<HWND>(uintptr_t(1));

HeadlessUiHost& Headless() {
    static HeadlessUiHost* h = new HeadlessUiHost;
    return *h;
}

UiHost* g_host = nullptr;

// Seconds after which a headless lock wait gives up; -1 for never.
double LockWaitLimit() {
    const char* s = std::getenv("DBFILE_LOCK_WAIT_S");
    if (!s || !*s) return -1;
    char* end;
    double v = std::strtod(s, &end);
    return (*end || v < 0) ? -1 : v;
}

}  // namespace

UiHost& GetUiHost() {
    return g_host ? *g_host : Headless();
}

void SetUiHost(UiHost* host) {
    g_host = host;
}

HWND HeadlessUiHost::DesktopWindow() {
    return kDesktop;
}

bool HeadlessUiHost::IsWindow(HWND window) {
    if (window == kDesktop) return true;
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    return w.all.count(window) != 0;
}

bool HeadlessUiHost::IsWindowEnabled(HWND window) {
    if (window == kDesktop) return true;
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    auto it = w.all.find(window);
    return it != w.all.end() && it->second.enabled;
}

void HeadlessUiHost::EnableWindow(HWND window, bool enable) {
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    auto it = w.all.find(window);
    if (it != w.all.end()) it->second.enabled = enable;
}

HWND HeadlessUiHost::CreateDialog(unsigned templateId, HWND, DialogEvents* events) {
    if (!dbfile::FindDialogTemplate(templateId)) return nullptr;
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    HWND h = reinterpret_cast<HWND>(w.next++);
    w.all[h] = HeadlessWindow{templateId, events};
    return h;
}

void HeadlessUiHost::DestroyWindow(HWND window) {
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    w.all.erase(window);
}

bool HeadlessUiHost::PumpMessage() {
    // Nobody can press Cancel here: a lock wait past its limit cancels itself.
    double limit = LockWaitLimit();
    if (limit < 0) return false;
    DialogEvents* cancel = nullptr;
    {
        Windows& w = TheWindows();
        std::lock_guard<std::mutex> lk(w.mu);
        for (auto& [h, win] : w.all) {
            std::chrono::duration<double> age = Clock::now() - win.created;
            if (win.templateId == dbfile::kLockWaitDialog && !win.cancelled &&
                age.count() >= limit && win.events) {
                win.cancelled = true;
                cancel = win.events;
                break;
            }
        }
    }
    if (!cancel) return false;
    cancel->OnCancel();
    return true;
}

int HeadlessUiHost::MessageBox(HWND, const char* text, const char* caption, unsigned) {
    std::fprintf(stderr, "%s: %s\n", caption ? caption : "", text ? text : "");
    return 1;  // OK
}

int HeadlessUiHost::TextExtent(const char* text) {
    return text ? int(std::strlen(text)) : 0;
}
