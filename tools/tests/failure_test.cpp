// What goes wrong, and what the user is told: exit codes, messages, and no half-written files.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkDataArray.h>
#include <vtkDataSet.h>
#include <vtkImageData.h>
#include <vtkImageReader2.h>
#include <vtkJPEGReader.h>
#include <vtkNew.h>
#include <vtkPNGReader.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

namespace {

bool holds(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// The text names the file first, and what was wrong.
void expect_failure(const ran &result, int code, const std::string &about, const std::string &wrong)
{
    EXPECT_EQ(result.code, code) << shown(result);
    EXPECT_TRUE(holds(result.err, about)) << "no \"" << about << "\" in: " << shown(result);
    EXPECT_TRUE(holds(result.err, wrong)) << "no \"" << wrong << "\" in: " << shown(result);
}

std::string sphere()
{
    static const std::string path = [] {
        std::string made = scratch("sphere.vti");
        run_well({"sample", "noisy-sphere", "--size", "12", "-o", made});
        return made;
    }();
    return path;
}

// ---- input --------------------------------------------------------------------------------------------------

TEST(BadInput, ThatIsNotThereOrEmpty)
{
    expect_failure(run({"info", scratch("nothing.vtk")}), 1, "nothing.vtk: cannot be opened", "No such file");
    expect_failure(run({"info", scratch("")}), 1, "is a directory", "give the name of a file");
    for (const char *name : {"empty.vtk", "empty.vtu", "empty.stl"}) {
        write_bytes(scratch(name), "");
        expect_failure(run({"info", scratch(name)}), 1, name, "is empty");
    }
}

TEST(BadInput, ThatIsCutShort)
{
    const std::string whole = bytes_of(sphere());
    for (const size_t length : {whole.size() / 3, whole.size() / 2, whole.size() - 300}) {
        write_bytes(scratch("cut.vti"), whole.substr(0, length));
        expect_failure(run({"info", scratch("cut.vti")}), 1, "cut.vti", "damaged");
    }
    write(scratch("whole.vtk"), read(sphere()));
    const std::string legacy = bytes_of(scratch("whole.vtk"));
    for (const size_t length : {legacy.size() / 2, legacy.size() - 100}) {
        write_bytes(scratch("cut.vtk"), legacy.substr(0, length));
        expect_failure(run({"info", scratch("cut.vtk")}), 1, "cut.vtk", "is damaged");
    }
}

TEST(BadInput, ThatIsGarbage)
{
    random_numbers random(11);
    std::string garbage;
    for (int i = 0; i < 5000; ++i)
        garbage += static_cast<char>(256 * random.next());
    for (const char *ending :
         {"vtk",  "vti", "vtr",  "vts", "vtu", "vtp",  "vtm", "ply",    "stl",  "obj", "bin", "dem",
          "case", "e",   "cgns", "nc",  "inp", "foam", "cas", "neu",    "tec",  "k",   "sgy", "nrrd",
          "mrc",  "mnc", "dcm",  "byu", "tri", "pts",  "glb", "vtkhdf", "cube", "png", "foo"}) {
        const std::string name = std::string("garbage.") + ending;
        write_bytes(scratch(name), garbage);
        const ran result = run({"info", scratch(name)});
        EXPECT_EQ(result.code, 1) << name << ": " << shown(result);
        EXPECT_TRUE(holds(result.err, "skoklana: " + scratch(name) + ": ")) << shown(result);
        EXPECT_TRUE(std::all_of(result.err.begin(), result.err.end(), [](char c) {
            return c == '\n' || (c >= ' ' && c <= '~');
        })) << name;
    }
}

TEST(BadInput, ThatStartsWellAndGoesWrong)
{
    // bytes changed here and there: whatever comes of it, it is an answer or a complaint
    random_numbers random(23);
    write(scratch("good.vtk"), read(sphere()));
    int complaints = 0;
    for (const char *name : {"sphere.vti", "good.vtk"})
        for (int i = 0; i < 10; ++i) {
            std::string bytes = bytes_of(scratch(name));
            for (int k = 0; k < 30; ++k)
                bytes[static_cast<size_t>(random.next() *
                                          (k % 2 == 0 ? 1500.0 : static_cast<double>(bytes.size())))] =
                    static_cast<char>(256 * random.next());
            const std::string changed = scratch(std::string("changed_") + name);
            write_bytes(changed, bytes);
            const ran result = run({"info", changed});
            EXPECT_TRUE(result.code == 0 || result.code == 1) << shown(result);
            complaints += result.code;
        }
    EXPECT_GT(complaints, 5);
}

TEST(BadInput, WhoseCellsPointNowhere)
{
    write_bytes(scratch("far.vtk"),
                "# vtk DataFile Version 3.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 4 float\n"
                "0 0 0 1 0 0 0 1 0 0 0 1\nCELLS 1 5\n4 0 1 2 9\nCELL_TYPES 1\n10\n"
                "POINT_DATA 4\nSCALARS s float\nLOOKUP_TABLE default\n0 1 2 3\n");
    expect_failure(run({"iso", scratch("far.vtk"), "-l", "1", "-o", scratch("far.vtp")}), 1, "far.vtk",
                   "node 9");
}

TEST(BadInput, WithoutTheArrayThatIsAskedFor)
{
    const std::string path = scratch("arrays.vti"), out = scratch("arrays.vtp");
    const auto data = read(sphere());
    number_all(data);
    write(path, data);
    const std::string choice = "its node arrays: height, node";
    expect_failure(run({"iso", path, "-a", "nothing", "-l", "0", "-o", out}), 1,
                   path + ": has no array nothing", choice);
    expect_failure(run({"iso", path, "-a", "cell", "-l", "0", "-o", out}), 1, "cell holds a value a cell",
                   choice);
    expect_failure(run({"iso", path, "-l", "0", "-o", out}), 1, "name one with --array", choice);
    expect_failure(run({"iso", path, "-a", "height", "-l", "0", "-w", "nothing", "-o", out}), 1,
                   "has no array nothing to carry along", "its cell arrays: cell");
    expect_failure(run({"iso", path, "-a", "height", "--component", "1", "-l", "0", "-o", out}), 1,
                   "height has components 0 to 0", "not 1");
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(BadInput, ThatTheCommandHasNoUseFor)
{
    const std::string out = scratch("none.vtp");
    expect_failure(run({"isoline", sphere(), "-l", "0", "-o", out}), 1, "sphere.vti: has solid cells only",
                   "iso extracts surfaces");
    expect_failure(run({"threshold-null", sphere(), "-o", scratch("none.vtu")}), 1,
                   "has no nodes without a value", "--null");
    write_bytes(scratch("points.csv"), "x,y,z\n1,2,3\n1,2,three\n");
    expect_failure(run({"probe", sphere(), "--points", scratch("points.csv"), "-o", out}), 1,
                   "points.csv: line 3", "three numbers x, y, z");
    EXPECT_FALSE(std::filesystem::exists(out));
}

// ---- usage --------------------------------------------------------------------------------------------------

TEST(Usage, IsToldAndExitsWith2)
{
    const std::string in = sphere(), out = scratch("usage.vtp");
    const struct {
        std::vector<std::string> arguments;
        const char *wrong;
    } cases[] = {
        {{}, "subcommand is required"},
        {{"nonsense"}, "there is no command nonsense; there are info, iso, isoline, cut, band, slice, "},
        {{"iso"}, "FILE is required"},
        {{"iso", in, "-o", out}, "--level is required"},
        {{"iso", in, "-l", "high", "-o", out}, "--level"},
        {{"iso", in, "-l", "0"}, "nowhere to put the result: give -o OUT.vtp"},
        {{"iso", in, "-l", "0", "-o", scratch("a.foo")}, "ends in .vtp .ply .stl"},
        {{"iso", in, "-l", "0", "--picture", scratch("a.gif")}, "ends in .png .jpg .jpeg"},
        {{"iso", in, "-l", "0", "-o", out, "--component", "x"}, "neither a number from 0 nor \"length\""},
        {{"iso", in, "-l", "0", "-o", out, "--threads", "0"}, "--threads"},
        {{"iso", in, "-l", "0", "-o", out, "--nonsense"}, "--nonsense"},
        {{"probe", in, "-o", out}, "give one of --points FILE, --line A B N and --grid NX NY NZ"},
        {{"probe", in, "--line", "0,0", "1,1,1", "5", "-o", out}, "three numbers x,y,z"},
        {{"probe", in, "--line", "0,0,0", "1,1,1", "0", "-o", out}, "--line: 0 is no count"},
        {{"probe", in, "--line", "0,0,0x", "1,0,0", "10", "-o", out}, "--line: 0,0,0x is no point"},
        {{"probe", in, "--line", "0,0,0", "1,0,0", "10abc", "-o", out}, "--line: 10abc is no count"},
        {{"probe", in, "--grid", "0", "2", "2", "-o", scratch("a.vti")}, "each number is at least 1"},
        {{"probe", in, "--grid", "2", "2", "2", "-o", out}, "ends in .vti .csv"},
        {{"info", in, "--step", "-1"}, "--step: -1 is out of range; a whole number from 0 is wanted"},
        {{"sample", "hydrogen", "--size", "0", "-o", scratch("a.vti")},
         "--size: 0 is out of range; a whole number from 1"},
        {{"iso", in, "-l", "nan", "-o", out}, "--level: nan is no finite number"},
        {{"iso", in, "-l", "0,-inf", "-o", out}, "--level: -inf is no finite number"},
        {{"iso", "-l", ".5", ".3", in, "-o", out}, "Several levels are given as -l 1,2 or -l 1 -l 2."},
        {{"iso", in, "-l", ".5", ".3", "-o", out}, "Several levels are given as -l 1,2 or -l 1 -l 2."},
        {{"iso", in, "-l", "0", "-p", scratch("a.png"), "--size", "10x10"},
         "--size: 10x10 is out of range; WxH"},
        {{"iso", in, "-l", "0", "-p", scratch("a.png"), "--view", "w"}, "--view"},
        {{"iso", in, "-l", "0", "-p", scratch("a.png"), "--colors", "w"}, "w is not among even, diverging"},
        {{"clamp", in, "--component", "length", "--min", "0", "-o", scratch("a.vti")},
         "length: is no number from 0"},
        {{"clamp", in, "-o", scratch("a.vti")}, "give --min X, --max X or both"},
        {{"clamp", in, "--min", "2", "--max", "1", "-o", scratch("a.vti")}, "--min 2 is above --max 1"},
        {{"clamp", in, "--min", "2", "-o", out}, "ends in .vti"},
        {{"sample", "nonsense", "-o", scratch("a.vti")}, "there are:\n  hydrogen"},
        {{"sample", "hydrogen", "--mesh", "nonsense", "-o", scratch("a.vti")},
         "there are uniform, rectilinear"},
        {{"sample", "hydrogen", "--size", "4", "5", "-o", scratch("a.vti")}, "one number or three"},
        {{"sample", "hydrogen", "--order", "2", "-o", scratch("a.vti")}, "--order 2 is for cells only"},
    };
    for (const auto &one : cases) {
        const ran result = run(one.arguments);
        EXPECT_EQ(result.code, 2) << shown(result);
        EXPECT_TRUE(holds(result.err + result.out, one.wrong)) << one.wrong << "\n" << shown(result);
    }
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(Usage, HasHelpWithExamples)
{
    const ran help = run_well({"--help"});
    EXPECT_TRUE(holds(help.out, "Examples:\n  skoklana info "));
    EXPECT_TRUE(holds(help.out, "Exit codes: 0 done, 1 failed, 2 wrong usage, 130 stopped by Ctrl-C."));
    std::istringstream commands(help.out.substr(help.out.find("Subcommands:\n") + 13));
    int ncommands = 0;
    for (std::string line; std::getline(commands, line) && line != "Examples:";) {
        const std::string command = line.substr(0, line.find(' ', 2));
        if (command.size() < 4) continue;
        ++ncommands;
        const ran own = run_well({command.substr(2), "--help"});
        EXPECT_TRUE(holds(own.out, "  skoklana" + command.substr(1) + " ")) << shown(own);
        EXPECT_TRUE(holds(own.out, "--threads N, which skoklana --help explains")) << shown(own);
    }
    EXPECT_GE(ncommands, 25);
    EXPECT_TRUE(holds(run_well({"--version"}).out, "skoklana " SKOKLANA_VERSION "\n"));
}

TEST(Usage, OfTooManyLevelsIsRefused)
{
    std::string levels = "0";
    for (int i = 1; i < 300; ++i)
        levels += "," + std::to_string(i);
    const std::string out = scratch("many.vtp");
    run_well({"iso", sphere(), "-l", levels, "-o", out});
    ran result = run({"iso", sphere(), "-l", levels, "-p", scratch("many.png")});
    EXPECT_EQ(result.code, 2);
    EXPECT_TRUE(holds(result.err, "300 levels are too many; 256 are the most that a picture shows"))
        << shown(result);
    for (int i = 0; i < 800; ++i)
        levels += ",1";
    result = run({"iso", sphere(), "-l", levels, "-o", out});
    EXPECT_EQ(result.code, 2);
    EXPECT_TRUE(holds(result.err, "1100 levels are too many; 1000 are the most")) << shown(result);
}

TEST(Usage, QuietSaysNothingAndTimeTellsTheStages)
{
    const ran quiet = run_well({"--quiet", "iso", sphere(), "-l", "7", "-o", scratch("quiet.vtp")});
    EXPECT_EQ(quiet.out + quiet.err, "");
    const ran timed = run_well({"iso", sphere(), "-l", "0", "-o", scratch("timed.vtp"), "--time"});
    for (const char *stage : {"read ", "compute ", "write "})
        EXPECT_TRUE(holds(timed.out, stage)) << shown(timed);
}

// ---- output -------------------------------------------------------------------------------------------------

TEST(BadOutput, IsToldAndLeavesWhatWasThere)
{
    expect_failure(run({"iso", sphere(), "-l", "0", "-o", scratch("no/folder.vtp")}), 1,
                   "folder.vtp: cannot be written", "there is no folder");
    std::filesystem::create_directories(scratch("folder.vtp"));
    expect_failure(run({"iso", sphere(), "-l", "0", "-o", scratch("folder.vtp")}), 1,
                   "folder.vtp: cannot be written", "it is a folder");
}

TEST(BadOutput, OnAFullDiskIsNoFile)
{
    // a limit on the size of files stands for the full disk
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const std::string in = sphere();
    for (const char *ending : {".vtp", ".ply", ".stl", ".png", ".csv"}) {
        const std::string out = scratch("full" + std::string(ending));
        write_bytes(out, "older");
        std::vector<std::string> arguments = {
            "iso", in, "-l", "0", ending == std::string(".png") ? "-p" : "-o", out};
        if (ending == std::string(".csv")) arguments = {"probe", in, "--grid", "9", "9", "9", "-o", out};
        rlimit small = before;
        small.rlim_cur = 2000;
        setrlimit(RLIMIT_FSIZE, &small);
        const ran result = run(arguments);
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err, "skoklana: " + out + ": cannot be written: File too large\n");
        EXPECT_EQ(bytes_of(out).substr(0, 9), "older");
    }
    for (const std::string &name : files_in_scratch())
        EXPECT_FALSE(holds(name, ".part")) << name;
}

TEST(BadOutput, OnStandardOutputIsAFailure)
{
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "there is no /dev/full";
    surroundings full;
    full.out = "/dev/full";
    const ran result = run({"info", sphere()}, full);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "skoklana: standard output cannot be written: No space left on device\n");
}

// ---- interruption and progress ------------------------------------------------------------------------------

TEST(Interruption, DuringAnOperationCleansUpAndExitsWith130)
{
    const std::string path = scratch("long.vts"), out = scratch("long.vti");
    run_well({"sample", "hydrogen", "--mesh", "curvilinear", "--size", "40", "-o", path});
    surroundings around;
    around.terminal = true;
    around.until = "sampling [";
    const ran result = run({"probe", path, "--grid", "150", "150", "150", "-o", out}, around);
    EXPECT_EQ(result.code, 130) << shown(result);
    EXPECT_TRUE(holds(result.err, "skoklana: stopped")) << shown(result);
    EXPECT_FALSE(std::filesystem::exists(out));
    for (const std::string &name : files_in_scratch())
        EXPECT_FALSE(holds(name, ".part")) << name;
}

// Whether a child of ours has led standard error away, as readers have it.
static bool a_child_reads()
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream of_process(entry.path() / "stat");
        std::string id, name, state;
        pid_t parent = 0;
        std::error_code gone;
        if (of_process >> id >> name >> state >> parent && parent == getpid() &&
            std::filesystem::read_symlink(entry.path() / "fd" / "2", gone) == "/dev/null")
            return true;
    }
    return false;
}

