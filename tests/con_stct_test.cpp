#include <skoklana/cut.h>

#include "support/arrays.hpp"
#include "support/contour_reference.hpp"
#include "support/fresh_host.hpp"
#include "support/host_calls.hpp"
#include "support/lattices.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>

namespace {

using arrays::dtype_of;
using contour_reference::band;
using contour_reference::result;
using cut_reference::numbers;
using cut_reference::scalar_of;

meshes::mesh_ptr any_kind(const numbers &dims, unsigned kind)
{
    const int nspace = static_cast<int>(dims.size()) + (dims.size() == 2 && kind > 2 ? 1 : 0);
    const lattices::shape s = {dims, nspace};
    return kind % 3 == 0   ? lattices::uniform(s)
           : kind % 3 == 1 ? lattices::rectilinear(s)
                           : lattices::curvilinear(s);
}

template <typename T>
result band_of(mesh_info *mesh, const std::vector<T> &data, const band &of, const T *null = nullptr)
{
    return contour_reference::run(UTILcontour_struct, mesh, scalar_of(data, dtype_of<T>, null), of);
}

template <typename T>
result expect_as_reference(mesh_info *mesh, const std::vector<T> &data, const band &of,
                           const T *null = nullptr)
{
    const result expected = contour_reference::band_lattice(mesh, scalar_of(data, dtype_of<T>, null), of);
    const result got = band_of(mesh, data, of, null);
    EXPECT_EQ(contour_reference::difference(got, expected), "nothing");
    return expected;
}

qx_long whole_cells(const result &made)
{
    return made.ncells[cut_reference::hexes] + made.ncells[cut_reference::quads];
}

qx_long pieces(const result &made)
{
    return made.ncells[cut_reference::tets] + made.ncells[cut_reference::triangles];
}

template <typename T> class LatticeBandOfType : public testing::Test {
};
TYPED_TEST_SUITE(LatticeBandOfType, arrays::all_types);

TYPED_TEST(LatticeBandOfType, AgreesWithTheReferenceOnRandomData)
{
    using T = TypeParam;
    std::mt19937 random(71 + dtype_of<T>);
    const auto below = [&](unsigned n) { return random() % n; };
    const qx_long widths[] = {1, 2, 3, 4, 9, 17, 33, 64, 65, 66, 129};
    int with_whole = 0, with_both = 0, second = 0, with_nulls = 0, grown = 0, disordered = 0, with_lines = 0;
    for (int pass = 0; pass < 120; ++pass) {
        SCOPED_TRACE("pass " + std::to_string(pass));
        const bool solid = below(2) != 0;
        numbers dims = {widths[below(solid ? 9 : 11)], 1 + static_cast<qx_long>(below(8))};
        if (solid) dims.push_back(1 + static_cast<qx_long>(below(6)));
        const meshes::mesh_ptr mesh = any_kind(dims, below(6));
        const unsigned nvalues = 2 + below(9);
        const bool smooth = below(2) != 0;
        std::vector<T> data;
        for (qx_long n = 0; n < mesh->mesh->nnodes; ++n) {
            const unsigned wave = static_cast<unsigned>(n / 3 + n / 40) % (2 * nvalues);
            const unsigned value =
                smooth && below(30) != 0 ? std::min(wave, 2 * nvalues - 1 - wave) : below(nvalues);
            data.push_back(static_cast<T>(value));
        }
        data.shrink_to_fit();
        const T null = static_cast<T>(below(nvalues + 3));
        band of = {below(2 * nvalues) / 2.0 - 0.25 * below(2), 0, below(2) != 0, below(2) != 0};
        of.high = of.low + below(nvalues) / 2.0 * (below(8) == 0 ? -1 : 1);
        const bool has_null = below(3) == 0;
        const result expected = expect_as_reference<T>(mesh->mesh, data, of, has_null ? &null : nullptr);
        if (testing::Test::HasFailure()) return;
        with_whole += whole_cells(expected) > 0;
        const auto &levels = expected.levels;
        with_both += std::count(levels.begin(), levels.end(), 0) > 5 &&
                     std::count(levels.begin(), levels.end(), 1) > 5;
        second += std::any_of(expected.max_node.begin(), expected.max_node.end(),
                              [&](qx_long node) { return node >= mesh->mesh->nnodes; });
        with_nulls +=
            pieces(expected) > 0 && has_null && std::find(data.begin(), data.end(), null) != data.end();
        grown += pieces(expected) > 4000;
        disordered += of.low > of.high && !expected.min_node.empty();
        with_lines += !expected.lines[0].empty() && !expected.lines[1].empty();
    }
    EXPECT_GT(with_whole, 8);
    EXPECT_GT(with_both, 25);
    EXPECT_GT(second, 12);
    EXPECT_GT(with_nulls, 5);
    EXPECT_GT(grown, 0);
    EXPECT_GT(disordered, 2);
    EXPECT_GT(with_lines, 0);
}

TYPED_TEST(LatticeBandOfType, LevelsAtAndBeyondTheEndsOfTheType)
{
    using T = TypeParam;
    for (const numbers &dims : {numbers{9, 5, 3}, numbers{35, 4}}) {
        const meshes::mesh_ptr mesh = any_kind(dims, 0);
        const T null = T(3);
        const std::vector<T> data = arrays::mixed_values<T>(12, mesh->mesh->nnodes, null);
        qx_long made = 0;
        for (double low : arrays::edge_levels())
            for (double high : {low, 100.5, 2.0, 1e30, std::nextafter(low, 1e300)}) {
                SCOPED_TRACE(std::to_string(low) + " to " + std::to_string(high));
                const result expected = expect_as_reference<T>(mesh->mesh, data, {low, high});
                expect_as_reference<T>(mesh->mesh, data, {low, high}, &null);
                made += pieces(expected) + whole_cells(expected);
            }
        EXPECT_GT(made, 50);
    }
}

// Every pair of corner classes of a square, and many of a cube: below, in, above.
TEST(LatticeBand, AllCellsOfClasses)
{
    for (const numbers &dims : {numbers{2, 2}, numbers{2, 2, 2}}) {
        const meshes::mesh_ptr mesh = any_kind(dims, 0);
        const size_t ncorners = dims.size() == 2 ? 4 : 8;
        for (int classes = 0; classes < (ncorners == 4 ? 81 : 6561); ++classes) {
            std::vector<float> data;
            int left = classes;
            for (size_t n = 0; n < ncorners; ++n, left /= 3)
                data.push_back(static_cast<float>(left % 3) + 0.01f * static_cast<float>(n));
            SCOPED_TRACE(classes);
            expect_as_reference<float>(mesh->mesh, data, {0.5, 1.5});
            if (testing::Test::HasFailure()) return;
        }
    }
}

// Noise in which nearly every cell is cut twice: faces are shared by all kinds of neighbours.
TEST(LatticeBand, SecondCutsShareTheirNodesAcrossCells)
{
    const meshes::mesh_ptr mesh = any_kind({14, 13, 12}, 1);
    const std::vector<double> data = meshes::random_values<double>(8, 14 * 13 * 12, 0, 1);
    const result made = expect_as_reference<double>(mesh->mesh, data, {0.4, 0.6});
    qx_long second = 0;
    for (qx_long node : made.max_node)
        second += node >= mesh->mesh->nnodes;
    EXPECT_GT(second, 1000);
    EXPECT_GT(made.ncells[cut_reference::tets], 20000);
}

TEST(LatticeBand, ValuesAtEitherLevelAreInside)
{
    const meshes::mesh_ptr mesh = any_kind({3, 2}, 0);
    const std::vector<int> data = {2, 4, 2, 4, 2, 4};
    const result made = band_of(mesh->mesh, data, {2, 4});
    EXPECT_EQ(whole_cells(made), 2);
    EXPECT_EQ(pieces(made), 0);
    EXPECT_EQ(made.nold, 6);
    EXPECT_TRUE(made.has_lines[0] && made.has_lines[1]);
    EXPECT_TRUE(made.lines[0].empty() && made.lines[1].empty());
}

TEST(LatticeBand, CellsAllBelowOrAllAboveGiveNothing)
{
    for (const numbers &dims : {numbers{3, 3}, numbers{3, 3, 3}})
        for (short value : {short(1), short(9)}) {
            const meshes::mesh_ptr mesh = any_kind(dims, 2);
            const result made = band_of(
                mesh->mesh, std::vector<short>(static_cast<size_t>(mesh->mesh->nnodes), value), {2, 4});
            EXPECT_EQ(made.nold, 0);
            EXPECT_TRUE(made.coords.empty());
            EXPECT_EQ(whole_cells(made) + pieces(made), 0);
        }
}

// Both levels on one edge: a new node at each, and in a square cell a line at each.
TEST(LatticeBand, EdgeCrossedTwiceHasTwoNewNodes)
{
    const meshes::mesh_ptr mesh = meshes::uniform({2, 2}, 2, {0, 0}, {1, 1});
    const std::vector<float> data = {0, 8, 0, 8};
    const result made = expect_as_reference<float>(mesh->mesh, data, {2, 4});
    EXPECT_EQ(made.nold, 0);
    EXPECT_EQ(made.min_node.size(), 4u);
    EXPECT_EQ(std::count(made.levels.begin(), made.levels.end(), 0), 2);
    EXPECT_EQ(made.ncells[cut_reference::triangles], 2);
    EXPECT_EQ(made.lines[0].size(), 2u);
    EXPECT_EQ(made.lines[1].size(), 2u);
    std::multiset<float> columns;
    for (size_t n = 0; n < 4; ++n)
        columns.insert(made.coords[2 * n]);
    EXPECT_EQ(columns, (std::multiset<float>{0.25f, 0.25f, 0.5f, 0.5f}));
}

TEST(LatticeBand, LinesComeWhereTheyAreAskedForOnTwoAxesOnly)
{
    const meshes::mesh_ptr flat = any_kind({20, 15}, 0), solid = any_kind({6, 5, 4}, 0);
    const std::vector<float> data = meshes::random_values<float>(5, 300, 0, 1);
    for (bool low : {false, true})
        for (bool high : {false, true}) {
            const band of = {0.3, 0.6, low, high};
            const result made = expect_as_reference<float>(flat->mesh, data, of);
            EXPECT_EQ(made.has_lines[0], low);
            EXPECT_EQ(made.has_lines[1], high);
            EXPECT_EQ(made.lines[0].empty(), !low);
            EXPECT_EQ(made.lines[1].empty(), !high);
            const result without = expect_as_reference<float>(solid->mesh, data, of);
            EXPECT_FALSE(without.has_lines[0] || without.has_lines[1]);
        }
}

// Truncated, 2.5 and 4 retain what is at 2: no cell uses it.
TEST(LatticeBand, FractionalLevelsOfIntegersRetainMoreThanCellsUse)
{
    const meshes::mesh_ptr mesh = any_kind({3, 2}, 0);
    const std::vector<int> data = {2, 3, 4, 2, 3, 4};
    const result made = expect_as_reference<int>(mesh->mesh, data, {2.5, 4});
    EXPECT_EQ(made.nold, 6);
    for (const numbers &connect : made.conn)
        for (qx_long node : connect)
            EXPECT_TRUE(node != 0 && node != 3) << node;
}

// Levels beyond a narrow type, as elements, are other levels: such a band is empty.
TEST(LatticeBand, LevelsBeyondANarrowTypeLeaveCellsOut)
{
    const meshes::mesh_ptr mesh = any_kind({40, 12}, 0);
    const std::vector<unsigned char> data = meshes::random_values<unsigned char>(2, 480, 0, 255);
    const result made = expect_as_reference<unsigned char>(mesh->mesh, data, {-10, 100});
    EXPECT_EQ(made.nold, 0);
    EXPECT_EQ(whole_cells(made) + pieces(made), 0);
    EXPECT_GT(pieces(expect_as_reference<unsigned char>(mesh->mesh, data, {0, 100})), 100);
    expect_as_reference<unsigned char>(mesh->mesh, data, {20, 300});
}

TEST(LatticeBand, SixtyFourBitIntegersThatNoDoubleHolds)
{
    const qx_long big = qx_long{1} << 53;
    const meshes::mesh_ptr mesh = any_kind({12, 5, 4}, 0);
    std::mt19937 random(9);
    std::vector<qx_long> data;
    for (qx_long n = 0; n < mesh->mesh->nnodes; ++n)
        data.push_back(big + static_cast<qx_long>(random() % 9));
    const qx_long null = big + 3;
    for (int by = 0; by <= 8; by += 2) {
        expect_as_reference<qx_long>(mesh->mesh, data,
                                     {static_cast<double>(big + by), static_cast<double>(big + 6)});
        expect_as_reference<qx_long>(mesh->mesh, data,
                                     {static_cast<double>(big), static_cast<double>(big + by)}, &null);
    }
}

TEST(LatticeBand, NanCountsAsBelowAndAsANullMatchesNothing)
{
    const meshes::mesh_ptr mesh = any_kind({9, 8, 7}, 0);
    std::mt19937 random(2);
    const float nan = std::nanf("");
    std::vector<float> data;
    for (qx_long n = 0; n < mesh->mesh->nnodes; ++n)
        data.push_back(random() % 4 == 0 ? nan : static_cast<float>(random() % 5));
    const double not_a_level = nan;
    for (const band &of : {band{1, 3}, band{not_a_level, 3}, band{1, not_a_level}}) {
        // Nodes on an edge to NaN stand nowhere: coordinates are not compared here.
        result expected =
            contour_reference::band_lattice(mesh->mesh, scalar_of<float>(data, DTYPE_FLOAT, &nan), of);
        result got = band_of(mesh->mesh, data, of, &nan);
        expected.coords.clear();
        got.coords.clear();
        EXPECT_EQ(contour_reference::difference(got, expected), "nothing");
    }
}

TEST(LatticeBand, AxesWithoutCellsStillRetainNodes)
{
    for (const numbers &dims : {numbers{7, 6, 1}, numbers{7, 1, 6}, numbers{1, 7, 6}, numbers{1, 1, 1},
                                numbers{5, 1}, numbers{1, 5}, numbers{1, 1}})
        for (unsigned kind : {0, 1, 2}) {
            const meshes::mesh_ptr mesh = any_kind(dims, kind);
            std::vector<int> data;
            for (qx_long n = 0; n < mesh->mesh->nnodes; ++n)
                data.push_back(static_cast<int>(n % 3));
            const result made = expect_as_reference<int>(mesh->mesh, data, {0.5, 1.5});
            EXPECT_EQ(whole_cells(made) + pieces(made), 0);
            EXPECT_EQ(static_cast<qx_long>(made.coords.size()), made.nold * mesh->mesh->nspace);
        }
}

// Bands of a linear field side by side fill the mesh: measured in cells of one axis-aligned mesh.
TEST(LatticeBand, BandsOfALinearFieldAddUp)
{
    for (const numbers &dims : {numbers{12, 9}, numbers{7, 6, 5}}) {
        const meshes::mesh_ptr mesh =
            meshes::uniform(dims, static_cast<int>(dims.size()), {0, 0, 0}, {1, 1, 1});
        const std::vector<double> data = meshes::field_of<double>(
            *mesh, [](double x, double y, double z) { return x + 0.7 * y - 0.4 * z; });
        const size_t nspace = dims.size();
        double sum = 0;
        const double cuts[] = {-1, -0.13, 0.2, 0.31, 0.9, 1.234, 3};
        for (size_t b = 0; b + 1 < 7; ++b) {
            const result made = band_of(mesh->mesh, data, {cuts[b], cuts[b + 1]});
            const auto at = [&](qx_long node, size_t d) {
                return static_cast<double>(made.coords[static_cast<size_t>(node) * nspace + d]);
            };
            double cell = 1;
            for (qx_long n : dims)
                cell /= static_cast<double>(n - 1);
            sum += cell * static_cast<double>(whole_cells(made));
            const numbers &tets = made.conn[cut_reference::tets], &tris = made.conn[cut_reference::triangles];
            for (size_t c = 0; c < tets.size(); c += 4) {
                double m[3][3];
                for (size_t n = 0; n < 3; ++n)
                    for (size_t d = 0; d < 3; ++d)
                        m[n][d] = at(tets[c + n + 1], d) - at(tets[c], d);
                sum += std::abs(m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                                m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                                m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0])) /
                       6;
            }
            for (size_t c = 0; c < tris.size(); c += 3) {
                const double ux = at(tris[c + 1], 0) - at(tris[c], 0),
                             uy = at(tris[c + 1], 1) - at(tris[c], 1);
                const double vx = at(tris[c + 2], 0) - at(tris[c], 0),
                             vy = at(tris[c + 2], 1) - at(tris[c], 1);
                sum += std::abs(ux * vy - uy * vx) / 2;
            }
        }
        EXPECT_NEAR(sum, 1, 1e-5);
    }
}

