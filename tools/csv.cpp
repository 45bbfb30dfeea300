#include "csv.hpp"

#include "failure.hpp"
#include "table.hpp"
#include "write.hpp"

#include <vtkDoubleArray.h>
#include <vtkStringArray.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>

// ---- reading ------------------------------------------------------------------------------------------------

namespace {

// One row of a table; a quoted field may go on over lines. False: there is none any more.
class row_reader {
  public:
    explicit row_reader(std::ifstream &file_) : file(file_) {}
    bool next(std::vector<std::string> *fields);
    int64_t line = 0; // the first of the row is 1

  private:
    void split(const std::string &text, std::vector<std::string> *fields) const;

    std::ifstream &file;
    int64_t lines = 0;
    char separator = '\0'; // '\0': not known yet; ' ': any white space
};

// What stands between the columns, outside of quotes.
char separator_of(const std::string &text)
{
    bool quoted = false, semicolon = false;
    for (const char c : text) {
        if (c == '"') quoted = !quoted;
        if (c == ',' && !quoted) return ',';
        semicolon = semicolon || (c == ';' && !quoted);
    }
    return semicolon ? ';' : ' ';
}

bool row_reader::next(std::vector<std::string> *fields)
{
    std::string text, more;
    line = lines + 1;
    if (!std::getline(file, text)) return false;
    ++lines;
    if (lines == 1 && text.compare(0, 3, "\xef\xbb\xbf") == 0) text.erase(0, 3); // a mark of UTF-8
    while (std::count(text.begin(), text.end(), '"') % 2 == 1 && std::getline(file, more)) {
        text += "\n" + more;
        ++lines;
    }
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (separator == '\0' && text.find_first_not_of(" \t") != std::string::npos && text[0] != '#')
        separator = separator_of(text);
    split(text, fields);
    return true;
}

void row_reader::split(const std::string &text, std::vector<std::string> *fields) const
{
    fields->clear();
    std::string field;
    bool quoted = false, any = false;
    const auto ends = [&](char c) { return separator == ' ' ? c == ' ' || c == '\t' : c == separator; };
    const auto put = [&] {
        const size_t from = field.find_first_not_of(" \t"), to = field.find_last_not_of(" \t");
        if (separator != ' ' || any)
            fields->push_back(from == std::string::npos ? "" : field.substr(from, to - from + 1));
        field.clear();
        any = false;
    };
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"' && quoted && i + 1 < text.size() && text[i + 1] == '"') {
            field += text[++i];
        } else if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if (!quoted && ends(c)) {
            put();
        } else {
            field += c;
            any = true;
        }
    }
    if (!text.empty()) put();
}

constexpr size_t no_column = SIZE_MAX;

bool is_number(const std::string &text, double *value)
{
    char *end;
    *value = strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0';
}

bool is_name(const std::string &text, const std::string &name)
{
    return std::equal(text.begin(), text.end(), name.begin(), name.end(),
                      [](unsigned char a, unsigned char b) { return tolower(a) == tolower(b); });
}

