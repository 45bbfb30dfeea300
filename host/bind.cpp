// Binding: names to slots.
//
// A mesh operation's name is the stem of its slot and the suffix of the mesh kind, "cut_func" and "_unif"; a
// cell function's name is stem, kind and order, "shape_func_hex_1". The slots are tables of stems in slot
// order, and what no function is known for stays NULL: the library knows that as an operation that the mesh
// or the cell does not have.
//
// Second-order cells are extracted from by way of a tesselation into first-order cells of one kind. The
// functions for these go into slots of their own, behind the set's own functions.
#include "bind.hpp"

#include "registry.hpp"

#include <cstdio>
#include <cstring>
#include <mutex>

namespace {

const char *const mesh_suffixes[] = {"", "_struct", "_unif", "_rect"};

// The members of mesh_methods in their order.
const char *const mesh_stems[] = {
    "interp_init_func", "find_cell_func", "interp_cell_func", "interp_data_func", "cell_extent_func",
    "coord_list_func",  "data_list_func", "isosurf_func",     "isoline_func",     "cut_func",
    "eval_coord_func",  "glyph_func",     "thresh_null_func", "rslice_func",      "grad_func",
    "curl_func",        "div_func",       "deriv3d_func",     "deriv2d_func",     "contour_func",
    "cell_to_node_func"};
constexpr int mesh_slots = sizeof mesh_stems / sizeof *mesh_stems;
static_assert(sizeof(mesh_methods) == mesh_slots * sizeof(cell_func), "a member of mesh_methods has no stem");

// By slot, SLOT_SHAPE_FUNC to SLOT_TESSELATE.
const char *const cell_stems[] = {"shape_func", "shape_deriv", "rev_par",      "slice_cell", "cut_cell",
                                  "isoline",    "vol_integr",  "contour_cell", "tesselate"};

// The first-order kind that the tesselation of each second-order kind is made of.
const int tesselation_kind[CELL_KINDS] = {CELL_LINE, CELL_TRI, CELL_TRI, CELL_TET,
                                          CELL_TET,  CELL_TET, CELL_TET};

// The operations that work on a tesselation, and where its functions go.
const struct {
    int slot, sub_slot;
} sub_slots[] = {{SLOT_SLICE, SLOT_SUB_SLICE},
                 {SLOT_CUT, SLOT_SUB_CUT},
                 {SLOT_ISOLINE, SLOT_SUB_ISOLINE},
                 {SLOT_CONTOUR, SLOT_SUB_CONTOUR}};

cell_func find_cell_function(int slot, int kind, int order)
{
    char name[64];
    snprintf(name, sizeof name, "%s_%s_%d", cell_stems[slot], cell_kind_names[kind], order);
    return find_named_func(name);
}

} // namespace

const char *const cell_kind_names[CELL_KINDS] = {"line", "tri", "quad", "tet", "pyr", "prism", "hex"};

bool register_library()
{
    static std::mutex lock;
    static bool registered = false;
    const std::lock_guard<std::mutex> hold(lock);
    if (!registered) {
        const int refused = refused_tables();
        registered = FLD_METHinit() == 1 && refused_tables() == refused;
    }
    return registered;
}

void bind_methods(mesh_kind kind, mesh_methods *methods)
{
    cell_func slots[mesh_slots];
    for (int slot = 0; slot < mesh_slots; ++slot) {
        char name[64];
        snprintf(name, sizeof name, "%s%s", mesh_stems[slot], mesh_suffixes[kind]);
        slots[slot] = find_named_func(name);
    }
    memcpy(methods, slots, sizeof *methods);
}

void bind_cell_funcs(int kind, int order, cell_func *row)
{
    for (int slot = 0; slot < CELL_METHOD_SLOTS; ++slot)
        row[slot] = nullptr;
    for (int slot = SLOT_SHAPE_FUNC; slot <= SLOT_TESSELATE; ++slot)
        row[slot] = find_cell_function(slot, kind, order);
    if (order > 1)
        for (const auto &sub : sub_slots)
            row[sub.sub_slot] = find_cell_function(sub.slot, tesselation_kind[kind], 1);
}
