#include "engine/messages.h"

#include <cstdlib>

#include "platform/dynamic_library.h"
#include "platform/ui_host.h"
#include "support/win_string.h"

namespace {

using MessageFn = int (*)(const char* system, const char* module, const char* caption,
                          const char* text, int zero, int kind);

constexpr unsigned kStatusMessage = 12;
constexpr unsigned kCaption = 13;
constexpr unsigned kStatusTexts = 10000;
constexpr unsigned kUndocumented = 999;
constexpr unsigned kMbIconExclamation = 0x30;

}  // namespace

std::string CommonLibraryName() {
    const char* s = std::getenv("DBFILE_COMMON_LIB");
    return s && *s ? s : "libvexacomn.so";
}

int ShowMessage(unsigned id, int kind, const std::vector<std::string>& args) {
    // The window with the keyboard focus owns the message box that stands in
    // when the common library fails.
    UiHost& ui = GetUiHost();
    HWND focus = ui.GetFocus();
    IntlString text{WinString(id)};
    text.Fill(args);
    WinString caption(kCaption);
    DynamicLibrary lib(CommonLibraryName());
    if (!lib.IsLoaded()) return 0;
    auto fn = reinterpret_cast<MessageFn>(lib.Symbol("VEXA_MessageString"));
    if (!fn) return 0;
    try {
        return fn("SM", "DbFile", caption, text, 0, kind);
    } catch (...) {
        return ui.MessageBox(focus, text, caption, kMbIconExclamation);
    }
}

void ShowStatusMessage(int status, const char* fileName) {
    if (status == 0 || status == 4 || status == 9 || status == 60 || status == 64) return;
    // A status without a text of its own is shown as undocumented.
    WinString statusText;
    if (!statusText.Load(kStatusTexts + unsigned(status))) statusText.Load(kUndocumented);
    ShowMessage(kStatusMessage, kMsgError, fileName, std::to_string(status).c_str(),
                statusText.c_str());
}
