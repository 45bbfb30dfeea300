// The command line: what can be asked for, in words; commands.cpp does it.
#include "commands.hpp"
#include "failure.hpp"
#include "progress.hpp"
#include "start.hpp"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>

static const char *const examples = R"(
Examples:
  skoklana info engine.vti
  skoklana iso engine.vti --array density --level 80 --level 200 -o engine.vtp --picture engine.png
  skoklana isoline terrain.vti --array height --level 100,200,300 -o lines.vtp --picture lines.png
  skoklana probe flow.vtu --line 0,0,0 1,0,0 200 -o along.csv
  skoklana probe flow.vtu --grid 64 64 64 -o flow.vti
  skoklana threshold-null terrain.vtr --array height --null -9999 -o land.vtu
  skoklana clamp engine.vti --array density --min 0 --max 200 -o clamped.vti
  skoklana sample hydrogen --size 128 -o orbital.vti

Exit codes: 0 done, 1 failed, 2 wrong usage, 130 stopped by Ctrl-C.)";

static void add_input(CLI::App *command, settings *s)
{
    command
        ->add_option("FILE", s->file,
                     "any file that VTK reads: .vtk .vti .vtu .vtp ..., PLOT3D, EnSight, Exodus, STL, ...")
        ->required();
    command->add_option("--block", s->block, "of a file of several blocks: take block N only, from 0")
        ->check(CLI::NonNegativeNumber);
    command
        ->add_option("--step", s->step,
                     "of a file of several time steps: take step N, from 0; else the first")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--solution", s->solution,
                        "PLOT3D: the file with the data of the grid; else looked for beside it");
}

static void add_array(CLI::App *command, settings *s)
{
    command->add_option("--array,-a", s->array, "the node array to work on; needed where there are several");
    command->add_option("--component", s->component,
                        "of an array of vectors: component N, from 0, or \"length\" (the default)");
    command->add_option("--null", s->null, "nodes with this value have none; NaN always means that");
}

static void add_levels(CLI::App *command, settings *s)
{
    add_input(command, s);
    add_array(command, s);
    command->add_option("--level,-l", s->levels, "the value to extract; may be repeated, or given as X,Y,Z")
        ->required()
        ->delimiter(',')
        ->allow_extra_args(false);
    command->add_option("--out,-o", s->out, "result: .vtp, .ply or .stl");
    command->add_option("--picture,-p", s->picture, "draw the result into a .png file; needs no display");
    command
        ->add_option("--with,-w", s->with,
                     "carry only this array along, and colour the picture by it; may be repeated")
        ->allow_extra_args(false);
}

static int run(int argc, char **argv)
{
    settings s;
    int threads = 0;
    CLI::App app("Surfaces, lines and values out of meshes with data.", "skoklana");
    app.set_version_flag("--version", "skoklana " SKOKLANA_VERSION);
    app.footer(examples);
    app.require_subcommand(1);
    app.fallthrough();
    app.get_formatter()->column_width(32);
    app.add_flag("--quiet,-q", s.quiet, "say nothing but errors");
    app.add_flag("--time", s.time, "tell how long reading, computing and writing took");
    app.add_option("--threads", threads,
                   "threads for the operations that can use several; else as many as there are processors")
        ->check(CLI::Range(1, 1024));

    std::function<void(const settings &)> chosen;
    const auto command = [&](const char *name, const char *about, void (*run_it)(const settings &)) {
        CLI::App *made = app.add_subcommand(name, about);
        made->callback([&chosen, run_it] { chosen = run_it; });
        return made;
    };

    add_input(command("info", "Tells what a file holds, and levels worth a try", info), &s);

    add_levels(command("iso", "Extracts the surfaces where an array has a value", iso), &s);
    add_levels(command("isoline", "Extracts the lines on flat cells where an array has a value", isoline),
               &s);

    CLI::App *probing = command("probe", "Takes the values at points, along a line or on a grid", probe);
    probing->footer("\nPoints outside have NaN, or a value that the array does not hold, and "
                    "vtkValidPointMask 0. In cells\n"
                    "that are no boxes, a point is placed to a twentieth of the cell.");
    add_input(probing, &s);
    probing->add_option("--points", s.points,
                        "at the points of a .csv file (x,y,z) or of any mesh that VTK reads");
    probing->add_option("--line", s.line, "along the line from A to B, at N points; A and B as x,y,z")
        ->expected(3)
        ->type_name("A B N");
    probing->add_option("--grid", s.grid, "on NX by NY by NZ nodes over the whole mesh")
        ->expected(3)
        ->type_name("NX NY NZ");
    probing->add_option("--with,-w", s.with, "only this array; may be repeated")->allow_extra_args(false);
    probing->add_option("--out,-o", s.out, "result: .vtp or .csv; .vti for a grid")->required();

    CLI::App *removing =
        command("threshold-null", "Removes the nodes without a value and the cells at them", threshold_null);
    add_input(removing, &s);
    add_array(removing, &s);
    removing->add_option("--with,-w", s.with, "carry only this array along; may be repeated")
        ->allow_extra_args(false);
    removing->add_option("--out,-o", s.out, "result: .vtu")->required();

    CLI::App *clamping = command("clamp", "Limits the values of an array, and copies the rest", clamp);
    add_input(clamping, &s);
    add_array(clamping, &s);
    clamping->add_option("--min", s.min, "values below become this");
    clamping->add_option("--max", s.max, "values above become this");
    clamping->add_option("--out,-o", s.out, "result: .vti, .vtr, .vts, .vtu or .vtp, as the input")
        ->required();

    CLI::App *sampling = command("sample", "Makes an analytic data set of any size", sample);
    sampling->footer("\nSamples:\n" + list_of_samples());
    sampling->add_option("NAME", s.sample, "which one, see below")->required();
    sampling->add_option(
        "--mesh", s.mesh,
        "uniform (the default), rectilinear, curvilinear, or cells: hex, prism, pyramid, tet, quad, tri");
    sampling
        ->add_option("--size,-n", s.size,
                     "nodes along each axis, one number or three; NZ 1 makes a flat mesh")
        ->expected(1, 3)
        ->check(CLI::PositiveNumber);
    sampling->add_option("--order", s.order, "of cells: 1, or 2 with nodes in the middle of edges")
        ->check(CLI::Range(1, 2));
    sampling->add_option("--out,-o", s.out, "result: .vti, .vtr, .vts or .vtu, by the mesh")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        const auto unknown = app.remaining();
        if (app.get_subcommands().empty() && !unknown.empty() && unknown[0][0] != '-')
            throw failure("there is no command " + unknown[0] +
                              "; there are info, iso, isoline, probe, threshold-null, clamp and sample",
                          exit_usage);
        return app.exit(wrong) == 0 ? exit_done : exit_usage;
    }
    if (threads > 0) setenv("QX_NUM_THREADS", std::to_string(threads).c_str(), 1);
    start_vtk();
    start_progress(!s.quiet);
    chosen(s);
    return exit_done;
}

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const interrupted &) {
        fputs("skoklana: stopped\n", stderr);
        return 130;
    } catch (const failure &wrong) {
        fprintf(stderr, "skoklana: %s\n", wrong.what());
        return wrong.code;
    } catch (const std::length_error &) { // a size beyond all memory
        fputs("skoklana: out of memory; the file may be damaged\n", stderr);
    } catch (const std::bad_alloc &) {
        fputs("skoklana: out of memory; a smaller mesh or fewer arrays (--with) would do\n", stderr);
    } catch (const std::exception &wrong) {
        fprintf(stderr, "skoklana: %s\n", wrong.what());
    }
    return exit_failed;
}
