// Colour maps, and the ticks and texts that explain them.
#pragma once

#include <vtkSmartPointer.h>

#include <string>
#include <vector>

class vtkColorTransferFunction;

// "even, diverging, ...".
std::string names_of_colours();
bool is_colours(const std::string &name);

// The map of that name from lo to hi.
vtkSmartPointer<vtkColorTransferFunction> colours_between(const std::string &name, double lo, double hi);
// One colour from each limit to the next, in equal steps whatever their widths.
vtkSmartPointer<vtkColorTransferFunction> stepped_colours(const std::string &name,
                                                          const std::vector<double> &limits);

// The greatest of 1, 2 and 5 times a power of ten that is not above the value, which is above 0.
double round_below(double value);
// Round numbers within lo and hi, some count of them, ascending.
std::vector<double> round_ticks(double lo, double hi, int count);
// The shortest texts that tell the values apart: as many digits for all as the closest two need.
std::vector<std::string> tick_texts(const std::vector<double> &values);
// A title in lines of at most width characters, broken behind spaces, underscores, hyphens and colons.
std::vector<std::string> wrapped(const std::string &title, size_t width);
