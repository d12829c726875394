// Comma-separated text files: splitting lines into fields, reading forwards
// and backwards, positions and line numbers.
#include <dbfile/dbfile.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "textfile/delim_split.h"
#include "textfile/scratch_dir.h"

namespace {

std::vector<std::string> Split(std::string line) {
    std::vector<unsigned> starts;
    int n = SplitDelimitedLine(line.data(), int(line.size()), starts);
    std::vector<std::string> out;
    for (int i = 0; i < n; ++i)
        out.emplace_back(line.c_str() + starts[size_t(i)]);
    return out;
}

using Fields = std::vector<std::string>;

TEST(DelimSplitTest, FieldsCommasAndQuotes) {
    EXPECT_EQ(Split("a,,b"), (Fields{"a", "", "b"}));
    EXPECT_EQ(Split(","), (Fields{"", ""}));
    EXPECT_EQ(Split("a,"), (Fields{"a", ""}));
    EXPECT_EQ(Split(""), Fields{});
    EXPECT_EQ(Split("\"x, y\",z"), (Fields{"x, y", "z"}));
    EXPECT_EQ(Split("\"unterminated, still one"), Fields{"unterminated, still one"});
    // Doubled quotes are not an escape: they stay as they are.
    EXPECT_EQ(Split("\"say \"\"hi\"\"\",next"), (Fields{"say \"\"hi\"\"", "next"}));
    // A quote ends the field only before a comma or at the end.
    EXPECT_EQ(Split("\"5\" pipe\",x"), (Fields{"5\" pipe", "x"}));
    EXPECT_EQ(Split("a,\"b\""), (Fields{"a", "b"}));
    EXPECT_EQ(Split("\"\",x"), (Fields{"", "x"}));
    EXPECT_EQ(Split(" a , b "), (Fields{" a ", " b "}));
    // A lone quote opens a field with nothing in it.
    EXPECT_EQ(Split("\""), Fields{});
    EXPECT_EQ(Split("a,\""), Fields{"a"});
    std::string many(199, ',');
    EXPECT_EQ(Split(many).size(), 200u);
}

class DelimFileTest : public ::testing::Test {
  protected:
    ScratchDir dir;

    // Every line read forwards from the top, then backwards from the bottom.
    void ReadBothWays(const std::string& bytes, Fields& forwards, Fields& backwards) {
        CDelimFile f;
        ASSERT_EQ(f.Open(dir.Write("both.csv", bytes).c_str()), 1);
        forwards.clear();
        backwards.clear();
        for (int ok = f.Top(); ok; ok = f.Next()) {
            forwards.push_back(f.GetLine().str());
            ASSERT_EQ(f.GetRecNo(), int(forwards.size()));
        }
        if (!f.Bottom()) return;
        backwards.push_back(f.GetLine().str());
        int line = f.GetRecNo();
        while (f.Prev()) {
            backwards.push_back(f.GetLine().str());
            ASSERT_EQ(f.GetRecNo(), --line);
        }
        EXPECT_EQ(f.GetRecNo(), 1);
    }

