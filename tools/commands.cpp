#include "commands.hpp"

#include "arrays.hpp"
#include "extract.hpp"
#include "failure.hpp"
#include "mesh_from_vtk.hpp"
#include "messages.hpp"
#include "picture.hpp"
#include "probe.hpp"
#include "read.hpp"
#include "samples.hpp"
#include "start.hpp"
#include "to_vtk.hpp"
#include "without_null.hpp"
#include "write.hpp"

#include <skoklana/array.h>
#include <skoklana/host/tool.h>

#include <vtkCellData.h>
#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>

void start_vtk()
{
    vtk_messages::install();
}

namespace {

// ---- what the user sees -------------------------------------------------------------------------------------

// Names the stages of a command and how long each took.
class stopwatch {
  public:
    void done(const char *stage)
    {
        const auto now = std::chrono::steady_clock::now();
        stages.push_back({stage, std::chrono::duration<double>(now - last).count()});
        last = now;
    }
    void print() const
    {
        for (const auto &[stage, seconds] : stages)
            printf("%-9s %8.3f s\n", stage, seconds);
    }

  private:
    std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
    std::vector<std::pair<const char *, double>> stages;
};

__attribute__((format(printf, 2, 3))) void say(const settings &from, const char *format, ...)
{
    if (from.quiet) return;
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    putchar('\n');
}

void say_notes(const settings &from, const std::vector<std::string> &notes)
{
    for (const std::string &note : notes)
        if (!from.quiet) fprintf(stderr, "note: %s\n", note.c_str());
}

std::string number(double value)
{
    char text[40];
    snprintf(text, sizeof text, "%.6g", value);
    return text;
}

// ---- input --------------------------------------------------------------------------------------------------

// A file, its arrays and its mesh.
struct loaded {
    input_file file;
    std::vector<typed_array> node, cell;
    std::unique_ptr<input_mesh> mesh;
};

input_file load_file(const settings &from, const std::string &path)
{
    read_options options;
    options.block = from.block;
    options.step = from.step;
    options.solution = from.solution;
    return read_file(path, options);
}

loaded load(const settings &from, mesh_use use)
{
    loaded in;
    in.file = load_file(from, from.file);
    vtkDataSet *data = in.file.data;
    in.node = arrays_of(data->GetPointData(), data->GetNumberOfPoints(), &in.file.notes);
    in.cell = arrays_of(data->GetCellData(), data->GetNumberOfCells(), &in.file.notes);
    in.mesh = make_mesh(from.file, data, use);
    say_notes(from, in.file.notes);
    say_notes(from, in.mesh->notes);
    return in;
}

std::string names_of(const std::vector<typed_array> &arrays)
{
    std::string names;
    for (const typed_array &array : arrays)
        names += (names.empty() ? "" : ", ") + array.name;
    return names.empty() ? "none" : names;
}

const typed_array *named(const std::vector<typed_array> &arrays, const std::string &name)
{
    const auto found = std::find_if(arrays.begin(), arrays.end(),
                                    [&](const typed_array &array) { return array.name == name; });
    return found == arrays.end() ? nullptr : &*found;
}

// The node array that was asked for.
const typed_array &chosen_array(const settings &from, const loaded &in)
{
    const std::string choice = "; its node arrays: " + names_of(in.node);
    if (in.node.empty())
        throw failure(from.file + ": has no node arrays, and values at nodes are wanted" +
                      (in.cell.empty() ? "" : "; its cell arrays: " + names_of(in.cell)));
    if (from.array.empty()) {
        if (in.node.size() == 1) return in.node.front();
        throw failure(from.file + ": has several node arrays; name one with --array" + choice);
    }
    if (const typed_array *array = named(in.node, from.array)) return *array;
    if (named(in.cell, from.array) != nullptr)
        throw failure(from.file + ": " + from.array +
                      " holds a value a cell, and values at nodes are wanted" + choice);
    throw failure(from.file + ": has no array " + from.array + choice);
}

// -1: the length of the rows.
int chosen_component(const settings &from, const typed_array &array)
{
    if (from.component.empty() || from.component == "length") return -1;
    char *end;
    const long component = strtol(from.component.c_str(), &end, 10);
    if (*end != '\0' || component < 0)
        throw failure("--component " + from.component + ": is neither a number from 0 nor \"length\"",
                      exit_usage);
    if (component >= array.veclen)
        throw failure(from.file + ": " + array.name + " has components 0 to " +
                      std::to_string(array.veclen - 1) + ", not " + from.component);
    return static_cast<int>(component);
}

scalar_array chosen_scalar(const settings &from, const typed_array &array)
{
    return scalar_of(array, chosen_component(from, array), from.null.has_value(), from.null.value_or(0));
}

// The arrays named by --with, or all.
carried_arrays chosen_with(const settings &from, const loaded &in)
{
    carried_arrays carried;
    if (from.with.empty()) {
        carried.node = in.node;
        carried.cell = in.cell;
        return carried;
    }
    for (const std::string &name : from.with) {
        const typed_array *node = named(in.node, name), *cell = named(in.cell, name);
        if (node == nullptr && cell == nullptr)
            throw failure(from.file + ": has no array " + name + " to carry along; its node arrays: " +
                          names_of(in.node) + "; its cell arrays: " + names_of(in.cell));
        if (node != nullptr) carried.node.push_back(*node);
        if (cell != nullptr) carried.cell.push_back(*cell);
    }
    return carried;
}

// ---- output -------------------------------------------------------------------------------------------------

void add_arrays(vtkDataSet *to, const std::vector<typed_array> &arrays)
{
    for (const typed_array &array : arrays)
        to->GetPointData()->AddArray(array.kept);
}

// The array that a picture is coloured by: what --with names first, else the array itself where several levels
// tell themselves apart by it, else the first other one.
std::string colour_array(const settings &from, const typed_array &array, const carried_arrays &carried)
{
    for (const std::string &name : from.with)
        if (named(carried.node, name) != nullptr) return name;
    if (from.levels.size() > 1) return named(carried.node, array.name) != nullptr ? array.name : "";
    for (const typed_array &other : carried.node)
        if (other.name != array.name) return other.name;
    return "";
}

} // namespace

