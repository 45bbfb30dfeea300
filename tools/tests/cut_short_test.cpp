// Files that end early: what is read is the whole, or the user is told.
#include "support.hpp"

#include <gtest/gtest.h>

#include <vtkDataSet.h>
#include <vtkDataSetWriter.h>
#include <vtkExodusIIWriter.h>
#include <vtkNew.h>
#include <vtkPLYWriter.h>
#include <vtkPolyData.h>
#include <vtkSTLWriter.h>
#include <vtkXMLDataSetWriter.h>
#include <vtkXMLWriter.h>

#include <cstring>

namespace {

// What info tells, without the line with the name.
std::string told_of(const ran &result)
{
    return result.out.substr(result.out.find('\n') + 1);
}

// At these shares of its length a file is cut.
void expect_told(const std::string &path)
{
    const std::string whole = bytes_of(path), ending = path.substr(path.rfind('.'));
    const std::string told = told_of(run_well({"info", path})), cut = scratch("cut" + ending);
    for (const double share : {0.1, 0.5, 0.7, 0.99}) {
        write_bytes(cut, whole.substr(0, static_cast<size_t>(share * static_cast<double>(whole.size()))));
        const ran result = run({"info", cut});
        if (result.code == 0) {
            const std::string seen = told_of(result);
            EXPECT_EQ(seen.substr(0, seen.find("try:")), told.substr(0, told.find("try:")))
                << path << " at " << share;
        } else {
            EXPECT_EQ(result.code, 1) << path << " at " << share << "\n" << shown(result);
            EXPECT_EQ(result.err.find("skoklana: " + cut + ": "), 0u) << shown(result);
        }
    }
}

std::string made(const char *mesh, const char *ending)
{
    std::string path = scratch(std::string("made") + ending);
    run_well({"sample", "noisy-sphere", "--mesh", mesh, "--size", "7", "-o", path});
    return path;
}

TEST(CutShort, XmlOfEveryEncodingIsTold)
{
    for (const auto &[mesh, ending] : {std::pair("uniform", ".vti"), std::pair("tet", ".vtu")}) {
        const auto data = read(made(mesh, ending));
        for (const int mode : {vtkXMLWriter::Ascii, vtkXMLWriter::Binary, vtkXMLWriter::Appended})
            for (const int encode : {0, 1})
                for (const int compressed : {0, 1}) {
                    if (mode != vtkXMLWriter::Appended && encode == 1) continue;
                    vtkNew<vtkXMLDataSetWriter> writer;
                    const std::string path = scratch(std::string("xml") + ending);
                    writer->SetFileName(path.c_str());
                    writer->SetInputData(data);
                    writer->SetDataMode(mode);
                    writer->SetEncodeAppendedData(encode);
                    if (compressed == 0) writer->SetCompressorTypeToNone();
                    if (encode == 0) writer->SetHeaderTypeToUInt64();
                    writer->Write();
                    expect_told(path);
                }
    }
}

TEST(CutShort, LegacyFilesAndSurfacesAreTold)
{
    for (const char *mesh : {"uniform", "curvilinear", "hex"})
        for (const int type : {VTK_ASCII, VTK_BINARY}) {
            vtkNew<vtkDataSetWriter> writer;
            const std::string path = scratch("legacy.vtk");
            writer->SetFileName(path.c_str());
            writer->SetFileType(type);
            writer->SetInputData(read(made(mesh, mesh[0] == 'u'   ? ".vti"
                                                 : mesh[0] == 'c' ? ".vts"
                                                                  : ".vtu")));
            writer->Write();
            expect_told(path);
        }
    run_well({"iso", made("uniform", ".vti"), "-l", "0", "-o", scratch("surface.vtp")});
    const auto surface = read_surface(scratch("surface.vtp"));
    for (const int type : {VTK_ASCII, VTK_BINARY}) {
        vtkNew<vtkPLYWriter> ply;
        ply->SetFileName(scratch("surface.ply").c_str());
        ply->SetFileType(type);
        ply->SetInputData(surface);
        ply->Write();
        expect_told(scratch("surface.ply"));
        vtkNew<vtkSTLWriter> stl;
        stl->SetFileName(scratch("surface.stl").c_str());
        stl->SetFileType(type);
        stl->SetInputData(surface);
        stl->Write();
        expect_told(scratch("surface.stl"));
    }
}

TEST(CutShort, ExodusIsTold)
{
    const std::string path = scratch("blocks.exo");
    vtkNew<vtkExodusIIWriter> writer;
    writer->SetInputData(read(made("hex", ".vtu")));
    writer->SetFileName(path.c_str());
    writer->Write();
    ASSERT_EQ(bytes_of(path).substr(0, 3), "CDF");
    expect_told(path);
}

// The classic form by hand: x and y, and t of both, at several times.
std::string netcdf(bool records)
{
    std::string bytes = "CDF\1";
    const auto number = [&](uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift);
    };
    const auto name = [&](const std::string &text) {
        number(static_cast<uint32_t>(text.size()));
        bytes += text + std::string((4 - text.size() % 4) % 4, '\0');
    };
    const uint32_t nx = 9, ny = 8;
    number(records ? 3 : 0); // records
    number(10);
    number(3);
    for (const auto &[dim, size] : {std::pair("time", 0u), std::pair("y", ny), std::pair("x", nx)}) {
        name(dim);
        number(size == 0 && !records ? 1 : size);
    }
    number(0);
    number(0);
    number(11);
    number(4);
    struct variable {
        const char *name;
        std::vector<uint32_t> dims;
        uint32_t values;
        bool record;
    };
    const std::vector<variable> variables = {{"y", {1}, ny, false},
                                             {"x", {2}, nx, false},
                                             {"time", {0}, 1, records},
                                             {"t", {0, 1, 2}, nx * ny, records}};
    std::vector<size_t> places;
    for (const variable &one : variables) {
        name(one.name);
        number(static_cast<uint32_t>(one.dims.size()));
        for (const uint32_t dim : one.dims)
            number(dim);
        number(0);
        number(0);
        number(5);
        number(one.values * 4);
        places.push_back(bytes.size());
        number(0);
    }
    const auto put = [&](const variable &one, float offset) {
        for (uint32_t i = 0; i < one.values; ++i) {
            const float value = static_cast<float>(i) + offset;
            uint32_t bits;
            memcpy(&bits, &value, sizeof bits);
            number(bits);
        }
    };
    for (const bool record : {false, true})
        for (size_t i = 0; i < variables.size(); ++i) {
            if (variables[i].record != record) continue;
            const auto place = static_cast<uint32_t>(bytes.size());
            for (size_t b = 0; b < 4; ++b)
                bytes[places[i] + b] = static_cast<char>(place >> (24 - 8 * b));
            put(variables[i], 0);
        }
    for (int record = 1; records && record < 3; ++record)
        for (const variable &one : variables)
            if (one.record) put(one, static_cast<float>(record));
    return bytes;
}

