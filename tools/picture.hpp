// Pictures of surfaces and lines, with or without a display.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class vtkPolyData;

struct picture_options {
    int width = 1200, height = 900;
    std::string colour_by; // a node array of the data; empty: one colour and no colour bar
    double box[6];         // of the mesh: drawn as the outline
    // Triangles of each level, which stand in the data one level after another. Of several, the wider ones are
    // drawn so that the narrower ones shine through.
    std::vector<int64_t> level_triangles;
};

// Draws data into a PNG file. Throws failure; an empty picture is one.
void write_picture(const std::string &path, vtkPolyData *data, const picture_options &options);