// What readers themselves print goes nowhere, but this is heard.
TEST(Interruption, WhileAFileIsReadIsTold)
{
    const std::string path = scratch("large.vtk");
    std::ofstream file(path);
    file << "# vtk DataFile Version 3.0\nmany numbers\nASCII\nDATASET STRUCTURED_POINTS\nDIMENSIONS 2000000 "
            "1 1\n"
            "ORIGIN 0 0 0\nSPACING 1 1 1\nPOINT_DATA 2000000\nSCALARS s double\nLOOKUP_TABLE default\n";
    for (int i = 0; i < 2000000; ++i)
        file << i << ".25\n";
    file.close();
    surroundings around;
    around.when = a_child_reads;
    const ran result = run({"info", path}, around);
    EXPECT_EQ(result.code, 130) << shown(result);
    EXPECT_EQ(result.err, "skoklana: stopped\n");
}

TEST(Progress, IsShownOnATerminalOnly)
{
    const std::string path = scratch("shown.vts"), out = scratch("shown.vti");
    run_well({"sample", "hydrogen", "--mesh", "curvilinear", "--size", "12", "-o", path});
    const std::vector<std::string> arguments = {"probe", path, "--grid", "40", "40", "40", "-o", out};
    surroundings terminal;
    terminal.terminal = true;
    const ran seen = run(arguments, terminal), piped = run(arguments);
    EXPECT_EQ(seen.code, 0);
    EXPECT_TRUE(holds(seen.err, "\rsampling [")) << shown(seen);
    EXPECT_TRUE(holds(seen.err, "\r\033[K")) << "the bar is taken away";
    EXPECT_EQ(piped.code, 0);
    EXPECT_EQ(piped.err, "");
    std::vector<std::string> quiet = arguments;
    quiet.insert(quiet.begin(), "--quiet");
    EXPECT_EQ(run(quiet, terminal).err, "");
}

