// Location of many points of one mesh within one operation: the same cells and parameters as the mesh's
// find_cell_func gives point by point, sooner where that is a function of this library.
#pragma once

#include "packed_lists.hpp"

#include <optional>

struct located {
    bool found;
    qx_long cell;
    float uvw[3];
};

class point_locator {
  public:
    // The most points that are located together.
    static constexpr int most_points = 32;

    // npts: how many points are to come, by which the locator decides what is worth its while.
    point_locator(mesh_info *mesh, const blk_tbl *table, qx_long npts);
    ~point_locator();
    point_locator(const point_locator &) = delete;
    point_locator &operator=(const point_locator &) = delete;

    // How many points the next call of locate may take: 1 as long as each has to be located by itself, in turn
    // with whatever else the operation asks of the mesh.
    int batch();

    // Locates n points of three coordinates each.
    void locate(int n, const float (*points)[3], located *out);

  private:
    enum class way { by_method, uniform, rectilinear, sets, lattice };

    void choose_way();
    void copy_axes();
    template <typename Cells>
    void locate_in_lists(const Cells &cells, int n, const float (*points)[3], located *out);

    mesh_info *mesh;
    const blk_tbl *table;
    qx_long npts;
    way chosen = way::by_method;
    std::optional<block_finder> blocks;
    packed_lists packed;
    std::optional<rectilinear_finder> rectilinear;
    float *axes = nullptr; // of a rectilinear mesh, one after another
};
