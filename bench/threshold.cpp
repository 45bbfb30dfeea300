// Selection by value: null nodes removed from meshes and nodes classified, against VTK's nearest filters, and
// the kernels under them against a plain copy of the same array.
#include "bench.hpp"
#include "inputs.hpp"

#include <skoklana.h>

#include <vtkDataArray.h>
#include <vtkImageData.h>
#include <vtkImageThreshold.h>
#include <vtkPointData.h>
#include <vtkThreshold.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

void require(bool holds)
{
    if (holds) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

// ---- null nodes removed -------------------------------------------------------------------------------------

struct kept_mesh {
    qx_long nnodes = 0, ncells = 0, nconn = 0;
    qx_long *nodes = nullptr; // cell sets: the map; structured meshes: the list
    qx_long *cell_list = nullptr, *conn = nullptr;
    float *coords = nullptr, *data = nullptr;

    ~kept_mesh()
    {
        for (qx_long *list : {nodes, cell_list, conn})
            free(list);
        free(coords);
        free(data);
    }
};

constexpr float null_value = -1; // the sample's values are 0 to 1
constexpr double level = 0.5;    // what is below it is null

void remove_null(const input &in, kept_mesh *out)
{
    if (in.mesh->ndim == 0)
        require(UTILthresh_null(in.mesh, in.data(), in.type, &null_value, &out->nnodes, &out->nodes,
                                &out->cell_list, &out->ncells, &out->conn, &out->nconn) == 1);
    else
        require(UTILthresh_null(in.mesh, in.data(), in.type, &null_value, &out->nnodes, &out->nodes,
                                &out->conn, &out->ncells, &out->nconn, nullptr) == 1);
}

// Coordinates and data of what was kept.
void gather(const input &in, kept_mesh *out)
{
    const size_t n = static_cast<size_t>(out->nnodes);
    out->coords = static_cast<float *>(malloc(3 * sizeof(float) * n));
    out->data = static_cast<float *>(malloc(sizeof(float) * n));
    require(UTILget_coord_list(in.mesh, out->nnodes, out->nodes, out->coords) == 1);
    require(UTILget_data_list(in.mesh, in.type, 1, in.data(), out->nnodes, out->nodes, out->data) ==
            out->nnodes);
}

contender removal(const input_ptr &in, bool gathered)
{
    contender c;
    c.name = gathered ? "remove, gather" : "remove";
    c.as = gathered ? role::ours : role::part;
    c.run = [=] {
        auto kept = std::make_shared<kept_mesh>();
        remove_null(*in, kept.get());
        if (gathered) gather(*in, kept.get());
        made output;
        output.nodes = kept->nnodes;
        output.cells = kept->ncells;
        output.written_bytes = static_cast<double>(kept->nnodes) * 4 * sizeof(float) +
                               static_cast<double>(kept->nconn) * sizeof(qx_long);
        output.kept = kept;
        return output;
    };
    return c;
}

// Cells with a node outside the range go: the same cells. Its nodes are those of kept cells, ours all that are
// not null.
contender threshold_filter(const input_ptr &in)
{
    contender c;
    c.name = "threshold";
    c.as = role::peer;
    c.aim = 1;
    c.run = [=] {
        auto filter = vtkSmartPointer<vtkThreshold>::New();
        filter->SetInputData(in->theirs);
        filter->SetThresholdFunction(vtkThreshold::THRESHOLD_UPPER);
        filter->SetUpperThreshold(level);
        filter->AllScalarsOn();
        filter->Update();
        vtkSmartPointer<vtkUnstructuredGrid> grid = filter->GetOutput();
        made output;
        output.cells = grid->GetNumberOfCells();
        output.kept = std::make_shared<vtkSmartPointer<vtkUnstructuredGrid>>(grid);
        return output;
    };
    return c;
}

bench_case removal_case(const char *name, const input_ptr &in)
{
    float *values = static_cast<float *>(in->data());
    std::replace_if(
        values, values + in->scalars->GetNumberOfValues(), [](float v) { return v < level; }, null_value);
    bench_case c;
    c.name = name;
    c.size = std::to_string(in->theirs->GetNumberOfCells()) + " cells";
    c.contenders = {removal(in, true), removal(in, false), threshold_filter(in)};
    c.read_bytes = in->data_bytes() + in->mesh_bytes();
    return c;
}

// ---- kernels ------------------------------------------------------------------------------------------------

struct element_type {
    const char *name;
    int vtk;
    int64_t bytes;
    int64_t (*fill)(void *values, int64_t count);
};

// 0 to 99 without pattern, one in a hundred the null value 0. Returns how many reach 50: about half.
template <typename T> int64_t fill(void *values, int64_t count)
{
    uint32_t state = 1;
    int64_t passing = 0;
    for (int64_t i = 0; i < count; ++i) {
        state = state * 1664525u + 1013904223u;
        const uint32_t value = (state >> 16) % 100;
        static_cast<T *>(values)[i] = static_cast<T>(value);
        passing += value >= 50;
    }
    return passing;
}

// By element type code.
constexpr element_type types[] = {
    {"char", VTK_SIGNED_CHAR, 1, fill<signed char>},
    {"byte", VTK_UNSIGNED_CHAR, 1, fill<unsigned char>},
    {"short", VTK_SHORT, 2, fill<short>},
    {"int", VTK_INT, 4, fill<int>},
    {"float", VTK_FLOAT, 4, fill<float>},
    {"double", VTK_DOUBLE, 8, fill<double>},
    {"qx_long", VTK_LONG_LONG, 8, fill<qx_long>},
};

struct array {
    int type;
    int64_t count, passing;              // values, and those that reach 50
    vtkSmartPointer<vtkImageData> image; // holds the values, in rows of 4096
    void *values;
    double bytes() const { return static_cast<double>(count * types[type].bytes); }
};

using array_ptr = std::shared_ptr<array>;

array_ptr array_of(int type, int64_t bytes)
{
    auto made = std::make_shared<array>();
    made->type = type;
    made->count = bytes / types[type].bytes / 4096 * 4096;
    made->image = vtkSmartPointer<vtkImageData>::New();
    made->image->SetDimensions(4096, static_cast<int>(made->count / 4096), 1);
    made->image->AllocateScalars(types[type].vtk, 1);
    made->values = made->image->GetScalarPointer();
    made->passing = types[type].fill(made->values, made->count);
    return made;
}

// A kernel over an array with its output arrays, which stay warm as those of the copy do.
struct kernel {
    const char *name;
    bool quick, counts;                                   // in the quick run; run gives the count that passes
    int64_t (*written)(const array &in, int64_t passing); // bytes
    int64_t (*run)(const array &in, int null_flag, void *out); // gives the count that passes, or -1
    int64_t (*room)(const array &in);                          // bytes of out
};

constexpr unsigned char zero[8] = {}; // the null value 0 in every type

int64_t run_threshold_scalar(const array &in, int null_flag, void *out)
{
    require(UTILthreshold_scalar(in.count, in.values, in.type, null_flag, zero, 1, 50, 0, 1, 2,
                                 static_cast<unsigned char *>(out)) == 1);
    return -1;
}

int64_t run_node_thresh(const array &in, int null_flag, void *out)
{
    return UTILnode_thresh(in.count, in.type, in.values, null_flag, zero, 50, 1, static_cast<qx_long *>(out));
}

constexpr int64_t plane = 64 << 10;

// Plane by plane, as a sweep takes them: the map of a plane is used again for the next.
int64_t run_node_thresh_struct(const array &in, int null_flag, void *out)
{
    qx_long listed = 0, *map = static_cast<qx_long *>(out), *list = map + plane;
    for (qx_long base = 0; base < in.count; base += plane)
        UTILnode_thresh_struct(std::min(plane, in.count - base),
                               static_cast<char *>(in.values) + base * types[in.type].bytes, in.type,
                               null_flag, zero, 50, 1, base, &listed, list, map);
    return listed;
}

int64_t run_count(const array &in, int null_flag, void *)
{
    return UTILnnode_thresh_struct(1, &in.count, in.values, in.type, null_flag, zero, 50, 1);
}

int64_t run_clamp(const array &in, int null_flag, void *out)
{
    require(UTILclamp(in.count, in.values, 1, 0, in.type, null_flag, zero, 1, 20, 1, 80, out) == 1);
    return -1;
}

// The array against itself: values outside the bounds are replaced.
int64_t run_threshold(const array &in, int null_flag, void *out)
{
    require(UTILthreshold(in.count, in.values, 1, 0, in.type, null_flag, zero, 1, 20, 1, 80, in.values, 1,
                          in.type, 0, out) == 1);
    return -1;
}

int64_t run_filter(const array &in, int, void *out)
{
    const float weights[3] = {1, 2, 1};
    require(UTILfilter_1d(3, weights, in.count, 1, in.type, in.values, out) == 1);
    return -1;
}

int64_t run_blend(const array &in, int, void *out)
{
    require(UTILinterpolate(in.count, 0.25, in.type, in.values, in.values, out) == 1);
    return -1;
}

constexpr qx_long row = 4096;

int64_t run_downsize(const array &in, int, void *out)
{
    const qx_long dims[2] = {row, in.count / row};
    const int steps[2] = {2, 2};
    require(UTILdownsize(2, dims, steps, in.type, in.values, out) == 1);
    return -1;
}

int64_t run_resample(const array &in, int, void *out)
{
    const qx_long dims[2] = {row, in.count / row}, to[2] = {row * 3 / 4, in.count / row};
    require(UTILresample(2, dims, to, 1, in.type, in.values, out) == 1);
    return -1;
}

int64_t run_projection(const array &in, int, void *out)
{
    const float dir[3] = {0.6f, 0, 0.8f};
    require(UTILproj_vec(in.count / 3, 3, in.type, in.values, 1, dir, static_cast<float *>(out)) == 1);
    return -1;
}

int64_t flag_bytes(const array &in)
{
    return in.count;
}
int64_t map_bytes(const array &in)
{
    return in.count * static_cast<int64_t>(sizeof(qx_long));
}
int64_t value_bytes(const array &in)
{
    return in.count * types[in.type].bytes;
}

const kernel kernels[] = {
    {"threshold_scalar", true, false, [](const array &in, int64_t) { return flag_bytes(in); },
     run_threshold_scalar, flag_bytes},
    {"node_thresh", true, true, [](const array &in, int64_t) { return map_bytes(in); }, run_node_thresh,
     map_bytes},
    {"node_thresh_struct", false, true,
     [](const array &, int64_t passing) { return passing * static_cast<int64_t>(sizeof(qx_long)); },
     run_node_thresh_struct,
     [](const array &in) { return map_bytes(in) + plane * static_cast<int64_t>(sizeof(qx_long)); }},
    {"nnode_thresh_struct", false, true, [](const array &, int64_t) { return int64_t{0}; }, run_count,
     [](const array &) { return int64_t{0}; }},
    {"clamp", false, false, [](const array &in, int64_t) { return value_bytes(in); }, run_clamp, value_bytes},
    {"threshold", false, false, [](const array &in, int64_t) { return value_bytes(in); }, run_threshold,
     value_bytes},
    {"filter_1d, 3 weights", false, false, [](const array &in, int64_t) { return value_bytes(in); },
     run_filter, value_bytes},
    {"interpolate", false, false, [](const array &in, int64_t) { return value_bytes(in); }, run_blend,
     value_bytes},
    {"downsize by 2, 2", false, false, [](const array &in, int64_t) { return value_bytes(in) / 4; },
     run_downsize, value_bytes},
    {"resample to 3/4", false, false, [](const array &in, int64_t) { return value_bytes(in) * 3 / 4; },
     run_resample, value_bytes},
    {"proj_vec", false, false,
     [](const array &in, int64_t) { return in.count / 3 * 3 * static_cast<int64_t>(sizeof(float)); },
     run_projection, [](const array &in) { return in.count * static_cast<int64_t>(sizeof(float)); }},
};

std::shared_ptr<void> warm_block(int64_t bytes)
{
    std::shared_ptr<void> block(malloc(static_cast<size_t>(std::max<int64_t>(bytes, 1))), free);
    memset(block.get(), 0, static_cast<size_t>(bytes));
    return block;
}

// passing: the count to be held against the kernel's, -1 where it gives none.
contender plain_copy(const array_ptr &in, int64_t passing)
{
    const auto to = warm_block(value_bytes(*in));
    contender c;
    c.name = "plain copy";
    c.as = role::peer;
    c.run = [=] {
        memcpy(to.get(), in->values, static_cast<size_t>(value_bytes(*in)));
        made output;
        output.cells = passing;
        return output;
    };
    return c;
}

contender ours(const kernel &of, const array_ptr &in, int null_flag)
{
    const auto out = warm_block(of.room(*in));
    contender c;
    c.name = of.name;
    c.run = [=] {
        const int64_t passing = of.run(*in, null_flag, out.get());
        made output;
        output.cells = passing;
        output.written_bytes = static_cast<double>(of.written(*in, passing));
        return output;
    };
    return c;
}

bench_case kernel_case(const kernel &of, int type, int null_flag, int64_t bytes)
{
    const array_ptr in = array_of(type, bytes);
    bench_case c;
    c.name = std::string(of.name) + (null_flag != 0 ? ", null" : "");
    c.size = types[type].name;
    c.kernel = true;
    c.contenders = {ours(of, in, null_flag), plain_copy(in, of.counts ? in->passing : -1)};
    // At the bytes a second of the copy, of which kernels must not fall short.
    c.contenders[1].aim = 2 * in->bytes() / (in->bytes() + static_cast<double>(of.written(*in, in->passing)));
    c.read_bytes = in->bytes();
    return c;
}

// ---- nodes classified ---------------------------------------------------------------------------------------

std::vector<check> checks_of(const unsigned char *flags, int64_t count)
{
    double sum = 0, weighted = 0; // the second tells places apart
    for (int64_t i = 0; i < count; ++i) {
        sum += flags[i];
        weighted += flags[i] * static_cast<double>(i % 1021);
    }
    return {{"flags", {sum, weighted}, 0}};
}

// The same flags by an image filter. It writes over its last output where that has the right size, as ours does.
bench_case classify_case(int type, int64_t bytes)
{
    const array_ptr in = array_of(type, bytes);
    const auto out = warm_block(flag_bytes(*in));
    contender our_flags = ours(kernels[0], in, 0);
    our_flags.run = [=] {
        run_threshold_scalar(*in, 0, out.get());
        made output;
        output.cells = in->count;
        output.written_bytes = static_cast<double>(in->count);
        output.checks = [=] { return checks_of(static_cast<const unsigned char *>(out.get()), in->count); };
        return output;
    };
    const auto filter = vtkSmartPointer<vtkImageThreshold>::New();
    filter->SetInputData(in->image);
    filter->ThresholdBetween(50, 1e9); // by upper bound alone it fails for 64-bit integers
    filter->SetInValue(1);
    filter->SetOutValue(0);
    filter->SetOutputScalarTypeToUnsignedChar();
    contender theirs;
    theirs.name = "image threshold";
    theirs.as = role::peer;
    theirs.aim = 1;
    theirs.run = [=] {
        filter->Modified();
        filter->Update();
        made output;
        vtkImageData *flags = filter->GetOutput();
        output.cells = flags->GetNumberOfPoints();
        output.checks = [=] {
            return checks_of(static_cast<const unsigned char *>(flags->GetScalarPointer()), in->count);
        };
        return output;
    };
    bench_case c;
    c.name = std::string("classify nodes, ") + types[type].name;
    c.size = std::to_string(in->count);
    c.contenders = {our_flags, theirs};
    c.read_bytes = in->bytes();
    return c;
}

} // namespace

