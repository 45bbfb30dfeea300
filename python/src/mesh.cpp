// Meshes: fields of the embedded host over numpy arrays, which they keep alive and never copy.
#include "parts.hpp"

#include <skoklana/cell_nodes.h>
#include <skoklana/mesh.h>

#include <algorithm>
#include <stdexcept>
#include <string>

void mesh_object::close()
{
    mesh = nullptr;
    if (is_leant_on) return;
    own_table.reset();
    for_extractions.reset();
    swapped.clear();
    whole.reset();
    keep = py::list();
}

namespace {

// A failure of the host while a field is made.
[[noreturn]] void refuse()
{
    const std::string text = host_error();
    if (text.find("memory") != std::string::npos) throw std::bad_alloc();
    if (text.find("names node") != std::string::npos) throw py::index_error(text);
    throw py::value_error(text);
}

bool has_swapped_nodes(const given_cells &set)
{
    return set.kind == CELL_PRISM && set.order == 2;
}

} // namespace

host_field *mesh_object::field_of_extractions()
{
    if (for_extractions != nullptr) return for_extractions.get();
    if (lattice) {
        qx_long dims[3] = {1, 1, 1};
        int naxes = 0;
        for (int d = 0; d < mesh->ndim; ++d)
            if (mesh->dims[d] > 1) dims[naxes++] = mesh->dims[d];
        if (naxes == 0 || naxes == mesh->ndim) return whole.get();
        if (mesh->coords == nullptr && mesh->get_coords(mesh, &mesh->coords) != 1) throw std::bad_alloc();
        for_extractions.reset(host_curvilinear(naxes, dims, mesh->nspace, mesh->coords));
        if (for_extractions == nullptr) throw std::runtime_error(host_error());
        return for_extractions.get();
    }
    if (std::none_of(sets.begin(), sets.end(), has_swapped_nodes)) return whole.get();
    if (mesh->coords == nullptr && mesh->get_coords(mesh, &mesh->coords) != 1) throw std::bad_alloc();
    field_ptr made(host_cells(mesh->nnodes, mesh->nspace, mesh->coords));
    if (made == nullptr) throw std::bad_alloc();
    for (const given_cells &set : sets) {
        const qx_long *connect = set.connect;
        if (has_swapped_nodes(set)) {
            const int length = length_of(set.kind, set.order);
            list_of<qx_long> own = new_list<qx_long>(set.count * length);
            std::copy_n(set.connect, set.count * length, own.get());
            for (qx_long cell = 0; cell < set.count; ++cell)
                std::swap(own[cell * length + 12], own[cell * length + 13]);
            connect = own.get();
            swapped.push_back(std::move(own));
        }
        if (host_add_cells(made.get(), set.kind, set.order, set.count, connect) != 1)
            throw std::runtime_error(host_error());
    }
    for_extractions = std::move(made);
    return for_extractions.get();
}

int mesh_object::make_ready()
{
    const int percent = table_made ? 0 : 50;
    const progress_part part(0, percent);
    table();
    bool done = true;
    if (compact)
        done = mesh->points != nullptr || mesh->get_points(mesh, &mesh->points) == 1;
    else
        done = mesh->coords != nullptr || mesh->get_coords(mesh, &mesh->coords) == 1;
    for (int set = 0; done && !lattice && set < mesh->ncell_sets; ++set)
        done =
            mesh->cell_connect[set] != nullptr || mesh->get_connect(mesh, set, &mesh->cell_connect[set]) == 1;
    if (!done) throw std::bad_alloc();
    return percent;
}

const blk_tbl *mesh_object::table()
{
    if (!table_made) {
        blk_tbl *made = nullptr;
        const bool done = mesh->methods->interp_init_func(mesh, &made) == 1;
        own_table.reset(made);
        if (!done) throw std::bad_alloc();
        table_made = true;
    }
    return own_table.get();
}

