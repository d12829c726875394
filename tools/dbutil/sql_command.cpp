// dbutil sql "SELECT ...": SQL over the record files of the data folder,
// each dictionary entry a read-only table (the record tables module).
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "sqlite/record_tables.h"

namespace dbutil {

namespace {

struct SqlArgs {
    std::string statements;
    Format format = Format::Table;
};

class Connection {
  public:
    Connection() {
        if (sqlite3_open(":memory:", &db_) != SQLITE_OK)
            throw Failure("cannot open SQLite: " + std::string(sqlite3_errmsg(db_)));
    }
    ~Connection() { sqlite3_close(db_); }
    sqlite3* get() const { return db_; }

  private:
    sqlite3* db_ = nullptr;
};

// The session reads record files: it may not attach databases, which would
// write files of its own.
int Authorize(void*, int action, const char*, const char*, const char*, const char*) {
    return action == SQLITE_ATTACH || action == SQLITE_DETACH ? SQLITE_DENY : SQLITE_OK;
}

Cell CellOf(sqlite3_stmt* st, int i) {
    Cell c;
    switch (sqlite3_column_type(st, i)) {
        case SQLITE_INTEGER:
            c.kind = Cell::Number;
            c.text = std::to_string(sqlite3_column_int64(st, i));
            break;
        case SQLITE_FLOAT: {
            c.kind = Cell::Number;
            char buf[40];
            std::snprintf(buf, sizeof(buf), "%.15g", sqlite3_column_double(st, i));
            c.text = buf;
            break;
        }
        case SQLITE_NULL:
            break;
        default:
            c.kind = Cell::Text;
            c.text.assign(reinterpret_cast<const char*>(sqlite3_column_text(st, i)),
                          size_t(sqlite3_column_bytes(st, i)));
    }
    return c;
}

void Run(const SqlArgs& a) {
    Connection db;
    std::string error;
    std::vector<std::string> skipped;
    if (dbsql::AttachDictionary(db.get(), error, &skipped) != SQLITE_OK) throw Failure(error);
    for (const std::string& s : skipped)
        std::fprintf(stderr, "dbutil: no table for %s\n", s.c_str());
    sqlite3_set_authorizer(db.get(), Authorize, nullptr);
    const char* next = a.statements.c_str();
    bool any = false;
    while (*next) {
        sqlite3_stmt* st = nullptr;
        const char* tail = nullptr;
        if (sqlite3_prepare_v2(db.get(), next, -1, &st, &tail) != SQLITE_OK)
            throw Failure(std::string("SQL: ") + sqlite3_errmsg(db.get()));
        next = tail;
        if (!st) continue;  // white space or a comment
        any = true;
        std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> guard(st, sqlite3_finalize);
        int columns = sqlite3_column_count(st);
        std::unique_ptr<Writer> writer;
        if (columns > 0) {
            writer = MakeWriter(a.format, stdout);
            std::vector<std::string> names;
            for (int i = 0; i < columns; ++i)
                names.emplace_back(sqlite3_column_name(st, i));
            writer->Header(names);
        }
        std::vector<Cell> cells(static_cast<size_t>(columns));
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            for (int i = 0; i < columns; ++i)
                cells[size_t(i)] = CellOf(st, i);
            writer->Row(cells);
        }
        if (rc != SQLITE_DONE) throw Failure(std::string("SQL: ") + sqlite3_errmsg(db.get()));
        if (writer) writer->End();
    }
    if (!any) throw Failure("no SQL statement given");
}

}  // namespace

Command AddSql(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand(
        "sql",
        "SQL over the data files: each dictionary entry a read-only table, named after "
        "its file without the extension");
    auto a = std::make_shared<SqlArgs>();
    cmd->add_option("STATEMENT", a->statements, "one or more SQL statements")->required();
    AddFormatFlags(*cmd, a->format, Format::Table);
    return [&ctx, a] {
        std::error_code ec;
        if (!std::filesystem::exists(ctx.DictionaryPath(), ec))
            throw Failure("dictionary " + ctx.DictionaryPath() +
                          " not found (--dictionary names it)");
        Run(*a);
    };
}

}  // namespace dbutil