void add_threshold(suite *all, const sizes &of)
{
    const auto add = [&](const std::string &name, bool quick, std::function<bench_case()> make) {
        all->cases.push_back({"threshold", name, quick, make});
    };
    add("remove null nodes, hexes", true, [=] {
        return removal_case("remove null nodes, hexes", cells_input({CELL_HEX}, of.hexes, "marschner-lobb"));
    });
    add("remove null nodes, uniform", true, [=] {
        const int64_t dims[3] = {of.lattice, of.lattice, of.lattice};
        return removal_case("remove null nodes, uniform",
                            structured_input(samples::layout::uniform, dims, "marschner-lobb"));
    });
    for (int type = DTYPE_CHAR; type <= DTYPE_QX_LONG; ++type)
        add(std::string("classify nodes, ") + types[type].name, type == DTYPE_BYTE || type == DTYPE_FLOAT,
            [=] { return classify_case(type, of.array_bytes); });
    for (const kernel &k : kernels)
        for (int null_flag = 0; null_flag < 2; ++null_flag)
            for (int type = DTYPE_CHAR; type <= DTYPE_QX_LONG; ++type)
                add(std::string(k.name) + (null_flag != 0 ? ", null" : "") + ", " + types[type].name,
                    k.quick && (type == DTYPE_BYTE || type == DTYPE_FLOAT),
                    [=] { return kernel_case(k, type, null_flag, of.array_bytes); });
}

} // namespace bench
