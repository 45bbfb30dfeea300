// VTK data sets as meshes of the library.
#pragma once

#include "piece_marks.hpp"

#include <skoklana/cell_nodes.h>
#include <skoklana_host.h>

#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <memory>
#include <string>
#include <vector>

class vtkDataSet;

struct input_set {
    int kind, order;
    int file_kind, file_order; // other than these for cells that were taken apart; sets go by them
    qx_long ncells = 0;
    const qx_long *connect = nullptr; // VTK's own list, or own
    std::vector<qx_long> own;
    std::vector<vtkIdType> cell; // VTK's number of each cell; empty: the same as ours
    vtkIdType vtk_cell(qx_long local) const
    {
        return cell.empty() ? static_cast<vtkIdType>(local) : cell[static_cast<size_t>(local)];
    }
};

struct whole_mesh;

// A mesh and all that it borrows. Nodes are numbered as in the data set.
struct input_mesh {
    input_mesh() = default;
    input_mesh(const input_mesh &) = delete;
    input_mesh &operator=(const input_mesh &) = delete;
    ~input_mesh() { host_free_field(field); }

    vtkSmartPointer<vtkDataSet> data;
    std::string kind; // "uniform", "rectilinear", "curvilinear" or "cell sets"
    int ndim = 0;     // computational axes; 0 for cell sets
    std::vector<qx_long> dims;
    qx_long nnodes = 0;
    std::vector<input_set> sets; // of cell sets; cells of structured meshes are numbered as VTK's
    host_field *field = nullptr;
    mesh_info *mesh = nullptr;
    // Coordinates of the mesh are those of the data set without this, as float does not hold those apart that
    // are small steps far from 0.
    double offset[3] = {0, 0, 0};
    bool shifted() const { return offset[0] != 0 || offset[1] != 0 || offset[2] != 0; }
    std::vector<std::string> notes; // what is not as in the file

    bool structured() const { return ndim > 0; }
    // VTK's number of a cell of the library's, which is counted within its set.
    vtkIdType vtk_cell(size_t set, qx_long local) const
    {
        return structured() ? static_cast<vtkIdType>(local) : sets[set].vtk_cell(local);
    }
    // The same for a list of them, appended.
    void vtk_cells(size_t set, qx_long count, const qx_long *local, std::vector<qx_long> *to) const;
    bool is_of_others(vtkIdType vtk_cell) const
    {
        return others != nullptr && (*others)[static_cast<size_t>(vtk_cell)] != 0;
    }
    // Calls take(nodes, count) for every cell, with its nodes in no particular order.
    template <typename Take> void each_cell(Take take) const;
    // The cell kind of a set; of structured meshes, lines, quadrilaterals or hexahedra.
    int kind_of_set(size_t set) const;
    size_t nsets() const { return structured() ? 1 : sets.size(); }
    // The highest dimension of any cell.
    int cell_ndim() const;
    // In words: "20 x 30 x 40 nodes", "1522 tetrahedra".
    std::string size_in_words() const;

    const float *positions = nullptr;    // of curvilinear meshes and cell sets: rows of 3
    const whole_mesh *whole = nullptr;   // of pieces
    const piece_marks *others = nullptr; // of pieces: see make_mesh, which alone looks at it
    // what the field borrows where VTK has nothing of that layout
    std::vector<float> coords, axes[3], corners;
};

template <typename Take> void input_mesh::each_cell(Take take) const
{
    for (const input_set &of : sets) {
        const int n = of.order == 1 ? cell_kinds[of.kind].ncorners : cell_kinds[of.kind].nnodes_2;
        for (qx_long cell = 0; cell < of.ncells; ++cell)
            take(of.connect + cell * n, n);
    }
    if (!structured()) return;
    qx_long along[3] = {1, 1, 1}, cells[3] = {1, 1, 1};
    for (int d = 0; d < ndim; ++d) {
        along[d] = dims[static_cast<size_t>(d)];
        cells[d] = along[d] - 1;
    }
    for (qx_long k = 0; k < cells[2]; ++k)
        for (qx_long j = 0; j < cells[1]; ++j)
            for (qx_long i = 0; i < cells[0]; ++i) {
                qx_long nodes[8];
                for (int corner = 0; corner < 1 << ndim; ++corner)
                    nodes[corner] = i + (corner & 1) +
                                    along[0] * (j + (corner >> 1 & 1) + along[1] * (k + (corner >> 2)));
                take(nodes, 1 << ndim);
            }
}

// What the mesh is for.
enum class mesh_use {
    extract, // second-order cells as the tesselation takes them
    divide, // the same without lines, unless there is nothing else: the library gives surfaces their lines at levels
            // only where they come first
    locate, // as cell_nodes.h has them, for the host's exact location
    sample, // only cells that the library's own sampling can compute values in
    trace   // the same, of the highest dimension that there is
};

// What the mesh of a piece takes from the whole, so that its nodes and cells are those that the whole would have.
struct whole_mesh {
    double box[6];
    bool dropped = false;                   // some cell of it is hidden
    bool one_kind = true;                   // all cells are of one kind
    std::vector<std::pair<int, int>> kinds; // and orders of its cells, of those that have one here
    double rounding = 0;                    // of coordinates that are not single precision, the worst
    vtkSmartPointer<vtkDataSet> lattice;    // of images and rectilinear grids: the whole without arrays
};

// whole: of pieces. others: marks of cells that the notes do not count, as they are another piece's; nullptr or empty:
// there are none. Throws failure, whose text starts with path.
std::unique_ptr<input_mesh> make_mesh(const std::string &path, vtkDataSet *data, mesh_use use,
                                      const whole_mesh *whole = nullptr, const piece_marks *others = nullptr);

// The worst rounding of the coordinates to float; 0 where they are float.
double rounding_of(vtkDataSet *data);
// Whether any cell is hidden, or a copy of another piece's.
bool any_dropped(vtkDataSet *data);

// "tetrahedra" and so on.
const char *name_of_kind(int kind);
