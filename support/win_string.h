// Texts of the library's string table: WinString loads one by id,
// IntlString fills its %0, %1, ... placeholders.
#pragma once

#include <string>
#include <vector>

#include "platform/hwnd.h"
#include "support/zstring.h"

class WinString : public ZString {
  public:
    WinString() = default;
    explicit WinString(unsigned id) { Load(id); }
    // The text of `id`; an id without one gives the empty text and false.
    bool Load(unsigned id);
    // An integer as its decimal text.
    WinString& operator=(long value);
    WinString& operator=(const char* text);
    // Shows the text in a message box of the user interface host.
    int Show(HWND owner, const char* caption, unsigned style) const;
};

class IntlString : public ZString {
  public:
    explicit IntlString(const char* pattern) : ZString(pattern) {}
    // Replaces %0, %1, ... with the arguments in order; a placeholder without
    // an argument is left as it is.
    IntlString& Fill(const std::vector<std::string>& args);
};
