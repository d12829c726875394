// Transactions: what other clients see, what Abort leaves, and the rules.
#include <gtest/gtest.h>

#include <map>

#include "recman/check.h"
#include "rm_util.h"

namespace {

using rmtest::Handle;
using rmtest::Image;
constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE, DUP = RM_KEY_DUPLICATES, MOD = RM_KEY_MODIFIABLE;

int16_t Txn(uint16_t op, uint16_t client) {
    auto id = rmtest::ClientId(client);
    return BTRCALLID(op, nullptr, nullptr, nullptr, nullptr, 255, 0, id.data());
}

std::vector<uint8_t> Rec(int id, int group) {
    std::vector<uint8_t> r(12, 0);
    rmtest::Put32(r.data(), uint32_t(id));
    rmtest::Put32(r.data() + 4, uint32_t(group));
    return r;
}

class TransactionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const std::string& p : {a, b}) {
            ASSERT_EQ(rmtest::CreateFile(
                          p, rmtest::Spec(12, {{{1, 4, EXT, RM_TYPE_INTEGER}},
                                               {{5, 4, EXT | DUP | MOD, RM_TYPE_INTEGER}}})),
                      RM_OK);
            Handle h;
            ASSERT_EQ(h.Open(p), RM_OK);
            for (int i = 1; i <= 20; ++i) {
                auto r = Rec(i, i % 3);
                ASSERT_EQ(h.Insert(r), RM_OK);
            }
        }
    }
    void TearDown() override {
        Txn(RM_ABORT_TRANSACTION, 1);
        Txn(RM_ABORT_TRANSACTION, 2);
    }
    rmtest::TempDir dir;
    std::string a = dir.File("a.dat"), b = dir.File("b.dat");
};

TEST_F(TransactionTest, SeenByTheClientOnlyUntilEnd) {
    Handle a1(1), a2(1), b1(1), other(2);
    for (Handle* h : {&a1, &a2, &other})
        ASSERT_EQ(h->Open(a), RM_OK);
    ASSERT_EQ(b1.Open(b), RM_OK);
    ASSERT_EQ(Txn(RM_BEGIN_TRANSACTION + RM_CONCURRENT, 1), RM_OK);
    auto r = Rec(100, 7);
    ASSERT_EQ(a1.Insert(r), RM_OK);
    ASSERT_EQ(b1.Insert(r), RM_OK);
    std::vector<uint8_t> got;
    rmtest::Put32(a2.key(), 100);
    EXPECT_EQ(a2.Get(RM_GET_EQUAL, 0, got), RM_OK);  // another handle of the same client
    rmtest::Put32(other.key(), 100);
    EXPECT_EQ(other.Get(RM_GET_EQUAL, 0, got), RM_KEY_NOT_FOUND);
    uint32_t count;
    ASSERT_EQ(a2.RecordCount(count), RM_OK);
    EXPECT_EQ(count, 21u);
    ASSERT_EQ(other.RecordCount(count), RM_OK);
    EXPECT_EQ(count, 20u);
    // Other clients' changes to a file the transaction holds wait, then give up.
    auto o = Rec(200, 1);
    EXPECT_EQ(other.Insert(o), RM_RECORD_LOCKED);
    rmtest::Put32(other.key(), 3);
    EXPECT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, got), RM_RECORD_LOCKED);
    EXPECT_EQ(other.Get(RM_GET_EQUAL, 0, got), RM_OK);
    ASSERT_EQ(Txn(RM_END_TRANSACTION, 1), RM_OK);
    rmtest::Put32(other.key(), 100);
    EXPECT_EQ(other.Get(RM_GET_EQUAL, 0, got), RM_OK);
    EXPECT_EQ(other.Insert(o), RM_OK);
    Handle ob(2);
    ASSERT_EQ(ob.Open(b), RM_OK);
    rmtest::Put32(ob.key(), 100);
    EXPECT_EQ(ob.Get(RM_GET_EQUAL, 0, got), RM_OK);
}

TEST_F(TransactionTest, AbortLeavesEveryFileAsItWas) {
    std::string beforeA = Image(a), beforeB = Image(b);
    Handle ha(1), hb(1);
    ASSERT_EQ(ha.Open(a), RM_OK);
    ASSERT_EQ(hb.Open(b), RM_OK);
    ASSERT_EQ(Txn(RM_BEGIN_TRANSACTION, 1), RM_OK);
    std::vector<uint8_t> got;
    for (int i = 1; i <= 20; i += 2) {
        rmtest::Put32(ha.key(), uint32_t(i));
        ASSERT_EQ(ha.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, got), RM_OK);
        if (i % 4 == 1) {
            ASSERT_EQ(ha.Delete(), RM_OK);
        } else {
            got[4] = 9;
            ASSERT_EQ(ha.Update(got), RM_OK);
        }
        auto r = Rec(1000 + i, 5);
        ASSERT_EQ(hb.Insert(r), RM_OK);
    }
    EXPECT_EQ(Image(a), beforeA);  // others see nothing of it while it runs
    ASSERT_EQ(Txn(RM_ABORT_TRANSACTION, 1), RM_OK);
    EXPECT_EQ(Image(a), beforeA);
    EXPECT_EQ(Image(b), beforeB);
    for (const std::string& p : {a, b}) {
        std::vector<std::string> problems;
        ASSERT_EQ(recman::CheckFile(p, problems), RM_OK);
        EXPECT_TRUE(problems.empty()) << problems.front();
    }
    // The locks taken inside went with it.
    Handle other(2);
    ASSERT_EQ(other.Open(a), RM_OK);
    rmtest::Put32(other.key(), 3);
    EXPECT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, got), RM_OK);
}

