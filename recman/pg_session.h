// One connection to a PostgreSQL server, for the server storage: statements
// prepared once per connection and run with binary parameters and results.
// A connection that is lost answers RM_SESSION_INVALID from then on; a
// statement the server refuses answers RM_SERVER_ERROR unless the caller
// asks for its SQLSTATE and maps it (a unique key violated, a lock not
// available).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "recman/filedef.h"

struct pg_conn;
struct pg_result;

namespace recman::pg {

// One statement parameter, sent in binary (integers in network order).
struct Param {
    enum class Kind : uint8_t { Null, Bytes, Text, Int4, Int8 };
    Kind kind = Kind::Null;
    const void* data = nullptr;
    uint32_t size = 0;
    uint64_t number = 0;  // host order for Int4/Int8

    static Param Null() { return {}; }
    static Param Bytes(const void* p, size_t n) { return {Kind::Bytes, p, uint32_t(n), 0}; }
    static Param Text(std::string_view s) { return {Kind::Text, s.data(), uint32_t(s.size()), 0}; }
    static Param Int4(int32_t v) { return {Kind::Int4, nullptr, 4, uint64_t(uint32_t(v))}; }
    static Param Int8(int64_t v) { return {Kind::Int8, nullptr, 8, uint64_t(v)}; }
};

// The rows of a statement, read in binary.
class Result {
  public:
    Result() = default;
    ~Result();
    Result(Result&& o) noexcept : res_(o.res_) { o.res_ = nullptr; }
    Result& operator=(Result&& o) noexcept;
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;

    int rows() const;
    int columns() const;
    bool IsNull(int row, int col) const;
    const uint8_t* Data(int row, int col) const;
    uint32_t Size(int row, int col) const;
    std::string_view Text(int row, int col) const {
        return {reinterpret_cast<const char*>(Data(row, col)), Size(row, col)};
    }
    int32_t Int4(int row, int col) const;
    int64_t Int8(int row, int col) const;
    // The number of rows an INSERT, UPDATE or DELETE touched.
    uint64_t Affected() const;

  private:
    friend class Session;
    explicit Result(pg_result* r) : res_(r) {}
    pg_result* res_ = nullptr;
};

class Session {
  public:
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Connects with a libpq connection string or URI; RM_SESSION_INVALID
    // when the server cannot be reached, `error` telling why.
    static Status Connect(const std::string& conninfo, std::unique_ptr<Session>& out,
                          std::string* error = nullptr);

    // Connects again after the connection was lost (statements are
    // prepared afresh); what the lost one held on the server is gone.
    Status Reconnect();

    // Runs `sql` ($1, $2... for the parameters), prepared on first use.
    // RM_OK, RM_SESSION_INVALID when the connection is gone, or
    // RM_SERVER_ERROR with the refusal's SQLSTATE in sqlState().
    Status Run(const char* sql, const std::vector<Param>& params, Result* out = nullptr);
    Status Run(const char* sql, Result* out = nullptr) { return Run(sql, {}, out); }
    // Runs statements without parameters (several at once, no results).
    Status Script(const char* sql);

    // The SQLSTATE and message of the last statement refused.
    const std::string& sqlState() const { return state_; }
    const std::string& lastError() const { return error_; }
    // False once the connection was found lost.
    bool alive() const { return alive_; }
    // Whether a server transaction is open on the connection.
    bool InTransaction() const;
    // The server process serving this connection.
    int backendPid() const;

  private:
    Session() = default;
    Status Fail(pg_result* r);

    std::string conninfo_;
    pg_conn* conn_ = nullptr;
    bool alive_ = true;
    std::unordered_map<std::string, std::string> prepared_;  // SQL -> statement name
    std::string state_;
    std::string error_;
};

// SQLSTATEs the storage maps to statuses of its own.
inline constexpr std::string_view kUniqueViolation = "23505";
inline constexpr std::string_view kLockNotAvailable = "55P03";
inline constexpr std::string_view kSerializationFailure = "40001";
inline constexpr std::string_view kDeadlockDetected = "40P01";
inline constexpr std::string_view kUndefinedTable = "42P01";

}  // namespace recman::pg
