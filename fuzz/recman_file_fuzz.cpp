// Record files of fuzzed bytes: a small valid record file with the input laid
// over it, then checked, opened, walked on every key and read record by
// record. Nothing may crash or hang, and every record returned must be one
// that was written.
//
// Input: patches one after another, each a 2-byte little-endian position (in
// units of 4 bytes, wrapping at the file's end), a length byte and that many
// bytes to lay over the file there.
#include <dbfile/recman.h>
#include <fcntl.h>
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

constexpr uint16_t kLength = 40;
constexpr int kRecords = 120;

std::string g_dir;
std::string g_whole;  // the valid file's bytes
std::set<std::vector<uint8_t>> g_written;
unsigned g_runs = 0;

const uint8_t* Client() {
    static std::array<uint8_t, 16> id = [] {
        std::array<uint8_t, 16> a{};
        a[14] = 'F';
        a[15] = 'F';
        return a;
    }();
    return id.data();
}

void PathKey(uint8_t* key, const std::string& path) {
    std::memset(key, 0, 255);
    std::strncpy(reinterpret_cast<char*>(key), path.c_str(), 254);
}

std::vector<uint8_t> Record(int id) {
    std::vector<uint8_t> r(kLength, 0);
    std::memcpy(r.data(), &id, 4);
    std::snprintf(reinterpret_cast<char*>(r.data() + 4), 12, "k%d", id % 7);
    for (size_t i = 16; i < kLength; ++i)
        r[i] = uint8_t(id * 13 + i);
    return r;
}

// Two keys: a unique integer (its index keeps a copy of each record) and a
// zstring with duplicates.
void MakeWhole() {
    char tmpl[] = "/tmp/recman-file-fuzz-XXXXXX";
    if (!mkdtemp(tmpl)) std::abort();
    g_dir = tmpl;
    std::string path = g_dir + "/whole.dat";
    std::vector<uint8_t> spec(16 + 32, 0);
    auto put16 = [&](size_t at, uint16_t v) { std::memcpy(&spec[at], &v, 2); };
    put16(0, kLength);
    put16(2, 4096);
    put16(4, 2);
    put16(16, 1);
    put16(18, 4);
    put16(20, RM_KEY_EXTENDED_TYPE);
    spec[26] = RM_TYPE_INTEGER;
    put16(32, 5);
    put16(34, 12);
    put16(36, RM_KEY_EXTENDED_TYPE | RM_KEY_DUPLICATES);
    spec[42] = RM_TYPE_ZSTRING;
    uint8_t key[255], pos[RM_POSITION_BLOCK_SIZE] = {};
    PathKey(key, path);
    uint32_t len = uint32_t(spec.size());
    if (BTRCALLID(RM_CREATE, nullptr, spec.data(), &len, key, 255, 0, Client())) std::abort();
    len = 0;
    if (BTRCALLID(RM_OPEN, pos, nullptr, &len, key, 255, 0, Client())) std::abort();
    for (int i = 0; i < kRecords; ++i) {
        auto r = Record((i * 37) % kRecords);
        g_written.insert(r);
        len = kLength;
        if (BTRCALLID(RM_INSERT, pos, r.data(), &len, key, 255, 0, Client())) std::abort();
    }
    BTRCALLID(RM_CLOSE, pos, nullptr, &len, key, 255, 0, Client());
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) std::abort();
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof(buf), f)) > 0;)
        g_whole.append(buf, n);
    std::fclose(f);
}

void Returned(const uint8_t* rec, uint32_t len) {
    if (!g_written.count(std::vector<uint8_t>(rec, rec + len))) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (g_whole.empty()) MakeWhole();
    std::string bytes = g_whole;
    for (size_t at = 0; at + 3 <= size;) {
        size_t where = (size_t(data[at]) | size_t(data[at + 1]) << 8) * 4 % bytes.size();
        size_t n = data[at + 2];
        at += 3;
        for (size_t i = 0; i < n && at < size; ++i, ++at)
            bytes[(where + i) % bytes.size()] = char(data[at]);
    }
    // A new file each run, so that nothing of the last one is reused.
    std::string path = g_dir + "/f" + std::to_string(g_runs++ % 2) + ".dat";
    unlink(path.c_str());
    unlink((path + "-lock").c_str());
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || write(fd, bytes.data(), bytes.size()) != ssize_t(bytes.size())) std::abort();
    close(fd);

    std::vector<std::string> problems;
    recman::CheckFile(path, problems);
    uint8_t key[255], pos[RM_POSITION_BLOCK_SIZE] = {};
    PathKey(key, path);
    uint32_t len = 0;
    if (BTRCALLID(RM_OPEN, pos, nullptr, &len, key, 255, 0, Client()) != RM_OK) return 0;
    uint8_t rec[kLength];
    for (int8_t k = 0; k < 2; ++k) {
        len = kLength;
        int16_t st = BTRCALLID(RM_GET_FIRST, pos, rec, &len, key, 255, k, Client());
        for (int steps = 0; st == RM_OK && steps < 4 * kRecords; ++steps) {
            Returned(rec, len);
            len = kLength;
            st = BTRCALLID(RM_GET_NEXT, pos, rec, &len, key, 255, k, Client());
        }
    }
    for (int id = 0; id < kRecords; id += 5) {
        std::memcpy(key, &id, 4);
        len = kLength;
        if (BTRCALLID(RM_GET_EQUAL, pos, rec, &len, key, 255, 0, Client()) == RM_OK)
            Returned(rec, len);
    }
    len = kLength;
    int16_t st = BTRCALLID(RM_STEP_FIRST, pos, rec, &len, key, 255, 0, Client());
    for (int steps = 0; st == RM_OK && steps < 4 * kRecords; ++steps) {
        Returned(rec, len);
        len = kLength;
        st = BTRCALLID(RM_STEP_NEXT, pos, rec, &len, key, 255, 0, Client());
    }
    BTRCALLID(RM_CLOSE, pos, nullptr, &len, key, 255, 0, Client());
    return 0;
}
