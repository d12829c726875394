// Create Index over existing records, and Drop Index with and without keeping
// the other keys' numbers.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "recman/check.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE, DUP = RM_KEY_DUPLICATES, MOD = RM_KEY_MODIFIABLE;

// Records: id (int32, key 0), group (int16), name (zstring[8]).
std::vector<uint8_t> Rec(int id, int group, const char* name) {
    std::vector<uint8_t> r(16, 0);
    rmtest::Put32(r.data(), uint32_t(id));
    rmtest::Put16(r.data() + 4, uint16_t(group));
    std::strncpy(reinterpret_cast<char*>(&r[6]), name, 8);
    return r;
}

class IndexTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(rmtest::CreateFile(
                      path, rmtest::Spec(16, {{{1, 4, EXT, RM_TYPE_INTEGER}},
                                              {{5, 2, EXT | DUP | MOD, RM_TYPE_INTEGER}}})),
                  RM_OK);
        ASSERT_EQ(h.Open(path), RM_OK);
        const char* names[] = {"pear", "apple", "fig", "plum", "kiwi", "lime"};
        for (int i = 0; i < 6; ++i) {
            auto r = Rec(10 - i, i % 2, names[i]);
            ASSERT_EQ(h.Insert(r), RM_OK);
        }
    }

    int16_t Create(const rmtest::Key& key, int8_t keyNum) {
        auto spec = rmtest::Spec(16, {key});
        std::vector<uint8_t> segs(spec.begin() + 16, spec.end());
        uint32_t len = uint32_t(segs.size());
        return h.Call(RM_CREATE_INDEX, segs.data(), &len, h.key(), keyNum);
    }
    int16_t Drop(int8_t keyNum) {
        uint32_t len = 0;
        return h.Call(RM_DROP_INDEX, nullptr, &len, h.key(), keyNum);
    }
    std::vector<std::string> Walk(int8_t key) {
        std::vector<std::string> names;
        std::vector<uint8_t> r;
        for (int st = h.Get(RM_GET_FIRST, key, r); st == RM_OK; st = h.Get(RM_GET_NEXT, key, r))
            names.emplace_back(reinterpret_cast<char*>(&r[6]));
        return names;
    }
    // Key numbers as Stat reports them, one per key.
    std::vector<int> Numbers() {
        std::vector<uint8_t> st;
        h.Stat(st);
        std::vector<int> out;
        for (size_t at = 16; at < st.size(); at += 16)
            if (!(rmtest::Get16(&st[at + 4]) & RM_KEY_SEGMENTED)) out.push_back(st[at + 14]);
        return out;
    }
    void ExpectConsistent() {
        std::vector<std::string> problems;
        ASSERT_EQ(recman::CheckFile(path, problems), RM_OK);
        EXPECT_TRUE(problems.empty()) << problems.front();
    }

    rmtest::TempDir dir;
    std::string path = dir.File("idx.dat");
    Handle h;
};

TEST_F(IndexTest, CreateIndexesEveryExistingRecord) {
    ASSERT_EQ(Create({{7, 8, EXT | DUP | MOD, RM_TYPE_ZSTRING}}, 0), RM_OK);  // lowest free: 2
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(Walk(2), (std::vector<std::string>{"apple", "fig", "kiwi", "lime", "pear", "plum"}));
    // New records go into it too, and the file stays consistent.
    auto r = Rec(50, 1, "banana");
    ASSERT_EQ(h.Insert(r), RM_OK);
    EXPECT_EQ(Walk(2)[1], "banana");
    ExpectConsistent();
    // A number asked for.
    ASSERT_EQ(Create({{5, 2, EXT | DUP | MOD | RM_KEY_DESCENDING, RM_TYPE_INTEGER},
                      {7, 8, EXT | DUP | MOD, RM_TYPE_ZSTRING}},
                     int8_t(0x80 | 7)),
              RM_OK);
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 1, 2, 7}));
    // Group descending (1 before 0), then name.
    EXPECT_EQ(Walk(7),
              (std::vector<std::string>{"apple", "banana", "lime", "plum", "fig", "kiwi", "pear"}));
    EXPECT_EQ(Create({{7, 8, EXT, RM_TYPE_ZSTRING}}, int8_t(0x80 | 7)), RM_INVALID_KEY_NUMBER);
    ExpectConsistent();
}

TEST_F(IndexTest, UniqueKeyMeetingDuplicatesBuildsNothing) {
    std::vector<uint8_t> before;
    ASSERT_EQ(h.Stat(before), RM_OK);
    EXPECT_EQ(Create({{5, 2, EXT | MOD, RM_TYPE_INTEGER}}, 0), RM_DUPLICATE_KEY);
    std::vector<uint8_t> after;
    ASSERT_EQ(h.Stat(after), RM_OK);
    EXPECT_EQ(before, after);
    std::vector<uint8_t> r;
    EXPECT_EQ(h.Get(RM_GET_FIRST, 2, r), RM_INVALID_KEY_NUMBER);
    ExpectConsistent();
    // Without the duplicates it works, and then refuses new ones.
    ASSERT_EQ(Create({{7, 8, EXT | MOD, RM_TYPE_ZSTRING}}, 0), RM_OK);
    auto dup = Rec(60, 0, "fig");
    EXPECT_EQ(h.Insert(dup), RM_DUPLICATE_KEY);
}

