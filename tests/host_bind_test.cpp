// Binding names to slots. A stand-in for the library hands over a function of its own under every name that
// the library has, so that each slot tells which name it was bound to.
#include "registry.hpp"
#include "support/meshes.hpp"

#include <skoklana/host/om.h>

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <string>
#include <utility>

namespace {

template <int> void marked() {}

template <int... I> std::array<cell_func, sizeof...(I)> all_marked(std::integer_sequence<int, I...>)
{
    return {{marked<I>...}};
}

const std::array<cell_func, 200> functions = all_marked(std::make_integer_sequence<int, 200>());

// Operations of meshes by slot, and the kinds of mesh that have them: cells, _struct, _unif, _rect.
const struct {
    const char *stem;
    bool has[4];
} mesh_names[] = {
    {"interp_init_func", {true, true, true, true}},  {"find_cell_func", {true, true, true, true}},
    {"interp_cell_func", {true, true, true, true}},  {"interp_data_func", {true, true, true, true}},
    {"cell_extent_func", {true, true, true, true}},  {"coord_list_func", {true, true, true, true}},
    {"data_list_func", {true, true, true, true}},    {"isosurf_func", {true, true, true, true}},
    {"isoline_func", {true, true, true, true}},      {"cut_func", {true, true, true, true}},
    {"eval_coord_func", {true, true, true, true}},   {"glyph_func", {true, true, true, true}},
    {"thresh_null_func", {true, true, true, true}},  {"rslice_func", {false, false, true, true}},
    {"grad_func", {true, true, true, true}},         {"curl_func", {true, true, true, true}},
    {"div_func", {true, true, true, true}},          {"deriv3d_func", {true, true, true, true}},
    {"deriv2d_func", {true, true, true, true}},      {"contour_func", {true, true, true, true}},
    {"cell_to_node_func", {true, true, true, true}},
};
const char *const suffixes[4] = {"", "_struct", "_unif", "_rect"};

// Functions of cells by kind and order, in slot order; nullptr: the library has none.
using row_names = std::array<const char *, 13>;
const row_names cell_names[CELL_KINDS][2] = {
    {{"shape_func_line_1", "shape_deriv_line_1", "rev_par_line_1", nullptr, "cut_cell_line_1", nullptr,
      "vol_integr_line_1"},
     {"shape_func_line_2", "shape_deriv_line_2", "rev_par_line_2", nullptr, nullptr, nullptr, nullptr,
      nullptr, "tesselate_line_2", nullptr, "cut_cell_line_1"}},
    {{"shape_func_tri_1", "shape_deriv_tri_1", "rev_par_tri_1", nullptr, "cut_cell_tri_1", "isoline_tri_1",
      "vol_integr_tri_1", "contour_cell_tri_1"},
     {"shape_func_tri_2", "shape_deriv_tri_2", "rev_par_tri_2", nullptr, nullptr, nullptr, nullptr, nullptr,
      "tesselate_tri_2", nullptr, "cut_cell_tri_1", "isoline_tri_1", "contour_cell_tri_1"}},
    {{"shape_func_quad_1", "shape_deriv_quad_1", "rev_par_quad_1", nullptr, "cut_cell_quad_1",
      "isoline_quad_1", "vol_integr_quad_1", "contour_cell_quad_1"},
     {"shape_func_quad_2", "shape_deriv_quad_2", "rev_par_quad_2", nullptr, nullptr, nullptr, nullptr,
      nullptr, "tesselate_quad_2", nullptr, "cut_cell_tri_1", "isoline_tri_1", "contour_cell_tri_1"}},
    {{"shape_func_tet_1", "shape_deriv_tet_1", "rev_par_tet_1", "slice_cell_tet_1", "cut_cell_tet_1", nullptr,
      "vol_integr_tet_1", "contour_cell_tet_1"},
     {"shape_func_tet_2", "shape_deriv_tet_2", "rev_par_tet_2", nullptr, nullptr, nullptr, nullptr, nullptr,
      "tesselate_tet_2", "slice_cell_tet_1", "cut_cell_tet_1", nullptr, "contour_cell_tet_1"}},
    {{"shape_func_pyr_1", "shape_deriv_pyr_1", "rev_par_pyr_1", "slice_cell_pyr_1", "cut_cell_pyr_1", nullptr,
      nullptr, "contour_cell_pyr_1"},
     {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "tesselate_pyr_2",
      "slice_cell_tet_1", "cut_cell_tet_1", nullptr, "contour_cell_tet_1"}},
    {{"shape_func_prism_1", "shape_deriv_prism_1", "rev_par_prism_1", "slice_cell_prism_1",
      "cut_cell_prism_1", nullptr, "vol_integr_prism_1", "contour_cell_prism_1"},
     {"shape_func_prism_2", "shape_deriv_prism_2", "rev_par_prism_2", nullptr, nullptr, nullptr, nullptr,
      nullptr, "tesselate_prism_2", "slice_cell_tet_1", "cut_cell_tet_1", nullptr, "contour_cell_tet_1"}},
    {{"shape_func_hex_1", "shape_deriv_hex_1", "rev_par_hex_1", "slice_cell_hex_1", "cut_cell_hex_1", nullptr,
      "vol_integr_hex_1", "contour_cell_hex_1"},
     {"shape_func_hex_2", "shape_deriv_hex_2", "rev_par_hex_2", nullptr, nullptr, nullptr, nullptr, nullptr,
      "tesselate_hex_2", "slice_cell_tet_1", "cut_cell_tet_1", nullptr, "contour_cell_tet_1"}},
};

struct name_table {
    std::deque<std::string> texts; // their places never change
    std::vector<OM_named_func> rows;