// ---- failures ----------------------------------------------------------------------------------------------

constexpr qx_long poison = -77;

struct band_call {
    int result = -7;
    qx_long nold = poison, nnodes = poison, ncells[6], nconn[6], nlines[2] = {1, 1};
    qx_long *old_nodes = &nold, *min_node = &nold, *max_node = &nold, *conn[6], *lines[2] = {&nold, &nold};
    unsigned char *levels = reinterpret_cast<unsigned char *>(&nold);
    float *coords = reinterpret_cast<float *>(&nold);

    band_call()
    {
        for (int list = 0; list < 6; ++list) {
            ncells[list] = nconn[list] = poison;
            conn[list] = &nold;
        }
    }
    band_call(const band_call &) = delete;
    band_call &operator=(const band_call &) = delete;

    void run(mesh_info *mesh, const void *data, int type, const void *null, double low, double high)
    {
        result = UTILcontour_struct(mesh, data, type, null != nullptr, null, low, high, &nold, &old_nodes,
                                    &nnodes, &min_node, &max_node, &levels, ncells, conn, nconn, mesh->nspace,
                                    &coords, &nlines[0], &lines[0], &nlines[1], &lines[1]);
    }

    bool untouched() const
    {
        bool is = nold == poison && nnodes == poison && old_nodes == &nold && min_node == &nold &&
                  max_node == &nold && nlines[0] == 1 && nlines[1] == 1 && lines[0] == &nold &&
                  lines[1] == &nold;
        for (int list = 0; list < 6; ++list)
            is = is && ncells[list] == poison && conn[list] == &nold;
        return is;
    }

