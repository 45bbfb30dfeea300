// Location of many points of one mesh within one operation: the same cells and parameters as the mesh's
// find_cell_func gives point by point, sooner where that is a function of this library.
#pragma once

#include "block_search.hpp"

#include <optional>

// Points as an operation is given them: rows of nspace floats, and the matrix that takes them into the space of
// the mesh, or null.
struct sample_points {
    const float *points;
    int nspace;
    const float *xform;

    // Row i as it stands, with zeros beyond nspace.
    void read(qx_long i, float *point) const
    {
        for (int d = 0; d < 3; ++d)
            point[d] = d < nspace ? points[i * nspace + d] : 0;
    }

    // Row i in the space of the mesh.
    void place(qx_long i, float *point) const
    {
        read(i, point);
        if (xform != nullptr) MATvec3_mat4_multiply(point, xform);
    }
};

// How the cell of a point is found: by a call of the mesh's find_cell_func, or as the library's own does it for a
// kind of mesh.
enum class search_way { by_method, uniform, rectilinear, sets, lattice };

// The library's own way, if the functions in the mesh's table are the library's and all that they would have to
// fetch is there.
search_way own_search_way(const mesh_info *mesh, const blk_tbl *table);

class point_locator {
  public:
    // As many points as are located together without memory from the heap, and at most.
    static constexpr qx_long short_batch = 256, longest_batch = qx_long{1} << 18;

    // npts: how many points are to come, by which the locator decides what is worth its while.
    point_locator(mesh_info *mesh, const blk_tbl *table, qx_long npts);
    ~point_locator();
    point_locator(const point_locator &) = delete;
    point_locator &operator=(const point_locator &) = delete;

    // How many points the next call of locate may take: 1 as long as each has to be located by itself, in turn
    // with whatever else the operation asks of the mesh.
    qx_long batch();

    // Of n points, in order, how many to locate in one call so that it doesn't take long.
    qx_long worthwhile(qx_long n, const float (*points)[3]) const;

    // Locates n points of three coordinates each.
    void locate(qx_long n, const float (*points)[3], located *out);

  private:
    void choose_way();
    void copy_axes();
    void open_queue();
    qx_long head_of(const float *point) const;
    template <typename Cells>
    void locate_in_lists(const Cells &cells, qx_long n, const float (*points)[3], located *out);
    template <typename Cells>
    void locate_by_block(const Cells &cells, qx_long n, const float (*points)[3], located *out);

    mesh_info *mesh;
    const blk_tbl *table;
    qx_long npts;
    search_way chosen = search_way::by_method;
    std::optional<block_finder> blocks;
    qx_long capacity = 0;           // points that the queue has room for; 0: no queue
    queued_point *queue = nullptr;  // points by block
    unsigned *queue_ends = nullptr; // by block
    std::optional<rectilinear_finder> rectilinear;
    float *axes = nullptr; // of a rectilinear mesh, one after another
};

// The points of an operation, located ahead of their use.
class located_points {
  public:
    located_points(mesh_info *mesh, const blk_tbl *table, const sample_points &points, qx_long npts);
    ~located_points();
    located_points(const located_points &) = delete;
    located_points &operator=(const located_points &) = delete;

    // Point i; to be asked for in ascending order.
    const located &at(qx_long i)
    {
        if (i >= end) locate_from(i);
        return found[i - first];
    }

    // Point i if it has been located already, and lies in a cell; else null.
    const located *ahead(qx_long i) const
    {
        return i < end && found[i - first].found ? &found[i - first] : nullptr;
    }

  private:
    void locate_from(qx_long i);
    void make_room();

    point_locator locator;
    sample_points points;
    qx_long npts;
    qx_long first = 0, end = 0, room = point_locator::short_batch;
    float (*places)[3] = few_places;
    located *found = few_found;
    void *more_places = nullptr, *more_found = nullptr;
    bool has_asked = false;
    float few_places[point_locator::short_batch][3];
    located few_found[point_locator::short_batch];
};
