// Height maps as triangles: the library's reduction and the command's, against VTK's greedy decimation.
//
// The map is noise of eight octaves, each a little less than half as high as the one before, so that there is something
// to see at every size. The three do not make the same triangles: names tell how many there are and the largest error at
// a node over the tolerance; compared is the area that they cover.
#include "bench.hpp"
#include "height_mesh.hpp"

#include <skoklana.h>

#include <vtkFloatArray.h>
#include <vtkGreedyTerrainDecimation.h>
#include <vtkIdList.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

void require_reduced(bool holds)
{
    if (holds) return;
    fprintf(stderr, "bench: an operation failed\n");
    exit(2);
}

double lattice_noise(int64_t i, int64_t j, int64_t octave)
{
    uint64_t bits = static_cast<uint64_t>(i * 374761393 + j * 668265263 + octave * 2246822519);
    bits = (bits ^ (bits >> 13)) * 1274126177;
    bits = (bits ^ (bits >> 29)) * 0x9e3779b97f4a7c15;
    return static_cast<double>(bits >> 40) / (1 << 24);
}

double smooth(double t)
{
    return t * t * (3 - 2 * t);
}

double mountain(double x, double y)
{
    double height = 0, amplitude = 1, cells = 4;
    for (int octave = 0; octave < 8; ++octave, cells *= 2, amplitude *= 0.45) {
        const double u = x * cells, v = y * cells;
        const auto i = static_cast<int64_t>(u), j = static_cast<int64_t>(v);
        const double s = smooth(u - static_cast<double>(i)), t = smooth(v - static_cast<double>(j));
        const double low = lattice_noise(i, j, octave) * (1 - s) + lattice_noise(i + 1, j, octave) * s;
        const double high =
            lattice_noise(i, j + 1, octave) * (1 - s) + lattice_noise(i + 1, j + 1, octave) * s;
        height += amplitude * (low * (1 - t) + high * t);
    }
    return height;
}

struct terrain_map {
    int64_t n;
    std::vector<float> heights;
    std::vector<double> wide; // the same
    vtkSmartPointer<vtkImageData> theirs;
    double tolerance;

    terrain_map(int64_t n_, double part) : n(n_), theirs(vtkSmartPointer<vtkImageData>::New())
    {
        for (int64_t j = 0; j < n; ++j)
            for (int64_t i = 0; i < n; ++i)
                heights.push_back(
                    static_cast<float>(mountain(static_cast<double>(i) / static_cast<double>(n),
                                                static_cast<double>(j) / static_cast<double>(n))));
        wide.assign(heights.begin(), heights.end());
        const auto [low, high] = std::minmax_element(wide.begin(), wide.end());
        tolerance = (*high - *low) * part;
        theirs->SetDimensions(static_cast<int>(n), static_cast<int>(n), 1);
        vtkNew<vtkFloatArray> scalars;
        scalars->SetName("height");
        scalars->SetArray(heights.data(), static_cast<vtkIdType>(heights.size()), 1);
        theirs->GetPointData()->SetScalars(scalars);
    }
    height_map view() const { return {n, n, wide.data()}; }
};
using map_ptr = std::shared_ptr<terrain_map>;

// What a contender made.
struct reduced_map {
    height_triangles triangles;
    std::vector<double> heights;

    check covered(const terrain_map &map) const
    {
        double area = 0;
        for (const auto &corner : triangles.corners) {
            int64_t x[3], y[3];
            for (size_t k = 0; k < 3; ++k) {
                const int64_t node = triangles.nodes[static_cast<size_t>(corner[k])];
                x[k] = node % map.n;
                y[k] = node / map.n;
            }
            area += static_cast<double>((x[1] - x[0]) * (y[2] - y[0]) - (y[1] - y[0]) * (x[2] - x[0])) / 2;
        }
        return {"area", {area}, 0.03};
    }

    std::string told(const char *name, const terrain_map &map) const
    {
        char text[120];
        snprintf(text, sizeof text, "%s: %zu, error %.2f", name, triangles.corners.size(),
                 error_of(map.view(), triangles, heights).largest / map.tolerance);
        return text;
    }
};

made as_made(const map_ptr &map, const std::shared_ptr<void> &kept, double bytes,
             const std::function<reduced_map()> &result)
{
    made out;
    out.written_bytes = bytes;
    out.kept = kept;
    out.checks = [=] { return std::vector<check>{result().covered(*map)}; };
    return out;
}

// ---- contenders ---------------------------------------------------------------------------------------------

struct library_surface {
    qx_long ncoords = 0, ntris = 0, *connect = nullptr;
    float *coords = nullptr;
    void *values = nullptr;

