// Pictures of meshes, surfaces, lines and points, with or without a display.
#pragma once

#include <vtkSmartPointer.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class vtkDataSet;
class vtkRenderer;

// How a picture looks, as the user chooses.
struct picture_look {
    int width = 1200, height = 900;
    std::string view;    // "x", "-z" and so on: looking along that axis; "iso"; empty: as suits the data
    std::string colours; // of names_of_colours; empty: the default
};

// What is drawn. Of solid cells that is their skin.
struct drawing {
    vtkSmartPointer<vtkDataSet> data;
    std::string colour_by; // an array of the data, of vectors their length; empty: one colour, no colour bar
    bool colour_cells = false;  // it is a cell array
    bool sides = false;         // of polygons are drawn as lines
    std::string title;          // of the colour bar; empty: the array's name
    std::vector<double> levels; // where the bar has labels, with colours from the first to the last
    std::vector<double> limits; // of bands, ascending: one colour from each to the next
    double box[6];              // drawn as the outline, such as that of the mesh that data came from
    // Polygonal data of several levels: the triangles of each, which follow one another. The wider surfaces are
    // drawn so that the narrower ones shine through.
    std::vector<int64_t> level_triangles;
};

// Draws into a PNG or JPEG file, by the ending. Throws failure; an empty picture is one.
void write_picture(const std::string &path, const drawing &what, const picture_look &look);

// The same for what fill puts into the one renderer, white, of the whole picture.
void write_scene(const std::string &path, const picture_look &look,
                 const std::function<void(vtkRenderer *)> &fill);
