// A tracer of stream lines in one mesh, step by step: what stream_lines.cpp does with all of a mesh, and stream_pieces.cpp
// with pieces of one.
//
// The library traces a line as far as its steps go. What a user wants to know beyond that, when each node was reached
// and why the line ended, follows from taking each step once more: what the library records of a step is its size
// before it was shortened.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"
#include "stream_lines.hpp"

#include <skoklana_host.h>

#include <array>
#include <functional>
#include <memory>
#include <vector>

// A node of a line.
struct line_node {
    float at[3], vector[3], uvw[3];
    float curl[3] = {0, 0, 0}; // of lines that become ribbons; NaN where the field has no derivatives
    qx_long cell;
    float speed;
    double time;
};

struct traced_line {
    std::vector<line_node> nodes;
    line_end ended = line_end::left_mesh, began = line_end::left_mesh;
    bool in_cell = false; // the seed
};

// How far a line has come on one of its two ways.
struct line_progress {
    int steps = 0;
    double time = 0, length = 0;
};

using position = std::array<float, 3>;

// What the field is at a place.
struct field_at {
    enum kind { nothing, no_value, a_vector } what = nothing; // nothing: no cell is there
    float vector[3] = {0, 0, 0}, curl[3] = {0, 0, 0};
};
struct found_place {
    qx_long cell = -1; // as the mesh numbers it; -1: none
    float apart = 0;   // how far the place lies outside of it
};
struct known_place {
    position at;
    field_at field;
    float apart; // that the place lies outside of its cell
};

// Where a line that leaves a piece is taken up: at its first node in a cell, as steps within the cell depend on those
// before.
struct handed_over {
    position at = {0, 0, 0};
    line_progress so_far;
    size_t node = 0; // its index
    // Places that the line came to and that neither the piece nor its copies have. Until others tell what is there the
    // line ends as if nothing were; from the index on its nodes are made anew with what they tell.
    std::vector<position> unknown;
};

struct freed_locator {
    void operator()(host_locator *locator) const { host_free_locator(locator); }
};

class line_tracer {
  public:
    line_tracer(const input_mesh &mesh, const scalar_array &vectors, const line_options &options);
    // By the library's own places, to a twentieth of a cell.
    bool open_by_library();
    // By a locator that outlives the tracer, and may serve others.
    bool open_exactly(const host_locator *locator);
    // The line from a seed; without nodes where the seed has none.
    traced_line trace(const float *seed);
    bool is_in_cell(const position &at);

    // Traces on from a place, one way; in pieces with what is known beyond this one. There the line goes on elsewhere from
    // its first node in a copy or beyond: goes_on, and that node is in over in place of nodes.
    line_end trace_one_way(const position &from, int direction, const line_progress &so_far,
                           const std::vector<known_place> &known, std::vector<line_node> *nodes,
                           handed_over *over);
    // What another piece is told of a place.
    field_at look_at(const position &at, found_place *found);
    bool in_pieces = false;
    std::function<bool(qx_long)> is_copy; // a cell; empty: none is
    // Whether a cell has a place within its faces; they all reach a little beyond. Empty: all do.
    std::function<bool(const float *)> is_within;

  private:
    // The field as arguments of the library.
    const void *data() const { return vectors.array.values; }
    int type() const { return vectors.array.type; }
    int veclen() const { return vectors.array.veclen; }

    bool locate(const float *point, line_node *node);
    bool sample(line_node *node);
    float apart(const line_node &node) const;
    void take_curl(line_node *node);
    line_end follow(int count, int most, int direction, const line_progress &so_far,
                    std::vector<line_node> *nodes, handed_over *over);
    bool is_elsewhere(qx_long cell);
    float cell_size(qx_long cell);
    int repeat_step(const line_node &node, int direction, double *h, float *end);
    line_end why(int result, const float *end);
    bool find_rim(const line_node &from, double h, line_node *rim);
    line_node between(const line_node &a, const line_node &b, double t);
    bool add(const line_node &node, double *length, std::vector<line_node> *nodes);

    struct freed {
        void operator()(blk_tbl *table) const { host_free_table(table); }
        void operator()(mesh_info *mesh) const { host_free_exact_mesh(mesh); }
    };

    const int cell_ndim;
    mesh_info *mesh;
    const scalar_array &vectors;
    line_options options;
    std::unique_ptr<blk_tbl, freed> table; // by the library's places
    std::unique_ptr<mesh_info, freed> exact;
    size_t room; // nodes
    std::vector<float> points, rows, uvws, speeds, steps;
    std::vector<qx_long> cells;
};

// On a mesh that is flat across an axis vectors count as far as they lie within it. False: they all do.
bool put_into_plane(const double box[6], scalar_array *vectors);

// Lines that were traced somewhere, one a seed, as trace_lines makes them; those of seeds without nodes count as outside
// or, where the seed is in a cell, as still. offset: from the coordinates of the nodes to those of the data set.
stream_lines collect_lines(const double offset[3], const std::string &field, int veclen,
                           const line_options &options, std::vector<traced_line> lines);
