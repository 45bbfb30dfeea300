// The host without memory. Its own objects are linked here with the allocator wrapped, so that each of its
// allocations can be refused in turn: the call fails with a text, nothing is leaked, and the next call works.
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana/host/fld.h>
#include <skoklana/host/om.h>

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>

namespace {

void stub() {}

const OM_named_func table[] = {{stub, "cut_func"}, {stub, "cut_func_unif"}, {stub, "shape_func_hex_1"}};

bool time_is_ours = false;
timespec our_time;
int waits = 0;

const float coords[8 * 3] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1};
const qx_long hexahedron[8] = {7, 4, 5, 6, 3, 0, 1, 2};
const qx_long triangle[3] = {0, 1, 2};
const qx_long dims[3] = {2, 2, 2};
const float corners[6] = {0, 0, 0, 1, 1, 1};
const float axis[2] = {0, 1};
const float *const axes[3] = {axis, axis, axis};

host_field *cells_of(int nsets)
{
    host_field *field = host_cells(8, 3, coords);
    for (int s = 0; field != nullptr && s < nsets; ++s) {
        const int added = s % 2 == 0 ? host_add_cells(field, CELL_HEX, 1, 1, hexahedron)
                                     : host_add_cells(field, CELL_TRI, 1, 1, triangle);
        if (added != 1) {
            host_free_field(field);
            return nullptr;
        }
    }
    return field;
}

// Asks a field for everything it has. Whether all of it came.
bool use(host_field *field, bool has_points)
{
    mesh_info *mesh = field != nullptr ? host_mesh(field) : nullptr;
    if (mesh == nullptr) return false;
    float *list;
    qx_long *connect;
    bool good = mesh->get_coords(mesh, &list) == 1;
    for (int s = 0; good && s < mesh->ncell_sets; ++s)
        good = mesh->get_connect(mesh, s, &connect) == 1;
    return good && (!has_points || mesh->get_points(mesh, &list) == 1);
}

// Runs build and use with each allocation refused in turn, until no refusal is reached. Gives the number of
// allocations.
template <typename Build> int refuse_each(Build build, bool has_points)
{
    for (int k = 0;; ++k) {
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        host_field *field = build();
        const bool good = use(field, has_points);
        const bool refused = host_calls::allocation_was_refused();
        EXPECT_EQ(good, !refused) << "allocation " << k << ": " << host_error();
        if (refused) {
            EXPECT_NE(std::string(host_error()).find("no memory"), std::string::npos) << host_error();
            // What failed for lack of memory works as soon as there is some.
            EXPECT_TRUE(field == nullptr || use(field, has_points)) << "allocation " << k;
        }
        host_free_field(field);
        EXPECT_EQ(watch.live_blocks(), 0) << "allocation " << k;
        if (!refused) return k;
    }
}

} // namespace

extern "C" {

int __real_OMadd_named_funcs(const OM_named_func *rows, int count);
void __real_ERRout_of_memory(const char *message);
int __real_nanosleep(const timespec *wait, timespec *left);
int __real_clock_gettime(clockid_t clock, timespec *now);

int __wrap_nanosleep(const timespec *wait, timespec *left)
{
    if (!time_is_ours) return __real_nanosleep(wait, left);
    ++waits;
    our_time.tv_nsec += wait->tv_nsec;
    our_time.tv_sec += wait->tv_sec + our_time.tv_nsec / 1000000000;
    our_time.tv_nsec %= 1000000000;
    return 0;
}

int __wrap_clock_gettime(clockid_t clock, timespec *now)
{
    if (!time_is_ours) return __real_clock_gettime(clock, now);
    *now = our_time;
    return 0;
}

} // extern "C"

// The library's stand-in. Past the records of the other host calls, so that the registry's own allocations
// count.
int FLD_METHinit(void)
{
    __real_OMadd_named_funcs(table, 3);
    return 1;
}

