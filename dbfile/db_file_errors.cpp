// Status translation and messages of a record file.
#include "dbfile/db_file.h"
#include "engine/messages.h"

namespace {
constexpr unsigned kNoDictionaryEntry = 15;
}

int CDbFile::TranslateError(int status) {
    int folded = (status == 4 || status == 9 || status == 64) ? 9 : status;
    m_nLastError = folded;
    if (folded != 0 && !m_bErrOverride) DefErrProc(nullptr, status);
    return folded;
}

void CDbFile::DefErrProc(HWND, int status) {
    ShowStatusMessage(status, m_strFileName);
}

void CDbFile::CddEntryError(const char* name) {
    ShowMessage(kNoDictionaryEntry, kMsgError, name);
}