    bool is_empty() const
    {
        bool is = nold == 0 && nnodes == 0 && old_nodes == nullptr && min_node == nullptr &&
                  max_node == nullptr && levels == nullptr && coords == nullptr && nlines[0] == 0 &&
                  nlines[1] == 0 && lines[0] == nullptr && lines[1] == nullptr;
        for (int list = 0; list < 6; ++list)
            is = is && ncells[list] == 0 && nconn[list] == 0 && conn[list] == nullptr;
        return is;
    }
};

TEST(LatticeBand, OtherNumbersOfAxesWriteNothing)
{
    const meshes::mesh_ptr mesh = meshes::uniform({16}, 1, {0}, {1});
    const std::vector<double> data(16, 0.0);
    host_calls::reset();
    band_call call;
    call.run(mesh->mesh, data.data(), DTYPE_DOUBLE, nullptr, 0, 1);
    EXPECT_EQ(call.result, 0);
    EXPECT_TRUE(call.untouched());
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

TEST(LatticeBand, UnknownTypeIsRefusedInSilence)
{
    for (int type : {-1, 7, 100})
        for (const numbers &dims : {numbers{3, 3, 3}, numbers{3, 3}}) {
            const meshes::mesh_ptr mesh = any_kind(dims, 0);
            const std::vector<double> data(27, 0.0);
            host_calls::reset();
            band_call call;
            call.run(mesh->mesh, data.data(), type, nullptr, 0, 1);
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
}

TEST(LatticeBand, ChecksTheStatusAtEveryEighthSlabAndNotAtTheEnd)
{
    for (qx_long nslabs : {1, 7, 8, 14, 26})
        for (const numbers &dims : {numbers{3, 3, nslabs + 1}, numbers{3, nslabs + 1}}) {
            const meshes::mesh_ptr mesh = any_kind(dims, 0);
            const std::vector<float> data(static_cast<size_t>(mesh->mesh->nnodes), 0.0f);
            host_calls::reset();
            band_of<float>(mesh->mesh, data, {0, 1});
            std::vector<int> wanted;
            const float factor = static_cast<float>(100.0 / static_cast<double>(nslabs));
            for (qx_long k = 7; k < nslabs; k += 8)
                wanted.push_back(static_cast<int>(static_cast<float>(k) * factor));
            host_calls::expect_checks(wanted);
        }
}

TEST(LatticeBand, InterruptionReleasesEverything)
{
    for (const numbers &dims : {numbers{9, 9, 27}, numbers{20, 27}}) {
        const meshes::mesh_ptr mesh = any_kind(dims, 0);
        const std::vector<float> data = meshes::random_values<float>(1, mesh->mesh->nnodes, 0, 1);
        for (int k = 0; k < 3; ++k) {
            host_calls::reset();
            band_call call;
            host_calls::watch watch;
            host_calls::interrupt_at(k);
            call.run(mesh->mesh, data.data(), DTYPE_FLOAT, nullptr, 0.3, 0.6);
            EXPECT_EQ(call.result, 0);
            EXPECT_TRUE(call.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_TRUE(host_calls::seen().reports.empty());
        }
        host_calls::reset();
    }
}

int ranges_left = 0, ranges_asked = 0;
int (*true_range)(mesh_info *, const qx_long *, const qx_long *, float *) = nullptr;
std::vector<numbers> asked_boxes;

int counted_range(mesh_info *mesh, const qx_long *lo, const qx_long *hi, float *coords)
{
    ++ranges_asked;
    asked_boxes.push_back({lo[0], lo[1], lo[2], hi[0], hi[1], hi[2]});
    return ranges_left-- > 0 ? true_range(mesh, lo, hi, coords) : 0;
}

TEST(LatticeBand, CoordinatesAreAskedForOnceASlab)
{
    for (const numbers &dims : {numbers{5, 4, 6}, numbers{5, 6}}) {
        const meshes::mesh_ptr mesh = any_kind(dims, 0);
        true_range = mesh->mesh->get_coords_range;
        mesh->mesh->get_coords_range = counted_range;
        const std::vector<float> data = meshes::random_values<float>(1, mesh->mesh->nnodes, 0, 1);
        ranges_left = 1000;
        ranges_asked = 0;
        asked_boxes.clear();
        band_call call;
        call.run(mesh->mesh, data.data(), DTYPE_FLOAT, nullptr, 5, 6); // no cell at all
        EXPECT_EQ(call.result, 1);
        EXPECT_EQ(ranges_asked, 5);
        EXPECT_EQ(asked_boxes[1],
                  dims.size() == 3 ? (numbers{0, 0, 1, 4, 3, 2}) : (numbers{0, 1, 0, 4, 2, 0}));
        for (qx_long *list : {call.min_node, call.max_node, call.lines[0], call.lines[1]})
            free(list);
        free(call.levels);
        for (int refused = 0; refused < 5; ++refused) {
            host_calls::reset();
            band_call failed;
            host_calls::watch watch;
            ranges_left = refused;
            failed.run(mesh->mesh, data.data(), DTYPE_FLOAT, nullptr, 0.3, 0.6);
            EXPECT_EQ(failed.result, 0);
            EXPECT_TRUE(failed.is_empty());
            EXPECT_EQ(watch.live_blocks(), 0);
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{"fld_info: unable to get field sub-coordinates"});
        }
        mesh->mesh->get_coords_range = true_range;
        host_calls::reset();
    }
}

TEST(LatticeBand, RefusedMemoryFailsInSilenceAndNothingLeaks)
{
    for (const numbers &dims : {numbers{13, 12, 9}, numbers{80, 60}}) {
        const meshes::mesh_ptr mesh = any_kind(dims, 0);
        std::vector<short> data = meshes::random_values<short>(4, mesh->mesh->nnodes, 0, 100);
        const short null = 3;
        const band of = {30, 60};
        const result clean = band_of<short>(mesh->mesh, data, of, &null); // fetches what the mesh lacks
        host_calls::reset();
        int nallocations = 0;
        {
            host_calls::watch watch;
            EXPECT_TRUE(band_of<short>(mesh->mesh, data, of, &null) == clean);
            nallocations = watch.allocations();
            EXPECT_EQ(watch.live_blocks(), 0);
        }
        int failed = 0, insisted = 0;
        for (int k = 0; k < nallocations; ++k) {
            SCOPED_TRACE(k);
            host_calls::reset();
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            band_call call;
            call.run(mesh->mesh, data.data(), DTYPE_SHORT, &null, of.low, of.high);
            EXPECT_TRUE(host_calls::report_texts().empty());
            if (call.result == 1) {
                insisted +=
                    host_calls::seen().out_of_memory == std::vector<std::string>{"Cannot alloc flags array"};
                EXPECT_EQ(call.nold, clean.nold);
                for (qx_long *list :
                     {call.old_nodes, call.min_node, call.max_node, call.lines[0], call.lines[1]})
                    free(list);
                for (qx_long *list : call.conn)
                    free(list);
                free(call.levels);
                free(call.coords);
            } else {
                ++failed;
                EXPECT_TRUE(call.is_empty());
                EXPECT_TRUE(host_calls::allocation_was_refused());
            }
            EXPECT_EQ(watch.live_blocks(), 0);
        }
        EXPECT_EQ(insisted, 1);
        EXPECT_GE(failed, 12);
        host_calls::reset();
    }
}

TEST(LatticeBand, DispatchesOnTheMesh)
{
    for (unsigned kind : {0, 1, 2}) {
        const meshes::mesh_ptr mesh = any_kind({9, 8, 7}, kind);
        const std::vector<double> data = meshes::random_values<double>(12, 9 * 8 * 7, 0, 1);
        const auto field = scalar_of<double>(data, DTYPE_DOUBLE, nullptr);
        const result direct = contour_reference::run(UTILcontour_struct, mesh->mesh, field, {0.2, 0.5});
        EXPECT_TRUE(contour_reference::run(UTILcontour, mesh->mesh, field, {0.2, 0.5}) == direct);
        EXPECT_GT(pieces(direct), 100);
    }
}

} // namespace
