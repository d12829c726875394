// Pack and reindex: a data file rebuilt as a fresh file with the same
// description, its records copied in physical order, its indexes rebuilt,
// and the new file put in the old one's place in one atomic rename, so that
// the file under its name is whole at every moment, old or new.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dbfile/db_file.h"
#include "dbfile/pack_progress.h"
#include "engine/dbfile_app.h"
#include "platform/temp_files.h"
#include "platform/ui_host.h"
#include "recman/recman.h"

namespace {

// The pack's files run as a client of their own, so that its transactions
// neither meet nor join one the application has open.
constexpr short kPackClient = 0x7FAC;
// Records are copied in transactions of about this many bytes: one storage
// commit each rather than one per record.
constexpr size_t kBatchBytes = size_t(8) << 20;

CString Text(const char* format, int a, int b = 0) {
    CString s;
    s.Format(format, a, b);
    return s;
}

// The folder that temporary files of `path` go to: up to its last
// separator, else its last colon, else the current one.
std::string FolderOf(const Path& path) {
    int cut = path.LastSeparator();
    if (cut < 0) cut = path.ReverseFind(':');
    std::string dir = cut >= 0 ? path.Left(cut + 1).c_str() : "";
    return dir.empty() ? "." : dir;
}

// A unique name in `dir`: the file the naming makes is removed at once.
std::string TempName(const std::string& dir) {
    std::string name = UniqueTempFile(dir, "DAT");
    if (!name.empty()) ::unlink(name.c_str());
    return name;
}

// The engine's lock table beside a record file, tied to it by name only.
std::string Sidecar(const std::string& file) {
    return file + "-lock";
}

bool Durable() {
    const char* s = std::getenv("RECMAN_SYNC");
    return !(s && std::strcmp(s, "off") == 0);
}

// Hands a file's (or a folder's) written bytes to the device.
void SyncPath(const std::string& name, bool folder) {
    int fd = ::open(name.c_str(), (folder ? O_DIRECTORY : 0) | O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

// Which of the swap's renames failed, and why.
struct SwapFailure {
    int error = 0;
    bool original = false;  // the old file could not be kept under `old`
};

// Puts the record file `fresh` in the place of `path`, keeping the
// old data under `old` (a name that does not exist). The caller holds both
// files open alone, so nobody opens either until this is done and the lock
// tables beside them stay with their files: the one beside `path` serves
// the old data until the new data takes the name, then the new file's own
// table follows it at once. A crash between the two leaves a table that
// nobody holds, which the next opener builds anew.
SwapFailure SwapIn(const std::string& path, const std::string& fresh, const std::string& old,
                   const std::string& dir) {
    SwapFailure f;
    bool durable = Durable();
    // The new data reaches the device before its name does.
    if (durable) SyncPath(fresh, false);
    if (::link(path.c_str(), old.c_str()) != 0) {
        f.error = errno;
        f.original = true;
        return f;
    }
    if (::rename(fresh.c_str(), path.c_str()) != 0) {
        f.error = errno;
        ::unlink(old.c_str());  // the old file never left its name
        return f;
    }
    if (::rename(Sidecar(fresh).c_str(), Sidecar(path).c_str()) != 0)
        ::unlink(Sidecar(path).c_str());
    if (durable) SyncPath(dir, true);
    return f;
}

int Transaction(uint16_t op) {
    return TheDbFileApp().BtrvCall(op, nullptr, nullptr, nullptr, nullptr, 0, kPackClient, nullptr);
}

}  // namespace

bool CDbFile::PackAndReindex(const char* fileName, const char* folder, unsigned long* recordCount,
                             unsigned long* newSize, CString* errorText, HWND parent) {
    CString unused;
    CString& error = errorText ? *errorText : unused;
    error = "";
    if (recordCount) *recordCount = 0;
    if (newSize) *newSize = 0;
    bool failed = false;
    auto fail = [&](const CString& text) {
        failed = true;
        error = text;
    };
    try {
        Path path;
        if (folder && *folder) {
            path = folder;
            path.SetBackslash(1);
        }
        path << (fileName ? fileName : "");
        std::string dir = FolderOf(path);
        if (!path.FileExists()) fail("File does not exist.");
        std::string newName = TempName(dir), oldName = TempName(dir);
        if (newName.empty() || oldName.empty()) fail("Could not create a temp file for packing.");
        if (failed) return false;

        CDbFile source(path), fresh(path);
        fresh.SetFileName(newName.c_str(), nullptr);
        source.SetClientId(kPackClient);
        fresh.SetClientId(kPackClient);
        UiHost& ui = GetUiHost();
        CString title = "Pack and Reindex... ";
        title += path.LastComponent();
        CPackProgress progress(title);
        progress.Create(parent ? parent : ui.MainWindow());
        ui.RedrawWindow(progress.m_hWnd);
        source.SetErrOverride(1);
        fresh.SetErrOverride(1);

        unsigned long count = 0;
        // Reading and writing; any failure here leaves the original as it was.
        auto copy = [&]() -> bool {
            if (source.Open(nullptr, dbOpenExclusive) != 0) {
                fail(Text("Cannot open original file.  Btrieve Error %d.", source.GetLastError()));
                return false;
            }
            if (source.GetStatistics() != 0) {
                fail(Text("Cannot get statistics on original file.  Btrieve Error %d.",
                          source.GetLastError()));
                return false;
            }
            if (source.m_KeyBuf[0] != 0) {  // Stat named an extension file
                fail("File is extended. Cannot Pack and ReIndex.");
                return false;
            }
            // Records go over as they stand: no hooks, and no numbers drawn
            // or raised (their series already count them).
            fresh.m_nAutoIncMode = 0;
            // Held alone like the original, so that nobody can open it while
            // it takes the original's name.
            if (fresh.Create(nullptr, static_cast<char*>(nullptr)) != 0 ||
                fresh.Open(nullptr, dbOpenType(dbOpenExclusive | dbOpenCreate)) != 0) {
                fail(Text("Cannot create new file.  Btrieve Error %d.", fresh.GetLastError()));
                return false;
            }
            fresh.SetBrowser(1);
            progress.SetRange(&source);
            bool inBatch = false;
            size_t batched = 0;
            for (source.StepFirst(nullptr); source.GetLastError() == 0;) {
                ++count;
                if (!inBatch) inBatch = Transaction(RM_BEGIN_TRANSACTION + RM_CONCURRENT) == 0;
                fresh.CopyRcdData(&source);
                int st = fresh.Insert(nullptr);
                batched += fresh.GetBytesRead();
                if (st == 0 && inBatch && batched >= kBatchBytes) {
                    st = Transaction(RM_END_TRANSACTION);
                    inBatch = false;
                    batched = 0;
                }
                if (st != 0) {
                    if (inBatch) Transaction(RM_ABORT_TRANSACTION);
                    fail(Text("Btrieve error %d transferring record %d.", st, int(count)));
                    return false;
                }
                source.StepNext(nullptr);
                progress.Step();
            }
            if (inBatch) {
                if (int st = Transaction(RM_END_TRANSACTION)) {
                    fail(Text("Btrieve error %d transferring record %d.", st, int(count)));
                    return false;
                }
            }
            if (count != source.GetRcdCount()) {
                fail(
                    Text("Btrieve Error %d reading record %d.", source.GetLastError(), int(count)));
                return false;
            }
            return true;
        };
        if (!copy()) {
            source.Close(nullptr);
            fresh.CloseTemp();
            return false;
        }
        if (recordCount) *recordCount = count;

        CKeyMap keys(kKeyMapBlockSize);
        keys.InitHashTable(kKeyMapHashSize);
        source.GetKeyMap(keys, 0);
        fresh.AddKeysFromMap(keys, false);

        // Both files are closed only once the new one has the name: in
        // between, another opener would find the original free and write to
        // data about to be let go.
        SwapFailure swap = SwapIn(path.c_str(), newName, oldName, dir);
        source.Close(nullptr);
        fresh.Close(nullptr);
        if (swap.error) {
            fail(Text(swap.original ? "OS Error %d renaming original file."
                                    : "OS Error %d renaming new file.",
                      swap.error));
            return false;
        }
        struct stat sb {};
        if (newSize && ::stat(path, &sb) == 0) *newSize = uint32_t(sb.st_size);
        if (::unlink(oldName.c_str()) != 0) {
            CString text;
            text.Format("OS Error %d deleting temp file %s.", errno, oldName.c_str());
            fail(text);
            return false;
        }
        return true;
    } catch (...) {
        if (!failed) fail("Memory or Access Fault.  Exception Thrown!");
        return false;
    }
}
