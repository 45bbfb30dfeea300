#include <skoklana/thread.h>

#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana/host/fld.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <numeric>
#include <random>
#include <string>

namespace {

using numbers = std::vector<qx_long>;

// What stands in for the host's settings and its processors.
struct stand_in {
    bool on = false;
    int cpu_result = 1, cpu_count = 1, cpu_calls = 0;
    bool has_setting = true;
    std::vector<int> stored;
    std::string asked;
} machine;
bool hide_points = false;

} // namespace

extern "C" {
int __real_CPUget_processor_info(CPUprocessor_info *info);
OMobj_id __real_OMfind_str_subobj(OMobj_id parent, const char *path);
int __real_OMset_int_val(OMobj_id object, int value);
int __real_FLDget_points(OMobj_id field, float **points);

int __wrap_CPUget_processor_info(CPUprocessor_info *info)
{
    if (!machine.on) return __real_CPUget_processor_info(info);
    ++machine.cpu_calls;
    if (machine.cpu_result != 0) info->count = machine.cpu_count;
    return machine.cpu_result;
}

OMobj_id __wrap_OMfind_str_subobj(OMobj_id parent, const char *path)
{
    if (!machine.on) return __real_OMfind_str_subobj(parent, path);
    EXPECT_EQ(parent.word[0], OMroot_obj.word[0]);
    EXPECT_EQ(parent.word[1], OMroot_obj.word[1]);
    machine.asked = path;
    // Differs from no object in its second word alone.
    OMobj_id found = OMnull_obj;
    if (machine.has_setting) found.word[1] += 7;
    return found;
}

int __wrap_OMset_int_val(OMobj_id object, int value)
{
    if (!machine.on) return __real_OMset_int_val(object, value);
    EXPECT_EQ(object.word[1], OMnull_obj.word[1] + 7);
    machine.stored.push_back(value);
    return 1;
}

int __wrap_FLDget_points(OMobj_id field, float **points)
{
    return hide_points ? 0 : __real_FLDget_points(field, points);
}
}

namespace {

// ---- how many --------------------------------------------------------------------------------------------

class ThreadCount : public testing::Test {
  protected:
    void SetUp() override
    {
        machine = stand_in();
        machine.on = true;
        unsetenv("QX_NUM_THREADS");
    }
    void TearDown() override
    {
        machine.on = false;
        unsetenv("QX_NUM_THREADS");
    }

    static int with_variable(const char *text)
    {
        setenv("QX_NUM_THREADS", text, 1);
        machine.stored.clear();
        DVmt_init();
        EXPECT_EQ(machine.stored.size(), 1u);
        return machine.stored.empty() ? -99 : machine.stored[0];
    }

