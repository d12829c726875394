// dbutil import FILE CSV: records added from comma-separated text whose
// header line names the fields, converted by the field conversions, in
// transactions of a chosen size. A bad line is reported by its number and
// skipped, or with --stop-on-error ends the run before anything is written.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <map>

#include "commands.h"
#include "progress.h"
#include "values.h"

namespace dbutil {

namespace {

struct ImportArgs {
    std::string file;
    std::string csv;
    unsigned batch = 1000;
    bool stopOnError = false;
};

// The CSV's columns as fields of the file, from its header line.
std::vector<const FieldDesc*> MapHeader(CDelimFile& in, const std::vector<FieldDesc>& fields,
                                        const std::string& csv) {
    if (!in.NextNotEmpty()) throw Failure(csv + " is empty: its first line names the fields");
    std::vector<const FieldDesc*> columns;
    for (int i = 1; i <= in.FieldCnt(); ++i) {
        std::string name = in.Field(i);
        const FieldDesc* found = nullptr;
        for (const FieldDesc& f : fields)
            if (f.name == name) found = &f;
        if (!found)
            for (const FieldDesc& f : fields)
                if (strcasecmp(f.name.c_str(), name.c_str()) == 0) found = &f;
        if (!found) throw Failure(csv + " line 1: no field is named \"" + name + "\"");
        for (const FieldDesc* c : columns)
            if (c == found) throw Failure(csv + " line 1: field " + name + " named twice");
        columns.push_back(found);
    }
    return columns;
}

// Builds the record of the current line in `record`; false with the reason.
bool BuildRecord(CDelimFile& in, const std::vector<const FieldDesc*>& columns,
                 std::vector<char>& record, std::string& why) {
    std::fill(record.begin(), record.end(), 0);
    int n = in.FieldCnt();
    if (n != int(columns.size())) {
        why =
            std::to_string(n) + " fields where the header names " + std::to_string(columns.size());
        return false;
    }
    for (int i = 0; i < n; ++i) {
        const FieldDesc& f = *columns[size_t(i)];
        std::string text = in.Field(i + 1);
        std::string reason;
        if (unsigned(f.offset) + f.length > record.size()) {
            why = "field " + f.name + " lies outside the record";
            return false;
        }
        if (!StoreText(f, text, record.data() + f.offset, reason)) {
            why = "field " + f.name + ": \"" + text + "\" " + reason;
            return false;
        }
    }
    return true;
}

class Batch {
  public:
    explicit Batch(short client) : client_(client) {}
    ~Batch() {
        if (open_) CDbFile::AbortTransaction(client_);
    }
    void Begin() {
        if (open_) return;
        if (int st = CDbFile::BeginTransaction(client_))
            throw Failure("cannot begin a transaction: " + StatusText(st));
        open_ = true;
    }
    void End() {
        if (!open_) return;
        open_ = false;
        if (int st = CDbFile::EndTransaction(client_))
            throw Failure("cannot end a transaction: " + StatusText(st));
    }
    void Abort() {
        if (open_) CDbFile::AbortTransaction(client_);
        open_ = false;
    }

  private:
    short client_;
    bool open_ = false;
};

void Run(Context& ctx, const ImportArgs& a) {
    if (a.batch == 0) throw Failure("--batch must be at least 1");
    std::unique_ptr<CDbFile> f = ctx.Build(a.file);
    std::vector<FieldDesc> fields = FieldsOf(*f);
    struct stat sb;
    if (::stat(a.csv.c_str(), &sb) != 0 || !S_ISREG(sb.st_mode))
        throw Failure(a.csv + " is not a file");
    CDelimFile in;
    if (!in.Open(a.csv.c_str())) throw Failure("cannot read " + a.csv);
    std::vector<const FieldDesc*> columns = MapHeader(in, fields, a.csv);
    unsigned recordLength = f->GetRcdLength();
    for (const FieldDesc& d : fields)
        recordLength = std::max(recordLength, unsigned(d.offset) + d.length);
    std::vector<char> record(recordLength);
    std::string why;

    // Stopping at the first bad line writes nothing: every line is read once
    // before the first record goes in.
    if (a.stopOnError) {
        while (in.NextNotEmpty())
            if (!BuildRecord(in, columns, record, why))
                throw Failure(a.csv + " line " + std::to_string(in.GetRecNo()) + ": " + why +
                              "; nothing imported");
        in.Top();  // back to the header line
    }

    ctx.Open(*f, dbOpenNormal);
    f->SetBrowser(1);  // the record is written as built, without hooks
    Progress progress(ctx.ShowProgress(), "import", uint64_t(sb.st_size));
    Batch batch(f->ClientId());
    unsigned long added = 0, skipped = 0, inBatch = 0, committed = 0;
    while (in.NextNotEmpty()) {
        int line = in.GetRecNo();
        progress.Update(in.GetPosition());
        if (!BuildRecord(in, columns, record, why)) {
            std::fprintf(stderr, "dbutil: %s line %d: %s; skipped\n", a.csv.c_str(), line,
                         why.c_str());
            ++skipped;
            continue;
        }
        batch.Begin();
        f->SetDataLen(uint16_t(recordLength));
        std::memcpy(f->RcdBuf(), record.data(), recordLength);
        if (int st = f->Insert(nullptr)) {
            std::string text = a.csv + " line " + std::to_string(line) + ": " + StatusText(st);
            if (a.stopOnError) {
                batch.Abort();
                throw Failure(text + "; stopped, " + std::to_string(committed) +
                              " records of earlier transactions stay");
            }
            std::fprintf(stderr, "dbutil: %s; skipped\n", text.c_str());
            ++skipped;
            continue;
        }
        ++added;
        if (++inBatch == a.batch) {
            batch.End();
            committed = added;
            inBatch = 0;
        }
    }
    batch.End();
    progress.Finish();
    std::printf("%lu %s added to %s\n", added, added == 1 ? "record" : "records", f->FileName());
    if (skipped)
        throw Failure(std::to_string(skipped) + (skipped == 1 ? " line of " : " lines of ") +
                      a.csv + " not imported");
}

}  // namespace

Command AddImport(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand(
        "import", "add records from comma-separated text whose first line names the fields");
    auto a = std::make_shared<ImportArgs>();
    cmd->add_option("FILE", a->file, "data file: a dictionary name or a path")->required();
    cmd->add_option("CSV", a->csv, "the comma-separated file")->required();
    cmd->add_option("--batch", a->batch, "records per transaction (default 1000)");
    cmd->add_flag("--stop-on-error", a->stopOnError,
                  "a bad line stops the run; nothing is imported when a line cannot be read");
    return [&ctx, a] { Run(ctx, *a); };
}

}  // namespace dbutil
