// Tables of text (RFC 4180), read and written.
#pragma once

#include "arrays.hpp"

#include <string>
#include <vector>

class vtkAbstractArray;

// Points of a table with what stands beside them.
struct point_table {
    std::vector<double> xyz; // rows of 3
    struct column {
        std::string name;
        std::vector<std::string> texts; // an entry a point
    };
    std::vector<column> others;
    qx_long count() const { return static_cast<qx_long>(xyz.size() / 3); }
};

// Which columns of a table are the coordinates: those of these names, two or three; without names x, y and z, or,
// where the table has no header, the first ones.
struct point_columns {
    bool may_be_flat = false; // where the third one is missing z is 0
    std::vector<std::string> names;
};

// Commas, semicolons, tabs or spaces stand between the columns, and quotes around what holds such. Throws failure.
point_table read_point_table(const std::string &path, const point_columns &columns = {});

// The points, the other columns, the arrays and their mask, a row a point. Numbers have the digits of their type;
// where inside holds 0 the fields of the arrays are empty. Throws failure.
void write_point_table(const std::string &path, const point_table &points,
                       const std::vector<typed_array> &arrays, const typed_array &mask,
                       const std::vector<unsigned char> &inside);

// A column as a VTK array: of doubles where every text is a number or empty (NaN), else of texts.
vtkSmartPointer<vtkAbstractArray> array_of_texts(const std::string &name,
                                                 const std::vector<std::string> &texts);

// Any table: the names of its columns, and its rows as texts. Without a header columns are named column1, column2 and so
// on. Throws failure.
struct text_table {
    std::vector<std::string> names;
    std::vector<std::vector<std::string>> rows;
};
text_table read_text_table(const std::string &path);
