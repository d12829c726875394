// Data paths and where a record file's name leads: qualification against the
// system data directory, directories made on the way, names that carry their
// own directory, and the temporary directory under the data path.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "dbtest.h"

namespace {

bool IsDirectory(const std::string& p) {
    struct stat sb;
    return stat(p.c_str(), &sb) == 0 && S_ISDIR(sb.st_mode);
}

std::string CurrentDirectory() {
    char buf[4096];
    return getcwd(buf, sizeof(buf)) ? buf : "";
}

class PathsTest : public ::testing::Test {
  protected:
    void SetUp() override { CDbFile::SetSysDataPath(dir.path().c_str()); }
    void TearDown() override { dbtest::ResetLibrary(); }
    rmtest::TempDir dir;
    dbtest::MessageLog log;
};

TEST_F(PathsTest, SettersQualifyAgainstTheSystemDirectory) {
    std::string cwd = CurrentDirectory();
    CDbFile::SetDataPath("Data");
    EXPECT_EQ(std::string(CDbFile::GetDataPath()), dir.File("Data"));
    CDbFile::SetHistPath("Data/../History");
    EXPECT_EQ(std::string(CDbFile::GetHistPath()), dir.File("History"));
    CDbFile::SetGLDataPath("/srv/gl");
    EXPECT_STREQ(CDbFile::GetGLDataPath(), "/srv/gl");
    CDbFile::SetGLHistPath("gl/hist");
    EXPECT_EQ(std::string(CDbFile::GetGLHistPath()), dir.File("gl/hist"));
    EXPECT_EQ(CurrentDirectory(), cwd);
    // The system path is stored as given, and cut at 64 characters.
    std::string longName(80, 'x');
    CDbFile::SetSysDataPath(("rel/" + longName).c_str());
    EXPECT_EQ(std::string(CDbFile::GetSysDataPath()), ("rel/" + longName).substr(0, 64));
    CDbFile::SetDataPath(("/" + longName).c_str());
    EXPECT_EQ(std::string(CDbFile::GetDataPath()).size(), 64u);
    EXPECT_EQ(CDbFile::GetDefaultPath(dbFileType(5)), nullptr);
    EXPECT_EQ(CDbFile::GetDefaultPath(dbFileSystem), CDbFile::GetSysDataPath());
    Path p("sub/file.dat");
    CDbFile::SetSysDataPath("/base");
    EXPECT_STREQ(CDbFile::QualifySysDataPath(p), "/base/sub/file.dat");
    Path absolute("/abs/file.dat");
    EXPECT_STREQ(CDbFile::QualifySysDataPath(absolute), "/abs/file.dat");
}

TEST_F(PathsTest, WhereANameLeads) {
    // A bare name without a path stays bare.
    CDbFile bare("a.dat", nullptr, 1);
    EXPECT_STREQ(bare.FileName(), "a.dat");
    // A name with its own directory and a path: appended, directory and all;
    // a missing last level is made.
    CDbFile both("one/b.dat", dir.path().c_str(), 1);
    EXPECT_EQ(std::string(both.FileName()), dir.File("one/b.dat"));
    CDbFile back("one\\sub\\b.dat", dir.path().c_str(), 1);  // '\' separates too
    EXPECT_EQ(std::string(back.FileName()), dir.File("one/sub/b.dat"));
    CDbFile own("one\\c.dat", nullptr, 1);
    EXPECT_EQ(std::string(own.FileName()), dir.File("one/c.dat"));
    // A relative path is taken from the system directory and made.
    CDbFile rel("c.dat", "made", 1);
    EXPECT_EQ(std::string(rel.FileName()), dir.File("made/c.dat"));
    EXPECT_TRUE(IsDirectory(dir.File("made")));
    // A bare name given later keeps the object's directory.
    rel.SetFileName("d.dat", nullptr);
    EXPECT_EQ(std::string(rel.FileName()), dir.File("made/d.dat"));
    rel.SetFileName(dir.File("e.dat").c_str(), "");
    EXPECT_EQ(std::string(rel.FileName()), dir.File("e.dat"));
    EXPECT_TRUE(log.Take().empty());
    // Two missing levels: message 17, and no object.
    EXPECT_EQ(dbtest::Thrown([] { CDbFile deep("f.dat", "two/levels", 1); }), 0);
    EXPECT_EQ(log.TakeOne(), "0|DbFile could not create the specified directory.");
    EXPECT_FALSE(IsDirectory(dir.File("two")));
}

TEST_F(PathsTest, TemporaryDirectoryUnderTheDataPath) {
    char buf[512];
    int n = CDbFile::GetDataTempPath(buf, sizeof(buf));
    EXPECT_EQ(std::string(buf), dir.File("Temp"));
    EXPECT_EQ(n, int(dir.File("Temp").size()));
    EXPECT_TRUE(IsDirectory(dir.File("Temp")));
    CDbFile::SetDataPath("co/data");
    n = CDbFile::GetDataTempPath(buf, 8);
    EXPECT_EQ(n, 7);
    EXPECT_EQ(std::string(buf), dir.File("co").substr(0, 7));
    EXPECT_TRUE(IsDirectory(dir.File("co/data/Temp")));
    // No room, not even for the terminator: nothing is written.
    buf[0] = 'x';
    EXPECT_EQ(CDbFile::GetDataTempPath(buf, 0), 0);
    EXPECT_EQ(CDbFile::GetDataTempPath(buf, -5), 0);
    EXPECT_EQ(CDbFile::GetDataTempPath(nullptr, 10), 0);
    EXPECT_EQ(buf[0], 'x');
    EXPECT_EQ(CDbFile::GetDataTempPath(buf, 1), 0);
    EXPECT_EQ(buf[0], '\0');
}

}  // namespace
