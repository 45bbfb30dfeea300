#include "derivative_command.hpp"

#include "console.hpp"
#include "failure.hpp"
#include "join_pieces.hpp"
#include "progress.hpp"
#include "to_vtk.hpp"

#include <skoklana/deriv.h>
#include <skoklana_host.h>

#include <vtkDataSet.h>
#include <vtkPointData.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace {

struct described_kind {
    const char *name;
    int veclen; // of a row of the result
    int (*by_host)(host_field *, const host_array *, float *, unsigned char *);
    int (*by_library)(mesh_info *, const void *, int, int, int, const void *, float *);
};

const described_kind kinds[] = {{"gradient", 3, host_gradient, UTILgrad},
                                {"curl", 3, host_curl, UTILcurl},
                                {"divergence", 1, host_divergence, UTILdiv}};

const described_kind &described(derivative_kind kind)
{
    return kinds[static_cast<int>(kind)];
}

} // namespace

derivative_command::derivative_command(CLI::App &app, derivative_kind kind_)
    : kind(kind_), file(app, input_options::in_pieces::yes),
      array(app, array_place::node,
            kind_ == derivative_kind::gradient ? component_kind::length : component_kind::none),
      result(app, "result: .vti, .vtr, .vts, .vtu or .vtp, as the input", result_options::drawn::yes)
{
    app.footer("\nAdds a float array named after the operation and the input, such as gradient(t). Linear "
               "data has its exact\nderivative at every node. On surfaces and lines that is the part "
               "within them. Nodes without cells, and those\nwhose cells all have a node without a value, "
               "get NaN.");
    app.add_flag("--library", by_library,
                 "the numbers of the library's own forms, with the differences that its manual tells");
}

scalar_array derivative_command::values(const input &in, const typed_array &of) const
{
    if (kind == derivative_kind::gradient) return array.scalar(in, of);
    const bool fits = of.veclen == 3 || (of.veclen == 2 && !by_library);
    if (!fits)
        throw failure(file.path() + ": " + of.name + " has " + std::to_string(of.veclen) +
                      (of.veclen == 1 ? " component" : " components") + ", and " + described(kind).name +
                      " takes vectors of 3" + (by_library ? "" : ", or of 2 where the third is 0") +
                      "; its node arrays: " + names_of(in.node));
    return rows_with_null(of, array.null.has_value(), array.null.value_or(0));
}

void derivative_command::derive_by_library(const input &in, const scalar_array &of, mesh_info *mesh,
                                           const void *values, float *out) const
{
    const described_kind &how = described(kind);
    const operation run(how.name);
    std::fill_n(out, mesh->nnodes * how.veclen, 0.0f); // refused meshes are left as they are
    run.check(
        how.by_library(mesh, values, of.array.veclen, of.array.type, of.null_flag, of.null_value(), out) == 1,
        in.file.path + ": " + how.name);
}

// The library's form for uniform meshes has the distance of nodes from the corners and the number of steps between them.
// So that it is the whole's to the bit, a piece is gone through in stretches of 2^n steps along the axis that the whole
// is cut across, whose corners are a multiple of that distance apart without rounding. The nodes at the ends of a stretch
// have one neighbour: they count where the whole ends there, too.
void derivative_command::derive_uniform_part(const input &in, const scalar_array &of, float *out) const
{
    const described_kind &how = described(kind);
    const input_mesh &mesh = *in.mesh;
    const int axis = mesh.ndim - 1;
    int all[6], with[6], own[6];
    extent_of(mesh.whole->lattice, all);
    extent_of(in.file.data, with);
    own_extent_of(in, own);
    const int lowest = all[2 * axis], highest = all[2 * axis + 1], end = own[2 * axis + 1] + 1;
    qx_long plane = 1;
    for (int d = 0; d < axis; ++d)
        plane *= mesh.dims[static_cast<size_t>(d)];
    std::vector<float> corners = mesh.corners, made;
    const auto low = static_cast<size_t>(axis), high = low + 3;
    const float step = (corners[high] - corners[low]) / static_cast<float>(highest - lowest);
    std::vector<qx_long> dims = mesh.dims;
    for (int next = own[2 * axis]; next < end;) {
        const int first = std::max(next - 1, lowest);
        int steps = 1;
        while (first + 2 * steps <= with[2 * axis + 1])
            steps *= 2;
        corners[low] = 0;
        corners[high] = step * static_cast<float>(steps);
        dims.back() = steps + 1;
        const std::unique_ptr<host_field, decltype(&host_free_field)> stretch(
            host_uniform(mesh.ndim, dims.data(), 3, corners.data()), host_free_field);
        mesh_info *info = stretch != nullptr ? host_mesh(stretch.get()) : nullptr;
        if (info == nullptr) throw failure(in.file.path + ": " + host_error());
        const qx_long before = (first - with[2 * axis]) * plane;
        made.resize(static_cast<size_t>((steps + 1) * plane * how.veclen));
        derive_by_library(in, of, info,
                          static_cast<const char *>(of.array.values) +
                              before * of.array.veclen * of.array.kept->GetElementComponentSize(),
                          made.data());
        const int done = std::min(end, first + steps + (first + steps == highest ? 1 : 0));
        std::copy_n(made.begin() + (next - first) * plane * how.veclen, (done - next) * plane * how.veclen,
                    out + (next - with[2 * axis]) * plane * how.veclen);
        next = done;
    }
}

