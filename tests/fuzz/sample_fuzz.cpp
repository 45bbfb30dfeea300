// Location and sampling on any mesh: a cell that is found is one of the mesh, and each point has a row.

#include "any_mesh.hpp"

#include <algorithm>
#include <random>

using namespace fuzz;

// On a rectilinear mesh the last node of an axis may be found, which starts no cell, so boxes are asked of
// cell sets only.
static void insist_found(mesh_info *mesh, qx_long cell)
{
    insist(cell >= 0 && cell < (mesh->ndim > 0 ? mesh->nnodes : mesh->ncells), "a cell that was found");
    float low[3], high[3];
    insist(mesh->ndim > 0 || UTILcell_extent(mesh, cell, low, high) == 1, "a cell that was found has a box");
}

// Few points from the bytes themselves, or many that only their seed is drawn for.
static std::vector<float> any_points(FuzzedDataProvider &bytes, int nspace, qx_long *npts)
{
    if (bytes.ConsumeBool()) {
        *npts = bytes.ConsumeIntegralInRange<qx_long>(0, 20);
        return any_floats(bytes, *npts * nspace);
    }
    *npts = bytes.ConsumeIntegralInRange<qx_long>(60, 300);
    std::mt19937 random(bytes.ConsumeIntegral<uint16_t>());
    std::uniform_int_distribution<int> eighths(-18, 18); // nodes stand at quarters
    std::vector<float> points(static_cast<size_t>(*npts * nspace));
    for (float &value : points)
        value = 0.125f * static_cast<float>(eighths(random));
    return points;
}

// Many points at once have the rows that each of them has alone.
static void insist_same_alone(mesh_info *mesh, const blk_tbl *table, const std::vector<float> &points,
                              qx_long npts, const any_data &data, const std::vector<unsigned char> &rows)
{
    const int nspace = mesh->nspace;
    const qx_long size = data.type == DTYPE_FLOAT ? 4 : 8;
    for (qx_long i = 0; i < npts; ++i) {
        std::vector<unsigned char> values = data.values, row(static_cast<size_t>(size * data.veclen));
        void *in[1] = {values.data()}, *out[1] = {row.data()};
        unsigned char null[8], highest[8] = {};
        std::memcpy(null, data.null_value, 8);
        int flag = data.null_flag;
        insist(UTILinterpolate_data(1, points.data() + i * nspace, nspace, nullptr, mesh, table, 1, data.type,
                                    &data.veclen, in, highest, highest, &flag, null, 0, 0, out) == 1,
               "a point alone is sampled");
        insist(std::memcmp(row.data(), rows.data() + i * size * data.veclen, row.size()) == 0,
               "a point has the same row alone");
    }
}

static void try_points(FuzzedDataProvider &bytes, mesh_info *mesh)
{
    blk_tbl *table = nullptr;
    if (mesh->methods->interp_init_func(mesh, &table) != 1) return;
    const int nspace = mesh->nspace;
    qx_long npts;
    const std::vector<float> points = any_points(bytes, nspace, &npts);
    for (qx_long i = 0; i < npts; ++i) {
        float point[3] = {}, uvw[3];
        std::copy_n(points.data() + i * nspace, nspace, point);
        qx_long cell = -1;
        if (mesh->methods->find_cell_func(mesh, table, point, &cell, uvw) == 1) insist_found(mesh, cell);
    }

    any_data data = make_data(bytes, mesh->nnodes, bytes.ConsumeIntegralInRange(1, 4));
    std::vector<unsigned char> rows(static_cast<size_t>(npts * data.veclen * 8 + 8));
    void *in[1] = {data.values.data()}, *out[1] = {rows.data()};
    unsigned char null[8], highest[8] = {};
    std::memcpy(null, data.null_value, 8);
    int flag = data.null_flag;
    // Values that an integer cannot hold have no defined conversion, so only floats are sampled here.
    if (data.type == DTYPE_FLOAT || data.type == DTYPE_DOUBLE) {
        const any_interruption interruption(bytes);
        const int result =
            UTILinterpolate_data(npts, points.data(), nspace, nullptr, mesh, table, 1, data.type,
                                 &data.veclen, in, highest, highest, &flag, null, 0, 0, out);
        if (result == 1 && !interruption.armed()) insist_same_alone(mesh, table, points, npts, data, rows);
    }

    const std::vector<int> set_map(static_cast<size_t>(mesh->ncell_sets) + 1, 0);
    const any_data cell_data = make_data(bytes, mesh->ndim > 0 ? mesh->nnodes : mesh->ncells, 1);
    std::vector<unsigned char> cell_values = cell_data.values;
    void *cell_in[1] = {cell_values.data()};
    flag = cell_data.null_flag;
    std::memcpy(null, cell_data.null_value, 8);
    UTILinterpolate_cell_data(npts, points.data(), nspace, nullptr, mesh, table, set_map.data(),
                              cell_data.type, 1, cell_in, highest, highest, &flag, null, rows.data());
    host_free_table(table);
}

static void try_lattice(FuzzedDataProvider &bytes, mesh_info *mesh)
{
    if (mesh->points != nullptr || mesh->methods->find_cell_func != UTILfind_cell) return;
    const int ndim = bytes.ConsumeIntegralInRange(1, mesh->nspace), nspace = mesh->nspace;
    qx_long dims[3] = {1, 1, 1};
    for (int d = 0; d < ndim; ++d)
        dims[d] = bytes.ConsumeIntegralInRange<qx_long>(1, 6);
    const std::vector<float> low = any_floats(bytes, 3), high = any_floats(bytes, 3);
    const std::vector<float> xform = any_floats(bytes, 16);
    const float *moved = bytes.ConsumeBool() ? xform.data() : nullptr;
    const int single = bytes.ConsumeBool();
    blk_tbl_unif *table = nullptr;
    const auto build = mesh->ndim > 0 ? UTILinterp_init_struct2 : UTILinterp_init2;
    if (build(mesh, moved, ndim, dims, nspace, low.data(), high.data(), single, &table) != 1) return;
    const qx_long npts = bytes.ConsumeIntegralInRange<qx_long>(0, 20);
    const std::vector<float> points = any_floats(bytes, npts * nspace);
    const int veclens[1] = {bytes.ConsumeIntegralInRange(1, 3)};
    any_data data = make_data(bytes, mesh->nnodes, veclens[0]);
    std::vector<unsigned char> rows(static_cast<size_t>(npts * veclens[0] * 8 + 8));
    void *in[1] = {data.values.data()}, *out[1] = {rows.data()};
    int flags[1] = {data.null_flag};
    if (single != 0 || data.type == DTYPE_FLOAT || data.type == DTYPE_DOUBLE)
        UTILinterpolate_data_to_unif(npts, points.data(), nspace, moved, mesh, table, 1, data.type, veclens,
                                     in, data.null_value, flags, single, out);
    insist(UTILinterp_end2(table) == 1, "a table is released");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size)
{
    hush();
    FuzzedDataProvider bytes(input, size);
    const bool on_lattice = bytes.ConsumeBool();
    any_mesh made;
    make_mesh(bytes, &made);
    if (made.mesh == nullptr) return 0;
    if (!on_lattice) {
        try_points(bytes, made.mesh);
        return 0;
    }
    const any_interruption interruption(bytes);
    try_lattice(bytes, made.mesh);
    return 0;
}
