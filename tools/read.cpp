// Which VTK reader takes a file, and what comes out of it.
//
// The first bytes decide where the format has a mark, since endings lie more often than marks do; the ending
// decides among formats that share a container (NetCDF, HDF5) or have no mark, and then the first bytes must at
// least be possible for it: several readers trust their file and crash or never end on others. A reader that
// complains is not believed: damaged files often come through with part of their data and only a message to tell.
#include "read.hpp"

#include "crash_guard.hpp"
#include "failure.hpp"
#include "listed_files.hpp"
#include "messages.hpp"
#include "whole_file.hpp"
#include "write.hpp"

#include <vtkAVSucdReader.h>
#include <vtkAppendFilter.h>
#include <vtkBYUReader.h>
#include <vtkCGNSReader.h>
#include <vtkCompositeDataIterator.h>
#include <vtkCompositeDataSet.h>
#include <vtkDEMReader.h>
#include <vtkDICOMImageReader.h>
#include <vtkDataArraySelection.h>
#include <vtkDataSet.h>
#include <vtkDataSetAttributes.h>
#include <vtkExodusIIReader.h>
#include <vtkFLUENTReader.h>
#include <vtkGAMBITReader.h>
#include <vtkGLTFReader.h>
#include <vtkGaussianCubeReader.h>
#include <vtkGenericDataObjectReader.h>
#include <vtkGenericEnSightReader.h>
#include <vtkHDFReader.h>
#include <vtkImageReader2.h>
#include <vtkImageReader2Factory.h>
#include <vtkInformation.h>
#include <vtkInformationInformationVectorKey.h>
#include <vtkInformationVector.h>
#include <vtkLSDynaReader.h>
#include <vtkMCubesReader.h>
#include <vtkMINCImageReader.h>
#include <vtkMRCReader.h>
#include <vtkMultiBlockDataSet.h>
#include <vtkMultiBlockPLOT3DReader.h>
#include <vtkNetCDFCFReader.h>
#include <vtkNew.h>
#include <vtkNrrdReader.h>
#include <vtkOBJReader.h>
#include <vtkOpenFOAMReader.h>
#include <vtkPLYReader.h>
#include <vtkPTSReader.h>
#include <vtkProStarReader.h>
#include <vtkSTLReader.h>
#include <vtkSegYReader.h>
#include <vtkStreamingDemandDrivenPipeline.h>
#include <vtkTecplotReader.h>
#include <vtkUnstructuredGrid.h>
#include <vtkXMLDataElement.h>
#include <vtkXMLGenericDataObjectReader.h>
#include <vtkXMLImageDataReader.h>
#include <vtkXMLPImageDataReader.h>
#include <vtkXMLPPolyDataReader.h>
#include <vtkXMLPRectilinearGridReader.h>
#include <vtkXMLPStructuredGridReader.h>
#include <vtkXMLPUnstructuredGridReader.h>
#include <vtkXMLPolyDataReader.h>
#include <vtkXMLRectilinearGridReader.h>
#include <vtkXMLStructuredGridReader.h>
#include <vtkXMLUnstructuredDataReader.h>
#include <vtkXMLUnstructuredGridReader.h>
#include <vtkXMLUtilities.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

using reader_ptr = vtkSmartPointer<vtkAlgorithm>;

// ---- readers ------------------------------------------------------------------------------------------------

template <typename Reader> static vtkSmartPointer<Reader> reader_of(const std::string &path)
{
    auto reader = vtkSmartPointer<Reader>::New();
    reader->SetFileName(path.c_str());
    return reader;
}

template <typename Reader> static reader_ptr plain(const std::string &path)
{
    return reader_of<Reader>(path);
}

// The legacy format may hold several arrays of a role, such as vectors, of which the reader takes one unless told.
static reader_ptr legacy(const std::string &path)
{
    auto reader = reader_of<vtkGenericDataObjectReader>(path);
    reader->ReadAllScalarsOn();
    reader->ReadAllVectorsOn();
    reader->ReadAllNormalsOn();
    reader->ReadAllTensorsOn();
    reader->ReadAllColorScalarsOn();
    reader->ReadAllTCoordsOn();
    reader->ReadAllFieldsOn();
    return reader;
}

// Formats whose readers leave the arrays out unless asked for them.
template <typename Reader> static reader_ptr with_all_arrays(const std::string &path)
{
    auto reader = reader_of<Reader>(path);
    reader->UpdateInformation();
    reader->EnableAllPointArrays();
    reader->EnableAllCellArrays();
    return reader;
}

