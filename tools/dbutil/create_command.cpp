// dbutil create NAME: the data file from its dictionary description.
#include <cstdio>

#include "commands.h"

namespace dbutil {

namespace {

void Run(Context& ctx, const std::string& name, bool replace) {
    std::unique_ptr<CDbFile> f = ctx.Build(name);
    // The create buffer is built from this file's description, as opening
    // with the create flag builds it.
    CCdd& cdd = *CDbFile::m_TheCdd;
    unsigned short length = 0;
    cdd.OverrideDemographics(&f->m_FileDat, &f->m_FldList, &f->m_KeyList, &f->m_RelList,
                             &f->m_bOneRcdFile, &f->m_bOutdated);
    char* built = cdd.GetCreateSpec(&length);
    std::vector<char> spec(built, built + length);
    cdd.OverrideDemographics(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    int st = f->Create(nullptr, spec.data(), length, replace ? 1 : 0);
    if (st == 59) throw Failure(std::string(f->FileName()) + " exists; --replace replaces it");
    if (st) throw Failure(std::string(f->FileName()) + ": " + StatusText(st));
    std::printf("created %s\n", f->FileName());
}

}  // namespace

Command AddCreate(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("create", "create a data file from its dictionary description");
    auto name = std::make_shared<std::string>();
    auto replace = std::make_shared<bool>(false);
    cmd->add_option("NAME", *name, "data file: a dictionary name (with a folder to put it there)")
        ->required();
    cmd->add_flag("--replace", *replace, "replace an existing file with an empty one");
    return [&ctx, name, replace] { Run(ctx, *name, *replace); };
}

}  // namespace dbutil