// ---- pictures -----------------------------------------------------------------------------------------------

// The command runs without a display in all tests.
TEST(Picture, IsDrawnWithoutADisplay)
{
    const std::string picture = scratch("sphere.png");
    run_well({"iso", sphere(), "-l", "0", "--level", "-0.4", "--picture", picture});
    vtkNew<vtkPNGReader> reader;
    reader->SetFileName(picture.c_str());
    reader->Update();
    vtkImageData *image = reader->GetOutput();
    ASSERT_EQ(image->GetDimensions()[0], 1200);
    ASSERT_EQ(image->GetDimensions()[1], 900);
    std::set<int> colours;
    int drawn = 0;
    for (int y = 0; y < 900; ++y)
        for (int x = 0; x < 1200; ++x) {
            const auto *pixel = static_cast<unsigned char *>(image->GetScalarPointer(x, y, 0));
            colours.insert(pixel[0] << 16 | pixel[1] << 8 | pixel[2]);
            drawn += pixel[0] < 250 || pixel[1] < 250 || pixel[2] < 250 ? 1 : 0;
        }
    EXPECT_GT(colours.size(), 1000u) << "shaded";
    EXPECT_GT(drawn, 1200 * 900 / 10) << "the surface fills a part of it";
    const auto *middle = static_cast<unsigned char *>(image->GetScalarPointer(500, 450, 0));
    EXPECT_LT(middle[0] + middle[1] + middle[2], 3 * 250);
}