static reader_ptr cgns(const std::string &path)
{
    auto reader = reader_of<vtkCGNSReader>(path);
    reader->UpdateInformation();
    reader->EnableAllBases();
    reader->EnableAllPointArrays();
    reader->EnableAllCellArrays();
    return reader;
}

static reader_ptr exodus(const std::string &path)
{
    auto reader = reader_of<vtkExodusIIReader>(path);
    reader->UpdateInformation();
    for (const int type : {vtkExodusIIReader::NODAL, vtkExodusIIReader::ELEM_BLOCK})
        reader->SetAllArrayStatus(type, 1);
    return reader;
}

static reader_ptr cell_arrays(const std::string &path)
{
    auto reader = reader_of<vtkFLUENTReader>(path);
    reader->UpdateInformation();
    reader->EnableAllCellArrays();
    return reader;
}

static reader_ptr ensight(const std::string &path)
{
    auto reader = vtkSmartPointer<vtkGenericEnSightReader>::New();
    reader->SetCaseFileName(path.c_str());
    return reader;
}

static reader_ptr dyna(const std::string &path)
{
    auto reader = vtkSmartPointer<vtkLSDynaReader>::New();
    reader->SetFileName(path.c_str());
    return reader;
}

// The data of a PLOT3D grid, by the customs of naming: q for xyz in the name, or another ending.
static std::string solution_beside(const std::filesystem::path &grid)
{
    std::string name = grid.filename().string();
    std::vector<std::string> guesses;
    if (const size_t xyz = name.rfind("xyz"); xyz != std::string::npos && name.size() > xyz + 3)
        guesses.push_back(std::string(name).replace(xyz, 3, "q"));
    for (const char *ending : {".q", ".f", ".bin.q"})
        guesses.push_back(std::filesystem::path(grid).filename().replace_extension(ending).string());
    for (const std::string &guess : guesses)
        if (guess != name && std::filesystem::exists(grid.parent_path() / guess))
            return (grid.parent_path() / guess).string();
    return "";
}

static reader_ptr plot3d(const std::string &path, const std::string &solution)
{
    auto reader = vtkSmartPointer<vtkMultiBlockPLOT3DReader>::New();
    reader->SetXYZFileName(path.c_str());
    if (!solution.empty()) reader->SetQFileName(solution.c_str());
    reader->AutoDetectFormatOn();
    return reader;
}

// The attribute type of the root of a VTK XML file.
static std::string type_in_xml(const std::string &head)
{
    const size_t root = head.find("<VTKFile");
    if (root == std::string::npos) return "";
    const std::string tag = head.substr(root, head.find('>', root) - root);
    size_t at = tag.find(" type=");
    if (at == std::string::npos || at + 7 >= tag.size()) return "";
    at += 6;
    return tag.substr(at + 1, tag.find(tag[at], at + 1) - at - 1);
}

static bool is_list(const std::string &type)
{
    return type[0] == 'P' && type != "PolyData";
}

// VTK's readers of lattices crash where they are to read a part of an array of texts.
static void leave_texts_out(vtkAlgorithm *made, std::vector<std::string> *notes)
{
    auto *reader = vtkXMLReader::SafeDownCast(made);
    if (reader == nullptr) return;
    reader->UpdateInformation();
    const struct {
        vtkInformationInformationVectorKey *key;
        vtkDataArraySelection *chosen;
    } both[] = {{vtkDataObject::POINT_DATA_VECTOR(), reader->GetPointDataArraySelection()},
                {vtkDataObject::CELL_DATA_VECTOR(), reader->GetCellDataArraySelection()}};
    for (const auto &one : both) {
        vtkInformationVector *arrays = reader->GetOutputInformation(0)->Get(one.key);
        for (int i = 0; arrays != nullptr && i < arrays->GetNumberOfInformationObjects(); ++i) {
            vtkInformation *array = arrays->GetInformationObject(i);
            const char *name = array->Get(vtkDataObject::FIELD_NAME());
            if (name == nullptr || array->Get(vtkDataObject::FIELD_ARRAY_TYPE()) != VTK_STRING ||
                one.chosen->ArrayIsEnabled(name) == 0)
                continue;
            one.chosen->DisableArray(name);
            notes->push_back("left out: array " + std::string(name) +
                             ", as texts of lattices are not read in parts");
        }
    }
}

