#include "probe.hpp"

#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "parse.hpp"
#include "read.hpp"
#include "to_vtk.hpp"
#include "write.hpp"

#include <vtkDataSet.h>
#include <vtkPointData.h>

#include <algorithm>

namespace {

class probe_at : public command {
  public:
    explicit probe_at(CLI::App &app);
    void run() override;

  private:
    void check();
    probe_points chosen_points(const input_mesh &mesh) const;
    carried_arrays chosen_arrays(const input &in) const;

    input_options file;
    std::string points;
    std::vector<std::string> line; // A, B, N
    std::vector<int64_t> grid;
    with_options with;
    std::string out;

    std::vector<double> a, b; // ends of the line
    int64_t n = 0;
};

probe_at::probe_at(CLI::App &app) : file(app), with(app, "only this array; may be repeated")
{
    app.footer("\nPoints outside have NaN, or a value that the array does not hold, and "
               "vtkValidPointMask 0. In cells\n"
               "that are no boxes, a point is placed to a twentieth of the cell.");
    app.add_option("--points", points, "at the points of a .csv file (x,y,z) or of any mesh that VTK reads");
    app.add_option("--line", line, "along the line from A to B, at N points; A and B as x,y,z")
        ->expected(3)
        ->type_name("A B N");
    app.add_option("--grid", grid, "on NX by NY by NZ nodes over the whole mesh")
        ->expected(3)
        ->type_name("NX NY NZ");
    app.add_option("--out,-o", out, "result: .vtp or .csv; .vti for a grid")->required();
}

void probe_at::check()
{
    const int ways = (points.empty() ? 0 : 1) + (line.empty() ? 0 : 1) + (grid.empty() ? 0 : 1);
    if (ways != 1) throw failure("give one of --points FILE, --line A B N and --grid NX NY NZ", exit_usage);
    if (!line.empty()) {
        a = parse_point("--line", line[0]);
        b = parse_point("--line", line[1]);
        n = parse_count("--line", line[2]);
    }
    qx_long nodes = 1;
    for (const int64_t along : grid)
        if (along < 1 || __builtin_mul_overflow(nodes, along, &nodes) || nodes > qx_long{1} << 40)
            throw failure("--grid: each number is at least 1, and all nodes together not more than 10^12",
                          exit_usage);
    check_ending(out, grid.empty() ? " .vtp .csv " : " .vti .csv ",
                 grid.empty() ? "a list of points" : "a grid");
}

// Where to sample; a lattice is over the mesh's box.
probe_points probe_at::chosen_points(const input_mesh &mesh) const
{
    if (!grid.empty()) {
        const qx_long dims[3] = {grid[0], grid[1], grid[2]};
        return lattice_over(mesh, dims);
    }
    if (!line.empty()) {
        const float from[3] = {static_cast<float>(a[0]), static_cast<float>(a[1]), static_cast<float>(a[2])};
        const float to[3] = {static_cast<float>(b[0]), static_cast<float>(b[1]), static_cast<float>(b[2])};
        return points_on_line(from, to, n);
    }
    probe_points chosen;
    if (points.size() > 4 && points.compare(points.size() - 4, 4, ".csv") == 0) {
        chosen.xyz = read_points_csv(points);
        return chosen;
    }
    const input_file at = read_file(points, {});
    for (vtkIdType i = 0; i < at.data->GetNumberOfPoints(); ++i) {
        double xyz[3];
        at.data->GetPoint(i, xyz);
        for (const double value : xyz)
            chosen.xyz.push_back(static_cast<float>(value));
    }
    return chosen;
}

carried_arrays probe_at::chosen_arrays(const input &in) const
{
    carried_arrays carried = with.choose(in);
    const auto drop = [](std::vector<typed_array> *arrays, const auto &unwanted) {
        arrays->erase(std::remove_if(arrays->begin(), arrays->end(), unwanted), arrays->end());
    };
    for (auto *arrays : {&carried.node, &carried.cell}) // a probe of a probe makes its own
        drop(arrays, [](const typed_array &array) { return array.name == "vtkValidPointMask"; });
    if (carried.node.empty() && carried.cell.empty())
        throw failure(file.path() + ": has no arrays to take values of");
    // a name that nodes and cells both have stays with the nodes
    drop(&carried.cell,
         [&](const typed_array &array) { return find_array(carried.node, array.name) != nullptr; });
    return carried;
}

void probe_at::run()
{
    check();
    const input in = file.load(mesh_use::sample);
    if (in.mesh->structured() ? in.mesh->mesh->ncells == 0 : in.mesh->sets.empty())
        throw failure(file.path() + ": has no cells to hold values");
    const carried_arrays carried = chosen_arrays(in);
    const probe_points at = chosen_points(*in.mesh);
    stage_done("read");

    const auto arrays = probe(file.path(), *in.mesh, at, carried.node, carried.cell);
    const auto made = at.lattice ? lattice_to_vtk(at.dims, at.lo, at.hi) : points_to_vtk(at.xyz);
    for (const typed_array &array : arrays)
        made->GetPointData()->AddArray(array.kept);
    stage_done("compute");

    const auto *inside = static_cast<const signed char *>(arrays.back().values);
    write_data_set(out, made);
    stage_done("write");
    say("%s: %lld points, %lld of them inside the mesh", out.c_str(), static_cast<long long>(at.count()),
        static_cast<long long>(std::count(inside, inside + at.count(), 1)));
}

} // namespace

extern const command_entry probe_command{"probe", "Takes the values at points, along a line or on a grid",
                                         make_command<probe_at>};