    static int with_processors(int result, int count)
    {
        machine.cpu_result = result;
        machine.cpu_count = count;
        machine.stored.clear();
        DVmt_init();
        EXPECT_EQ(machine.stored.size(), 1u);
        return machine.stored.empty() ? -99 : machine.stored[0];
    }
};

TEST_F(ThreadCount, VariableIsReadAsANumberAndCapped)
{
    EXPECT_EQ(with_variable("64"), 16);
    EXPECT_EQ(with_variable("17"), 16);
    EXPECT_EQ(with_variable("16"), 16);
    EXPECT_EQ(with_variable("3"), 3);
    EXPECT_EQ(with_variable("3 of them"), 3);
    EXPECT_EQ(with_variable("abc"), 0);
    EXPECT_EQ(with_variable("0"), 0);
    EXPECT_EQ(with_variable("-1"), -1);
    EXPECT_EQ(with_variable(""), 0);
    EXPECT_EQ(machine.cpu_calls, 0) << "the variable goes before the processors";
    EXPECT_EQ(machine.asked, "Templates.CONFIG.num_threads");
}

TEST_F(ThreadCount, ProcessorsCountWithoutTheVariable)
{
    EXPECT_EQ(with_processors(1, 32), 16);
    EXPECT_EQ(with_processors(1, 16), 16);
    EXPECT_EQ(with_processors(-5, 4), 4);
    EXPECT_EQ(with_processors(1, 0), 0);
    EXPECT_EQ(with_processors(1, -2), -2);
    EXPECT_EQ(with_processors(0, 8), 1);
}

TEST_F(ThreadCount, IsStoredNowhereWithoutTheSetting)
{
    machine.has_setting = false;
    setenv("QX_NUM_THREADS", "4", 1);
    DVmt_init();
    EXPECT_EQ(machine.asked, "Templates.CONFIG.num_threads");
    EXPECT_TRUE(machine.stored.empty());
}

TEST_F(ThreadCount, EachCallAsksAnew)
{
    EXPECT_EQ(with_variable("2"), 2);
    EXPECT_EQ(with_variable("5"), 5);
    unsetenv("QX_NUM_THREADS");
    EXPECT_EQ(with_processors(1, 3), 3);
}

TEST(ThreadSetting, TheEmbeddedHostHasIt)
{
    setenv("QX_NUM_THREADS", "7", 1);
    DVmt_init();
    unsetenv("QX_NUM_THREADS");
    const OMobj_id setting = OMfind_str_subobj(OMroot_obj, "Templates.CONFIG.num_threads");
    EXPECT_FALSE(setting.word[0] == OMnull_obj.word[0] && setting.word[1] == OMnull_obj.word[1]);
}

// ---- shares ----------------------------------------------------------------------------------------------

numbers shares_of(int nthreads, qx_long number)
{
    numbers shares(static_cast<size_t>(nthreads) + 1, -7);
    EXPECT_EQ(UTILmt_divide_number(nthreads, number, shares.data()), 1);
    EXPECT_EQ(shares.back(), -7);
    shares.pop_back();
    return shares;
}

TEST(Shares, FirstThreadsTakeTheRemainder)
{
    EXPECT_EQ(shares_of(3, 10), (numbers{4, 3, 3}));
    EXPECT_EQ(shares_of(4, 2), (numbers{1, 1, 0, 0}));
    EXPECT_EQ(shares_of(3, 0), (numbers{0, 0, 0}));
    EXPECT_EQ(shares_of(1, qx_long(1) << 40), (numbers{qx_long(1) << 40}));
    for (int nthreads = 1; nthreads <= 17; ++nthreads)
        for (qx_long number = 0; number <= 40; ++number) {
            const numbers shares = shares_of(nthreads, number);
            EXPECT_EQ(std::accumulate(shares.begin(), shares.end(), qx_long(0)), number);
            EXPECT_TRUE(std::is_sorted(shares.rbegin(), shares.rend()));
            EXPECT_LE(shares.front() - shares.back(), 1);
        }
}

TEST(Shares, WithoutThreadsNothingIsWritten)
{
    qx_long share = -7;
    EXPECT_EQ(UTILmt_divide_number(0, 10, &share), 1);
    EXPECT_EQ(UTILmt_divide_number(-3, 10, &share), 1);
    EXPECT_EQ(share, -7);
}

// ---- pieces of a mesh ------------------------------------------------------------------------------------

// The pieces of one division.
struct division {
    std::vector<mesh_info *> pieces;
    int result;

    division(mesh_info *mesh, int nthreads) : pieces(static_cast<size_t>(nthreads) + 1, untouched())
    {
        host_calls::reset();
        result = UTILmt_create_divided_mesh_info(mesh, pieces.data(), nthreads);
        EXPECT_EQ(pieces.back(), untouched());
        pieces.pop_back();
    }
    division(const division &) = delete;
    division &operator=(const division &) = delete;
    ~division()
    {
        if (result != 1) return;
        for (mesh_info *piece : pieces)
            EXPECT_EQ(UTILmt_free_divided_mesh_info(piece), 1);
    }

    static mesh_info *untouched() { return reinterpret_cast<mesh_info *>(16); }
};

TEST(DividedMesh, KindIsToldByTheFieldsDims)
{
    const auto volume = meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1});
    const auto cells = meshes::cells(CELL_TET, 1, {1, 1, 1}, 3);
    EXPECT_EQ(UTILmt_check_isUCD(*volume->mesh->field_id), 0);
    EXPECT_EQ(UTILmt_check_isUCD(*cells->mesh->field_id), 1);
}

