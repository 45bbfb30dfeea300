// What the command can do, one function a sub-command. All throw failure or interrupted.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct settings {
    // every command
    bool quiet = false, time = false;

    // what is read
    std::string file;
    int block = -1, step = 0;
    std::string solution;

    // the array that is worked on
    std::string array;     // empty: the only one, if there is one
    std::string component; // a number, "length" or empty
    std::optional<double> null;

    // iso, isoline
    std::vector<double> levels;
    std::vector<std::string> with; // arrays to carry along; empty: all
    std::string picture;

    // probe
    std::string points;
    std::vector<std::string> line; // A, B, N
    std::vector<int64_t> grid;

    // clamp
    std::optional<double> min, max;

    // sample
    std::string sample, mesh = "uniform";
    std::vector<int64_t> size = {64};
    int order = 1;

    std::string out;
};

void info(const settings &from);
void iso(const settings &from);
void isoline(const settings &from);
void probe(const settings &from);
void threshold_null(const settings &from);
void clamp(const settings &from);
void sample(const settings &from);

// "hydrogen  the 4f orbital ..." a line each.
std::string list_of_samples();
