// Slices of meshes by planes.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <vtkSmartPointer.h>

#include <string>

class vtkDataSet;
class vtkPolyData;

struct slice_plane {
    double origin[3], normal[3]; // of any length above 0
};

// The plane through a mesh: triangles of solid cells, lines of flat ones. A side of a cell that lies in the
// plane is in the slice once, at the rim of the mesh as well as inside. Throws failure or interrupted; text
// starts with path.
vtkSmartPointer<vtkPolyData> slice_by_plane(const std::string &path, input_mesh &mesh,
                                            const slice_plane &plane, const carried_arrays &carried);

// Whether slices across this axis of the mesh are flat meshes of its own kind.
bool has_lattice_slices(const input_mesh &mesh, int axis);

// Such a slice: an image or a rectilinear grid with one layer of nodes. Throws failure where the mesh does
// not reach the place; nullptr: the mesh is a piece, and another one has the place. own: the extent of the piece,
// in VTK's numbers, without the layer around it.
vtkSmartPointer<vtkDataSet> slice_lattice(const std::string &path, input_mesh &mesh, int axis, double at,
                                          const carried_arrays &carried, const int *own = nullptr);