TEST_F(TransactionTest, Rules) {
    EXPECT_EQ(Txn(RM_END_TRANSACTION, 1), RM_NO_TRANSACTION);
    EXPECT_EQ(Txn(RM_ABORT_TRANSACTION, 1), RM_NO_TRANSACTION);
    ASSERT_EQ(Txn(RM_BEGIN_TRANSACTION + RM_CONCURRENT, 1), RM_OK);
    EXPECT_EQ(Txn(RM_BEGIN_TRANSACTION, 1), RM_TRANSACTION_ACTIVE);
    EXPECT_EQ(Txn(RM_BEGIN_TRANSACTION, 2), RM_OK);  // each client has its own
    EXPECT_EQ(Txn(RM_END_TRANSACTION, 2), RM_OK);
    // Definitions change outside transactions.
    Handle h(1);
    ASSERT_EQ(h.Open(a), RM_OK);
    uint32_t len = 0;
    EXPECT_EQ(h.Call(RM_DROP_INDEX, nullptr, &len, h.key(), 1), RM_TRANSACTION_ACTIVE);
    char owner[] = "me";
    len = 3;
    EXPECT_EQ(h.Call(RM_SET_OWNER, owner, &len, owner, 0), RM_TRANSACTION_ACTIVE);
    ASSERT_EQ(Txn(RM_END_TRANSACTION, 1), RM_OK);
    EXPECT_EQ(Txn(RM_END_TRANSACTION, 1), RM_NO_TRANSACTION);
    // Reset aborts the client's transaction.
    ASSERT_EQ(Txn(RM_BEGIN_TRANSACTION + RM_CONCURRENT, 1), RM_OK);
    auto r = Rec(500, 1);
    ASSERT_EQ(h.Open(a), RM_OK);
    ASSERT_EQ(h.Insert(r), RM_OK);
    ASSERT_EQ(Txn(RM_RESET, 1), RM_OK);
    EXPECT_EQ(Txn(RM_END_TRANSACTION, 1), RM_NO_TRANSACTION);
    Handle check(2);
    ASSERT_EQ(check.Open(a), RM_OK);
    std::vector<uint8_t> got;
    rmtest::Put32(check.key(), 500);
    EXPECT_EQ(check.Get(RM_GET_EQUAL, 0, got), RM_KEY_NOT_FOUND);
    EXPECT_EQ(check.Insert(r), RM_OK);  // and freed the file
}

TEST_F(TransactionTest, ExclusiveTransactionTakesFilesItReads) {
    Handle mine(1), other(2);
    ASSERT_EQ(mine.Open(a), RM_OK);
    ASSERT_EQ(other.Open(a), RM_OK);
    ASSERT_EQ(Txn(RM_BEGIN_TRANSACTION, 1), RM_OK);
    std::vector<uint8_t> got;
    ASSERT_EQ(mine.Get(RM_GET_FIRST, 0, got), RM_OK);  // a read takes the file
    auto r = Rec(300, 1);
    EXPECT_EQ(other.Insert(r), RM_RECORD_LOCKED);
    EXPECT_EQ(other.Get(RM_GET_LAST, 0, got), RM_OK);
    ASSERT_EQ(Txn(RM_END_TRANSACTION, 1), RM_OK);
    EXPECT_EQ(other.Insert(r), RM_OK);
    // A concurrent transaction's reads take nothing.
    ASSERT_EQ(Txn(RM_BEGIN_TRANSACTION + RM_CONCURRENT, 1), RM_OK);
    ASSERT_EQ(mine.Get(RM_GET_FIRST, 0, got), RM_OK);
    auto r2 = Rec(301, 1);
    EXPECT_EQ(other.Insert(r2), RM_OK);
    ASSERT_EQ(Txn(RM_END_TRANSACTION, 1), RM_OK);
}

TEST_F(TransactionTest, ChangedUnderneathAnswersConflict) {
    Handle reader(1), writer(2);
    ASSERT_EQ(reader.Open(a), RM_OK);
    ASSERT_EQ(writer.Open(a), RM_OK);
    std::vector<uint8_t> mine, theirs;
    rmtest::Put32(reader.key(), 5);
    ASSERT_EQ(reader.Get(RM_GET_EQUAL, 0, mine), RM_OK);
    rmtest::Put32(writer.key(), 5);
    ASSERT_EQ(writer.Get(RM_GET_EQUAL, 0, theirs), RM_OK);
    theirs[8] = 1;
    ASSERT_EQ(writer.Update(theirs), RM_OK);
    mine[8] = 2;
    EXPECT_EQ(reader.Update(mine), RM_CONFLICT);
    EXPECT_EQ(reader.Delete(), RM_CONFLICT);
    ASSERT_EQ(writer.Delete(), RM_OK);
    ASSERT_EQ(reader.Get(RM_GET_EQUAL, 0, mine), RM_KEY_NOT_FOUND);
}

}  // namespace