namespace {

using mesh_ptr = std::unique_ptr<mesh_object>;

std::vector<qx_long> listed(const py::sequence &numbers)
{
    std::vector<qx_long> made;
    for (const py::handle &number : numbers)
        made.push_back(number.cast<qx_long>());
    return made;
}

mesh_ptr finished(mesh_ptr made)
{
    if (made->whole == nullptr) refuse();
    made->mesh = host_mesh(made->whole.get());
    if (made->mesh == nullptr) refuse();
    made->nnodes = made->mesh->nnodes;
    made->ncells = made->mesh->ncells;
    made->nspace = made->mesh->nspace;
    return made;
}

// dims: axis 0 fastest.
mesh_ptr make_uniform(const py::sequence &dims_, int nspace, const py::array &corners)
{
    const std::vector<qx_long> dims = listed(dims_);
    auto made = std::make_unique<mesh_object>();
    made->lattice = made->compact = true;
    made->keep.append(corners);
    made->whole.reset(host_uniform(static_cast<int>(dims.size()), dims.data(), nspace,
                                   elements<float>("corners", corners, 2 * nspace)));
    return finished(std::move(made));
}

// axes: by coordinate, an array or None each.
mesh_ptr make_rectilinear(const py::sequence &dims_, const py::sequence &axes)
{
    const std::vector<qx_long> dims = listed(dims_);
    const int nspace = static_cast<int>(axes.size());
    const float *at[3] = {};
    auto made = std::make_unique<mesh_object>();
    made->lattice = made->compact = true;
    for (size_t d = 0; d < axes.size() && d < 3; ++d) {
        if (axes[d].is_none()) continue;
        const auto axis = axes[d].cast<py::array>();
        made->keep.append(axis);
        at[d] = elements<float>("axes", axis, d < dims.size() ? dims[d] : 1);
    }
    made->whole.reset(host_rectilinear(static_cast<int>(dims.size()), dims.data(), nspace, at));
    return finished(std::move(made));
}

mesh_ptr make_curvilinear(const py::sequence &dims_, int nspace, const py::array &coords)
{
    const std::vector<qx_long> dims = listed(dims_);
    qx_long nnodes = 1;
    for (const qx_long n : dims)
        nnodes *= n;
    auto made = std::make_unique<mesh_object>();
    made->lattice = true;
    made->keep.append(coords);
    made->whole.reset(host_curvilinear(static_cast<int>(dims.size()), dims.data(), nspace,
                                       elements<float>("points", coords, nnodes * nspace)));
    return finished(std::move(made));
}

// sets: (kind, order, connectivity) each, in the node order of the library.
mesh_ptr make_cells(const py::array &coords, const py::sequence &sets)
{
    if (coords.ndim() != 2) throw py::value_error("points: has the wrong shape");
    const qx_long nnodes = coords.shape(0);
    const int nspace = static_cast<int>(coords.shape(1));
    auto made = std::make_unique<mesh_object>();
    made->keep.append(coords);
    made->whole.reset(host_cells(nnodes, nspace, elements<float>("points", coords, nnodes * nspace)));
    if (made->whole == nullptr) refuse();
    for (const py::handle &item : sets) {
        const auto set = item.cast<py::tuple>();
        const int kind = set[0].cast<int>(), order = set[1].cast<int>();
        const auto connect = set[2].cast<py::array>();
        if (kind < 0 || kind >= CELL_KINDS || (order != 1 && order != 2) || connect.ndim() != 2 ||
            connect.shape(1) != length_of(kind, order))
            throw py::value_error("cells: has the wrong shape");
        const given_cells given = {kind, order, connect.shape(0),
                                   elements<qx_long>("cells", connect, connect.size())};
        if (host_add_cells(made->whole.get(), kind, order, given.count, given.connect) != 1) refuse();
        made->sets.push_back(given);
        made->keep.append(connect);
    }
    return finished(std::move(made));
}

// The coordinates of all nodes, a row each; those of uniform and rectilinear meshes are made for it.
py::array coords_of(const py::object &self)
{
    auto &mesh = self.cast<mesh_object &>();
    run_call("points", &mesh, py::none(), [&] {
        mesh_info *record = mesh.record();
        return of_library(record->coords != nullptr || record->get_coords(record, &record->coords) == 1);
    });
    mesh.is_leant_on = true;
    py::array all(py::dtype::of<float>(),
                  {mesh.record()->nnodes, static_cast<qx_long>(mesh.record()->nspace)}, mesh.record()->coords,
                  self);
    all.attr("setflags")(py::arg("write") = false);
    return all;
}

py::tuple box_of(const mesh_object &mesh)
{
    if (mesh.record() == nullptr) throw py::value_error("the mesh was closed");
    const mesh_info *record = mesh.record();
    py::list low, high;
    for (int d = 0; d < record->nspace; ++d) {
        low.append(record->min_ext[d]);
        high.append(record->max_ext[d]);
    }
    return py::make_tuple(low, high);
}

} // namespace

void bind_meshes(py::module_ &m)
{
    py::class_<mesh_object>(m, "Mesh")
        .def("coords", [](const py::object &self) { return coords_of(self); })
        .def("box", &box_of)
        .def("close",
             [](mesh_object &mesh) {
                 if (mesh.user.load() == std::this_thread::get_id() || !mesh.busy.try_lock())
                     throw std::runtime_error("the mesh is in use");
                 mesh.close();
                 mesh.busy.unlock();
             })
        .def_property_readonly("closed", [](const mesh_object &mesh) { return mesh.record() == nullptr; });
    m.def("uniform", &make_uniform);
    m.def("rectilinear", &make_rectilinear);
    m.def("curvilinear", &make_curvilinear);
    m.def("cells", &make_cells);
    m.def("live_lists", &live_lists);
}