// ---- info ---------------------------------------------------------------------------------------------------

namespace {

void print_arrays(const char *where, const std::vector<typed_array> &arrays)
{
    for (const typed_array &array : arrays) {
        const value_range range = range_of(array);
        std::string type = array.widened.empty() ? name_of_type(array.type)
                                                 : array.widened + ", taken as " + name_of_type(array.type);
        if (array.veclen > 1) type += " x " + std::to_string(array.veclen);
        std::string values = !range.any ? "no values" : array.veclen > 1 ? "length " : "";
        if (range.any) values += number(range.lo) + " .. " + number(range.hi);
        if (range.nans > 0) values += ", " + std::to_string(range.nans) + " without a value (NaN)";
        printf("%-5s array %s: %s, %s\n", where, array.name.c_str(), type.c_str(), values.c_str());
    }
}

// A round number near x, of a grain that suits the width of the range.
double rounded(double x, double width)
{
    const double grain = std::pow(10, std::floor(std::log10(width)) - 1);
    return std::round(x / grain) * grain;
}

// How likely an array is what a user wants levels of: wide integers are mostly numbers of things.
int rank_of(const typed_array &array)
{
    const bool floating = array.type == DTYPE_FLOAT || array.type == DTYPE_DOUBLE;
    const bool narrow = array.type <= DTYPE_SHORT;
    return array.veclen == 1 ? (floating ? 0 : narrow ? 1 : 3) : floating ? 2 : 4;
}

void print_suggestion(const settings &from, const loaded &in)
{
    const typed_array *best = nullptr;
    for (const typed_array &array : in.node)
        if (best == nullptr || rank_of(array) < rank_of(*best)) best = &array;
    const int ndim = in.mesh->cell_ndim();
    if (best == nullptr || ndim < 2) return;
    const value_range range = range_of(*best);
    if (!range.any || !(range.lo < range.hi)) return;
    printf("try:   skoklana %s %s --array \"%s\"", ndim == 3 ? "iso" : "isoline", from.file.c_str(),
           best->name.c_str());
    for (const double share : {0.25, 0.5, 0.75})
        printf(" --level %s",
               number(rounded(range.lo + share * (range.hi - range.lo), range.hi - range.lo)).c_str());
    puts(" -o out.vtp --picture out.png");
}

} // namespace