// First of all: functions are registered once a process, and stay.
TEST(HostWithoutMemory, RegistersTheLibraryAtTheNextAttempt)
{
    host_calls::watch watch;
    host_field *field = host_uniform(3, dims, 3, corners);
    ASSERT_NE(field, nullptr);
    host_calls::fail_allocation(0);
    EXPECT_EQ(host_mesh(field), nullptr);
    EXPECT_TRUE(host_calls::allocation_was_refused());
    EXPECT_STREQ(host_error(), "host_mesh: no memory for the library's functions");
    mesh_info *mesh = host_mesh(field);
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(reinterpret_cast<void (*)()>(mesh->methods->cut_func), stub);
    EXPECT_EQ(mesh->methods->grad_func, nullptr);
    host_free_field(field);
    EXPECT_EQ(watch.live_blocks(), 1); // the registry
}

TEST(HostWithoutMemory, RefusesATableOfFunctionsAsAWhole)
{
    static const OM_named_func more[200] = {};
    host_calls::watch watch;
    host_calls::fail_allocation(0);
    EXPECT_EQ(__real_OMadd_named_funcs(more, 200), 0);
    EXPECT_TRUE(host_calls::allocation_was_refused());
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(HostWithoutMemory, BuildsNoFieldAndSaysSo)
{
    const auto uniform = [] { return host_uniform(3, dims, 3, corners); };
    const auto rectilinear = [] { return host_rectilinear(3, dims, 3, axes); };
    const auto curvilinear = [] { return host_curvilinear(3, dims, 3, coords); };
    // field; eight arrays of the mesh record; then coordinates, connect list, points as far as they are made
    EXPECT_EQ(refuse_each(uniform, true), 1 + 8 + 2);
    EXPECT_EQ(refuse_each(rectilinear, true), 1 + 8 + 3);
    EXPECT_EQ(refuse_each(curvilinear, false), 1 + 8 + 1);
    EXPECT_EQ(refuse_each([] { return cells_of(0); }, false), 1 + 8);
    EXPECT_EQ(refuse_each([] { return cells_of(1); }, false), 1 + 1 + 8);
    EXPECT_EQ(refuse_each([] { return cells_of(13); }, false), 1 + 3 + 8); // the sets' list grows twice
}

TEST(HostWithoutMemory, TakesVtksCellsAsAWholeOrNotAtAll)
{
    const unsigned char types[3] = {12, 5, 12};
    const qx_long offsets[4] = {0, 8, 11, 19},
                  nodes[19] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 0, 1, 2, 3, 4, 5, 6, 7};
    const auto build = [&] {
        host_field *field = host_cells(8, 3, coords);
        if (field == nullptr || host_add_cells_vtk(field, 3, types, offsets, nodes, nullptr) == 1)
            return field;
        host_free_field(field);
        return static_cast<host_field *>(nullptr);
    };
    EXPECT_EQ(refuse_each(build, false), 1 + 3 + 8); // two lists of nodes, and the sets' own
}

TEST(HostWithoutMemory, FailsFieldCallsByTheFetchesToo)
{
    host_field *field = host_rectilinear(3, dims, 3, axes);
    mesh_info *mesh = host_mesh(field);
    float *points = nullptr;
    host_calls::watch watch;
    host_calls::fail_allocation(0);
    EXPECT_EQ(FLDget_points(*mesh->field_id, &points), 0);
    EXPECT_EQ(points, nullptr);
    EXPECT_STREQ(host_error(), "points of a field: no memory for 6 rows");
    EXPECT_EQ(FLDget_points(*mesh->field_id, &points), 1);
    EXPECT_NE(points, nullptr);
    host_free_field(field);
}

