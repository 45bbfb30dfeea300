// Lists of the library as the parts that results are made of. Rows of cells are handed out in VTK's order of nodes.
#include "parts.hpp"

#include <skoklana/cell.h>
#include <skoklana/cell_nodes.h>
#include <skoklana/mesh.h>

#include <algorithm>

namespace {

// clang-format off
// Which of VTK's nodes is node k, by kind.
constexpr signed char vtk_node[CELL_KINDS][20] = {
    {0, 1, 2},
    {0, 1, 2, 3, 4, 5},
    {0, 1, 2, 3, 4, 5, 6, 7},
    {1, 2, 3, 0, 5, 8, 4, 9, 7, 6},
    {4, 2, 3, 0, 1, 11, 12, 9, 10, 7, 8, 5, 6},
    {4, 5, 3, 1, 2, 0, 10, 11, 9, 7, 8, 6, 14, 13, 12},
    {7, 4, 5, 6, 3, 0, 1, 2, 15, 12, 13, 14, 11, 8, 9, 10, 19, 16, 17, 18},
};
// clang-format on

// Places in a list, kept in their order.
template <typename T>
list_of<T> chosen_rows(const list_of<T> &from, const std::vector<qx_long> &rows, int length = 1)
{
    if (from == nullptr) return nullptr;
    list_of<T> made = new_list<T>(static_cast<qx_long>(rows.size()) * length);
    T *to = made.get();
    for (const qx_long row : rows)
        to = std::copy_n(from.get() + row * length, length, to);
    return made;
}

void reorder_rows(qx_long *rows, qx_long count, int kind, int order, bool to_vtk)
{
    const int length = length_of(kind, order);
    if (cell_kinds[kind].ndim < 3) return;
    qx_long row[20];
    for (qx_long cell = 0; cell < count; ++cell, rows += length) {
        std::copy_n(rows, length, row);
        for (int k = 0; k < length; ++k)
            if (to_vtk)
                rows[vtk_node[kind][k]] = row[k];
            else
                rows[k] = row[vtk_node[kind][k]];
    }
}

// Rows of a kind of cells from VTK's order of nodes to that of the library.
py::array reordered(const py::array &rows, int kind, int order, bool to_vtk)
{
    if (kind < 0 || kind >= CELL_KINDS || (order != 1 && order != 2) || rows.ndim() != 2 ||
        rows.shape(1) != length_of(kind, order))
        throw py::value_error("cells: has the wrong shape");
    const qx_long *from = elements<qx_long>("cells", rows, rows.size());
    list_of<qx_long> made = new_list<qx_long>(rows.size());
    std::copy_n(from, rows.size(), made.get());
    reorder_rows(made.get(), rows.shape(0), kind, order, to_vtk);
    return adopt(std::move(made), {rows.shape(0), rows.shape(1)});
}

// What exchanges the axes u and v of a kind, which turns a cell inside out: each node has a partner.
struct partner_nodes {
    signed char of[CELL_KINDS][20] = {};

    partner_nodes()
    {
        for (int kind = 0; kind < CELL_KINDS; ++kind) {
            const auto &at = cell_kinds[kind].position;
            for (int a = 0; a < cell_kinds[kind].nnodes_2; ++a)
                for (int b = 0; b < cell_kinds[kind].nnodes_2; ++b)
                    if (at[a][0] == at[b][1] && at[a][1] == at[b][0] && at[a][2] == at[b][2])
                        of[kind][a] = static_cast<signed char>(b);
        }
    }
};

// The sign of the volume in the middle of cells of one kind.
class volume_sign {
  public:
    explicit volume_sign(int kind) : ncorners(cell_kinds[kind].ncorners)
    {
        static const shape_deriv_func functions[CELL_KINDS] = {
            nullptr,           nullptr, nullptr, UTILsh_deriv_tet_1, UTILsh_deriv_pyr_1, UTILsh_deriv_pent_1,
            UTILsh_deriv_hex_1};
        const float middle[CELL_KINDS][3] = {{}, {}, {}, {0.25f, 0.25f, 0.25f}, {}, {1 / 3.0f, 1 / 3.0f, 0},
                                             {}};
        functions[kind](middle[kind], deriv);
    }

    bool is_negative(const float *points, const qx_long *row) const
    {
        float corners[8 * 3];
        for (int k = 0; k < ncorners; ++k)
            std::copy_n(points + row[k] * 3, 3, corners + 3 * k);
        return UTILjacobian_3d_det(ncorners, deriv, corners) < 0;
    }

  private:
    int ncorners;
    float deriv[3 * 8];
};

// Turns solid cells round whose volume is negative; rows: in the library's order, ours to write to.
void turn_round(const py::array &points, const py::array &rows, int kind, int order)
{
    if (kind < CELL_TET || kind >= CELL_KINDS || (order != 1 && order != 2) || points.ndim() != 2 ||
        points.shape(1) != 3 || rows.ndim() != 2 || rows.shape(1) != length_of(kind, order) ||
        !rows.writeable())
        throw py::value_error("cells: has the wrong shape");
    static const partner_nodes partners;
    const qx_long npoints = points.shape(0), count = rows.shape(0);
    const int length = length_of(kind, order);
    const float *at = elements<float>("points", points, 3 * npoints);
    auto *row = const_cast<qx_long *>(elements<qx_long>("cells", rows, rows.size()));
    if (std::any_of(row, row + rows.size(), [=](qx_long node) { return node < 0 || node >= npoints; }))
        throw py::index_error("cells: names a node that points has not");
    const volume_sign sign(kind);
    for (qx_long cell = 0; cell < count; ++cell, row += length) {
        if (!sign.is_negative(at, row)) continue;
        qx_long turned[20];
        for (int k = 0; k < length; ++k)
            turned[k] = row[partners.of[kind][k]];
        std::copy_n(turned, length, row);
    }
}

} // namespace