void info(const settings &from)
{
    stopwatch watch;
    const loaded in = load(from, mesh_use::extract);
    watch.done("read");
    printf("file:  %s\n", from.file.c_str());
    if (in.file.nblocks > 1) printf("file:  %d blocks\n", in.file.nblocks);
    if (in.file.nsteps > 1) printf("file:  %d time steps\n", in.file.nsteps);
    printf("mesh:  %s, %s\n", in.mesh->kind.c_str(), in.mesh->size_in_words().c_str());
    printf("nodes: %lld\n", static_cast<long long>(in.mesh->nnodes));
    printf("cells: %lld\n", static_cast<long long>(in.mesh->mesh->ncells));
    double box[6];
    in.file.data->GetBounds(box);
    printf("box:   %s .. %s, %s .. %s, %s .. %s\n", number(box[0]).c_str(), number(box[1]).c_str(),
           number(box[2]).c_str(), number(box[3]).c_str(), number(box[4]).c_str(), number(box[5]).c_str());
    print_arrays("node", in.node);
    print_arrays("cell", in.cell);
    print_suggestion(from, in);
    if (from.time) watch.print();
}

// ---- iso, isoline -------------------------------------------------------------------------------------------

static void extract(const settings &from, level_kind kind)
{
    const bool surfaces = kind == level_kind::surfaces;
    if (from.out.empty() && from.picture.empty())
        throw failure("nowhere to put the result: give -o OUT.vtp, --picture OUT.png or both", exit_usage);
    if (!from.out.empty())
        check_ending(from.out, surfaces ? " .vtp .ply .stl " : " .vtp ", surfaces ? "a surface" : "lines");
    if (!from.picture.empty()) check_ending(from.picture, " .png ", "a picture");

    stopwatch watch;
    const loaded in = load(from, mesh_use::extract);
    const typed_array &array = chosen_array(from, in);
    const scalar_array scalar = chosen_scalar(from, array);
    const carried_arrays carried = chosen_with(from, in);
    const int ndim = in.mesh->cell_ndim();
    const bool flat = in.mesh->structured()
                          ? ndim == 2
                          : std::any_of(in.mesh->sets.begin(), in.mesh->sets.end(),
                                        [](const cell_set &set) { return cell_kinds[set.kind].ndim == 2; });
    if (ndim < 2)
        throw failure(from.file + ": has no cells that a surface or line could run through, only " +
                      in.mesh->size_in_words());
    if (!surfaces && !flat)
        throw failure(from.file +
                      ": has solid cells only, and lines run on flat ones; iso extracts surfaces");
    watch.done("read");

    const extracted levels = extract_levels(from.file, *in.mesh, kind, scalar, from.levels, carried);
    const auto &made = levels.data;
    if (made->GetPointData()->GetArray(array.name.c_str()) != nullptr && array.veclen == 1)
        made->GetPointData()->SetActiveScalars(array.name.c_str());
    watch.done("compute");

    const vtkIdType ntri = made->GetNumberOfPolys(), nline = made->GetNumberOfLines();
    if (ntri + nline == 0) {
        const value_range range = range_of(scalar.array);
        say_notes(from, {"nothing has that value: " + array.name + " runs from " + number(range.lo) + " to " +
                         number(range.hi)});
    }
    std::string counts = std::to_string(made->GetNumberOfPoints()) + " nodes";
    if (ntri > 0) counts = std::to_string(ntri) + " triangles, " + counts;
    if (nline > 0) counts = std::to_string(nline) + " lines, " + counts;
    if (!from.out.empty()) {
        write_data_set(from.out, made);
        watch.done("write");
        say(from, "%s: %s", from.out.c_str(), counts.c_str());
    }
    if (!from.picture.empty()) {
        picture_options options;
        options.colour_by = colour_array(from, array, carried);
        options.level_triangles.assign(levels.ntri.begin(), levels.ntri.end());
        in.file.data->GetBounds(options.box);
        write_picture(from.picture, made, options);
        watch.done("picture");
        say(from, "%s: picture of %s", from.picture.c_str(), counts.c_str());
    }
    if (from.time) watch.print();
}