std::string listed(const std::vector<std::string> &names)
{
    std::string list;
    for (const std::string &name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

// The numbers of the coordinates' columns; no_column for a third one that may be missing.
std::array<size_t, 3> find_coordinates(const std::string &path, const std::vector<std::string> &names,
                                       bool has_header, const point_columns &wanted)
{
    std::array<size_t, 3> at = {0, 1, 2};
    if (!has_header && wanted.names.empty()) {
        if (wanted.may_be_flat && names.size() == 2) at[2] = no_column;
        return at;
    }
    const std::vector<std::string> xyz =
        wanted.names.empty() ? std::vector<std::string>{"x", "y", "z"} : wanted.names;
    for (size_t d = 0; d < 3; ++d) {
        const auto found = d < xyz.size()
                               ? std::find_if(names.begin(), names.end(),
                                              [&](const std::string &name) { return is_name(name, xyz[d]); })
                               : names.end();
        at[d] = found == names.end() ? no_column : static_cast<size_t>(found - names.begin());
        const bool may_miss = d == 2 && wanted.may_be_flat && (wanted.names.empty() || xyz.size() == 2);
        if (at[d] == no_column && !may_miss)
            throw failure(path + ": has no column " + xyz[d] +
                          ", one of the coordinates; its columns: " + listed(names) +
                          (wanted.may_be_flat ? "; --columns tells which are coordinates" : ""));
    }
    return at;
}

} // namespace

point_table read_point_table(const std::string &path, const point_columns &columns)
{
    note_input(path);
    std::ifstream file(path);
    if (!file) throw failure(path + ": cannot be opened: " + strerror(errno));
    point_table points;
    std::vector<std::string> fields;
    std::array<size_t, 3> at = {0, 1, 2};
    std::vector<size_t> others;
    bool first = true;
    row_reader rows(file);
    while (rows.next(&fields)) {
        double value;
        if (fields.empty() || fields[0].compare(0, 1, "#") == 0) continue;
        if (std::all_of(fields.begin(), fields.end(), [](const std::string &field) { return field.empty(); }))
            continue;
        if (first) {
            first = false;
            const bool has_header = !is_number(fields[0], &value);
            std::vector<std::string> names;
            for (size_t c = 0; c < fields.size(); ++c)
                names.push_back(has_header && !fields[c].empty() ? fields[c]
                                                                 : "column" + std::to_string(c + 1));
            at = find_coordinates(path, names, has_header, columns);
            for (size_t c = 0; c < names.size(); ++c) {
                if (std::find(at.begin(), at.end(), c) != at.end()) continue;
                others.push_back(c);
                points.others.push_back({names[c], {}});
            }
            if (has_header) continue;
        }
        for (const size_t c : at) {
            if (c == no_column) {
                points.xyz.push_back(0);
                continue;
            }
            if (c >= fields.size() || !is_number(fields[c], &value))
                throw failure(path + ": line " + std::to_string(rows.line) + " holds no point; " +
                              (at[2] == no_column ? "two numbers x, y" : "three numbers x, y, z") +
                              " are wanted, with commas between");
            points.xyz.push_back(value);
        }
        for (size_t i = 0; i < others.size(); ++i)
            points.others[i].texts.push_back(others[i] < fields.size() ? fields[others[i]] : "");
    }
    if (points.xyz.empty()) throw failure(path + ": holds no points; rows of x, y, z are wanted");
    return points;
}

text_table read_text_table(const std::string &path)
{
    note_input(path);
    std::ifstream file(path);
    if (!file) throw failure(path + ": cannot be opened: " + strerror(errno));
    text_table table;
    std::vector<std::string> fields;
    row_reader rows(file);
    while (rows.next(&fields)) {
        if (fields.empty() || fields[0].compare(0, 1, "#") == 0) continue;
        if (std::all_of(fields.begin(), fields.end(), [](const std::string &field) { return field.empty(); }))
            continue;
        if (table.names.empty()) {
            double value;
            const bool header = std::none_of(fields.begin(), fields.end(), [&](const std::string &field) {
                return is_number(field, &value);
            });
            for (size_t c = 0; c < fields.size(); ++c)
                table.names.push_back(header && !fields[c].empty() ? fields[c]
                                                                   : "column" + std::to_string(c + 1));
            if (header) continue;
        }
        table.rows.push_back(fields);
    }
    if (table.rows.empty()) throw failure(path + ": holds no rows");
    return table;
}

// ---- writing ------------------------------------------------------------------------------------------------

// A coordinate that was a float is written as one.
static std::string coordinate(double value)
{
    const float rounded = static_cast<float>(value);
    return rounded == value ? csv_number(rounded) : csv_number(value);
}

// The values of one row, each behind a comma.
static std::string values_of_row(const typed_array &array, qx_long row)
{
    std::string text;
    with_values(array, [&](const auto *values) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(*values)>>;
        for (int c = 0; c < array.veclen; ++c) {
            const T value = values[row * array.veclen + c];
            if constexpr (std::is_integral_v<T>)
                text += "," + std::to_string(value);
            else
                text += "," + csv_number(value);
        }
    });
    return text;
}

void write_point_table(const std::string &path, const point_table &points,
                       const std::vector<typed_array> &arrays, const typed_array &mask,
                       const std::vector<unsigned char> &inside)
{
    write_beside(path, [&](const std::string &beside) {
        std::ofstream file(beside, std::ios::binary);
        file << "x,y,z";
        for (const auto &other : points.others)
            file << ',' << csv_field(other.name);
        for (const typed_array &array : arrays) // a part a column: "v" or "v:0", "v:1", "v:2"
            for (int c = 0; c < array.veclen; ++c)
                file << ',' << csv_field(array.name + (array.veclen > 1 ? ":" + std::to_string(c) : ""));
        file << ',' << csv_field(mask.name) << '\n';
        for (qx_long row = 0; row < points.count(); ++row) {
            const auto at = static_cast<size_t>(row);
            file << coordinate(points.xyz[at * 3]) << ',' << coordinate(points.xyz[at * 3 + 1]) << ','
                 << coordinate(points.xyz[at * 3 + 2]);
            for (const auto &other : points.others)
                file << ',' << csv_field(other.texts[at]);
            for (const typed_array &array : arrays) {
                if (inside[at] != 0)
                    file << values_of_row(array, row);
                else
                    file << std::string(static_cast<size_t>(array.veclen), ',');
            }
            file << values_of_row(mask, row) << '\n';
        }
        file.close();
        if (!file) throw failure("it could not be written to the end");
    });
}

vtkSmartPointer<vtkAbstractArray> array_of_texts(const std::string &name,
                                                 const std::vector<std::string> &texts)
{
    auto numbers = vtkSmartPointer<vtkDoubleArray>::New();
    auto strings = vtkSmartPointer<vtkStringArray>::New();
    bool all_numbers = true;
    for (const std::string &text : texts) {
        double value = std::nan("");
        all_numbers = all_numbers && (text.empty() || is_number(text, &value));
        numbers->InsertNextValue(value);
        strings->InsertNextValue(text);
    }
    numbers->SetName(name.c_str());
    strings->SetName(name.c_str());
    return all_numbers ? vtkSmartPointer<vtkAbstractArray>(numbers)
                       : vtkSmartPointer<vtkAbstractArray>(strings);
}
