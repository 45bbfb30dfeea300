// The command line: picks the command and runs it. Commands stand in commands/.
#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "memory_limit.hpp"
#include "messages.hpp"
#include "process_group.hpp"
#include "progress.hpp"
#include "threads.hpp"
#include "write.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include <sys/resource.h>

static const char *const examples = R"(
Examples:
  skoklana info engine.vti
  skoklana iso engine.vti --array density --level 80 --level 200 -o engine.vtp --picture engine.png
  skoklana isoline terrain.vti --array height --level 100,200,300 -o lines.vtp --picture lines.png
  skoklana cut engine.vti --array density --level 80 --side low -o soft.vtu --picture soft.png
  skoklana band terrain.vti --array height --levels 0,100,200,500 -o land.vtp --picture land.png
  skoklana slice flow.vtu --origin 0,0,1 --normal 1,0,2 -o plane.vtp --picture plane.png
  skoklana slice engine.vti --axis z --at 40 -o layer.vti
  skoklana threshold flow.vtu --array pressure --min 1.2 --any -o high.vtu
  skoklana probe flow.vtu --line 0,0,0 1,0,0 200 -o along.csv
  skoklana probe flow.vtu --grid 64 64 64 -o flow.vti
  skoklana stream flow.vtu --vectors v --seeds-random 100 --both -o lines.vtp --picture lines.png
  skoklana glyph flow.vtu --vectors v --every 10 -o arrows.vtp --picture arrows.png
  skoklana boundary flow.vtu -o skin.vtp --picture skin.png
  skoklana boundary part.stl --edges 30 -o creases.vtp
  skoklana gradient flow.vtu --array pressure -o slopes.vtu --picture slopes.png
  skoklana curl flow.vtu --array v -o vorticity.vtu --picture vorticity.png
  skoklana divergence flow.vtu --array v -o sources.vtu
  skoklana cell-to-node flow.vtu --array load -o smooth.vtu --weight distance
  skoklana measure flow.vtu --json figures.json
  skoklana resample engine.vti --size 128,128,64 -o small.vti
  skoklana fit samples.csv --x time --y height --degree 3 --picture curve.png
  skoklana threshold-null terrain.vtr --array height --null -9999 -o land.vtu
  skoklana delaunay wells.csv -o wells.vtp --picture wells.png
  skoklana scatter wells.csv --array depth --size 200,150 -o depth.vti
  skoklana clamp engine.vti --array density --min 0 --max 200 -o clamped.vti
  skoklana sample hydrogen --size 128 -o orbital.vti
Larger than memory, and on several processes:
  skoklana iso huge.vti --array density --level 80 --pieces 64 -o huge.pvtp
  mpirun -n 4 skoklana gradient flow.pvtu --array pressure -o slopes.pvtu

Several processes, each with its share of the file (see --pieces of a command):
  mpirun -q -n 4 skoklana gradient flow.pvtu --array pressure -o slopes.pvtu
Without -q mpirun says in words of its own, too, that a process failed.

In lists of pieces (.pvtu, .pvtp) nodes of different files are one where an array of global numbers (with the role
GlobalIds, or called GlobalNodeId, GlobalPointIds and so on) says so; without one, where they stand at one place.

Exit codes: 0 done, 1 failed, 2 wrong usage, 130 stopped by Ctrl-C.)";

#define COMMAND(name) extern const command_entry name##_command;
#include "command_list.inc"
#undef COMMAND

static const command_entry *const commands[] = {
#define COMMAND(name) &name##_command,
#include "command_list.inc"
#undef COMMAND
};

// "a, b and c".
static std::string names_of_commands()
{
    std::string names;
    const size_t n = std::size(commands);
    for (size_t i = 0; i < n; ++i)
        names += (i == 0 ? "" : i + 1 < n ? ", " : " and ") + std::string(commands[i]->name);
    return names;
}

// The help of a command ends with its own words, its examples, and what goes with every command.
static std::string end_of_help(const std::string &name, const std::string &own)
{
    std::string text = own == examples ? "" : own;
    if (text.find("  skoklana ") == std::string::npos) {
        std::istringstream lines(examples);
        std::string of_command;
        for (std::string line; std::getline(lines, line);)
            if (line.rfind("  skoklana " + name + " ", 0) == 0) of_command += line + "\n";
        if (!of_command.empty()) text += "\nExamples:\n" + of_command;
    }
    return text + (text.empty() || text.back() == '\n' ? "\n" : "\n\n") +
           "With every command: --quiet, --overwrite, --time and --threads N, which skoklana --help "
           "explains.";
}

// Whether two numbers follow --level or -l.
static bool has_two_values(int argc, char **argv)
{
    const auto is_number = [](const char *text) {
        char *end;
        strtod(text, &end);
        return *text != '\0' && *end == '\0';
    };
    for (int i = 1; i + 2 < argc; ++i)
        if (argv[i] == std::string("-l") || argv[i] == std::string("--level"))
            if (is_number(argv[i + 1]) && is_number(argv[i + 2])) return true;
    return false;
}