TEST(DividedMesh, SlabsShareAPlaneOfNodes)
{
    const auto in = meshes::curvilinear({4, 5, 11}, 3, {0, 0, 0}, {1, 1, 1}, 3);
    const division made(in->mesh, 3);
    ASSERT_EQ(made.result, 1);
    const numbers planes = {5, 4, 4};
    for (size_t k = 0; k < 3; ++k) {
        const mesh_info &piece = *made.pieces[k];
        EXPECT_EQ(piece.field_id, in->mesh->field_id);
        EXPECT_EQ(piece.nspace, 3);
        EXPECT_EQ(piece.ndim, 3);
        EXPECT_EQ(numbers(piece.dims, piece.dims + 3), (numbers{4, 5, planes[k]}));
        EXPECT_EQ(piece.nnodes, 20 * planes[k]);
        EXPECT_EQ(piece.ncell_sets, 0);
        EXPECT_EQ(piece.points, nullptr);
        EXPECT_EQ(piece.coords, nullptr);
        EXPECT_EQ(piece.methods, nullptr);
        EXPECT_EQ(piece.get_coords, nullptr);
        EXPECT_EQ(piece.cell_count, nullptr);
    }
}

TEST(DividedMesh, FewerAxesArePaddedAndTheLastOneIsDivided)
{
    const auto flat = meshes::uniform({6, 4}, 2, {0, 0, 0}, {5, 3, 0});
    const division made(flat->mesh, 2);
    ASSERT_EQ(made.result, 1);
    EXPECT_EQ(numbers(made.pieces[0]->dims, made.pieces[0]->dims + 3), (numbers{6, 3, 1}));
    EXPECT_EQ(numbers(made.pieces[1]->dims, made.pieces[1]->dims + 3), (numbers{6, 2, 1}));
    EXPECT_EQ(made.pieces[1]->ndim, 2);
    EXPECT_EQ(made.pieces[1]->nnodes, 12);

    const auto line = meshes::uniform({9}, 1, {0, 0, 0}, {8, 0, 0});
    const division of_line(line->mesh, 3);
    ASSERT_EQ(of_line.result, 1);
    EXPECT_EQ(numbers(of_line.pieces[2]->dims, of_line.pieces[2]->dims + 3), (numbers{3, 1, 1}));
}

TEST(DividedMesh, CornersOfSlabsAreSteppedInSinglePrecision)
{
    const auto in = meshes::uniform({3, 4, 8}, 3, {0.1f, -2, 0.3f}, {1, 3, 1.7f});
    const division made(in->mesh, 3);
    ASSERT_EQ(made.result, 1);
    const float step = (1.7f - 0.3f) / 7.0f;
    const int first[] = {0, 3, 5}, share[] = {3, 2, 2};
    for (int k = 0; k < 3; ++k) {
        const float *points = made.pieces[static_cast<size_t>(k)]->points;
        ASSERT_NE(points, nullptr);
        const float low = static_cast<float>(first[k]) * step + 0.3f;
        const float high = static_cast<float>(share[k]) * step + low;
        EXPECT_EQ(std::vector<float>(points, points + 6), (std::vector<float>{0.1f, -2, low, 1, 3, high}));
    }
    EXPECT_EQ(in->mesh->points, nullptr) << "asked of the field, not of the record";
}

TEST(DividedMesh, RectilinearPointsAreTakenAsTwoRows)
{
    const auto in = meshes::rectilinear({3, 3, 5}, 3, {0, 0, 0}, {1, 1, 1}, 4);
    const division made(in->mesh, 2);
    ASSERT_EQ(made.result, 1);
    float *points = nullptr;
    ASSERT_EQ(FLDget_points(*in->mesh->field_id, &points), 1);
    const float step = (points[5] - points[2]) / 4.0f;
    const float low = 2.0f * step + points[2], high = 2.0f * step + low;
    EXPECT_EQ(std::vector<float>(made.pieces[1]->points, made.pieces[1]->points + 6),
              (std::vector<float>{points[0], points[1], low, points[3], points[4], high}));
}

TEST(DividedMesh, PointsAreTheFieldsAffair)
{
    const auto in = meshes::uniform({3, 3, 5}, 3, {0, 0, 0}, {1, 1, 1});
    hide_points = true;
    const division made(in->mesh, 2);
    hide_points = false;
    ASSERT_EQ(made.result, 1);
    EXPECT_EQ(made.pieces[0]->points, nullptr);
}

TEST(DividedMesh, AsManyPlanesAsThreadsAreEnoughAndOneLessIsNot)
{
    const auto in = meshes::uniform({3, 3, 6}, 3, {0, 0, 0}, {1, 1, 1});
    {
        const division made(in->mesh, 5);
        ASSERT_EQ(made.result, 1);
        for (const mesh_info *piece : made.pieces)
            EXPECT_EQ(piece->dims[2], 2);
    }
    host_calls::watch watch;
    const division made(in->mesh, 6);
    EXPECT_EQ(made.result, 0);
    EXPECT_EQ(host_calls::report_texts(),
              (std::vector<std::string>{"UTILmt: dims[ndim-1] is too small to be divided."}));
    for (const mesh_info *piece : made.pieces)
        EXPECT_EQ(piece, division::untouched());
    EXPECT_EQ(watch.allocations(), 0);
}

