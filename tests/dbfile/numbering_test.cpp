// Auto-increment numbering: series shared by files and processes, the first
// use of a series on files that already hold numbers, and number files that
// cannot be used.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <vector>

#include "dbtest.h"

namespace {

constexpr int DUPS = 0x0001, MODIF = 0x0002;

// Invoices and credit notes share series 1; invoices also number lines of a
// 2-byte series 2; history and a system file use series 1 too, and a file
// without a key on its field uses series 3.
class NumberingTest : public dbtest::DictionaryFolder {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(DictionaryFolder::SetUp());
        CDbFile::SetHistPath("hist");
        using dbtest::AddEntry;
        AddEntry(*cdd, "Inv.dat", dbFileData,
                 {{"Id", 4, dbAutoInc, 1}, {"Line", 2, dbAutoInc, 2}, {"Memo", 10, dbString}},
                 {{0, "Id", 0}, {1, "Line", DUPS | MODIF}});
        AddEntry(*cdd, "Credit.dat", dbFileData, {{"Id", 4, dbAutoInc, 1}}, {{0, "Id", 0}});
        AddEntry(*cdd, "InvHist.dat", dbFileHistory, {{"Id", 4, dbAutoInc, 1}}, {{0, "Id", 0}});
        AddEntry(*cdd, "Sys.dat", dbFileSystem, {{"Id", 4, dbAutoInc, 1}}, {{0, "Id", 0}});
        AddEntry(*cdd, "NoKey.dat", dbFileData, {{"Id", 4, dbAutoInc, 3}, {"Memo", 10, dbString}},
                 {{0, "Memo", DUPS}});
        log.Take();
    }
    void TearDown() override {
        TheNumberFile(1).CloseNumberFile(1);
        DictionaryFolder::TearDown();
    }
    // Inserts a record whose first field holds `id` (0: numbered); answers
    // the insert's status and the numbers the record got.
    static int Insert(CDbFile& f, uint32_t id, std::vector<uint32_t>* got = nullptr) {
        f.SetBrowser(1);
        f.SetDataLen(f.GetRcdLength());
        std::memset(f.RcdBuf(), 0, f.GetRcdLength());
        std::memcpy(f.RcdBuf(), &id, 4);
        int st = f.Insert(nullptr);
        uint32_t first = 0;
        uint16_t second = 0;
        std::memcpy(&first, f.RcdBuf(), 4);
        if (f.GetRcdLength() >= 6) std::memcpy(&second, f.RcdBuf() + 4, 2);
        if (got) *got = {first, second};
        return st;
    }
    static std::vector<uint32_t> Ids(CDbFile& f) {
        std::vector<uint32_t> out;
        for (int st = f.StepFirst(nullptr); st == 0; st = f.StepNext(nullptr)) {
            uint32_t id;
            std::memcpy(&id, f.RcdBuf(), 4);
            out.push_back(id);
        }
        return out;
    }
    std::string NumberFile() const { return dir.File("data/SmNumber.dat"); }
    static std::string Bytes(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
};

TEST_F(NumberingTest, SeriesStartAboveStoredNumbersAndOnlyRise) {
    CDbFile inv("Inv.dat"), hist("InvHist.dat"), sys("Sys.dat");
    for (CDbFile* f : {&inv, &hist, &sys})
        ASSERT_EQ(f->Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
    EXPECT_EQ(sys.GetAutoIncMode(), 0);  // system files take no numbers
    // Numbers chosen by the caller, then a number file made afresh: its first
    // use must find them. The system file's number is not the series'.
    std::vector<uint32_t> got;
    ASSERT_EQ(Insert(inv, 500, &got), 0);
    ASSERT_EQ(Insert(hist, 700), 0);
    ASSERT_EQ(Insert(sys, 9000), 0);
    CDbFile::SetDataPath("data");  // closes the number file
    ASSERT_EQ(std::remove(NumberFile().c_str()), 0);

    ASSERT_EQ(Insert(inv, 0, &got), 0);
    EXPECT_EQ(got[0], 701u);         // Credit.dat, not made yet, holds none
    EXPECT_EQ(got[1], 2u);           // one line was numbered before
    ASSERT_EQ(Insert(inv, 800), 0);  // raises the mark
    ASSERT_EQ(Insert(inv, 600), 0);  // leaves it
    ASSERT_EQ(Insert(inv, 0, &got), 0);
    EXPECT_EQ(got[0], 801u);
    // Records 0 to 2, little-endian, the line series' mark last.
    std::string bytes = Bytes(NumberFile());
    ASSERT_EQ(bytes.size(), 12u);
    uint32_t marks[3];
    std::memcpy(marks, bytes.data(), 12);
    EXPECT_EQ(marks[0], 0u);
    EXPECT_EQ(marks[1], 801u);
    EXPECT_EQ(marks[2], uint32_t(got[1]));

    // A 2-byte field takes the low 16 bits.
    ASSERT_EQ(TheNumberFile(1).SetNumber(2, 0x1FFFF), AI_OK);
    ASSERT_EQ(Insert(inv, 0, &got), 0);
    EXPECT_EQ(got[1], 0x0000u);
    EXPECT_EQ(Ids(inv), (std::vector<uint32_t>{500, 701, 800, 600, 801, 802}));

    // Another folder has its own number file; a file held alone starts its
    // series at 1 at least, so its first number is 2.
    CDbFile::SetDataPath("data2");
    CDbFile::SetHistPath("hist2");
    CDbFile credit("Credit.dat");
    ASSERT_EQ(credit.Open(nullptr, dbOpenType(dbOpenExclusive | dbOpenCreate)), 0);
    ASSERT_EQ(Insert(credit, 0, &got), 0);
    EXPECT_EQ(got[0], 2u);
    EXPECT_TRUE(log.Take().empty());
}

// Failures: each shows its message, the record is not added, and the
// number file stays as it was.
TEST_F(NumberingTest, FailuresShowTheirMessageAndAddNothing) {
    ::mkdir(dir.File("data").c_str(), 0777);
    ::mkdir(dir.File("ro").c_str(), 0555);  // no number file can be made there
    std::ofstream(dir.File("plain")) << "a file, not a folder";
    struct Case {
        const char* name;
        const char* file;
        std::string numberFile;  // its content before, when one is made
        const char* folder;      // the data path during the insert
        std::string message;
        bool bypassedByRoot = false;  // folder permissions do not stop root
    } cases[] = {
        {"missing folder", "Inv.dat", "", "nowhere",
         "0|Unable to open the Auto-Increment number file"},
        {"folder through a file", "Inv.dat", "", "plain/sub",
         "0|Unable to open the Auto-Increment number file"},
        {"read-only folder", "Inv.dat", "", "ro", "0|Unable to open the Auto-Increment number file",
         true},
        {"length not a multiple of 4", "Inv.dat", std::string("\0\0\0\0\7\0\0", 7), "data",
         "0|Unable to open the Auto-Increment number file"},
        {"no key on the field", "NoKey.dat", "", "data",
         "0|The file NoKey.dat does not have an index for its auto-increment field."},
    };
    dbtest::TestHost host;
    host.cancelOnAttempt = 1;  // the user gives up at once
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.bypassedByRoot && ::geteuid() == 0) continue;
        CDbFile::SetDataPath("data");
        std::remove(NumberFile().c_str());
        if (!c.numberFile.empty()) std::ofstream(NumberFile()) << c.numberFile;
        CDbFile f(c.file);
        ASSERT_EQ(f.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
        size_t before = Ids(f).size();
        CDbFile::SetDataPath(c.folder);
        EXPECT_EQ(Insert(f, 0), 5);
        EXPECT_EQ(Ids(f).size(), before);
        std::string shown = log.TakeOne();
        EXPECT_EQ(shown.rfind(c.message, 0), 0u) << shown;
        if (!c.numberFile.empty()) {
            EXPECT_EQ(Bytes(NumberFile()), c.numberFile);
        }
    }
}

// Four processes take numbers from one series for two files at once; one
// more holds a series' record and dies holding it.
TEST_F(NumberingTest, ProcessesShareASeriesWithoutGapsOrRepeats) {
    {
        CDbFile inv("Inv.dat"), credit("Credit.dat");
        ASSERT_EQ(inv.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
        ASSERT_EQ(credit.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
    }
    std::string data = dir.File("data");
    std::vector<std::unique_ptr<dbtest::Child>> children;
    for (int i = 0; i < 4; ++i)
        children.push_back(std::make_unique<dbtest::Child>(std::vector<std::string>{
            "number", g_CddFileName, data, "2000", "Inv.dat", "Credit.dat"}));
    for (auto& c : children)
        ASSERT_EQ(c->ReadLine(), "ready");
    for (auto& c : children)
        c->WriteLine("go");  // all start together
    for (auto& c : children) {
        EXPECT_EQ(c->ReadLine(), "done");
        EXPECT_EQ(c->Wait(), 0);
    }
    CDbFile inv("Inv.dat"), credit("Credit.dat");
    ASSERT_EQ(inv.Open(nullptr, dbOpenNormal), 0);
    ASSERT_EQ(credit.Open(nullptr, dbOpenNormal), 0);
    std::vector<uint32_t> all = Ids(inv), more = Ids(credit);
    all.insert(all.end(), more.begin(), more.end());
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), 8000u);
    for (uint32_t i = 0; i < all.size(); ++i)
        ASSERT_EQ(all[i], i + 1);

    // The holder is killed when this process finds the record taken: the
    // wait ends and the number follows on.
    dbtest::Child holder({"hold", data, "1"});
    ASSERT_EQ(holder.ReadLine(), "locked");
    dbtest::TestHost host;
    host.onWaitCursor = [&] { holder.Kill(); };
    uint32_t next = 0;
    EXPECT_EQ(TheNumberFile(1).GetNextNumber(1, next), AI_OK);
    EXPECT_EQ(next, 8001u);
    EXPECT_GE(host.waitCursors, 1);
}

}  // namespace
