// dbutil: looks into record files, checks and repairs them and moves data in
// and out of them through the library, from the command line.
#include <cstdio>
#include <utility>
#include <vector>

#include "commands.h"

using namespace dbutil;

namespace {

// The first word that stands where a command should, when it names none.
std::string UnknownCommand(CLI::App& app, int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a.empty() || a[0] == '-') {
            // Global options that take a value, written apart from it.
            for (const char* o :
                 {"-d", "--data", "--system", "--dictionary", "--profile", "--owner"})
                if (a == o) ++i;
            continue;
        }
        for (CLI::App* sub : app.get_subcommands({}))
            if (sub->get_name() == a) return "";
        return a;
    }
    return "";
}

}  // namespace

int main(int argc, char** argv) {
    Context ctx;
    CLI::App app{
        "Record files of the application: statistics, dictionary, export, import, "
        "creation, checks, packing and SQL.",
        "dbutil"};
    app.require_subcommand(1);
    app.fallthrough();
    GlobalOptions& o = ctx.options;
    app.add_option("-d,--data", o.data, "folder of the data files (default: the current folder)")
        ->envname("DBUTIL_DATA");
    app.add_option("--system", o.system,
                   "folder of the system files and the code file (default: the data folder)")
        ->envname("DBUTIL_SYSTEM");
    app.add_option("--dictionary", o.dictionary,
                   "the data dictionary (default: vexa.ddf in the system folder)")
        ->envname("DBUTIL_DICTIONARY");
    app.add_option("--profile", o.profile,
                   "regional profile for numbers and money (default: DBFILE_PROFILE, else "
                   "~/.config/dbfile/profile.ini)");
    app.add_option("--owner", o.owner, "owner name of files that have one");
    app.add_flag("-q,--quiet", o.quiet, "no progress bars");

    std::vector<std::pair<CLI::App*, Command>> commands;
    auto add = [&](Command (*adder)(CLI::App&, Context&)) {
        size_t before = app.get_subcommands({}).size();
        Command run = adder(app, ctx);
        commands.emplace_back(app.get_subcommands({})[before], std::move(run));
    };
    add(AddStat);
    add(AddDict);
    add(AddExport);
    add(AddImport);
    add(AddCreate);
    add(AddCheck);
    add(AddPack);
    add(AddSql);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::string word = UnknownCommand(app, argc, argv);
        if (!word.empty())
            std::fprintf(stderr, "dbutil: unknown command %s (dbutil --help lists them)\n",
                         word.c_str());
        else
            std::fprintf(stderr, "dbutil: %s (dbutil --help lists the commands)\n", e.what());
        return 2;
    }
    try {
        ctx.Apply();
        for (auto& [cmd, run] : commands)
            if (cmd->parsed()) run();
    } catch (const Failure& e) {
        std::fflush(stdout);
        std::fprintf(stderr, "dbutil: %s\n", e.what());
        return 1;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "dbutil: out of memory\n");
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "dbutil: %s\n", e.what());
        return 1;
    } catch (int status) {
        std::fprintf(stderr, "dbutil: %s\n", StatusText(status).c_str());
        return 1;
    }
    return 0;
}