    void add(const std::string &name, cell_func func)
    {
        texts.push_back(name);
        rows.push_back({func, texts.back().c_str()});
    }

    cell_func of(const std::string &name) const
    {
        for (const OM_named_func &row : rows)
            if (name == row.name) return row.func;
        return nullptr;
    }
};

const name_table &library()
{
    static const name_table table = [] {
        name_table made;
        for (const auto &operation : mesh_names)
            for (int kind = 0; kind < 4; ++kind)
                if (operation.has[kind])
                    made.add(std::string(operation.stem) + suffixes[kind], functions[made.rows.size()]);
        // The library repeats some of its names.
        for (const char *stem : {"curl_func", "div_func"})
            for (const char *suffix : suffixes)
                made.add(std::string(stem) + suffix, made.of(std::string(stem) + suffix));
        for (const auto &kind : cell_names)
            for (const row_names &row : kind)
                for (size_t slot = 0; slot <= SLOT_TESSELATE; ++slot)
                    if (row[slot] != nullptr) made.add(row[slot], functions[made.rows.size()]);
        return made;
    }();
    return table;
}

int registrations = 0;

std::string name_of(cell_func func)
{
    if (func == nullptr) return "";
    for (const OM_named_func &row : library().rows)
        if (row.func == func) return row.name;
    return "unknown";
}

void expect_row(const cell_func *row, int kind, int order)
{
    for (size_t slot = 0; slot < CELL_METHOD_SLOTS; ++slot) {
        const char *name = slot < 13 ? cell_names[kind][order - 1][slot] : nullptr;
        EXPECT_EQ(name_of(row[slot]), name != nullptr ? name : "") << "kind " << kind << " slot " << slot;
    }
}

void expect_methods(const mesh_methods *methods, int kind)
{
    std::array<cell_func, 21> slots;
    static_assert(sizeof slots == sizeof *methods, "");
    memcpy(&slots, methods, sizeof slots);
    for (size_t slot = 0; slot < slots.size(); ++slot)
        EXPECT_EQ(name_of(slots[slot]),
                  mesh_names[slot].has[kind] ? std::string(mesh_names[slot].stem) + suffixes[kind] : "")
            << "slot " << slot;
}

} // namespace

int FLD_METHinit(void)
{
    ++registrations;
    return OMadd_named_funcs(library().rows.data(), static_cast<int>(library().rows.size()));
}

TEST(Binding, StandInHasAllRowsOfTheLibrary)
{
    EXPECT_EQ(library().rows.size(), 161u);
}

TEST(Binding, MethodsAreThoseOfTheMeshKind)
{
    expect_methods(meshes::cells(CELL_TET, 1, {1, 1, 1}, 1)->mesh->methods, 0);
    expect_methods(meshes::curvilinear({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1}, 1)->mesh->methods, 1);
    expect_methods(meshes::uniform({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1})->mesh->methods, 2);
    expect_methods(meshes::rectilinear({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1}, 1)->mesh->methods, 3);
}

TEST(Binding, MembersStandInSlotOrder)
{
    const meshes::mesh_ptr mesh = meshes::uniform({2, 2, 2}, 3, {0, 0, 0}, {1, 1, 1});
    const mesh_methods *m = mesh->mesh->methods;
    EXPECT_EQ(name_of(reinterpret_cast<cell_func>(m->interp_init_func)), "interp_init_func_unif");
    EXPECT_EQ(name_of(reinterpret_cast<cell_func>(m->cut_func)), "cut_func_unif");
    EXPECT_EQ(name_of(reinterpret_cast<cell_func>(m->rslice_func)), "rslice_func_unif");
    EXPECT_EQ(name_of(reinterpret_cast<cell_func>(m->contour_func)), "contour_func_unif");
    EXPECT_EQ(name_of(reinterpret_cast<cell_func>(m->cell_to_node_func)), "cell_to_node_func_unif");
}

