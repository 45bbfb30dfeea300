// The table of named functions, held against the list of all rows that hosts count on.
//
// A row is due as soon as its function exists: every function of the list is referred to weakly, so that the
// linker says which ones there are.

#include "support/host_calls.hpp"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

extern "C" int FLD_METHinit(void);

// Rows in order: name and function.
// clang-format off
#define ALL_ROWS(X) \
    X(interp_init_func, UTILinterp_init)                   \
    X(interp_init_func_struct, UTILinterp_init_struct)     \
    X(interp_init_func_unif, UTILinterp_init_unif)         \
    X(interp_init_func_rect, UTILinterp_init_rect)         \
    X(find_cell_func, UTILfind_cell)                       \
    X(find_cell_func_struct, UTILfind_cell)                \
    X(find_cell_func_unif, UTILfind_cell_unif)             \
    X(find_cell_func_rect, UTILfind_cell_rect)             \
    X(interp_cell_func, UTILinterp_cell_uvw)               \
    X(interp_cell_func_struct, UTILinterp_cell_uvw_struct) \
    X(interp_cell_func_unif, UTILinterp_cell_uvw_unif)     \
    X(interp_cell_func_rect, UTILinterp_cell_uvw_rect)     \
    X(interp_data_func, UTILinterp_cell_val)               \
    X(interp_data_func_struct, UTILinterp_cell_val_struct) \
    X(interp_data_func_unif, UTILinterp_cell_val_struct)   \
    X(interp_data_func_rect, UTILinterp_cell_val_struct)   \
    X(cell_extent_func, UTILcell_extent)                   \
    X(cell_extent_func_struct, UTILcell_extent_struct)     \
    X(cell_extent_func_unif, UTILcell_extent_unif)         \
    X(cell_extent_func_rect, UTILcell_extent_rect)         \
    X(coord_list_func, UTILcoord_list)                     \
    X(coord_list_func_struct, UTILcoord_list_struct)       \
    X(coord_list_func_unif, UTILcoord_list_unif)           \
    X(coord_list_func_rect, UTILcoord_list_rect)           \
    X(data_list_func, UTILdata_list)                       \
    X(data_list_func_struct, UTILdata_list_struct)         \
    X(data_list_func_unif, UTILdata_list_struct)           \
    X(data_list_func_rect, UTILdata_list_struct)           \
    X(isosurf_func, UTILslice_cells)                       \
    X(isosurf_func_struct, UTILslice_struct)               \
    X(isosurf_func_unif, UTILslice_struct)                 \
    X(isosurf_func_rect, UTILslice_struct)                 \
    X(isoline_func, UTILisoline_cells)                     \
    X(isoline_func_struct, UTILisoline_struct)             \
    X(isoline_func_unif, UTILisoline_struct)               \
    X(isoline_func_rect, UTILisoline_struct)               \
    X(rslice_func_unif, UTILrslice_unif)                   \
    X(rslice_func_rect, UTILrslice_rect)                   \
    X(cut_func, UTILcut_cells)                             \
    X(cut_func_struct, UTILcut_struct)                     \
    X(cut_func_unif, UTILcut_struct)                       \
    X(cut_func_rect, UTILcut_struct)                       \
    X(contour_func, UTILcontour_cells)                     \
    X(contour_func_struct, UTILcontour_struct)             \
    X(contour_func_unif, UTILcontour_struct)               \
    X(contour_func_rect, UTILcontour_struct)               \
    X(grad_func, UTILgrad_cells)                           \
    X(grad_func_struct, UTILgrad_struct)                   \
    X(grad_func_unif, UTILgrad_unif)                       \
    X(grad_func_rect, UTILgrad_rect)                       \
    X(curl_func, UTILcurl_cells)                           \
    X(curl_func_struct, UTILcurl_struct)                   \
    X(curl_func_unif, UTILcurl_unif)                       \
    X(curl_func_rect, UTILcurl_rect)                       \
    X(div_func, UTILdiv_cells)                             \
    X(div_func_struct, UTILdiv_struct)                     \
    X(div_func_unif, UTILdiv_unif)                         \
    X(div_func_rect, UTILdiv_rect)                         \
    X(deriv3d_func, UTILderiv_cell_3d)                     \
    X(deriv3d_func_struct, UTILderiv_struct_3d)            \
    X(deriv3d_func_unif, UTILderiv_unif_3d)                \
    X(deriv3d_func_rect, UTILderiv_rect_3d)                \
    X(deriv2d_func, UTILderiv_cell_2d)                     \
    X(deriv2d_func_struct, UTILderiv_struct_2d)            \
    X(deriv2d_func_unif, UTILderiv_unif_2d)                \
    X(deriv2d_func_rect, UTILderiv_rect_2d)                \
    X(thresh_null_func, UTILthresh_null_cells)             \
    X(thresh_null_func_struct, UTILthresh_null_struct)     \
    X(thresh_null_func_unif, UTILthresh_null_struct)       \
    X(thresh_null_func_rect, UTILthresh_null_struct)       \
    X(eval_coord_func, UTILeval_param_coord)               \
    X(eval_coord_func_struct, UTILeval_param_coord)        \
    X(eval_coord_func_unif, UTILeval_param_coord_unif)     \
    X(eval_coord_func_rect, UTILeval_param_coord_rect)     \
    X(glyph_func, UTILglyph)                               \
    X(glyph_func_struct, UTILglyph)                        \
    X(glyph_func_unif, UTILglyph_unif)                     \
    X(glyph_func_rect, UTILglyph_rect)                     \
    X(curl_func, UTILcurl_cells)                           \
    X(curl_func_struct, UTILcurl_struct)                   \
    X(curl_func_unif, UTILcurl_unif)                       \
    X(curl_func_rect, UTILcurl_rect)                       \
    X(div_func, UTILdiv_cells)                             \
    X(div_func_struct, UTILdiv_struct)                     \
    X(div_func_unif, UTILdiv_unif)                         \
    X(div_func_rect, UTILdiv_rect)                         \
    X(cell_to_node_func, UTILcell_to_node_cells)           \
    X(cell_to_node_func_struct, UTILcell_to_node_struct)   \
    X(cell_to_node_func_unif, UTILcell_to_node_struct)     \
    X(cell_to_node_func_rect, UTILcell_to_node_struct)     \
    X(shape_func_line_1, UTILsh_func_line_1)               \
    X(shape_deriv_line_1, UTILsh_deriv_line_1)             \
    X(rev_par_line_1, UTILrev_par_line_1)                  \
    X(cut_cell_line_1, UTILcut_line)                       \
    X(vol_integr_line_1, UTILvol_integr_cell_line)         \
    X(shape_func_line_2, UTILsh_func_line_2)               \
    X(shape_deriv_line_2, UTILsh_deriv_line_2)             \
    X(rev_par_line_2, UTILrev_par_line_2)                  \
    X(tesselate_line_2, UTILtesselate_line_2)              \
    X(shape_func_tri_1, UTILsh_func_tri_1)                 \
    X(shape_deriv_tri_1, UTILsh_deriv_tri_1)               \
    X(rev_par_tri_1, UTILrev_par_tri_1)                    \
    X(cut_cell_tri_1, UTILcut_tri)                         \
    X(contour_cell_tri_1, UTILcontour_tri)                 \
    X(isoline_tri_1, UTILisoline_tri)                      \
    X(vol_integr_tri_1, UTILvol_integr_cell_tri)           \
    X(shape_func_tri_2, UTILsh_func_tri_2)                 \
    X(shape_deriv_tri_2, UTILsh_deriv_tri_2)               \
    X(rev_par_tri_2, UTILrev_par_tri_2)                    \
    X(tesselate_tri_2, UTILtesselate_tri_2)                \
    X(shape_func_quad_1, UTILsh_func_quad_1)               \
    X(shape_deriv_quad_1, UTILsh_deriv_quad_1)             \
    X(rev_par_quad_1, UTILrev_par_quad_1)                  \
    X(cut_cell_quad_1, UTILcut_quad)                       \
    X(contour_cell_quad_1, UTILcontour_quad)               \
    X(isoline_quad_1, UTILisoline_quad)                    \
    X(vol_integr_quad_1, UTILvol_integr_cell_quad)         \
    X(shape_func_quad_2, UTILsh_func_quad_2)               \
    X(shape_deriv_quad_2, UTILsh_deriv_quad_2)             \
    X(rev_par_quad_2, UTILrev_par_quad_2)                  \
    X(tesselate_quad_2, UTILtesselate_quad_2)              \
    X(shape_func_hex_1, UTILsh_func_hex_1)                 \
    X(shape_deriv_hex_1, UTILsh_deriv_hex_1)               \
    X(rev_par_hex_1, UTILrev_par_hex_1)                    \
    X(slice_cell_hex_1, UTILslice_hex)                     \
    X(cut_cell_hex_1, UTILcut_hex)                         \
    X(contour_cell_hex_1, UTILcontour_hex)                 \
    X(vol_integr_hex_1, UTILvol_integr_cell_hex)           \
    X(shape_func_hex_2, UTILsh_func_hex_2)                 \
    X(shape_deriv_hex_2, UTILsh_deriv_hex_2)               \
    X(rev_par_hex_2, UTILrev_par_hex_2)                    \
    X(tesselate_hex_2, UTILtesselate_hex_2)                \
    X(shape_func_tet_1, UTILsh_func_tet_1)                 \
    X(shape_deriv_tet_1, UTILsh_deriv_tet_1)               \
    X(rev_par_tet_1, UTILrev_par_tet_1)                    \
    X(slice_cell_tet_1, UTILslice_tet)                     \
    X(cut_cell_tet_1, UTILcut_tet)                         \
    X(contour_cell_tet_1, UTILcontour_tet)                 \
    X(vol_integr_tet_1, UTILvol_integr_cell_tet)           \
    X(shape_func_tet_2, UTILsh_func_tet_2)                 \
    X(shape_deriv_tet_2, UTILsh_deriv_tet_2)               \
    X(rev_par_tet_2, UTILrev_par_tet_2)                    \
    X(tesselate_tet_2, UTILtesselate_tet_2)                \
    X(shape_func_prism_1, UTILsh_func_pent_1)              \
    X(shape_deriv_prism_1, UTILsh_deriv_pent_1)            \
    X(rev_par_prism_1, UTILrev_par_pent_1)                 \
    X(slice_cell_prism_1, UTILslice_prism)                 \
    X(cut_cell_prism_1, UTILcut_prism)                     \
    X(contour_cell_prism_1, UTILcontour_prism)             \
    X(vol_integr_prism_1, UTILvol_integr_cell_prism)       \
    X(shape_func_prism_2, UTILsh_func_pent_2)              \
    X(shape_deriv_prism_2, UTILsh_deriv_pent_2)            \
    X(rev_par_prism_2, UTILrev_par_pent_2)                 \
    X(tesselate_prism_2, UTILtesselate_prism_2)            \
    X(shape_func_pyr_1, UTILsh_func_pyr_1)                 \
    X(shape_deriv_pyr_1, UTILsh_deriv_pyr_1)               \
    X(rev_par_pyr_1, UTILrev_par_pyr_1)                    \
    X(slice_cell_pyr_1, UTILslice_pyr)                     \
    X(cut_cell_pyr_1, UTILcut_pyr)                         \
    X(contour_cell_pyr_1, UTILcontour_pyr)                 \
    X(tesselate_pyr_2, UTILtesselate_pyr_2)
