// What pieces know of themselves, and parts of lattices, called directly.
#include "join_pieces.hpp"
#include "leftovers.hpp"

#include <gtest/gtest.h>

#include <vtkCellData.h>
#include <vtkFloatArray.h>
#include <vtkImageData.h>
#include <vtkIntArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

struct box {
    int extent[6];
};

// Node after node, or cell after cell.
marks outside_one_by_one(const int *part, const int *extent, bool cells)
{
    marks out;
    int last[3];
    for (int d = 0; d < 3; ++d)
        last[d] = extent[2 * d + 1] - (cells && extent[2 * d + 1] > extent[2 * d] ? 1 : 0);
    for (int k = extent[4]; k <= last[2]; ++k)
        for (int j = extent[2]; j <= last[1]; ++j)
            for (int i = extent[0]; i <= last[0]; ++i) {
                const int at[3] = {i, j, k};
                bool outside = false;
                for (int d = 0; d < 3; ++d) {
                    const bool thick = cells && part[2 * d + 1] > part[2 * d];
                    outside = outside || at[d] < part[2 * d] || at[d] > part[2 * d + 1] - (thick ? 1 : 0);
                }
                out.push_back(outside ? 1 : 0);
            }
    return out;
}

marks listed(const piece_marks &of)
{
    marks out;
    for (size_t i = 0; i < of.size(); ++i)
        out.push_back(of[i]);
    return out;
}

vtkSmartPointer<vtkImageData> numbered_image(const int *extent)
{
    auto image = vtkSmartPointer<vtkImageData>::New();
    int all[6];
    std::copy_n(extent, 6, all);
    image->SetExtent(all);
    vtkNew<vtkFloatArray> nodes;
    nodes->SetName("nodes");
    nodes->SetNumberOfComponents(2);
    nodes->SetNumberOfTuples(image->GetNumberOfPoints());
    for (vtkIdType i = 0; i < image->GetNumberOfPoints(); ++i)
        nodes->SetTuple2(i, static_cast<double>(i), -static_cast<double>(i));
    image->GetPointData()->AddArray(nodes);
    vtkNew<vtkIntArray> cells;
    cells->SetName("cells");
    cells->SetNumberOfValues(image->GetNumberOfCells());
    for (vtkIdType i = 0; i < image->GetNumberOfCells(); ++i)
        cells->SetValue(i, static_cast<int>(i));
    image->GetCellData()->AddArray(cells);
    return image;
}

} // namespace

TEST(PieceMarks, OfSlabsAreThoseOfEachNodeAndCell)
{
    const std::pair<box, box> slabs[] = {
        {{{0, 4, 0, 3, 2, 4}}, {{0, 4, 0, 3, 0, 6}}}, {{{-2, 4, 1, 3, 0, 2}}, {{-2, 4, 1, 3, 0, 3}}},
        {{{0, 4, 1, 2, 0, 0}}, {{0, 4, 0, 3, 0, 0}}}, {{{3, 5, 0, 0, 0, 0}}, {{2, 7, 0, 0, 0, 0}}},
        {{{0, 4, 7, 7, 3, 5}}, {{0, 4, 7, 7, 3, 9}}},
    };
    for (const auto &[part, extent] : slabs)
        for (const bool cells : {false, true})
            EXPECT_EQ(listed(marks_outside(part.extent, extent.extent, cells)),
                      outside_one_by_one(part.extent, extent.extent, cells));
    EXPECT_EQ(piece_marks(2, 4, 5).own(), (marks{0, 0, 1, 1, 0}));
    EXPECT_EQ(piece_marks(marks{1, 0, 1}).own(), (marks{0, 1, 0}));
    EXPECT_TRUE(piece_marks().empty());
}

TEST(PieceMarks, AreTheSameAfterAMessage)
{
    packer bytes;
    piece_marks(2, 4, 5).pack(&bytes);
    piece_marks(marks{1, 0, 1}).pack(&bytes);
    piece_marks().pack(&bytes);
    piece_numbers(1, 3, 4, 70).pack(&bytes);
    piece_numbers(std::vector<vtkIdType>{5, -1, 6}).pack(&bytes);
    unpacker from(bytes.bytes);
    EXPECT_EQ(listed(piece_marks(&from)), (marks{1, 1, 0, 0, 1}));
    EXPECT_EQ(listed(piece_marks(&from)), (marks{1, 0, 1}));
    EXPECT_TRUE(piece_marks(&from).empty());
    const piece_numbers stretch(&from), list(&from);
    EXPECT_TRUE(from.at_end());
    EXPECT_EQ(stretch[0], -1);
    EXPECT_EQ(stretch[2], 71);
    EXPECT_EQ(list[0], 5);
    EXPECT_EQ(list[1], -1);
}

