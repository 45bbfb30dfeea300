// What calls of the host's operations give back: their failures as ours, and their cells by VTK's numbers.
#pragma once

#include "mesh_from_vtk.hpp"
#include "progress.hpp"

#include <string>
#include <vector>

// Throws interrupted or failure where a call of the host in an operation has not gone well, with the library's report or
// else the host's own words. what: the file and what was tried.
void check_call(const operation &run, int result, const std::string &what);

// VTK's numbers of cells that are counted through all sets; -1 for -1.
std::vector<qx_long> vtk_cells_of(const input_mesh &mesh, qx_long count, const qx_long *cells);
