#include "level_command.hpp"

#include "console.hpp"
#include "failure.hpp"

#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkDoubleArray.h>
#include <vtkIntArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <optional>

level_command::level_command(CLI::App &app, level_kind kind_)
    : kind(kind_), file(app, input_options::in_pieces::yes), array(app), levels(app),
      result(app, kind_ == level_kind::surfaces ? "result: .vtp, .ply or .stl" : "result: .vtp",
             result_options::drawn::yes),
      with(app, "carry only this array along, and colour the picture by it; may be repeated")
{
    app.add_flag("--raw", raw, "keep all nodes and pieces, also those that coincide or have no extent");
}

void level_command::check_cells(const pieces::totals &whole) const
{
    if (whole.cell_ndim < 2)
        throw failure(file.path() + ": has no cells that a surface or line could run through, only " +
                      whole.size_in_words);
    if (!surfaces() && !whole.flat_cells)
        throw failure(file.path() +
                      ": has solid cells only, and lines run on flat ones; iso extracts surfaces");
}

namespace {

const size_t most_levels = 1000, most_drawn = 256;

// While results of several levels wait for a picture: the level of each node, and of each triangle its number.
const char *const level_name = "level of the picture", *const number_name = "number of the level";

void add_level_arrays(vtkDataSet *data, const std::vector<double> &levels, const extracted &made)
{
    vtkNew<vtkDoubleArray> level;
    level->SetName(level_name);
    level->SetNumberOfValues(data->GetNumberOfPoints());
    vtkNew<vtkIntArray> number;
    number->SetName(number_name);
    number->SetNumberOfValues(data->GetNumberOfCells());
    number->FillValue(-1); // lines come first
    vtkIdType node = 0, cell = made.data->GetNumberOfLines();
    for (size_t i = 0; i < levels.size(); ++i) {
        for (qx_long n = 0; n < made.nnodes[i]; ++n)
            level->SetValue(node++, levels[i]);
        for (qx_long n = 0; n < made.ntri[i]; ++n)
            number->SetValue(cell++, static_cast<int>(i));
    }
    data->GetPointData()->AddArray(level);
    data->GetCellData()->AddArray(number);
}

vtkSmartPointer<vtkPolyData> copy_of(vtkDataSet *data)
{
    auto copy = vtkSmartPointer<vtkPolyData>::New();
    copy->ShallowCopy(data);
    return copy;
}

// Takes those arrays out again, and the triangles into the order of their levels.
vtkSmartPointer<vtkPolyData> by_levels(vtkDataSet *data, size_t nlevels, std::vector<int64_t> *triangles)
{
    auto sorted = copy_of(data);
    triangles->assign(nlevels, 0);
    auto *number = vtkIntArray::SafeDownCast(data->GetCellData()->GetArray(number_name));
    const vtkIdType first = sorted->GetNumberOfVerts() + sorted->GetNumberOfLines();
    std::vector<vtkIdType> order;
    for (vtkIdType cell = first; cell < data->GetNumberOfCells(); ++cell) {
        order.push_back(cell);
        ++(*triangles)[static_cast<size_t>(number->GetValue(cell))];
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](vtkIdType a, vtkIdType b) { return number->GetValue(a) < number->GetValue(b); });
    vtkNew<vtkCellArray> polys;
    vtkIdType count;
    const vtkIdType *corners;
    vtkNew<vtkCellData> arrays;
    arrays->CopyAllocate(data->GetCellData(), data->GetNumberOfCells());
    for (vtkIdType cell = 0; cell < first; ++cell)
        arrays->CopyData(data->GetCellData(), cell, cell);
    for (size_t i = 0; i < order.size(); ++i) {
        sorted->GetPolys()->GetCellAtId(order[i] - first, count, corners);
        polys->InsertNextCell(count, corners);
        arrays->CopyData(data->GetCellData(), order[i], first + static_cast<vtkIdType>(i));
    }
    sorted->SetPolys(polys);
    sorted->GetCellData()->ShallowCopy(arrays);
    sorted->GetCellData()->RemoveArray(number_name);
    return sorted;
}

} // namespace