// Whichever end is cut off.
TEST(PieceNumbers, OfAPartAreThoseOfTheWhole)
{
    const piece_numbers all(3, 8, 10, 100);
    for (size_t from = 0; from < 10; ++from)
        for (size_t count = 0; from + count <= 10; ++count) {
            const piece_numbers part = all.part(from, count);
            ASSERT_EQ(part.size(), count);
            for (size_t i = 0; i < count; ++i)
                EXPECT_EQ(part[i], all[from + i]) << from << " " << count << " " << i;
        }
}

// What follows one another in the whole are rows of its arrays, and outlive it; boxes are copies.
TEST(PartsOfLattices, HaveTheirRows)
{
    const int whole[6] = {0, 4, 0, 3, 1, 6};
    const box parts[] = {
        {{0, 4, 0, 3, 2, 4}}, {{0, 4, 0, 3, 3, 3}}, {{0, 4, 1, 2, 2, 4}}, {{1, 3, 2, 2, 5, 5}}};
    for (const box &part : parts) {
        auto image = numbered_image(whole);
        const auto *first = static_cast<float *>(image->GetPointData()->GetArray("nodes")->GetVoidPointer(0));
        const auto made = part_of_lattice(image, part.extent);
        vtkDataArray *nodes = made->GetPointData()->GetArray("nodes"),
                     *cells = made->GetCellData()->GetArray("cells");
        const auto *at = static_cast<float *>(nodes->GetVoidPointer(0));
        const bool stretch = &part != &parts[2];
        EXPECT_EQ(at >= first && at < first + 2 * image->GetNumberOfPoints(), stretch);
        image = nullptr;
        vtkIdType row = 0;
        for (int k = part.extent[4]; k <= part.extent[5]; ++k)
            for (int j = part.extent[2]; j <= part.extent[3]; ++j)
                for (int i = part.extent[0]; i <= part.extent[1]; ++i, ++row) {
                    const double number = i + 5 * (j + 4 * (k - 1));
                    EXPECT_EQ(nodes->GetComponent(row, 0), number);
                    EXPECT_EQ(nodes->GetComponent(row, 1), -number);
                }
        EXPECT_EQ(row, made->GetNumberOfPoints());
        ASSERT_EQ(cells->GetNumberOfTuples(), made->GetNumberOfCells());
        EXPECT_EQ(cells->GetComponent(0, 0),
                  part.extent[0] + 4 * (part.extent[2] + 3 * (part.extent[4] - 1)));
    }
}

// ---- files of runs that were killed -------------------------------------------------------------------------

TEST(Leftovers, OfProcessesThatAreGoneAreRemoved)
{
    const fs::path folder = fs::temp_directory_path() / ("skoklana_leftovers" + std::to_string(getpid()));
    fs::create_directories(folder);
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    const std::string own = mark_of_process(), number = std::to_string(getpid());
    const std::string where = own.substr(number.size()), gone = std::to_string(child) + where;
    if (where.empty()) GTEST_SKIP() << "the system does not tell where numbers of processes are unique";
    const auto at = [&](const std::string &name) { return (folder / name).string(); };
    const auto touch = [&](const std::string &name) { std::ofstream(at(name)) << "half"; };
    const std::set<std::string> kept = {
        ".out.part" + own + ".pvtp", // somebody writes it
        ".out_3.part" + std::to_string(getppid()) + where + ".vtp",
        ".out.part" + std::to_string(child) + ".pvtp",          // of nobody knows where
        ".out.part" + std::to_string(child) + "-00000000.pvtp", // of another machine
        ".other.part" + gone + ".pvtp",
        ".out_x.part" + gone + ".vtp",
        ".out.part" + gone + ".vtu",
        ".outer.part" + gone + ".pvtp",
        "out.pvtp",
        "out_3.vtp",
        ".out.pvtp"};
    const std::set<std::string> removed = {".out.part" + gone + ".pvtp", ".out_3.part" + gone + ".vtp",
                                           ".out_127.part" + gone + ".vtp"};
    for (const std::string &name : kept)
        touch(name);
    for (const std::string &name : removed)
        touch(name);
    EXPECT_EQ(name_with_mark(at("out.pvtp"), gone), at(*removed.begin()));
    remove_leftovers(at("out.pvtp"));
    std::set<std::string> left;
    for (const auto &entry : fs::directory_iterator(folder))
        left.insert(entry.path().filename().string());
    EXPECT_EQ(left, kept);
    remove_leftovers(at("out.vtu")); // of a file that is no list
    EXPECT_FALSE(fs::exists(at(".out.part" + gone + ".vtu")));
    remove_leftovers(at("nowhere/out.vtu"));
    fs::remove_all(folder);
}