TEST(Binding, RowsAreThoseOfTheSetsKindAndOrder)
{
    const std::vector<int> kinds = {CELL_HEX, CELL_TET, CELL_PYR, CELL_PRISM, CELL_QUAD, CELL_TRI, CELL_LINE};
    for (int order = 1; order <= 2; ++order) {
        const meshes::mesh_ptr mesh = meshes::mixed(kinds, std::vector<int>(kinds.size(), order), 1, 1);
        for (size_t s = 0; s < kinds.size(); ++s)
            expect_row(mesh->mesh->cell_funcs + s * CELL_METHOD_SLOTS, kinds[s], order);
    }
}

TEST(Binding, StructuredCellsAreLinesQuadrilateralsAndHexahedra)
{
    const int kinds[3] = {CELL_LINE, CELL_QUAD, CELL_HEX};
    for (size_t ndim = 1; ndim <= 3; ++ndim) {
        const std::vector<qx_long> dims(ndim, 3);
        const meshes::mesh_ptr made[3] = {meshes::uniform(dims, 3, {0, 0, 0}, {1, 1, 1}),
                                          meshes::rectilinear(dims, 3, {0, 0, 0}, {1, 1, 1}, 1),
                                          meshes::curvilinear(dims, 3, {0, 0, 0}, {1, 1, 1}, 1)};
        for (const meshes::mesh_ptr &mesh : made)
            expect_row(mesh->mesh->cell_funcs, kinds[ndim - 1], 1);
    }
}

TEST(Binding, AsksTheLibraryForItsFunctionsOnce)
{
    for (int k = 0; k < 3; ++k)
        meshes::uniform({2}, 1, {0}, {1});
    EXPECT_EQ(registrations, 1);
}

// ---- the registry --------------------------------------------------------------------------------------------

TEST(Registry, FindsEveryNameOfManyTables)
{
    static name_table many[40];
    for (int t = 0; t < 40; ++t) {
        for (int k = 0; k < 50; ++k)
            many[t].add("many_" + std::to_string(t * 50 + k),
                        functions[static_cast<size_t>((t * 50 + k) % 200)]);
        EXPECT_EQ(OMadd_named_funcs(many[t].rows.data(), 50), 1);
    }
    for (int k = 0; k < 2000; ++k)
        EXPECT_EQ(find_named_func(("many_" + std::to_string(k)).c_str()),
                  functions[static_cast<size_t>(k % 200)])
            << k;
    EXPECT_EQ(find_named_func("many_2000"), nullptr);
    EXPECT_EQ(find_named_func(""), nullptr);
    EXPECT_EQ(find_named_func("many_"), nullptr);
}

TEST(Registry, TakesRepeatedNamesAndTables)
{
    static const OM_named_func table[] = {
        {functions[1], "repeated"}, {functions[2], "other"}, {functions[1], "repeated"}};
    EXPECT_EQ(OMadd_named_funcs(table, 3), 1);
    EXPECT_EQ(OMadd_named_funcs(table, 3), 1);
    EXPECT_EQ(find_named_func("repeated"), functions[1]);
    EXPECT_EQ(find_named_func("other"), functions[2]);
}

TEST(Registry, KeepsTheFirstFunctionOfANameAndTakesTheOtherRows)
{
    static const OM_named_func first[] = {{functions[3], "contested"}};
    static const OM_named_func second[] = {
        {functions[4], "before"}, {functions[5], "contested"}, {functions[6], "after"}};
    EXPECT_EQ(OMadd_named_funcs(first, 1), 1);
    EXPECT_EQ(OMadd_named_funcs(second, 3), 0);
    EXPECT_EQ(find_named_func("contested"), functions[3]);
    EXPECT_EQ(find_named_func("before"), functions[4]);
    EXPECT_EQ(find_named_func("after"), functions[6]);
    static const OM_named_func itself[] = {{functions[7], "twice"}, {functions[8], "twice"}};
    EXPECT_EQ(OMadd_named_funcs(itself, 2), 0);
    EXPECT_EQ(find_named_func("twice"), functions[7]);
}

TEST(Registry, TakesTablesWithoutRows)
{
    EXPECT_EQ(OMadd_named_funcs(nullptr, 0), 1);
    EXPECT_EQ(OMadd_named_funcs(nullptr, -1), 1);
}