TEST(DividedMesh, WithoutAnArrayToFillThereIsAReport)
{
    for (const auto &in :
         {meshes::uniform({3, 3, 6}, 3, {0, 0, 0}, {1, 1, 1}), meshes::cells(CELL_HEX, 1, {2, 2, 2}, 3)}) {
        host_calls::reset();
        EXPECT_EQ(UTILmt_create_divided_mesh_info(in->mesh, nullptr, 50), 0);
        EXPECT_EQ(host_calls::report_texts(),
                  (std::vector<std::string>{"UTILmt: cannot allocate out array."}));
        EXPECT_EQ(host_calls::seen().reports[0].severity, 2);
    }
}

TEST(DividedMesh, CellSetsAreSharedOutSetBySet)
{
    const auto in = meshes::mixed({CELL_HEX, CELL_TET, CELL_TRI}, {1, 2, 1}, 2, 5);
    const mesh_info &mesh = *in->mesh;
    const division made(in->mesh, 3);
    ASSERT_EQ(made.result, 1);
    numbers total(3, 0);
    for (int k = 0; k < 3; ++k) {
        const mesh_info &piece = *made.pieces[static_cast<size_t>(k)];
        EXPECT_EQ(piece.field_id, mesh.field_id);
        EXPECT_EQ(piece.ndim, 0);
        EXPECT_EQ(piece.nnodes, 0);
        EXPECT_EQ(piece.dims, nullptr);
        EXPECT_EQ(piece.points, nullptr);
        EXPECT_EQ(piece.nspace, 3);
        EXPECT_EQ(piece.ncell_sets, 3);
        EXPECT_TRUE(piece.get_connect == mesh.get_connect);
        qx_long first = 0;
        for (int set = 0; set < 3; ++set) {
            EXPECT_EQ(piece.cell_first[set], first);
            EXPECT_EQ(piece.cell_count[set], shares_of(3, mesh.cell_count[set])[static_cast<size_t>(k)]);
            EXPECT_EQ(piece.cell_nnodes[set], mesh.cell_nnodes[set]);
            EXPECT_EQ(piece.cell_ndim[set], mesh.cell_ndim[set]);
            EXPECT_EQ(piece.cell_order[set], mesh.cell_order[set]);
            EXPECT_EQ(piece.cell_connect[set], nullptr);
            EXPECT_EQ(piece.cell_aux[set], nullptr);
            first += piece.cell_count[set];
            total[static_cast<size_t>(set)] += piece.cell_count[set];
        }
        EXPECT_EQ(piece.ncells, first);
        for (int slot = 0; slot < 3 * CELL_METHOD_SLOTS; ++slot)
            EXPECT_TRUE(piece.cell_funcs[slot] == (slot < 3 ? mesh.cell_funcs[slot] : nullptr)) << slot;
    }
    EXPECT_EQ(total, numbers(mesh.cell_count, mesh.cell_count + 3));
}

TEST(DividedMesh, MoreThreadsThanCellsLeavesSharesEmpty)
{
    const auto in = meshes::cells(CELL_HEX, 1, {2, 1, 1}, 3);
    const division made(in->mesh, 5);
    ASSERT_EQ(made.result, 1);
    EXPECT_EQ(made.pieces[1]->ncells, 1);
    EXPECT_EQ(made.pieces[2]->ncells, 0);
    EXPECT_EQ(made.pieces[4]->ncells, 0);
}

TEST(DividedMesh, IsReleasedWithWhatHasBeenPutIntoIt)
{
    const auto in = meshes::mixed({CELL_HEX, CELL_TET}, {1, 1}, 1, 5);
    host_calls::watch watch;
    mesh_info *pieces[2];
    ASSERT_EQ(UTILmt_create_divided_mesh_info(in->mesh, pieces, 2), 1);
    pieces[0]->cell_connect[1] = static_cast<qx_long *>(malloc(80));
    pieces[0]->cell_aux[0] = static_cast<float *>(malloc(80));
    pieces[1]->coords = static_cast<float *>(malloc(80));
    pieces[1]->methods = static_cast<mesh_methods *>(malloc(sizeof(mesh_methods)));
    for (mesh_info *piece : pieces)
        EXPECT_EQ(UTILmt_free_divided_mesh_info(piece), 1);
    EXPECT_EQ(watch.live_blocks(), 0);
    EXPECT_EQ(UTILmt_free_divided_mesh_info(nullptr), 0);
}