// One that knows what can be left out.
static reader_ptr xml_in_part(const std::string &path, const std::string &head, bool bare,
                              const std::string &kept)
{
    static const struct {
        const char *type;
        reader_ptr (*make)(const std::string &path);
    } kinds[] = {{"ImageData", plain<vtkXMLImageDataReader>},
                 {"RectilinearGrid", plain<vtkXMLRectilinearGridReader>},
                 {"StructuredGrid", plain<vtkXMLStructuredGridReader>},
                 {"UnstructuredGrid", plain<vtkXMLUnstructuredGridReader>},
                 {"PolyData", plain<vtkXMLPolyDataReader>},
                 {"PImageData", plain<vtkXMLPImageDataReader>},
                 {"PRectilinearGrid", plain<vtkXMLPRectilinearGridReader>},
                 {"PStructuredGrid", plain<vtkXMLPStructuredGridReader>},
                 {"PUnstructuredGrid", plain<vtkXMLPUnstructuredGridReader>},
                 {"PPolyData", plain<vtkXMLPPolyDataReader>}};
    const std::string type = type_in_xml(head);
    for (const auto &kind : kinds) {
        if (type != kind.type) continue;
        reader_ptr made = kind.make(path);
        auto *reader = vtkXMLReader::SafeDownCast(made);
        if (!bare) return made;
        reader->UpdateInformation();
        for (vtkDataArraySelection *arrays :
             {reader->GetPointDataArraySelection(), reader->GetCellDataArraySelection()}) {
            arrays->DisableAllArrays();
            if (arrays->ArrayExists(vtkDataSetAttributes::GhostArrayName()) != 0)
                arrays->EnableArray(vtkDataSetAttributes::GhostArrayName());
        }
        if (!kept.empty() && reader->GetPointDataArraySelection()->ArrayExists(kept.c_str()) != 0)
            reader->GetPointDataArraySelection()->EnableArray(kept.c_str());
        return made;
    }
    return plain<vtkXMLGenericDataObjectReader>(path);
}

// ---- first bytes --------------------------------------------------------------------------------------------

static bool starts_with(const std::string &text, const char *mark)
{
    return text.compare(0, strlen(mark), mark) == 0;
}

static bool has_at(const std::string &head, size_t at, const char *mark)
{
    return head.size() > at && head.compare(at, strlen(mark), mark) == 0;
}

static bool is_text(const std::string &, const std::string &head)
{
    return std::none_of(head.begin(), head.end(), [](unsigned char c) {
        return (c < ' ' && (c < '\a' || c > '\r') && c != '\032' && c != '\033') || c == 0x7f;
    });
}

static bool is_hdf(const std::string &, const std::string &head)
{
    const char *const mark = "\211HDF\r\n\032\n"; // at the start, or after a block of the user's
    return has_at(head, 0, mark) || has_at(head, 512, mark) || has_at(head, 1024, mark);
}

static bool is_netcdf(const std::string &path, const std::string &head)
{
    return starts_with(head, "CDF\1") || starts_with(head, "CDF\2") || starts_with(head, "CDF\5") ||
           is_hdf(path, head);
}

static bool is_cgns(const std::string &path, const std::string &head)
{
    return head.substr(0, 64).find("ADF Database Version") != std::string::npos || is_hdf(path, head);
}

// Binary STL has no mark, but its size follows from the count of triangles at byte 80.
static bool is_binary_stl(const std::string &path, const std::string &head)
{
    if (head.size() < 84) return false;
    uint32_t triangles;
    memcpy(&triangles, head.data() + 80, sizeof triangles);
    return std::filesystem::file_size(path) == 84 + uintmax_t{50} * triangles;
}

static bool is_stl(const std::string &path, const std::string &head)
{
    return is_binary_stl(path, head) || (is_text(path, head) && head.find("solid") != std::string::npos);
}

static bool is_ucd(const std::string &path, const std::string &head)
{
    return head[0] == '\a' || is_text(path, head); // the byte 7 marks the binary form
}

static bool is_gltf(const std::string &path, const std::string &head)
{
    return starts_with(head, "glTF") || is_text(path, head);
}

static bool is_fluent(const std::string &, const std::string &head)
{
    return head.find_first_not_of(" \t\r\n") == head.find('(');
}

static bool is_nrrd(const std::string &, const std::string &head)
{
    return starts_with(head, "NRRD");
}

static bool is_mrc(const std::string &, const std::string &head)
{
    return has_at(head, 208, "MAP");
}

// Three corners of six floats each.
static bool is_triangles(const std::string &path, const std::string &)
{
    return std::filesystem::file_size(path) % 72 == 0;
}

// The code of the samples' format, big-endian, one of those that the reader knows.
static bool is_segy(const std::string &, const std::string &head)
{
    return head.size() >= 3600 && head[3224] == 0 &&
           std::string("\1\2\3\5\10").find(head[3225]) != std::string::npos;
}

