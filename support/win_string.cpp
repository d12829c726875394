#include "support/win_string.h"

#include "platform/ui_host.h"
#include "resources/string_table.h"

bool WinString::Load(unsigned id) {
    const char* text = dbfile::LoadLibString(id);
    ZString::operator=(text ? text : "");
    return text != nullptr;
}

WinString& WinString::operator=(long value) {
    ZString::operator=(std::to_string(value).c_str());
    return *this;
}

WinString& WinString::operator=(const char* text) {
    ZString::operator=(text);
    return *this;
}

int WinString::Show(HWND owner, const char* caption, unsigned style) const {
    return GetUiHost().MessageBox(owner, c_str(), caption, style);
}

IntlString& IntlString::Fill(const std::vector<std::string>& args) {
    std::string out;
    const std::string& in = str();
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '%' && i + 1 < in.size() && in[i + 1] >= '0' && in[i + 1] <= '9' &&
            size_t(in[i + 1] - '0') < args.size()) {
            out += args[size_t(in[i + 1] - '0')];
            ++i;
        } else {
            out += in[i];
        }
    }
    ZString::operator=(out.c_str());
    return *this;
}
