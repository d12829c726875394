#include "rm_util.h"

#include "recman/check.h"

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace rmtest {

std::string ReadAll(const std::string& p) {
    std::ifstream f(p, std::ios::binary);
    std::ostringstream out;
    out << f.rdbuf();
    return out.str();
}

void WriteAll(const std::string& p, const std::string& s) {
    std::ofstream f(p, std::ios::binary | std::ios::trunc);
    f << s;
}

void Put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
void Put32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = uint8_t(v >> (8 * i));
}
uint16_t Get16(const uint8_t* p) {
    return uint16_t(p[0] | (p[1] << 8));
}
uint32_t Get32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

std::vector<uint8_t> Spec(uint16_t recordLength, const std::vector<Key>& keys, uint16_t fileFlags,
                          uint16_t pageSize) {
    size_t segs = 0;
    for (const Key& k : keys)
        segs += k.size();
    std::vector<uint8_t> s(16 + 16 * segs, 0);
    Put16(s.data(), recordLength);
    Put16(s.data() + 2, pageSize);
    Put16(s.data() + 4, uint16_t(keys.size()));
    Put16(s.data() + 10, fileFlags);
    uint8_t* p = s.data() + 16;
    for (const Key& k : keys) {
        for (size_t i = 0; i < k.size(); ++i, p += 16) {
            const Seg& g = k[i];
            Put16(p, g.pos);
            Put16(p + 2, g.len);
            Put16(p + 4, uint16_t(g.flags | (i + 1 < k.size() ? RM_KEY_SEGMENTED : 0)));
            p[10] = g.type;
            p[11] = g.nullValue;
            p[14] = g.number;
        }
    }
    return s;
}

std::vector<uint8_t> Numbered(uint32_t id, uint16_t length) {
    std::vector<uint8_t> r(length, 0);
    Put32(r.data(), id);
    std::string name = "n" + std::to_string(id % 97);
    std::memcpy(r.data() + 4, name.data(), name.size());
    for (size_t i = 20; i < length; ++i)
        r[i] = uint8_t(id * 131 + i * 7 + 1);
    return r;
}

std::vector<uint8_t> NumberedSpec(uint16_t length, uint16_t fileFlags) {
    constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE;
    return Spec(length,
                {{{1, 4, EXT, RM_TYPE_INTEGER}},
                 {{5, 16, EXT | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE, RM_TYPE_ZSTRING}}},
                fileFlags);
}

std::array<uint8_t, 16> ClientId(uint16_t number) {
    std::array<uint8_t, 16> id{};
    id[12] = 'T';
    id[13] = 'S';
    id[14] = uint8_t(number);
    id[15] = uint8_t(number >> 8);
    return id;
}

bool OnServer() {
    const char* s = std::getenv("RECMAN_SERVER");
    return s && *s;
}