static bool is_anything(const std::string &, const std::string &)
{
    return true; // the reader looks for itself
}

namespace {

struct by_ending {
    const char *endings; // each between spaces
    reader_ptr (*make)(const std::string &path);
    bool (*possible)(const std::string &path, const std::string &head);
    const char *start; // of such a file, in words
};

} // namespace

static const by_ending readers[] = {
    {" .stl ", plain<vtkSTLReader>, is_stl, "\"solid\", or a count of triangles that suits its size,"},
    {" .obj ", plain<vtkOBJReader>, is_text, "text"},
    {" .gltf .glb ", plain<vtkGLTFReader>, is_gltf, "\"glTF\" or text"},
    {" .pts ", plain<vtkPTSReader>, is_text, "text"},
    {" .byu ", plain<vtkBYUReader>, is_text, "text"},
    {" .tri ", plain<vtkMCubesReader>, is_triangles, "a number of whole triangles"},
    {" .inp .ucd ", with_all_arrays<vtkAVSucdReader>, is_ucd, "text or the byte 7"},
    {" .foam ", with_all_arrays<vtkOpenFOAMReader>, is_text, "text"},
    {" .cas ", cell_arrays, is_fluent, "\"(\""},
    {" .neu ", plain<vtkGAMBITReader>, is_text, "text"},
    {" .vrt .cel ", plain<vtkProStarReader>, is_text, "text"},
    {" .tec .tp .dat ", plain<vtkTecplotReader>, is_text, "text"},
    {" .case .encas ", ensight, is_text, "text"},
    {" .e .ex2 .exo .exii .exodus .gen .g ", exodus, is_netcdf, "the mark of NetCDF or HDF5"},
    {" .cgns ", cgns, is_cgns, "the mark of HDF5 or ADF"},
    {" .vtkhdf .hdf ", plain<vtkHDFReader>, is_hdf, "the mark of HDF5"},
    {" .nc .ncdf .cdf ", plain<vtkNetCDFCFReader>, is_netcdf, "the mark of NetCDF or HDF5"},
    {" .k .key .lsdyna ", dyna, is_text, "text"},
    {" .sgy .segy ", plain<vtkSegYReader>, is_segy, "a known format of samples at byte 3225"},
    {" .cube ", plain<vtkGaussianCubeReader>, is_text, "text"},
    {" .dem ", plain<vtkDEMReader>, is_text, "text"},
    {" .nrrd .nhdr ", plain<vtkNrrdReader>, is_nrrd, "\"NRRD\""},
    {" .mrc .map .ccp4 ", plain<vtkMRCReader>, is_mrc, "\"MAP\" at byte 209"},
    {" .mnc ", plain<vtkMINCImageReader>, is_netcdf, "the mark of NetCDF"},
    {" .dcm ", plain<vtkDICOMImageReader>, is_anything, ""},
};

// Formats that are told by their first bytes alone.
static const char *const marked_endings =
    " .vtk .vti .vtr .vts .vtu .vtp .vtm .vtmb .pvd .vtpd .vtpc .pvti .pvtr .pvts .pvtu .pvtp .ply ";
static const char *const plot3d_endings = " .xyz .p3d .x .bin .grd .grid ";

static bool has_ending(const char *endings, const std::string &ending)
{
    return !ending.empty() && strstr(endings, (" " + ending + " ").c_str()) != nullptr;
}

static std::string ending_of(const std::string &path)
{
    std::string ending = std::filesystem::path(path).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return ending;
}

// ---- choice -------------------------------------------------------------------------------------------------

static std::string first_bytes(const std::string &path)
{
    note_input(path);
    std::error_code code;
    if (std::filesystem::is_directory(path, code))
        throw failure(path + ": is a directory; give the name of a file");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw failure(path + ": cannot be opened: " + strerror(errno));
    std::string head(4096, '\0');
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(file.gcount()));
    // that of an OpenFOAM case only says where the case is
    if (head.empty() && ending_of(path) != ".foam")
        throw failure(path + ": is empty; a mesh with data is wanted");
    return head;
}

[[noreturn]] static void wrong_start(const std::string &path, const std::string &start)
{
    throw failure(path + ": has the ending " + ending_of(path) + " but does not start as such a file does (" +
                  start + " is missing); it may be damaged or of another format");
}

[[noreturn]] static void refuse_solution(const std::string &path)
{
    throw failure("--solution is for PLOT3D grids, and " + path + " is of another format", exit_usage);
}

