// swinv: a command-line host for the Software Inventory component. It loads
// libsoftware.so.0 as the agent does and lets people run inventories, send
// settings, and read the component's files and replies. This file only parses
// the command line; the commands themselves live in Commands.cpp.
#include "Commands.h"
#include "SwinvError.h"

#include "archive/File.h"

#include <CLI/CLI.hpp>

#include <ctime>
#include <iostream>

#ifndef SWINV_BUILD_LIBRARY
#define SWINV_BUILD_LIBRARY ""
#endif
#ifndef SWINV_BUILD_EXE_DIR
#define SWINV_BUILD_EXE_DIR ""
#endif

namespace {

const char* const kMainExamples = R"(Examples:
  swinv run                      inventory of this machine, compared with the stored baseline
  swinv run --ack                ... and store it as the new baseline
  swinv run --json > reply.json  every record of the reply as JSON
  swinv config 'Mode="5"; Include="/opt|/srv"'
  swinv show ~/.local/state/swinv/data/SWPackage.bin
  swinv status

The home folder is $XDG_STATE_HOME/swinv or ~/.local/state/swinv unless --home DIR
or ZEV_HOME says otherwise. Exit codes: 0 success, 1 failure, 2 bad usage.)";

const char* const kRunExamples = R"(Examples:
  swinv run                        what changed since the stored baseline
  swinv run --ack                  the same, then store this inventory as the baseline
  swinv run --full --json          everything, as JSON, ignoring the stored lists
  swinv run --save-reply reply.bin keep the reply's bytes for 'swinv show reply.bin')";

const char* const kConfigExamples = R"(Examples:
  swinv config 'Mode="5"; Include="/opt|/srv"'
  swinv config 'Mode="4"; IncExt="/srv/media"; Scan="*.mp4|*.mkv"; SizeKB="1024"'
  swinv config 'Logging="1"'
  swinv config '' --search /opt/tools --search /srv/bin

Keys: Mode (1 packages, 2 executables below Include, 4 files matching Scan; add them up),
Include, Scan, ExtInSelected, IncExt, Exclude, LeastMost, SizeKB, Logging, RunAtStartup,
BatchQuery (default 1: the package manager is asked once for all packages; 0: once per package),
Sources (snap|flatpak: installed snaps and flatpak apps as packages too).
Every value is quoted; keys not given keep their value.)";

const char* const kShowExamples = R"(Examples:
  swinv show ~/.local/state/swinv/data/SWPackage.bin
  swinv show ~/.local/state/swinv/data/swsearch.bin
  swinv show --json reply.bin      a reply saved with 'swinv run --save-reply reply.bin'

The kind of file is found from its content, not from its name.)";

const char* const kStatusExamples = R"(Examples:
  swinv status
  swinv status --json
  swinv --home /tmp/zev status)";

// One line for any parse error, with the way to the right help page.
int UsageError(const CLI::App& app, const CLI::ParseError& error) {
    std::string help = "swinv --help";
    for (const CLI::App* sub : app.get_subcommands()) help = "swinv " + sub->get_name() + " --help";
    const auto rest = app.remaining();
    if (app.get_subcommands().empty() && !rest.empty() && rest.front()[0] != '-') {
        std::cerr << "swinv: unknown command '" << rest.front() << "'; the commands are run, config, show and status; see '"
                  << help << "'\n";
        return swinv::kExitUsage;
    }
    std::cerr << "swinv: " << error.what() << "; see '" << help << "'\n";
    return swinv::kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    swinv::GlobalOptions global;
    global.buildLibrary = SWINV_BUILD_LIBRARY;
    global.buildExeDir = SWINV_BUILD_EXE_DIR;
    swinv::RunOptions run;
    swinv::ConfigOptions config;
    swinv::ShowOptions show;

    CLI::App app{"swinv: runs the ZEV Software Inventory component (libsoftware.so.0) on this machine\n"
                 "and reads its files and replies."};
    app.footer(kMainExamples);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--home", global.home, "the component's home folder (created with data/ and bin/ if missing)")
        ->type_name("DIR");
    app.add_option("--library", global.library,
                   "libsoftware.so.0 to load (default: the build tree's, else <exe dir>/../zev/slib, else /usr/zev/slib)")
        ->type_name("PATH");

    CLI::App* runCmd = app.add_subcommand("run", "take an inventory and show what changed since the stored baseline");
    runCmd->footer(kRunExamples);
    runCmd->add_flag("--full", run.full, "full inventory (command 10): the stored lists are discarded first");
    runCmd->add_flag("--ack", run.ack, "report delivery afterwards, so this inventory becomes the baseline");
    runCmd->add_flag("--json", global.json, "print the whole decoded reply as JSON");
    runCmd->add_option("--save-reply", run.saveReply, "also write the reply's bytes to FILE")->type_name("FILE");

    CLI::App* configCmd = app.add_subcommand("config", "send settings to the component as the server does");
    configCmd->footer(kConfigExamples);
    configCmd->add_option("TEXT", config.text, "settings text: Key=\"value\" items separated by ';' or blanks")
        ->required();
    configCmd->add_option("--search", config.searchPaths, "an extra search path for swsearch.bin (repeatable)")
        ->type_name("PATH")
        ->allow_extra_args(false);
    configCmd->add_flag("--json", global.json, "print the configuration in effect as JSON");

    CLI::App* showCmd = app.add_subcommand("show", "decode SWList.bin, SWPackage.bin, swsearch.bin or a saved reply");
    showCmd->footer(kShowExamples);
    showCmd->add_option("FILE", show.file, "the file to decode")->required();
    showCmd->add_option("--skip", show.skip, "host elements in front of a saved reply (default 0)")->type_name("K");
    showCmd->add_flag("--json", global.json, "print the decoded contents as JSON");

    CLI::App* statusCmd = app.add_subcommand("status", "home folder, configuration in effect and stored lists");
    statusCmd->footer(kStatusExamples);
    statusCmd->add_flag("--json", global.json, "print the status as JSON");

    if (argc <= 1) {
        std::cerr << app.help();
        return swinv::kExitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);
        return UsageError(app, e);
    }

    try {
        if (runCmd->parsed()) return swinv::RunCommand(global, run, std::cout);
        if (configCmd->parsed()) return swinv::ConfigCommand(global, config, std::cout);
        if (showCmd->parsed()) return swinv::ShowCommand(global, show, std::cout);
        return swinv::StatusCommand(global, std::cout, std::time(nullptr));
    } catch (const swinv::SwinvError& e) {
        std::cerr << "swinv: " << e.what() << "\n";
        return e.exitCode();
    } catch (CFileException* e) {
        delete e;
        std::cerr << "swinv: a file operation failed inside the host; run 'swinv status' to check the home folder\n";
        return swinv::kExitFailure;
    } catch (const std::exception& e) {
        std::cerr << "swinv: " << e.what() << "\n";
        return swinv::kExitFailure;
    }
}