// clang-format on

#define DECLARE_WEAKLY(name, function) extern "C" __attribute__((weak)) void function(void);
ALL_ROWS(DECLARE_WEAKLY)

namespace {

struct row {
    std::string name, function;
    void (*address)(void); // null: the library has no such function yet
};

const std::vector<row> &all_rows()
{
#define ONE_ROW(name, function) {#name, #function, function},
    static const std::vector<row> rows = {ALL_ROWS(ONE_ROW)};
#undef ONE_ROW
    return rows;
}

std::vector<OM_named_func> handed_over()
{
    host_calls::reset();
    EXPECT_EQ(FLD_METHinit(), 1);
    return {host_calls::named_funcs(), host_calls::named_funcs() + host_calls::named_func_count()};
}

TEST(NamedFunctions, ThereAre161Rows)
{
    EXPECT_EQ(all_rows().size(), 161u);
    EXPECT_EQ(all_rows()[36].name, "rslice_func_unif");
    EXPECT_EQ(all_rows()[90].name, "shape_func_line_1");
    EXPECT_EQ(all_rows()[160].name, "tesselate_pyr_2");
}

TEST(NamedFunctions, EveryFunctionThatExistsHasItsRowsInOrder)
{
    std::vector<row> due;
    std::set<std::string> missing;
    for (const row &r : all_rows()) {
        if (r.address != nullptr)
            due.push_back(r);
        else
            missing.insert(r.function);
    }
    const std::vector<OM_named_func> table = handed_over();
    for (size_t i = 0; i < table.size() && i < due.size(); ++i) {
        ASSERT_STREQ(table[i].name, due[i].name.c_str()) << "row " << i << ", bound to " << due[i].function;
        EXPECT_EQ(table[i].func, due[i].address) << due[i].name << " is not bound to " << due[i].function;
    }
    EXPECT_EQ(table.size(), due.size());

    const int nmissing = static_cast<int>(all_rows().size() - due.size());
    RecordProperty("missing_rows", nmissing);
    std::cout << nmissing << " of " << all_rows().size() << " rows still to come";
    for (const std::string &function : missing)
        std::cout << (function == *missing.begin() ? ": " : ", ") << function;
    std::cout << "\n";
}

TEST(NamedFunctions, NameThatStandsTwiceBindsTheSameFunction)
{
    std::map<std::string, std::string> function_of;
    int twice = 0;
    for (const row &r : all_rows()) {
        const auto added = function_of.insert({r.name, r.function});
        twice += !added.second;
        EXPECT_EQ(added.first->second, r.function) << r.name;
    }
    EXPECT_EQ(twice, 8);

    std::map<std::string, void (*)(void)> address_of;
    for (const OM_named_func &f : handed_over())
        EXPECT_EQ(address_of.insert({f.name, f.func}).first->second, f.func) << f.name;
}

TEST(NamedFunctions, FormsSharedByKindsAreTheSameFunction)
{
    std::map<std::string, std::string> function_of;
    for (const row &r : all_rows())
        function_of[r.name] = r.function;
    EXPECT_EQ(function_of["find_cell_func_struct"], "UTILfind_cell");
    EXPECT_EQ(function_of["interp_data_func_rect"], "UTILinterp_cell_val_struct");
    EXPECT_EQ(function_of["data_list_func_unif"], "UTILdata_list_struct");
    EXPECT_EQ(function_of["eval_coord_func_struct"], "UTILeval_param_coord");
    EXPECT_EQ(function_of["glyph_func_struct"], "UTILglyph");
    EXPECT_EQ(function_of["shape_func_prism_2"], "UTILsh_func_pent_2");
    EXPECT_EQ(function_of["tesselate_prism_2"], "UTILtesselate_prism_2");
}

TEST(NamedFunctions, OperationsThatAKindDoesNotHaveAreNotNamed)
{
    std::set<std::string> names;
    for (const row &r : all_rows())
        names.insert(r.name);
    for (const char *none : {"rslice_func", "rslice_func_struct", "vol_integr_pyr_1", "shape_func_pyr_2",
                             "rev_par_pyr_2", "contour_cell_line_1", "isoline_line_1", "slice_cell_tri_1",
                             "slice_cell_quad_1", "slice_cell_line_1"})
        EXPECT_EQ(names.count(none), 0u) << none;
}

TEST(NamedFunctions, EachCallHandsOverTheSameTable)
{
    handed_over();
    const OM_named_func *first = host_calls::named_funcs();
    const int count = host_calls::named_func_count();
    handed_over();
    EXPECT_EQ(host_calls::named_funcs(), first);
    EXPECT_EQ(host_calls::named_func_count(), count);
}

TEST(NamedFunctions, ArgumentsAreIgnored)
{
    using with_arguments = int (*)(void *, int, const char *);
    host_calls::reset();
    EXPECT_EQ(
        reinterpret_cast<with_arguments>(reinterpret_cast<void (*)(void)>(FLD_METHinit))(nullptr, 7, "x"), 1);
    EXPECT_TRUE(host_calls::seen().reports.empty());
}

} // namespace
