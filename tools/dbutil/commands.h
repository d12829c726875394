// The dbutil commands. Each adds its subcommand to the application and
// answers what runs when it is chosen; failures raise Failure.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

#include "context.h"
#include "output.h"

namespace dbutil {

using Command = std::function<void()>;

Command AddStat(CLI::App& app, Context& ctx);
Command AddDict(CLI::App& app, Context& ctx);
Command AddExport(CLI::App& app, Context& ctx);
Command AddImport(CLI::App& app, Context& ctx);
Command AddCreate(CLI::App& app, Context& ctx);
Command AddCheck(CLI::App& app, Context& ctx);
Command AddPack(CLI::App& app, Context& ctx);
Command AddSql(CLI::App& app, Context& ctx);

// The output format flags --csv, --table and --json of a command.
void AddFormatFlags(CLI::App& cmd, Format& format, Format fallback);

}  // namespace dbutil
