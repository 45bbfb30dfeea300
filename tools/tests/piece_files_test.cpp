// Files in pieces as tests cut them up: VTK reads the whole again.
#include "pieces_support.hpp"

#include <gtest/gtest.h>

#include <vtkCellData.h>
#include <vtkDataSet.h>
#include <vtkPointData.h>
#include <vtkUnsignedCharArray.h>

#include <algorithm>

namespace {

// Cells that are some piece's own, as texts.
std::vector<std::string> own_cells(const std::string &path, int count)
{
    std::vector<std::string> all;
    for (int i = 0; i < count; ++i) {
        const auto piece = read(cut_up::piece_path(path, i));
        const std::vector<std::string> marks = {"vtkGhostType"};
        vtkUnsignedCharArray *ghosts = piece->GetCellGhostArray();
        for (vtkIdType c = 0; ghosts != nullptr && c < ghosts->GetNumberOfTuples(); ++c)
            if (ghosts->GetValue(c) != 0) piece->GetCellData()->GetArray("cell")->SetComponent(c, 0, -1);
        for (const std::string &cell : cells_by_place(piece, marks))
            if (cell.find(" cell -1") == std::string::npos) all.push_back(cell);
    }
    std::sort(all.begin(), all.end());
    return all;
}

} // namespace

TEST(PieceFiles, HaveEachCellOnce)
{
    for (const cut_up::sample &of : cut_up::samples())
        for (const bool ghosts : {false, true})
            for (const cut_up::how &cut : {cut_up::how{1, cut_up::shares::runs, {}, ghosts},
                                           cut_up::how{3, cut_up::shares::by_place, {}, ghosts},
                                           cut_up::how{5, cut_up::shares::in_turn, {0, 3}, ghosts},
                                           cut_up::how{7, cut_up::shares::runs, {6}, ghosts}}) {
                SCOPED_TRACE(of.name + " in " + std::to_string(cut.count) + (ghosts ? " with ghosts" : ""));
                const std::string path = cut_up::write_pieces(scratch("cut" + of.ending), of.whole, cut);
                EXPECT_EQ(own_cells(path, cut.count), cells_by_place(of.whole));
                // VTK's readers of lattices cannot do with pieces of no nodes.
                if (of.ending != ".pvtu" && of.ending != ".pvtp" && !cut.empty.empty()) continue;
                const auto joined = read(path);
                ASSERT_NE(joined, nullptr);
                if (!ghosts) {
                    EXPECT_EQ(cells_by_place(joined), cells_by_place(of.whole));
                }
                EXPECT_EQ(joined->GetPointData()->GetArray("flow")->GetNumberOfComponents(), 3);
            }
}
