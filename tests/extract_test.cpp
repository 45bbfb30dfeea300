// What holds for level surfaces and level lines of cell sets alike: the walk over a set and the road through a
// mesh, tried by way of both operations.
#include "extract.hpp"

#include "support/arrays.hpp"
#include "support/host_calls.hpp"
#include "support/levels.hpp"

#include <skoklana/host/tool.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

using levels::operation;

namespace {

// An operation, and what differs from the other one.
struct road {
    const char *name;
    operation what;
    std::vector<int> kinds;
    std::vector<slice_cell_func> kernels; // of the kinds; those below go by the last
    int nodes_each;                       // nodes of a primitive
    qx_long unit;                         // first size of every list, and cells of a block
    const char *module, *connect_module;  // of the reports
    std::vector<int> four_kinds;          // of a mesh that has all sorts of sets
    int across;                           // and enough cells for every list to grow

    int kind() const { return kinds.back(); }
    slice_cell_func kernel() const { return kernels.back(); }
    int ncorners() const { return cell_kinds[kind()].ncorners; }
    int ndim() const { return cell_kinds[kind()].ndim; }
    int sub_slot() const { return ndim() == 3 ? SLOT_SUB_SLICE : SLOT_SUB_ISOLINE; }

    std::vector<qx_long> cell() const // nodes by number
    {
        std::vector<qx_long> nodes;
        for (int c = 0; c < ncorners(); ++c)
            nodes.push_back(c);
        return nodes;
    }
    std::vector<unsigned char> one_above() const // one primitive
    {
        std::vector<unsigned char> flags(static_cast<size_t>(ncorners()), 0);
        flags[0] = 1;
        return flags;
    }

    std::vector<int> dims(int n) const { return std::vector<int>(static_cast<size_t>(ndim()), n); }

    qx_long made(const levels::output &out) const
    {
        return what == operation::isosurface ? out.ntri : out.nline;
    }

    levels::call call(const meshes::test_mesh &mesh, const std::vector<float> &data) const
    {
        return {mesh.mesh, data.data(), DTYPE_FLOAT, 0, nullptr, 0.5, what, true};
    }

    // One at least of which each comes where memory runs out.
    std::set<std::string> reports_without_memory() const
    {
        std::set<std::string> texts;
        for (const char *text :
             {": alloc for edge table failed", ": alloc for cell list failed", ": alloc for mesh copy failed",
              ": tesselation failed", ": realloc for cell list failed"})
            texts.insert(module + std::string(text));
        for (const char *text : {": alloc for connect list failed", ": realloc for connect list failed",
                                 ": realloc for edge table failed"})
            texts.insert(connect_module + std::string(text));
        return texts;
    }
};

const road surfaces = {"Surfaces",
                       operation::isosurface,
                       {CELL_TET, CELL_PYR, CELL_PRISM, CELL_HEX},
                       {UTILslice_tet, UTILslice_pyr, UTILslice_prism, UTILslice_hex},
                       3,
                       1024,
                       "UTILslice",
                       "UTILslice",
                       {CELL_HEX, CELL_QUAD, CELL_TET, CELL_TRI},
                       8};
const road lines = {"Lines",
                    operation::isoline,
                    {CELL_TRI, CELL_QUAD},
                    {UTILisoline_tri, UTILisoline_quad},
                    2,
                    1000,
                    "UTILisoline",
                    "isoline",
                    {CELL_QUAD, CELL_TRI, CELL_QUAD, CELL_TRI},
                    33};

qx_long *new_list(qx_long count)
{
    return static_cast<qx_long *>(ARRalloc_f(nullptr, DTYPE_QX_LONG, count, 0, "test", 0));
}

std::vector<float> noise(const meshes::test_mesh &mesh)
{
    return meshes::random_values<float>(5, mesh.nnodes(), 0, 1);
}

template <typename T> class ExtractionOfType : public testing::Test {
};
TYPED_TEST_SUITE(ExtractionOfType, arrays::all_types);

class Extraction : public testing::TestWithParam<const road *> {
  protected:
    void SetUp() override { host_calls::reset(); }
    const road &of = *GetParam();
};

INSTANTIATE_TEST_SUITE_P(Operations, Extraction, testing::Values(&surfaces, &lines),
                         [](const auto &p) { return p.param->name; });

// ---- against the reference -------------------------------------------------------------------------------

TYPED_TEST(ExtractionOfType, EveryKindAndOrderAgreesWithTheReference)
{
    using T = TypeParam;
    const T null_value = 77, level = 40;
    for (const road *of : {&surfaces, &lines})
        for (int kind : of->kinds)
            for (int order : {1, 2}) {
                const std::string where = "kind " + std::to_string(kind) + " order " + std::to_string(order);
                const std::vector<int> dims =
                    of->ndim() == 3 ? std::vector<int>{5, 4, 3} : std::vector<int>{9, 8};
                const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, order, dims, 1));
                const std::vector<T> data = levels::rough_values<T>(static_cast<uint64_t>(kind * 4 + order),
                                                                    mesh->nnodes(), level, null_value);
                for (double at : {40.0, 39.5}) {
                    qx_long made[2] = {0, 0};
                    for (bool nulls : {false, true})
                        for (bool with_maps : {false, true}) {
                            const levels::output got = levels::expect_reference<T>(
                                of->what, *mesh, data, at, nulls, null_value, with_maps, where);
                            made[nulls] = of->made(got);
                            EXPECT_GT(made[nulls], 20) << where;
                            EXPECT_EQ(static_cast<qx_long>(got.triangles.size() + got.lines.size()),
                                      of->nodes_each * made[nulls]);
                        }
                    EXPECT_GT(made[0], made[1]) << where << ": the nulls took no cell out";
                }
            }
}

