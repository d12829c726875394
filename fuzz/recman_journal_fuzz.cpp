// Recovery fed journals of fuzzed bytes. Two record files a.dat and b.dat
// live in a folder of the fuzzer's own; each input becomes the journal beside
// a.dat, and both files are opened, which settles it. The first byte says
// how: the rest as it is; the rest given the checksum and commit record it
// lacks; or a journal over both files built from the rest around their real
// last commit and counters, so that its changes are replayed. Nothing may
// crash, and a journal that does not read as committed leaves both files
// exactly as they were.
#include <dbfile/recman.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "recman/bytes.h"
#include "recman/check.h"
#include "recman/fileenv.h"
#include "recman/journal.h"

namespace {

std::string g_dir;
std::array<std::string, 2> g_paths;
std::array<uint8_t, 16> g_client{};
// Each file's last commit and counters, as made; and a handle kept open on
// each between rebuilds, so that opens find the storage open already.
std::array<uint64_t, 2> g_baseTxn{};
std::array<std::string, 2> g_baseState;
std::array<std::array<uint8_t, RM_POSITION_BLOCK_SIZE>, 2> g_held{};

void PathKey(uint8_t* key, const std::string& path) {
    std::memset(key, 0, 255);
    std::strncpy(reinterpret_cast<char*>(key), path.c_str(), 254);
}

// The last commit and counters of a file nobody has open.
bool BaseOf(const std::string& path, uint64_t& txn, std::string& state) {
    std::unique_ptr<recman::FileEnv> env;
    if (recman::FileEnv::Open(path, env)) return false;
    recman::Txn read;
    recman::FileState s;
    if (env->Snapshot(read) || env->LoadState(read, s)) return false;
    txn = read.Id();
    state = s.Serialize();
    return true;
}

// Each file: 16-byte records, key 0 a unique integer; five records.
void MakeFiles() {
    for (auto& pos : g_held) {
        uint32_t none = 0;
        BTRCALLID(RM_CLOSE, pos.data(), nullptr, &none, nullptr, 255, 0, g_client.data());
    }
    uint8_t spec[32] = {};
    spec[0] = 16;
    spec[3] = 16;  // page size 4096
    spec[4] = 1;
    spec[16] = 1;
    spec[18] = 4;
    recman::StoreLe16(spec + 20, RM_KEY_EXTENDED_TYPE);
    spec[26] = RM_TYPE_INTEGER;
    for (const std::string& p : g_paths) {
        uint8_t key[255];
        PathKey(key, p);
        uint32_t len = sizeof(spec);
        if (BTRCALLID(RM_CREATE, nullptr, spec, &len, key, 255, RM_CREATE_REPLACE, g_client.data()))
            std::abort();
        uint8_t pos[RM_POSITION_BLOCK_SIZE] = {};
        len = 0;
        if (BTRCALLID(RM_OPEN, pos, nullptr, &len, key, 255, 0, g_client.data())) std::abort();
        for (uint32_t i = 1; i <= 5; ++i) {
            uint8_t rec[16] = {};
            recman::StoreLe32(rec, i);
            len = 16;
            if (BTRCALLID(RM_INSERT, pos, rec, &len, key, 255, 0, g_client.data())) std::abort();
        }
        BTRCALLID(RM_CLOSE, pos, nullptr, &len, key, 255, 0, g_client.data());
    }
    for (size_t f = 0; f < 2; ++f) {
        if (!BaseOf(g_paths[f], g_baseTxn[f], g_baseState[f])) std::abort();
        uint8_t key[255];
        PathKey(key, g_paths[f]);
        uint32_t len = 0;
        if (BTRCALLID(RM_OPEN, g_held[f].data(), nullptr, &len, key, 255, 0, g_client.data()))
            std::abort();
    }
}

// Every record of a file, or a status.
std::string Image(const std::string& path) {
    uint8_t key[255], pos[RM_POSITION_BLOCK_SIZE] = {};
    PathKey(key, path);
    uint32_t len = 0;
    if (int st = BTRCALLID(RM_OPEN, pos, nullptr, &len, key, 255, 0, g_client.data()))
        return "status " + std::to_string(st);
    std::string out;
    uint8_t rec[512];
    len = sizeof(rec);
    for (int st = BTRCALLID(RM_STEP_FIRST, pos, rec, &len, key, 255, 0, g_client.data());
         st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT;
         st = BTRCALLID(RM_STEP_NEXT, pos, rec, &len, key, 255, 0, g_client.data())) {
        out.append(reinterpret_cast<char*>(rec), len);
        len = sizeof(rec);
    }
    BTRCALLID(RM_CLOSE, pos, nullptr, &len, key, 255, 0, g_client.data());
    return out;
}

// Gives a body its checksum and a commit record, as a writer would.
std::string MadeWhole(const uint8_t* data, size_t size) {
    std::string body(reinterpret_cast<const char*>(data), size);
    if (body.size() < 8) return body;
    body.resize(body.size() - 8);
    uint8_t crc[8];
    recman::StoreLe64(crc, recman::Crc64(body.data(), body.size()));
    body.append(reinterpret_cast<char*>(crc), 8);
    recman::JournalId id{};
    if (body.size() >= 24) std::memcpy(id.data(), body.data() + 8, id.size());
    return body + recman::EncodeCommitRecord(id, body);
}

// A journal over both files: their real base (now and then off by a little),
// and changes of every kind, mostly of plausible shapes.
std::string Built(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    recman::Journal j;
    auto idBytes = in.ConsumeBytes<uint8_t>(16);
    if (!idBytes.empty()) std::memcpy(j.id.data(), idBytes.data(), idBytes.size());
    for (int f = 0; f < 2; ++f) {
        recman::JournalFile jf;
        jf.rel = f ? "b.dat" : "a.dat";
        jf.up = ".";
        jf.baseTxn = g_baseTxn[size_t(f)];
        jf.baseState = g_baseState[size_t(f)];
        jf.baseTxn += uint64_t(
            in.ConsumeIntegralInRange<int>(0, 4) == 0 ? in.ConsumeIntegralInRange<int>(-2, 2) : 0);
        if (in.ConsumeIntegralInRange<int>(0, 7) == 0)
            jf.baseState = in.ConsumeBytesAsString(in.ConsumeIntegralInRange<size_t>(0, 40));
        int changes = in.ConsumeIntegralInRange<int>(0, 6);
        for (int c = 0; c < changes; ++c) {
            recman::Change ch;
            ch.put = in.ConsumeBool();
            ch.db = recman::ChangeDb(in.ConsumeIntegralInRange<int>(0, 2));
            ch.index = in.ConsumeBool() ? 1 : in.ConsumeIntegralInRange<uint16_t>(0, 3);
            std::string key, value;
            if (ch.db == recman::ChangeDb::Meta && in.ConsumeBool())
                key = "state";
            else if (ch.db != recman::ChangeDb::Meta && in.ConsumeBool())
                key = in.ConsumeBytesAsString(4);  // an address, or an integer key's sort form
            else
                key = in.ConsumeBytesAsString(in.ConsumeIntegralInRange<size_t>(0, 300));
            if (ch.db == recman::ChangeDb::Meta && in.ConsumeBool())
                value = jf.baseState;
            else if (ch.db != recman::ChangeDb::Meta && in.ConsumeBool())
                // A record's header (version, no sequences) or an entry's
                // address, then the record's bytes.
                value = std::string(ch.db == recman::ChangeDb::Records ? 5 : 8, '\0') +
                        in.ConsumeBytesAsString(16);
            else
                value = in.ConsumeBytesAsString(in.ConsumeIntegralInRange<size_t>(0, 64));
            ch.key = reinterpret_cast<const uint8_t*>(key.data());
            ch.keyLen = uint16_t(key.size());
            ch.value = reinterpret_cast<const uint8_t*>(value.data());
            ch.valueLen = uint32_t(value.size());
            recman::AppendChange(jf.changes, ch);
        }
        j.files.push_back(std::move(jf));
    }
    std::string body = recman::EncodeJournalBody(j);
    return body + recman::EncodeCommitRecord(j.id, body);
}

void Setup() {
    setenv("RECMAN_SYNC", "off", 1);
    setenv("RECMAN_MAP_RESERVE_MB", "8", 1);
    char tmpl[] = "/tmp/recman-jfuzz-XXXXXX";
    if (!mkdtemp(tmpl)) std::abort();
    g_dir = tmpl;
    g_paths = {g_dir + "/a.dat", g_dir + "/b.dat"};
    g_client[15] = 'J';
    MakeFiles();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (g_dir.empty()) Setup();
    if (size < 1) return 0;
    std::string bytes;
    switch (data[0] % 3) {
        case 0:
            bytes.assign(reinterpret_cast<const char*>(data + 1), size - 1);
            break;
        case 1:
            bytes = MadeWhole(data + 1, size - 1);
            break;
        default:
            bytes = Built(data + 1, size - 1);
    }
    std::string before[2] = {Image(g_paths[0]), Image(g_paths[1])};
    std::ofstream(g_paths[0] + "-journal0", std::ios::binary) << bytes;
    std::string after[2] = {Image(g_paths[0]), Image(g_paths[1])};
    std::vector<std::string> problems;
    recman::CheckFile(g_paths[0], problems);
    recman::Journal j;
    bool committed = recman::DecodeJournal(reinterpret_cast<const uint8_t*>(bytes.data()),
                                           bytes.size(), j) == recman::JournalState::Committed;
    if (!committed && (after[0] != before[0] || after[1] != before[1])) {
        std::fprintf(stderr, "a journal never committed changed a file\n");
        std::abort();
    }
    // A journal that applied leaves files to start again from.
    if (after[0] != before[0] || after[1] != before[1]) MakeFiles();
    ::unlink((g_paths[0] + "-journal0").c_str());
    return 0;
}
