// The boundary of a mesh: faces of solids that no other solid shares, and edges of surfaces.
#pragma once

#include "mesh_from_vtk.hpp"

#include <string>
#include <vector>

class operation;

// Triangles and quadrilaterals over some nodes of a mesh.
struct mesh_surface {
    std::vector<qx_long> nodes;               // of the mesh, ascending; the lists below number these
    std::vector<qx_long> tri, quad;           // rows of 3 and of 4, around the cell
    std::vector<qx_long> tri_cell, quad_cell; // VTK's number of the cell that each lies on
};

// The external faces of all solid cells, turned outward, also across sets of different kinds. Faces of second
// order are cut into triangles between their nodes. Throws failure.
mesh_surface faces_of_solids(input_mesh &mesh, const operation &work, const std::string &path);

// The surface cells of a mesh, neighbours brought to one winding as far as there is one. Those of second order are
// cut into triangles.
mesh_surface surface_cells(input_mesh &mesh);

// Pairs of numbers of surface.nodes: the edges of one cell, those of two that meet at the angle (radians) or more, turned
// over to run along it in opposite directions, and those of three cells or more. An edge is one or none by its own
// cells alone.
std::vector<qx_long> feature_edges(input_mesh &mesh, mesh_surface &surface, double angle,
                                   const operation &work, const std::string &path);

// Quadrilaterals as two triangles each.
void cut_into_triangles(mesh_surface *surface);
