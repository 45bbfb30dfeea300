// Plots of samples and curves, with or without a display.
#pragma once

#include <string>
#include <vector>

struct plot {
    std::string x_name, y_name;
    std::vector<double> x, y;             // samples, drawn as dots
    std::vector<double> curve_x, curve_y; // drawn as a line
};

// Draws into a PNG file. Throws failure.
void write_plot(const std::string &path, const plot &what);
