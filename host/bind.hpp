// Operations bound to a mesh by name.
#pragma once

#include <skoklana/cell_nodes.h>
#include <skoklana/mesh.h>

enum mesh_kind { KIND_CELLS, KIND_STRUCT, KIND_UNIF, KIND_RECT };

// The cell kinds' names, as they stand in the names of functions.
extern const char *const cell_kind_names[CELL_KINDS];

// Has the library hand over its functions, once. False: out of memory; the next call tries again.
bool register_library();

// Fills the operations of a mesh kind; those without a function become NULL.
void bind_methods(mesh_kind kind, mesh_methods *methods);

// Fills the CELL_METHOD_SLOTS functions of a cell set of a kind (CELL_LINE to CELL_HEX) and order (1, 2).
void bind_cell_funcs(int kind, int order, cell_func *row);
