// An engine requester that writes down every request ("op keyNum" a line) in
// the file named by DBFILE_SPY_LOG and hands it on to the record manager's
// shared requester. With DBFILE_SPY_REMOTE set ("version.revision" and a
// platform character) the Version answer reports that remote engine.
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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
    int16_t status = e ? e(op, pos, data, dataLen, key, keyLen, keyNum, clientId) : int16_t(20);
    const char* remote = std::getenv("DBFILE_SPY_REMOTE");
    if (op == 26 && status == 0 && remote && data) {
        int version = 0, revision = 0;
        char platform = 0;
        if (std::sscanf(remote, "%d.%d%c", &version, &revision, &platform) == 3) {
            auto* entry = static_cast<uint8_t*>(data) + 10;
            int16_t v = int16_t(version), r = int16_t(revision);
            std::memcpy(entry, &v, 2);
            std::memcpy(entry + 2, &r, 2);
            entry[4] = uint8_t(platform);
        }
    }
    return status;
}
