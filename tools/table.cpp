#include "table.hpp"

#include "console.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

template <typename Number> static std::string shortest(Number value)
{
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

std::string csv_number(float value)
{
    return std::isnan(value) ? "" : shortest(value);
}

std::string csv_number(double value)
{
    return std::isnan(value) ? "" : shortest(value);
}

std::string csv_field(const std::string &text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + "\"";
}

// ---- text ---------------------------------------------------------------------------------------------------

static std::string shown(const table_entry &entry)
{
    if (const auto *text = std::get_if<std::string>(&entry)) return *text;
    if (const auto *value = std::get_if<double>(&entry)) return in_words(*value);
    return std::to_string(std::get<int64_t>(entry));
}

std::string as_text(const table &figures)
{
    std::vector<std::vector<std::string>> lines = {figures.columns};
    for (const auto &row : figures.rows) {
        lines.emplace_back();
        for (const table_entry &entry : row)
            lines.back().push_back(shown(entry));
    }
    std::string out;
    for (const auto &line : lines) {
        for (size_t c = 0; c < line.size(); ++c) {
            size_t width = 0;
            for (const auto &other : lines)
                width = std::max(width, other[c].size());
            const std::string gap(width - line[c].size(), ' ');
            // texts stand left and numbers right, under their names
            const bool left = !figures.rows.empty() && figures.rows[0][c].index() == 0;
            out += (c > 0 ? "  " : "") + (left ? line[c] + gap : gap + line[c]);
        }
        out.erase(out.find_last_not_of(' ') + 1);
        out += '\n';
    }
    return out;
}

// ---- JSON ---------------------------------------------------------------------------------------------------

static std::string json_text(const std::string &text)
{
    std::string out = "\"";
    for (const char c : text) {
        char code[8];
        if (c == '"' || c == '\\')
            out += {'\\', c};
        else if (static_cast<unsigned char>(c) < ' ')
            out.append(code, static_cast<size_t>(snprintf(code, sizeof code, "\\u%04x", c)));
        else
            out += c;
    }
    return out + "\"";
}

static std::string json_value(const table_entry &entry)
{
    if (const auto *text = std::get_if<std::string>(&entry)) return json_text(*text);
    if (const auto *value = std::get_if<double>(&entry))
        return std::isfinite(*value) ? shortest(*value) : "null";
    return std::to_string(std::get<int64_t>(entry));
}

std::string as_json(const table &figures)
{
    std::string out = "[";
    for (const auto &row : figures.rows) {
        out += out.size() > 1 ? ",\n {" : "\n {";
        for (size_t c = 0; c < row.size(); ++c)
            out += (c > 0 ? ", " : "") + json_text(figures.columns[c]) + ": " + json_value(row[c]);
        out += "}";
    }
    return out + "\n]\n";
}

// ---- CSV ----------------------------------------------------------------------------------------------------

static std::string csv_value(const table_entry &entry)
{
    if (const auto *text = std::get_if<std::string>(&entry)) return csv_field(*text);
    if (const auto *value = std::get_if<double>(&entry)) return csv_number(*value);
    return std::to_string(std::get<int64_t>(entry));
}

std::string as_csv(const table &figures)
{
    std::string out;
    for (size_t c = 0; c < figures.columns.size(); ++c)
        out += (c > 0 ? "," : "") + csv_field(figures.columns[c]);
    out += '\n';
    for (const auto &row : figures.rows) {
        for (size_t c = 0; c < row.size(); ++c)
            out += (c > 0 ? "," : "") + csv_value(row[c]);
        out += '\n';
    }
    return out;
}
