// An engine requester that writes down every request ("op keyNum" a line) in
// the file named by DBFILE_SPY_LOG and hands it on to the record manager's
// shared requester.
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

using Entry = int16_t (*)(uint16_t, void*, void*, uint32_t*, void*, uint8_t, int8_t,
                          const uint8_t*);

Entry Engine() {
    static Entry entry = [] {
        void* lib = dlopen(DBFILE_TEST_RECMAN_LIB, RTLD_NOW | RTLD_LOCAL);
        return lib ? reinterpret_cast<Entry>(dlsym(lib, "BTRCALLID")) : nullptr;
    }();
    return entry;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int16_t BTRCALLID(uint16_t op, void* pos,
                                                                    void* data, uint32_t* dataLen,
                                                                    void* key, uint8_t keyLen,
                                                                    int8_t keyNum,
                                                                    const uint8_t* clientId) {
    if (const char* log = std::getenv("DBFILE_SPY_LOG")) {
        if (FILE* f = std::fopen(log, "a")) {
            std::fprintf(f, "%u %d\n", unsigned(op), int(keyNum));
            std::fclose(f);
        }
    }
    Entry e = Engine();
    return e ? e(op, pos, data, dataLen, key, keyLen, keyNum, clientId) : int16_t(20);
}
