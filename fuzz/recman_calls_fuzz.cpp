// The record manager's entry point fed sequences of calls with fuzzed
// operations, buffers, lengths, key numbers, create specs and extended
// descriptors, by two clients over three position blocks and a few files.
// Every call answers a status the engine knows, and every input ends with
// both clients reset; a file's consistency check must find nothing wrong
// whatever the calls did.
#include <dbfile/recman.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "recman/check.h"

namespace {

std::string g_dir;
std::array<std::string, 4> g_paths;  // a.dat (filled), b.dat, c.dat, a missing one
unsigned g_runs = 0;

const std::set<int> kStatuses = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 18,
                                 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 37, 39, 43, 45,
                                 46, 48, 49, 50, 51, 55, 59, 60, 62, 65, 80, 84, 88, 93};

std::array<uint8_t, 16> Client(int n) {
    std::array<uint8_t, 16> id{};
    id[14] = 'F';
    id[15] = uint8_t(n);
    return id;
}

void PathKey(uint8_t* key, const std::string& path) {
    std::memset(key, 0, 255);
    std::strncpy(reinterpret_cast<char*>(key), path.c_str(), 254);
}

// a.dat: 40-byte variable-length records; key 0 a unique integer, key 1 a
// case-insensitive zstring with duplicates, key 2 two segments (a packed
// decimal and a descending date), key 3 an autoincrement.
std::vector<uint8_t> BaseSpec() {
    std::vector<uint8_t> s(16 + 16 * 5, 0);
    auto put16 = [&](size_t at, uint16_t v) { std::memcpy(&s[at], &v, 2); };
    put16(0, 40);
    put16(2, 4096);
    put16(4, 4);
    put16(10, RM_FILE_VAR_LENGTH);
    auto seg = [&](int i, uint16_t pos, uint16_t len, uint16_t flags, uint8_t type) {
        size_t at = 16 + 16 * size_t(i);
        put16(at, pos);
        put16(at + 2, len);
        put16(at + 4, flags | RM_KEY_EXTENDED_TYPE);
        s[at + 10] = type;
    };
    seg(0, 1, 4, 0, RM_TYPE_INTEGER);
    seg(1, 5, 12, RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE | RM_KEY_CASE_INSENSITIVE, RM_TYPE_ZSTRING);
    seg(2, 17, 4, RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE | RM_KEY_SEGMENTED, RM_TYPE_DECIMAL);
    seg(3, 21, 4, RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE | RM_KEY_DESCENDING, RM_TYPE_DATE);
    seg(4, 25, 4, 0, RM_TYPE_AUTOINCREMENT);
    return s;
}

void MakeBaseFile() {
    std::vector<uint8_t> spec = BaseSpec();
    uint8_t key[255];
    PathKey(key, g_paths[0]);
    auto id = Client(9);
    uint32_t len = uint32_t(spec.size());
    if (BTRCALLID(RM_CREATE, nullptr, spec.data(), &len, key, 255, RM_CREATE_REPLACE, id.data()))
        std::abort();
    uint8_t pos[RM_POSITION_BLOCK_SIZE] = {};
    len = 0;
    if (BTRCALLID(RM_OPEN, pos, nullptr, &len, key, 255, 0, id.data())) std::abort();
    for (int i = 0; i < 20; ++i) {
        uint8_t rec[40] = {};
        std::memcpy(rec, &i, 4);
        std::snprintf(reinterpret_cast<char*>(rec + 4), 12, "name%d", i % 5);
        rec[19] = 0x0C;  // packed decimal +0
        rec[20] = uint8_t(1 + i % 28);
        rec[21] = 1;
        rec[22] = 0xE8;
        rec[23] = 0x07;
        len = 40;
        if (BTRCALLID(RM_INSERT, pos, rec, &len, key, 255, 0, id.data())) std::abort();
    }
    len = 0;
    BTRCALLID(RM_CLOSE, pos, nullptr, &len, key, 255, 0, id.data());
}

