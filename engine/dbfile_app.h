// CDbFileApp: the module's one application object. It owns the engine
// client-id block and the engine-used flag, and runs every engine request
// through BtrvCall, which waits for locked records under CLockWait.
#pragma once

#include <cstdint>

class CDbFileApp {
  public:
    CDbFileApp();

    // Stamps `client` into the client-id block, calls the engine and, while
    // it answers 84 and lock-wait retry is on, retries once a second under
    // the lock-wait dialog until the status changes or the user cancels.
    int BtrvCall(uint16_t op, void* posBlock, void* dataBuf, uint16_t* dataLen, void* keyBuf,
                 int8_t keyNum, uint16_t client, const char* fileName);

    // Whether temporary files go to the system's temporary directory: not
    // when an engine client is installed (DBFILE_REQUESTER is set), else when
    // a temporary file can be made there. Decided once.
    bool UseSystemTemp();

    // Module exit: the shared dictionary goes, and the engine is reset and
    // stopped, but only if it was ever called. `releaseDictionary` is the
    // part of the record-file layer that belongs to exit.
    int ExitInstance(void (*releaseDictionary)());

    bool m_bTempDecided = false;
    bool m_bUseSystemTemp = false;
    bool m_bEngineCalled = false;
    uint8_t m_ClientIdBlock[16];

  private:
    void Stamp(uint16_t client);
};

// The application object of the module.
CDbFileApp& TheDbFileApp();

// Lock-wait retry on or off for every file (on at start).
bool LockWaitRetry();
void SetLockWaitRetry(bool on);
