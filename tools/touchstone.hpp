// Touchstone files of one port: measured or computed reflection by frequency.
#pragma once

#include <string>
#include <vector>

struct reflection_sample {
    double frequency;       // Hz
    double real, imaginary; // of the reflection coefficient
};

struct reflection_curve {
    double resistance; // ohms that the coefficient is referred to
    std::vector<reflection_sample> samples;
};

// Version 1, S parameters, as real and imaginary part, magnitude and angle, or decibels and angle. Throws failure, with
// words for what else such files can be.
reflection_curve read_touchstone(const std::string &path);
