// dbutil pack FILE: rebuilds a file in place, its records packed and its
// keys built anew.
#include "commands.h"

namespace dbutil {

Command AddPack(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("pack",
                                   "pack and reindex a file, with a progress bar on a "
                                   "terminal");
    auto name = std::make_shared<std::string>();
    cmd->add_option("FILE", *name, "data file: a dictionary name or a path")->required();
    return [&ctx, name] {
        ctx.Build(*name);
        throw Failure("pack needs the library's pack and reindex, which this build lacks");
    };
}

}  // namespace dbutil
