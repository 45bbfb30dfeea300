// Where the pieces of a file come from.
#pragma once

#include "join_pieces.hpp"
#include "mesh_from_vtk.hpp"
#include "read.hpp"

#include <vtkSmartPointer.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

class vtkDataSet;

// What comes with a piece beside its own nodes and cells.
struct piece_needs {
    int layers = 0;       // of cells around it, each of those that share a node with a cell within
    bool numbers = false; // that nodes have in the whole
};

struct read_piece {
    vtkSmartPointer<vtkDataSet> data;   // nullptr: nothing is in it
    piece_marks ghost_cell, ghost_node; // of the layers; empty: there are none
    // Of each node, where asked for: as the whole's nodes are numbered in a plain start. A node has its number in the
    // first piece that has it; below 0 in the others.
    piece_numbers number;
    std::vector<std::string> notes; // what is not as in the file
};

// A part that is read at once, of which a piece of the results has one or several.
struct piece_unit {
    int process;              // that reads it
    int piece;                // of the results
    int number;               // of the file or slab that it is or is in
    int part = 0, nparts = 1; // of the file
};

// What the first look at all pieces finds; of each unit, and added up.
struct mesh_figures {
    double box[6] = {1, -1, 1, -1, 1, -1};
    bool dropped = false;
    double rounding = 0;
    qx_long nnodes = 0, ncells = 0;
    std::map<int, qx_long> by_type; // cells of each of VTK's types
    void add(const mesh_figures &other);
};

class piece_source {
  public:
    virtual ~piece_source() = default;
    // All units of all processes, by pieces; the same in each process.
    const std::vector<piece_unit> &units() const { return list; }
    int npieces() const { return pieces; }
    // Of a unit of this process.
    virtual read_piece read(const piece_unit &unit) = 0;
    // The whole, over all processes; all (see process_group.hpp). Called once, before read.
    virtual whole_mesh survey(mesh_figures *figures) = 0;
    // Of lattices: the first and last node along each axis. False: the file is none.
    virtual bool lattice_extent(int *extent) const = 0;

  protected:
    explicit piece_source(const piece_needs &needs_) : needs(needs_) {}

    piece_needs needs;
    std::vector<piece_unit> list;
    int pieces = 0;
};

// count: pieces wanted, of which there are no more than cells; 0: as many as there are, or one a process. all.
std::unique_ptr<piece_source> open_pieces(const std::string &path, const read_options &how, int count,
                                          const piece_needs &needs);
