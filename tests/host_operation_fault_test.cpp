// The host's own operations without memory, and asked to stop: host and library are linked as objects, so that each
// allocation of either can be refused in turn. Nothing is handed over then, nothing is leaked, and the text says what
// happened.
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

// Runs an operation with each allocation refused in turn, until none is. use gives the operation's result and
// releases what it was given. What fields make when it is first asked for is there: it runs once before.
void refuse_each(const std::function<int()> &use)
{
    EXPECT_EQ(use(), HOST_DONE);
    for (int k = 0;; ++k) {
        ASSERT_LT(k, 500);
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        const int done = use();
        const bool refused = host_calls::allocation_was_refused();
        EXPECT_EQ(watch.live_blocks(), 0) << "allocation " << k;
        if (!refused) {
            EXPECT_EQ(done, HOST_DONE);
            EXPECT_GT(k, 0);
            return;
        }
        EXPECT_TRUE(done == HOST_FAILED || done == HOST_DONE) << "allocation " << k;
        EXPECT_TRUE(done == HOST_DONE || *host_error() != 0) << "allocation " << k;
    }
}

struct counted_checks {
    int seen, stop_at;
};

int count_check(void *user, int, const char *)
{
    counted_checks *checks = static_cast<counted_checks *>(user);
    return checks->seen++ >= checks->stop_at;
}

// The same with a request to stop from each status check on in turn.
void stop_at_each(const std::function<int()> &use)
{
    EXPECT_EQ(use(), HOST_DONE);
    for (int k = 0;; ++k) {
        ASSERT_LT(k, 5000);
        host_calls::reset();
        host_calls::watch watch;
        counted_checks checks = {0, k};
        host_set_progress_handler(count_check, &checks);
        const int done = use();
        host_set_progress_handler(nullptr, nullptr);
        EXPECT_EQ(watch.live_blocks(), 0) << "check " << k;
        EXPECT_EQ(host_calls::seen().depth, 0) << "check " << k;
        if (checks.seen <= k) {
            EXPECT_EQ(done, HOST_DONE);
            EXPECT_GT(k, 0);
            return;
        }
        EXPECT_TRUE(done == HOST_STOPPED || checks.seen == k + 1)
            << "check " << k; // or the last one, too late
    }
}

std::vector<meshes::mesh_ptr> some_meshes()
{
    std::vector<meshes::mesh_ptr> all;
    all.push_back(meshes::mixed({CELL_HEX, CELL_TET}, {1, 2}, 4, 1));
    all.push_back(meshes::curvilinear({7, 6, 5}, 3, {0, 0, 0}, {1, 1, 1}, 3));
    all.push_back(meshes::rectilinear({7, 6, 5}, 3, {0, 0, 0}, {1, 1, 1}, 3));
    all.push_back(meshes::uniform({7, 6, 5}, 3, {0, 0, 0}, {1, 1, 1}));
    return all;
}

int locate_and_sample(host_field *field, qx_long npoints)
{
    static const std::vector<float> points = meshes::random_values<float>(3, 3 * 6000, 0, 1);
    static const std::vector<double> data = meshes::random_values<double>(4, 4000, 0, 1);
    static std::vector<double> out(6000);
    host_locator *locator = nullptr;
    host_places *places = nullptr;
    const host_array at = {points.data(), DTYPE_FLOAT, 3, nullptr},
                     values = {data.data(), DTYPE_DOUBLE, 1, nullptr};
    int done = host_make_locator(field, nullptr, &locator);
    EXPECT_EQ(locator != nullptr, done == HOST_DONE);
    if (done == HOST_DONE) {
        done = host_locate(locator, &at, npoints, &places);
        EXPECT_EQ(places != nullptr, done == HOST_DONE);
    }
    if (done == HOST_DONE) done = host_sample_nodes(places, &values, out.data(), nullptr);
    host_free_places(places);
    host_free_locator(locator);
    return done;
}

