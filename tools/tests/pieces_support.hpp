// Files in pieces, cut out of a whole, and results told apart from one another by place.
#pragma once

#include "support.hpp"

#include <vtkSmartPointer.h>

#include <string>
#include <vector>

class vtkDataSet;

namespace cut_up {

enum class shares {
    runs,     // cells that follow one another
    by_place, // boxes of cells; all that lattices can have
    in_turn   // each cell to the next piece, so that every node is on a seam
};

struct how {
    int count = 3;
    shares share = shares::by_place;
    std::vector<int> empty; // pieces that have no cells, of the count
    // A layer of cells around each piece, marked as copies by VTK's arrays of ghosts, which the nodes have too.
    bool ghosts = false;
};

// How a command is run in pieces: how its file is cut, and by what it is worked on.
struct way {
    how cut;
    int processes;  // 0: a plain start
    int pieces = 0; // --pieces; 0: not given
};

// Arguments of a command, put together by +.
struct words : std::vector<std::string> {
    using std::vector<std::string>::vector;
    friend words operator+(words a, const words &b)
    {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    }
};

// Writes the whole in pieces, by VTK's writers, and the list of them. path: .pvtu, .pvtp, .pvti, .pvtr or .pvts; pieces
// stand beside it. Returns path.
std::string write_pieces(const std::string &path, vtkDataSet *whole, const how &cut);

// The file of one of its pieces.
std::string piece_path(const std::string &path, int piece);

// One mesh of each kind that files of pieces hold, with its ending: .pvtu and so on. Node arrays "value" (float),
// "exact" (double), "count" (int), "flow" (three floats) and "node", cell arrays "cell" and "amount" (double).
struct sample {
    std::string name, ending;
    vtkSmartPointer<vtkDataSet> whole;
};
const std::vector<sample> &samples();
const sample &sample_of(const std::string &name);

// The ending of a file in one piece of the sample's kind.
std::string whole_ending(const sample &of);
bool is_lattice(const sample &of);

} // namespace cut_up

// Runs the command on so many processes.
ran run_on(int processes, const std::vector<std::string> &arguments);
ran run_well_on(int processes, const std::vector<std::string> &arguments);

// Each cell as text: its type, the places of its nodes and all rows of data at them and at it, bit for bit, but for the
// arrays named. Sorted, so that equal lists mean equal meshes in any order of nodes, cells and arrays.
std::vector<std::string> cells_by_place(vtkDataSet *data, const std::vector<std::string> &but_for = {});
// The same of nodes.
std::vector<std::string> nodes_by_place(vtkDataSet *data, const std::vector<std::string> &but_for = {});

// Holds that both have the same cells and as many nodes.
void expect_same_mesh(vtkDataSet *expected, vtkDataSet *got, const std::vector<std::string> &but_for = {});
// Holds the same of places and of an array at the nodes, but that its values may differ by a share of the largest one:
// sums over the cells around a node go by the cells' order. Nodes have their numbers in "node".
void expect_near_at_nodes(vtkDataSet *expected, vtkDataSet *got, const std::string &name, double within);