TEST(Picture, OfLinesIsDrawnToo)
{
    const std::string path = scratch("flat.vti"), picture = scratch("lines.png");
    run_well({"sample", "noisy-sphere", "--size", "40", "40", "1", "-o", path});
    run_well({"isoline", path, "-l", "0", "--level", "0.3", "-p", picture, "-o", scratch("lines.vtp")});
    EXPECT_GT(bytes_of(picture).size(), 10000u);
    EXPECT_GT(length_of(read_surface(scratch("lines.vtp"))), 3);
}

struct pixels {
    int width = 0, height = 0;
    std::vector<unsigned char> rgb;
    const unsigned char *at(int x, int y) const { return rgb.data() + (y * width + x) * 3; }
    bool white(int x, int y) const { return at(x, y)[0] > 250 && at(x, y)[1] > 250 && at(x, y)[2] > 250; }
};

pixels pixels_of(const std::string &path)
{
    vtkSmartPointer<vtkImageReader2> reader = vtkSmartPointer<vtkPNGReader>::New();
    if (path.substr(path.size() - 4) == ".jpg") reader = vtkSmartPointer<vtkJPEGReader>::New();
    reader->SetFileName(path.c_str());
    reader->Update();
    vtkImageData *image = reader->GetOutput();
    pixels out;
    out.width = image->GetDimensions()[0];
    out.height = image->GetDimensions()[1];
    const auto *values = static_cast<unsigned char *>(image->GetScalarPointer());
    out.rgb.assign(values, values + out.width * out.height * 3);
    return out;
}

