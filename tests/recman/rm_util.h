// Helpers for driving the record manager from tests: create specs, handles,
// temporary folders.
#pragma once

#include <dbfile/recman.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace rmtest {

struct Seg {
    uint16_t pos;  // from 1
    uint16_t len;
    uint16_t flags;
    uint8_t type = 0;
    uint8_t nullValue = 0;
    uint8_t number = 0;  // byte 14, used with RM_FILE_KEY_NUMBERS
};

using Key = std::vector<Seg>;

// A create spec: file spec then the keys' segments; the segment-follows flag
// is set on every segment but a key's last.
std::vector<uint8_t> Spec(uint16_t recordLength, const std::vector<Key>& keys,
                          uint16_t fileFlags = 0, uint16_t pageSize = 4096);

// Records of `length` bytes (20 at least) for tests that need many: the id
// at 0 (key 0, an integer), a name at 4 (key 1, zstring[16], duplicates),
// then bytes made from the id. The create spec of a file of them.
std::vector<uint8_t> Numbered(uint32_t id, uint16_t length);
std::vector<uint8_t> NumberedSpec(uint16_t length, uint16_t fileFlags = 0);

void Put16(uint8_t* p, uint16_t v);
void Put32(uint8_t* p, uint32_t v);
uint16_t Get16(const uint8_t* p);
uint32_t Get32(const uint8_t* p);

// A client id block with the given client number in its last two bytes.
std::array<uint8_t, 16> ClientId(uint16_t number);

// Whether the engine keeps its files on a server (RECMAN_SERVER), where a
// path names a file in the server's catalogue rather than on disk.
bool OnServer();

// A fresh folder under the system's temporary directory, removed afterwards.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

int16_t CreateFile(const std::string& path, const std::vector<uint8_t>& spec,
                   int8_t mode = RM_CREATE_REPLACE);

// Everything a reader can see of a file: records by address, and Stat.
std::string Image(const std::string& path);

// A pipe a child and its parent signal each other through, one byte at a time.
struct Pipe {
    int fd[2];
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void Send(char c = 1);
    char Wait();
};

// Waits for the child; its exit code, or 128 + the signal that ended it.
int ExitCode(pid_t pid);

// Runs `body` in a child process, which exits with what it answers.
pid_t Child(const std::function<int()>& body);

// Begin, End or Abort Transaction, or Reset, for a client.
int16_t Txn(uint16_t op, uint16_t client);
int16_t Txn(uint16_t op, const uint8_t* clientId);

// A file's bytes; writing replaces them.
std::string ReadAll(const std::string& path);
void WriteAll(const std::string& path, const std::string& bytes);

// The first problem the consistency check finds in a file, or "" when none.
std::string Problem(const std::string& path);

// One open handle of one client.
class Handle {
  public:
    explicit Handle(uint16_t client = 0) : client_(ClientId(client)) {}
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    int16_t Open(const std::string& path, int8_t mode = RM_OPEN_NORMAL,
                 const char* owner = nullptr);
    int16_t Close();
    bool IsOpen() const { return open_; }

    // Raw call with this handle's position block and client.
    int16_t Call(uint16_t op, void* data, uint32_t* len, void* key, int8_t keyNum);

    int16_t Insert(std::vector<uint8_t>& rec, int8_t keyNum = 0);
    int16_t Update(std::vector<uint8_t>& rec, int8_t keyNum = -1);
    int16_t Delete();
    // A read into `rec` (resized to what came back); `key` is in and out.
    int16_t Get(uint16_t op, int8_t keyNum, std::vector<uint8_t>& rec, uint8_t* key = nullptr,
                uint32_t bufLen = 70000);
    int16_t Position(uint32_t& address);
    int16_t Direct(uint32_t address, int8_t keyNum, std::vector<uint8_t>& rec, uint16_t lock = 0);
    int16_t Stat(std::vector<uint8_t>& out);
    int16_t RecordCount(uint32_t& count);
    // The addresses of the records in the order of a key, walked with Get First and Get Next.
    std::vector<uint32_t> Walk(int8_t keyNum);

    uint8_t* key() { return key_; }
    const uint8_t* client() const { return client_.data(); }
    uint8_t* pos() { return pos_; }

  private:
    std::array<uint8_t, 16> client_;
    uint8_t pos_[RM_POSITION_BLOCK_SIZE] = {};
    uint8_t key_[255] = {};
    bool open_ = false;
};

}  // namespace rmtest