static bool pieces_would_do; // for want of memory

// What was printed may not have arrived.
static void check_standard_output()
{
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        throw failure(std::string("standard output cannot be written: ") + strerror(errno));
}

// What each process had, read and sent; all.
static void print_use()
{
    rusage used;
    getrusage(RUSAGE_SELF, &used);
    long long bytes_read = 0;
    if (FILE *file = fopen("/proc/self/io", "re")) {
        if (fscanf(file, "rchar: %lld", &bytes_read) != 1) bytes_read = 0;
        fclose(file);
    }
    char line[200];
    snprintf(line, sizeof line, "process %d: peak %.1f MB, read %.1f MB, sent %.1f MB, threads %d",
             processes::rank(), static_cast<double>(used.ru_maxrss) * 1024e-6,
             static_cast<double>(bytes_read) * 1e-6, static_cast<double>(processes::bytes_sent()) * 1e-6,
             threads_for(std::numeric_limits<qx_long>::max()));
    for (const std::string &one : processes::all_of(line))
        puts(one.c_str());
}

static int run(int argc, char **argv)
{
    bool quiet = false, time = false, overwrite = false;
    int threads = 0;
    CLI::App app("Surfaces, lines and values out of meshes with data.", "skoklana");
    app.set_version_flag("--version", "skoklana " SKOKLANA_VERSION);
    app.footer(examples);
    app.require_subcommand(1);
    app.fallthrough();
    app.get_formatter()->column_width(32);
    app.add_flag("--quiet,-q", quiet, "say nothing but errors");
    app.add_flag("--overwrite", overwrite, "let results take the place of files that are read");
    app.add_flag("--time", time,
                 "tell how long reading, computing and writing took, and the most memory that was in use");
    app.add_option(
           "--threads", threads,
           "threads for iso, isoline, cut, probe, scatter and stream; else as many as the environment's "
           "QX_NUM_THREADS says, or as there are processors, which processes of mpirun share. Results are "
           "the same")
        ->check(CLI::Range(1, 1024));

    std::unique_ptr<command> made[std::size(commands)];
    command *chosen = nullptr;
    for (size_t i = 0; i < std::size(commands); ++i) {
        CLI::App *one = app.add_subcommand(commands[i]->name, commands[i]->about);
        made[i] = commands[i]->make(*one);
        one->footer(end_of_help(commands[i]->name, one->get_footer()));
        one->callback([&chosen, &made, i] { chosen = made[i].get(); });
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        const auto unknown = app.remaining();
        if (app.get_subcommands().empty() && !unknown.empty() && unknown[0][0] != '-')
            throw failure("there is no command " + unknown[0] + "; there are " + names_of_commands(),
                          exit_usage);
        std::ostringstream nowhere;
        const bool first = processes::is_first();
        const int code = app.exit(wrong, std::cout, first ? std::cerr : static_cast<std::ostream &>(nowhere));
        if (first && dynamic_cast<const CLI::ExtrasError *>(&wrong) != nullptr && has_two_values(argc, argv))
            fputs("Several levels are given as -l 1,2 or -l 1 -l 2.\n", stderr);
        check_standard_output();
        return code == 0 ? exit_done : exit_usage;
    }
    if (processes::several() && !chosen->takes_pieces())
        throw failure(app.get_subcommands()[0]->get_name() +
                          " works on one process; start it without mpirun and the like",
                      exit_usage);
    pieces_would_do = chosen->takes_pieces();
    limit_memory();
    if (quiet || !processes::is_first()) be_quiet();
    if (overwrite) allow_overwriting_inputs();
    ask_for_threads(threads);
    if (processes::several()) have_processors(processes::processors());
    vtk_messages::install();
    start_progress(!quiet && processes::is_first());
    if (processes::by_launcher()) end_with_parent();
    start_clock();
    chosen->run();
    if (time) {
        print_stages();
        print_use();
    }
    check_standard_output();
    return exit_done;
}

int main(int argc, char **argv)
{
    processes::start(&argc, &argv);
    try {
        const int code = run(argc, argv);
        processes::finish();
        return code;
    } catch (const interrupted &) {
        processes::give_up("skoklana: stopped", 130);
    } catch (const failure &wrong) {
        processes::give_up(std::string("skoklana: ") + wrong.what(), wrong.code);
    } catch (const std::length_error &) { // a size beyond all memory
        processes::give_up("skoklana: out of memory; the file may be damaged", exit_failed);
    } catch (const std::bad_alloc &) {
        processes::give_up(
            std::string("skoklana: out of memory; a smaller mesh or fewer arrays (--with) would do") +
                (pieces_would_do ? ", or --pieces N with a list of files for a result (.pvtp, .pvtu and so "
                                   "on); unstructured "
                                   "files of one part (.vtu, .vtp) are read whole even then, lists of pieces "
                                   "(.pvtu, .pvtp) are not"
                                 : ""),
            exit_failed);
    } catch (const std::exception &wrong) {
        processes::give_up(std::string("skoklana: ") + wrong.what(), exit_failed);
    }
}
