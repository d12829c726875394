// The message service: every text the library shows goes to the message
// function of the application's common library (DBFILE_COMMON_LIB, by
// default libvexacomn.so), looked up afresh for each message.
#pragma once

#include <string>
#include <vector>

// Message kinds.
enum { kMsgNotice = 0, kMsgWarning = 2, kMsgError = 5 };

// Loads string `id`, fills %0, %1, ... from `args` and hands it to the
// message function with the caption (string 13). Answers the function's
// result, or 0 when the library or the function is missing.
int ShowMessage(unsigned id, int kind, const std::vector<std::string>& args);

template <class... Args>
int ShowMessage(unsigned id, int kind, const Args&... args) {
    [[maybe_unused]] auto text = [](const char* s) { return std::string(s ? s : ""); };
    return ShowMessage(id, kind, std::vector<std::string>{text(args)...});
}

// The file name of the application's common library (DBFILE_COMMON_LIB).
std::string CommonLibraryName();

// The standard status message (string 12: file, code and the status's own
// text); statuses 0, 4, 9, 60 and 64 show nothing.
void ShowStatusMessage(int status, const char* fileName);
