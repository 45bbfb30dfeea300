// Parts of uniform meshes: whatever is asked of one is what the whole has there, bit for bit.
#include "support/host_calls.hpp"
#include "support/host_fields.hpp"
#include "support/lattices.hpp"

#include <skoklana/locate.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>

namespace {

using namespace host_fields;
using std::array;
using std::vector;

template <typename T> bool same_bits(const vector<T> &a, const vector<T> &b)
{
    return a.size() == b.size() && (a.empty() || memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

// A whole and a box of it.
struct cut_out {
    vector<qx_long> dims, extent;
    vector<float> corners;
    int nspace = 3;

    int ndim() const { return static_cast<int>(dims.size()); }
    size_t axis(int d) const { return static_cast<size_t>(d); }
    qx_long lo(int d) const { return d < ndim() ? extent[2 * axis(d)] : 0; }
    qx_long hi(int d) const { return d < ndim() ? extent[2 * axis(d) + 1] : 0; }
    qx_long whole_dim(int d) const { return d < ndim() ? dims[axis(d)] : 1; }
    qx_long dim(int d) const { return hi(d) - lo(d) + 1; }
    qx_long nnodes() const { return dim(0) * dim(1) * dim(2); }
    // The node of the whole that a node of the part is.
    qx_long in_whole(qx_long node) const
    {
        const qx_long i = node % dim(0), j = node / dim(0) % dim(1), k = node / dim(0) / dim(1);
        return i + lo(0) + whole_dim(0) * (j + lo(1) + whole_dim(1) * (k + lo(2)));
    }
};

cut_out random_cut(std::mt19937_64 &random, int ndim, qx_long most, bool thick = false)
{
    cut_out made;
    made.nspace = std::uniform_int_distribution<int>(ndim, 3)(random);
    if (thick) made.nspace = 3;
    std::uniform_real_distribution<float> at(-100, 100), size(0.001f, 30);
    for (int d = 0; d < ndim; ++d) {
        made.dims.push_back(std::uniform_int_distribution<qx_long>(thick ? 4 : 1, most)(random));
        const qx_long last = made.dims.back() - 1;
        qx_long lo = std::uniform_int_distribution<qx_long>(0, last - (thick ? 2 : 0))(random);
        qx_long hi = std::uniform_int_distribution<qx_long>(lo + (thick ? 2 : 0), last)(random);
        made.extent.push_back(lo);
        made.extent.push_back(hi);
    }
    for (int d = 0; d < made.nspace; ++d)
        made.corners.push_back(at(random));
    for (int d = 0; d < made.nspace; ++d)
        made.corners.push_back(made.corners[made.axis(d)] + (random() % 4 == 0 ? -1 : 1) * size(random));
    return made;
}

struct fields {
    held whole, part;
    explicit fields(const cut_out &of)
        : whole(host_uniform(of.ndim(), of.dims.data(), of.nspace, of.corners.data())),
          part(host_uniform_part(whole.field, of.extent.data()))
    {
    }
    mesh_info *whole_mesh() const { return host_mesh(whole.field); }
    mesh_info *mesh() const { return host_mesh(part.field); }
};

vector<float> values_of(qx_long n, std::mt19937_64 &random)
{
    std::uniform_real_distribution<float> value(-1, 1);
    vector<float> values(static_cast<size_t>(n));
    for (float &v : values)
        v = value(random);
    return values;
}

// Rows of the whole at the part's nodes.
template <typename T> vector<T> rows_at(const cut_out &of, const vector<T> &whole, int length)
{
    vector<T> rows;
    for (qx_long node = 0; node < of.nnodes(); ++node)
        for (int c = 0; c < length; ++c)
            rows.push_back(whole[static_cast<size_t>(of.in_whole(node) * length + c)]);
    return rows;
}

} // namespace

TEST(UniformPart, HasTheWholesCoordinates)
{
    std::mt19937_64 random(1);
    int apart_from_own_corners = 0;
    for (int round = 0; round < 300; ++round) {
        const cut_out of = random_cut(random, 1 + round % 3,
                                      round % 3 == 0   ? 2000
                                      : round % 3 == 1 ? 90
                                                       : 20);
        const fields made(of);
        ASSERT_NE(made.part.field, nullptr) << host_error();
        const vector<float> expected = rows_at(of, fetched_coords(made.whole_mesh()), of.nspace);
        EXPECT_TRUE(same_bits(fetched_coords(made.mesh()), expected));

        vector<qx_long> lo, hi, list;
        for (int d = 0; d < of.ndim(); ++d) {
            lo.push_back(of.dim(d) / 3);
            hi.push_back(of.dim(d) - 1);
        }
        vector<float> got(expected.size(), 7), range(expected.size(), 7), whole_range(expected.size(), 7);
        ASSERT_EQ(made.mesh()->get_coords_range(made.mesh(), lo.data(), hi.data(), range.data()), 1);
        for (int d = 0; d < of.ndim(); ++d) {
            lo[of.axis(d)] += of.lo(d);
            hi[of.axis(d)] += of.lo(d);
        }
        ASSERT_EQ(
            made.whole_mesh()->get_coords_range(made.whole_mesh(), lo.data(), hi.data(), whole_range.data()),
            1);
        EXPECT_TRUE(same_bits(range, whole_range));

        for (qx_long node = 0; node < of.nnodes(); ++node)
            list.push_back(node);
        ASSERT_EQ(UTILget_coord_list(made.mesh(), of.nnodes(), list.data(), got.data()), 1);
        EXPECT_TRUE(same_bits(got, expected));

        // between nodes, and the box of the cell at a node
        vector<qx_long> others = list;
        std::shuffle(others.begin(), others.end(), random);
        vector<qx_long> whole_list, whole_others;
        for (size_t i = 0; i < list.size(); ++i) {
            whole_list.push_back(of.in_whole(list[i]));
            whole_others.push_back(of.in_whole(others[i]));
        }
        const vector<float> t = values_of(of.nnodes(), random);
        vector<float> between(expected.size()), whole_between(expected.size());
        UTILeval_coord(made.mesh(), of.nnodes(), list.data(), others.data(), t.data(), between.data());
        UTILeval_coord(made.whole_mesh(), of.nnodes(), whole_list.data(), whole_others.data(), t.data(),
                       whole_between.data());
        EXPECT_TRUE(same_bits(between, whole_between));

        // what the part's own corners would have given
        vector<float> corners(expected.begin(), expected.begin() + of.nspace);
        corners.insert(corners.end(), expected.end() - of.nspace, expected.end());
        vector<qx_long> dims;
        for (int d = 0; d < of.ndim(); ++d)
            dims.push_back(of.dim(d));
        const held cornered(host_uniform(of.ndim(), dims.data(), of.nspace, corners.data()));
        apart_from_own_corners += same_bits(fetched_coords(host_mesh(cornered.field)), expected) ? 0 : 1;
        if (HasFailure()) FAIL() << "round " << round;
    }
    EXPECT_GT(apart_from_own_corners, 100);
}

TEST(UniformPart, OfAPartIsAPartOfTheWhole)
{
    std::mt19937_64 random(2);
    for (int round = 0; round < 100; ++round) {
        const cut_out of = random_cut(random, 3, 20, true);
        fields made(of);
        cut_out inner = of;
        vector<qx_long> extent;
        for (int d = 0; d < 3; ++d) {
            extent.push_back(round % 2);
            extent.push_back(of.dim(d) - 1);
            inner.extent[2 * inner.axis(d)] = of.lo(d) + extent[extent.size() - 2];
        }
        const held part(host_uniform_part(made.part.field, extent.data()));
        const vector<float> expected = rows_at(inner, fetched_coords(made.whole_mesh()), 3);
        host_free_field(made.whole.field); // it may go
        made.whole.field = nullptr;
        ASSERT_NE(part.field, nullptr) << host_error();
        EXPECT_TRUE(same_bits(fetched_coords(host_mesh(part.field)), expected));
    }
}

TEST(UniformPart, HasItsPartOfTheWholesSurfaces)
{
    std::mt19937_64 random(3);
    for (int round = 0; round < 40; ++round) {
        const cut_out of = random_cut(random, 3, 14, true);
        const fields made(of);
        const vector<float> values = values_of(made.whole_mesh()->nnodes, random),
                            own = rows_at(of, values, 1);
        const host_array on_whole = {values.data(), DTYPE_FLOAT, 1, nullptr},
                         on_part = {own.data(), DTYPE_FLOAT, 1, nullptr};
        host_result *whole = nullptr, *part = nullptr;
        ASSERT_EQ(host_isosurf(made.whole.field, &on_whole, 0.1, nullptr, &whole), HOST_DONE);
        ASSERT_EQ(host_isosurf(made.part.field, &on_part, 0.1, nullptr, &part), HOST_DONE);
        using edge = array<qx_long, 2>;
        std::map<edge, array<float, 4>> nodes; // of the whole's surface
        for (qx_long i = 0; i < whole->nnodes; ++i) {
            const float *x = whole->coords + 3 * i;
            nodes[{whole->first_node[i], whole->second_node[i]}] = {x[0], x[1], x[2], whole->t[i]};
        }
        for (qx_long i = 0; i < part->nnodes; ++i) {
            const auto found =
                nodes.find({of.in_whole(part->first_node[i]), of.in_whole(part->second_node[i])});
            ASSERT_NE(found, nodes.end());
            const float *x = part->coords + 3 * i;
            const array<float, 4> got = {x[0], x[1], x[2], part->t[i]};
            EXPECT_EQ(memcmp(got.data(), found->second.data(), sizeof got), 0);
        }
        // triangles of the part's cells
        const auto triangles = [](const host_result &of_mesh, const auto &number) {
            vector<array<edge, 3>> all;
            const host_set *set = host_set_of_kind(&of_mesh, CELL_TRI);
            for (qx_long i = 0; set != nullptr && i < set->ncells; ++i) {
                array<edge, 3> triangle;
                bool inside = true;
                for (size_t c = 0; c < 3; ++c) {
                    const qx_long node = set->connect[3 * i + static_cast<qx_long>(c)];
                    triangle[c] = {number(of_mesh.first_node[node]), number(of_mesh.second_node[node])};
                    inside = inside && triangle[c][0] >= 0 && triangle[c][1] >= 0;
                }
                const qx_long cell = set->cell[i];
                if (inside && number(-1 - cell) >= 0) all.push_back(triangle);
            }
            std::sort(all.begin(), all.end());
            return all;
        };
        // numbers of the whole; cells of it (below 0) only within the part
        const auto expected = triangles(*whole, [&](qx_long n) {
            if (n >= 0) return n;
            const qx_long cell = -1 - n, ni = of.whole_dim(0) - 1, nj = of.whole_dim(1) - 1;
            const qx_long at[3] = {cell % ni, cell / ni % nj, cell / ni / nj};
            for (int d = 0; d < 3; ++d)
                if (at[d] < of.lo(d) || at[d] >= of.hi(d)) return qx_long{-1};
            return qx_long{0};
        });
        const auto got = triangles(*part, [&](qx_long n) { return n >= 0 ? of.in_whole(n) : 0; });
        EXPECT_EQ(got, expected);
        EXPECT_GT(got.size(), 0u);
        host_free_result(whole);
        host_free_result(part);
        if (HasFailure()) FAIL() << "round " << round;
    }
}

TEST(UniformPart, FindsPointsWhereTheWholeHasThem)
{
    std::mt19937_64 random(4);
    for (int round = 0; round < 60; ++round) {
        const int ndim = 1 + round % 3;
        const cut_out of = random_cut(random, ndim, ndim == 1 ? 300 : 14, true);
        const fields made(of);
        const vector<float> nodes = fetched_coords(made.whole_mesh());
        const vector<float> values = values_of(made.whole_mesh()->nnodes, random),
                            own = rows_at(of, values, 1);
        // nodes of the whole, where cells meet, and points between them and a little outside
        vector<float> points;
        std::uniform_real_distribution<float> share(-0.02f, 1.02f);
        for (int i = 0; i < 400; ++i)
            for (int d = 0; d < 3; ++d) {
                const size_t a = random() % (nodes.size() / 3), b = nodes.size() / 3 - 1;
                const float first = nodes[of.axis(d)], last = nodes[3 * b + of.axis(d)];
                const bool flat = d >= ndim || i % 2 == 0;
                points.push_back(flat ? nodes[3 * a + of.axis(d)] : first + share(random) * (last - first));
            }
        const qx_long npoints = static_cast<qx_long>(points.size()) / 3;
        const host_array at = {points.data(), DTYPE_FLOAT, 3, nullptr};
        host_locator *locators[2];
        host_places *places[2];
        host_field *const both[2] = {made.whole.field, made.part.field};
        const vector<float> *data[2] = {&values, &own};
        vector<float> sampled[2];
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(host_make_locator(both[i], nullptr, &locators[i]), HOST_DONE);
            ASSERT_EQ(host_locate(locators[i], &at, npoints, &places[i]), HOST_DONE);
            sampled[i].resize(static_cast<size_t>(npoints));
            const host_array from = {data[i]->data(), DTYPE_FLOAT, 1, nullptr};
            ASSERT_EQ(host_sample_nodes(places[i], &from, sampled[i].data(), nullptr), HOST_DONE);
        }
        // The number that a cell of the whole has in the part, by positions; -1: none.
        const auto in_part = [&](qx_long number, bool by_node) {
            qx_long cell = 0, stride = 1;
            for (int d = 0; d < ndim; ++d) {
                const qx_long n = of.whole_dim(d) - (by_node ? 0 : 1), position = number % n - of.lo(d);
                number /= n;
                if (position < 0 || position > of.dim(d) - 2) return qx_long{-1};
                cell += position * stride;
                stride *= of.dim(d) - (by_node ? 0 : 1);
            }
            return cell;
        };
        int inside = 0;
        for (qx_long i = 0; i < npoints; ++i) {
            const qx_long cell = places[0]->cell[i] < 0 ? -1 : in_part(places[0]->cell[i], false);
            EXPECT_EQ(places[1]->cell[i], cell);
            if (cell >= 0) {
                ++inside;
                EXPECT_EQ(memcmp(places[0]->uvw + 3 * i, places[1]->uvw + 3 * i, 3 * sizeof(double)), 0);
                EXPECT_EQ(memcmp(&sampled[0][static_cast<size_t>(i)], &sampled[1][static_cast<size_t>(i)], 4),
                          0);
            }
            // by the library
            qx_long found[2] = {-1, -1};
            float uvw[2][3] = {}, box[2][6] = {}, value[2] = {};
            mesh_info *const meshes[2] = {made.whole_mesh(), made.mesh()};
            int done[2], placed[2] = {-1, -1};
            for (int m = 0; m < 2; ++m)
                done[m] = meshes[m]->methods->find_cell_func(
                    meshes[m], nullptr, &points[3 * static_cast<size_t>(i)], &found[m], uvw[m]);
            const qx_long expected = done[0] == 1 ? in_part(found[0], true) : -1;
            EXPECT_EQ(done[1], expected >= 0 ? 1 : 0);
            EXPECT_EQ(found[1], expected);
            if (done[1] != 1) continue;
            EXPECT_EQ(memcmp(uvw[0], uvw[1], sizeof uvw[0]), 0);
            for (int m = 0; m < 2; ++m) {
                EXPECT_EQ(meshes[m]->methods->cell_extent_func(meshes[m], found[m], box[m], box[m] + 3), 1);
                EXPECT_EQ(meshes[m]->methods->interp_data_func(meshes[m], found[m], 1, data[m]->data(),
                                                               DTYPE_FLOAT, 0, nullptr, 1, uvw[m], &value[m]),
                          1);
                placed[m] = meshes[m]->methods->interp_cell_func(
                    meshes[m], found[m], &points[3 * static_cast<size_t>(i)], 1, 1e-6, uvw[m]);
            }
            EXPECT_EQ(placed[0], placed[1]);
            EXPECT_EQ(memcmp(box[0], box[1], sizeof box[0]), 0);
            EXPECT_EQ(memcmp(&value[0], &value[1], sizeof value[0]), 0);
            EXPECT_EQ(memcmp(uvw[0], uvw[1], sizeof uvw[0]), 0);
        }
        EXPECT_GT(inside, 0);
        for (int i = 0; i < 2; ++i) {
            host_free_places(places[i]);
            host_free_locator(locators[i]);
        }
        if (HasFailure()) FAIL() << "round " << round;
    }
}

TEST(UniformPart, PartsShareOutEveryPoint)
{
    const qx_long dims[3] = {9, 7, 6};
    const float corners[6] = {0.1f, -3, 2.2f, 1.3f, 5, 7};
    const held whole(host_uniform(3, dims, 3, corners));
    const vector<float> nodes = fetched_coords(host_mesh(whole.field));
    const host_array at = {nodes.data(), DTYPE_FLOAT, 3, nullptr};
    const qx_long n = static_cast<qx_long>(nodes.size()) / 3;
    vector<int> owners(static_cast<size_t>(n), 0), finders = owners, expected;
    for (size_t p = 0; p < owners.size(); ++p) { // rounded, a last node may lie beyond the last corner
        float uvw[3];
        qx_long cell;
        mesh_info *mesh = host_mesh(whole.field);
        expected.push_back(mesh->methods->find_cell_func(mesh, nullptr, &nodes[3 * p], &cell, uvw) == 1);
    }
    for (qx_long k = 0; k < 5; k += 2)
        for (qx_long i = 0; i < 8; i += 4) {
            const qx_long extent[6] = {i, i + 4, 0, 6, k, std::min<qx_long>(k + 2, 5)};
            const held part(host_uniform_part(whole.field, extent));
            mesh_info *mesh = host_mesh(part.field);
            host_locator *locator;
            host_places *places;
            ASSERT_EQ(host_make_locator(part.field, nullptr, &locator), HOST_DONE);
            ASSERT_EQ(host_locate(locator, &at, n, &places), HOST_DONE);
            for (qx_long p = 0; p < n; ++p) {
                float uvw[3];
                qx_long cell;
                owners[static_cast<size_t>(p)] += places->cell[p] >= 0;
                finders[static_cast<size_t>(p)] +=
                    mesh->methods->find_cell_func(mesh, nullptr, &nodes[3 * static_cast<size_t>(p)], &cell,
                                                  uvw) == 1;
            }
            host_free_places(places);
            host_free_locator(locator);
        }
    EXPECT_EQ(owners, vector<int>(static_cast<size_t>(n), 1));
    EXPECT_EQ(finders, expected);
    EXPECT_GT(std::count(expected.begin(), expected.end(), 1), n / 2);
}

namespace {

using derive_call = int (*)(host_field *, const host_array *, float *, unsigned char *);

template <typename T> void expect_same_derivatives(const cut_out &of, int type, std::mt19937_64 &random)
{
    const fields made(of);
    const qx_long n = made.whole_mesh()->nnodes;
    vector<T> values;
    for (qx_long i = 0; i < 3 * n; ++i)
        values.push_back(static_cast<T>(static_cast<double>(random() % 20001) / 77 - 100));
    const struct {
        derive_call call;
        int veclen, length;
    } all[] = {{host_gradient, 1, 3}, {host_curl, 3, 3}, {host_divergence, 3, 1}};
    for (const auto &one : all) {
        if (one.veclen == 3 && of.ndim() < 3) continue;
        const vector<T> own = rows_at(of, values, one.veclen);
        vector<float> whole(static_cast<size_t>(n * one.length)),
            got(static_cast<size_t>(of.nnodes() * one.length));
        vector<unsigned char> mask(static_cast<size_t>(of.nnodes()), 9);
        const host_array on_whole = {values.data(), type, one.veclen, nullptr},
                         on_part = {own.data(), type, one.veclen, nullptr};
        ASSERT_EQ(one.call(made.whole.field, &on_whole, whole.data(), nullptr), HOST_DONE) << host_error();
        ASSERT_EQ(one.call(made.part.field, &on_part, got.data(), mask.data()), HOST_DONE) << host_error();
        EXPECT_EQ(mask, vector<unsigned char>(mask.size(), 1));
        const vector<float> expected = rows_at(of, whole, one.length);
        int compared = 0;
        for (qx_long node = 0; node < of.nnodes(); ++node) {
            qx_long rest = node;
            bool inner = true;
            for (int d = 0; d < of.ndim(); ++d) {
                const qx_long at = rest % of.dim(d);
                rest /= of.dim(d);
                inner = inner && (at > 0 || of.lo(d) == 0);
                inner = inner && (at < of.dim(d) - 1 || of.hi(d) == of.whole_dim(d) - 1);
            }
            if (!inner) continue;
            ++compared;
            EXPECT_EQ(memcmp(&got[static_cast<size_t>(node * one.length)],
                             &expected[static_cast<size_t>(node * one.length)],
                             sizeof(float) * static_cast<size_t>(one.length)),
                      0)
                << "node " << node;
        }
        EXPECT_GT(compared, 0);
    }
}

} // namespace

TEST(UniformPart, HasTheWholesDerivativesButForItsSeams)
{
    std::mt19937_64 random(5);
    for (int round = 0; round < 24; ++round) {
        const cut_out of = random_cut(random, 2 + round % 2, 12, true);
        expect_same_derivatives<signed char>(of, DTYPE_CHAR, random);
        expect_same_derivatives<unsigned char>(of, DTYPE_BYTE, random);
        expect_same_derivatives<short>(of, DTYPE_SHORT, random);
        expect_same_derivatives<int>(of, DTYPE_INT, random);
        expect_same_derivatives<float>(of, DTYPE_FLOAT, random);
        expect_same_derivatives<double>(of, DTYPE_DOUBLE, random);
        expect_same_derivatives<qx_long>(of, DTYPE_QX_LONG, random);
        if (HasFailure()) FAIL() << "round " << round;
    }
}

TEST(UniformPart, DerivativesStopWhenAskedTo)
{
    const qx_long dims[3] = {5, 5, 5}, extent[6] = {1, 4, 0, 4, 0, 4};
    const float corners[6] = {0, 0, 0, 1, 1, 1};
    const held whole(host_uniform(3, dims, 3, corners)), part(host_uniform_part(whole.field, extent));
    const vector<float> values(300, 1);
    vector<float> out(300);
    const host_array array = {values.data(), DTYPE_FLOAT, 3, nullptr};
    host_interrupt();
    EXPECT_EQ(host_curl(part.field, &array, out.data(), nullptr), HOST_STOPPED);
    host_clear_interrupt();
    EXPECT_EQ(host_curl(part.field, &array, out.data(), nullptr), HOST_DONE);
}

TEST(UniformPart, ThatIsFlatIsAMeshOfItsOwn)
{
    const qx_long dims[3] = {5, 5, 5}, extent[6] = {0, 4, 0, 4, 2, 2};
    const float corners[6] = {0, 0, 0, 4, 4, 4};
    const held whole(host_uniform(3, dims, 3, corners)), part(host_uniform_part(whole.field, extent));
    const vector<float> nodes = fetched_coords(host_mesh(part.field));
    const host_array at = {nodes.data(), DTYPE_FLOAT, 3, nullptr};
    host_locator *locator;
    host_places *places;
    ASSERT_EQ(host_make_locator(part.field, nullptr, &locator), HOST_DONE);
    ASSERT_EQ(host_locate(locator, &at, 25, &places), HOST_DONE);
    for (qx_long i = 0; i < 25; ++i) {
        EXPECT_GE(places->cell[i], 0);
        float uvw[3];
        qx_long cell;
        EXPECT_EQ(host_mesh(part.field)
                      ->methods->find_cell_func(host_mesh(part.field), nullptr,
                                                &nodes[3 * static_cast<size_t>(i)], &cell, uvw),
                  1);
    }
    host_free_places(places);
    host_free_locator(locator);
}

TEST(UniformPart, IsRefusedBeyondTheWhole)
{
    const qx_long dims[2] = {5, 4};
    const float corners[4] = {0, 0, 1, 1};
    const held whole(host_uniform(2, dims, 2, corners)), curved(host_cells(0, 3, nullptr));
    const auto expect_refused = [](host_field *field, const char *why) {
        EXPECT_EQ(field, nullptr);
        EXPECT_STREQ(host_error(), why);
        host_free_field(field);
    };
    const qx_long beyond[4] = {0, 4, 1, 4}, before[4] = {-1, 4, 1, 3}, none[4] = {0, 4, 3, 2},
                  good[4] = {1, 4, 1, 3};
    expect_refused(host_uniform_part(whole.field, beyond),
                   "host_uniform_part: the part has nodes 1 to 4 along axis 1, but the whole has 0 to 3");
    expect_refused(host_uniform_part(whole.field, before),
                   "host_uniform_part: the part has nodes -1 to 4 along axis 0, but the whole has 0 to 4");
    expect_refused(host_uniform_part(whole.field, none),
                   "host_uniform_part: the part has nodes 3 to 2 along axis 1, but the whole has 0 to 3");
    expect_refused(host_uniform_part(nullptr, good), "host_uniform_part: whole is NULL");
    expect_refused(host_uniform_part(whole.field, nullptr), "host_uniform_part: extent is NULL");
    expect_refused(host_uniform_part(curved.field, good), "host_uniform_part: the whole is no uniform mesh");
    const held part(host_uniform_part(whole.field, good));
    const qx_long too_far[4] = {0, 3, 0, 3};
    expect_refused(host_uniform_part(part.field, too_far),
                   "host_uniform_part: the part has nodes 0 to 3 along axis 1, but the whole has 0 to 2");
}
