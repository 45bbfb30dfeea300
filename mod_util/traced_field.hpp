// A vector field along one trace: points located and vectors sampled there, with the results of the mesh's own
// functions for both.
//
// A trace asks for places close together, a dozen in each cell and more in each block of a table. What a search
// waits for is memory, so what searches side by side have in common is kept from one to the next: the boxes
// of a block's list, read as far as a search has come, and the intervals of a rectilinear mesh. A search still
// goes through the list from its head: cells that overlap make the first taker the answer, and that the cell of
// the last point is the first one can't be known without the boxes of those before it. From registers that costs
// less than to prove it.
//
// All of this is for meshes whose search is the library's own. Any other function in their tables is called point
// by point, and so are the library's as long as coordinates or connect lists are still to be fetched.
#pragma once

#include "cell_val.hpp"
#include "locator.hpp"

#include <optional>

// The length of a vector, and the square root of its float sum of squares.
inline float row_length(const float *row, int n)
{
    float sum = 0;
    for (int c = 0; c < n; ++c)
        sum += row[c] * row[c];
    return std::sqrt(sum);
}

class traced_field {
  public:
    mesh_info *const mesh;
    const node_data of;

    // The mesh has a find_cell_func and an interp_data_func.
    traced_field(mesh_info *mesh_, const blk_tbl *table_, const node_data &of_);
    traced_field(const traced_field &) = delete;
    traced_field &operator=(const traced_field &) = delete;

    // As find_cell_func, but for a cell that is only told where it is found.
    int locate(const float *point, qx_long *cell, float *uvw);

    // As interp_data_func, of one point.
    int sample(qx_long cell, const float *uvw, float *out);

  private:
    // The boxes of a block's list, as far as searches have come.
    struct list_boxes {
        qx_long block = -1;
        qx_long rest = 0; // the entry to go on with
        int ntiles = 0;
        static constexpr int most_tiles = 16; // longer lists are searched in memory beyond that
        lane_box bounds[most_tiles];
        cell_tile tiles[most_tiles];
    };

    void choose_way();
    list_boxes *boxes_of(qx_long block);
    template <typename Cells>
    int locate_in_lists(const Cells &cells, const float *point, qx_long *cell, float *uvw);
    template <int Nspace, typename Cells>
    int search(const Cells &cells, list_boxes *list, const float *point, qx_long *cell, float *uvw);
    int locate_by_axes(const float *point, qx_long *cell, float *uvw);

    const blk_tbl *table;
    search_way way = search_way::by_method;
    valued_cells cells_of_data;
    std::optional<uniform_finder> uniform;
    std::optional<rectilinear_finder> rectilinear;
    int nlocated = 0;          // on a rectilinear mesh, up to the point at which its axes are looked at
    bool ascends[3] = {};      // axes that are known to
    qx_long intervals[3] = {}; // of the last point
    std::optional<block_finder> blocks;
    std::optional<lattice_cells> lattice;
    list_boxes lists[2]; // along the face of two blocks a step's points change sides
    int newest = 0;
};

// One step of the integrator; what UTILintegrate gives for the field.
int take_step(traced_field *field, double h, int order, const float *x0, float *x1, const float *vel0,
              float *vel1, float max_speed, float *speed_out);

// Whether the field's rows and the mesh's positions fit the integrator's vectors; reported if not.
bool fits_integrator(const mesh_info *mesh, int veclen);

// Printed where a trace lacks one of the mesh's functions.
constexpr char no_trace_function[] = "UTILfind_cell: unable to find interp_cell function\n";
