// Any points, boxes and grids through the tesselations, the spreading of values and the bins. Ids exist, cells have
// different corners, results are the same twice, and no byte is written beside the outputs.
#include "any_mesh.hpp"

#include <algorithm>

namespace {

void require(bool holds, const char *what)
{
    if (holds) return;
    fprintf(stderr, "%s\n", what);
    abort();
}

std::vector<qx_long> tesselated(int axes, const std::vector<float> &coords, const float *min,
                                const float *max, int check)
{
    const auto npoints = static_cast<qx_long>(coords.size()) / axes;
    qx_long count = -7, *conn = nullptr;
    const int result = axes == 2
                           ? UTILdelaun_tess_2D(npoints, coords.data(), 2, min, max, check, &count, &conn)
                           : UTILdelaun_tess_3D(npoints, coords.data(), min, max, check, &count, &conn);
    require(result == 1, "a tesselation failed");
    std::vector<qx_long> cells;
    if (conn != nullptr) cells.assign(conn, conn + count * (axes + 1));
    free(conn);
    for (size_t c = 0; c < cells.size(); c += static_cast<size_t>(axes) + 1) {
        std::vector<qx_long> corners(cells.begin() + static_cast<long>(c),
                                     cells.begin() + static_cast<long>(c) + axes + 1);
        std::sort(corners.begin(), corners.end());
        require(corners.front() >= 0 && corners.back() < npoints, "a corner that is no point");
        require(std::adjacent_find(corners.begin(), corners.end()) == corners.end(), "a corner twice");
    }
    return cells;
}

void tesselate(FuzzedDataProvider &bytes, int axes)
{
    const bool small = bytes.ConsumeBool();
    const auto npoints = bytes.ConsumeIntegralInRange<qx_long>(0, 200);
    std::vector<float> coords = fuzz::any_floats(bytes, npoints * axes);
    for (float &x : coords)
        if (small && !(std::fabs(x) <= 2)) x = 0;
    float min[3] = {-2, -2, -2}, max[3] = {2, 2, 2};
    if (bytes.ConsumeBool())
        for (int k = 0; k < 3; ++k) {
            min[k] = fuzz::any_float(bytes);
            max[k] = fuzz::any_float(bytes);
        }
    const std::vector<qx_long> once = tesselated(axes, coords, min, max, 0);
    require(once == tesselated(axes, coords, min, max, 0), "another result the second time");
}

void spread(FuzzedDataProvider &bytes)
{
    const int ndim = bytes.ConsumeIntegralInRange(1, 3), veclen = bytes.ConsumeIntegralInRange(1, 2);
    qx_long dims[3] = {1, 1, 1}, ngrid = 1;
    int radius[3];
    float min[3], max[3];
    for (int k = 0; k < ndim; ++k) {
        dims[k] = bytes.ConsumeIntegralInRange<qx_long>(0, 6);
        ngrid *= dims[k];
        radius[k] = bytes.ConsumeIntegralInRange(-1, 5);
        min[k] = fuzz::any_float(bytes);
        max[k] = fuzz::any_float(bytes);
    }
    const int power = bytes.ConsumeIntegralInRange(-2, 20);
    int null_flag = bytes.ConsumeIntegralInRange(0, 1);
    const float null_value = fuzz::any_float(bytes);
    const auto npoints = bytes.ConsumeIntegralInRange<qx_long>(0, 60);
    const std::vector<float> coords = fuzz::any_floats(bytes, npoints * ndim),
                             data = fuzz::any_floats(bytes, npoints * veclen);
    std::vector<float> out(static_cast<size_t>(ngrid * veclen), 77);
    require(UTILscat_data_interp2(npoints, ndim, coords.data(), DTYPE_FLOAT, veclen, data.data(), min, max,
                                  ndim, dims, radius, power, &null_flag, &null_value, out.data()) == 1,
            "values could not be spread");

    scat_interp_bins *bins = nullptr;
    if (UTILscat_interp_init(npoints, ndim, coords.data(), min, max, ndim, dims, &bins) != 1) return;
    qx_long binned = 0;
    for (qx_long bin = 0; bin < bins->nbins; ++bin)
        for (qx_long entry = bins->bins[bin]; entry != 0; entry = bins->next[entry], ++binned)
            require(bins->nodes[entry] >= 0 && bins->nodes[entry] < npoints, "a bin holds no point");
    require(binned == bins->free_entry - 1, "a point in no bin, or in two");
    UTILscat_interp_end(bins);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider bytes(data, size);
    const int what = bytes.ConsumeIntegralInRange(0, 2);
    if (what < 2)
        tesselate(bytes, 2 + what);
    else
        spread(bytes);
    return 0;
}
