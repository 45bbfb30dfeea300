// Figures that a command finds, as a table for the user and in the forms that programs read.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

// One entry: a text, a number or a count.
using table_entry = std::variant<std::string, double, int64_t>;

struct table {
    std::vector<std::string> columns;
    std::vector<std::vector<table_entry>> rows; // each as long as columns
};

// Columns in line, numbers in six digits.
std::string as_text(const table &figures);
// An array with an object a row. Numbers that JSON does not know are null.
std::string as_json(const table &figures);
// With a header. Numbers that are none are empty fields.
std::string as_csv(const table &figures);

// One field of CSV (RFC 4180): in quotes where it has to be.
std::string csv_field(const std::string &text);
// The shortest text that reads back as the same float, or the same double. Empty for NaN.
std::string csv_number(float value);
std::string csv_number(double value);