void iso(const settings &from)
{
    extract(from, level_kind::surfaces);
}

void isoline(const settings &from)
{
    extract(from, level_kind::lines);
}

// ---- probe --------------------------------------------------------------------------------------------------

namespace {

void parse_point(const std::string &text, float *xyz)
{
    if (sscanf(text.c_str(), "%f,%f,%f", &xyz[0], &xyz[1], &xyz[2]) != 3)
        throw failure("--line: " + text + " is no point; three numbers x,y,z are wanted", exit_usage);
}

// Where to sample; a lattice is over the mesh's box.
sample_points chosen_points(const settings &from, const input_mesh &mesh)
{
    if (!from.grid.empty()) {
        const qx_long dims[3] = {from.grid[0], from.grid[1], from.grid[2]};
        return lattice_over(mesh, dims);
    }
    sample_points points;
    if (!from.line.empty()) {
        float a[3], b[3];
        parse_point(from.line[0], a);
        parse_point(from.line[1], b);
        return points_on_line(a, b, strtoll(from.line[2].c_str(), nullptr, 10));
    }
    if (from.points.size() > 4 && from.points.compare(from.points.size() - 4, 4, ".csv") == 0) {
        points.xyz = read_points_csv(from.points);
        return points;
    }
    const input_file file = read_file(from.points, {});
    for (vtkIdType i = 0; i < file.data->GetNumberOfPoints(); ++i) {
        double xyz[3];
        file.data->GetPoint(i, xyz);
        for (const double value : xyz)
            points.xyz.push_back(static_cast<float>(value));
    }
    return points;
}

void check_probe(const settings &from)
{
    const int ways =
        (from.points.empty() ? 0 : 1) + (from.line.empty() ? 0 : 1) + (from.grid.empty() ? 0 : 1);
    if (ways != 1) throw failure("give one of --points FILE, --line A B N and --grid NX NY NZ", exit_usage);
    if (!from.line.empty() && strtoll(from.line[2].c_str(), nullptr, 10) < 1)
        throw failure("--line: " + from.line[2] + " is no count of points", exit_usage);
    qx_long nodes = 1;
    for (const int64_t n : from.grid)
        if (n < 1 || __builtin_mul_overflow(nodes, n, &nodes) || nodes > qx_long{1} << 40)
            throw failure("--grid: each number is at least 1, and all nodes together not more than 10^12",
                          exit_usage);
    check_ending(from.out, from.grid.empty() ? " .vtp .csv " : " .vti .csv ",
                 from.grid.empty() ? "a list of points" : "a grid");
}

} // namespace

