#include "parse.hpp"

#include "failure.hpp"

#include <charconv>
#include <cmath>
#include <sstream>

template <typename Number> static bool is_number(const std::string &text, Number *value)
{
    const char *first = text.data(), *end = first + text.size();
    if (first != end && *first == '+') ++first;
    const auto read = std::from_chars(first, end, *value);
    return read.ec == std::errc() && read.ptr == end && first != end;
}

double parse_number(const std::string &option, const std::string &text)
{
    double value;
    if (!is_number(text, &value)) throw failure(option + ": " + text + " is no number", exit_usage);
    return value;
}

int64_t parse_count(const std::string &option, const std::string &text)
{
    int64_t value;
    if (!is_number(text, &value) || value < 1)
        throw failure(option + ": " + text + " is no count; a whole number from 1 is wanted", exit_usage);
    return value;
}

std::vector<double> parse_point(const std::string &option, const std::string &text)
{
    std::vector<double> xyz;
    std::istringstream columns(text + ','); // so that an empty last one is seen
    for (std::string column; std::getline(columns, column, ',');) {
        double value;
        if (is_number(column, &value) && std::isfinite(value))
            xyz.push_back(value);
        else
            xyz.resize(4);
    }
    if (xyz.size() != 3)
        throw failure(option + ": " + text + " is no point; three numbers x,y,z are wanted", exit_usage);
    return xyz;
}