    void ExpectSameBothWays(const std::string& bytes) {
        Fields forwards, backwards;
        ReadBothWays(bytes, forwards, backwards);
        std::reverse(backwards.begin(), backwards.end());
        EXPECT_EQ(forwards, backwards);

        // From a position set by hand just after line j, Prev reads line
        // j - 1 (line 1 when j is 1), looking backwards from there alone.
        CDelimFile f;
        ASSERT_EQ(f.Open(dir.Path("both.csv").c_str()), 1);
        std::vector<unsigned long> ends;
        for (int ok = f.Top(); ok; ok = f.Next())
            ends.push_back(f.GetPosition());
        for (size_t j = 1; j <= ends.size(); ++j) {
            f.SetPosition(ends[j - 1]);
            ASSERT_TRUE(f.Prev()) << "after line " << j;
            ASSERT_EQ(f.GetLine().str(), forwards[j >= 2 ? j - 2 : 0]) << "after line " << j;
        }
    }
};

TEST_F(DelimFileTest, LinesAreTrimmedAndSplitOnDemand) {
    CDelimFile f;
    ASSERT_EQ(
        f.Open(dir.Write("a.csv", "  id, name ,amount \r\n1,\"Smith, J\",12.5\n\n,\n").c_str()), 1);
    EXPECT_EQ(f.GetRecNo(), 0);
    ASSERT_EQ(f.Next(), 1);
    EXPECT_EQ(f.GetLine(), "id, name ,amount");
    EXPECT_EQ(f.FieldCnt(), 3);
    EXPECT_STREQ(f.Field(2), " name ");
    ASSERT_EQ(f.Next(), 1);
    EXPECT_STREQ(f.Field(2), "Smith, J");
    EXPECT_STREQ(f.Field(3), "12.5");
    // Split in place: separators and quotes became NULs, the length stays.
    EXPECT_EQ(f.GetLine().str(), std::string("1\0\0Smith, J\0\0"
                                             "12.5",
                                             17));
    ASSERT_EQ(f.Next(), 1);
    EXPECT_EQ(f.FieldCnt(), 0);
    EXPECT_EQ(f.GetRecNo(), 3);
    ASSERT_EQ(f.Next(), 1);
    EXPECT_EQ(f.FieldCnt(), 2);
    EXPECT_EQ(f.Next(), 0);
    EXPECT_EQ(f.GetRecNo(), 4);
}

TEST_F(DelimFileTest, FieldNumbersOutsideTheLineRaise) {
    CDelimFile f;
    ASSERT_EQ(f.Open(dir.Write("a.csv", "a,b\n").c_str()), 1);
    ASSERT_EQ(f.Next(), 1);
    EXPECT_THROW(f.Field(0), CInvalidArgException);
    EXPECT_THROW(f.Field(3), CInvalidArgException);
    EXPECT_THROW(f.Field(-1), CInvalidArgException);
    EXPECT_STREQ(f.Field(2), "b");
    CDelimFile none;  // no line at all
    EXPECT_THROW(none.Field(1), CInvalidArgException);
}

TEST_F(DelimFileTest, LineEndsLfAndCrLfReadTheSame) {
    Fields lf, crlf, back;
    ReadBothWays("a,1\nb,2\n\nc,3", lf, back);
    EXPECT_EQ(lf, (Fields{"a,1", "b,2", "", "c,3"}));
    ReadBothWays("a,1\r\nb,2\r\n\r\nc,3\r\n", crlf, back);
    EXPECT_EQ(crlf, lf);
    ReadBothWays("a,1\r\nb,2\n\r\nc,3\n", crlf, back);
    EXPECT_EQ(crlf, lf);
}

TEST_F(DelimFileTest, PrevReadsTheLineBefore) {
    CDelimFile f;
    ASSERT_EQ(f.Open(dir.Write("a.csv", "one\ntwo\nthree\n").c_str()), 1);
    EXPECT_FALSE(f.Prev());  // before the first line
    ASSERT_EQ(f.Top(), 1);
    EXPECT_FALSE(f.Prev());
    EXPECT_EQ(f.GetLine(), "one");
    ASSERT_EQ(f.Next(), 1);
    ASSERT_TRUE(f.Prev());
    EXPECT_EQ(f.GetLine(), "one");
    EXPECT_EQ(f.GetRecNo(), 1);
    ASSERT_TRUE(f.Bottom());
    EXPECT_EQ(f.GetLine(), "three");
    EXPECT_EQ(f.GetRecNo(), 3);
    ASSERT_TRUE(f.Prev());
    EXPECT_EQ(f.GetLine(), "two");
    EXPECT_EQ(f.Next(), 1);
    EXPECT_EQ(f.GetLine(), "three");
}

TEST_F(DelimFileTest, BackwardsAcrossBlocksGivesTheLinesForwardsReversed) {
    // Lines shorter and longer than the 100-byte steps back, empty lines,
    // both line ends, no end on the last line, and a file larger than the
    // file's own 64 KiB blocks.
    std::string bytes;
    for (int i = 0; i < 3000; ++i) {
        int len = (i * 37) % 230;
        std::string line = std::to_string(i) + "," + std::string(size_t(len), char('a' + i % 26));
        if (i % 7 == 0) line = "\"q,\"\"" + line + "\"";
        if (i % 11 == 0) line.clear();
        bytes += line + (i % 3 == 0 ? "\r\n" : "\n");
    }
    bytes += "last,no end";
    ASSERT_GT(bytes.size(), 200000u);
    ExpectSameBothWays(bytes);
    ExpectSameBothWays(bytes + "\n");
}

TEST_F(DelimFileTest, BackwardsMatchesForwardsOnRandomFiles) {
    std::mt19937 rng(14);
    const char alphabet[] = {'a', ',', '"', ' ', '\t', '\r', '\n', '\n', 'x', '\0'};
    for (int round = 0; round < 300; ++round) {
        std::string bytes;
        size_t n = rng() % (round < 200 ? 400 : 5000);
        for (size_t i = 0; i < n; ++i)
            bytes += alphabet[rng() % sizeof(alphabet)];
        SCOPED_TRACE("round " + std::to_string(round));
        ExpectSameBothWays(bytes);
        if (HasFatalFailure()) return;
    }
}

TEST_F(DelimFileTest, EmptyLinesAreSkippedWhenAsked) {
    CDelimFile f;
    ASSERT_EQ(f.Open(dir.Write("a.csv", "\n  \na\n\n\nb\n\n").c_str()), 1);
    ASSERT_EQ(f.NextNotEmpty(), 1);
    EXPECT_EQ(f.GetLine(), "a");
    EXPECT_EQ(f.GetRecNo(), 3);
    ASSERT_EQ(f.NextNotEmpty(), 1);
    EXPECT_EQ(f.GetLine(), "b");
    EXPECT_EQ(f.NextNotEmpty(), 0);
    EXPECT_EQ(f.GetLine(), "");  // the last, empty line stays current
    ASSERT_TRUE(f.PrevNotEmpty());
    EXPECT_EQ(f.GetLine(), "b");
    ASSERT_TRUE(f.PrevNotEmpty());
    EXPECT_EQ(f.GetLine(), "a");
    EXPECT_FALSE(f.PrevNotEmpty());
    EXPECT_EQ(f.GetRecNo(), 1);
}

TEST_F(DelimFileTest, VerifyFormatWantsACommaInTheFirstLine) {
    CDelimFile f;
    ASSERT_EQ(f.Open(dir.Write("one.csv", "x").c_str()), 1);
    EXPECT_TRUE(f.VerifyFormat());
    ASSERT_EQ(f.Open(dir.Write("empty.csv", "").c_str()), 1);
    EXPECT_TRUE(f.VerifyFormat());
    EXPECT_FALSE(f.Bottom());
    ASSERT_EQ(f.Open(dir.Write("plain.csv", "no comma here\na,b\n").c_str()), 1);
    EXPECT_FALSE(f.VerifyFormat());
    ASSERT_EQ(f.Open(dir.Write("good.csv", "a,b\nplain\n").c_str()), 1);
    EXPECT_TRUE(f.VerifyFormat());
    EXPECT_EQ(f.GetRecNo(), 1);
}

TEST_F(DelimFileTest, SetPositionLeavesTheLineNumberUnknownUntilTheTop) {
    CDelimFile f;
    ASSERT_EQ(f.Open(dir.Write("a.csv", "one\ntwo\nthree\n").c_str()), 1);
    EXPECT_EQ(f.GetLength(), 14u);
    f.SetPosition(4);
    EXPECT_EQ(f.GetRecNo(), -1);
    ASSERT_EQ(f.Next(), 1);
    EXPECT_EQ(f.GetLine(), "two");
    EXPECT_EQ(f.GetPosition(), 8u);
    EXPECT_EQ(f.GetRecNo(), -1);
    ASSERT_TRUE(f.Prev());
    EXPECT_EQ(f.GetLine(), "one");  // arriving at the start makes it known again
    EXPECT_EQ(f.GetRecNo(), 1);
    f.SetPosition(100);
    EXPECT_EQ(f.Next(), 0);
    ASSERT_EQ(f.Top(), 1);
    EXPECT_EQ(f.GetRecNo(), 1);
}

TEST_F(DelimFileTest, MissingAndClosedFilesAnswerNothing) {
    CDelimFile f;
    EXPECT_EQ(f.Open(dir.Path("missing.csv").c_str()), 0);
    EXPECT_EQ(f.Open(dir.Dir().c_str()), 0);
    EXPECT_EQ(f.Next(), 0);
    EXPECT_FALSE(f.Prev());
    EXPECT_EQ(f.Top(), 0);
    EXPECT_FALSE(f.Bottom());
    EXPECT_FALSE(f.VerifyFormat());
    EXPECT_EQ(f.GetLength(), 0u);
    EXPECT_EQ(f.GetPosition(), 0u);
    f.SetPosition(5);
    EXPECT_EQ(f.FieldCnt(), 0);
}

TEST_F(DelimFileTest, ReadersShareTheFile) {
    std::string path = dir.Write("a.csv", "a,b\n");
    CDelimFile one, two;
    ASSERT_EQ(one.Open(path.c_str()), 1);
    ASSERT_EQ(two.Open(path.c_str()), 1);
    EXPECT_EQ(one.Next(), 1);
    EXPECT_EQ(two.Next(), 1);
    CTextFile writer;
    EXPECT_EQ(writer.Open(path.c_str(), 4), 0);  // no exclusive hold while read
    EXPECT_FALSE(writer.IsOpen());
}

TEST_F(DelimFileTest, AFileThatGrowsWhileReadIsReadToItsNewEnd) {
    std::string path = dir.Write("a.csv", "a,1\n");
    CDelimFile f;
    ASSERT_EQ(f.Open(path.c_str()), 1);
    ASSERT_EQ(f.Next(), 1);
    EXPECT_EQ(f.Next(), 0);
    std::ofstream(path, std::ios::app) << "b,2\n";
    ASSERT_EQ(f.Next(), 1);
    EXPECT_EQ(f.GetLine(), "b,2");
}

}  // namespace
