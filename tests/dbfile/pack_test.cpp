// Pack and reindex: records and key orders survive, the file shrinks, the
// failures it names, a pack killed at any moment; records copied between
// layouts and generated test records.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "dbtest.h"
#include "resources/dialogs.h"

namespace {

constexpr int DUPS = 0x0001, MODIF = 0x0002, NOCASE = 0x0400;

// Customers: Id numbered from series 1 (key 0), Name (key 1, any case),
// Town (key 2) and a memo.
class PackTest : public dbtest::DictionaryFolder {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(DictionaryFolder::SetUp());
        ASSERT_EQ(
            dbtest::AddEntry(*cdd, "Cust.dat", dbFileData,
                             {{"Id", 4, dbAutoInc, 1},
                              {"Name", 12, dbString},
                              {"Town", 10, dbZString},
                              {"Memo", 30, dbZString}},
                             {{0, "Id", 0}, {1, "Name", DUPS | MODIF | NOCASE}, {2, "Town", DUPS}}),
            0);
    }
    void TearDown() override {
        TheNumberFile(1).CloseNumberFile(1);
        DictionaryFolder::TearDown();
    }
    // `n` customers, every third one deleted again; an index of the engine's
    // own on the memo.
    void Fill(int n) {
        CDbFile f("Cust.dat");
        ASSERT_EQ(f.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
        const char* towns[] = {"Oslo", "lima", "Bern", "Quito", "Rome"};
        for (int i = 0; i < n; ++i) {
            f.SetBrowser(1);
            f.SetDataLen(f.GetRcdLength());
            std::memset(f.RcdBuf(), 0, f.GetRcdLength());
            std::snprintf(f.RcdBuf() + 4, 12, "%s%d", i % 2 ? "ann" : "Bob", (i * 7919) % 97);
            std::strcpy(f.RcdBuf() + 16, towns[i % 5]);
            std::snprintf(f.RcdBuf() + 26, 30, "memo %d", (i * 31) % 50);
            ASSERT_EQ(f.Insert(nullptr), 0);
        }
        for (int st = f.StepFirst(nullptr), i = 0; st == 0; st = f.StepNext(nullptr), ++i)
            if (i % 3 == 0) {
                ASSERT_EQ(f.Delete(nullptr), 0);
            }
        EXPECT_EQ(f.CreateNdx(3, 0, -1), 3);
        EXPECT_EQ(f.GetLastError(), 0);
    }
    // Every key's order of records, and the records in physical order.
    std::map<int, std::vector<std::string>> Snapshot() {
        std::map<int, std::vector<std::string>> out;
        CDbFile f("Cust.dat");
        f.SetErrOverride(1);
        if (f.Open(nullptr, dbOpenReadOnly) != 0) return out;
        auto record = [&] { return std::string(f.RcdBuf(), f.GetBytesRead()); };
        for (int st = f.StepFirst(nullptr); st == 0; st = f.StepNext(nullptr))
            out[-1].push_back(record());
        for (int key = 0; key < 4; ++key) {
            f.SetKey(key);
            for (int st = f.GetFirst(nullptr); st == 0; st = f.GetNext(nullptr))
                out[key].push_back(record());
        }
        return out;
    }
    // Names in the folder that a pack may leave behind.
    std::vector<std::string> Leftovers() {
        std::vector<std::string> out;
        if (DIR* d = opendir(dir.File("data").c_str())) {
            while (dirent* e = readdir(d))
                if (std::strncmp(e->d_name, "DAT", 3) == 0) out.push_back(e->d_name);
            closedir(d);
        }
        return out;
    }
    static long Size(const std::string& p) {
        struct stat sb;
        return ::stat(p.c_str(), &sb) == 0 ? long(sb.st_size) : -1;
    }

    std::string path = dir.File("data/Cust.dat");
};

TEST_F(PackTest, RecordsAndKeyOrdersSurviveAndTheFileShrinks) {
    Fill(3000);
    {
        // Key 1 dropped and made again from the dictionary.
        CDbFile f("Cust.dat");
        ASSERT_EQ(f.Open(nullptr, dbOpenNormal), 0);
        ASSERT_EQ(f.DropNdx(1), 1);
        CArraySKeyField name;
        SKeyField field{1, 0};
        name.Add(field);
        EXPECT_EQ(f.CreateNdx(name, 1, true), 1);
        ASSERT_EQ(f.GetLastError(), 0);
    }
    auto before = Snapshot();
    ASSERT_EQ(before[-1].size(), 2000u);
    long sizeBefore = Size(path);
    unsigned long count = 0, newSize = 0;
    CString error;
    ASSERT_TRUE(CDbFile::PackAndReindex("Cust.dat", dir.File("data").c_str(), &count, &newSize,
                                        &error, nullptr))
        << error.c_str();
    EXPECT_STREQ(error.c_str(), "");
    EXPECT_EQ(count, 2000u);
    EXPECT_EQ(long(newSize), Size(path));
    EXPECT_LT(long(newSize), sizeBefore);
    EXPECT_EQ(Snapshot(), before);
    EXPECT_EQ(rmtest::Problem(path), "");
    EXPECT_TRUE(Leftovers().empty());
    // No number was drawn or raised: the series goes on from the last one.
    uint32_t next = 0;
    EXPECT_EQ(TheNumberFile(1).GetNextNumber(1, next), AI_OK);
    EXPECT_EQ(next, 3001u);
    EXPECT_TRUE(log.Take().empty());
}

TEST_F(PackTest, FailuresAreReportedAndLoseNothing) {
    Fill(30);
    auto before = Snapshot();
    CDbFile holder("Cust.dat");
    struct Case {
        const char* name;
        const char* file;
        std::string folder;
        bool hold;  // the file is open elsewhere
        bool ok;
        const char* error;
    } cases[] = {
        {"missing file", "None.dat", dir.File("data"), false, false, "File does not exist."},
        {"missing folder", "Cust.dat", dir.File("nowhere"), false, false,
         "Could not create a temp file for packing."},
        {"open elsewhere", "Cust.dat", dir.File("data"), true, false,
         "Cannot open original file.  Btrieve Error 88."},
        {"nothing wrong", "Cust.dat", dir.File("data"), false, true, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.hold) {
            ASSERT_EQ(holder.Open(nullptr, dbOpenNormal), 0);
        }
        unsigned long count = 99;
        CString error;
        EXPECT_EQ(
            CDbFile::PackAndReindex(c.file, c.folder.c_str(), &count, nullptr, &error, nullptr),
            c.ok);
        EXPECT_STREQ(error.c_str(), c.error);
        EXPECT_EQ(count, c.ok ? 20u : 0u);
        holder.Close(nullptr);
        EXPECT_EQ(Snapshot(), before);
        EXPECT_TRUE(Leftovers().empty());
    }
    EXPECT_TRUE(log.Take().empty());  // failures are answered, not shown
}

// A pack killed at a random moment, again and again: the file under its name
// is whole every time, old or new.
TEST_F(PackTest, KilledPackLeavesTheFileWhole) {
    const int kRecords = 150;
    Fill(kRecords * 3 / 2);
    auto before = Snapshot();
    std::mt19937 rng(std::random_device{}());
    unsigned seed = rng();
    SCOPED_TRACE("seed " + std::to_string(seed));
    rng.seed(seed);
    for (int round = 0; round < 50; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        // A third of the kills come once the last record is copied, while
        // the indexes are rebuilt and the files change places.
        int killAfter = rng() % 3 ? int(rng() % kRecords) : kRecords;
        dbtest::Child pack({"pack", g_CddFileName, path});
        for (int steps = 0; steps < killAfter; ++steps)
            if (pack.ReadLine() != "s") break;
        pack.Kill();
        auto now = Snapshot();
        ASSERT_EQ(now, before);
        ASSERT_EQ(rmtest::Problem(path), "");
        for (const std::string& name : Leftovers())
            std::remove(dir.File("data/" + name).c_str());
    }
}

// Each destination field takes the source field of its name in any case:
// bytes when type and length agree, a shorter text cut and ended, an
// auto-increment number as an integer; anything else stays zero.
TEST(CopyTest, FieldsFollowTheTypeRules) {
    struct Counting : CDbFile {
        Counting() : CDbFile("copy.dat", nullptr, 1) {}
        void OnReadRecord() override { ++reads; }
        int reads = 0;
    };
    Counting src, dst;
    dbtest::Describe(src,
                     {{"Name", 30, dbZString},
                      {"Qty", 4, dbFloat},
                      {"Id", 4, dbAutoInc},
                      {"Code", 6, dbString},
                      {"Flag", 1, dbBoolean}},
                     {});
    dbtest::Describe(dst,
                     {{"Flag", 1, dbBoolean},
                      {"nAME", 20, dbZString},
                      {"QTY", 4, dbInteger},
                      {"id", 4, dbUnsigned},
                      {"code", 8, dbString},
                      {"Other", 4, dbInteger}},
                     {});
    src.DummyData("abc");  // text repeated, numbers drawn, the number zero
    EXPECT_EQ(std::string(src.RcdBuf(), 30), "abcabcabcabcabcabcabcabcabcab" + std::string(1, 0));
    EXPECT_EQ(std::string(src.RcdBuf() + 38, 6), "abcabc");
    EXPECT_EQ(std::string(src.RcdBuf() + 34, 4), std::string(4, '\0'));
    uint32_t id = 4711;
    std::memcpy(src.RcdBuf() + 34, &id, 4);
    src.RcdBuf()[44] = 1;
    dst.DummyData("zz");
    ASSERT_EQ(src.CopyTo(&dst), 1);
    EXPECT_EQ(dst.reads, 2);  // after each fill
    const char* b = dst.RcdBuf();
    EXPECT_EQ(b[0], 1);
    EXPECT_EQ(std::string(b + 1, 20), std::string("abcabcabcabcabcabcab", 19) + '\0');
    EXPECT_EQ(std::string(b + 21, 4), std::string(4, '\0'));  // a float is no integer
    EXPECT_EQ(std::memcmp(b + 25, &id, 4), 0);
    EXPECT_EQ(std::string(b + 29, 12), std::string(12, '\0'));  // other length; no source
}

// The headless host draws the pack's bar on standard error when that is a
// terminal, and writes nothing to a pipe or a log.
TEST(PackProgressBar, DrawnOnATerminalOnly) {
    // What a child writes on standard error while its bar goes to half way.
    auto drawn = [](bool terminal) {
        int readFd = -1, childFd = -1;
        if (terminal) {
            readFd = posix_openpt(O_RDWR | O_NOCTTY);
            if (readFd < 0 || grantpt(readFd) != 0 || unlockpt(readFd) != 0)
                return std::string("no pty");
            childFd = open(ptsname(readFd), O_RDWR | O_NOCTTY);
        } else {
            int fds[2];
            if (pipe(fds) != 0) return std::string("no pipe");
            readFd = fds[0];
            childFd = fds[1];
        }
        pid_t pid = fork();
        if (pid == 0) {
            dup2(childFd, 2);
            HeadlessUiHost host;
            HWND dialog = host.CreateDialog(dbfile::kPackProgressDialog, nullptr, nullptr);
            host.SetItemText(dialog, 1004, "Pack and Reindex... Cust.dat");
            host.SetProgressRange(dialog, 1005, 0, 10);
            host.SetProgressPos(dialog, 1005, 5);
            host.DestroyWindow(dialog);
            _exit(0);
        }
        close(childFd);
        waitpid(pid, nullptr, 0);
        std::string out;
        fcntl(readFd, F_SETFL, O_NONBLOCK);
        char buf[256];
        for (ssize_t n; (n = read(readFd, buf, sizeof(buf))) > 0;)
            out.append(buf, size_t(n));
        close(readFd);
        return out;
    };
    std::string bar = std::string(20, '#') + std::string(20, '.');
    EXPECT_NE(drawn(true).find("Pack and Reindex... Cust.dat [" + bar + "]  50%"),
              std::string::npos);
    EXPECT_EQ(drawn(false), "");
}

}  // namespace
