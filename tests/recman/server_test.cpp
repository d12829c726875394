// The connection to the server storage: binary values both ways, refusals
// told apart from a lost connection. Runs beside a throwaway cluster
// (scripts/pg-cluster.sh sets RECMAN_SERVER); skipped without one.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "recman/pg_session.h"
#include "recman/recman.h"
#include "rm_util.h"

namespace {

using recman::pg::Param;
using recman::pg::Result;
using recman::pg::Session;

class ServerSession : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* s = std::getenv("RECMAN_SERVER");
        if (!s || !*s) GTEST_SKIP() << "no server (RECMAN_SERVER unset)";
        conninfo_ = s;
    }
    std::unique_ptr<Session> Connect() {
        std::unique_ptr<Session> s;
        std::string why;
        EXPECT_EQ(Session::Connect(conninfo_, s, &why), RM_OK) << why;
        return s;
    }
    std::string conninfo_;
};

TEST_F(ServerSession, ValuesRoundTripInBinary) {
    auto s = Connect();
    ASSERT_TRUE(s);
    ASSERT_EQ(s->Script("CREATE TEMP TABLE v (a int4, b int8, c bytea, d text)"), RM_OK);
    const uint8_t bytes[] = {0, 0xFF, 0x80, 0, 7};
    for (int32_t a : {0, -1, 2147483647, int32_t(-2147483647 - 1)}) {
        int64_t b = int64_t(a) * 65536 - 3;
        ASSERT_EQ(s->Run("INSERT INTO v VALUES ($1, $2, $3, $4)",
                         {Param::Int4(a), Param::Int8(b), Param::Bytes(bytes, sizeof bytes),
                          Param::Text("Bristol")}),
                  RM_OK);
        Result r;
        ASSERT_EQ(s->Run("SELECT a, b, c, d FROM v WHERE a = $1", {Param::Int4(a)}, &r), RM_OK);
        ASSERT_EQ(r.rows(), 1);
        EXPECT_EQ(r.Int4(0, 0), a);
        EXPECT_EQ(r.Int8(0, 1), b);
        ASSERT_EQ(r.Size(0, 2), sizeof bytes);
        EXPECT_EQ(0, std::memcmp(r.Data(0, 2), bytes, sizeof bytes));
        EXPECT_EQ(r.Text(0, 3), "Bristol");
    }
    // Empty bytes are a value, not NULL; a null parameter is NULL.
    ASSERT_EQ(s->Run("INSERT INTO v (a, c) VALUES (1, $1), (2, $2)",
                     {Param::Bytes(nullptr, 0), Param::Null()}),
              RM_OK);
    Result r;
    ASSERT_EQ(s->Run("SELECT c FROM v WHERE a IN (1, 2) ORDER BY a", &r), RM_OK);
    ASSERT_EQ(r.rows(), 2);
    EXPECT_FALSE(r.IsNull(0, 0));
    EXPECT_EQ(r.Size(0, 0), 0u);
    EXPECT_TRUE(r.IsNull(1, 0));
    ASSERT_EQ(s->Run("DELETE FROM v WHERE a >= 0", &r), RM_OK);
    EXPECT_EQ(r.Affected(), 4u);
}

TEST_F(ServerSession, RefusalsKeepTheConnectionLossEndsIt) {
    auto s = Connect();
    ASSERT_TRUE(s);
    ASSERT_EQ(s->Script("CREATE TEMP TABLE u (k bytea PRIMARY KEY)"), RM_OK);
    const char k[] = "key";
    ASSERT_EQ(s->Run("INSERT INTO u VALUES ($1)", {Param::Bytes(k, 3)}), RM_OK);
    EXPECT_EQ(s->Run("INSERT INTO u VALUES ($1)", {Param::Bytes(k, 3)}), RM_SERVER_ERROR);
    EXPECT_EQ(s->sqlState(), recman::pg::kUniqueViolation);
    EXPECT_EQ(s->Run("SELECT * FROM no_such_table"), RM_SERVER_ERROR);
    EXPECT_EQ(s->sqlState(), recman::pg::kUndefinedTable);
    EXPECT_TRUE(s->alive());
    ASSERT_EQ(s->Run("SELECT count(*) FROM u"), RM_OK);

    // Another session ends this one's server process: the next call finds
    // the connection gone, and so does every call after it.
    auto other = Connect();
    ASSERT_TRUE(other);
    ASSERT_EQ(other->Run("SELECT pg_terminate_backend($1)", {Param::Int4(s->backendPid())}), RM_OK);
    EXPECT_EQ(s->Run("SELECT count(*) FROM u"), RM_SESSION_INVALID);
    EXPECT_FALSE(s->alive());
    EXPECT_EQ(s->Script("SELECT 1"), RM_SESSION_INVALID);
    EXPECT_EQ(other->Run("SELECT 1"), RM_OK);
}

