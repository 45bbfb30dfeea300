// The mesh record: shallow copies, the exchange of a cell set, and the layout that hosts rely on.
//
// A host fills the record in its own code, maybe built by another compiler, so order, offsets and sizes are
// held by assertions. A copy shares every array with its source and differs in what it has fetched: an
// operation that runs cells of its own making through another operation copies the record, exchanges a set
// in the copy, and puts the set back, since both records look at the same arrays.

#include <skoklana/mesh.h>

#include <cstddef>
#include <cstdlib>

#define AT_OFFSET(member, offset) static_assert(offsetof(mesh_info, member) == offset, #member)
AT_OFFSET(field_id, 0);
AT_OFFSET(ndim, 8);
AT_OFFSET(dims, 16);
AT_OFFSET(nspace, 24);
AT_OFFSET(nnodes, 32);
AT_OFFSET(points, 40);
AT_OFFSET(coords, 48);
AT_OFFSET(min_ext, 56);
AT_OFFSET(max_ext, 68);
AT_OFFSET(methods, 80);
AT_OFFSET(get_coords, 88);
AT_OFFSET(get_coords_range, 96);
AT_OFFSET(get_points, 104);
AT_OFFSET(ncell_sets, 112);
AT_OFFSET(ncells, 120);
AT_OFFSET(cell_first, 128);
AT_OFFSET(cell_count, 136);
AT_OFFSET(cell_nnodes, 144);
AT_OFFSET(cell_ndim, 152);
AT_OFFSET(cell_order, 160);
AT_OFFSET(cell_connect, 168);
AT_OFFSET(cell_aux, 176);
AT_OFFSET(cell_funcs, 184);
AT_OFFSET(get_connect, 192);
#undef AT_OFFSET
static_assert(sizeof(mesh_info) == 200, "mesh_info");
static_assert(sizeof(OMobj_id) == 16, "OMobj_id");

#define IN_SLOT(slot, member) \
    static_assert(offsetof(mesh_methods, member) == (slot) * sizeof(cell_func), #member)
IN_SLOT(0, interp_init_func);
IN_SLOT(1, find_cell_func);
IN_SLOT(2, interp_cell_func);
IN_SLOT(3, interp_data_func);
IN_SLOT(4, cell_extent_func);
IN_SLOT(5, coord_list_func);
IN_SLOT(6, data_list_func);
IN_SLOT(7, isosurf_func);
IN_SLOT(8, isoline_func);
IN_SLOT(9, cut_func);
IN_SLOT(10, eval_coord_func);
IN_SLOT(11, glyph_func);
IN_SLOT(12, thresh_null_func);
IN_SLOT(13, rslice_func);
IN_SLOT(14, grad_func);
IN_SLOT(15, curl_func);
IN_SLOT(16, div_func);
IN_SLOT(17, deriv3d_func);
IN_SLOT(18, deriv2d_func);
IN_SLOT(19, contour_func);
IN_SLOT(20, cell_to_node_func);
#undef IN_SLOT
static_assert(sizeof(mesh_methods) == 168, "mesh_methods");

int UTILcopy_mesh_info(mesh_info *src, mesh_info **out)
{
    mesh_info *copy = static_cast<mesh_info *>(malloc(sizeof(mesh_info)));
    *out = copy;
    if (copy == nullptr) return 0;

    // Zeroed first: what a copy does not carry is then plainly not there.
    *copy = mesh_info{};
    copy->field_id = src->field_id;
    copy->ndim = src->ndim;
    copy->dims = src->dims;
    copy->nspace = src->nspace;
    copy->nnodes = src->nnodes;
    copy->methods = src->methods;
    copy->get_coords = src->get_coords;
    copy->get_coords_range = src->get_coords_range;
    copy->get_points = src->get_points;
    copy->ncell_sets = src->ncell_sets;
    copy->ncells = src->ncells;
    copy->get_connect = src->get_connect;
    if (src->ncell_sets != 0) {
        copy->cell_first = src->cell_first;
        copy->cell_count = src->cell_count;
        copy->cell_nnodes = src->cell_nnodes;
        copy->cell_ndim = src->cell_ndim;
        copy->cell_connect = src->cell_connect;
        copy->cell_aux = src->cell_aux;
        copy->cell_funcs = src->cell_funcs;
    }
    return 1;
}

int UTILreplace_cell_set(mesh_info *mesh, int set, qx_long count, qx_long *connect, int nnodes)
{
    mesh->cell_count[set] = count;
    mesh->cell_connect[set] = connect;
    mesh->cell_nnodes[set] = nnodes;
    return 1;
}