// Coloured by what --with names first, else by the levels themselves where there are several, else by the first
// other array.
level_command::summary level_command::summary_of(const input &in, const typed_array &of,
                                                 const carried_arrays &carried) const
{
    summary sum;
    sum.name = of.name;
    sum.by_length = of.veclen > 1 && array.component_of(in, of) < 0;
    sum.colour_by = levels.values().size() > 1 ? of.name : "";
    if (!with.names().empty()) {
        sum.colour_by = with.names().front();
        sum.colour_cells = find_array(carried.node, sum.colour_by) == nullptr;
    } else if (sum.colour_by.empty()) {
        for (const typed_array &other : carried.node)
            if (sum.colour_by.empty() && other.name != of.name) sum.colour_by = other.name;
    }
    return sum;
}

void level_command::draw(const summary &of, const piece_results &made, const pieces &parts,
                         const std::string &counts) const
{
    drawing picture;
    std::copy_n(parts.whole().box, 6, picture.box);
    picture.colour_by = agreed(of.colour_by);
    picture.colour_cells = processes::any(of.colour_cells);
    const bool by_length = processes::any(of.by_length);
    if (made.whole() != nullptr)
        picture.data = by_levels(made.whole(), levels.values().size(), &picture.level_triangles);
    if (picture.colour_by == agreed(of.name) &&
        !picture.colour_cells) { // carried, it is the levels but for rounding
        picture.title = picture.colour_by + (by_length ? " (length)" : "");
        picture.levels = levels.values();
        picture.colour_by = level_name;
    }
    result.draw(picture, counts);
}

std::string level_command::reason(const summary &of) const
{
    const value_range range = agreed(of.seen);
    const std::string name = agreed(of.name);
    const std::string runs = range.any
                                 ? name + " runs from " + in_words(range.lo) + " to " + in_words(range.hi)
                                 : name + " has no values";
    bool within = false;
    for (const double level : levels.values())
        within = within || (range.any && level >= range.lo && level <= range.hi);
    return within ? "no cell has values on both sides of a level; " + runs
                  : "nothing has that value: " + runs;
}

void level_command::run()
{
    levels.check(most_levels, "");
    if (result.pictured()) levels.check(most_drawn, " that a picture shows");
    result.check(surfaces() ? " .vtp .ply .stl " : " .vtp ", surfaces() ? "a surface" : "lines", file);
    pieces parts = file.split(result, array.mean());
    piece_results made = result.results_of(parts);
    std::optional<piece_results> drawn;
    if (result.pictured()) drawn.emplace(parts, "", true, true);
    summary sum;
    parts.each([&](const input &in) {
        const typed_array of = array.choose(in).array;
        const scalar_array scalar = array.scalar(in, of);
        const carried_arrays carried = with.choose(in);
        check_cells(parts.whole());
        stage_done("read");

        const extracted one =
            extract_levels(file.path(), *in.mesh, kind, scalar, levels.values(), carried, raw);
        vtkPolyData *data = one.data;
        if (data->GetPointData()->GetArray(of.name.c_str()) != nullptr && of.veclen == 1)
            data->GetPointData()->SetActiveScalars(of.name.c_str());
        const value_range seen = sum.seen;
        sum = summary_of(in, of, carried);
        sum.seen = seen;
        if (data->GetNumberOfCells() == 0) widen(&sum.seen, range_of(scalar.array));
        if (drawn) {
            const auto copy = copy_of(data);
            add_level_arrays(copy, levels.values(), one);
            drawn->add(in, copy);
        }
        made.add(in, data);
        stage_done("compute");
    });
    made.join();

    const int64_t ntri = made.ncells(2), nline = made.ncells(1);
    if (ntri + nline == 0) say_note(reason(sum));
    std::string counts = std::to_string(made.nnodes()) + " nodes";
    if (ntri > 0) counts = std::to_string(ntri) + " triangles, " + counts;
    if (nline > 0) counts = std::to_string(nline) + " lines, " + counts;
    result.write(made, parts, counts);
    if (!drawn) return;
    drawn->join();
    draw(sum, *drawn, parts, counts);
}