void probe(const settings &from)
{
    check_probe(from);
    stopwatch watch;
    loaded in = load(from, mesh_use::sample);
    if (in.mesh->structured() ? in.mesh->mesh->ncells == 0 : in.mesh->sets.empty())
        throw failure(from.file + ": has no cells to hold values");
    carried_arrays carried = chosen_with(from, in);
    for (auto *arrays : {&carried.node, &carried.cell}) // a probe of a probe makes its own
        arrays->erase(
            std::remove_if(arrays->begin(), arrays->end(),
                           [](const typed_array &array) { return array.name == "vtkValidPointMask"; }),
            arrays->end());
    if (carried.node.empty() && carried.cell.empty())
        throw failure(from.file + ": has no arrays to take values of");
    // a name that nodes and cells both have stays with the nodes
    carried.cell.erase(
        std::remove_if(carried.cell.begin(), carried.cell.end(),
                       [&](const typed_array &array) { return named(carried.node, array.name) != nullptr; }),
        carried.cell.end());
    const sample_points points = chosen_points(from, *in.mesh);
    watch.done("read");

    const auto arrays = probe(from.file, *in.mesh, points, carried.node, carried.cell);
    const auto made =
        points.lattice ? lattice_to_vtk(points.dims, points.lo, points.hi) : points_to_vtk(points.xyz);
    add_arrays(made, arrays);
    watch.done("compute");

    const auto *inside = static_cast<const signed char *>(arrays.back().values);
    write_data_set(from.out, made);
    watch.done("write");
    say(from, "%s: %lld points, %lld of them inside the mesh", from.out.c_str(),
        static_cast<long long>(points.count()),
        static_cast<long long>(std::count(inside, inside + points.count(), 1)));
    if (from.time) watch.print();
}

// ---- threshold-null, clamp ----------------------------------------------------------------------------------

void threshold_null(const settings &from)
{
    check_ending(from.out, " .vtu ", "a mesh of cells");
    stopwatch watch;
    const loaded in = load(from, mesh_use::extract);
    const typed_array &array = chosen_array(from, in);
    const scalar_array scalar = chosen_scalar(from, array);
    const carried_arrays carried = chosen_with(from, in);
    if (scalar.null_flag == 0)
        throw failure(from.file + ": " + array.name +
                      " has no nodes without a value; --null X tells which value means that");
    watch.done("read");

    const auto made = without_null(from.file, *in.mesh, scalar, carried);
    watch.done("compute");
    write_data_set(from.out, made);
    watch.done("write");
    say(from, "%s: %lld of %lld nodes, %lld of %lld cells", from.out.c_str(),
        static_cast<long long>(made->GetNumberOfPoints()), static_cast<long long>(in.mesh->nnodes),
        static_cast<long long>(made->GetNumberOfCells()), static_cast<long long>(in.mesh->mesh->ncells));
    if (from.time) watch.print();
}

void clamp(const settings &from)
{
    if (!from.min && !from.max) throw failure("give --min X, --max X or both", exit_usage);
    if (from.min && from.max && *from.min > *from.max)
        throw failure("--min " + number(*from.min) + " is above --max " + number(*from.max), exit_usage);
    stopwatch watch;
    loaded in;
    in.file = load_file(from, from.file);
    vtkDataSet *data = in.file.data;
    check_ending(from.out, ending_of_data(data), "this mesh");
    in.node = arrays_of(data->GetPointData(), data->GetNumberOfPoints(), &in.file.notes);
    say_notes(from, in.file.notes);
    const typed_array &array = chosen_array(from, in);
    const int component = chosen_component(from, array);
    watch.done("read");

    // every component that is asked for, in a copy; nulls stay
    const typed_array made = like(array, array.count);
    made.kept->DeepCopy(array.kept);
    made.kept->SetName(array.name.c_str());
    double null_bits = 0;
    if (from.null) UTILdouble_to_type(array.type, *from.null, &null_bits);
    qx_long changed = 0;
    for (int c = component < 0 ? 0 : component; c < (component < 0 ? array.veclen : component + 1); ++c)
        if (UTILclamp(array.count, array.values, array.veclen, c, array.type, from.null ? 1 : 0, &null_bits,
                      from.min ? 1 : 0, from.min.value_or(0), from.max ? 1 : 0, from.max.value_or(0),
                      values_of(made.kept)) != 1)
            throw failure(from.file + ": " + array.name + " could not be limited");
    for (qx_long i = 0; i < array.count; ++i)
        for (int c = 0; c < array.veclen; ++c)
            changed += made.kept->GetComponent(i, c) != array.kept->GetComponent(i, c) ? 1 : 0;
    const auto out = vtkSmartPointer<vtkDataSet>::Take(data->NewInstance());
    out->ShallowCopy(data);
    out->GetPointData()->AddArray(made.kept);
    watch.done("compute");
    write_data_set(from.out, out);
    watch.done("write");
    say(from, "%s: %lld values of %s limited", from.out.c_str(), static_cast<long long>(changed),
        array.name.c_str());
    if (from.time) watch.print();
}

