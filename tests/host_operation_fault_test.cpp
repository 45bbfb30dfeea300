// The host's own operations without memory, and asked to stop: host and library are linked as objects, so that each
// allocation of either can be refused in turn. Nothing is handed over then, nothing is leaked, and the text says what
// happened.
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <gtest/gtest.h>

#include <cstddef>
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
    const host_level_options bare = {sizeof bare, 1, 1, 0};
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

namespace {

// Surfaces, or parts, by several threads. Which of them meets a refusal is left to chance.
int extract_by_threads(host_field *field, bool surface)
{
    static const std::vector<double> data = meshes::random_values<double>(4, 40000, 0, 1);
    const host_array array = {data.data(), DTYPE_DOUBLE, 1, surface ? nullptr : &data[7]};
    const host_level_options level_options = {sizeof level_options, 0, 0, 3};
    const host_cut_options cut_options = {sizeof cut_options, 0, 0, 3};
    host_result *result = nullptr;
    const int done = surface ? host_isosurf(field, &array, 0.5, &level_options, &result)
                             : host_cut(field, &array, 0.5, HOST_ABOVE, &cut_options, &result);
    EXPECT_EQ(result != nullptr, done == HOST_DONE);
    host_free_result(result);
    return done;
}

int cut_alone(host_field *field)
{
    static const std::vector<double> data = meshes::random_values<double>(4, 4000, 0, 1);
    const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr};
    host_result *result = nullptr;
    const int done = host_cut(field, &array, 0.5, HOST_BELOW, nullptr, &result);
    EXPECT_EQ(result != nullptr, done == HOST_DONE);
    host_free_result(result);
    return done;
}

std::vector<meshes::mesh_ptr> meshes_for_threads()
{
    std::vector<meshes::mesh_ptr> all = some_meshes();
    all.push_back(meshes::mixed({CELL_TRI, CELL_PRISM, CELL_QUAD}, {1, 1, 2}, 5, 1));
    return all;
}

} // namespace

TEST(HostOperations, ExtractByThreadsOrFailAsAWhole)
{
    for (const meshes::mesh_ptr &mesh : meshes_for_threads())
        for (const bool surface : {true, false})
            refuse_each([&] { return extract_by_threads(mesh->field, surface); });
}

TEST(HostOperations, ExtractByThreadsUntilToldToStop)
{
    std::vector<meshes::mesh_ptr> all = meshes_for_threads();
    all.push_back(meshes::cells(CELL_HEX, 1, {30, 30, 30}, 1));
    for (const meshes::mesh_ptr &mesh : all)
        for (const bool surface : {true, false})
            stop_at_each([&] { return extract_by_threads(mesh->field, surface); });
}

TEST(HostOperations, CutOrFailAsAWhole)
{
    const std::vector<meshes::mesh_ptr> all = some_meshes();
    for (const meshes::mesh_ptr &mesh : all)
        refuse_each([&] { return cut_alone(mesh->field); });
    stop_at_each([&] { return cut_alone(all[0]->field); });
}

TEST(HostOperations, StartAsManyThreadsAsAreAskedForAndThereIsWorkFor)
{
    const meshes::mesh_ptr cells = meshes::cells(CELL_HEX, 1, {2, 2, 1}, 5),
                           lattice = meshes::uniform({5, 5, 4}, 3, {0, 0, 0}, {1, 1, 1}),
                           flat = meshes::uniform({5, 5}, 3, {0, 0, 0}, {1, 1, 1});
    const std::vector<double> data = meshes::random_values<double>(4, 100, 0, 1);
    const host_array array = {data.data(), DTYPE_DOUBLE, 1, nullptr};
    const auto started = [&](const meshes::test_mesh &mesh, const host_level_options &options) {
        const int before = host_calls::threads_started();
        host_result *out = nullptr;
        EXPECT_EQ(host_isosurf(mesh.field, &array, 0.5, &options, &out), HOST_DONE);
        host_free_result(out);
        return host_calls::threads_started() - before;
    };
    const auto by = [](int threads) { return host_level_options{sizeof(host_level_options), 0, 0, threads}; };
    for (const int one : {-3, 0, 1})
        EXPECT_EQ(started(*cells, by(one)) + started(*lattice, by(one)), 0);
    EXPECT_GT(started(*cells, by(2)), 0);
    EXPECT_EQ(started(*cells, by(4)), started(*cells, by(2)) * 3); // the caller's is one of them
    EXPECT_EQ(started(*cells, by(100)), started(*cells, by(4)));
    EXPECT_GT(started(*lattice, by(2)), 0);
    EXPECT_EQ(started(*lattice, by(100)), started(*lattice, by(3)));
    EXPECT_EQ(started(*flat, by(100)), 0);
    // A program that was built before there was the option has a shorter record.
    EXPECT_EQ(started(*cells, {offsetof(host_level_options, threads), 0, 0, 4}), 0);
}

// A thread that can't be started has its share done by the caller's.
TEST(HostOperations, DoWithoutThreadsThatTheyCannotHave)
{
    for (const meshes::mesh_ptr &mesh : meshes_for_threads())
        for (int k = 0; k < 10; ++k) {
            host_calls::reset();
            host_calls::fail_thread(k);
            EXPECT_EQ(extract_by_threads(mesh->field, k % 2 == 0), HOST_DONE);
        }
    host_calls::reset();
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
