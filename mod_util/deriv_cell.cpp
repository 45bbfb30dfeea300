// Gradient, curl and divergence over cell sets, and the derivative at a point of a cell.
//
// A cell's node values are differentiated through its shape derivatives and the inverse of its Jacobian, at each
// of the cell's own nodes. A node gets the plain mean of what the cells around it have there:
//
//     for each set, cell, corner:   sum[node] += operator(derivatives at the corner);  ++count[node]
//     for each node:                sum[node] / count[node]
//
// Cells of a set share the table of shape derivatives at their corners and go eight at a time through the
// lanes of deriv_lanes.hpp; their rows are added one cell after the other, so that sums keep their order.
// What the lanes are not made for goes cell by cell through the exported forms, with their reports: sets of
// unusual cells, rows of unusual length, coordinates that cannot be had.

#include <skoklana/deriv.h>

#include "deriv_lanes.hpp"
#include "deriv_point.hpp"
#include "fetch.hpp"
#include "status.hpp"

namespace {

// ---- at points of one cell ---------------------------------------------------------------------------------

// Fetches what is needed to see a cell; false: there is none of the number, or nothing to be had.
bool see_cell(mesh_info *mesh, qx_long cell, derived_cell *seen)
{
    const cell_place place = find_set(mesh, cell);
    if (!is_cell(place) || !fetch_coords(mesh) || !fetch_connect(mesh, place.set)) return false;
    *seen = {cell_nodes(mesh, place), mesh->cell_nnodes[place.set],
             set_function<shape_deriv_func>(mesh, place.set, SLOT_SHAPE_DERIV)};
    return true;
}

auto nodes_in_place(const mesh_info *mesh, const derived_cell &cell)
{
    return [mesh, &cell](float *xyz) {
        for (int k = 0; k < cell.nnodes; ++k)
            place_node(mesh->coords, mesh->nspace, cell.nodes[k], xyz + 3 * k);
    };
}

// A row in the axes of a frame, in space.
void turn_back(float a, float b, float c, const float *frame, float *row)
{
    const float local[3] = {a, b, c};
    float transposed[9];
    MATmat3_transpose(transposed, frame);
    MATvec_by_mat(local, transposed, row, 1, 3, 3);
}

// d: the derivatives of a surface cell along its tangents, and what stood behind them.
void row_on_surface(grad_operator, const float *d, const float *frame, float *row)
{
    turn_back(d[0], d[1], 0, frame, row);
}

void row_on_surface(curl_operator, const float *d, const float *frame, float *row)
{
    turn_back(0, 0, d[1] - d[2], frame, row);
}

void row_on_surface(div_operator, const float *d, const float *, float *row)
{
    row[0] = d[3] + d[0];
}

// The rows of an operator at npts positions of one cell. Derivatives go into one buffer, which starts with 0 and
// keeps what it has where there are none.
template <typename Operator>
int derive_at_points(Operator op, mesh_info *mesh, int cell_ndim, qx_long cell, const node_data &of, int npts,
                     const float *uvw, float *out)
{
    if (cell_ndim != 2 && cell_ndim != 3) {
        report_error(Operator::name, Operator::wrong_cell);
        return 0;
    }
    constexpr qx_long entries_read = 9;
    float_room room(std::max(entries_read, static_cast<qx_long>(of.veclen) * cell_ndim));
    float *d = room.data(), frame[9], local_xyz[3 * most_derived_nodes];
    for (int i = 0; i < npts; ++i, uvw += 3, out += Operator::out_veclen) {
        bool has_row = true;
        if (cell_ndim == 3) {
            const int done = UTILderiv_cell_3d(mesh, cell, Operator::scalar_in_solids ? 1 : of.veclen,
                                               of.data, of.data_type, of.null_flag, of.null_value, uvw, d);
            // Callers rely on it that a curl and a divergence come from the buffer in either case.
            has_row = done != 0 || !Operator::zero_on_failure;
            if (has_row)
                Operator::combine([d](int axis, int c) { return d[Operator::ncomp * axis + c]; }, out);
        } else {
            has_row =
                UTILderiv_cell_2d(mesh, cell, Operator::scalar_on_surfaces ? 1 : of.veclen, of.data,
                                  of.data_type, of.null_flag, of.null_value, uvw, d, frame, local_xyz) != 0;
            if (has_row) row_on_surface(op, d, frame, out);
        }
        if (!has_row) std::fill_n(out, Operator::out_veclen, 0.0f);
    }
    return 1;
}

// ---- over whole sets ---------------------------------------------------------------------------------------

// Cells between two status checks; the first check comes before cell 256, the others 257 cells apart.
constexpr qx_long first_check = 256, check_step = 257;

struct node_sums {
    float *rows; // out_veclen floats a node
    int *counts; // corners that a node has taken
};

template <typename Operator> void add_row(const node_sums &sums, qx_long node, const float *row)
{
    for (int e = 0; e < Operator::out_veclen; ++e)
        sums.rows[node * Operator::out_veclen + e] += row[e];
    ++sums.counts[node];
}

// Node values of up to eight cells into lanes; lanes left over repeat the last cell. null[l]: the cell has a null
// node.
template <typename T, int ncomp>
void gather_lanes(const node_data &of, const qx_long *nodes, int ncells, int nnodes, lane_cells *cells,
                  bool *null)
{
    const T *data = static_cast<const T *>(of.data),
            null_value = null_value_of<T>(of.null_flag, of.null_value);
    for (int l = 0; l < lane_count; ++l) {
        const qx_long *row = nodes + std::min(l, ncells - 1) * nnodes;
        null[l] = false;
        for (int k = 0; k < nnodes; ++k) {
            const T *from = data + row[k] * ncomp;
            if (of.null_flag != 0) null[l] |= from[0] == null_value;
            for (int c = 0; c < ncomp; ++c)
                cells->values[k][c][l] = static_cast<float>(from[c]);
        }
    }
}

template <int nspace>
void gather_positions(const float *coords, const qx_long *nodes, int ncells, int nnodes, lane_cells *cells)
{
    for (int l = 0; l < lane_count; ++l) {
        const qx_long *row = nodes + std::min(l, ncells - 1) * nnodes;
        for (int k = 0; k < nnodes; ++k)
            for (int d = 0; d < 3; ++d)
                cells->xyz[k][d][l] = d < nspace ? coords[row[k] * nspace + d] : 0.0f;
    }
}

// One set in lanes.
template <typename Operator> class set_in_lanes {
  public:
    // first: the number of the set's first cell within the mesh, as the walk counts it.
    set_in_lanes(mesh_info *mesh_, int set_, qx_long first, const node_data &of_)
        : mesh(mesh_), set(set_), nnodes(mesh_->cell_nnodes[set_]), of(of_)
    {
        const int ndim = mesh->cell_ndim[set];
        const cell_place place = find_set(mesh, first);
        slopes_at = set_function<shape_deriv_func>(mesh, set, SLOT_SHAPE_DERIV);
        possible = place.set == set && place.local == 0 && nnodes >= 1 && nnodes <= most_lane_nodes &&
                   slopes_at != nullptr && of.data != nullptr && mesh->nspace >= 1 && mesh->nspace <= 3;
        if (ndim == 3 && of.veclen == Operator::ncomp) {
            derive = lanes_kernel<Operator, 3>();
            choose_gather<Operator::ncomp>();
        } else if (ndim == 2 && Operator::scalar_on_surfaces) {
            derive = lanes_kernel<Operator, 2>();
            choose_gather<1>();
        }
        possible = possible && derive != nullptr && gather != nullptr;
    }

    bool is_ready()
    {
        if (!possible || mesh->coords == nullptr) return false;
        if (!tabulated)
            slopes.tabulate(mesh->cell_ndim[set], nnodes,
                            [this](int k, float *rows) { slopes_at(mesh->cell_aux[set] + 3 * k, rows); });
        tabulated = true;
        return true;
    }

    // Cells first to first + ncells - 1 of the set, eight at most.
    void add(qx_long first, int ncells, const node_sums &sums)
    {
        const qx_long *nodes = mesh->cell_connect[set] + first * nnodes;
        bool null[lane_count];
        with_nspace(mesh->nspace, [&](auto nspace) {
            gather_positions<decltype(nspace)::value>(mesh->coords, nodes, ncells, nnodes, &cells);
            return 0;
        });
        gather(of, nodes, ncells, nnodes, &cells, null);
        derive(slopes, &cells);
        for (int l = 0; l < ncells; ++l)
            for (int k = 0; k < nnodes; ++k) {
                float row[3] = {0, 0, 0};
                if (!null[l])
                    for (int e = 0; e < Operator::out_veclen; ++e)
                        row[e] = cells.rows[k][e][l];
                add_row<Operator>(sums, *nodes++, row);
            }
    }

  private:
    template <int ncomp> void choose_gather()
    {
        with_dtype_or(
            of.data_type, [] { return 0; },
            [this](auto type) {
                gather = gather_lanes<typename decltype(type)::type, ncomp>;
                return 1;
            });
    }

    mesh_info *mesh;
    int set, nnodes;
    const node_data &of;
    bool possible, tabulated = false;
    shape_deriv_func slopes_at;
    void (*gather)(const node_data &, const qx_long *, int, int, lane_cells *, bool *) = nullptr;
    void (*derive)(const corner_slopes &, lane_cells *) = nullptr;
    corner_slopes slopes;
    lane_cells cells;
};

enum class walk { done, stopped, failed };

// Adds the cells first to end - 1 of a set. first_of_set: the number of its first cell within the mesh.
template <typename Operator>
bool add_cells(mesh_info *mesh, int set, qx_long first_of_set, qx_long first, qx_long end,
               const node_data &of, set_in_lanes<Operator> *in_lanes, float *corner_rows,
               const node_sums &sums)
{
    const int nnodes = mesh->cell_nnodes[set];
    for (qx_long c = first; c < end;) {
        if (in_lanes->is_ready()) {
            const int some = static_cast<int>(std::min<qx_long>(lane_count, end - c));
            in_lanes->add(c, some, sums);
            c += some;
            continue;
        }
        if (derive_at_points(Operator(), mesh, mesh->cell_ndim[set], first_of_set + c, of, nnodes,
                             mesh->cell_aux[set], corner_rows) != 1)
            return false;
        const qx_long *nodes = mesh->cell_connect[set] + c * nnodes;
        for (int k = 0; k < nnodes; ++k)
            add_row<Operator>(sums, nodes[k], corner_rows + k * Operator::out_veclen);
        ++c;
    }
    return true;
}

template <typename Operator>
walk add_set(mesh_info *mesh, int set, qx_long first_of_set, const node_data &of, const node_sums &sums)
{
    const qx_long count = mesh->cell_count[set];
    float_room corner_rows(static_cast<qx_long>(mesh->cell_nnodes[set]) * Operator::out_veclen);
    set_in_lanes<Operator> in_lanes(mesh, set, first_of_set, of);
    for (qx_long first = 0, check = first_check; first < count; first = check, check += check_step) {
        if (first != 0) {
            const float percent_a_cell = static_cast<float>(100.0 / static_cast<double>(count));
            if (interrupted(static_cast<int>(static_cast<float>(first) * percent_a_cell)))
                return walk::stopped;
        }
        if (!add_cells(mesh, set, first_of_set, first, std::min(check, count), of, &in_lanes,
                       corner_rows.data(), sums))
            return walk::failed;
    }
    return walk::done;
}

// A node without cells gets 0 / 0.
template <typename Operator> void take_means(qx_long nnodes, const node_sums &sums)
{
    for (qx_long node = 0; node < nnodes; ++node) {
        const float count = static_cast<float>(sums.counts[node]);
        for (int e = 0; e < Operator::out_veclen; ++e)
            sums.rows[node * Operator::out_veclen + e] /= count;
    }
}

template <typename Operator>
int derive_over_cells(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                      const void *null_value, float *out)
{
    if (!Operator::takes_on_cells(veclen)) return 0;
    scratch work;
    const node_sums sums = {out,
                            work.keep(insist_zeroed<int>(mesh->nnodes, "Cannot alloc node count array"))};
    std::fill_n(out, mesh->nnodes * Operator::out_veclen, 0.0f);

    const node_data of = {Operator::scalar_in_solids ? 1 : veclen, data, data_type, null_flag, null_value};
    qx_long first_of_set = 0;
    for (int set = 0; set < mesh->ncell_sets; ++set) {
        if (!fetch_connect(mesh, set)) return 0;
        OMpush_status_range(100 * set / mesh->ncell_sets, 100 * (set + 1) / mesh->ncell_sets);
        const walk end = add_set<Operator>(mesh, set, first_of_set, of, sums);
        // After a failure the range stays pushed: hosts know that from the operation's beginnings.
        if (end == walk::failed) return 0;
        OMpop_status_range();
        if (end == walk::stopped) return 0;
        first_of_set += mesh->cell_count[set];
    }
    take_means<Operator>(mesh->nnodes, sums);
    if (null_flag == 0) return 1;
    return UTILderiv_null(mesh, data, veclen, data_type, null_value, Operator::out_veclen, out) != 0;
}

} // namespace

