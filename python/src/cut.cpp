// Cuts and bands.
#include "parts.hpp"

#include <skoklana/cut.h>
#include <skoklana/mesh.h>

#include <algorithm>

namespace {

constexpr size_t nband_lists = 6;
constexpr int kind_of_list[nband_lists] = {CELL_TET, CELL_PRISM, CELL_PYR, CELL_HEX, CELL_TRI, CELL_QUAD};

py::dict cut_of(mesh_object &mesh, const py::array &values, const py::object &null, double level, int side,
                bool all_nodes, int threads, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    made_parts parts;
    run_call("cut", &mesh, progress, [&] {
        host_cut_options options = {};
        options.size = sizeof options;
        options.threads = threads;
        host_result *made = nullptr;
        const int done = host_cut(mesh.field_of_extractions(), &rows.array, level, side, &options, &made);
        if (done != HOST_DONE) return done;
        take_result(made, &parts);
        if (!all_nodes) drop_unused(&parts, mesh.nspace);
        put_in_vtk_order(&parts);
        return done;
    });
    return hand_out(&parts, mesh.nspace);
}

// Where the new nodes of a band lie. What lies between a node and another new node has a third one.
template <typename T>
void find_places(const mesh_info *mesh, const T *values, const double *levels, const unsigned char *level_of,
                 made_parts *parts)
{
    const qx_long nnew = parts->nnew, nnodes = mesh->nnodes;
    const qx_long *second = parts->second.get();
    const bool nested = std::any_of(second, second + nnew, [=](qx_long node) { return node >= nnodes; });
    parts->t = new_list<float>(nnew);
    if (nested) {
        parts->third = new_list<qx_long>(nnew);
        parts->s = new_list<float>(nnew);
    }
    for (qx_long e = 0; e < nnew; ++e) {
        stop_if_asked_at(e);
        const qx_long end = parts->second[e];
        const auto a = static_cast<double>(values[parts->first[e]]);
        const double b = end < nnodes ? static_cast<double>(values[end]) : levels[level_of[end - nnodes]];
        parts->t[e] = a == b ? 0 : static_cast<float>((levels[level_of[e]] - a) / (b - a));
    }
    for (qx_long e = 0; nested && e < nnew; ++e) {
        const qx_long end = parts->second[e] - nnodes;
        parts->third[e] = -1;
        parts->s[e] = 0;
        if (end < 0) continue;
        parts->third[e] = parts->second[end];
        parts->s[e] = parts->t[end];
    }
    for (qx_long e = 0; nested && e < nnew; ++e)
        if (parts->third[e] >= 0) parts->second[e] = parts->first[parts->second[e] - nnodes];
}

int band(mesh_info *mesh, const rows_arg &values, const double *levels, bool lines, made_parts *parts)
{
    qx_long nold = 0, *nodes = nullptr, nnew = 0, *first = nullptr, *second = nullptr;
    qx_long ncells[nband_lists] = {}, *connect[nband_lists] = {}, nconnect[nband_lists] = {};
    qx_long nlow = lines ? 1 : 0, nhigh = nlow, *low = nullptr, *high = nullptr;
    unsigned char *level_list = nullptr;
    float *coords = nullptr;
    const host_array &data = values.array;
    if (UTILcontour(mesh, data.data, data.type, values.null_flag(), data.null, levels[0], levels[1], &nold,
                    &nodes, &nnew, &first, &second, &level_list, ncells, connect, nconnect, mesh->nspace,
                    &coords, &nlow, &low, &nhigh, &high) != 1) {
        for (qx_long *list : connect)
            host_free(list);
        host_free(low);
        host_free(high);
        return library_failed;
    }
    list_of<qx_long> kept(nodes), low_lines(low), high_lines(high), held[nband_lists];
    parts->first.reset(first);
    parts->second.reset(second);
    parts->coords.reset(coords);
    const list_of<unsigned char> level_of(level_list);
    for (size_t list = 0; list < nband_lists; ++list)
        held[list].reset(connect[list]);
    parts->nold = nold;
    parts->nnew = nnew;
    parts->old_node = kept_nodes(mesh, std::move(kept), nold);
    for (size_t list = 0; list < nband_lists; ++list)
        if (ncells[list] > 0)
            parts->sets.push_back({kind_of_list[list], 1, ncells[list], std::move(held[list]), nullptr});
    if (low_lines != nullptr && nlow > 0)
        parts->sets.push_back({CELL_LINE, 1, nlow, std::move(low_lines), nullptr});
    if (high_lines != nullptr && nhigh > 0)
        parts->sets.push_back({CELL_LINE, 1, nhigh, std::move(high_lines), nullptr});
    switch (data.type) {
#define PLACES_OF(code, T) \
    case code: find_places(mesh, static_cast<const T *>(data.data), levels, level_of.get(), parts); break;
        PLACES_OF(DTYPE_CHAR, signed char)
        PLACES_OF(DTYPE_BYTE, unsigned char)
        PLACES_OF(DTYPE_SHORT, short)
        PLACES_OF(DTYPE_INT, int)
        PLACES_OF(DTYPE_FLOAT, float)
        PLACES_OF(DTYPE_DOUBLE, double)
        PLACES_OF(DTYPE_QX_LONG, qx_long)
#undef PLACES_OF
    default: return library_failed;
    }
    drop_unused(parts, mesh->nspace);
    return HOST_DONE;
}

py::dict band_of(mesh_object &mesh, const py::array &values, const py::object &null, double low, double high,
                 bool lines, const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    const double levels[2] = {low, high};
    made_parts parts;
    run_call("band", &mesh, progress, [&] {
        mesh_info *record = host_mesh(mesh.field_of_extractions());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        if (record->ndim == 1)
            throw std::invalid_argument("band: the library has none for meshes of one axis");
        const int done = band(record, rows, levels, lines, &parts);
        put_in_vtk_order(&parts);
        return done;
    });
    return hand_out(&parts, mesh.nspace);
}

} // namespace

void bind_cuts(py::module_ &m)
{
    m.def("cut", &cut_of);
    m.def("band", &band_of);
}
