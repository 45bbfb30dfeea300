// Cases: our operation and the peers' on the same inputs in the same run.
//
// A contender's run() does the operation once and keeps what it made; only the call is timed, the release is
// not. Contenders of a case take turns, A B C, C B A, so that a drift of the machine's speed, and what others leave of
// free memory and warm caches, meets all alike.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// Figures of a result that must agree: all within this share of the largest of ours.
struct check {
    const char *what;
    std::vector<double> figures;
    double within;
};

// What a run made, for checking contenders against each other before they are timed.
struct made {
    int64_t nodes = -1; // -1: does not apply
    int64_t cells = -1;
    double written_bytes = 0;   // of the result, for the floor
    std::shared_ptr<void> kept; // released after the clock has stopped
    // Called once, outside the clock. Contenders of a case give the same checks in the same order.
    std::function<std::vector<check>()> checks;
};

enum class role {
    ours, // the first contender: what ratios are taken of and outputs are compared with
    part, // a part of it, shown apart
    peer
};

struct contender {
    std::string name;
    role as = role::ours;
    std::function<made()> run;
    double aim = 0; // peers: their time over ours that is aimed at; 0: none
};

struct bench_case {
    std::string name, size;
    std::vector<contender> contenders;
    double read_bytes = 0; // that must be read at least, counted where the case is made
    // Kernels go to a table of their own, by bytes a second against the copy, their only peer: an array of
    // read_bytes is read and written there.
    bool kernel = false;
};

// Makes its input when asked, so that one case's input is in memory at a time.
struct entry {
    std::string family, name;
    bool quick; // part of the quick run
    std::function<bench_case()> prepare;
};

// The same case in doubling sizes.
struct growth_entry {
    std::string name;
    std::vector<std::string> sizes;
    std::vector<double> elements; // what the exponent is taken over
    std::function<bench_case(size_t)> prepare;
};

struct suite {
    std::vector<entry> cases;
    std::vector<growth_entry> growth;
};

// Nodes or cubes along each axis, unless said otherwise.
struct sizes {
    int64_t volume = 256, bytes = 128, lattice = 128;
    int64_t hexes = 100, tets = 55, mix = 64;
    int64_t image = 4096;
    int64_t points = 1000000;       // points sampled in all
    int64_t array_bytes = 64 << 20; // kernels: bytes of data
    int64_t growth_volume = 32;     // the first of four; each is twice the one before
    int64_t growth_cells = 20;
    int64_t growth_points = 31250;
    int64_t squares = 707; // of a flat mesh, two triangles each
    int64_t seeds = 1000, line_steps = 400;
    int64_t glyph_nodes = 100;
};

// Seconds make the same path through every case: for the checks of outputs alone.
constexpr sizes tiny_sizes = {20, 14, 13, 6, 4, 8, 64, 2000, 1 << 17, 4, 2, 250, 12, 20, 50, 8};

void add_isosurface(suite *all, const sizes &of, int threads);
void add_sampling(suite *all, const sizes &of);
void add_threshold(suite *all, const sizes &of);
void add_deriv(suite *all, const sizes &of);
void add_cut(suite *all, const sizes &of);
void add_boundary(suite *all, const sizes &of);
void add_terrain(suite *all, const sizes &of);
void add_trace(suite *all, const sizes &of);
void add_scatter(suite *all, const sizes &of);
void add_threads(suite *all, const sizes &of, int threads);
void add_yardsticks(suite *all, const sizes &of, int threads);

} // namespace bench
