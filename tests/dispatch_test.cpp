// Every dispatcher on every mesh kind: with a function bound, that function gets the arguments as they came;
// with none bound, the promised report is made in the promised way.
#include "support/host_calls.hpp"
#include "support/meshes.hpp"

#include <skoklana.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

std::vector<meshes::mesh_ptr> mesh_of_each_kind()
{
    std::vector<meshes::mesh_ptr> made;
    made.push_back(meshes::mixed({CELL_HEX, CELL_TRI}, {1, 2}, 1, 1));
    made.push_back(meshes::curvilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1));
    made.push_back(meshes::rectilinear({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}, 1));
    made.push_back(meshes::uniform({3, 3, 3}, 3, {0, 0, 0}, {1, 1, 1}));
    return made;
}

// ---- functions to bind that remember their arguments ----------------------------------------------------------

template <typename Func> struct recording;

template <typename R, typename... Args> struct recording<R (*)(Args...)> {
    using arguments = std::tuple<Args...>;
    static inline std::vector<arguments> calls;
    static inline R result;

    static R function(Args... args)
    {
        calls.push_back(arguments(args...));
        return result;
    }
};

// The k-th argument of a call: a value that no other argument has.
template <typename T> T distinct(size_t k)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(uintptr_t{0x1000} + 16 * k);
    else if constexpr (std::is_same_v<T, double>)
        return 0.1 + static_cast<double>(k); // not a float
    else if constexpr (sizeof(T) == 8)
        return (T{1} << 40) + static_cast<T>(k);
    else
        return static_cast<T>(100 + k);
}

template <typename Tuple, size_t... k> Tuple distinct_arguments(std::index_sequence<k...>)
{
    return Tuple(distinct<std::tuple_element_t<k, Tuple>>(k)...);
}

template <typename Tuple> Tuple distinct_arguments()
{
    return distinct_arguments<Tuple>(std::make_index_sequence<std::tuple_size_v<Tuple>>());
}

template <typename R, typename... Args> std::tuple<Args...> arguments_of(R (*)(Args...));
template <typename R, typename... Args> R result_of(R (*)(Args...));

struct tail {
    template <typename First, typename... Rest>
    std::tuple<Rest...> operator()(const std::tuple<First, Rest...> &all) const
    {
        return std::apply([](First, Rest... rest) { return std::make_tuple(rest...); }, all);
    }
};

// What the bound function ought to see of the arguments of a call.
struct all_arguments {
    template <typename Tuple> Tuple operator()(const Tuple &given) const { return given; }
};
using all_but_the_mesh = tail;
struct all_and_a_zero {
    template <typename Tuple> auto operator()(const Tuple &given) const
    {
        return std::tuple_cat(given, std::make_tuple(0));
    }
};

struct report_on_stderr {
    std::string line;
};
using report_by_host = host_calls::report;

