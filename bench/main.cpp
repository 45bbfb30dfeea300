// Times our operations and VTK's on the same inputs in the same run, and prints the tables; see README.md.
#include "bench.hpp"
#include "measure.hpp"
#include "report.hpp"

#include <CLI/CLI.hpp>

#include <vtkMultiThreader.h>
#include <vtkSMPTools.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <malloc.h>

using namespace bench;

// One thread: the sequential backend and no worker threads; pinned before any thread could start elsewhere.
static void set_threads(int threads)
{
    if (threads == 1) {
        pin_to_one_processor();
        vtkSMPTools::SetBackend("Sequential");
    }
    vtkSMPTools::Initialize(threads);
    vtkMultiThreader::SetGlobalMaximumNumberOfThreads(threads);
    vtkMultiThreader::SetGlobalDefaultNumberOfThreads(threads);
}

// The allocator neither hands memory back nor maps large blocks apart, of which each would be fresh.
static void keep_memory()
{
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
}

int main(int argc, char **argv)
{
    CLI::App app("Times our operations and the peers' on the same inputs in the same run.");
    bool quick = false, tiny = false, warm = false;
    int repeats = 0, threads = 1;
    std::string only, markdown, json, commit = "unknown";
    app.add_flag("--quick", quick,
                 "shorter, with a quarter of the points sampled, no growth, two element types");
    app.add_flag("--tiny", tiny, "tiny inputs: to check outputs, the times mean nothing");
    app.add_option("--repeats", repeats,
                   "timed runs of each contender (default: 7, and up to 25 of short ones)")
        ->check(CLI::PositiveNumber);
    app.add_option("--threads", threads, "threads of threaded forms, ours and the peers'")
        ->check(CLI::PositiveNumber);
    app.add_flag(
        "--warm", warm,
        "memory stays with the process from run to run, so that none is fresh: as in programs that go on");
    app.add_option("--only", only, "cases whose name or family holds this text");
    app.add_option("--markdown", markdown, "also write the tables to this file");
    app.add_option("--json", json, "also write the figures to this file");
    app.add_option("--commit", commit, "named in the output");
    CLI11_PARSE(app, argc, argv);
    const patience with = repeats > 0 ? patience{repeats, repeats, 0} : patience{7, 25, quick ? 0.5 : 3};

    sizes of = tiny ? tiny_sizes : sizes();
    if (quick) of.points /= 4;
    set_threads(threads);
    if (warm) keep_memory();
    report made;
    made.on = measure_machine(tiny ? 1 << 20 : 256 << 20);
    made.on.threads = threads;
    made.on.commit = commit;

    suite all;
    add_isosurface(&all, of, threads);
    add_sampling(&all, of);
    add_threshold(&all, of);
    add_deriv(&all, of);
    add_cut(&all, of);
    add_boundary(&all, of);
    add_terrain(&all, of);
    add_trace(&all, of);
    add_scatter(&all, of);
    add_threads(&all, of, threads);
    add_yardsticks(&all, of, threads);
    const auto wanted = [&](const std::string &family, const std::string &name) {
        return family.find(only) != std::string::npos || name.find(only) != std::string::npos;
    };
    bool agree = true;
    for (const entry &e : all.cases) {
        if ((quick && !e.quick) || !wanted(e.family, e.name)) continue;
        fprintf(stderr, "%s\n", e.name.c_str());
        made.results.push_back(run_case(e.prepare(), with, threads));
        made.results.back().family = e.family;
        agree &= made.results.back().disagreement.empty();
    }
    for (const growth_entry &g : all.growth) {
        if (quick || !wanted("growth", g.name)) continue;
        fprintf(stderr, "%s\n", g.name.c_str());
        growth grown = {g.name, g.sizes, g.elements, {}};
        for (size_t i = 0; i < g.sizes.size(); ++i) {
            grown.results.push_back(run_case(g.prepare(i), with, threads));
            agree &= grown.results.back().disagreement.empty();
        }
        made.growths.push_back(grown);
    }

    write_markdown(std::cout, made);
    if (!markdown.empty()) {
        std::ofstream file(markdown);
        write_markdown(file, made);
    }
    if (!json.empty()) {
        std::ofstream file(json);
        write_json(file, made);
    }
    return agree ? 0 : 1;
}
