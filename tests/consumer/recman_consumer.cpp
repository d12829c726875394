// Creates, fills, reads back and stats a record file through the installed
// <dbfile/recman.h>; exits non-zero on the first surprise.
#include <dbfile/recman.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

static const uint8_t kClient[16] = {0};

static int Fail(const char* what, int st) {
    std::fprintf(stderr, "%s: status %d\n", what, st);
    return 1;
}

int main() {
    char dir[] = "/tmp/dbfile-consumer-XXXXXX";
    if (!mkdtemp(dir)) return 1;
    std::string path = std::string(dir) + "/items.dat";
    uint8_t spec[32] = {};
    spec[0] = 16;         // record length
    spec[3] = 4096 >> 8;  // page size
    spec[4] = 1;          // one key
    spec[16] = 1;         // position 1
    spec[18] = 4;         // length 4
    spec[20] = RM_KEY_EXTENDED_TYPE & 0xFF;
    spec[21] = RM_KEY_EXTENDED_TYPE >> 8;
    spec[26] = RM_TYPE_INTEGER;
    char key[255] = {};
    std::strncpy(key, path.c_str(), sizeof(key) - 1);
    uint32_t len = sizeof(spec);
    int st = BTRCALLID(RM_CREATE, nullptr, spec, &len, key, 255, 0, kClient);
    if (st) return Fail("create", st);
    uint8_t pos[RM_POSITION_BLOCK_SIZE] = {};
    len = 0;
    if ((st = BTRCALLID(RM_OPEN, pos, nullptr, &len, key, 255, 0, kClient)))
        return Fail("open", st);
    for (int32_t i = 10; i > 0; --i) {
        uint8_t rec[16] = {};
        std::memcpy(rec, &i, 4);
        len = sizeof(rec);
        if ((st = BTRCALLID(RM_INSERT, pos, rec, &len, key, 255, 0, kClient)))
            return Fail("insert", st);
    }
    int32_t expect = 1;
    uint8_t rec[16];
    len = sizeof(rec);
    for (st = BTRCALLID(RM_GET_FIRST, pos, rec, &len, key, 255, 0, kClient); st == RM_OK;
         st = BTRCALLID(RM_GET_NEXT, pos, rec, &len, key, 255, 0, kClient), ++expect) {
        int32_t got;
        std::memcpy(&got, rec, 4);
        if (got != expect) return Fail("order", got);
        len = sizeof(rec);
    }
    if (st != RM_END_OF_FILE || expect != 11) return Fail("walk", st);
    uint8_t stat[32];
    len = sizeof(stat);
    if ((st = BTRCALLID(RM_STAT, pos, stat, &len, key, 255, -1, kClient))) return Fail("stat", st);
    uint32_t count;
    std::memcpy(&count, stat + 6, 4);
    if (count != 10) return Fail("record count", int(count));
    len = 0;
    BTRCALLID(RM_CLOSE, pos, nullptr, &len, key, 255, 0, kClient);
    unlink(path.c_str());
    unlink((path + "-lock").c_str());
    rmdir(dir);
    std::puts("installed package works");
    return 0;
}