TEST_F(IndexTest, CreateChecksItsSegmentsAsCreateDoes) {
    EXPECT_EQ(Create({{15, 4, EXT, RM_TYPE_INTEGER}}, 0), RM_INVALID_KEY_POSITION);
    EXPECT_EQ(Create({{1, 3, EXT, RM_TYPE_INTEGER}}, 0), RM_INVALID_KEY_LENGTH);
    EXPECT_EQ(Create({{1, 4, EXT, 12}}, 0), RM_INVALID_KEY_TYPE);
    EXPECT_EQ(Create({{1, 2, EXT | DUP, RM_TYPE_INTEGER}, {3, 2, EXT, RM_TYPE_INTEGER}}, 0),
              RM_INCONSISTENT_KEY_FLAGS);
    EXPECT_EQ(Create({{1, 4, RM_KEY_ALT_COLLATION, 0}}, 0), RM_INVALID_ACS);
    uint32_t len = 0;
    EXPECT_EQ(h.Call(RM_CREATE_INDEX, nullptr, &len, h.key(), 0), RM_DATA_BUFFER_TOO_SHORT);
    Handle ro;
    ASSERT_EQ(ro.Open(path, RM_OPEN_READ_ONLY), RM_OK);
    auto spec = rmtest::Spec(16, {{{7, 8, EXT, RM_TYPE_ZSTRING}}});
    len = 16;
    EXPECT_EQ(ro.Call(RM_CREATE_INDEX, spec.data() + 16, &len, ro.key(), 0), RM_ACCESS_DENIED);
    EXPECT_EQ(ro.Call(RM_DROP_INDEX, nullptr, &len, ro.key(), 1), RM_ACCESS_DENIED);
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 1}));
}

TEST_F(IndexTest, DropKeepsOrMovesTheOtherNumbers) {
    ASSERT_EQ(Create({{7, 8, EXT | DUP | MOD, RM_TYPE_ZSTRING}}, 0), RM_OK);
    ASSERT_EQ(Create({{7, 8, EXT | DUP | MOD | RM_KEY_DESCENDING, RM_TYPE_ZSTRING}}, 0), RM_OK);
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 1, 2, 3}));
    ASSERT_EQ(Drop(int8_t(0x80 | 1)), RM_OK);  // the others keep their numbers
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 2, 3}));
    EXPECT_EQ(Walk(3)[0], "plum");
    EXPECT_EQ(Drop(1), RM_INVALID_KEY_NUMBER);
    ASSERT_EQ(Drop(2), RM_OK);  // the higher keys move down by one
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 2}));
    EXPECT_EQ(Walk(2)[0], "plum");
    // Dropping the first key, which carries copies of the records, leaves the rest whole.
    ASSERT_EQ(Drop(0), RM_OK);
    EXPECT_EQ(Numbers(), (std::vector<int>{1}));
    EXPECT_EQ(Walk(1).size(), 6u);
    auto r = Rec(70, 0, "date");
    ASSERT_EQ(h.Insert(r, 1), RM_OK);
    ExpectConsistent();
    // Another handle, opened before, reads the new shape.
    Handle other;
    ASSERT_EQ(other.Open(path), RM_OK);
    std::vector<uint8_t> got;
    EXPECT_EQ(other.Get(RM_GET_FIRST, 1, got), RM_OK);
    EXPECT_EQ(other.Get(RM_GET_FIRST, 0, got), RM_INVALID_KEY_NUMBER);
}

TEST_F(IndexTest, IndexChangesReachOtherProcesses) {
    Handle other;  // opened before the change; it reads the new definition
    ASSERT_EQ(other.Open(path), RM_OK);
    pid_t pid = fork();
    if (pid == 0) {
        Handle c;
        if (c.Open(path)) _exit(1);
        auto spec = rmtest::Spec(16, {{{7, 8, EXT | DUP | MOD, RM_TYPE_ZSTRING}}});
        uint32_t len = 16;
        if (int st = c.Call(RM_CREATE_INDEX, spec.data() + 16, &len, c.key(), 0)) _exit(st);
        _exit(c.Call(RM_DROP_INDEX, nullptr, &len, c.key(), int8_t(0x80 | 1)));
    }
    int status;
    waitpid(pid, &status, 0);
    ASSERT_EQ(WEXITSTATUS(status), 0);
    std::vector<uint8_t> r;
    ASSERT_EQ(other.Get(RM_GET_FIRST, 2, r), RM_OK);
    EXPECT_STREQ(reinterpret_cast<char*>(&r[6]), "apple");
    EXPECT_EQ(other.Get(RM_GET_FIRST, 1, r), RM_INVALID_KEY_NUMBER);
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 2}));
    auto rec = Rec(99, 3, "cherry");
    ASSERT_EQ(other.Insert(rec), RM_OK);
    ExpectConsistent();
}

}  // namespace