qx_long derivative_command::derive(const input &in, const scalar_array &of, float *out) const
{
    const described_kind &how = described(kind);
    input_mesh &mesh = *in.mesh;
    if (mesh.nnodes == 0) return 0;
    if (by_library) {
        if (mesh.whole != nullptr && mesh.kind == "uniform")
            derive_uniform_part(in, of, out);
        else
            derive_by_library(in, of, mesh.mesh, of.array.values, out);
        return 0;
    }
    const operation run(how.name);
    const host_array values = {of.array.values, of.array.type, of.array.veclen,
                               of.null_flag != 0 ? of.null_value() : nullptr};
    std::vector<unsigned char> mask(static_cast<size_t>(mesh.nnodes));
    const int done = how.by_host(mesh.field, &values, out, mask.data());
    stop_if_asked();
    if (done != HOST_DONE) throw failure(file.path() + ": " + host_error());
    for (size_t node = 0; node < in.node_number.size(); ++node)
        if (!in.counts(node)) mask[node] = 1;
    return std::count(mask.begin(), mask.end(), 0);
}

// A value that no node has.
static void expect_nulls(scalar_array *of)
{
    if (of->null_flag != 0) return;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    if (of->array.type == DTYPE_FLOAT)
        memcpy(&of->null_value_bits, &nan, sizeof nan);
    else if (of->array.type == DTYPE_DOUBLE)
        of->null_value_bits = nan;
    else
        return; // whole numbers have none of themselves
    of->null_flag = 1;
}

void derivative_command::derive_pieces(pieces *parts, piece_results *made, nulls *seen, qx_long *without)
{
    const described_kind &how = described(kind);
    *without = 0;
    parts->each([&](const input &in) {
        result.check(ending_of_data(in.file.data), "this mesh", file);
        const typed_array of = array.choose(in).array;
        scalar_array from = values(in, of);
        (from.null_flag != 0 ? seen->some : seen->none) = true;
        if (seen->everywhere) expect_nulls(&from);
        stage_done("read");
        made_name = std::string(how.name) + "(" + of.name + ")";
        const auto rows = new_vtk_array(DTYPE_FLOAT, how.veclen, in.mesh->nnodes, made_name);
        *without += derive(in, from, static_cast<float *>(values_of(rows)));
        const auto out = vtkSmartPointer<vtkDataSet>::Take(in.file.data->NewInstance());
        out->ShallowCopy(in.file.data);
        out->GetPointData()->AddArray(rows);
        made->add(in, without_ghosts(in, out));
        stage_done("compute");
    });
}

void derivative_command::run()
{
    const described_kind &how = described(kind);
    pieces parts = file.split(result, array.mean(), mesh_use::locate, piece_with::ghosts_and_numbers);
    std::unique_ptr<piece_results> results(new piece_results(result.results_of(parts)));
    qx_long without = 0;
    nulls seen;
    derive_pieces(&parts, &*results, &seen, &without);
    // The host has forms for arrays with values everywhere, which differ from the others in the last digit: the whole
    // has one form, and so have its pieces.
    if (!by_library && parts.several() && processes::any(seen.some) && processes::any(seen.none)) {
        seen.everywhere = true;
        results.reset();
        results.reset(new piece_results(result.results_of(parts)));
        derive_pieces(&parts, &*results, &seen, &without);
    }
    piece_results &made = *results;
    drawing picture;
    picture.colour_by = made_name;
    made.join();
    without = processes::sum(static_cast<int64_t>(without));
    if (without > 0)
        say_note(std::to_string(without) + " nodes have no " + how.name +
                 ", for want of cells with values; it is NaN there");
    picture.colour_by = agreed(picture.colour_by);
    const std::string counts = picture.colour_by + " at " + std::to_string(made.nnodes()) + " nodes";
    result.write(made, parts, counts);
    result.draw(picture, made, parts, counts);
}
