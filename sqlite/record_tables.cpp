// The virtual-table module over record files. A table holds the file's
// columns, the keys whose first segment can serve constraints, and the
// record-file objects that idle cursors left open; a cursor walks the file
// physically or along one key between the bounds SQLite hands it. SQLite
// checks every constraint again on each row, so a bound the key cannot
// express exactly only widens the walk.
#include "sqlite/record_tables.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>

#include "dictionary/cdd.h"
#include "platform/code_page.h"
#include "sqlite/column_value.h"

namespace dbsql {

namespace {

constexpr double kUnknownCount = 100000;

struct KeyChoice {
    int keyNo = 0;
    size_t column = 0;
    unsigned segmentLength = 0;
    bool multiSegment = false;
    bool unique = false;
    bool usable = true;  // the file has this key as the dictionary says
};

struct Table {
    sqlite3_vtab base{};  // first: SQLite hands this pointer around
    std::string fileName;
    std::vector<ColumnDef> columns;
    std::vector<KeyChoice> keys;
    std::vector<std::unique_ptr<CDbFile>> idle;
    double recordCount = kUnknownCount;
    bool checked = false;  // keys compared with the file's own
};

struct Cursor {
    sqlite3_vtab_cursor base{};
    std::unique_ptr<CDbFile> file;
    const KeyChoice* key = nullptr;  // null: physical order
    sqlite3_value* upper = nullptr;
    bool eof = true;
};

// Idx numbers: the key number + 1 (0 for a physical scan) in the low byte,
// then which bounds the arguments carry.
constexpr int kEqual = 1 << 8, kLower = 1 << 9, kUpper = 1 << 10;

void SetError(sqlite3_vtab* vt, const std::string& text) {
    sqlite3_free(vt->zErrMsg);
    vt->zErrMsg = sqlite3_mprintf("%s", text.c_str());
}

std::string StatusError(const std::string& file, int status) {
    return file + ": status " + std::to_string(status);
}

// The record file object for `name`; throws a text when it cannot be built.
std::unique_ptr<CDbFile> BuildFile(const std::string& name) {
    try {
        auto f = std::make_unique<CDbFile>(name.c_str());
        f->SetErrOverride(1);
        return f;
    } catch (int status) {
        if (!CDbFile::m_TheCdd)
            throw std::string("cannot open the dictionary ") + g_CddFileName + " (status " +
                std::to_string(CDbFile::m_CddError) + ")";
        (void)status;
        throw "no dictionary entry for " + name;
    }
}

// Compares the keys the dictionary describes with those the open file has.
void CheckKeys(Table& t, CDbFile& f) {
    if (t.checked) return;
    t.checked = true;
    if (f.GetFileStatistics(nullptr) != 0) {
        for (KeyChoice& k : t.keys)
            k.usable = false;
        return;
    }
    t.recordCount = double(f.m_FileStat.GetRcdCount());
    DbStatKeyList& stat = f.m_FileStat.m_KeyList;
    for (KeyChoice& k : t.keys) {
        const ColumnDef& c = t.columns[k.column];
        k.usable = stat.FindByKeyNo(k.keyNo) && stat.GetPosition() == c.offset + 1 &&
                   stat.GetFldLen() == k.segmentLength && KeyOrdersLikeColumn(c, stat.GetFlags()) &&
                   stat.GetKeySpec()->Type == CvtDbTypeToBtrType(c.type, f.GetFileType());
    }
}

int Connect(sqlite3* db, void*, int argc, const char* const* argv, sqlite3_vtab** out, char** err) {
    if (argc != 4) {
        *err = sqlite3_mprintf("dbfile tables take one argument: the data file's name");
        return SQLITE_ERROR;
    }
    std::string name = argv[3];
    if (name.size() >= 2 && (name[0] == '\'' || name[0] == '"') && name.back() == name[0])
        name = name.substr(1, name.size() - 2);
    name = AnsiFromUtf8(name);
    auto t = std::make_unique<Table>();
    t->fileName = name;
    std::unique_ptr<CDbFile> f;
    try {
        f = BuildFile(name);
    } catch (const std::string& why) {
        *err = sqlite3_mprintf("%s", why.c_str());
        return SQLITE_ERROR;
    }

    std::string ddl = "CREATE TABLE x(";
    std::set<std::string, decltype([](const std::string& a, const std::string& b) {
                 return strcasecmp(a.c_str(), b.c_str()) < 0;
             })>
        names;
    CddFldList& fields = f->m_FldList;
    for (int ok = fields.First(); ok; ok = fields.Next()) {
        ColumnDef c;
        c.fldId = fields.GetFldId();
        c.type = dbFieldType(fields.GetFldType());
        c.offset = fields.GetFldOffset();
        c.length = fields.GetFldLen();
        c.numDP = fields.GetFldNumDP();
        c.kind = KindOfField(c.type, c.length);
        const char* fieldName = fields.GetFldName();
        c.name = Utf8FromAnsi(fieldName ? fieldName : "");
        if (c.name.empty() || !names.insert(c.name).second) {
            c.name = "field" + std::to_string(c.fldId);
            names.insert(c.name);
        }
        std::string quoted;
        for (char ch : c.name)
            quoted += ch == '"' ? std::string("\"\"") : std::string(1, ch);
        ddl += (t->columns.empty() ? "\"" : ", \"") + quoted + "\" " + DeclaredType(c.kind);
        t->columns.push_back(std::move(c));
    }
    ddl += ")";
    if (t->columns.empty()) {
        *err = sqlite3_mprintf("%s has no fields in the dictionary", name.c_str());
        return SQLITE_ERROR;
    }

    // Keys by their first segment, from the dictionary.
    CddKeyList& keys = f->m_KeyList;
    bool startsKey = true;  // a key starts after a segment that says none follows
    for (int ok = keys.First(); ok; ok = keys.Next()) {
        bool first = startsKey;
        startsKey = !(keys.GetFlags() & 0x0010);
        if (!first) continue;
        for (size_t i = 0; i < t->columns.size(); ++i) {
            if (t->columns[i].fldId != keys.GetFldId()) continue;
            KeyChoice k;
            k.keyNo = keys.GetKeyNo();
            k.column = i;
            k.segmentLength = keys.GetLength();
            k.multiSegment = keys.GetFlags() & 0x0010;
            k.unique = !(keys.GetFlags() & 0x0001) && !k.multiSegment;
            if (KeyOrdersLikeColumn(t->columns[i], keys.GetFlags())) t->keys.push_back(k);
            break;
        }
    }

    if (int rc = sqlite3_declare_vtab(db, ddl.c_str())) {
        *err = sqlite3_mprintf("%s: %s", name.c_str(), sqlite3_errmsg(db));
        return rc;
    }
    // The file is opened now when it can be, for its record count and keys;
    // a file that cannot be opened says so when it is queried.
    if (f->Open(nullptr, dbOpenReadOnly) == 0) {
        CheckKeys(*t, *f);
        t->idle.push_back(std::move(f));
    }
    *out = &t.release()->base;
    return SQLITE_OK;
}

int Disconnect(sqlite3_vtab* vt) {
    delete reinterpret_cast<Table*>(vt);
    return SQLITE_OK;
}

bool IsRange(unsigned char op) {
    return op == SQLITE_INDEX_CONSTRAINT_EQ || op == SQLITE_INDEX_CONSTRAINT_GT ||
           op == SQLITE_INDEX_CONSTRAINT_GE || op == SQLITE_INDEX_CONSTRAINT_LT ||
           op == SQLITE_INDEX_CONSTRAINT_LE;
}

int BestIndex(sqlite3_vtab* vt, sqlite3_index_info* info) {
    Table& t = *reinterpret_cast<Table*>(vt);
    double best = t.recordCount + 1;
    int bestNum = 0;
    int eq = -1, lo = -1, hi = -1;
    const KeyChoice* bestKey = nullptr;
    for (const KeyChoice& k : t.keys) {
        if (!k.usable) continue;
        int e = -1, l = -1, h = -1;
        for (int i = 0; i < info->nConstraint; ++i) {
            const auto& c = info->aConstraint[i];
            if (!c.usable || c.iColumn != int(k.column) || !IsRange(c.op)) continue;
            if (c.op == SQLITE_INDEX_CONSTRAINT_EQ && e < 0) e = i;
            if ((c.op == SQLITE_INDEX_CONSTRAINT_GT || c.op == SQLITE_INDEX_CONSTRAINT_GE) && l < 0)
                l = i;
            if ((c.op == SQLITE_INDEX_CONSTRAINT_LT || c.op == SQLITE_INDEX_CONSTRAINT_LE) && h < 0)
                h = i;
        }
        double rows = e >= 0             ? (k.unique ? 1 : 10)
                      : l >= 0 && h >= 0 ? t.recordCount / 10
                      : l >= 0 || h >= 0 ? t.recordCount / 3
                                         : -1;
        if (rows < 0 || rows >= best) continue;
        best = rows;
        bestKey = &k;
        eq = e, lo = e >= 0 ? -1 : l, hi = e >= 0 ? -1 : h;
    }

    const ColumnDef* orderColumn = nullptr;
    if (info->nOrderBy == 1 && !info->aOrderBy[0].desc && info->aOrderBy[0].iColumn >= 0)
        orderColumn = &t.columns[size_t(info->aOrderBy[0].iColumn)];
    // Keys on numbers give SQLite's order; texts order by other bytes.
    auto ordersBy = [&](const KeyChoice& k) {
        const ColumnDef& c = t.columns[k.column];
        return orderColumn == &c && (c.kind == ColumnKind::Integer || c.kind == ColumnKind::Real);
    };
    if (!bestKey && orderColumn)
        for (const KeyChoice& k : t.keys)
            if (k.usable && ordersBy(k)) {
                bestKey = &k;
                best = t.recordCount;
                break;
            }

    if (!bestKey) {
        info->idxNum = 0;
        info->estimatedCost = t.recordCount;
        info->estimatedRows = sqlite3_int64(t.recordCount);
        return SQLITE_OK;
    }
    bestNum = bestKey->keyNo + 1;
    int arg = 0;
    std::string how;
    const std::string& column = t.columns[bestKey->column].name;
    if (eq >= 0) {
        bestNum |= kEqual;
        info->aConstraintUsage[eq].argvIndex = ++arg;
        how = column + "=?";
    }
    if (lo >= 0) {
        bestNum |= kLower;
        info->aConstraintUsage[lo].argvIndex = ++arg;
        how = column + (info->aConstraint[lo].op == SQLITE_INDEX_CONSTRAINT_GT ? ">?" : ">=?");
    }
    if (hi >= 0) {
        bestNum |= kUpper;
        info->aConstraintUsage[hi].argvIndex = ++arg;
        how += (how.empty() ? "" : " AND ") + column +
               (info->aConstraint[hi].op == SQLITE_INDEX_CONSTRAINT_LT ? "<?" : "<=?");
    }
    info->idxNum = bestNum;
    std::string text = "key " + std::to_string(bestKey->keyNo) + (how.empty() ? "" : " " + how);
    info->idxStr = sqlite3_mprintf("%s", text.c_str());
    info->needToFreeIdxStr = 1;
    info->estimatedCost = best + 1;
    info->estimatedRows = sqlite3_int64(best < 1 ? 1 : best);
    if (eq >= 0 && bestKey->unique) info->idxFlags |= SQLITE_INDEX_SCAN_UNIQUE;
    if (ordersBy(*bestKey)) info->orderByConsumed = 1;
    return SQLITE_OK;
}

int Open(sqlite3_vtab* vt, sqlite3_vtab_cursor** out) {
    Table& t = *reinterpret_cast<Table*>(vt);
    auto c = std::make_unique<Cursor>();
    if (!t.idle.empty()) {
        c->file = std::move(t.idle.back());
        t.idle.pop_back();
    } else {
        try {
            c->file = BuildFile(t.fileName);
        } catch (const std::string& why) {
            SetError(vt, why);
            return SQLITE_ERROR;
        }
        if (int st = c->file->Open(nullptr, dbOpenReadOnly)) {
            SetError(vt, StatusError(c->file->FileName(), st));
            return SQLITE_ERROR;
        }
        CheckKeys(t, *c->file);
    }
    *out = &c.release()->base;
    return SQLITE_OK;
}

int Close(sqlite3_vtab_cursor* vc) {
    Cursor* c = reinterpret_cast<Cursor*>(vc);
    Table& t = *reinterpret_cast<Table*>(vc->pVtab);
    sqlite3_value_free(c->upper);
    if (c->file) t.idle.push_back(std::move(c->file));
    delete c;
    return SQLITE_OK;
}

// The row just read, or the end; a status other than "no more" is an error.
int Arrived(Cursor& c, int status) {
    if (status == 9) {
        c.eof = true;
        return SQLITE_OK;
    }
    if (status != 0) {
        c.eof = true;
        SetError(c.base.pVtab, StatusError(c.file->FileName(), status));
        return SQLITE_ERROR;
    }
    ++ModuleCounters().recordsRead;
    c.eof = false;
    if (c.upper) {
        Table& t = *reinterpret_cast<Table*>(c.base.pVtab);
        SqlValue v;
        FieldValue(t.columns[c.key->column], c.file->RcdBuf(), c.file->GetBytesRead(), v);
        if (Compare(v, c.upper) > 0) c.eof = true;
    }
    return SQLITE_OK;
}

// Whether the current record's first key segment holds the bytes of `key`.
bool SameFirstSegment(const ColumnDef& col, const KeyChoice& k, CDbFile& f,
                      const std::string& key) {
    if (unsigned(col.offset) + k.segmentLength > f.GetBytesRead()) return false;
    const char* field = f.RcdBuf() + col.offset;
    if (col.type == dbZString || col.type == dbPhone)
        return strnlen(field, k.segmentLength) == strnlen(key.data(), k.segmentLength) &&
               std::memcmp(field, key.data(), strnlen(key.data(), k.segmentLength)) == 0;
    return std::memcmp(field, key.data(), k.segmentLength) == 0;
}

int Filter(sqlite3_vtab_cursor* vc, int idxNum, const char*, int argc, sqlite3_value** argv) {
    Cursor& c = *reinterpret_cast<Cursor*>(vc);
    Table& t = *reinterpret_cast<Table*>(vc->pVtab);
    CDbFile& f = *c.file;
    sqlite3_value_free(c.upper);
    c.upper = nullptr;
    c.key = nullptr;
    int keyNo = (idxNum & 0xFF) - 1;
    for (const KeyChoice& k : t.keys)
        if (k.keyNo == keyNo && k.usable) c.key = &k;
    if (!c.key) {
        ++ModuleCounters().fullScans;
        return Arrived(c, f.StepFirst(nullptr));
    }
    const ColumnDef& col = t.columns[c.key->column];
    sqlite3_value* lower = nullptr;
    sqlite3_value* upper = nullptr;
    int a = 0;
    if ((idxNum & kEqual) && a < argc) lower = upper = argv[a++];
    if ((idxNum & kLower) && a < argc) lower = argv[a++];
    if ((idxNum & kUpper) && a < argc) upper = argv[a++];
    if (upper && UsableUpperBound(col, upper)) c.upper = sqlite3_value_dup(upper);

    f.SetKey(keyNo);
    std::string text;
    LowerBound from = lower ? LowerBoundText(col, lower, text) : LowerBound::None;
    if (from == LowerBound::Empty) {
        c.eof = true;
        return SQLITE_OK;
    }
    if (from == LowerBound::None) {
        ++ModuleCounters().fullScans;
        return Arrived(c, f.GetFirst(nullptr));
    }
    ++ModuleCounters().keySearches;
    f.m_FldList.FindByFldId(col.fldId);
    f.SetKeyFromString(text.c_str(), int(text.size()), col.fldId);
    std::string built(reinterpret_cast<const char*>(f.GetKeyBuf()),
                      std::min(c.key->segmentLength, 255u));
    int st = f.GetUsing(dbRelGreaterEqual, 0, 1);
    if (st == 0 && c.key->multiSegment) {
        // Later segments of the key were searched as zeros, which is not
        // their smallest value: earlier records may share the first one.
        int back;
        bool moved = false;
        while ((back = f.GetPrev(nullptr)) == 0 && SameFirstSegment(col, *c.key, f, built))
            moved = true;
        if (back == 0) {
            st = f.GetNext(nullptr);  // one record too far back
        } else if (moved) {
            st = f.GetFirst(nullptr);  // every earlier record shares it
        } else {
            // The record found was the first; search for it again.
            f.m_FldList.FindByFldId(col.fldId);
            f.SetKeyFromString(text.c_str(), int(text.size()), col.fldId);
            st = f.GetUsing(dbRelGreaterEqual, 0, 1);
        }
    }
    return Arrived(c, st);
}

int Next(sqlite3_vtab_cursor* vc) {
    Cursor& c = *reinterpret_cast<Cursor*>(vc);
    return Arrived(c, c.key ? c.file->GetNext(nullptr) : c.file->StepNext(nullptr));
}

int Eof(sqlite3_vtab_cursor* vc) {
    return reinterpret_cast<Cursor*>(vc)->eof;
}

int Column(sqlite3_vtab_cursor* vc, sqlite3_context* ctx, int i) {
    Cursor& c = *reinterpret_cast<Cursor*>(vc);
    Table& t = *reinterpret_cast<Table*>(vc->pVtab);
    SqlValue v;
    FieldValue(t.columns[size_t(i)], c.file->RcdBuf(), c.file->GetBytesRead(), v);
    ResultValue(ctx, v);
    return SQLITE_OK;
}

int Rowid(sqlite3_vtab_cursor* vc, sqlite3_int64* out) {
    Cursor& c = *reinterpret_cast<Cursor*>(vc);
    long address = 0;
    if (int st = c.file->GetPosition(address)) {
        SetError(vc->pVtab, StatusError(c.file->FileName(), st));
        return SQLITE_ERROR;
    }
    *out = address;
    return SQLITE_OK;
}

const sqlite3_module kModule = {
    /* iVersion */ 0,
    /* xCreate */ Connect,
    /* xConnect */ Connect,
    BestIndex,
    Disconnect,
    /* xDestroy */ Disconnect,
    Open,
    Close,
    Filter,
    Next,
    Eof,
    Column,
    Rowid,
    /* xUpdate: none, the tables are read-only */ nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

RecordModuleCounters& ModuleCounters() {
    static RecordModuleCounters counters;
    return counters;
}

int RegisterRecordModule(sqlite3* db) {
    return sqlite3_create_module(db, "dbfile", &kModule, nullptr);
}

int AttachDictionary(sqlite3* db, std::string& error, std::vector<std::string>* skipped) {
    if (int rc = RegisterRecordModule(db)) {
        error = sqlite3_errmsg(db);
        return rc;
    }
    std::vector<std::string> files;
    {
        CCdd cdd(nullptr, g_CddFileName);
        cdd.SetErrOverride(1);
        if (int st = cdd.Open(nullptr, dbOpenReadOnly, 0)) {
            error = std::string("cannot open the dictionary ") + g_CddFileName + " (status " +
                    std::to_string(st) + ")";
            return SQLITE_ERROR;
        }
        cdd.SetKey(1);
        int st;
        for (st = cdd.GetFirst(nullptr); st == 0; st = cdd.GetNext(nullptr))
            files.emplace_back(cdd.m_FileDat.FileName,
                               strnlen(cdd.m_FileDat.FileName, sizeof(cdd.m_FileDat.FileName)));
        if (st != 9) {
            error = std::string("cannot read the dictionary ") + g_CddFileName + " (status " +
                    std::to_string(st) + ")";
            return SQLITE_ERROR;
        }
    }
    std::set<std::string, decltype([](const std::string& a, const std::string& b) {
                 return strcasecmp(a.c_str(), b.c_str()) < 0;
             })>
        taken;
    for (const std::string& file : files) {
        std::string table = Utf8FromAnsi(file.substr(0, file.rfind('.')));
        if (table.empty() || !taken.insert(table).second) {
            if (skipped) skipped->push_back(file + ": the table name " + table + " is taken");
            continue;
        }
        std::string quotedTable, quotedFile;
        for (char ch : table)
            quotedTable += ch == '"' ? std::string("\"\"") : std::string(1, ch);
        for (char ch : Utf8FromAnsi(file))
            quotedFile += ch == '\'' ? std::string("''") : std::string(1, ch);
        std::string sql =
            "CREATE VIRTUAL TABLE temp.\"" + quotedTable + "\" USING dbfile('" + quotedFile + "')";
        char* msg = nullptr;
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) {
            if (skipped) skipped->push_back(file + ": " + (msg ? msg : "cannot be made a table"));
            taken.erase(table);
        }
        sqlite3_free(msg);
    }
    return SQLITE_OK;
}

}  // namespace dbsql
