// Analytic data sets of any size on every kind of mesh, for demonstrations, tests and benchmarks.
//
// A sample is a formula over a cube; a mesh is a cubical lattice of nodes over that cube, described in one
// of the ways that the library knows. Plain arrays come out, in the layouts of skoklana_host.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace samples {

struct field {
    const char *name;  // as the command takes it
    const char *array; // name of its node array
    int veclen;        // values a node
    double lo, hi;     // the cube it is shown in: from lo to hi along each axis
    double level;      // a level worth a look, of the length where there are more components
    const char *about; // one line for the user
    // Writes veclen values for the node at xyz.
    void (*value)(const double *xyz, float *out);
};

// Every field, in the order of the help text.
const std::vector<field> &fields();
// nullptr: no field of that name.
const field *find(const std::string &name);

enum class layout {
    uniform,
    rectilinear, // unevenly spaced, ascending
    curvilinear, // the cube turned about its z axis, more so the higher
    cells        // one cell set
};

struct mesh {
    layout kind = layout::uniform;
    std::vector<int64_t> dims;            // nodes along each axis; empty for cells
    std::vector<float> corners;           // uniform: two rows of 3
    std::vector<std::vector<float>> axes; // rectilinear: one list an axis, also for axes of one node
    std::vector<float> coords;            // curvilinear, cells: rows of 3
    int cell_kind = 0, order = 1;         // cells: CELL_TRI to CELL_HEX, 1 or 2
    int64_t ncells = 0;
    std::vector<int64_t> connect; // cells: rows in the node order of cell_nodes.h

    int64_t nnodes() const;
    // Position of a node, whatever the layout.
    void position(int64_t node, double *xyz) const;
};

// dims[d] nodes along axis d of the cube from lo to hi, each at least 1; axes of one node stand at the
// middle of the cube and drop out of dims where no longer axis follows.
mesh structured(layout kind, const int64_t *dims, double lo, double hi);

// The same lattice as cells of one kind: 1 hex, 6 tets, 2 prisms, 6 pyramids around an added centre or, with
// dims[2] 1, 1 quad or 2 triangles for each cube of the lattice. Neighbours meet face to face; nodes that
// order 2 adds stand in the middle of their edges. At least 2 nodes along each axis that the kind needs.
mesh cells(int cell_kind, int order, const int64_t *dims, double lo, double hi);

// The field at every node: nnodes rows of veclen values.
std::vector<float> values(const field &of, const mesh &on);

} // namespace samples
