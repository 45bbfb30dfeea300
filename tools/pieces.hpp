// A file in pieces: for several processes, and for data larger than memory.
//
// Files of pieces (.pvtu .pvtp) come by their pieces; structured files (.vti .vtr .vts .pvti .pvtr .pvts) by slabs
// of the whole, of which only the nodes of a slab are read; any other file is read by the first process and its
// cells are shared out in stretches. Each process takes its share of the pieces, one after another. Without mpirun
// and --pieces there is one piece: the file, read as ever.
//
// A cell belongs to one piece. Nodes on seams are in each piece that has a cell there. Cells that a file marks as
// copies of another piece's are left out, and nodes that only they have.
#pragma once

#include "input.hpp"
#include "process_group.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class vtkDataSet;

// What comes with each piece beside its own.
enum class piece_with {
    nothing,
    ghosts,  // the layer of cells around it, those that share a node with a cell of it: input::ghost_cell
    numbers, // input::node_number
    ghosts_and_numbers
};
// Makes the values at nodes that go into input::mean, of a piece and the layer of cells around it; empty: none are.
using mean_maker = std::function<typed_array(const input &)>;

class pieces {
  public:
    // count: --pieces; 0: not given. Throws failure. All.
    pieces(const std::string &path, const read_options &how, mesh_use use, int count, piece_with with,
           const mean_maker &mean);
    ~pieces();
    pieces(const pieces &) = delete;
    pieces &operator=(const pieces &) = delete;

    // False: a plain start, whose one piece is the file itself.
    bool several() const;
    // Pieces in all, of which each process has those of its own.
    int count() const;
    const std::string &path() const;
    // The process that has the piece.
    int process_of(int piece) const;

    // The whole, over all pieces of all processes. In a plain start known within each, otherwise before too.
    struct totals {
        double box[6];
        int cell_ndim = 0;       // the highest of any cell
        bool flat_cells = false; // some are of dimension 2
        qx_long nnodes = 0;      // nodes on seams of lists of pieces counted in each, but with numbers
        qx_long ncells = 0;
        std::string kind, size_in_words; // as input_mesh has them
        int extent[6] = {0,  -1, 0,
                         -1, 0,  -1}; // of structured files: VTK's numbers of the first and last nodes
    };
    const totals &whole() const;

    // Calls body for each piece of this process, with its arrays and, but for mesh_use none, its mesh; empty pieces
    // are passed over, and a process may have none. What body throws in one process all throw. Body calls nothing
    // of "all"; what it finds is agreed upon afterwards. All.
    void each(const std::function<void(const input &)> &body);
    // What each gives to body, one at a time and as often as wanted: the i-th of this process, below own_count. Without
    // data and mesh where it is empty. Of several only.
    int own_count() const;
    input load(int i);
    // Tells the user what came up in the pieces that were loaded, as each does; all.
    void tell_of_loaded();
    // Each, without a mesh.
    void each_unmeshed(const std::function<void(const input &)> &body);

  private:
    struct plan;
    std::unique_ptr<plan> own;
};

// The range over all pieces of all processes; all.
value_range agreed(const value_range &own);
// The first text that is not empty, of what is the same wherever there is a piece; all.
std::string agreed(const std::string &own);
// Takes the values of another piece in.
void widen(value_range *range, const value_range &by);

// A data set of the same nodes and cells as the piece's (in.file.data), with the results of work on the piece and
// its ghosts, without the ghost cells and the nodes that only they have. Where the piece has no ghosts: made itself.
vtkSmartPointer<vtkDataSet> without_ghosts(const input &in, vtkDataSet *made);
// The node numbers of a lattice that are its own, as VTK's extent.
void own_extent_of(const input &in, int *extent);
// The ghost marks among the cell arrays to carry, and the cells of made that they mark dropped with the nodes that
// none but they have: for results whose cells have the arrays of the cell that they lie in.
carried_arrays with_ghost_marks(const input &in, carried_arrays carried);
vtkSmartPointer<vtkDataSet> without_marked_ghosts(const input &in, vtkDataSet *made);
// Cells of made that lie in ghost cells dropped, with the nodes that none but they have. cell_of: for each cell of
// made, VTK's number of the piece's cell that it lies in.
vtkSmartPointer<vtkDataSet> without_ghosts(const input &in, vtkDataSet *made,
                                           const std::vector<qx_long> &cell_of);

// Results of pieces on their way into one file, or into a file each with a list of them (.pvtp and so on).
class piece_results {
  public:
    // path: of the list or the file; empty: none is written. keep: all are kept for a picture as well.
    piece_results(const pieces &of, const std::string &path, bool joined, bool keep);
    ~piece_results();
    piece_results(const piece_results &) = delete;
    piece_results &operator=(const piece_results &) = delete;

    // The result of the piece in hand; within each. With a list of files it is written as soon as its piece is done,
    // beside the place where all appear together in the end.
    void add(const input &in, vtkDataSet *made);
    // After the last piece: joins where that is wanted; all.
    void join();

    // Over all processes, after join. Of one file: nodes on seams, at one place with the same values, counted once.
    bool listed() const; // in files of their own, each of which has the nodes on its seams
    int64_t nnodes() const;
    int64_t ncells(int ndim = -1) const; // of that dimension; below 0: of any
    // At the first process after join where one file or a picture is wanted; nullptr in others. In a plain start
    // what was added.
    vtkDataSet *whole() const;
    // Puts all files in place; all.
    void write();

  private:
    struct state;
    std::unique_ptr<state> own;
};
