// dbutil dict [NAME]: the dictionary's entries, or one entry in full.
#include <cstdio>
#include <cstring>

#include "commands.h"

namespace dbutil {

namespace {

const char* TypeWord(int type) {
    static const char* const kWords[] = {
        "string", "integer", "unsigned", "float",   "decimal", "date",       "time",
        "money",  "boolean", "zstring",  "autoinc", "phone",   "fixed text", "unsigned text"};
    return type >= 0 && type < 14 ? kWords[type] : "other";
}

const char* FileTypeWord(int type) {
    static const char* const kWords[] = {"data", "system", "history", "GL data", "GL history"};
    return type >= 0 && type < 5 ? kWords[type] : "other";
}

std::string Text(const char* s, size_t max) {
    return std::string(s, strnlen(s, max));
}

void OpenDictionary(Context& ctx, CCdd& cdd) {
    cdd.SetErrOverride(1);
    if (int st = cdd.Open(nullptr, dbOpenReadOnly, 0))
        throw Failure("cannot open the dictionary " + ctx.DictionaryPath() + ": " + StatusText(st));
}

void List(Context& ctx) {
    CCdd cdd(nullptr, g_CddFileName);
    OpenDictionary(ctx, cdd);
    cdd.SetKey(1);
    std::printf("%-24s %-20s %-10s %6s %5s %7s  %s\n", "file", "symbol", "type", "fields", "keys",
                "length", "description");
    int st;
    for (st = cdd.GetFirst(nullptr); st == 0; st = cdd.GetNext(nullptr)) {
        const CddFileDat& d = cdd.m_FileDat;
        std::printf("%-24s %-20s %-10s %6u %5u %7u  %s\n",
                    Text(d.FileName, sizeof(d.FileName)).c_str(),
                    Text(d.SymName, sizeof(d.SymName)).c_str(), FileTypeWord(d.FileType),
                    unsigned(cdd.m_FldList.Count()), unsigned(d.FileSpec.NdxCount),
                    unsigned(d.FileSpec.RecLen), Text(d.FileDesc, sizeof(d.FileDesc)).c_str());
    }
    if (st != 9)
        throw Failure("cannot read the dictionary " + ctx.DictionaryPath() + ": " + StatusText(st));
}

void Show(Context& ctx, const std::string& name) {
    CCdd cdd(nullptr, g_CddFileName);
    OpenDictionary(ctx, cdd);
    cdd.SetKey(name.c_str(), int(name.size()), 1);
    int st = cdd.GetEqual(nullptr, 0, 1);
    if (st == 9 || st == 4)
        throw Failure("the dictionary " + ctx.DictionaryPath() + " has no entry for " + name);
    if (st)
        throw Failure("cannot read the dictionary " + ctx.DictionaryPath() + ": " + StatusText(st));
    const CddFileDat& d = cdd.m_FileDat;
    std::printf("file:         %s\n", Text(d.FileName, sizeof(d.FileName)).c_str());
    std::printf("symbol:       %s\n", Text(d.SymName, sizeof(d.SymName)).c_str());
    std::printf("description:  %s\n", Text(d.FileDesc, sizeof(d.FileDesc)).c_str());
    std::printf("file id:      %u\n", unsigned(d.FileId));
    std::printf("type:         %s\n", FileTypeWord(d.FileType));
    std::printf("record:       %u bytes, page size %u, file flags 0x%04x\n",
                unsigned(d.FileSpec.RecLen), unsigned(d.FileSpec.PageSize),
                unsigned(d.FileSpec.FileFlags));

    std::printf("\nfields:\n  %3s  %-20s %-13s %6s %6s %3s %4s %5s  %s\n", "id", "name", "type",
                "offset", "length", "dp", "disp", "table", "prompt");
    CddFldList& fields = cdd.m_FldList;
    for (int ok = fields.First(); ok; ok = fields.Next()) {
        const char* prompt = fields.GetFldPrompt();
        std::printf("  %3u  %-20s %-13s %6u %6u %3u %4d %5ld  %s\n", unsigned(fields.GetFldId()),
                    fields.GetFldName(), TypeWord(fields.GetFldType()),
                    unsigned(fields.GetFldOffset()), unsigned(fields.GetFldLen()),
                    unsigned(fields.GetFldNumDP()), int(fields.GetFldDispCode()),
                    long(fields.GetFldCodeId()), prompt ? prompt : "");
    }

    std::printf("\nkeys:\n");
    CddKeyList& keys = cdd.m_KeyList;
    bool startsKey = true;
    for (int ok = keys.First(); ok; ok = keys.Next()) {
        unsigned flags = keys.GetFlags();
        if (startsKey)
            std::printf("  key %d %s: %s\n", keys.GetKeyNo(), keys.GetKeyName(),
                        flags & 0x0001 ? "duplicates" : "unique");
        startsKey = !(flags & 0x0010);
        const char* field = fields.FindByFldId(keys.GetFldId()) ? fields.GetFldName() : "?";
        std::printf("    %-20s position %u, %u bytes, flags 0x%04x%s%s%s\n", field,
                    unsigned(keys.GetPosition()), unsigned(keys.GetLength()), flags,
                    flags & 0x0002 ? ", modifiable" : "", flags & 0x0040 ? ", descending" : "",
                    flags & 0x0400 ? ", case-insensitive" : "");
    }
    if (!keys.First()) std::printf("  none\n");

    CddRelList& rels = cdd.m_RelList;
    LLPosition pos;
    CddRelElem* r = rels.First(pos);
    if (r) std::printf("\nrelations:\n");
    for (; r; r = rels.Next(pos))
        std::printf("  %s: %s\n", r->m_Name.c_str(), r->m_Text.c_str());
}

}  // namespace

Command AddDict(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("dict",
                                   "the dictionary's entries, or one entry's fields, keys "
                                   "and relations");
    auto name = std::make_shared<std::string>();
    cmd->add_option("NAME", *name, "a data file's name: show its entry");
    return [&ctx, name] {
        if (name->empty())
            List(ctx);
        else
            Show(ctx, *name);
    };
}

}  // namespace dbutil
