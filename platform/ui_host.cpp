#include "platform/ui_host.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include <unistd.h>

#include "resources/dialogs.h"

namespace {

using Clock = std::chrono::steady_clock;

struct HeadlessWindow {
    unsigned templateId = 0;
    DialogEvents* events = nullptr;
    bool enabled = true;
    bool cancelled = false;
    Clock::time_point created = Clock::now();
    std::map<int, std::string> texts;  // by control
    int lower = 0, upper = 0;          // the progress bar's range
    int drawn = -1;                    // the percentage last drawn, -1 for none
    bool terminal = false;             // standard error was a terminal when it was made
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
    HeadlessWindow& win = w.all[h];
    win.templateId = templateId;
    win.events = events;
    // Only a person at a terminal watches a bar; a log or a pipe gets nothing.
    win.terminal = ::isatty(STDERR_FILENO) == 1;
    return h;
}

void HeadlessUiHost::DestroyWindow(HWND window) {
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    auto it = w.all.find(window);
    if (it == w.all.end()) return;
    if (it->second.drawn >= 0) std::fputc('\n', stderr);  // the bar's line is done
    w.all.erase(it);
}

void HeadlessUiHost::SetItemText(HWND dialog, int item, const char* text) {
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    auto it = w.all.find(dialog);
    if (it != w.all.end()) it->second.texts[item] = text ? text : "";
}

void HeadlessUiHost::SetProgressRange(HWND dialog, int, int lower, int upper) {
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    auto it = w.all.find(dialog);
    if (it == w.all.end()) return;
    it->second.lower = lower;
    it->second.upper = upper;
}

void HeadlessUiHost::SetProgressPos(HWND dialog, int, int pos) {
    Windows& w = TheWindows();
    std::lock_guard<std::mutex> lk(w.mu);
    auto it = w.all.find(dialog);
    if (it == w.all.end()) return;
    HeadlessWindow& win = it->second;
    if (!win.terminal) return;
    long span = long(win.upper) - win.lower;
    long done = std::clamp(long(pos) - win.lower, 0L, std::max(span, 0L));
    int percent = span > 0 ? int(done * 100 / span) : 100;
    if (percent == win.drawn) return;  // redrawn only when it moves
    win.drawn = percent;
    constexpr int kWidth = 40;
    std::string bar(size_t(percent * kWidth / 100), '#');
    bar.resize(kWidth, '.');
    // The dialog's first text is its title line.
    const std::string& title = win.texts.empty() ? std::string() : win.texts.begin()->second;
    std::fprintf(stderr, "\r%s [%s] %3d%%", title.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
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