// Nothing touches the rim: no text is cut off.
void expect_free_rim(const pixels &picture)
{
    for (int x = 0; x < picture.width; ++x)
        for (const int y : {0, 1, picture.height - 2, picture.height - 1})
            ASSERT_TRUE(picture.white(x, y)) << x << " " << y;
    for (int y = 0; y < picture.height; ++y)
        for (const int x : {0, 1, picture.width - 2, picture.width - 1})
            ASSERT_TRUE(picture.white(x, y)) << x << " " << y;
}

TEST(Picture, HasRoomForTitlesOfAnyLength)
{
    const auto data = read(sphere());
    for (const char *name :
         {"T", "wall shear stress magnitude", "turbulent_kinetic_energy_dissipation_rate_of_the_second_phase",
          "averylongnamewithoutanybreakinitthatgoesonandonandonuntilitisfartoolongforanythingthatcouldfitonap"
          "icture"
          "averylongnamewithoutanybreakinitthatgoesonandonandonuntilitisfartoolongforanythingthatcouldfitonap"
          "icture"}) {
        add_node_array(data, name, [](const double *x) { return x[0]; });
        write(scratch("titled.vti"), data);
        run_well({"iso", scratch("titled.vti"), "-a", "height", "-l", "0", "-w", name, "-p",
                  scratch("titled.png"), "--size", "400x300"});
        expect_free_rim(pixels_of(scratch("titled.png")));
        data->GetPointData()->RemoveArray(name);
    }
}

