// Whole cells of a mesh: by a mark each, and those without null nodes.
#include "parts.hpp"

#include <skoklana/cut.h>
#include <skoklana/mesh.h>

#include <algorithm>

namespace {

// The lists of the library, released whatever happens.
struct owned_maps {
    std::vector<qx_long> count;
    std::vector<qx_long *> map;

    explicit owned_maps(size_t n) : count(n), map(n) {}
    ~owned_maps()
    {
        for (qx_long *list : map)
            host_free(list);
    }
    owned_maps(const owned_maps &) = delete;
    owned_maps &operator=(const owned_maps &) = delete;
};

qx_long first_cell(const mesh_info *mesh, size_t set)
{
    return mesh->ndim == 0 ? mesh->cell_first[set] : 0;
}

size_t sets_of(const mesh_info *mesh)
{
    return mesh->ndim == 0 ? static_cast<size_t>(mesh->ncell_sets) : 1;
}

// Whole cells, chosen by a mark each.
py::dict cells_by_mark(mesh_object &mesh, const py::array &marks, const py::object &progress)
{
    const qx_long ncells = marks.size();
    const unsigned char *mark = elements<unsigned char>("marks", marks, ncells);
    made_parts parts;
    run_call("threshold", &mesh, progress, [&] {
        mesh_info *record = host_mesh(mesh.lattice ? mesh.field_of_extractions() : mesh.field());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        if (record->ncells != ncells) throw std::invalid_argument("marks: has the wrong length");
        qx_long before = 0;
        const unsigned char out = 0;
        for (size_t set = 0; set < sets_of(record); ++set) {
            const qx_long count = record->ndim == 0 ? record->cell_count[set] : record->ncells;
            qx_long left = 0, *connect = nullptr, entries = 0;
            if (UTILthresh_null_from_cells(record, static_cast<int>(set), mark + before, DTYPE_BYTE, &out,
                                           &left, &connect, &entries) != 1)
                return library_failed;
            list_of<qx_long> rows(connect);
            if (left > 0) {
                list_of<qx_long> cell = new_list<qx_long>(left);
                qx_long filled = 0;
                for (qx_long c = 0; c < count; ++c) {
                    stop_if_asked_at(c);
                    if (mark[before + c] != 0) cell[filled++] = before + c;
                }
                int kind = record->ndim == 0 ? mesh.sets[set].kind : -1, order = 1;
                if (kind < 0)
                    kind = record->ndim == 3 ? CELL_HEX : record->ndim == 2 ? CELL_QUAD : CELL_LINE;
                else
                    order = mesh.sets[set].order;
                parts.sets.push_back({kind, order, left, std::move(rows), std::move(cell)});
            }
            before += count;
        }
        parts.nold = record->nnodes;
        parts.old_node = new_list<qx_long>(parts.nold);
        for (qx_long node = 0; node < parts.nold; ++node)
            parts.old_node[node] = node;
        drop_unused(&parts, record->nspace);
        if (!place(record, &parts)) return library_failed;
        put_in_vtk_order(&parts);
        return static_cast<int>(HOST_DONE);
    });
    return hand_out(&parts, mesh.nspace);
}

// A mark a cell by marks of nodes: whether all of its nodes have one, or any.
py::array marks_of_cells(mesh_object &mesh, const py::array &node_marks, bool any)
{
    const qx_long nnodes = mesh.nnodes;
    const unsigned char *of_node = elements<unsigned char>("marks", node_marks, nnodes);
    list_of<unsigned char> made;
    qx_long ncells = 0;
    run_call("threshold", &mesh, py::none(), [&] {
        mesh_info *record = host_mesh(mesh.lattice ? mesh.field_of_extractions() : mesh.field());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        ncells = record->ncells;
        made = new_list<unsigned char>(ncells);
        qx_long filled = 0;
        for (int set = 0; set < record->ncell_sets; ++set) {
            if (record->cell_connect[set] == nullptr &&
                record->get_connect(record, set, &record->cell_connect[set]) != 1)
                return library_failed;
            const int length = record->cell_nnodes[set];
            const qx_long *row = record->cell_connect[set];
            for (qx_long cell = 0; cell < record->cell_count[set]; ++cell, row += length) {
                stop_if_asked_at(cell);
                const auto is_marked = [&](qx_long node) { return of_node[node] != 0; };
                made[filled++] = (any ? std::any_of(row, row + length, is_marked)
                                      : std::all_of(row, row + length, is_marked))
                                     ? 1
                                     : 0;
            }
        }
        return static_cast<int>(HOST_DONE);
    });
    return adopt(std::move(made), {ncells});
}

// Nodes that are not null, and the cells that have only such nodes.
int remove_null(const mesh_object &mesh, mesh_info *record, const host_array &data, made_parts *parts)
{
    qx_long nkept = 0, *nodes = nullptr;
    if (record->ndim != 0) {
        qx_long *connect = nullptr, ncells = 0, size = 0;
        if (UTILthresh_null(record, data.data, data.type, data.null, &nkept, &nodes, &connect, &ncells, &size,
                            nullptr) != 1)
            return library_failed;
        parts->old_node.reset(nodes);
        list_of<qx_long> rows(connect);
        const int kind = record->ndim == 3 ? CELL_HEX : record->ndim == 2 ? CELL_QUAD : CELL_LINE;
        if (ncells > 0) parts->sets.push_back({kind, 1, ncells, std::move(rows), nullptr});
    } else {
        const size_t n = sets_of(record);
        owned_maps cells(n), connect(n);
        std::vector<qx_long> sizes(n);
        if (UTILthresh_null(record, data.data, data.type, data.null, &nkept, &nodes, cells.map.data(),
                            cells.count.data(), connect.map.data(), sizes.data()) != 1)
            return library_failed;
        parts->old_node = kept_nodes(record, list_of<qx_long>(nodes), nkept);
        for (size_t set = 0; set < n; ++set) {
            const qx_long count = cells.count[set];
            if (count == 0) continue;
            for (qx_long i = 0; i < count; ++i)
                cells.map[set][i] += first_cell(record, set);
            parts->sets.push_back({mesh.sets[set].kind, mesh.sets[set].order, count, taken(connect.map[set]),
                                   taken(cells.map[set])});
        }
    }
    parts->nold = nkept;
    return of_library(place(record, parts));
}

py::dict without_null(mesh_object &mesh, const py::array &values, const py::object &null,
                      const py::object &progress)
{
    const rows_arg rows("values", values, mesh.nnodes, null);
    if (rows.null_flag() == 0) throw py::value_error("null: is needed");
    made_parts parts;
    run_call("without_null", &mesh, progress, [&] {
        mesh_info *record = host_mesh(mesh.lattice ? mesh.field_of_extractions() : mesh.field());
        if (record == nullptr) return static_cast<int>(HOST_FAILED);
        const int done = remove_null(mesh, record, rows.array, &parts);
        put_in_vtk_order(&parts);
        return done;
    });
    return hand_out(&parts, mesh.nspace);
}

} // namespace

void bind_pieces(py::module_ &m)
{
    m.def("cells_by_mark", &cells_by_mark);
    m.def("marks_of_cells", &marks_of_cells);
    m.def("without_null", &without_null);
}
