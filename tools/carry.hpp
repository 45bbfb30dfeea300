// Results of the library as VTK data sets: nodes with the mesh's node arrays, cells with its cell arrays.
//
// A result's nodes are nodes of the mesh, or lie between two of them; its cells come with the cell of the mesh
// that each lies in. Results of several calls follow one another in one data set.
#pragma once

#include "arrays.hpp"
#include "mesh_from_vtk.hpp"

#include <vtkSmartPointer.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

class vtkDoubleArray;
class vtkFloatArray;
class vtkPointSet;
class vtkPolyData;
class vtkUnstructuredGrid;

// A list that the library made, released with its owner.
struct list_release {
    void operator()(void *list) const { free(list); }
};
template <typename T> using owned = std::unique_ptr<T[], list_release>;
using owned_list = owned<qx_long>;

// Nodes with their arrays. Integers between two nodes are rounded to the nearest.
class node_results {
  public:
    // Which nodes are one where pieces of a mesh are joined.
    enum class joins {
        on_one_edge, // between the same two nodes of the mesh
        in_one_place // and, on a node of the mesh, whatever edges lead there
    };
    // count: the nodes that will be added in all.
    node_results(input_mesh &mesh, const std::vector<typed_array> &arrays, qx_long count,
                 joins how = joins::on_one_edge);
    // Nodes of the mesh, by number.
    bool add(qx_long count, const qx_long *nodes);
    // Nodes at the places a + t (b - a) between nodes of the mesh. False: the library reported a failure.
    bool add_between(qx_long count, const qx_long *a, const qx_long *b, const float *t);
    // Edges by their ends: nodes of the mesh, or, as the number of these and e, the node on edge e. Nodes of different
    // parts of a result, such as its levels, are never one.
    struct edges {
        const qx_long *a, *b;
        int part;
    };
    // Nodes at places of their own, rows of 3, on the edges of those numbers, whose values carry(array, to) writes: a
    // row a node.
    template <typename Carry>
    bool add_placed(const std::vector<qx_long> &numbers, const edges &on, const float *xyz, Carry carry)
    {
        const auto count = static_cast<qx_long>(numbers.size());
        if (count == 0) return true;
        note_edges(numbers, on);
        std::copy_n(xyz, 3 * count, coords(filled));
        for (size_t i = 0; i < from.size(); ++i)
            if (!carry(from[i], row_of(i))) return false;
        filled += count;
        return true;
    }
    // Positions from a row on, rows of 3, for results with positions of their own.
    float *coords(qx_long from);
    // Gives data the nodes and the arrays; the nodes of shifted meshes where they belong.
    void hand_over(vtkPointSet *data);

  private:
    // Where the next row of an array goes.
    void *row_of(size_t array) const;
    void note_ends(qx_long count, const qx_long *a, const qx_long *b);
    void note_edges(const std::vector<qx_long> &numbers, const edges &on);

    input_mesh &mesh;
    const std::vector<typed_array> &from;
    std::vector<typed_array> made;
    vtkSmartPointer<vtkFloatArray> places;
    vtkSmartPointer<vtkDoubleArray> ends; // of pieces: where the nodes stand that a node lies between
    joins how_joined;
    qx_long filled = 0;
};

// Cells with their arrays.
class cell_results {
  public:
    // ncells rows of node numbers, in the order of cell_nodes.h as the command's connect lists are, to each of
    // which first_node is added; vtk_cell: the mesh's cell that each row lies in, or empty where no cell arrays
    // are wanted. Kinds of order 2 have rows of all their nodes.
    void add(int kind, int order, qx_long ncells, owned_list connect, std::vector<qx_long> vtk_cell,
             qx_long first_node = 0);
    qx_long count(int ndim) const;
    // Gives data the cells and the arrays. Polygonal data has lines before triangles and quadrilaterals.
    void hand_over(vtkPolyData *data, const std::vector<typed_array> &arrays);
    void hand_over(vtkUnstructuredGrid *data, const std::vector<typed_array> &arrays);

  private:
    struct part {
        int kind, order;
        qx_long ncells;
        owned_list connect;
        std::vector<qx_long> vtk_cell;
        qx_long first_node;
    };
    std::vector<part> parts;
};

// Entries of a connect list.
struct node_entries {
    qx_long *nodes;
    qx_long count;
};

// Numbers nodes 0 to count - 1 anew, in order, so that those that no list names drop out, and the lists with them.
// The old numbers of those that stay.
std::vector<qx_long> drop_unused(qx_long count, const std::vector<node_entries> &lists);

// Rows of arrays, by their numbers.
std::vector<typed_array> rows_of(const std::vector<typed_array> &arrays, const std::vector<qx_long> &rows);
// Rows at the places a + t (b - a) between two others, integers rounded to the nearest. False: the library
// reported a failure.
bool rows_between(const std::vector<typed_array> &arrays, qx_long count, const qx_long *a, const qx_long *b,
                  const float *t, std::vector<typed_array> *out);