TEST(DividedMesh, WithoutMemoryNothingIsLeftBehind)
{
    for (const auto &in :
         {meshes::uniform({3, 3, 6}, 3, {0, 0, 0}, {1, 1, 1}), meshes::cells(CELL_HEX, 1, {2, 2, 2}, 3)}) {
        int nfailed = 0;
        for (int k = 0;; ++k, ++nfailed) {
            host_calls::reset();
            host_calls::watch watch;
            host_calls::fail_allocation(k);
            mesh_info *pieces[3] = {};
            const int result = UTILmt_create_divided_mesh_info(in->mesh, pieces, 3);
            const bool refused = host_calls::allocation_was_refused();
            if (!refused)
                for (mesh_info *piece : pieces)
                    UTILmt_free_divided_mesh_info(piece);
            EXPECT_EQ(watch.live_blocks(), 0) << k;
            if (!refused) break;
            EXPECT_EQ(result, 0) << k;
            EXPECT_EQ(host_calls::seen().reports.size(), 1u);
            for (const mesh_info *piece : pieces)
                EXPECT_EQ(piece, nullptr);
        }
        EXPECT_GE(nfailed, 9);
    }
}

// ---- edge tables -----------------------------------------------------------------------------------------

using node_pair = std::pair<qx_long, qx_long>;

int add(mt_edge_table *table, qx_long a, qx_long b)
{
    int id = -7;
    EXPECT_EQ(UTILmt_edge_table_add_points(table, &a, &b, 1, &id), 1);
    return id;
}

int add_str(mt_edge_table_str *table, qx_long base, qx_long a, qx_long b)
{
    int id = -7;
    EXPECT_EQ(UTILmt_edge_table_add_str(table, &a, &b, base, 1, &id), 1);
    return id;
}

TEST(ThreadEdges, NewTables)
{
    mt_edge_table *table = UTILmt_edge_table_create(10);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->nbuckets, 10);
    EXPECT_EQ(table->capacity, 1024);
    EXPECT_EQ(table->count, 0);
    EXPECT_EQ(table->grow, 1024);
    EXPECT_EQ(std::count(table->heads, table->heads + 10, 0), 10);
    EXPECT_EQ(UTILmt_edge_table_delete(table), 1);

    mt_edge_table_str *band = UTILmt_edge_table_create_str(10, 77);
    ASSERT_NE(band, nullptr);
    EXPECT_EQ(band->nbuckets, 10);
    EXPECT_EQ(band->edge_capacity, 77);
    EXPECT_EQ(band->chain_capacity, 77);
    EXPECT_EQ(band->grow, 77);
    EXPECT_EQ(band->chain_next, 1);
    EXPECT_EQ(band->count, 0);
    EXPECT_EQ(UTILmt_edge_table_delete_str(band), 1);
}

TEST(ThreadEdges, OnePairInEitherOrderGetsOneId)
{
    mt_edge_table *table = UTILmt_edge_table_create(10);
    EXPECT_EQ(add(table, 9, 5), 0);
    EXPECT_EQ(add(table, 5, 9), 0);
    EXPECT_EQ(add(table, 5, 6), 1);
    EXPECT_EQ(table->count, 2);
    EXPECT_EQ(table->lo[0], 5);
    EXPECT_EQ(table->hi[0], 9);
    EXPECT_EQ(table->heads[5], 2);
    EXPECT_EQ(table->next[2], 1);
    UTILmt_edge_table_delete(table);
    mt_edge_table_str *band = UTILmt_edge_table_create_str(10, 8);
    EXPECT_EQ(add_str(band, 100, 109, 105), 0);
    EXPECT_EQ(add_str(band, 100, 105, 109), 0);
    UTILmt_edge_table_delete_str(band);
}

