// Fixed-record text files on real files: counting, reading, changing in
// place, adding, ordered insertion and the failure paths.
#include <dbfile/dbfile.h>
#include <gtest/gtest.h>

#include <string>

#include "textfile/scratch_dir.h"

namespace {

std::string Spaces(int n) {
    return std::string(size_t(n), ' ');
}

class TextFileTest : public ::testing::Test {
  protected:
    ScratchDir dir;
};

TEST_F(TextFileTest, WholeRecordsCountAndAShortLastOneDoesNot) {
    std::string bytes;
    for (int i = 0; i < 100; ++i)
        bytes += char('a' + i % 26);
    CTextFile f;
    EXPECT_EQ(f.Open(dir.Write("t.dat", bytes).c_str(), 30), 1);
    EXPECT_EQ(f.RcdCount(), 3u);
    EXPECT_EQ(f.FileSize(), 100u);
    EXPECT_EQ(f.RcdNum(), 1u);
    EXPECT_EQ(f.GetRecord().str(), bytes.substr(0, 30));
    EXPECT_EQ(f.Goto(3), 1);
    EXPECT_EQ(f.GetRecord().str(), bytes.substr(60, 30));
    EXPECT_EQ(f.Goto(4), 0);
    EXPECT_EQ(f.GetRecord().str(), Spaces(30));
    EXPECT_EQ(f.RcdNum(), 0u);
    EXPECT_EQ(f.Goto(0), 0);
}

TEST_F(TextFileTest, NextPastTheEndFailsThenStartsOver) {
    CTextFile f;
    ASSERT_EQ(f.Open(dir.Write("t.dat", "AABBCC").c_str(), 2), 1);
    EXPECT_EQ(f.Next(), 1);
    EXPECT_EQ(f.Next(), 1);
    EXPECT_EQ(f.GetRecord(), "CC");
    EXPECT_EQ(f.Next(), 0);
    EXPECT_EQ(f.RcdNum(), 0u);
    EXPECT_EQ(f.Next(), 1);
    EXPECT_EQ(f.GetRecord(), "AA");
}

TEST_F(TextFileTest, EmptyAndSingleRecordFiles) {
    std::string path = dir.Write("empty.dat", "");
    {
        CTextFile f;
        EXPECT_EQ(f.Open(path.c_str(), 4), 0);  // opens, but has no record 1
        EXPECT_TRUE(f.IsOpen());
        EXPECT_EQ(f.RcdCount(), 0u);
        EXPECT_EQ(f.GetRecord().str(), Spaces(4));
        EXPECT_EQ(f.Insert("WXYZ", 1), 0);  // ordered insertion needs a record to start at
        EXPECT_EQ(f.Add("only"), 1);
        EXPECT_EQ(f.RcdNum(), 1u);
        f.Close();
        EXPECT_FALSE(f.IsOpen());
    }
    EXPECT_EQ(ScratchDir::Read(path), "only");
    CTextFile f;
    EXPECT_EQ(f.Open(path.c_str(), 4), 1);
    EXPECT_EQ(f.RcdCount(), 1u);
    EXPECT_EQ(f.Next(), 0);
}

TEST_F(TextFileTest, LineEndsArePartOfTheRecord) {
    CTextFile f;
    ASSERT_EQ(f.Open(dir.Write("t.dat", "AB\r\nCD\r\n").c_str(), 4), 1);
    EXPECT_EQ(f.RcdCount(), 2u);
    EXPECT_EQ(f.Next(), 1);
    EXPECT_EQ(f.GetRecord(), "CD\r\n");
}

TEST_F(TextFileTest, CreateTakesTheRecordSizeFromTheFirstRecord) {
    Path path(dir.Path("new.dat").c_str());
    ZString first(std::string(79, 'x') + "\n");
    CTextFile f;
    ASSERT_EQ(f.Create(path, first), 1);
    EXPECT_EQ(f.RcdSize(), 80u);
    EXPECT_EQ(f.RcdCount(), 1u);
    EXPECT_EQ(f.Add(std::string(79, 'y') + "\n"), 1);
    EXPECT_EQ(f.RcdNum(), 2u);
    f.Close();
    EXPECT_EQ(ScratchDir::Read(path.c_str()), first.str() + std::string(79, 'y') + "\n");

    ZString none;
    EXPECT_EQ(f.Create(path, none), 0);  // no record, no record size
    EXPECT_FALSE(f.IsOpen());
}

TEST_F(TextFileTest, FieldsAreCutChangedInPlaceAndWrittenBack) {
    // Number 0-3, name 5-14, amount 15-20, date 22-27, then LF: 29 bytes.
    auto line = [](const char* id, const char* name, const char* amount, const char* date) {
        char out[64];
        std::snprintf(out, sizeof(out), "%s %-10s%6s %6s\n", id, name, amount, date);
        return std::string(out);
    };
    std::string path = dir.Write("t.dat", line("0001", "Smith", "12.50", "991231") +
                                              line("0002", "Jones", "-3.25", "290101") +
                                              line("0003", "Brown", "0.00", ""));
    {
        CTextFile f;
        ASSERT_EQ(f.Open(path.c_str(), 29), 1);
        ASSERT_EQ(f.Goto(2), 1);
        CString name;
        f.GetString(5, 10, name);
        EXPECT_EQ(name, "Jones");
        EXPECT_EQ(f.GetInt(0, 4), 2);
        EXPECT_DOUBLE_EQ(f.GetDouble(15, 6), -3.25);
        EXPECT_EQ(f.GetDate(22), Date(2029, 1, 1).Value());
        f.ReplMid(5, 10, "Johnson");
        f.ReplMid(15, 6, "  7.75");
        EXPECT_EQ(f.Write(), 1);
        ASSERT_EQ(f.Goto(3), 1);
        EXPECT_EQ(f.GetDate(22), 0u);  // a blank date
        ASSERT_EQ(f.Goto(1), 1);
        EXPECT_EQ(f.GetDate(22), (31u | 12u << 8 | 1999u << 16));
    }
    EXPECT_EQ(ScratchDir::Read(path), line("0001", "Smith", "12.50", "991231") +
                                          line("0002", "Johnson", "7.75", "290101") +
                                          line("0003", "Brown", "0.00", ""));
}

TEST_F(TextFileTest, ReplMidPadsWithSpacesAndRefusesSpansOutsideTheRecord) {
    CTextFile f;
    ASSERT_EQ(f.Open(dir.Write("t.dat", "XXXXXXXX").c_str(), 8), 1);
    f.ReplMid(0, 5, "ab");
    EXPECT_EQ(f.GetRecord(), "ab   XXX");
    f.ReplMid(6, 2, "longer than the span");
    EXPECT_EQ(f.GetRecord(), "ab   Xlo");
    f.ReplMid(3, 0, "ignored");
    EXPECT_EQ(f.GetRecord(), "ab   Xlo");
    f.ReplMid(7, 2, "QR");  // may end one past the record; nothing lands there
    EXPECT_EQ(f.GetRecord(), "ab   XlQ");
    EXPECT_THROW(f.ReplMid(-1, 2, "a"), int);
    EXPECT_THROW(f.ReplMid(7, 3, "a"), int);
    EXPECT_THROW(f.ReplMid(2147483000, 2147483000, "a"), int);
    EXPECT_EQ(f.GetRecord(), "ab   XlQ");
}

TEST_F(TextFileTest, InsertKeepsTheFileInOrder) {
    std::string path = dir.Write("t.dat", "ABD");
    {
        CTextFile f;
        ASSERT_EQ(f.Open(path.c_str(), 1), 1);
        EXPECT_EQ(f.Insert("C", 1), 1);
        EXPECT_EQ(f.Insert("E", 2), 1);  // larger than all: goes last
        EXPECT_EQ(f.Insert("0", 1), 1);  // smaller than all: goes first
        EXPECT_EQ(f.Insert("Z", 9), 0);  // no record 9 to start at
    }
    EXPECT_EQ(ScratchDir::Read(path), "0ABCDE");

    // Records before n are left alone, even when out of order.
    path = dir.Write("u.dat", "zz10aa30");
    CTextFile f;
    ASSERT_EQ(f.Open(path.c_str(), 2), 1);
    EXPECT_EQ(f.Insert("20", 2), 1);
    f.Close();
    EXPECT_EQ(ScratchDir::Read(path), "zz102030aa");
}

TEST_F(TextFileTest, AddWritesAfterTheLastRecordReadAndFitsTheRecordSize) {
    std::string path = dir.Write("t.dat", "1111222233334444");
    {
        CTextFile f;
        ASSERT_EQ(f.Open(path.c_str(), 4), 1);
        EXPECT_EQ(f.Add("x"), 1);  // after record 1: replaces record 2
        EXPECT_EQ(f.RcdNum(), 2u);
        EXPECT_EQ(f.GetRecord(), "x   ");
        ASSERT_EQ(f.Goto(4), 1);
        EXPECT_EQ(f.Add("555566"), 1);  // after the last: appends, cut to size
        EXPECT_EQ(f.RcdNum(), 5u);
        EXPECT_EQ(f.RcdCount(), 5u);
    }
    EXPECT_EQ(ScratchDir::Read(path), "1111x   333344445555");
}

TEST_F(TextFileTest, ManyRecordsAcrossBufferBlocks) {
    // 7-byte records never line up with the file's blocks.
    Path path(dir.Path("big.dat").c_str());
    ZString first("000000\n");
    CTextFile f;
    ASSERT_EQ(f.Create(path, first), 1);
    const int n = 60000;
    char rec[8];
    for (int i = 1; i < n; ++i) {
        std::snprintf(rec, sizeof(rec), "%06d\n", i);
        ASSERT_EQ(f.Add(rec), 1);
    }
    EXPECT_EQ(f.RcdCount(), unsigned(n));
    for (int i : {n, 1, 9363, 9362, 18725, 40000, n / 2}) {
        ASSERT_EQ(f.Goto(unsigned(i)), 1);
        EXPECT_EQ(f.GetInt(0, 6), i - 1);
    }
    // Rewrite records here and there, then read every record in order.
    for (int i = 5; i <= n; i += 9361) {
        ASSERT_EQ(f.Goto(unsigned(i)), 1);
        f.ReplMid(0, 6, "999999");
        ASSERT_EQ(f.Write(), 1);
    }
    int read = 0;
    for (int ok = f.Goto(1); ok; ok = f.Next()) {
        ++read;
        int expected = (read - 5) % 9361 == 0 && read >= 5 ? 999999 : read - 1;
        ASSERT_EQ(f.GetInt(0, 6), expected) << "record " << read;
    }
    EXPECT_EQ(read, n);
    f.Close();
    EXPECT_EQ(ScratchDir::Read(path.c_str()).size(), size_t(n) * 7);
}

TEST_F(TextFileTest, OpenByFolderNameAndExtension) {
    dir.Write("rates.txt", "abc");
    CTextFile f;
    EXPECT_EQ(f.Open(dir.Dir().c_str(), "rates", "txt", 3), 1);
    EXPECT_EQ(f.GetFileName(), "rates.txt");
    EXPECT_EQ(f.GetFileTitle(), "rates");
    EXPECT_EQ(f.GetFilePath(), dir.Path("rates.txt").c_str());
    EXPECT_EQ(f.Open((dir.Dir() + "/").c_str(), "rates.", "txt", 3), 1);
    EXPECT_EQ(f.Open(dir.Dir().c_str(), "rates.txt", 3), 1);
    EXPECT_EQ(f.Open(dir.Dir().c_str(), "rates", "csv", 3), 0);
    EXPECT_FALSE(f.IsOpen());
    EXPECT_EQ(f.GetFileName(), "");
}

TEST_F(TextFileTest, RefusedOpensAndAClosedFileAnswerZero) {
    std::string path = dir.Write("t.dat", "abcdef");
    CTextFile f;
    EXPECT_EQ(f.Open(dir.Path("missing/t.dat").c_str(), 2), 0);
    EXPECT_EQ(f.Open(dir.Dir().c_str(), 2), 0);  // a folder
    EXPECT_EQ(f.Open(path.c_str(), 0), 0);
    EXPECT_EQ(f.Open(path.c_str(), CTextFile::kMaxRecordSize + 1), 0);
    EXPECT_FALSE(f.IsOpen());
    EXPECT_EQ(f.Goto(1), 0);
    EXPECT_EQ(f.Next(), 0);
    EXPECT_EQ(f.Write(), 0);
    EXPECT_EQ(f.Add("ab"), 0);
    EXPECT_EQ(f.Insert("ab", 1), 0);
    EXPECT_EQ(f.RcdCount(), 0u);
    EXPECT_EQ(f.FileSize(), 0u);
    f.ClearRcd();
    EXPECT_EQ(f.GetRecord(), "");
    EXPECT_EQ(f.GetInt(0, 5), 0);
    EXPECT_NO_THROW(f.Close());
}

TEST_F(TextFileTest, AnOpenFileIsHeldExclusively) {
    std::string path = dir.Write("t.dat", "abcdef");
    CTextFile first, second;
    ASSERT_EQ(first.Open(path.c_str(), 2), 1);
    EXPECT_EQ(second.Open(path.c_str(), 2), 0);
    EXPECT_FALSE(second.IsOpen());
    CDelimFile reader;
    EXPECT_EQ(reader.Open(path.c_str()), 0);
    first.Close();
    EXPECT_EQ(second.Open(path.c_str(), 2), 1);
}

TEST_F(TextFileTest, CopiesShareTheFileUntilTheLastOneCloses) {
    std::string path = dir.Write("t.dat", "aabbcc");
    CTextFile other;
    {
        CTextFile f;
        ASSERT_EQ(f.Open(path.c_str(), 2), 1);
        CTextFile copy(f);
        other = copy;
        EXPECT_EQ(copy.GetRecord(), "aa");
        f.Close();
        EXPECT_FALSE(f.IsOpen());
        EXPECT_EQ(copy.Goto(2), 1);
        EXPECT_EQ(copy.GetRecord(), "bb");
    }
    EXPECT_TRUE(other.IsOpen());
    EXPECT_EQ(other.Goto(3), 1);
    CTextFile again;
    EXPECT_EQ(again.Open(path.c_str(), 2), 0);  // still held by the last copy
    other.Close();
    EXPECT_EQ(again.Open(path.c_str(), 2), 1);
}

TEST_F(TextFileTest, WriteFailuresAreReported) {
    // Every write to /dev/full fails: records that fill a block fail their
    // Add, and the last ones fail at Close.
    {
        CTextFile f;
        if (f.Open("/dev/full", 100) == 0 && !f.IsOpen()) GTEST_SKIP() << "no /dev/full";
        int failed = 0;
        for (int i = 0; i < 2000 && !failed; ++i)
            if (!f.Add(std::string(100, 'x'))) failed = i + 1;
        EXPECT_GT(failed, 0);
        EXPECT_TRUE(f.IsOpen());
    }  // going quietly

    CTextFile g;
    ASSERT_EQ(g.Open("/dev/full", 10), 0);
    EXPECT_EQ(g.Add("0123456789"), 1);  // still in the buffer
    EXPECT_THROW(g.Close(), CFileException);
    EXPECT_FALSE(g.IsOpen());
}

}  // namespace