static reader_ptr choose_reader(const std::string &path, const read_options &options, const std::string &head,
                                std::vector<std::string> *notes)
{
    const bool marked = starts_with(head, "# vtk DataFile") || head.find("<VTKFile") != std::string::npos ||
                        starts_with(head, "ply") || starts_with(head, "FORMAT");
    if (marked && !options.solution.empty()) refuse_solution(path);
    if (starts_with(head, "# vtk DataFile")) return legacy(path);
    if (head.find("<VTKFile") != std::string::npos)
        return options.bare || !options.extent.empty() || options.nparts > 0
                   ? xml_in_part(path, head, options.bare, options.kept)
                   : plain<vtkXMLGenericDataObjectReader>(path);
    if (starts_with(head, "ply\n") || starts_with(head, "ply\r")) return plain<vtkPLYReader>(path);
    if (is_binary_stl(path, head)) return plain<vtkSTLReader>(path);
    if (starts_with(head, "FORMAT") && head.find("ensight") != std::string::npos) return ensight(path);

    const std::string ending = ending_of(path);
    if (has_ending(marked_endings, ending))
        wrong_start(path, ending == ".vtk"   ? "\"# vtk DataFile\""
                          : ending == ".ply" ? "\"ply\""
                                             : "\"<VTKFile\"");
    const bool of_another = std::any_of(std::begin(readers), std::end(readers), [&](const by_ending &reader) {
        return has_ending(reader.endings, ending);
    });
    if (!options.solution.empty() && of_another) refuse_solution(path);
    if (!options.solution.empty() || has_ending(plot3d_endings, ending)) {
        const std::string solution = options.solution.empty() ? solution_beside(path) : options.solution;
        if (solution.empty())
            notes->push_back(
                "no solution file beside the PLOT3D grid; give it with --solution to have its data");
        else
            first_bytes(solution); // complains where it cannot be read
        return plot3d(path, solution);
    }
    for (const by_ending &reader : readers) {
        if (!has_ending(reader.endings, ending)) continue;
        if (!reader.possible(path, head)) wrong_start(path, reader.start);
        return reader.make(path);
    }
    vtkImageReader2 *image = vtkImageReader2Factory::CreateImageReader2(path.c_str());
    if (image != nullptr) {
        image->SetFileName(path.c_str());
        return vtkSmartPointer<vtkAlgorithm>::Take(image);
    }

    std::string known = marked_endings + 1;
    for (const by_ending &reader : readers)
        known += std::string(reader.endings).substr(1);
    throw failure(path +
                  ": no reader knows this file. Formats are told by their first bytes or by these endings: " +
                  known + (plot3d_endings + 1) + "and images (.png .jpg .tif .mha .nii ...)");
}

// ---- what came out ------------------------------------------------------------------------------------------

static void check_complaints(const std::string &path, std::vector<std::string> *notes)
{
    const auto errors = vtk_messages::take_errors();
    if (!errors.empty())
        throw failure(path + ": is damaged or not what its name says; the reader's words: " + errors.front());
    const auto warnings = vtk_messages::take_warnings();
    const auto cut_short =
        std::find_if(warnings.begin(), warnings.end(), // of legacy files
                     [](const std::string &warning) { return starts_with(warning, "Error"); });
    if (cut_short != warnings.end())
        throw failure(path + ": is damaged or cut short; the reader's words: " + *cut_short);
    for (const std::string &warning : warnings)
        if (notes->size() < 3) notes->push_back("the reader warns: " + warning);
}

// The data sets of a composite, without the empty ones.
static std::vector<vtkDataSet *> leaves_of(vtkCompositeDataSet *blocks)
{
    std::vector<vtkDataSet *> leaves;
    const auto walk = vtkSmartPointer<vtkCompositeDataIterator>::Take(blocks->NewIterator());
    for (walk->InitTraversal(); !walk->IsDoneWithTraversal(); walk->GoToNextItem()) {
        auto *leaf = vtkDataSet::SafeDownCast(walk->GetCurrentDataObject());
        if (leaf != nullptr && leaf->GetNumberOfPoints() > 0) leaves.push_back(leaf);
    }
    return leaves;
}

static vtkSmartPointer<vtkDataSet> whole_of(const std::vector<vtkDataSet *> &leaves)
{
    vtkNew<vtkAppendFilter> append;
    for (vtkDataSet *leaf : leaves)
        append->AddInputData(leaf);
    append->MergePointsOn(); // blocks that share nodes stay connected
    append->Update();
    return append->GetOutput();
}

[[noreturn]] static void single_block(const std::string &path)
{
    throw failure(path + ": is a single block; --block can only be 0");
}

