// The library's buffered file: what is read is what was written, wherever
// the block buffer happens to stand, and failures raise.
#include <dbfile/dbfile.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>
#include <string>

#include "textfile/scratch_dir.h"

namespace {

constexpr unsigned kRw = CFile::modeReadWrite | CFile::shareExclusive | CFile::typeBinary;

TEST(CFileTest, RandomReadsAndWritesMatchAPlainCopy) {
    ScratchDir dir;
    std::string path = dir.Write("f.bin", std::string(150000, '.'));
    std::string model(150000, '.');
    CFile f;
    ASSERT_TRUE(f.Open(path.c_str(), kRw));
    std::mt19937 rng(7);
    for (int i = 0; i < 3000; ++i) {
        uint64_t at = rng() % 200000;
        unsigned n = 1 + rng() % (i % 50 == 0 ? 140000 : 300);
        f.Seek(int64_t(at), CFile::begin);
        if (rng() % 2) {
            std::string bytes(n, char('A' + i % 26));
            f.Write(bytes.data(), n);
            if (model.size() < at + n) model.resize(at + n, '\0');
            model.replace(at, n, bytes);
            ASSERT_EQ(f.GetPosition(), at + n);
        } else {
            std::string got(n, '?');
            got.resize(f.Read(got.data(), n));
            ASSERT_EQ(got, at < model.size() ? model.substr(at, n) : "") << "read " << i;
        }
        ASSERT_EQ(f.GetLength(), model.size());
    }
    f.Close();
    EXPECT_EQ(ScratchDir::Read(path), model);
}

TEST(CFileTest, FlushHandsTheBytesToTheSystem) {
    ScratchDir dir;
    std::string path = dir.Path("f.bin");
    CFile f;
    ASSERT_TRUE(f.Open(path.c_str(), kRw | CFile::modeCreate));
    f.Write("abc", 3);
    EXPECT_EQ(ScratchDir::Read(path), "");
    f.Flush();
    EXPECT_EQ(ScratchDir::Read(path), "abc");
}

TEST(CFileTest, FailuresRaise) {
    ScratchDir dir;
    CFile f;
    CFileException error(CFileException::none, 0, "", "");
    EXPECT_FALSE(f.Open(dir.Path("none/f.bin").c_str(), kRw | CFile::modeCreate, &error));
    EXPECT_EQ(error.m_cause, CFileException::fileNotFound);
    EXPECT_NE(std::string(error.what()).find("none/f.bin"), std::string::npos);
    char c;
    EXPECT_THROW(f.Read(&c, 1), CFileException);
    EXPECT_THROW(f.Write("x", 1), CFileException);
    EXPECT_THROW(f.Seek(0, CFile::begin), CFileException);
    ASSERT_TRUE(f.Open(dir.Write("f.bin", "abc").c_str(), kRw));
    EXPECT_THROW(f.Seek(-4, CFile::end), CFileException);
    EXPECT_EQ(f.Seek(-1, CFile::end), 2u);
    CFile second;
    EXPECT_FALSE(
        second.Open(dir.Path("f.bin").c_str(), CFile::modeRead | CFile::shareDenyNone, &error));
    EXPECT_EQ(error.m_cause, CFileException::sharingViolation);
}

TEST(CFileTest, APipeIsNoFile) {
    ScratchDir dir;
    std::string path = dir.Path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    CFile f;
    EXPECT_FALSE(f.Open(path.c_str(), CFile::modeRead | CFile::shareDenyNone));  // no hang
    CXmlParser x;
    EXPECT_FALSE(x.LoadXMLDocument(path.c_str()));
}

TEST(CFileTest, CreateOnAHeldFileLeavesItAlone) {
    ScratchDir dir;
    std::string path = dir.Write("f.bin", "keep");
    CFile holder, other;
    ASSERT_TRUE(holder.Open(path.c_str(), CFile::modeRead | CFile::shareDenyNone));
    EXPECT_FALSE(other.Open(path.c_str(), kRw | CFile::modeCreate));
    EXPECT_EQ(ScratchDir::Read(path), "keep");
}

TEST(CStdioFileTest, LinesOfEveryLength) {
    ScratchDir dir;
    std::string longLine(200000, 'z');
    std::string path = dir.Write("t.txt", "a\r\n\nb\rc\n" + longLine + "\r\nend");
    CStdioFile f;
    ASSERT_TRUE(f.Open(path.c_str(), CFile::modeRead | CFile::typeText | CFile::shareDenyNone));
    CString line;
    ASSERT_TRUE(f.ReadString(line));
    EXPECT_EQ(line, "a");
    ASSERT_TRUE(f.ReadString(line));
    EXPECT_EQ(line, "");
    ASSERT_TRUE(f.ReadString(line));
    EXPECT_EQ(line, "b\rc");  // a lone CR is no line end
    ASSERT_TRUE(f.ReadString(line));
    EXPECT_EQ(line.str(), longLine);
    ASSERT_TRUE(f.ReadString(line));
    EXPECT_EQ(line, "end");
    EXPECT_FALSE(f.ReadString(line));
    EXPECT_EQ(line, "");

    ASSERT_TRUE(f.Open(path.c_str(), CFile::modeRead | CFile::typeBinary | CFile::shareDenyNone));
    ASSERT_TRUE(f.ReadString(line));
    EXPECT_EQ(line, "a\r");  // binary mode keeps the CR
}

// Two handles sharing a file through byte-range locks, as the number file's
// holders do: a held range is refused to the other at once, and the lock
// drops a stale buffer, so the next holder reads what the last one wrote.
TEST(CFileTest, RangeLocksRefuseOthersAndShowTheirWrites) {
    ScratchDir dir;
    std::string path = dir.Write("n.dat", std::string(8, '\0'));
    constexpr unsigned kShared = CFile::modeReadWrite | CFile::shareDenyNone | CFile::typeBinary;
    CFile a, b;
    ASSERT_TRUE(a.Open(path.c_str(), kShared));
    ASSERT_TRUE(b.Open(path.c_str(), kShared));
    char got[4] = {};
    b.Seek(4, CFile::begin);
    ASSERT_EQ(b.Read(got, 4), 4u);  // b's buffer now holds the old bytes

    a.LockRange(4, 4);
    try {
        b.LockRange(6, 1);
        ADD_FAILURE() << "the range is a's";
    } catch (const CFileException& e) {
        EXPECT_EQ(e.m_cause, CFileException::lockViolation);
    }
    b.LockRange(0, 4);  // the bytes beside it are free
    a.Seek(4, CFile::begin);
    a.Write("7777", 4);
    a.SetLength(12);
    a.UnlockRange(4, 4);  // written out before it is let go

    b.LockRangeWait(4, 4);
    b.Seek(4, CFile::begin);
    ASSERT_EQ(b.Read(got, 4), 4u);
    EXPECT_EQ(std::string(got, 4), "7777");
    EXPECT_EQ(b.GetLength(), 12u);
}

}  // namespace
