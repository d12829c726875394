#include "engine/dbfile_app.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/temp_files.h"

#include "engine/btrv.h"
#include "engine/lock_wait.h"
#include "platform/ui_host.h"
#include "recman/recman.h"

namespace {
bool g_persistentLocking = true;
}

bool LockWaitRetry() {
    return g_persistentLocking;
}
void SetLockWaitRetry(bool on) {
    g_persistentLocking = on;
}

CDbFileApp& TheDbFileApp() {
    static CDbFileApp* app = new CDbFileApp;  // lives as long as the module
    return *app;
}

CDbFileApp::CDbFileApp() {
    std::memset(m_ClientIdBlock, 0, sizeof(m_ClientIdBlock));
    m_ClientIdBlock[12] = 'V';
    m_ClientIdBlock[13] = 'X';
    std::srand(unsigned(std::time(nullptr)));  // test data draws from it
}

bool CDbFileApp::UseSystemTemp() {
    if (m_bTempDecided) return m_bUseSystemTemp;
    const char* requester = std::getenv("DBFILE_REQUESTER");
    if (requester && *requester) {
        m_bUseSystemTemp = false;
    } else {
        std::string probe = UniqueTempFile(SystemTempDirectory(), "tmp");
        m_bUseSystemTemp = !probe.empty();
        if (m_bUseSystemTemp) ::unlink(probe.c_str());
    }
    m_bTempDecided = true;
    return m_bUseSystemTemp;
}

int CDbFileApp::ExitInstance(void (*releaseDictionary)()) {
    if (releaseDictionary) releaseDictionary();
    if (m_bEngineCalled) {
        BtrvCall(RM_RESET, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr);
        BtrvCall(RM_STOP, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr);
    }
    return 0;
}

void CDbFileApp::Stamp(uint16_t client) {
    m_ClientIdBlock[14] = uint8_t(client);
    m_ClientIdBlock[15] = uint8_t(client >> 8);
}

int CDbFileApp::BtrvCall(uint16_t op, void* posBlock, void* dataBuf, uint16_t* dataLen,
                         void* keyBuf, int8_t keyNum, uint16_t client, const char* fileName) {
    Stamp(client);
    int status = BTRV(op, posBlock, dataBuf, dataLen, keyBuf, keyNum, m_ClientIdBlock);
    m_bEngineCalled = true;
    if (status != RM_RECORD_LOCKED || !g_persistentLocking) return status;

    CLockWait wait(fileName);
    if (!wait.Start()) return RM_RECORD_LOCKED;
    UiHost& ui = GetUiHost();
    ui.BeginWaitCursor();
    while (!wait.Wait(1000)) {
        // The same call again, with the number stamped again: another call
        // with another client number may have run while the dialog waited.
        Stamp(client);
        status = BTRV(op, posBlock, dataBuf, dataLen, keyBuf, keyNum, m_ClientIdBlock);
        if (status != RM_RECORD_LOCKED) break;
    }
    ui.EndWaitCursor();
    return status;
}
