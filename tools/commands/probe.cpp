#include "probe.hpp"

#include "command.hpp"
#include "console.hpp"
#include "csv.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "parse.hpp"
#include "probe_pieces.hpp"
#include "read.hpp"
#include "to_vtk.hpp"
#include "write.hpp"

#include <vtkDataSet.h>
#include <vtkPointData.h>

#include <algorithm>
#include <filesystem>

namespace {

const char *const mask_name = "vtkValidPointMask";

class probe_at : public command {
  public:
    explicit probe_at(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    void check();
    probe_points chosen_points(const double *box);
    probed probe_one(const input &in, const probe_points &at, const probed_piece *of) const;
    void run_in_pieces(pieces &parts);
    void finish(const probe_points &at, const probed &made);
    carried_arrays chosen_arrays(const input &in) const;
    void drop_old_columns(const std::vector<typed_array> &arrays);
    void write(const probe_points &at, const probed &made);

    input_options file;
    std::string points;
    std::vector<std::string> line; // A, B, N
    std::vector<int64_t> grid;
    with_options with;
    std::string out;
    bool by_library = false;

    std::vector<double> a, b; // ends of the line
    int64_t n = 0;
    point_table table; // of --points FILE.csv
};

probe_at::probe_at(CLI::App &app)
    : file(app, input_options::in_pieces::yes), with(app, "only this array; may be repeated")
{
    app.footer(
        "\nPoints outside have vtkValidPointMask 0, and NaN, 0 for integers, or an empty field in .csv. "
        "Points within a\n"
        "millionth of the mesh's size count as inside.");
    app.add_option("--points", points, "at the points of a .csv file (x,y,z) or of any mesh that VTK reads");
    app.add_option("--line", line, "along the line from A to B, at N points; A and B as x,y,z")
        ->expected(3)
        ->type_name("A B N");
    app.add_option("--grid", grid, "on NX by NY by NZ nodes over the whole mesh")
        ->expected(3)
        ->type_name("NX NY NZ");
    app.add_option("--out,-o", out, "result: .vtp or .csv; .vti for a grid")->required();
    app.add_flag("--library", by_library,
                 "by the library's own sampling, which takes points to a twentieth of a cell outside");
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
probe_points probe_at::chosen_points(const double *box)
{
    if (!grid.empty()) {
        const qx_long dims[3] = {grid[0], grid[1], grid[2]};
        return lattice_over(box, dims);
    }
    if (!line.empty()) return points_on_line(a.data(), b.data(), n);
    probe_points chosen;
    if (points.size() > 4 && points.compare(points.size() - 4, 4, ".csv") == 0) {
        table = read_point_table(points);
        chosen.xyz = table.xyz;
        return chosen;
    }
    const input_file at = read_file(points, {});
    for (vtkIdType i = 0; i < at.data->GetNumberOfPoints(); ++i) {
        double xyz[3];
        at.data->GetPoint(i, xyz);
        for (const double value : xyz)
            chosen.xyz.push_back(value);
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
        drop(arrays, [](const typed_array &array) { return array.name == mask_name; });
    if (carried.node.empty() && carried.cell.empty())
        throw failure(file.path() + ": has no arrays to take values of");
    // a name that nodes and cells both have stays with the nodes
    drop(&carried.cell,
         [&](const typed_array &array) { return find_array(carried.node, array.name) != nullptr; });
    return carried;
}

static bool has_cells(const input &in)
{
    return in.mesh->structured() ? in.mesh->mesh->ncells > 0 : !in.mesh->sets.empty();
}

probed probe_at::probe_one(const input &in, const probe_points &at, const probed_piece *of) const
{
    const carried_arrays carried = chosen_arrays(in);
    return (by_library ? probe_by_library : probe_exactly)(file.path(), *in.mesh, at, carried.node,
                                                           carried.cell, of);
}

void probe_at::finish(const probe_points &at, const probed &made)
{
    const auto inside = std::count(made.inside.begin(), made.inside.end(), 1);
    write(at, made);
    stage_done("write");
    say("%s: %lld points, %lld of them inside the mesh", out.c_str(), static_cast<long long>(at.count()),
        static_cast<long long>(inside));
}

void probe_at::run_in_pieces(pieces &parts)
{
    const probe_points at = chosen_points(parts.whole().box);
    probe_answers answers(at.count());
    probed_piece of;
    std::copy_n(parts.whole().extent, 6, of.whole_extent);
    std::copy_n(parts.whole().box, 6, of.whole_box);
    of.number = processes::rank() << 12; // pieces of a process follow one another in the file
    bool any = false;
    parts.each([&](const input &in) {
        ++of.number;
        if (!has_cells(in)) return;
        any = true;
        stage_done("read");
        answers.add(probe_one(in, at, &of));
        stage_done("compute");
    });
    if (!processes::any(any)) throw failure(file.path() + ": has no cells to hold values");
    answers.gather();
    stage_done("compute");
    processes::agree([&] {
        if (processes::is_first()) finish(at, answers.all());
    });
}

void probe_at::run()
{
    check();
    pieces parts = file.split(by_library ? mesh_use::sample : mesh_use::locate);
    if (parts.several()) return run_in_pieces(parts);
    parts.each([&](const input &in) {
        if (!has_cells(in)) throw failure(file.path() + ": has no cells to hold values");
        const probe_points at = chosen_points(parts.whole().box);
        stage_done("read");
        const probed made = probe_one(in, at, nullptr);
        stage_done("compute");
        finish(at, made);
    });
}

// Columns beside the points, but for those that a probe before this one made.
void probe_at::drop_old_columns(const std::vector<typed_array> &arrays)
{
    auto &others = table.others;
    const auto made_anew = [&](const point_table::column &column) {
        const std::string name = column.name.substr(0, column.name.find(':'));
        return name == mask_name || find_array(arrays, name) != nullptr;
    };
    others.erase(std::remove_if(others.begin(), others.end(), made_anew), others.end());
}

void probe_at::write(const probe_points &at, const probed &made)
{
    typed_array mask;
    mask.name = mask_name;
    mask.type = DTYPE_CHAR;
    mask = like(mask, at.count());
    std::copy(made.inside.begin(), made.inside.end(), static_cast<signed char *>(mask.values));
    drop_old_columns(made.arrays);
    if (std::filesystem::path(out).extension() == ".csv") {
        table.xyz = at.xyz;
        write_point_table(out, table, made.arrays, mask, made.inside);
        return;
    }
    const auto data = at.lattice ? lattice_to_vtk(at.dims, at.lo, at.hi) : points_to_vtk(at.xyz);
    for (const point_table::column &column : table.others)
        data->GetPointData()->AddArray(array_of_texts(column.name, column.texts));
    for (const typed_array &array : made.arrays)
        data->GetPointData()->AddArray(array.kept);
    data->GetPointData()->AddArray(mask.kept);
    write_data_set(out, data);
}

} // namespace

extern const command_entry probe_command{"probe", "Takes the values at points, along a line or on a grid",
                                         make_command<probe_at>};