// ---- single cells ----------------------------------------------------------------------------------------

TEST_P(Extraction, EveryCaseOfASingleCell)
{
    for (size_t k = 0; k < of.kinds.size(); ++k) {
        const int ncorners = cell_kinds[of.kinds[k]].ncorners;
        // Node numbers that don't rise with the corners, so that pairs need ordering.
        std::vector<qx_long> nodes;
        for (int c = 0; c < ncorners; ++c)
            nodes.push_back((5 * c + 3) % 11);
        for (int mask = 0; mask < 1 << ncorners; ++mask) {
            std::vector<unsigned char> flags(11, 0);
            for (int c = 0; c < ncorners; ++c)
                flags[static_cast<size_t>(nodes[static_cast<size_t>(c)])] = mask >> c & 1;
            levels::reference wanted(flags);
            qx_long made = 0;
            wanted.add_cell(of.kinds[k], nodes.data(), false, &made);

            levels::bare_set set(ncorners, of.ndim(), nodes);
            levels::kernel_call call(of.kernels[k], flags);
            ASSERT_EQ(call.run(&set.mesh), made) << mask;
            EXPECT_EQ(call.list(), of.ndim() == 3 ? wanted.result.triangles : wanted.result.lines) << mask;
            EXPECT_EQ(call.nodes(), wanted.result.nodes) << mask;
            EXPECT_EQ(made == 0, mask == 0 || mask == (1 << ncorners) - 1);
        }
    }
}

TEST_P(Extraction, NullsCountInAllNodesOfARowNotOnlyTheCorners)
{
    // Two rows with a node more than the kernel takes as corners.
    std::vector<qx_long> cells;
    for (qx_long last : {of.ncorners(), of.ncorners() + 1}) {
        const std::vector<qx_long> corners = of.cell();
        cells.insert(cells.end(), corners.begin(), corners.end());
        cells.push_back(last);
    }
    levels::bare_set set(of.ncorners() + 1, of.ndim(), cells);
    std::vector<unsigned char> flags = of.one_above();
    flags.insert(flags.end(), {2, 0});
    levels::kernel_call call(of.kernel(), flags);
    call.map = new_list(of.unit);
    EXPECT_EQ(call.run(&set.mesh, 1), 1);
    EXPECT_EQ(call.map[0], 1);
    levels::kernel_call no_nulls(of.kernel(), flags);
    EXPECT_EQ(no_nulls.run(&set.mesh, 0), 2);
}

// ---- a kernel's lists ------------------------------------------------------------------------------------