void Setup() {
    setenv("RECMAN_SYNC", "off", 1);
    setenv("RECMAN_LOCK_WAIT_MS", "0", 1);
    setenv("RECMAN_MAP_RESERVE_MB", "8", 1);
    char tmpl[] = "/tmp/recman-fuzz-XXXXXX";
    if (!mkdtemp(tmpl)) std::abort();
    g_dir = tmpl;
    g_paths = {g_dir + "/a.dat", g_dir + "/b.dat", g_dir + "/c.dat", g_dir + "/none/x.dat"};
    MakeBaseFile();
}

// Operation codes worth sending, with their biases; a raw value now and then.
uint16_t PickOp(FuzzedDataProvider& in) {
    static const uint16_t kOps[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11,
                                    12, 13, 14, 15, 19, 20, 21, 22, 23, 24, 26, 27,
                                    29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 1019};
    switch (in.ConsumeIntegralInRange<int>(0, 9)) {
        case 0:
            return in.ConsumeIntegral<uint16_t>();
        case 1:
        case 2: {
            uint16_t base = kOps[in.ConsumeIntegralInRange<size_t>(0, 34)];
            return uint16_t(base + 100 * in.ConsumeIntegralInRange<int>(1, 4));
        }
        case 3:
            return uint16_t(55 + in.ConsumeIntegralInRange<int>(0, 8));
        default:
            return kOps[in.ConsumeIntegralInRange<size_t>(0, sizeof(kOps) / 2 - 1)];
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (g_dir.empty()) Setup();
    // Now and then the base file starts again from its first state, so that
    // runs do not make it grow without end.
    if (++g_runs % 256 == 0) MakeBaseFile();
    FuzzedDataProvider in(data, size);
    std::array<std::array<uint8_t, RM_POSITION_BLOCK_SIZE>, 3> blocks{};
    std::array<int, 3> owner{0, 1, 0};  // the client each block belongs to
    std::vector<uint8_t> buf;
    for (int calls = 0; calls < 48 && in.remaining_bytes() > 0; ++calls) {
        uint16_t op = PickOp(in);
        size_t b = in.ConsumeIntegralInRange<size_t>(0, 2);
        auto id = Client(owner[b]);
        int8_t keyNum = in.ConsumeIntegral<int8_t>();
        uint8_t key[255];
        std::vector<uint8_t> keyBytes = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange(0, 40));
        std::memset(key, 0, sizeof(key));
        if (!keyBytes.empty()) std::memcpy(key, keyBytes.data(), keyBytes.size());
        uint16_t base = op % 100;
        if (base == RM_OPEN || base == RM_CREATE) {
            // Names only within the fuzzer's folder.
            size_t which = in.ConsumeIntegralInRange<size_t>(0, g_paths.size() - 1);
            if (base == RM_CREATE && which == 0) which = 1;  // a.dat stays as made
            PathKey(key, g_paths[which]);
        }
        size_t cap = in.ConsumeIntegralInRange<size_t>(0, 1200);
        buf = in.ConsumeBytes<uint8_t>(cap);
        buf.resize(cap);
        uint32_t len = in.ConsumeIntegralInRange<uint32_t>(0, uint32_t(cap));
        bool nullData = cap == 0 && in.ConsumeBool();
        int st = BTRCALLID(op, in.ConsumeIntegralInRange(0, 15) ? blocks[b].data() : nullptr,
                           nullData ? nullptr : buf.data(), &len, key, 255, keyNum, id.data());
        // Every answer is one of the engine's statuses, and never claims more
        // data than the buffer holds.
        if (!kStatuses.count(st) || len > cap) {
            std::fprintf(stderr, "operation %u answered %d with length %u of %zu\n", op, st, len,
                         cap);
            std::abort();
        }
    }
    for (int c = 0; c < 2; ++c) {
        auto id = Client(c);
        uint32_t len = 0;
        BTRCALLID(RM_RESET, nullptr, nullptr, &len, nullptr, 255, 0, id.data());
    }
    std::vector<std::string> problems;
    if (recman::CheckFile(g_paths[0], problems) != RM_OK || !problems.empty()) {
        std::fprintf(stderr, "a.dat damaged: %s\n", problems.empty() ? "" : problems[0].c_str());
        std::abort();
    }
    return 0;
}