// ---- sample -------------------------------------------------------------------------------------------------

std::string list_of_samples()
{
    std::string list;
    for (const samples::field &field : samples::fields()) {
        char line[200];
        snprintf(line, sizeof line, "  %-16s%s; try level %g\n", field.name, field.about, field.level);
        list += line;
    }
    return list;
}

void sample(const settings &from)
{
    static const struct {
        const char *name;
        samples::layout layout;
        int kind;
        const char *ending;
    } meshes[] = {{"uniform", samples::layout::uniform, -1, " .vti "},
                  {"rectilinear", samples::layout::rectilinear, -1, " .vtr "},
                  {"curvilinear", samples::layout::curvilinear, -1, " .vts "},
                  {"hex", samples::layout::cells, CELL_HEX, " .vtu "},
                  {"prism", samples::layout::cells, CELL_PRISM, " .vtu "},
                  {"pyramid", samples::layout::cells, CELL_PYR, " .vtu "},
                  {"tet", samples::layout::cells, CELL_TET, " .vtu "},
                  {"quad", samples::layout::cells, CELL_QUAD, " .vtu "},
                  {"tri", samples::layout::cells, CELL_TRI, " .vtu "}};
    const samples::field *field = samples::find(from.sample);
    if (field == nullptr)
        throw failure("there is no sample " + from.sample + "; there are:\n" + list_of_samples(), exit_usage);
    const auto *mesh = std::find_if(std::begin(meshes), std::end(meshes),
                                    [&](const auto &one) { return from.mesh == one.name; });
    if (mesh == std::end(meshes))
        throw failure("there is no mesh " + from.mesh +
                          "; there are uniform, rectilinear, curvilinear, hex, prism, "
                          "pyramid, tet, quad and tri",
                      exit_usage);
    check_ending(from.out, mesh->ending, "this mesh");

    std::vector<int64_t> size = from.size;
    if (size.size() == 2) throw failure("--size: one number or three are wanted", exit_usage);
    if (size.size() == 1) size = {size[0], size[0], size[0]};
    const bool flat_kind = mesh->kind >= 0 && cell_kinds[mesh->kind].ndim == 2;
    if (flat_kind && from.size.size() == 1) size[2] = 1;
    qx_long nodes = 1;
    for (size_t d = 0; d < 3; ++d) {
        if (__builtin_mul_overflow(nodes, size[d], &nodes) || nodes > qx_long{1} << 40)
            throw failure("--size: all nodes together can be 10^12", exit_usage);
        if (mesh->kind >= 0 && size[d] < 2 && !(d == 2 && flat_kind))
            throw failure("--size: cells need 2 nodes along each axis", exit_usage);
    }
    if (flat_kind && size[2] != 1)
        throw failure("--size: a mesh of flat cells has 1 node along z", exit_usage);
    if (from.order == 2 && mesh->kind < 0) throw failure("--order 2 is for cells only", exit_usage);

    stopwatch watch;
    const samples::mesh lattice =
        mesh->kind < 0 ? samples::structured(mesh->layout, size.data(), field->lo, field->hi)
                       : samples::cells(mesh->kind, from.order, size.data(), field->lo, field->hi);
    const auto made = sample_to_vtk(lattice, *field);
    watch.done("compute");
    write_data_set(from.out, made);
    watch.done("write");
    say(from, "%s: %lld nodes, %lld cells; try --array %s --level %g", from.out.c_str(),
        static_cast<long long>(made->GetNumberOfPoints()), static_cast<long long>(made->GetNumberOfCells()),
        field->array, field->level);
    if (from.time) watch.print();
}