TEST(Picture, HasTheSizeTheViewAndTheFormatThatAreAskedFor)
{
    std::set<std::vector<unsigned char>> views;
    for (const char *view : {"x", "-x", "y", "-y", "z", "-z", "iso"}) {
        run_well(
            {"iso", sphere(), "-l", "0", "-p", scratch("view.png"), "--view", view, "--size", "320x240"});
        const pixels picture = pixels_of(scratch("view.png"));
        EXPECT_EQ(picture.width, 320);
        EXPECT_EQ(picture.height, 240);
        expect_free_rim(picture);
        EXPECT_TRUE(views.insert(picture.rgb).second) << view << " is like another";
    }
    run_well({"iso", sphere(), "-l", "0", "-p", scratch("view.jpg"), "--size", "320x240"});
    EXPECT_EQ(bytes_of(scratch("view.jpg")).substr(0, 2), "\xff\xd8");
    EXPECT_EQ(pixels_of(scratch("view.jpg")).width, 320);
}

TEST(Picture, IsColouredByCellArraysToo)
{
    const auto data = read(sphere());
    number_all(data);
    write(scratch("cells.vti"), data);
    std::set<std::vector<unsigned char>> seen;
    for (const char *name : {"cell", "node"}) {
        run_well({"iso", scratch("cells.vti"), "-a", "height", "-l", "0", "-w", name, "-p",
                  scratch("cells.png"), "--size", "320x240"});
        const pixels picture = pixels_of(scratch("cells.png"));
        bool red = false, blue = false;
        for (int y = 60; y < 180; ++y)
            for (int x = 40; x < 220; ++x) {
                red = red || picture.at(x, y)[0] > picture.at(x, y)[2] + 60;
                blue = blue || picture.at(x, y)[2] > picture.at(x, y)[0] + 60;
            }
        EXPECT_TRUE(red && blue) << name;
        seen.insert(picture.rgb);
    }
    EXPECT_EQ(seen.size(), 2u);
}

// Many levels are one surface: the picture takes no longer for them.
TEST(Picture, OfManyLevelsIsOneSurface)
{
    std::string levels = "-1.4";
    for (int i = 1; i < 200; ++i)
        levels += "," + std::to_string(-1.4 + 0.01 * i);
    run_well({"iso", sphere(), "-l", levels, "-p", scratch("many.png"), "--size", "320x240"});
    EXPECT_GT(bytes_of(scratch("many.png")).size(), 3000u);
}

TEST(Picture, WithoutADriverIsAFailureAndNoFile)
{
    const std::string picture = scratch("none.png");
    surroundings around;
    around.set = {"__EGL_VENDOR_LIBRARY_FILENAMES=/nowhere.json", "__EGL_VENDOR_LIBRARY_DIRS=/nowhere"};
    const ran result = run({"iso", sphere(), "-l", "0", "--picture", picture}, around);
    expect_failure(result, 1, "none.png: cannot be written", "OpenGL");
    EXPECT_FALSE(std::filesystem::exists(picture));
}

} // namespace