[[noreturn]] static void no_such_step(const std::string &path, int nsteps, int step)
{
    throw failure(path + ": has time steps 0 to " + std::to_string(nsteps - 1) + ", not " +
                  std::to_string(step));
}

static vtkSmartPointer<vtkDataSet> data_set_of(vtkDataObject *object, const read_options &options,
                                               input_file *file)
{
    if (auto *data = vtkDataSet::SafeDownCast(object)) {
        if (options.block > 0) single_block(file->path);
        return data;
    }
    auto *blocks = vtkCompositeDataSet::SafeDownCast(object);
    if (blocks == nullptr)
        throw failure(file->path + ": holds " +
                      (object != nullptr ? std::string("a ") + object->GetClassName() : "nothing") +
                      ", which is no mesh; meshes are images, grids and polygonal data");
    const auto leaves = leaves_of(blocks);
    file->nblocks = static_cast<int>(leaves.size());
    if (leaves.empty()) throw failure(file->path + ": holds no block with nodes");
    if (options.block >= file->nblocks)
        throw failure(file->path + ": has blocks 0 to " + std::to_string(file->nblocks - 1) + ", not " +
                      std::to_string(options.block));
    if (options.block >= 0) return leaves[static_cast<size_t>(options.block)];
    if (leaves.size() == 1) return leaves.front();
    file->notes.push_back(
        std::to_string(leaves.size()) +
        " blocks taken as one mesh, with the arrays that all of them have; --block N takes one");
    return whole_of(leaves);
}

// ---- collections --------------------------------------------------------------------------------------------

// A .pvd file lists the files of each time step.
static bool is_collection(const std::string &head)
{
    const size_t root = head.find("<VTKFile");
    return root != std::string::npos &&
           head.substr(root, head.find('>', root) - root).find("\"Collection\"") != std::string::npos;
}

static input_file read_collection(const std::string &path, const read_options &options)
{
    const auto root =
        vtkSmartPointer<vtkXMLDataElement>::Take(vtkXMLUtilities::ReadElementFromFile(path.c_str()));
    vtkXMLDataElement *list = root != nullptr ? root->FindNestedElementWithName("Collection") : nullptr;
    vtk_messages::take_errors();
    if (list == nullptr) throw failure(path + ": is damaged: it holds no list of files");
    std::map<double, std::vector<std::string>> steps;
    for (int i = 0; i < list->GetNumberOfNestedElements(); ++i) {
        vtkXMLDataElement *one = list->GetNestedElement(i);
        const char *name = one->GetAttribute("file");
        double time = 0;
        one->GetScalarAttribute("timestep", time);
        if (name != nullptr)
            steps[time].push_back((std::filesystem::path(path).parent_path() / name).string());
    }
    if (steps.empty()) throw failure(path + ": lists no files");
    if (options.step >= static_cast<int>(steps.size()))
        no_such_step(path, static_cast<int>(steps.size()), options.step);
    const auto &parts = std::next(steps.begin(), options.step)->second;
    const int nparts = static_cast<int>(parts.size());
    if (options.block >= nparts && nparts > 1)
        throw failure(path + ": has blocks 0 to " + std::to_string(nparts - 1) + ", not " +
                      std::to_string(options.block));
    input_file file;
    if (nparts == 1 || options.block >= 0) {
        read_options one = options;
        one.step = 0;
        if (nparts > 1) one.block = -1;
        file = read_file(parts[nparts > 1 ? static_cast<size_t>(options.block) : 0], one);
    } else {
        std::vector<input_file> read;
        std::vector<vtkDataSet *> leaves;
        for (const std::string &part : parts) {
            read.push_back(read_file(part, {}));
            leaves.push_back(read.back().data);
        }
        file.data = whole_of(leaves);
        file.notes.push_back(std::to_string(nparts) +
                             " files taken as one mesh, with the arrays that all of them "
                             "have; --block N takes one");
    }
    if (nparts > 1) file.nblocks = nparts;
    file.path = path;
    file.nsteps = static_cast<int>(steps.size());
    file.times.clear();
    for (const auto &step : steps)
        file.times.push_back(step.first);
    return file;
}

// Of files of one block and one time step.
static void refuse_others(const std::string &path, const read_options &options)
{
    if (!options.solution.empty()) refuse_solution(path);
    if (options.block > 0) single_block(path);
    if (options.step > 0) no_such_step(path, 1, options.step);
}

