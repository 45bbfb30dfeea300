// Drawings of lines and short texts within a circle, as vector graphics and as pictures.
#pragma once

#include <string>
#include <vector>

// What a line is drawn as, from the back to the front.
enum class chart_part { grid, frame, curve };

struct chart_line {
    chart_part part;
    std::vector<double> xy; // rows of 2
};

// A text of digits, points and minus signs that ends or stands in the middle at a place.
struct chart_label {
    std::string text;
    double x, y;
    double angle; // of the text, degrees against the clock
    double size;  // height of the letters
    enum { centred, leftward } anchor;
};

struct chart_drawing {
    std::vector<chart_line> lines;
    std::vector<chart_label> labels;
    double reach; // drawn is the square from -reach to reach
};

void write_svg(const std::string &path, const chart_drawing &what);
void write_pdf(const std::string &path, const chart_drawing &what);
// PNG or JPEG by the ending.
void write_chart_picture(const std::string &path, const chart_drawing &what, int pixels);
