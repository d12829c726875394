// A program that uses the library one way and exits, for tests that watch
// what reaches the engine over a whole process: the requester is chosen once
// and the module's exit runs only at the end.
//   probe idle             touches no file
//   probe use <file>       creates, opens exclusively, inserts, reads with lock
//   probe open <file>      opens and prints the status
//   probe version          prints the version report and its answer
//   probe wait <file> <id> reads record <id> of a file keyed on its first 4
//                          bytes with lock, under the lock-wait retry; prints
//                          each attempt as the dialog shows it ("+N"), then
//                          the status and the attempts
//   probe number <dictionary> <data folder> <count> <file> <file>
//                          prints "ready", waits for a line, then inserts
//                          <count> records into the two files in turn, each
//                          numbered on insert; prints "done"
//   probe hold <data folder> <series>
//                          locks the series' record of the folder's number
//                          file, prints "locked" and waits to be killed
//   probe pack <dictionary> <file>
//                          packs the file, printing "s" as each record is
//                          copied; then "ok" or the failure
#include <dbfile/dbfile.h>
#include <dbfile/recman.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The headless host, writing down the attempt counts the dialog shows.
class CountingHost : public HeadlessUiHost {
  public:
    void SetItemInt(HWND, int item, int value) override {
        if (item != 1003) return;
        attempts += " " + std::to_string(value);
        std::printf("+%d\n", value);
        std::fflush(stdout);
    }
    std::string attempts;
};

}  // namespace

// The headless host, writing a line as each record of a pack is copied.
class PackHost : public HeadlessUiHost {
  public:
    void SetProgressPos(HWND, int, int pos) override {
        if (pos == 0) return;
        std::fputs("s\n", stdout);
        std::fflush(stdout);
    }
};

int Number(char** argv) {
    std::strncpy(g_CddFileName, argv[2], sizeof(g_CddFileName) - 1);
    CDbFile::SetDataPath(argv[3]);
    int count = std::stoi(argv[4]);
    CDbFile a(argv[5]), b(argv[6]);
    if (a.Open(nullptr, dbOpenNormal) != 0 || b.Open(nullptr, dbOpenNormal) != 0) return 3;
    std::puts("ready");
    std::fflush(stdout);
    char line[16];
    if (!std::fgets(line, sizeof(line), stdin)) return 4;
    for (int i = 0; i < count; ++i) {
        CDbFile& f = i % 2 ? b : a;
        f.SetDataLen(f.GetRcdLength());
        if (f.Insert(nullptr) != 0) return 5;  // the buffer is zeroed, then numbered
    }
    std::puts("done");
    return 0;
}

int main(int argc, char** argv) {
    std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "number" && argc > 6) return Number(argv);
    if (mode == "hold" && argc > 3) {
        CDbFile::SetDataPath(argv[2]);
        CHighWaterFile& numbers = TheNumberFile(1);
        if (!numbers.OpenNumberFile() || !numbers.GotoRecord(uint32_t(std::stoul(argv[3]))) ||
            !numbers.LockRecord())
            return 3;
        std::puts("locked");
        std::fflush(stdout);
        char line[16];
        while (std::fgets(line, sizeof(line), stdin)) {
        }
        return 0;
    }
    if (mode == "pack" && argc > 3) {
        std::strncpy(g_CddFileName, argv[2], sizeof(g_CddFileName) - 1);
        PackHost host;
        SetUiHost(&host);
        CString error;
        bool ok = CDbFile::PackAndReindex(argv[3], nullptr, nullptr, nullptr, &error, nullptr);
        std::printf("%s\n", ok ? "ok" : error.c_str());
        SetUiHost(nullptr);
        return 0;
    }
    if (mode == "idle") {
        CDbFile::SetDataPath("/tmp");
        return 0;
    }
    if (mode == "version") {
        CStringArray lines;
        int answer = CDbFile::BtrvVersion(nullptr, lines, 0);
        std::printf("%d", answer);
        for (int i = 0; i < lines.GetSize(); ++i)
            std::printf("|%s", lines[i].c_str());
        std::printf("\n");
        return 0;
    }
    if (argc < 3) return 2;
    CDbFile file(argv[2], nullptr, 1);
    file.SetErrOverride(1);
    if (mode == "open") {
        std::printf("%d\n", file.Open(nullptr, dbOpenNormal));
        return 0;
    }
    if (mode == "wait" && argc > 3) {
        CountingHost host;
        SetUiHost(&host);
        if (file.Open(nullptr, dbOpenNormal) != 0) return 4;
        int32_t id = std::stoi(argv[3]);
        file.SetKey(&id, 4, 0);
        int status = file.GetEqual(nullptr, 1, 1);
        std::printf("%d:%s\n", status, host.attempts.c_str());
        SetUiHost(nullptr);
        return 0;
    }
    if (mode != "use") return 2;
    // 8-byte records keyed on their first 4 bytes.
    uint8_t spec[32] = {};
    auto put16 = [&](int at, uint16_t v) { std::memcpy(spec + at, &v, 2); };
    put16(0, 8);     // record length
    put16(2, 4096);  // page size
    put16(4, 1);     // one key
    put16(16, 1);    // key position
    put16(18, 4);    // key length
    put16(20, RM_KEY_MODIFIABLE | RM_KEY_EXTENDED_TYPE);
    spec[26] = RM_TYPE_INTEGER;
    if (file.Create(nullptr, spec, sizeof(spec), 1) != 0) return 3;
    if (file.Open(nullptr, dbOpenExclusive) != 0) return 4;
    file.SetBrowser(1);  // the buffer goes as it stands
    file.SetDataLen(8);
    int32_t id = 7;
    std::memcpy(file.RcdBuf(), &id, 4);
    if (file.Insert(nullptr) != 0) return 5;
    file.SetKey(&id, 4, 0);
    if (file.GetEqual(nullptr, 1, 1) != 0) return 6;
    return file.Close(nullptr) == 0 ? 0 : 7;
}