// What is read whole, and how it need not be.
[[noreturn]] static void too_large(const std::string &path, const std::string &type)
{
    const bool in_parts =
        is_list(type) || type == "ImageData" || type == "RectilinearGrid" || type == "StructuredGrid";
    throw failure(path + ": asks for more memory than there is; it is damaged or too large. " +
                  (in_parts
                       ? "With --pieces N it is read part by part, by commands that have that option"
                       : "Structured XML files (.vti, .vtr, .vts) and lists of pieces (.pvtu, .pvtp) are "
                         "read part by part with --pieces N; where there is more memory, clamp --pieces N "
                         "-o pieces.pvtu makes such a list of this one"));
}

static input_file read_by_vtk(const std::string &path, const read_options &options, const std::string &head)
{
    input_file file;
    file.path = path;
    const std::string type = type_in_xml(head);
    const crash_guard guard(path);
    try {
        vtk_messages::take_errors();
        const reader_ptr reader = choose_reader(path, options, head, &file.notes);
        reader->UpdateInformation();
        check_complaints(path, &file.notes);
        vtkInformation *about = reader->GetOutputInformation(0);
        auto *steps_key = vtkStreamingDemandDrivenPipeline::TIME_STEPS();
        file.nsteps = std::max(1, about->Length(steps_key));
        for (int i = 0; i < about->Length(steps_key); ++i)
            file.times.push_back(about->Get(steps_key, i));
        if (options.step >= file.nsteps) no_such_step(path, file.nsteps, options.step);
        if (!options.extent.empty()) leave_texts_out(reader, &file.notes);
        if (!options.extent.empty())
            reader->UpdateExtent(options.extent.data());
        else if (options.nparts > 0)
            reader->UpdatePiece(options.part, options.nparts, 0);
        else if (file.nsteps > 1)
            reader->UpdateTimeStep(about->Get(steps_key, options.step));
        else
            reader->Update();
        check_complaints(path, &file.notes);
        // the cube reader gives the atoms first and the grid second
        const int port = vtkGaussianCubeReader::SafeDownCast(reader) != nullptr ? 1 : 0;
        file.data = data_set_of(reader->GetOutputDataObject(port), options, &file);
        if (is_list(type)) forget_copies(file.data, true); // the reader takes each cell from one piece
    } catch (const std::bad_alloc &) {
        too_large(path, type);
    } catch (const std::length_error &) {
        too_large(path, type);
    }
    if (file.data->GetNumberOfPoints() < 1 && !options.may_be_empty)
        throw failure(path + ": holds no nodes; it may be cut short or of another format than its name says");
    return file;
}

// A list of lattices; whichever of its files is not as it should be is named.
static input_file read_listed_lattice(const std::string &path, const read_options &options,
                                      const std::string &head)
{
    if (options.extent.empty()) // else that was done before
        for (const xml_heading::piece &one : read_xml_heading(path).pieces)
            check_file(one.path);
    try {
        return read_by_vtk(path, options, head);
    } catch (const failure &) {
        read_options alone;
        alone.may_be_empty = true;
        for (const xml_heading::piece &one : read_xml_heading(path).pieces)
            read_file(one.path, alone);
        throw;
    }
}

input_file read_file(const std::string &path, const read_options &options)
{
    const std::string head = first_bytes(path);
    if (is_collection(head)) {
        if (!options.solution.empty()) refuse_solution(path);
        return read_collection(path, options);
    }
    const std::string type = type_in_xml(head);
    if (options.of_list && is_list(type))
        throw failure(path + ": is a list of pieces itself, and cannot be one of another list");
    if (type == "PUnstructuredGrid" || type == "PPolyData") {
        refuse_others(path, options);
        return read_all_listed(path);
    }
    if (is_list(type)) return read_listed_lattice(path, options, head);
    // of a file that is read part by part that was done before
    if (options.extent.empty() && options.nparts == 0) check_whole_file(path, head);
    return read_by_vtk(path, options, head);
}

// ---- lists of pieces ----------------------------------------------------------------------------------------

static std::vector<xml_heading::array> arrays_in(vtkXMLDataElement *list, bool *ghosts)
{
    std::vector<xml_heading::array> arrays;
    for (int i = 0; list != nullptr && i < list->GetNumberOfNestedElements(); ++i) {
        vtkXMLDataElement *one = list->GetNestedElement(i);
        const char *name = one->GetAttribute("Name");
        int components = 1, type = VTK_FLOAT;
        one->GetScalarAttribute("NumberOfComponents", components);
        one->GetWordTypeAttribute("type", type);
        int of_ids = 0;
        if (one->GetScalarAttribute("IdType", of_ids) != 0 && of_ids == 1) type = VTK_ID_TYPE;
        if (name == nullptr) continue;
        if (std::string(name) == vtkDataSetAttributes::GhostArrayName())
            *ghosts = true;
        else
            arrays.push_back({name, components, type});
    }
    return arrays;
}