TEST(ThreadEdges, NullTables)
{
    const qx_long node = 1;
    int id = -7;
    qx_long *lo = nullptr, *hi = nullptr, count = -7;
    EXPECT_EQ(UTILmt_edge_table_add_points(nullptr, &node, &node, 1, &id), -1);
    EXPECT_EQ(UTILmt_edge_table_add_str(nullptr, &node, &node, 0, 1, &id), -1);
    EXPECT_EQ(UTILmt_edge_table_clean(nullptr, 1), -1);
    EXPECT_EQ(UTILmt_edge_table_get_free(nullptr, &lo, &hi, &count), 0);
    EXPECT_EQ(UTILmt_edge_table_free_str(nullptr, &lo, &hi, &count), 0);
    EXPECT_EQ(UTILmt_edge_table_delete(nullptr), 1);
    EXPECT_EQ(UTILmt_edge_table_delete_str(nullptr), 1);
    EXPECT_EQ(id, -7);
    EXPECT_EQ(count, -7);
    EXPECT_EQ(lo, nullptr);
}

TEST(ThreadEdges, GrowsWithTheEdgeThatLeavesOneEntryAndCallsNoHost)
{
    host_calls::reset();
    mt_edge_table *table = UTILmt_edge_table_create(4000);
    for (int e = 0; e < 1022; ++e)
        ASSERT_EQ(add(table, e, 4000), e);
    EXPECT_EQ(table->capacity, 1024);
    EXPECT_EQ(add(table, 1022, 4000), 1022);
    EXPECT_EQ(table->capacity, 2048);
    EXPECT_EQ(table->grow, 1536);
    for (int e = 1023; e < 2047; ++e)
        ASSERT_EQ(add(table, e, 4000), e);
    EXPECT_EQ(table->capacity, 3584);
    EXPECT_EQ(table->grow, 2304);
    UTILmt_edge_table_delete(table);
    EXPECT_TRUE(host_calls::seen().arrays.empty());
}

TEST(ThreadEdges, BandGrowsItsChainsFirstAndItsStepOnce)
{
    mt_edge_table_str *band = UTILmt_edge_table_create_str(4000, 10);
    for (int e = 0; e < 8; ++e)
        ASSERT_EQ(add_str(band, 0, e, 4000), e);
    EXPECT_EQ(band->chain_capacity, 10);
    ASSERT_EQ(add_str(band, 0, 8, 4000), 8); // chain entry 9: the tenth is next
    EXPECT_EQ(band->chain_capacity, 20);
    EXPECT_EQ(band->edge_capacity, 10);
    EXPECT_EQ(band->grow, 15);
    ASSERT_EQ(add_str(band, 0, 9, 4000), 9);
    EXPECT_EQ(band->edge_capacity, 10);
    ASSERT_EQ(add_str(band, 0, 10, 4000), 10);
    EXPECT_EQ(band->edge_capacity, 25);
    EXPECT_EQ(band->chain_capacity, 20);
    EXPECT_EQ(band->grow, 22);
    EXPECT_EQ(band->chain_next, 12);
    UTILmt_edge_table_delete_str(band);
}

TEST(ThreadEdges, AgreesWithAMapThroughSeveralGrowths)
{
    std::mt19937_64 random(4);
    mt_edge_table *table = UTILmt_edge_table_create(700);
    mt_edge_table_str *band = UTILmt_edge_table_create_str(700, 100);
    std::map<node_pair, int> wanted;
    for (int call = 0; call < 20000; ++call) {
        const qx_long a = static_cast<qx_long>(random() % 700),
                      b = std::min<qx_long>(a + static_cast<qx_long>(random() % 15), 699);
        const int id = wanted.emplace(node_pair(a, b), static_cast<int>(wanted.size())).first->second;
        ASSERT_EQ(random() % 2 != 0 ? add(table, a, b) : add(table, b, a), id);
        ASSERT_EQ(add_str(band, 1000, b + 1000, a + 1000), id);
    }
    EXPECT_GT(table->capacity, 5000);
    qx_long *lo[2], *hi[2], count[2];
    ASSERT_EQ(UTILmt_edge_table_get_free(table, &lo[0], &hi[0], &count[0]), 1);
    ASSERT_EQ(UTILmt_edge_table_free_str(band, &lo[1], &hi[1], &count[1]), 1);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(count[k], static_cast<qx_long>(wanted.size()));
        for (const auto &edge : wanted) {
            ASSERT_EQ(lo[k][edge.second], edge.first.first + 1000 * k);
            ASSERT_EQ(hi[k][edge.second], edge.first.second + 1000 * k);
        }
        free(lo[k]);
        free(hi[k]);
    }
}