int length_of(int kind, int order)
{
    return order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2;
}

void take_result(host_result *made, made_parts *parts)
{
    const std::unique_ptr<host_result, void (*)(host_result *)> held(made, host_free_result);
    parts->nold = made->nold;
    parts->nnew = made->nnodes - made->nold;
    parts->old_node = taken(made->old_node);
    parts->first = taken(made->first_node);
    parts->second = taken(made->second_node);
    parts->t = taken(made->t);
    parts->coords = taken(made->coords);
    for (int s = 0; s < made->nsets; ++s) {
        host_set &set = made->sets[s];
        parts->sets.push_back({set.kind, set.order, set.ncells, taken(set.connect), taken(set.cell)});
    }
}

py::dict hand_out(made_parts *parts, int nspace)
{
    py::dict out;
    const qx_long nnew = parts->nnew, nnodes = parts->nold + nnew;
    out["old"] = adopt(std::move(parts->old_node), {parts->nold});
    out["first"] = adopt(std::move(parts->first), {nnew});
    out["second"] = adopt(std::move(parts->second), {nnew});
    out["t"] = adopt(std::move(parts->t), {nnew});
    if (parts->third != nullptr) {
        out["third"] = adopt(std::move(parts->third), {nnew});
        out["s"] = adopt(std::move(parts->s), {nnew});
    }
    if (parts->coords != nullptr) out["points"] = adopt(std::move(parts->coords), {nnodes, nspace});
    py::list sets;
    for (made_set &set : parts->sets) {
        py::object cell = py::none();
        if (set.cell != nullptr) cell = adopt(std::move(set.cell), {set.count});
        sets.append(py::make_tuple(set.kind, set.order,
                                   adopt(std::move(set.connect), {set.count, length_of(set.kind, set.order)}),
                                   cell));
    }
    out["sets"] = sets;
    return out;
}

void put_in_vtk_order(made_parts *parts)
{
    for (made_set &set : parts->sets)
        reorder_rows(set.connect.get(), set.count, set.kind, set.order, true);
}

void drop_unused(made_parts *parts, int nspace)
{
    std::vector<qx_long> number(static_cast<size_t>(parts->nold + parts->nnew), -1);
    for (const made_set &set : parts->sets) {
        const qx_long entries = set.count * length_of(set.kind, set.order);
        for (qx_long i = 0; i < entries; ++i) {
            stop_if_asked_at(i);
            number[static_cast<size_t>(set.connect[i])] = 0;
        }
    }
    std::vector<qx_long> old_rows, new_rows, all_rows;
    for (size_t node = 0; node < number.size(); ++node) {
        const auto row = static_cast<qx_long>(node);
        stop_if_asked_at(row);
        if (number[node] < 0) continue;
        number[node] = static_cast<qx_long>(all_rows.size());
        all_rows.push_back(row);
        if (row < parts->nold)
            old_rows.push_back(row);
        else
            new_rows.push_back(row - parts->nold);
    }
    if (all_rows.size() == number.size()) return;
    for (made_set &set : parts->sets) {
        const qx_long entries = set.count * length_of(set.kind, set.order);
        for (qx_long i = 0; i < entries; ++i) {
            stop_if_asked_at(i);
            set.connect[i] = number[static_cast<size_t>(set.connect[i])];
        }
    }
    parts->old_node = chosen_rows(parts->old_node, old_rows);
    for (list_of<qx_long> *list : {&parts->first, &parts->second, &parts->third})
        *list = chosen_rows(*list, new_rows);
    for (list_of<float> *list : {&parts->t, &parts->s})
        *list = chosen_rows(*list, new_rows);
    parts->coords = chosen_rows(parts->coords, all_rows, nspace);
    parts->nold = static_cast<qx_long>(old_rows.size());
    parts->nnew = static_cast<qx_long>(new_rows.size());
}

bool place(mesh_info *mesh, made_parts *parts)
{
    const int nspace = mesh->nspace;
    parts->coords = new_list<float>((parts->nold + parts->nnew) * nspace);
    float *to = parts->coords.get();
    if (mesh->ndim != 0) {
        if (parts->nold > 0 && UTILget_coord_list(mesh, parts->nold, parts->old_node.get(), to) != 1)
            return false;
    } else {
        if (mesh->coords == nullptr && mesh->get_coords(mesh, &mesh->coords) != 1) return false;
        for (qx_long i = 0; i < parts->nold; ++i)
            std::copy_n(mesh->coords + parts->old_node[i] * nspace, nspace, to + i * nspace);
    }
    return parts->nnew == 0 || UTILeval_coord(mesh, parts->nnew, parts->first.get(), parts->second.get(),
                                              parts->t.get(), to + parts->nold * nspace) == 1;
}

list_of<qx_long> kept_nodes(const mesh_info *mesh, list_of<qx_long> map, qx_long nold)
{
    if (mesh->ndim != 0) return map;
    list_of<qx_long> made = new_list<qx_long>(nold);
    qx_long filled = 0;
    for (qx_long node = 0; node < mesh->nnodes; ++node)
        if (map[node] >= 0) made[filled++] = node;
    return made;
}

void bind_parts(py::module_ &m)
{
    m.def("reorder", &reordered);
    m.def("turn_round", &turn_round);
}
