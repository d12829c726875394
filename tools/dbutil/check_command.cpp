// dbutil check FILE: the record manager's consistency check of a file,
// journals waiting beside it included.
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "recman/check.h"

namespace dbutil {

namespace {

void Run(Context& ctx, const std::string& name) {
    std::string path = ctx.PathOf(name);
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) throw Failure(path + " not found");
    std::vector<std::string> problems;
    int st = recman::CheckFile(path, problems);
    if (st) throw Failure(path + " cannot be checked: " + StatusText(st));
    for (const std::string& p : problems)
        std::printf("%s: %s\n", path.c_str(), p.c_str());
    if (!problems.empty())
        throw Failure(path + ": " + std::to_string(problems.size()) +
                      (problems.size() == 1 ? " problem" : " problems") + " found");
    std::printf("%s: consistent\n", path.c_str());
}

}  // namespace

Command AddCheck(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand(
        "check", "the record manager's consistency check, unfinished journals included");
    auto name = std::make_shared<std::string>();
    cmd->add_option("FILE", *name, "data file: a dictionary name or a path")->required();
    return [&ctx, name] { Run(ctx, *name); };
}

}  // namespace dbutil
