// dbutil export FILE: the records in key order, one row each, their fields
// converted through the dictionary: plain text for comma-separated text and
// JSON, the user's display text for the table.
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "commands.h"
#include "platform/code_page.h"
#include "progress.h"
#include "values.h"

namespace dbutil {

namespace {

struct ExportArgs {
    std::string file;
    int key = -1;
    std::string where;
    std::string output;
    Format format = Format::Csv;
};

// The key the records are walked by: the one asked for, else key 0, else the
// lowest the file has; -1 for physical order in a file without keys.
int ChooseKey(CDbFile& f, int asked) {
    if (asked >= 0) {
        if (!f.KeyNoExists(asked))
            throw Failure(std::string(f.FileName()) + " has no key " + std::to_string(asked));
        return asked;
    }
    for (int k = 0; k < 119; ++k)
        if (f.KeyNoExists(k)) return k;
    return -1;
}

// Puts the filter text in place of the whole-record list's empty filter;
// a text the library cannot read is the command's error, naming the term.
void SetFilter(CDbFile& f, int key, const std::string& where) {
    if (key < 0) throw Failure(std::string(f.FileName()) + " has no key to filter in");
    unsigned long bad = f.SetSQLFilter(where.c_str());
    if (!bad) return;
    static const char* const why[] = {
        "", "names no field of the file", "has no operator (=, <>, <, >, <=, >=)",
        "is followed by text that is not 'and' or 'or'", "makes the filter too long"};
    unsigned code = CDbFile::GetSQLErrCode(bad);
    throw Failure("--where: term " + std::to_string(CDbFile::GetSQLErrExpression(bad) + 1) + " " +
                  (code < 5 ? why[code] : "cannot be read"));
}

void Run(Context& ctx, const ExportArgs& a) {
    std::unique_ptr<CDbFile> f = ctx.Build(a.file);
    std::vector<FieldDesc> fields = FieldsOf(*f);
    ctx.Open(*f, dbOpenReadOnly);
    int key = ChooseKey(*f, a.key);
    if (!a.where.empty()) {
        SetFilter(*f, key, a.where);
        // As many whole records a call as the engine's 64 KiB list holds.
        unsigned end = 0;
        for (const FieldDesc& d : fields)
            end = std::max(end, unsigned(d.offset) + d.length);
        f->SetFilterOptions(uint16_t(std::max(1u, 65000u / (end + 6))), 0, 65535);
    }

    FILE* out = stdout;
    if (!a.output.empty()) {
        out = std::fopen(a.output.c_str(), "wb");
        if (!out) throw Failure("cannot write " + a.output);
    }
    static char buffer[1 << 16];
    std::setvbuf(out, buffer, _IOFBF, sizeof(buffer));
    auto writer = MakeWriter(a.format, out, "record");
    std::vector<std::string> names;
    for (const FieldDesc& d : fields)
        names.push_back(a.format == Format::Csv ? d.name : Utf8FromAnsi(d.name));
    writer->Header(names);

    // A bar between rows on the same terminal would garble them.
    Progress progress(ctx.ShowProgress() && (out != stdout || !isatty(STDOUT_FILENO)), "export",
                      f->GetRcdCount());
    std::vector<Cell> cells(fields.size());
    // The current record's fields, or the plain text of a record's bytes.
    auto row = [&](const char* record, unsigned length, bool current) {
        for (size_t i = 0; i < fields.size(); ++i) {
            if (current && a.format == Format::Table)
                cells[i] = DisplayCell(*f, fields[i]);
            else
                PlainCell(fields[i], record, length, a.format == Format::Json, cells[i]);
        }
        writer->Row(cells);
    };
    f->SetKey(key < 0 ? 0 : key);
    int st;
    if (a.where.empty()) {
        st = key < 0 ? f->StepFirst(nullptr) : f->GetFirst(nullptr);
        uint64_t done = 0;
        for (; st == 0; st = key < 0 ? f->StepNext(nullptr) : f->GetNext(nullptr)) {
            row(f->RcdBuf(), f->GetBytesRead(), true);
            progress.Update(++done);
        }
    } else {
        // The engine sends the passing records a list at a time. Display
        // text needs each as the current record (code tables, a phone's
        // area), so the table reads them again by address once the list is
        // done; the other formats take the bytes as they come.
        std::vector<long> addresses;
        uint64_t passed = 0;
        for (unsigned short n = f->GetFirstList(nullptr);; n = f->GetNextList(nullptr)) {
            st = f->GetLastError();
            for (unsigned short i = 1; i <= n; ++i) {
                long address = 0;
                unsigned short length = 0;
                auto* record = static_cast<const char*>(f->GetRecFromList(i, &address, &length));
                if (a.format == Format::Table)
                    addresses.push_back(address);
                else
                    row(record, length, false);
            }
            progress.Update(passed += n);
            if (st != 0 || n == 0) break;
        }
        for (long address : addresses) {
            if (int read = f->SetPosition(address, 0, 1)) {
                st = read;
                break;
            }
            row(f->RcdBuf(), f->GetBytesRead(), true);
        }
        if (st == 0) st = 9;
    }
    progress.Finish();
    writer->End();
    bool failed = std::ferror(out);
    if (out != stdout && std::fclose(out) != 0) failed = true;
    if (failed) throw Failure("cannot write " + (a.output.empty() ? "the output" : a.output));
    if (st != 9) throw Failure(std::string(f->FileName()) + ": " + StatusText(st));
}

}  // namespace

void AddFormatFlags(CLI::App& cmd, Format& format, Format fallback) {
    format = fallback;
    auto* csv = cmd.add_flag_callback(
        "--csv", [&format] { format = Format::Csv; }, "comma-separated text with a header line");
    auto* table = cmd.add_flag_callback(
        "--table", [&format] { format = Format::Table; }, "an aligned table");
    auto* json = cmd.add_flag_callback(
        "--json", [&format] { format = Format::Json; }, "a JSON array of objects");
    csv->excludes(table)->excludes(json);
    table->excludes(json);
}

Command AddExport(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("export", "the records of a file in key order");
    auto a = std::make_shared<ExportArgs>();
    cmd->add_option("FILE", a->file, "data file: a dictionary name or a path")->required();
    cmd->add_option("--key", a->key, "key number to walk by (default: key 0)");
    cmd->add_option("--where", a->where,
                    "only records passing this filter, e.g. 'Balance>100 and City=Paris'");
    cmd->add_option("-o,--output", a->output, "write to this file instead of standard output");
    AddFormatFlags(*cmd, a->format, Format::Csv);
    return [&ctx, a] { Run(ctx, *a); };
}

}  // namespace dbutil