    explicit library_surface(const terrain_map &map)
    {
        const qx_long dims[2] = {map.n, map.n};
        const float corners[4] = {0, 0, static_cast<float>(map.n - 1), static_cast<float>(map.n - 1)};
        require_reduced(UTILoptimize_surface(dims, 2, corners, DTYPE_FLOAT, map.heights.data(), map.tolerance,
                                             &ncoords, &coords, &ntris, &connect, &values) == 1);
    }
    library_surface(const library_surface &) = delete;
    library_surface &operator=(const library_surface &) = delete;
    ~library_surface()
    {
        free(connect);
        free(coords);
        free(values);
    }
    reduced_map result(const terrain_map &map) const
    {
        reduced_map out;
        for (qx_long v = 0; v < ncoords; ++v) {
            out.triangles.nodes.push_back(std::llround(coords[2 * v + 1]) * map.n +
                                          std::llround(coords[2 * v]));
            out.heights.push_back(static_cast<const float *>(values)[v]);
        }
        for (qx_long t = 0; t < ntris; ++t)
            out.triangles.corners.push_back({static_cast<int>(connect[3 * t]),
                                             static_cast<int>(connect[3 * t + 1]),
                                             static_cast<int>(connect[3 * t + 2])});
        return out;
    }
};

reduced_map with_heights(const terrain_map &map, const height_triangles &triangles)
{
    reduced_map out = {triangles, {}};
    for (const int64_t node : triangles.nodes)
        out.heights.push_back(map.wide[static_cast<size_t>(node)]);
    return out;
}

vtkSmartPointer<vtkPolyData> decimated(const terrain_map &map)
{
    vtkNew<vtkGreedyTerrainDecimation> filter;
    filter->SetInputData(map.theirs);
    filter->SetErrorMeasureToAbsoluteError();
    filter->SetAbsoluteError(map.tolerance);
    filter->Update();
    return filter->GetOutput();
}

reduced_map result_of(const terrain_map &map, vtkPolyData *data)
{
    reduced_map out;
    for (vtkIdType v = 0; v < data->GetNumberOfPoints(); ++v) {
        double x[3];
        data->GetPoint(v, x);
        out.triangles.nodes.push_back(std::llround(x[1]) * map.n + std::llround(x[0]));
        out.heights.push_back(x[2]);
    }
    vtkNew<vtkIdList> corners;
    for (vtkIdType c = 0; c < data->GetNumberOfCells(); ++c) {
        data->GetCellPoints(c, corners);
        out.triangles.corners.push_back({static_cast<int>(corners->GetId(0)),
                                         static_cast<int>(corners->GetId(1)),
                                         static_cast<int>(corners->GetId(2))});
    }
    return out;
}

contender named(const std::string &name, role as, double aim, std::function<made()> run)
{
    contender c;
    c.name = name;
    c.as = as;
    c.aim = aim;
    c.run = std::move(run);
    return c;
}

bench_case reduction_case(const std::string &name, int64_t n, double part, bool plain_names)
{
    const auto map = std::make_shared<terrain_map>(n, part);
    const auto name_of = [&](const char *what, const reduced_map &result) {
        return plain_names ? std::string(what) : result.told(what, *map);
    };
    bench_case c;
    c.name = name;
    c.size = std::to_string(n) + "^2";
    c.read_bytes = static_cast<double>(map->heights.size() * sizeof(float));
    c.contenders = {
        named(name_of("optimize_surface", library_surface(*map).result(*map)), role::ours, 0,
              [=] {
                  const auto kept = std::make_shared<library_surface>(*map);
                  return as_made(map, kept, static_cast<double>(24 * kept->ntris + 12 * kept->ncoords),
                                 [=] { return kept->result(*map); });
              }),
        named(name_of("terrain command", with_heights(*map, fit_heights(map->view(), map->tolerance, [] {}))),
              role::part, 0,
              [=] {
                  const auto kept =
                      std::make_shared<height_triangles>(fit_heights(map->view(), map->tolerance, [] {}));
                  return as_made(map, kept, 0, [=] { return with_heights(*map, *kept); });
              }),
        named(name_of("greedy decimation", result_of(*map, decimated(*map))), role::peer, 1, [=] {
            const vtkSmartPointer<vtkPolyData> data = decimated(*map);
            return as_made(map, std::make_shared<vtkSmartPointer<vtkPolyData>>(data), 0,
                           [=] { return result_of(*map, data); });
        })};
    return c;
}

} // namespace

void add_terrain(suite *all, const sizes &of)
{
    const int64_t n = of.image / 4;
    all->cases.push_back({"terrain", "height map, 0.5 %", false,
                          [=] { return reduction_case("height map, 0.5 %", n, 0.005, false); }});
    all->cases.push_back({"terrain", "height map, 2 %", true,
                          [=] { return reduction_case("height map, 2 %", n, 0.02, false); }});
    growth_entry growth = {"growth, height map, 2 %", {}, {}, [=](size_t i) {
                               return reduction_case("height map", (n / 4) << i, 0.02, true);
                           }};
    for (int i = 0; i < 4; ++i) {
        const int64_t along = (n / 4) << i;
        growth.sizes.push_back(std::to_string(along) + "^2");
        growth.elements.push_back(static_cast<double>(along * along));
    }
    all->growth.push_back(growth);
}

} // namespace bench