TEST_P(Extraction, AListOfCapacityZeroIsReplaced)
{
    host_calls::watch watch;
    {
        levels::bare_set set(of.ncorners(), of.ndim(), of.cell());
        levels::kernel_call call(of.kernel(), of.one_above());
        call.connect = new_list(4);
        call.used = 3;
        EXPECT_EQ(call.run(&set.mesh), 1);
        EXPECT_EQ(call.used, of.nodes_each);
        EXPECT_EQ(call.capacity, of.unit);

        levels::kernel_call none(of.kernel(), of.one_above());
        none.capacity = 500; // of a list that is not there
        EXPECT_EQ(none.run(&set.mesh), 1);
        EXPECT_EQ(none.used, of.nodes_each);
        EXPECT_EQ(none.capacity, of.unit);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_P(Extraction, AMapThatIsNotWantedMayBeNullOrHoldNull)
{
    levels::bare_set set(of.ncorners(), of.ndim(), of.cell());
    levels::kernel_call call(of.kernel(), of.one_above());
    qx_long *none = nullptr;
    EXPECT_EQ(of.kernel()(&set.mesh, 0, 0, call.flags, call.table, &call.connect, &call.used, &call.capacity,
                          &none),
              1);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(call.run(&set.mesh), 1);
}

TEST_P(Extraction, AKernelThatCannotGrowReleasesTableAndFlagsAndKeepsTheList)
{
    host_calls::watch watch;
    for (bool map : {false, true}) {
        host_calls::reset();
        levels::bare_set set(of.ncorners(), of.ndim(), levels::repeated(of.cell(), 2000));
        {
            levels::kernel_call call(of.kernel(), of.one_above());
            if (map) {
                // Room for all primitives, so that the map is what has to grow.
                call.connect = new_list(10000);
                call.capacity = 10000;
                call.used = 0;
                call.map = new_list(of.unit);
            }
            host_calls::fail_allocation(map ? 0 : 1); // without a list, beginning one comes first
            EXPECT_EQ(call.run(&set.mesh), 0);
            call.owned = false;
            EXPECT_EQ(host_calls::report_texts(),
                      std::vector<std::string>{map ? of.module + std::string(": realloc for cell list failed")
                                                   : of.connect_module +
                                                         std::string(": realloc for connect list failed")});
            ASSERT_NE(call.connect, nullptr);
            for (qx_long i = 0; i < call.used; ++i)
                ASSERT_LT(call.connect[i], of.nodes_each);
        }
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

// ---- connect lists from the host -------------------------------------------------------------------------

qx_long *list_to_fetch = nullptr;
int fetches = 0;

int fetch(mesh_info *, int, qx_long **connect)
{
    ++fetches;
    if (list_to_fetch == nullptr) return 0;
    *connect = list_to_fetch;
    return 1;
}

const std::vector<std::string> no_list = {"fld_info: unable to get cell set connect list"};

TEST_P(Extraction, KernelsFetchAConnectListOnce)
{
    levels::bare_set set(of.ncorners(), of.ndim(), of.cell());
    set.fetched = nullptr;
    set.mesh.get_connect = fetch;
    list_to_fetch = nullptr;
    fetches = 0;
    host_calls::watch watch;
    {
        levels::kernel_call call(of.kernel(), of.one_above());
        EXPECT_EQ(call.run(&set.mesh), 0);
        EXPECT_EQ(host_calls::report_texts(), no_list);
        EXPECT_EQ(call.connect, nullptr);
        EXPECT_EQ(call.flags[0], 1) << "flags and table are still the caller's";
        EXPECT_EQ(call.table->nedges, 0);
        list_to_fetch = set.connect.data();
        EXPECT_EQ(call.run(&set.mesh), 1);
        EXPECT_EQ(set.fetched, set.connect.data());
        EXPECT_EQ(call.run(&set.mesh), 1);
        EXPECT_EQ(fetches, 2);
    }
    EXPECT_EQ(watch.live_blocks(), 0);
}

TEST_P(Extraction, AMeshWhoseListCannotBeHadFailsCleanly)
{
    for (int order : {1, 2}) {
        host_calls::reset();
        const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({of.kinds[0], of.kind()}, {1, order}, 4, 1));
        const std::vector<float> data = noise(*mesh);
        qx_long *const first = mesh->connect[0].data(), *const second = mesh->connect[1].data();
        qx_long **const fetched = mesh->mesh->cell_connect;
        fetched[0] = first;
        fetched[1] = nullptr;
        mesh->mesh->get_connect = fetch;
        list_to_fetch = nullptr;
        {
            host_calls::watch watch;
            const levels::raw_output raw = levels::run_raw(of.call(*mesh, data));
            EXPECT_EQ(raw.status, 0);
            EXPECT_TRUE(raw.all_zero());
            EXPECT_EQ(raw.map_count[0], 0);
            EXPECT_EQ(raw.map[0], nullptr) << "the map of the set before is taken back";
            EXPECT_EQ(raw.map[1], nullptr);
            EXPECT_EQ(watch.live_blocks(), 0);
        }
        EXPECT_EQ(host_calls::report_texts(), no_list);
        EXPECT_EQ(host_calls::seen().depth, 0);
        EXPECT_EQ(fetched[0], first);
        EXPECT_EQ(fetched[1], nullptr);

        list_to_fetch = second;
        levels::expect_reference<float>(of.what, *mesh, data, 0.5, false, 0.0f, true, "the next call");
        EXPECT_EQ(fetched[1], second);
    }
}

TEST_P(Extraction, AnUnknownTypeFails)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::cells(of.kind(), 1, of.dims(1), 1));
    const std::vector<double> data(8, 0.0);
    for (int type : {-1, 7}) {
        host_calls::reset();
        host_calls::watch watch;
        const levels::raw_output raw =
            levels::run_raw({mesh->mesh, data.data(), type, 0, nullptr, 0.5, of.what});
        EXPECT_EQ(raw.status, 0);
        EXPECT_TRUE(raw.all_zero());
        EXPECT_EQ(host_calls::report_texts(),
                  std::vector<std::string>{"UTILthreshold_scalar: unknown data type"});
        EXPECT_EQ(watch.live_blocks(), 0);
    }
}

// ---- second order ----------------------------------------------------------------------------------------

TEST_P(Extraction, TheSetIsPutBack)
{
    for (int kind : of.kinds) {
        const int n = of.ndim() == 3 ? 11 : 33;
        const meshes::mesh_ptr mesh = levels::bind(meshes::cells(kind, 2, of.dims(n), 1));
        const qx_long count = mesh->mesh->cell_count[0];
        ASSERT_GT(count, of.unit);
        EXPECT_GT(of.made(levels::run(of.call(*mesh, noise(*mesh)))), 1000);
        EXPECT_EQ(mesh->mesh->cell_count[0], count);
        EXPECT_EQ(mesh->mesh->cell_connect[0], mesh->connect[0].data());
        EXPECT_EQ(mesh->mesh->cell_nnodes[0], cell_kinds[kind].nnodes_2);
    }
}

// Stand-ins for a block's tesselation and extraction: two cells from each, and as many primitives as the test says,
// of cells at random.
int two_cells_each(qx_long ncells, const qx_long *, qx_long *new_ncells, qx_long **new_connect,
                   int *new_nnodes)
{
    *new_ncells = 2 * ncells;
    *new_connect = nullptr;
    *new_nnodes = 4;
    return 1;
}

std::vector<qx_long> makes, made_of;

qx_long make_by_number(mesh_info *mesh, int set, int, unsigned char *, edge_table *, qx_long **, qx_long *,
                       qx_long *, qx_long **cell_map)
{
    static qx_long anything = 0;
    const qx_long made = makes.front();
    makes.erase(makes.begin());
    free(*cell_map);
    *cell_map = static_cast<qx_long *>(malloc(static_cast<size_t>(made) * sizeof(qx_long) + 1));
    for (qx_long i = 0; i < made; ++i) {
        (*cell_map)[i] = (anything += 7) % mesh->cell_count[set];
        made_of.push_back((*cell_map)[i]);
    }
    return made;
}

// A set's map has a unit of entries at first and is brought to a unit more than the whole units that hold all
// of it so far, and one more.
TEST_P(Extraction, MapsOfBlocksGrowByUnits)
{
    const qx_long u = of.unit;
    const struct {
        std::vector<qx_long> makes, sizes;
    } sequences[] = {{{u - 1}, {}},
                     {{u}, {3 * u}},
                     {{u - 1, 1}, {3 * u}},
                     {{0, u - 1, 0, 1}, {3 * u}},
                     {{2 * u - 1, 1, u - 1, 1}, {3 * u, 4 * u, 4 * u, 5 * u}},
                     {{7 * u + 5, 0, 3}, {9 * u, 9 * u, 9 * u}}};
    for (const auto &sequence : sequences) {
        host_calls::reset();
        const qx_long nblocks = static_cast<qx_long>(sequence.makes.size());
        levels::bare_set set(10, of.ndim(), {});
        set.order = 2;
        set.count = u * (nblocks - 1) + 10;
        set.row[SLOT_TESSELATE] = reinterpret_cast<cell_func>(two_cells_each);
        set.row[static_cast<size_t>(of.sub_slot())] = reinterpret_cast<cell_func>(make_by_number);
        makes = sequence.makes;
        made_of.clear();
        const float value = 0;
        host_calls::watch watch;
        const levels::output got =
            levels::run({&set.mesh, &value, DTYPE_FLOAT, 0, nullptr, 0.5, of.what, true});
        EXPECT_EQ(watch.live_blocks(), 0);
        EXPECT_EQ(got.status, 1);
        std::vector<qx_long> wanted;
        size_t next = 0;
        for (size_t block = 0; block < sequence.makes.size(); ++block)
            for (qx_long i = 0; i < sequence.makes[block]; ++i, ++next)
                wanted.push_back(made_of[next] / 2 + u * static_cast<qx_long>(block));
        EXPECT_TRUE(got.maps[0] == wanted);
        EXPECT_EQ(host_calls::resized_counts(), sequence.sizes);
        for (const host_calls::array &array : host_calls::seen().arrays) {
            EXPECT_EQ(array.type, DTYPE_QX_LONG);
            EXPECT_TRUE(array.resized || array.count == u || array.count == 1024); // maps; new nodes
        }
    }
}

// ---- kernels that give up --------------------------------------------------------------------------------

int calls_made = 0, gives_up_at = -1;

// Makes nothing, or gives up as an interrupted kernel does: with all that it was given released.
qx_long make_nothing(mesh_info *, int, int, unsigned char *flags, edge_table *table, qx_long **connect,
                     qx_long *, qx_long *, qx_long **)
{
    if (calls_made++ != gives_up_at) return 0;
    UTILedge_table_delete(table);
    free(flags);
    ARRfree_f(*connect, "test", 0);
    return -1;
}

TEST_P(Extraction, AKernelThatGivesUpEndsTheCallInTheMiddleOfASet)
{
    const int n = of.ndim() == 3 ? 11 : 35;
    const meshes::mesh_ptr mesh =
        levels::bind(meshes::mixed({of.kind(), of.kind(), of.kind()}, {1, 2, 1}, n, 1));
    const qx_long count = mesh->mesh->cell_count[1];
    ASSERT_GT(count, of.unit);
    mesh->mesh->cell_funcs[CELL_METHOD_SLOTS + of.sub_slot()] = reinterpret_cast<cell_func>(make_nothing);
    const std::vector<float> data = noise(*mesh);
    for (int block : {0, 1}) {
        host_calls::reset();
        calls_made = 0;
        gives_up_at = block;
        host_calls::watch watch;
        const levels::raw_output raw = levels::run_raw(of.call(*mesh, data));
        EXPECT_EQ(raw.status, 0);
        EXPECT_TRUE(raw.all_zero());
        for (qx_long *map : raw.map)
            EXPECT_EQ(map, nullptr);
        EXPECT_EQ(raw.map_count[0], 0) << "the map of the set before is taken back";
        EXPECT_EQ(calls_made, block + 1);
        EXPECT_EQ(watch.live_blocks(), 0);
        EXPECT_EQ(host_calls::seen().depth, 0);
        EXPECT_EQ(mesh->mesh->cell_connect[1], mesh->connect[1].data());
        EXPECT_EQ(mesh->mesh->cell_count[1], count);
    }
}

// ---- kernels that hand on ---------------------------------------------------------------------------------

slice_cell_func handed_on_to = nullptr;
const levels::call *called_inside = nullptr;

// A host's own function around a kernel of the library, which knows nothing of failures.
qx_long hand_on(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map)
{
    const qx_long made = handed_on_to(mesh, set, null_flag, flags, table, connect, used, capacity, cell_map);
    if (called_inside != nullptr) levels::run_raw(*called_inside).release();
    return made;
}

// The same, and it takes what failed for an empty part of its set.
qx_long hand_on_and_add(mesh_info *mesh, int set, int null_flag, unsigned char *flags, edge_table *table,
                        qx_long **connect, qx_long *used, qx_long *capacity, qx_long **cell_map)
{
    const qx_long made = hand_on(mesh, set, null_flag, flags, table, connect, used, capacity, cell_map);
    return made < 0 ? made : made + 1;
}

TEST_P(Extraction, AFailureInsideAHostsOwnFunctionEndsTheCall)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({of.kind(), of.kind()}, {1, 2}, of.across, 1));
    const meshes::mesh_ptr other = levels::bind(meshes::cells(of.kind(), 1, of.dims(2), 1));
    const std::vector<float> data = noise(*mesh), other_data = noise(*other);
    const levels::call inside = of.call(*other, other_data);
    const levels::call call = of.call(*mesh, data);
    const levels::output clean = levels::run(call);

    cell_func *const row = mesh->mesh->cell_funcs;
    const int slot = of.ndim() == 3 ? SLOT_SLICE : SLOT_ISOLINE;
    for (const slice_cell_func wrapper : {hand_on, hand_on_and_add})
        for (int set : {0, 1}) {
            cell_func *const bound = row + set * CELL_METHOD_SLOTS + (set == 0 ? slot : of.sub_slot());
            const cell_func own = *bound;
            handed_on_to = reinterpret_cast<slice_cell_func>(own);
            *bound = reinterpret_cast<cell_func>(wrapper);
            for (bool nested : {false, true}) {
                called_inside = nested ? &inside : nullptr;
                host_calls::reset();
                int nallocations = 0;
                {
                    host_calls::watch watch;
                    levels::raw_output raw = levels::run_raw(call);
                    nallocations = watch.allocations();
                    EXPECT_EQ(raw.status, 1);
                    raw.release();
                }
                EXPECT_TRUE(wrapper != hand_on || levels::run(call) == clean);
                for (int k = 0; k < nallocations; ++k) {
                    host_calls::reset();
                    host_calls::watch watch;
                    host_calls::fail_allocation(k);
                    levels::raw_output raw = levels::run_raw(call);
                    ASSERT_TRUE(host_calls::allocation_was_refused());
                    if (raw.status == 1) {
                        // Asked again, or refused to the call inside, which then has reported.
                        EXPECT_EQ(host_calls::seen().out_of_memory.size() + host_calls::seen().reports.size(),
                                  1u)
                            << k;
                        EXPECT_EQ(raw.nnodes, static_cast<qx_long>(clean.nodes.size())) << k;
                        EXPECT_GE(of.what == operation::isosurface ? raw.ntri_conn : raw.nline_conn,
                                  static_cast<qx_long>(of.nodes_each) * of.made(clean));
                        raw.release();
                    } else {
                        EXPECT_TRUE(raw.all_zero()) << k;
                        EXPECT_EQ(host_calls::seen().reports.size(), 1u) << k;
                    }
                    ASSERT_EQ(watch.live_blocks(), 0) << k;
                    EXPECT_EQ(host_calls::seen().depth, 0) << k;
                }
            }
            *bound = own;
        }
    called_inside = nullptr;
    host_calls::reset();
    EXPECT_TRUE(levels::run(call) == clean);
}