int UTILderiv_cell_3d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out)
{
    derived_cell seen;
    if (!see_cell(mesh, cell, &seen)) return 0;
    return derive_in_solid(seen, {veclen, data, data_type, null_flag, null_value}, uvw, out,
                           nodes_in_place(mesh, seen));
}

int UTILderiv_cell_2d(mesh_info *mesh, qx_long cell, int veclen, const void *data, int data_type,
                      int null_flag, const void *null_value, const float *uvw, float *out, float *frame,
                      float *local_xyz)
{
    derived_cell seen;
    if (!see_cell(mesh, cell, &seen)) return 0;
    return derive_in_surface(seen, {veclen, data, data_type, null_flag, null_value}, uvw, out, frame,
                             local_xyz, nodes_in_place(mesh, seen));
}

int UTILgrad_cell(mesh_info *mesh, int cell_ndim, qx_long cell, const void *data, int data_type,
                  int null_flag, const void *null_value, int npts, const float *uvw, float *out)
{
    return derive_at_points(grad_operator(), mesh, cell_ndim, cell,
                            {1, data, data_type, null_flag, null_value}, npts, uvw, out);
}

int UTILcurl_cell(mesh_info *mesh, int cell_ndim, qx_long cell, const void *data, int veclen, int data_type,
                  int null_flag, const void *null_value, int npts, const float *uvw, float *out)
{
    return derive_at_points(curl_operator(), mesh, cell_ndim, cell,
                            {veclen, data, data_type, null_flag, null_value}, npts, uvw, out);
}

int UTILdiv_cell(mesh_info *mesh, int cell_ndim, qx_long cell, const void *data, int veclen, int data_type,
                 int null_flag, const void *null_value, int npts, const float *uvw, float *out)
{
    return derive_at_points(div_operator(), mesh, cell_ndim, cell,
                            {veclen, data, data_type, null_flag, null_value}, npts, uvw, out);
}

int UTILgrad_cells(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                   const void *null_value, float *out)
{
    return derive_over_cells<grad_operator>(mesh, data, veclen, data_type, null_flag, null_value, out);
}

int UTILcurl_cells(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                   const void *null_value, float *out)
{
    return derive_over_cells<curl_operator>(mesh, data, veclen, data_type, null_flag, null_value, out);
}

int UTILdiv_cells(mesh_info *mesh, const void *data, int veclen, int data_type, int null_flag,
                  const void *null_value, float *out)
{
    return derive_over_cells<div_operator>(mesh, data, veclen, data_type, null_flag, null_value, out);
}
