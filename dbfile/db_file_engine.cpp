// The engine outside any file: reset of a client, versions, and transactions.
#include <cstring>

#include "dbfile/db_file.h"
#include "engine/dbfile_app.h"
#include "engine/messages.h"
#include "recman/recman.h"

int CDbFile::m_bInTransaction = 0;

namespace {

// How the Version operation names each platform.
CString PlatformText(char code) {
    switch (code) {
        case '9':
            return "\tWindows Workstation/Workgroup";
        case 'D':
            return "\tDOS Workstation";
        case 'N':
            return "\tClient Requester";
        case 'S':
            return "\tNetware Server";
        case 'T':
            return "\tWindows Server Engine";
        case 'U':
            return "\tLinux Server";
        default: {
            CString s = "\tUnknown ";
            s += code;
            return s;
        }
    }
}

}  // namespace

int CDbFile::ResetBTI(short clientId) {
    uint8_t key[255] = {};
    return TheDbFileApp().BtrvCall(RM_RESET, nullptr, nullptr, nullptr, key, 0, uint16_t(clientId),
                                   nullptr);
}

int CDbFile::BtrvVersion(const char* path, CStringArray& lines, int allowOld) {
    uint8_t v[15] = {};
    uint16_t len = sizeof(v);
    int status = TheDbFileApp().BtrvCall(RM_VERSION, nullptr, v, &len, const_cast<char*>(path), 0,
                                         0, nullptr);
    auto version = [&](int i) {
        int16_t n;
        std::memcpy(&n, v + 5 * i, 2);
        return n;
    };
    if (status) return version(0);
    bool failed = false;
    for (int i = 0; i < 3; ++i) {
        int16_t revision;
        std::memcpy(&revision, v + 5 * i + 2, 2);
        if (version(i) < 8 && !allowOld) failed = true;
        CString line;
        line.Format("%d.%d", version(i), revision);
        line += PlatformText(char(v[5 * i + 4]));
        lines.Add(line);
    }
    return failed ? -1 : version(0);
}

int CDbFile::TransactionCall(uint16_t op, short clientId, int newFlag) {
    int status = TheDbFileApp().BtrvCall(op, nullptr, nullptr, nullptr, nullptr, 0,
                                         uint16_t(clientId), nullptr);
    if (status == 0) {
        m_bInTransaction = newFlag;
        return 0;
    }
    ShowStatusMessage(status, "");
    return status;
}

int CDbFile::BeginTransaction(short clientId) {
    return TransactionCall(RM_BEGIN_TRANSACTION + RM_CONCURRENT, clientId, 1);
}
int CDbFile::BeginExclusiveTransaction(short clientId) {
    return TransactionCall(RM_BEGIN_TRANSACTION, clientId, 1);
}
int CDbFile::EndTransaction(short clientId) {
    return TransactionCall(RM_END_TRANSACTION, clientId, 0);
}
int CDbFile::AbortTransaction(short clientId) {
    return TransactionCall(RM_ABORT_TRANSACTION, clientId, 0);
}
int CDbFile::BeginTransaction(HWND) {
    return BeginTransaction(short(0));
}
int CDbFile::EndTransaction(HWND) {
    return EndTransaction(short(0));
}
int CDbFile::AbortTransaction(HWND) {
    return AbortTransaction(short(0));
}

int BeginTransaction(HWND hwnd) {
    return !CDbFile::BeginTransaction(hwnd);
}
int EndTransaction(HWND hwnd) {
    return !CDbFile::EndTransaction(hwnd);
}
int AbortTransaction(HWND hwnd) {
    return !CDbFile::AbortTransaction(hwnd);
}