void expect_report(const report_on_stderr &wanted, const std::string &printed)
{
    EXPECT_EQ(printed, wanted.line);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

void expect_report(const report_by_host &wanted, const std::string &printed)
{
    EXPECT_EQ(printed, "");
    EXPECT_EQ(host_calls::seen().reports, std::vector<report_by_host>{wanted});
}

template <typename Dispatcher, typename Slot, typename Report, typename Seen = all_arguments>
void check(Dispatcher dispatcher, Slot mesh_methods::*slot, const Report &report, Seen seen = Seen())
{
    using bound = recording<Slot>;
    for (const meshes::mesh_ptr &made : mesh_of_each_kind()) {
        mesh_info *mesh = made->mesh;
        mesh_methods methods = *mesh->methods;
        mesh_methods *const own = std::exchange(mesh->methods, &methods);
        auto given = distinct_arguments<decltype(arguments_of(dispatcher))>();
        std::get<0>(given) = mesh;

        for (int result : {1, 0, -1, 12345}) {
            methods.*slot = bound::function;
            bound::calls.clear();
            bound::result = result;
            host_calls::reset();
            testing::internal::CaptureStderr();
            EXPECT_EQ(std::apply(dispatcher, given), result);
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
            EXPECT_TRUE(host_calls::seen().reports.empty());
            ASSERT_EQ(bound::calls.size(), 1u);
            EXPECT_TRUE(bound::calls[0] == typename bound::arguments(seen(given)));
        }

        methods = *own;
        methods.*slot = nullptr;
        bound::calls.clear();
        host_calls::reset();
        testing::internal::CaptureStderr();
        EXPECT_EQ(std::apply(dispatcher, given), 0);
        expect_report(report, testing::internal::GetCapturedStderr());
        EXPECT_TRUE(bound::calls.empty());
        mesh->methods = own;
    }
}

TEST(Dispatch, CoordList)
{
    check(UTILget_coord_list, &mesh_methods::coord_list_func,
          report_on_stderr{"UTILcoord_list_func: no coord_list function found\n"});
}
TEST(Dispatch, DataList)
{
    check(UTILget_data_list, &mesh_methods::data_list_func,
          report_on_stderr{"UTILdata_list_func: no data_list function found\n"});
}
TEST(Dispatch, Isosurf)
{
    check(UTILisosurf, &mesh_methods::isosurf_func,
          report_by_host{"UTILisosurf_func", 0, 2, "No isosurf function found"});
}
TEST(Dispatch, Isoline)
{
    check(UTILisoline, &mesh_methods::isoline_func,
          report_by_host{"UTILisoline", 0, 2, "no isoline function found"});
}
TEST(Dispatch, Cut)
{
    check(UTILcut, &mesh_methods::cut_func, report_by_host{"UTILcut", 0, 2, "no cut function found"});
}
TEST(Dispatch, EvalCoord)
{
    check(UTILeval_coord, &mesh_methods::eval_coord_func,
          report_on_stderr{"UTILeval_coord_func: no eval_coord function found\n"});
}
TEST(Dispatch, Glyph)
{
    check(UTILglyph_func, &mesh_methods::glyph_func,
          report_on_stderr{"UTILglyph_func: no glyph function found\n"});
}
TEST(Dispatch, ThreshNullAddsAZero)
{
    check(UTILthresh_null, &mesh_methods::thresh_null_func,
          report_on_stderr{"UTILthresh_null: no thresh_null function found\n"}, all_and_a_zero());
}
TEST(Dispatch, RsliceDropsTheMesh)
{
    check(UTILrslice, &mesh_methods::rslice_func,
          report_on_stderr{"UTILrslice_func: no rslice function found\n"}, all_but_the_mesh());
}
TEST(Dispatch, Grad)
{
    check(UTILgrad, &mesh_methods::grad_func, report_by_host{"UTILgrad", 0, 2, "no grad function found"});
}
TEST(Dispatch, Curl)
{
    check(UTILcurl, &mesh_methods::curl_func, report_by_host{"UTILcurl", 0, 2, "no curl function found"});
}
TEST(Dispatch, Div)
{
    check(UTILdiv, &mesh_methods::div_func, report_by_host{"UTILdiv", 0, 2, "no div function found"});
}
TEST(Dispatch, Deriv3d)
{
    check(UTILderiv_3d, &mesh_methods::deriv3d_func,
          report_on_stderr{"UTILderiv: no deriv3d function found\n"});
}
TEST(Dispatch, Deriv2d)
{
    check(UTILderiv_2d, &mesh_methods::deriv2d_func,
          report_on_stderr{"UTILderiv: no deriv2d function found\n"});
}
TEST(Dispatch, Contour)
{
    check(UTILcontour, &mesh_methods::contour_func,
          report_by_host{"UTILcontour", 0, 2, "no contour function found"});
}
TEST(Dispatch, CellToNode)
{
    check(UTILcell_to_node, &mesh_methods::cell_to_node_func,
          report_on_stderr{"UTILcell_to_node: no function found\n"});
}

TEST(Dispatch, RowCountsPassInFull)
{
    using bound = recording<decltype(mesh_methods::data_list_func)>;
    const meshes::mesh_ptr made = meshes::uniform({2, 2}, 2, {0, 0}, {1, 1});
    mesh_methods methods = *made->mesh->methods;
    mesh_methods *const own = std::exchange(made->mesh->methods, &methods);
    methods.data_list_func = bound::function;
    bound::result = (qx_long{3} << 32) + 5;
    EXPECT_EQ(UTILget_data_list(made->mesh, 4, 1, nullptr, 0, nullptr, nullptr), bound::result);
    made->mesh->methods = own;
}

// ---- what the host binds by name ------------------------------------------------------------------------------

TEST(Dispatch, EachKindRunsItsOwnForms)
{
    const std::vector<meshes::mesh_ptr> made = mesh_of_each_kind();
    const mesh_methods &cells = *made[0]->mesh->methods, &curved = *made[1]->mesh->methods,
                       &rect = *made[2]->mesh->methods, &unif = *made[3]->mesh->methods;
    EXPECT_EQ(cells.coord_list_func, UTILcoord_list);
    EXPECT_EQ(curved.coord_list_func, UTILcoord_list_struct);
    EXPECT_EQ(rect.coord_list_func, UTILcoord_list_rect);
    EXPECT_EQ(unif.coord_list_func, UTILcoord_list_unif);
    EXPECT_EQ(cells.data_list_func, UTILdata_list);
    for (const mesh_methods *methods : {&curved, &rect, &unif})
        EXPECT_EQ(methods->data_list_func, UTILdata_list_struct);
    EXPECT_EQ(cells.eval_coord_func, UTILeval_param_coord);
    EXPECT_EQ(curved.eval_coord_func, UTILeval_param_coord);
    EXPECT_EQ(rect.eval_coord_func, UTILeval_param_coord_rect);
    EXPECT_EQ(unif.eval_coord_func, UTILeval_param_coord_unif);
    EXPECT_EQ(cells.cell_extent_func, UTILcell_extent);
    EXPECT_EQ(curved.cell_extent_func, UTILcell_extent_struct);
    EXPECT_EQ(rect.cell_extent_func, UTILcell_extent_rect);
    EXPECT_EQ(unif.cell_extent_func, UTILcell_extent_unif);
}

TEST(Dispatch, CellSetsAndCurvilinearMeshesHaveNoRectilinearSlice)
{
    const std::vector<meshes::mesh_ptr> made = mesh_of_each_kind();
    for (int kind : {0, 1}) {
        mesh_info *mesh = made[static_cast<size_t>(kind)]->mesh;
        EXPECT_EQ(mesh->methods->rslice_func, nullptr);
        testing::internal::CaptureStderr();
        EXPECT_EQ(UTILrslice(mesh, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr,
                             nullptr, nullptr, nullptr),
                  0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "UTILrslice_func: no rslice function found\n");
    }
}

} // namespace
