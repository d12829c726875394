// Any bytes as one comma-separated line: the splitter must stay inside the
// line and answer fields that end at a NUL within it. The same bytes as a
// whole file must read backwards as they read forwards.
#include <dbfile/dbfile.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "textfile/delim_split.h"

namespace {

// One file for every input of the run, removed when the run ends.
const std::string& ScratchFile() {
    static const std::string path = "/tmp/dbfile-delim-fuzz-" + std::to_string(getpid()) + ".csv";
    static const int removed = std::atexit([] { unlink(path.c_str()); });
    (void)removed;
    return path;
}

void CheckSplit(const uint8_t* data, size_t size) {
    std::string line(reinterpret_cast<const char*>(data), size);
    std::vector<unsigned> starts;
    int n = SplitDelimitedLine(line.data(), int(line.size()), starts);
    if (n != int(starts.size())) __builtin_trap();
    // Each field starts after a NUL (its separator or opening quote), or is
    // the empty field after a trailing comma, which starts on that NUL.
    for (unsigned s : starts) {
        bool ok = s < line.size() &&
                  (s == 0 || line[s - 1] == '\0' || (s + 1 == line.size() && line[s] == '\0'));
        if (!ok) __builtin_trap();
    }
}

void CheckFile(const uint8_t* data, size_t size) {
    static const std::string& path = ScratchFile();
    FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) return;
    std::fwrite(data, 1, size, out);
    std::fclose(out);
    CDelimFile f;
    if (!f.Open(path.c_str())) return;
    std::vector<std::string> forwards, backwards;
    for (int ok = f.Top(); ok; ok = f.Next()) {
        forwards.push_back(f.GetLine().str());
        for (int i = 1; i <= f.FieldCnt(); ++i)
            (void)f.Field(i);
    }
    // Splitting left NULs in the last line; it is read again from the top.
    f.Top();
    if (f.Bottom()) {
        backwards.push_back(f.GetLine().str());
        while (f.Prev())
            backwards.push_back(f.GetLine().str());
    }
    if (std::vector<std::string>(backwards.rbegin(), backwards.rend()) != forwards)
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1 << 16) return 0;
    CheckSplit(data, size);
    CheckFile(data, size);
    return 0;
}
