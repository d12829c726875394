#include "engine/btrv.h"

#include <cstdlib>
#include <mutex>

#include "platform/dynamic_library.h"
#include "recman/recman.h"

namespace {

using Entry = int16_t (*)(uint16_t, void*, void*, uint32_t*, void*, uint8_t, int8_t,
                          const uint8_t*);

Entry TheEngine() {
    static Entry entry = [] {
        const char* name = std::getenv("DBFILE_REQUESTER");
        if (!name || !*name) return static_cast<Entry>(&BTRCALLID);
        DynamicLibrary lib(name);
        auto e = reinterpret_cast<Entry>(lib.Symbol("BTRCALLID"));
        if (e) lib.Release();  // stays loaded for the life of the process
        return e;
    }();
    return entry;
}

constexpr int16_t kRequesterInactive = 20;

}  // namespace

int16_t BTRV(uint16_t op, void* posBlock, void* dataBuf, uint16_t* dataLen, void* keyBuf,
             int8_t keyNum, const uint8_t* clientId) {
    Entry engine = TheEngine();
    if (!engine) return kRequesterInactive;
    uint32_t len = dataLen ? *dataLen : 0;
    int16_t status = engine(op, posBlock, dataBuf, &len, keyBuf, 255, keyNum, clientId);
    if (dataLen) *dataLen = uint16_t(len);
    return status;
}