TEST(ThreadEdges, WindowMovesOnAndForgetsWhatItLeavesBehind)
{
    mt_edge_table_str *band = UTILmt_edge_table_create_str(8, 16);
    EXPECT_EQ(add_str(band, 0, 1, 2), 0);
    EXPECT_EQ(add_str(band, 0, 5, 6), 1);
    const std::vector<int> before(band->heads, band->heads + 8);
    EXPECT_EQ(UTILmt_edge_table_clean(band, 4), 1);
    EXPECT_EQ(std::vector<int>(band->heads, band->heads + 4),
              std::vector<int>(before.begin() + 4, before.end()));
    EXPECT_EQ(std::vector<int>(band->heads + 4, band->heads + 8),
              std::vector<int>(before.begin() + 4, before.end()))
        << "the upper buckets keep what they held";
    EXPECT_EQ(add_str(band, 4, 6, 5), 1) << "still in the window";
    EXPECT_EQ(band->count, 2);
    EXPECT_EQ(add_str(band, 1, 1, 2), 2) << "left behind: a new id";
    EXPECT_EQ(band->lo[0], 1);
    EXPECT_EQ(UTILmt_edge_table_clean(band, 100), 1);
    EXPECT_EQ(std::count(band->heads, band->heads + 8, 0), 8);
    UTILmt_edge_table_delete_str(band);
}

TEST(ThreadEdges, TablesTheLibraryHasInCommonTearEachOtherDown)
{
    host_calls::watch watch;
    mt_edge_table *table = UTILmt_edge_table_create(10);
    add(table, 1, 2);
    UTILedge_table_delete(reinterpret_cast<edge_table *>(table));
    mt_edge_table_str *band = UTILmt_edge_table_create_str(10, 4);
    add_str(band, 0, 1, 2);
    UTILedge_table_delete_str(reinterpret_cast<edge_table_str *>(band));
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST(ThreadEdges, EmptyTablesHandOverLists)
{
    qx_long *lo = nullptr, *hi = nullptr, count = -7;
    EXPECT_EQ(UTILmt_edge_table_get_free(UTILmt_edge_table_create(3), &lo, &hi, &count), 1);
    EXPECT_NE(lo, nullptr);
    EXPECT_NE(hi, nullptr);
    EXPECT_EQ(count, 0);
    free(lo);
    free(hi);
}

TEST(ThreadEdges, WithoutMemoryThereIsNoTable)
{
    host_calls::watch watch;
    for (int k = 0; k < 5; ++k) {
        host_calls::fail_allocation(k);
        EXPECT_EQ(UTILmt_edge_table_create(10), nullptr) << k;
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
    for (int k = 0; k < 6; ++k) {
        host_calls::fail_allocation(k);
        EXPECT_EQ(UTILmt_edge_table_create_str(10, 4), nullptr) << k;
        EXPECT_EQ(watch.live_blocks(), 0) << k;
    }
}

TEST(ThreadEdges, WithoutMemoryToGrowNoEdgeIsMade)
{
    for (int k = 0; k < 3; ++k) {
        host_calls::watch watch;
        mt_edge_table *table = UTILmt_edge_table_create(4000);
        for (int e = 0; e < 1022; ++e)
            add(table, e, 4000);
        host_calls::fail_allocation(k);
        EXPECT_EQ(add(table, 1022, 4000), -1) << k;
        EXPECT_TRUE(host_calls::allocation_was_refused());
        EXPECT_EQ(table->count, 1022);
        EXPECT_EQ(add(table, 1022, 4000), 1022) << "there is memory again";
        EXPECT_EQ(add(table, 7, 4000), 7);
        UTILmt_edge_table_delete(table);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    for (int k = 0; k < 2; ++k) {
        host_calls::watch watch;
        mt_edge_table_str *band = UTILmt_edge_table_create_str(4000, 10);
        for (int e = 0; e < 8; ++e)
            add_str(band, 0, e, 4000);
        host_calls::fail_allocation(k);
        const qx_long a[] = {8, 9}, b[] = {4000, 4000};
        int ids[] = {-7, -7};
        EXPECT_EQ(UTILmt_edge_table_add_str(band, a, b, 0, 2, ids), 0) << k;
        EXPECT_EQ(ids[0], -1);
        EXPECT_EQ(ids[1], -7);
        UTILmt_edge_table_delete_str(band);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

} // namespace
