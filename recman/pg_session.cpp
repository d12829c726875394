#include "recman/pg_session.h"

#include <endian.h>
#include <libpq-fe.h>

#include <cstring>

#include "recman/recman.h"

namespace recman::pg {

Result::~Result() {
    if (res_) PQclear(res_);
}

Result& Result::operator=(Result&& o) noexcept {
    if (this != &o) {
        if (res_) PQclear(res_);
        res_ = o.res_;
        o.res_ = nullptr;
    }
    return *this;
}

int Result::rows() const {
    return res_ ? PQntuples(res_) : 0;
}
int Result::columns() const {
    return res_ ? PQnfields(res_) : 0;
}
bool Result::IsNull(int row, int col) const {
    return PQgetisnull(res_, row, col) != 0;
}
const uint8_t* Result::Data(int row, int col) const {
    return reinterpret_cast<const uint8_t*>(PQgetvalue(res_, row, col));
}
uint32_t Result::Size(int row, int col) const {
    return uint32_t(PQgetlength(res_, row, col));
}

int32_t Result::Int4(int row, int col) const {
    if (Size(row, col) != 4) return 0;
    uint32_t v;
    std::memcpy(&v, Data(row, col), 4);
    return int32_t(be32toh(v));
}

int64_t Result::Int8(int row, int col) const {
    if (Size(row, col) != 8) return 0;
    uint64_t v;
    std::memcpy(&v, Data(row, col), 8);
    return int64_t(be64toh(v));
}

uint64_t Result::Affected() const {
    const char* n = res_ ? PQcmdTuples(res_) : "";
    return *n ? std::strtoull(n, nullptr, 10) : 0;
}

Session::~Session() {
    if (conn_) PQfinish(conn_);
}

Status Session::Connect(const std::string& conninfo, std::unique_ptr<Session>& out,
                        std::string* error) {
    std::unique_ptr<Session> s(new Session);
    s->conninfo_ = conninfo;
    if (Status st = s->Reconnect()) {
        if (error) *error = s->error_;
        return st;
    }
    out = std::move(s);
    return RM_OK;
}

Status Session::Reconnect() {
    if (conn_) PQfinish(conn_);
    prepared_.clear();
    conn_ = PQconnectdb(conninfo_.c_str());
    if (!conn_ || PQstatus(conn_) != CONNECTION_OK) {
        error_ = conn_ ? PQerrorMessage(conn_) : "out of memory";
        alive_ = false;
        return RM_SESSION_INVALID;
    }
    alive_ = true;
    // The storage's statements expect no notices; a session's settings are
    // the server's defaults otherwise.
    return Script("SET client_min_messages = warning");
}

Status Session::Fail(pg_result* r) {
    const char* state = r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr;
    state_ = state ? state : "";
    error_ = PQerrorMessage(conn_);
    if (r) PQclear(r);
    // A refusal leaves the connection good; anything else means it is gone.
    if (PQstatus(conn_) != CONNECTION_OK || state_.empty() || state_.starts_with("08") ||
        state_.starts_with("57P")) {
        alive_ = false;
        return RM_SESSION_INVALID;
    }
    return RM_SERVER_ERROR;
}

Status Session::Run(const char* sql, const std::vector<Param>& params, Result* out) {
    if (!alive_) return RM_SESSION_INVALID;
    state_.clear();
    auto it = prepared_.find(sql);
    if (it == prepared_.end()) {
        std::string name = "s" + std::to_string(prepared_.size() + 1);
        pg_result* r = PQprepare(conn_, name.c_str(), sql, 0, nullptr);
        if (!r || PQresultStatus(r) != PGRES_COMMAND_OK) return Fail(r);
        PQclear(r);
        it = prepared_.emplace(sql, std::move(name)).first;
    }
    const size_t n = params.size();
    std::vector<const char*> values(n);
    std::vector<int> lengths(n), formats(n, 1);
    std::vector<uint64_t> numbers(n);
    for (size_t i = 0; i < n; ++i) {
        const Param& p = params[i];
        lengths[i] = int(p.size);
        switch (p.kind) {
            case Param::Kind::Null:
                values[i] = nullptr;
                break;
            case Param::Kind::Bytes:
            case Param::Kind::Text:
                // An empty value still needs an address: a null one is NULL.
                values[i] = p.data ? static_cast<const char*>(p.data) : "";
                break;
            case Param::Kind::Int4: {
                uint32_t v = htobe32(uint32_t(p.number));
                std::memcpy(&numbers[i], &v, 4);
                values[i] = reinterpret_cast<const char*>(&numbers[i]);
                break;
            }
            case Param::Kind::Int8:
                numbers[i] = htobe64(p.number);
                values[i] = reinterpret_cast<const char*>(&numbers[i]);
                break;
        }
    }
    pg_result* r = PQexecPrepared(conn_, it->second.c_str(), int(n), values.data(), lengths.data(),
                                  formats.data(), 1);
    ExecStatusType rs = r ? PQresultStatus(r) : PGRES_FATAL_ERROR;
    if (rs != PGRES_COMMAND_OK && rs != PGRES_TUPLES_OK) return Fail(r);
    if (out)
        *out = Result(r);
    else
        PQclear(r);
    return RM_OK;
}

Status Session::Script(const char* sql) {
    if (!alive_) return RM_SESSION_INVALID;
    state_.clear();
    pg_result* r = PQexec(conn_, sql);
    ExecStatusType rs = r ? PQresultStatus(r) : PGRES_FATAL_ERROR;
    if (rs != PGRES_COMMAND_OK && rs != PGRES_TUPLES_OK) return Fail(r);
    PQclear(r);
    return RM_OK;
}

bool Session::InTransaction() const {
    PGTransactionStatusType t = PQtransactionStatus(conn_);
    return t == PQTRANS_INTRANS || t == PQTRANS_INERROR || t == PQTRANS_ACTIVE;
}

int Session::backendPid() const {
    return PQbackendPID(conn_);
}

}  // namespace recman::pg
