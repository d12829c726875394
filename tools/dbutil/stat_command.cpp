// dbutil stat FILE: what the record manager says of a file, in words.
#include <cstdio>

#include "commands.h"

namespace dbutil {

namespace {

std::string FileFlagWords(unsigned flags) {
    static const struct {
        unsigned bit;
        const char* word;
    } kWords[] = {{0x0001, "variable-length records"},
                  {0x0002, "blank truncation"},
                  {0x0004, "pre-allocated pages"},
                  {0x0008, "data compression"},
                  {0x0010, "key-only"},
                  {0x0020, "index balancing"},
                  {0x0400, "key numbers given"},
                  {0x0800, "variable-tail allocation"}};
    std::string s;
    for (const auto& w : kWords)
        if (flags & w.bit) s += (s.empty() ? "" : ", ") + std::string(w.word);
    return s.empty() ? "none" : s;
}

std::string KeyFlagWords(unsigned flags) {
    static const struct {
        unsigned bit;
        const char* word;
    } kWords[] = {{0x0002, "modifiable"},           {0x0004, "binary"},
                  {0x0008, "null values left out"}, {0x0020, "alternate collating"},
                  {0x0040, "descending"},           {0x0200, "manual"},
                  {0x0400, "case-insensitive"}};
    std::string s = flags & 0x0001 ? "duplicates" : "unique";
    for (const auto& w : kWords)
        if (flags & w.bit) s += ", " + std::string(w.word);
    return s;
}

const char* KeyTypeWord(unsigned type) {
    switch (type) {
        case 0:
            return "string";
        case 1:
            return "integer";
        case 2:
            return "float";
        case 3:
            return "date";
        case 4:
            return "time";
        case 5:
            return "decimal";
        case 6:
            return "money";
        case 7:
            return "logical";
        case 8:
            return "numeric";
        case 10:
            return "lstring";
        case 11:
            return "zstring";
        case 14:
            return "unsigned binary";
        case 15:
            return "autoincrement";
        default:
            return "other";
    }
}

// Who may open the file: tried without an owner name, normally then read-only.
std::string OwnerWords(const std::string& path, const std::string& given) {
    if (!given.empty()) return "set (given with --owner)";
    CDbFile probe(path.c_str(), nullptr, 1);
    probe.SetErrOverride(1);
    int st = probe.Open(nullptr, dbOpenNormal);
    if (st == 0) return "none";
    if (st != 46) return "unknown (" + StatusText(st) + ")";
    st = probe.Open(nullptr, dbOpenReadOnly);
    return st == 0 ? "set; needed to change records" : "set; needed for every access";
}

void Run(Context& ctx, const std::string& name) {
    std::string path = ctx.PathOf(name);
    // Field names come from the dictionary when it describes the file.
    std::unique_ptr<CDbFile> described;
    try {
        described = ctx.Build(name);
    } catch (const Failure&) {
    }
    CDbFile f(path.c_str(), nullptr, 1);
    f.SetErrOverride(1);
    std::string owner = OwnerWords(path, ctx.options.owner);
    int st = f.Open(nullptr, dbOpenReadOnly,
                    ctx.options.owner.empty() ? nullptr : ctx.options.owner.data());
    if (st == 46) throw Failure(path + " has an owner name for every access; give it with --owner");
    if (st) throw Failure(path + ": " + StatusText(st));
    if (int s = f.GetFileStatistics(nullptr)) throw Failure(path + ": " + StatusText(s));
    const DbStatStruct& stat = f.m_FileStat;
    std::printf("file:            %s\n", path.c_str());
    std::printf("records:         %ld\n", stat.GetRcdCount());
    std::printf("record length:   %u bytes%s\n", unsigned(uint16_t(stat.GetRcdLen())),
                stat.IsVarLen() ? ", longer records allowed (variable length)" : ", fixed");
    std::printf("page size:       %u bytes\n", unsigned(uint16_t(stat.GetPageSize())));
    std::printf("file flags:      %s\n", FileFlagWords(stat.GetFlags()).c_str());
    std::printf("owner name:      %s\n", owner.c_str());
    std::printf("keys:            %u\n", unsigned(stat.GetNdxCount()));

    DbStatKeyList keys = stat.m_KeyList;
    bool startsKey = true;
    for (int ok = keys.First(); ok; ok = keys.Next()) {
        DbStatKeySpec* k = keys.GetKeySpec();
        if (startsKey)
            std::printf("  key %u: %s, %u distinct values\n", unsigned(k->KeyNo),
                        KeyFlagWords(k->Flags).c_str(), unsigned(k->UniqueCount));
        startsKey = !(k->Flags & 0x0010);
        std::string field;
        if (described) {
            described->m_FldList.FindByOffset(uint16_t(k->Position - 1));
            const char* n = described->m_FldList.GetFldName();
            if (n && *n) field = std::string(", field ") + n;
        }
        std::printf(
            "    segment at %u, %u bytes, %s%s%s\n", unsigned(k->Position), unsigned(k->Length),
            KeyTypeWord(k->Type),
            (k->Flags & 0x0008) ? (", null value " + std::to_string(k->NullValue)).c_str() : "",
            field.c_str());
    }
}

}  // namespace

Command AddStat(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("stat", "record count, lengths, flags and keys of a file");
    auto name = std::make_shared<std::string>();
    cmd->add_option("FILE", *name, "data file: a dictionary name or a path")->required();
    return [&ctx, name] { Run(ctx, *name); };
}

}  // namespace dbutil