TEST(HostWithoutMemory, LeavesTheSetsThatAFieldHas)
{
    host_calls::watch watch;
    host_field *field = cells_of(4);
    ASSERT_NE(field, nullptr);
    host_calls::fail_allocation(0);
    EXPECT_EQ(host_add_cells(field, CELL_TRI, 1, 1, triangle), 0);
    EXPECT_STREQ(host_error(), "host_add_cells: no memory for the cell set");
    EXPECT_EQ(host_mesh(field)->ncell_sets, 4);
    host_free_field(field);
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(HostWithoutMemory, TellsTheProcessorsAllTheSame)
{
    host_calls::watch watch;
    host_calls::fail_allocations_from(0);
    CPUprocessor_info info = {-1, -1};
    EXPECT_NE(CPUget_processor_info(&info), 0);
    EXPECT_GE(info.count, 1);
}

// ---- memory that must be had -----------------------------------------------------------------------------------

class OutOfMemory : public testing::Test {
  protected:
    void SetUp() override
    {
        time_is_ours = true;
        our_time = {our_time.tv_sec + 1000, 0}; // long after the last test
        waits = 0;
        reports.clear();
        host_set_error_handler(
            [](void *user, const char *module, int severity, const char *message) {
                EXPECT_EQ(severity, 2);
                static_cast<OutOfMemory *>(user)->reports.push_back(std::string(module) + ": " + message);
            },
            this);
    }
    void TearDown() override
    {
        host_set_error_handler(nullptr, nullptr);
        time_is_ours = false;
    }

    std::vector<std::string> reports;
};

TEST_F(OutOfMemory, IsReportedOnceAndWaitedForWithPatience)
{
    for (int k = 0; k < 100; ++k)
        __real_ERRout_of_memory("a list");
    EXPECT_EQ(reports, std::vector<std::string>{"out of memory: a list"});
    EXPECT_EQ(waits, 100);
    const char *module = nullptr;
    ASSERT_EQ(host_last_report(0, &module, nullptr), 1);
    EXPECT_STREQ(module, "out of memory");
}

TEST_F(OutOfMemory, EndsTheProgramAfterTenSecondsInVain)
{
    const timespec start = our_time;
    for (int k = 0; k < 100; ++k)
        __real_ERRout_of_memory("a list");
    EXPECT_EQ(our_time.tv_sec - start.tv_sec, 10);
    EXPECT_DEATH(__real_ERRout_of_memory("a list"), "out of memory: a list; giving up");
}

TEST_F(OutOfMemory, BeginsAnewAfterAQuietSecond)
{
    for (int run = 0; run < 3; ++run) {
        for (int k = 0; k < 80; ++k)
            __real_ERRout_of_memory("a list");
        our_time.tv_sec += 2;
    }
    EXPECT_EQ(reports.size(), 3u);
    EXPECT_EQ(waits, 240);
}

TEST_F(OutOfMemory, IsMetFromWhatWasSetAside)
{
    host_calls::reset();
    host_calls::watch watch;
    ASSERT_EQ(host_reserve_memory(1000), 1);
    EXPECT_EQ(watch.live_blocks(), 1);
    ASSERT_EQ(host_reserve_memory(2000), 1);
    EXPECT_EQ(watch.live_blocks(), 1);
    __real_ERRout_of_memory("a list");
    EXPECT_EQ(watch.live_blocks(), 0);
    EXPECT_EQ(waits, 0);
    EXPECT_EQ(reports.size(), 0u);
    __real_ERRout_of_memory("a list");
    EXPECT_EQ(waits, 1);
    EXPECT_EQ(reports.size(), 1u);
    host_calls::fail_allocation(0);
    EXPECT_EQ(host_reserve_memory(1000), 0);
    EXPECT_STREQ(host_error(), "host_reserve_memory: no memory for 1000 bytes");
    EXPECT_EQ(host_reserve_memory(0), 1);
    host_context *context = host_new_context(), *before = host_use_context(context);
    EXPECT_EQ(host_reserve_memory(1000), 1);
    host_use_context(before);
    EXPECT_EQ(watch.live_blocks(), 2);
    host_free_context(context);
    EXPECT_EQ(watch.live_blocks(), 0);
}