int find_by_exact_mesh(host_field *field)
{
    const float point[3] = {0.4f, 0.3f, 0.6f};
    float uvw[3];
    qx_long cell;
    host_locator *locator = nullptr;
    mesh_info *exact = nullptr;
    int done = host_make_locator(field, nullptr, &locator);
    if (done == HOST_DONE) {
        exact = host_exact_mesh(locator);
        done = exact != nullptr ? HOST_DONE : HOST_FAILED;
    }
    if (done == HOST_DONE && exact->methods->find_cell_func(exact, nullptr, point, &cell, uvw) != 1)
        done = HOST_FAILED;
    host_free_exact_mesh(exact);
    host_free_locator(locator);
    return done;
}

} // namespace

TEST(HostOperations, LocateAndSampleOrFailAsAWhole)
{
    for (const meshes::mesh_ptr &mesh : some_meshes())
        refuse_each([&] { return locate_and_sample(mesh->field, 100); });
}

TEST(HostOperations, FindPointsOneByOneOrFailAsAWhole)
{
    for (const meshes::mesh_ptr &mesh : some_meshes())
        refuse_each([&] { return find_by_exact_mesh(mesh->field); });
}

TEST(HostOperations, LocateAndSampleUntilToldToStop)
{
    for (const meshes::mesh_ptr &mesh : some_meshes())
        stop_at_each([&] { return locate_and_sample(mesh->field, 6000); });
}

namespace {

int extract_level(host_field *field, const host_level_options *options)
{
    static const std::vector<double> data = meshes::random_values<double>(4, 4000, 0, 1);
    const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr};
    host_result *result = nullptr;
    const int done = host_isosurf(field, &array, 0.5, options, &result);
    EXPECT_EQ(result != nullptr, done == HOST_DONE);
    host_free_result(result);
    return done;
}

} // namespace

TEST(HostOperations, ExtractLevelsOrFailAsAWhole)
{
    const host_level_options bare = {sizeof bare, 1, 1};
    for (const meshes::mesh_ptr &mesh : some_meshes()) {
        refuse_each([&] { return extract_level(mesh->field, nullptr); });
        refuse_each([&] { return extract_level(mesh->field, &bare); });
    }
}

TEST(HostOperations, ExtractLevelsUntilToldToStop)
{
    for (const meshes::mesh_ptr &mesh : some_meshes())
        stop_at_each([&] { return extract_level(mesh->field, nullptr); });
}

// Every kind of work: by the library, and cell by cell for null values and rows of two.
static int derive_and_carry(host_field *field, bool by_cells)
{
    static const std::vector<double> data = meshes::random_values<double>(4, 4000, 0, 1);
    static std::vector<float> out(6000);
    static std::vector<double> means(2000);
    const double null = 2;
    const host_array scalar = {data.data(), DTYPE_DOUBLE, 1, by_cells ? &null : nullptr},
                     vectors = {data.data(), DTYPE_DOUBLE, by_cells ? 2 : 3, nullptr};
    int done = host_gradient(field, &scalar, out.data(), nullptr);
    if (done == HOST_DONE) done = host_curl(field, &vectors, out.data(), nullptr);
    if (done == HOST_DONE) done = host_divergence(field, &vectors, out.data(), nullptr);
    const host_cell_to_node_options options = {sizeof options, HOST_WEIGHT_DISTANCE};
    if (done == HOST_DONE) done = host_cell_to_node(field, &scalar, &options, means.data(), nullptr);
    return done;
}

TEST(HostOperations, DeriveOrFailAsAWhole)
{
    for (const bool by_cells : {false, true})
        for (const meshes::mesh_ptr &mesh : some_meshes()) {
            // What a field makes of its arrays when it is first asked stays with it.
            derive_and_carry(mesh->field, by_cells);
            refuse_each([&] { return derive_and_carry(mesh->field, by_cells); });
        }
}

TEST(HostOperations, DeriveUntilToldToStop)
{
    for (const bool by_cells : {false, true})
        for (const meshes::mesh_ptr &mesh : some_meshes()) {
            derive_and_carry(mesh->field, by_cells);
            stop_at_each([&] { return derive_and_carry(mesh->field, by_cells); });
        }
}