TEST(CutShort, ClassicNetcdfIsTold)
{
    for (const bool records : {false, true}) {
        const std::string bytes = netcdf(records), path = scratch("classic.nc"), cut = scratch("cut.nc");
        write_bytes(path, bytes);
        run_well({"info", path});
        expect_told(path);
        for (size_t length = 5; length < bytes.size(); length += 37) {
            write_bytes(cut, bytes.substr(0, length));
            const ran result = run({"info", cut});
            EXPECT_EQ(result.code, 1) << length;
            EXPECT_NE(result.err.find("cut.nc: is cut short or damaged: it has " + std::to_string(length) +
                                      " bytes"),
                      std::string::npos)
                << shown(result);
        }
    }
}

TEST(CutShort, RealDataIsTold)
{
    int seen = 0;
    for (const char *name :
         {"SainteHelens.dem", "RectGrid2.vtk", "can.vtu", "cow.vtp", "office.binary.vtk"}) {
        const std::string path = real_data(name);
        if (path.empty()) continue;
        ++seen;
        expect_told(path);
    }
    // a grid cut short, with its whole solution beside it, and the other way about
    const std::string grid = real_data("bluntfinxyz.bin"), solution = real_data("bluntfinq.bin");
    if (!grid.empty() && !solution.empty()) {
        const std::string of_grid = bytes_of(grid), of_solution = bytes_of(solution);
        for (const double share : {0.1, 0.5, 0.7, 0.99})
            for (const bool first : {true, false}) {
                const auto length = [&](const std::string &bytes) {
                    return static_cast<size_t>(share * static_cast<double>(bytes.size()));
                };
                write_bytes(scratch("cutxyz.bin"),
                            of_grid.substr(0, first ? length(of_grid) : of_grid.size()));
                write_bytes(scratch("cutq.bin"),
                            of_solution.substr(0, first ? of_solution.size() : length(of_solution)));
                const ran result = run({"info", scratch("cutxyz.bin")});
                EXPECT_EQ(result.code, 1)
                    << share << (first ? " of the grid\n" : " of the solution\n") << shown(result);
            }
    }
    if (seen == 0) GTEST_SKIP() << "no real data is here";
}

} // namespace
