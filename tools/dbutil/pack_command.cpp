// dbutil pack FILE: rebuilds a file in place, its records packed and its
// keys built anew (the library's pack and reindex, whose progress bar is
// drawn on a terminal).
#include <cstdio>
#include <filesystem>

#include "commands.h"

namespace dbutil {

namespace {

void Run(Context& ctx, const std::string& name) {
    std::string path = ctx.Build(name)->FileName();
    std::filesystem::path p(path);
    std::string folder = p.parent_path().string(), bare = p.filename().string();
    unsigned long records = 0, size = 0;
    CString error;
    if (!CDbFile::PackAndReindex(bare.c_str(), folder.c_str(), &records, &size, &error, nullptr))
        throw Failure(path + ": " +
                      (error.IsEmpty() ? std::string("cannot be packed") : error.str()));
    std::printf("%s: packed, %lu records\n", path.c_str(), records);
}

}  // namespace

Command AddPack(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("pack",
                                   "pack and reindex a file, with a progress bar on a "
                                   "terminal");
    auto name = std::make_shared<std::string>();
    cmd->add_option("FILE", *name, "data file: a dictionary name or a path")->required();
    return [&ctx, name] { Run(ctx, *name); };
}

}  // namespace dbutil