// The attribute GlobalIds of the first tag of that name in a file.
static std::string global_ids_in(const std::string &path, const char *tag)
{
    constexpr size_t most = 1 << 16; // tags of pieces stand at the start
    std::ifstream file(path, std::ios::binary);
    std::string text(most, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    const size_t from = text.find(tag), to = text.find('>', from);
    const std::string mark = "GlobalIds=\"";
    const size_t at = text.find(mark, from);
    if (from == std::string::npos || at == std::string::npos || at > to) return "";
    return text.substr(at + mark.size(), text.find('"', at + mark.size()) - at - mark.size());
}

// The node array that numbers the nodes of all pieces: by its role in the list or in a piece, or by the names that
// programs give it.
static std::string global_ids_of(const std::string &path, const xml_heading &heading)
{
    std::vector<std::string> names = {global_ids_in(path, "<PPointData")};
    for (size_t i = 0; i < heading.pieces.size() && names.back().empty(); ++i)
        names.push_back(global_ids_in(heading.pieces[i].path, "<PointData"));
    for (const char *usual :
         {"GlobalNodeId", "GlobalNodeIds", "GlobalPointIds", "vtkGlobalNodeId", "vtkGlobalIds"})
        names.emplace_back(usual);
    for (const std::string &name : names)
        for (const xml_heading::array &one : heading.node)
            if (one.name == name && one.components == 1) return name;
    return "";
}

// What a list holds beside the extent of the whole.
static void read_list(const std::string &path, xml_heading *heading)
{
    const auto root =
        vtkSmartPointer<vtkXMLDataElement>::Take(vtkXMLUtilities::ReadElementFromFile(path.c_str()));
    vtkXMLDataElement *list =
        root != nullptr ? root->FindNestedElementWithName(heading->type.c_str()) : nullptr;
    vtk_messages::take_errors();
    if (list == nullptr) throw failure(path + ": is damaged: it holds no list of pieces");
    list->GetVectorAttribute("WholeExtent", 6, heading->extent);
    heading->node = arrays_in(list->FindNestedElementWithName("PPointData"), &heading->ghosts);
    heading->cell = arrays_in(list->FindNestedElementWithName("PCellData"), &heading->ghosts);
    for (int i = 0; i < list->GetNumberOfNestedElements(); ++i) {
        vtkXMLDataElement *one = list->GetNestedElement(i);
        if (std::string(one->GetName()) != "Piece") continue;
        const char *source = one->GetAttribute("Source");
        if (source == nullptr) throw failure(path + ": is damaged: a piece has no name");
        xml_heading::piece piece = {(std::filesystem::path(path).parent_path() / source).string(),
                                    {0, -1, 0, -1, 0, -1}};
        one->GetVectorAttribute("Extent", 6, piece.extent);
        heading->pieces.push_back(piece);
    }
    if (heading->type == "PUnstructuredGrid" || heading->type == "PPolyData")
        heading->ids = global_ids_of(path, *heading);
}

xml_heading read_xml_heading(const std::string &path)
{
    xml_heading heading;
    const std::string head = first_bytes(path);
    heading.type = type_in_xml(head);
    if (heading.type.empty()) return heading;
    if (is_list(heading.type)) {
        read_list(path, &heading);
        return heading;
    }
    const crash_guard guard(path);
    check_whole_file(path, head);
    vtk_messages::take_errors();
    const reader_ptr made = xml_in_part(path, head, false, "");
    made->UpdateInformation();
    std::vector<std::string> notes;
    check_complaints(path, &notes);
    if (vtkInformation *about = made->GetOutputInformation(0))
        if (about->Has(vtkStreamingDemandDrivenPipeline::WHOLE_EXTENT()) != 0)
            about->Get(vtkStreamingDemandDrivenPipeline::WHOLE_EXTENT(), heading.extent);
    if (auto *reader = vtkXMLUnstructuredDataReader::SafeDownCast(made))
        heading.nparts = static_cast<int>(reader->GetNumberOfPieces());
    if (auto *reader = vtkXMLReader::SafeDownCast(made))
        for (vtkDataArraySelection *arrays :
             {reader->GetPointDataArraySelection(), reader->GetCellDataArraySelection()})
            heading.ghosts =
                heading.ghosts || arrays->ArrayExists(vtkDataSetAttributes::GhostArrayName()) != 0;
    return heading;
}

void check_file(const std::string &path)
{
    check_whole_file(path, first_bytes(path));
}