TEST_F(ServerSession, UnreachableServerAnswersSessionInvalid) {
    std::unique_ptr<Session> s;
    std::string why;
    EXPECT_EQ(Session::Connect("host=/nonexistent/socket/dir dbname=x connect_timeout=2", s, &why),
              RM_SESSION_INVALID);
    EXPECT_FALSE(s);
    EXPECT_FALSE(why.empty());
}

}  // namespace

namespace {

// Stops or starts the throwaway cluster the tests run beside.
int Cluster(const char* action) {
    const char* dir = std::getenv("PG_CLUSTER_DIR");
    const char* bin = std::getenv("PG_CLUSTER_BIN");
    const char* user = std::getenv("PG_CLUSTER_USER");
    if (!dir || !bin) return -1;
    std::string as = user && *user ? std::string("runuser -u ") + user + " -- " : "";
    std::string cmd = as + bin + "/pg_ctl -D " + dir + "/data -l " + dir +
                      "/server.log -w -m fast " + action + " >/dev/null";
    return std::system(cmd.c_str());
}

TEST(ServerEngine, ServerStoppedAndStartedUnderClients) {
    if (!std::getenv("PG_CLUSTER_DIR")) GTEST_SKIP() << "no throwaway cluster";
    rmtest::TempDir dir;
    std::string path = dir.File("ledger.dat");
    ASSERT_EQ(rmtest::CreateFile(path, rmtest::NumberedSpec(32)), RM_OK);
    rmtest::Handle single, inTxn(1);
    ASSERT_EQ(single.Open(path), RM_OK);
    ASSERT_EQ(inTxn.Open(path), RM_OK);
    for (uint32_t id = 1; id <= 20; ++id) {
        auto r = rmtest::Numbered(id, 32);
        ASSERT_EQ(single.Insert(r), RM_OK);
    }
    // A transaction under way when the server goes.
    ASSERT_EQ(rmtest::Txn(RM_BEGIN_TRANSACTION, inTxn.client()), RM_OK);
    auto extra = rmtest::Numbered(100, 32);
    ASSERT_EQ(inTxn.Insert(extra), RM_OK);

    ASSERT_EQ(Cluster("stop"), 0);
    std::vector<uint8_t> got;
    rmtest::Put32(single.key(), 5);
    EXPECT_EQ(single.Get(RM_GET_EQUAL, 0, got), RM_SESSION_INVALID);
    auto more = rmtest::Numbered(21, 32);
    EXPECT_EQ(single.Insert(more), RM_RECORD_LOCKED);  // the transaction holds the file
    EXPECT_EQ(inTxn.Insert(more), RM_SESSION_INVALID);
    EXPECT_EQ(single.Insert(more), RM_SESSION_INVALID);  // the transaction is gone
    rmtest::Handle later;
    EXPECT_EQ(later.Open(path), RM_SESSION_INVALID);  // no server to reach

    ASSERT_EQ(Cluster("start"), 0);
    // The transaction went with its connection: nothing of it was kept.
    EXPECT_EQ(rmtest::Txn(RM_END_TRANSACTION, inTxn.client()), RM_NO_TRANSACTION);
    ASSERT_EQ(later.Open(path), RM_OK);
    uint32_t count = 0;
    ASSERT_EQ(later.RecordCount(count), RM_OK);
    EXPECT_EQ(count, 20u);  // every acknowledged insert, and only those
    rmtest::Put32(later.key(), 100);
    EXPECT_EQ(later.Get(RM_GET_EQUAL, 0, got), RM_KEY_NOT_FOUND);
    rmtest::Put32(later.key(), 20);
    ASSERT_EQ(later.Get(RM_GET_EQUAL, 0, got), RM_OK);
    EXPECT_EQ(got, rmtest::Numbered(20, 32));
    // Handles opened before go on once the connection is made again.
    ASSERT_EQ(single.Insert(more), RM_OK);
    ASSERT_EQ(inTxn.Insert(extra), RM_OK);
    EXPECT_EQ(rmtest::Problem(path), "");
}

}  // namespace