TempDir::TempDir() {
    std::string base = std::filesystem::temp_directory_path().string() + "/rmtest-XXXXXX";
    std::vector<char> tmpl(base.begin(), base.end());
    tmpl.push_back(0);
    if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
    path_ = tmpl.data();
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string Image(const std::string& path) {
    Handle h(77);
    if (h.Open(path)) return "unopenable";
    std::string out;
    std::vector<uint8_t> rec;
    for (int st = h.Get(RM_STEP_FIRST, 0, rec); st == RM_OK; st = h.Get(RM_STEP_NEXT, 0, rec)) {
        uint32_t a;
        h.Position(a);
        out += std::to_string(a) + ":" + std::string(rec.begin(), rec.end()) + ";";
    }
    std::vector<uint8_t> stat;
    h.Stat(stat);
    return out + std::string(stat.begin(), stat.end());
}

Pipe::Pipe() {
    if (pipe(fd) != 0) std::abort();
}

Pipe::~Pipe() {
    close(fd[0]);
    close(fd[1]);
}

void Pipe::Send(char c) {
    if (write(fd[1], &c, 1) != 1) std::abort();
}

char Pipe::Wait() {
    char c = 0;
    if (read(fd[0], &c, 1) != 1) std::abort();
    return c;
}

int ExitCode(pid_t pid) {
    int status;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

pid_t Child(const std::function<int()>& body) {
    pid_t pid = fork();
    if (pid == 0) _exit(body());
    return pid;
}

int16_t Txn(uint16_t op, const uint8_t* clientId) {
    return BTRCALLID(op, nullptr, nullptr, nullptr, nullptr, 255, 0, clientId);
}

int16_t Txn(uint16_t op, uint16_t client) {
    auto id = ClientId(client);
    return Txn(op, id.data());
}

std::string Problem(const std::string& path) {
    std::vector<std::string> problems;
    int st = recman::CheckFile(path, problems);
    if (st) return "the check answers " + std::to_string(st);
    return problems.empty() ? "" : problems.front();
}

int16_t CreateFile(const std::string& path, const std::vector<uint8_t>& spec, int8_t mode) {
    uint8_t key[255] = {};
    std::strncpy(reinterpret_cast<char*>(key), path.c_str(), 254);
    uint32_t len = uint32_t(spec.size());
    auto id = ClientId(0);
    return BTRCALLID(RM_CREATE, nullptr, const_cast<uint8_t*>(spec.data()), &len, key, 255, mode,
                     id.data());
}

Handle::~Handle() {
    if (open_) Close();
}

int16_t Handle::Call(uint16_t op, void* data, uint32_t* len, void* key, int8_t keyNum) {
    return BTRCALLID(op, pos_, data, len, key, 255, keyNum, client_.data());
}

int16_t Handle::Open(const std::string& path, int8_t mode, const char* owner) {
    uint8_t key[255] = {};
    std::strncpy(reinterpret_cast<char*>(key), path.c_str(), 254);
    uint32_t len = owner ? uint32_t(std::strlen(owner) + 1) : 0;
    int16_t st = Call(RM_OPEN, const_cast<char*>(owner), &len, key, mode);
    if (st == RM_OK) open_ = true;
    return st;
}

int16_t Handle::Close() {
    uint32_t len = 0;
    int16_t st = Call(RM_CLOSE, nullptr, &len, key_, 0);
    if (st == RM_OK) open_ = false;
    return st;
}

int16_t Handle::Insert(std::vector<uint8_t>& rec, int8_t keyNum) {
    uint32_t len = uint32_t(rec.size());
    return Call(RM_INSERT, rec.data(), &len, key_, keyNum);
}

int16_t Handle::Update(std::vector<uint8_t>& rec, int8_t keyNum) {
    uint32_t len = uint32_t(rec.size());
    return Call(RM_UPDATE, rec.data(), &len, key_, keyNum);
}

int16_t Handle::Delete() {
    uint32_t len = 0;
    return Call(RM_DELETE, nullptr, &len, key_, 0);
}

int16_t Handle::Get(uint16_t op, int8_t keyNum, std::vector<uint8_t>& rec, uint8_t* key,
                    uint32_t bufLen) {
    rec.assign(bufLen, 0);
    uint32_t len = bufLen;
    int16_t st = Call(op, rec.data(), &len, key ? key : key_, keyNum);
    rec.resize(st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT ? len : 0);
    return st;
}

int16_t Handle::Position(uint32_t& address) {
    uint8_t buf[4] = {};
    uint32_t len = 4;
    int16_t st = Call(RM_GET_POSITION, buf, &len, key_, 0);
    address = Get32(buf);
    return st;
}

int16_t Handle::Direct(uint32_t address, int8_t keyNum, std::vector<uint8_t>& rec, uint16_t lock) {
    rec.assign(70000, 0);
    Put32(rec.data(), address);
    uint32_t len = uint32_t(rec.size());
    int16_t st = Call(uint16_t(RM_GET_DIRECT + lock), rec.data(), &len, key_, keyNum);
    rec.resize(st == RM_OK || st == RM_DATA_BUFFER_TOO_SHORT ? len : 0);
    return st;
}

int16_t Handle::Stat(std::vector<uint8_t>& out) {
    out.assign(16 + 16 * 255, 0);
    uint32_t len = uint32_t(out.size());
    int16_t st = Call(RM_STAT, out.data(), &len, key_, -1);
    out.resize(st == RM_OK ? len : 0);
    return st;
}

int16_t Handle::RecordCount(uint32_t& count) {
    std::vector<uint8_t> s;
    int16_t st = Stat(s);
    count = st == RM_OK ? Get32(s.data() + 6) : 0;
    return st;
}

std::vector<uint32_t> Handle::Walk(int8_t keyNum) {
    std::vector<uint32_t> out;
    std::vector<uint8_t> rec;
    for (int st = Get(RM_GET_FIRST, keyNum, rec); st == RM_OK; st = Get(RM_GET_NEXT, keyNum, rec)) {
        uint32_t a = 0;
        Position(a);
        out.push_back(a);
    }
    return out;
}

}  // namespace rmtest