TEST(ExtractionOfSurfaces, AnInterruptionInsideAHostsOwnFunctionEndsTheCall)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({CELL_HEX, CELL_HEX}, {1, 2}, 8, 1));
    const std::vector<float> data = noise(*mesh);
    const levels::call call = surfaces.call(*mesh, data);
    cell_func *const bound = mesh->mesh->cell_funcs + SLOT_SLICE;
    handed_on_to = reinterpret_cast<slice_cell_func>(*bound);
    *bound = reinterpret_cast<cell_func>(hand_on);
    for (int k = 0; k < 2; ++k) {
        host_calls::reset();
        host_calls::interrupt_at(k);
        host_calls::watch watch;
        const levels::raw_output raw = levels::run_raw(call);
        EXPECT_EQ(raw.status, 0);
        EXPECT_TRUE(raw.all_zero());
        EXPECT_EQ(watch.live_blocks(), 0);
        EXPECT_TRUE(host_calls::seen().reports.empty());
        EXPECT_EQ(host_calls::seen().depth, 0);
    }
}

// ---- memory ----------------------------------------------------------------------------------------------

TEST_P(Extraction, EachAllocationRefusedInTurn)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed(of.four_kinds, {1, 1, 2, 2}, of.across, 1));
    const std::vector<float> data = noise(*mesh);
    const levels::call call = of.call(*mesh, data);
    int nallocations = 0;
    levels::output clean;
    {
        host_calls::watch watch;
        const levels::raw_output raw = levels::run_raw(call);
        nallocations = watch.allocations();
        clean = levels::taken(raw);
        EXPECT_EQ(watch.live_blocks(), 0);
    }
    for (const host_calls::array &array : host_calls::seen().arrays)
        EXPECT_EQ(array.type, DTYPE_QX_LONG);
    ASSERT_GT(nallocations, 30);
    std::set<std::string> texts;
    int retried = 0;
    for (int k = 0; k < nallocations; ++k) {
        host_calls::reset();
        host_calls::watch watch;
        host_calls::fail_allocation(k);
        const levels::raw_output raw = levels::run_raw(call);
        ASSERT_TRUE(host_calls::allocation_was_refused()) << k;
        if (raw.status == 1) { // asked again
            EXPECT_EQ(host_calls::seen().out_of_memory, std::vector<std::string>{"Cannot alloc flags array"})
                << k;
            EXPECT_TRUE(host_calls::seen().reports.empty()) << k;
            EXPECT_TRUE(levels::taken(raw) == clean) << k;
            ++retried;
        } else {
            EXPECT_EQ(raw.status, 0) << k;
            EXPECT_TRUE(raw.all_zero()) << k;
            for (qx_long *map : raw.map)
                EXPECT_EQ(map, nullptr) << k;
            ASSERT_EQ(host_calls::seen().reports.size(), 1u) << k;
            EXPECT_EQ(host_calls::seen().reports[0].zero, 0);
            EXPECT_EQ(host_calls::seen().reports[0].severity, 2);
            texts.insert(host_calls::report_texts()[0]);
        }
        EXPECT_EQ(watch.live_blocks(), 0) << k;
        EXPECT_EQ(host_calls::seen().depth, 0) << k;
        for (size_t set = 0; set < mesh->kinds.size(); ++set)
            EXPECT_EQ(mesh->mesh->cell_connect[set], mesh->connect[set].data()) << k;
    }
    EXPECT_EQ(retried, 1);
    std::set<std::string> wanted = of.reports_without_memory();
    if (&of == &surfaces) // with lines by the kernels of the other
        for (const char *text :
             {"isoline: realloc for connect list failed", "isoline: alloc for connect list failed",
              "isoline: realloc for edge table failed", "UTILisoline: realloc for cell list failed"})
            if (texts.count(text) != 0) wanted.insert(text);
    EXPECT_EQ(texts, wanted);
    host_calls::reset();
    EXPECT_TRUE(levels::run(call) == clean);
}

TEST_P(Extraction, NoMapsNoMapLists)
{
    const meshes::mesh_ptr mesh = levels::bind(meshes::mixed({of.kind(), of.kinds[0]}, {1, 2}, 2, 1));
    const std::vector<float> data(static_cast<size_t>(mesh->nnodes()), 0.0f);
    levels::call call = of.call(*mesh, data);
    call.with_maps = false;
    host_calls::watch watch;
    levels::run(call);
    const int without = watch.allocations();
    call.with_maps = true;
    levels::run(call);
    EXPECT_EQ(watch.allocations() - without, without + 3) << "one a set and one a block";
}

} // namespace
