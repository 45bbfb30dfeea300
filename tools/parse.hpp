// Numbers out of arguments. All of a text has to be the number; option stands before the complaint. Throws
// failure (wrong usage).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

double parse_number(const std::string &option, const std::string &text);
int64_t parse_count(const std::string &option, const std::string &text); // at least 1
// X,Y,Z, finite.
std::vector<double> parse_point(const std::string &option, const std::string &text);
