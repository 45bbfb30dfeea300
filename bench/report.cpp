#include "report.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace bench {

static std::string number(const char *format, double value)
{
    char buffer[64];
    snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

static std::string milliseconds(double seconds)
{
    return number(seconds < 0.01 ? "%.2f" : "%.1f", seconds * 1e3);
}

static std::string count(int64_t n)
{
    return n < 0 ? "" : std::to_string(n);
}

static std::string megabytes(int64_t n)
{
    return n < 0 ? "" : number("%.1f", static_cast<double>(n) / 1e6);
}

// ---- tables -------------------------------------------------------------------------------------------------

using row = std::vector<std::string>;

static void print_table(std::ostream &out, const std::vector<row> &rows)
{
    std::vector<size_t> width(rows[0].size(), 0);
    for (const row &r : rows)
        for (size_t c = 0; c < r.size(); ++c)
            width[c] = std::max(width[c], r[c].size());
    for (size_t i = 0; i < rows.size(); ++i) {
        out << "|";
        for (size_t c = 0; c < width.size(); ++c) {
            const std::string cell = c < rows[i].size() ? rows[i][c] : "";
            out << " " << cell << std::string(width[c] - cell.size(), ' ') << " |";
        }
        out << "\n";
        if (i > 0) continue;
        out << "|";
        for (const size_t w : width)
            out << std::string(w + 2, '-') << "|";
        out << "\n";
    }
}

// A line for ours with the fastest peer, then one for each further peer and each part.
static void add_case_rows(const result &r, const machine &on, std::vector<row> *rows)
{
    const timing &ours = r.ours();
    const double floor = r.floor(on);
    bool first = true;
    const auto peers = r.peers();
    for (size_t i = 0; i < std::max<size_t>(peers.size(), 1); ++i, first = false) {
        row cells(18);
        if (first) {
            cells[0] = r.name;
            cells[1] = r.size;
            cells[2] = std::to_string(ours.seconds.size());
            cells[3] = ours.name;
            cells[4] = milliseconds(ours.median());
            cells[5] = milliseconds(ours.least());
            cells[11] = count(ours.cells);
            cells[14] = floor > 0 ? milliseconds(floor) : "";
            cells[15] = floor > 0 ? number("%.1f", ours.median() / floor) : "";
            cells[16] = megabytes(ours.memory);
        }
        if (i < peers.size()) {
            const timing &peer = *peers[i];
            cells[6] = peer.name;
            cells[7] = milliseconds(peer.median());
            cells[8] = milliseconds(peer.least());
            cells[9] = number("%.2f", peer.median() / ours.median());
            cells[10] = peer.aim > 0 ? number("%.1f", peer.aim) : "";
            cells[12] = count(peer.cells);
            for (const timing::deviation &apart : peer.apart)
                cells[13] += (cells[13].empty() ? "" : ", ") + apart.what + " " + number("%.0e", apart.share);
            cells[17] = megabytes(peer.memory);
        }
        rows->push_back(cells);
    }
    for (const timing &part : r.timings) {
        if (part.as != role::part) continue;
        row cells(18);
        cells[3] = part.name;
        cells[4] = milliseconds(part.median());
        cells[5] = milliseconds(part.least());
        cells[16] = megabytes(part.memory);
        rows->push_back(cells);
    }
}

static void print_cases(std::ostream &out, const report &of)
{
    std::vector<row> rows = {{"case", "size", "n", "ours", "ms", "min", "peer", "peer ms", "min",
                              "peer / ours", "aim", "our cells", "peer cells", "apart", "floor ms",
                              "ours / floor", "our MB", "peer MB"}};
    for (const result &r : of.results)
        if (!r.kernel) add_case_rows(r, of.on, &rows);
    if (rows.size() > 1) print_table(out, rows);
}

// Operations down, element types across: bytes a second, and in brackets that over the copy's.
static void print_kernels(std::ostream &out, const report &of)
{
    std::vector<std::string> names, types;
    for (const result &r : of.results) {
        if (!r.kernel) continue;
        if (std::find(names.begin(), names.end(), r.name) == names.end()) names.push_back(r.name);
        if (std::find(types.begin(), types.end(), r.size) == types.end()) types.push_back(r.size);
    }
    if (names.empty()) return;
    out << "\nKernels: GB moved a second, and in brackets how many times as many as the plain copy:\n\n";
    std::vector<row> rows(1 + names.size(), row(1 + types.size()));
    rows[0][0] = "kernel";
    for (size_t t = 0; t < types.size(); ++t)
        rows[0][1 + t] = types[t];
    for (size_t n = 0; n < names.size(); ++n)
        rows[1 + n][0] = names[n];
    for (const result &r : of.results) {
        if (!r.kernel) continue;
        const auto n = std::find(names.begin(), names.end(), r.name) - names.begin();
        const auto t = std::find(types.begin(), types.end(), r.size) - types.begin();
        const double rate = (r.read_bytes + r.written_bytes) / r.ours().median();
        const double copy = 2 * r.read_bytes / r.peers()[0]->median();
        rows[1 + n][1 + t] = number("%.1f", rate / 1e9) + " (" + number("%.2f", rate / copy) + ")";
    }
    print_table(out, rows);
}

// The slope of log time over log size, by least squares.
static double exponent(const std::vector<double> &elements, const std::vector<double> &times)
{
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    const double n = static_cast<double>(times.size());
    for (size_t i = 0; i < times.size(); ++i) {
        const double x = std::log(elements[i]), y = std::log(times[i]);
        sx += x;
        sy += y;
        sxx += x * x;
        sxy += x * y;
    }
    return (n * sxy - sx * sy) / (n * sxx - sx * sx);
}

static void print_growth(std::ostream &out, const report &of)
{
    if (of.growths.empty()) return;
    out << "\nGrowth: milliseconds by size, and the exponent of time over the count of elements:\n\n";
    std::vector<row> rows = {{"case", "contender", "sizes", "ms", "exponent"}};
    for (const growth &g : of.growths) {
        std::string sizes;
        for (const std::string &size : g.sizes)
            sizes += (sizes.empty() ? "" : ", ") + size;
        const std::vector<timing> &contenders = g.results[0].timings;
        for (size_t c = 0; c < contenders.size(); ++c) {
            std::vector<double> times;
            std::string texts;
            for (const result &r : g.results) {
                times.push_back(r.timings[c].median());
                texts += (texts.empty() ? "" : ", ") + milliseconds(times.back());
            }
            rows.push_back({c == 0 ? g.name : "", contenders[c].name, c == 0 ? sizes : "", texts,
                            number("%.2f", exponent(g.elements, times))});
        }
    }
    print_table(out, rows);
}

static void print_notes(std::ostream &out, const report &of)
{
    std::string notes;
    for (const result &r : of.results)
        for (const timing *peer : r.peers()) {
            const double ratio = peer->median() / r.ours().median();
            if (peer->aim > 0 && ratio < peer->aim)
                notes += "- " + r.name + ", " + r.size + ": " + number("%.2f", ratio) + " times as fast as " +
                         peer->name + ", behind the aim of " + number("%.2f", peer->aim) +
                         (ratio < 0.8 * peer->aim ? "" : " by less than the noise of a fifth") + "\n";
        }
    const auto add_differences = [&](const result &r) {
        if (!r.disagreement.empty())
            notes += "- " + r.name + ", " + r.size + ", outputs differ: " + r.disagreement + "\n";
    };
    for (const result &r : of.results)
        add_differences(r);
    for (const growth &g : of.growths)
        for (const result &r : g.results)
            add_differences(r);
    if (!notes.empty()) out << "\n" << notes;
}

void write_markdown(std::ostream &out, const report &of)
{
    const machine &on = of.on;
    out << on.processor << "; " << on.compiler << ", " << on.flags << "; VTK " << on.vtk << "; " << on.threads
        << (on.threads == 1 ? " thread, pinned" : " threads") << "; commit " << on.commit << "; read "
        << number("%.1f", on.read_rate / 1e9) << " GB/s, copy " << number("%.1f", on.copy_rate / 1e9)
        << " GB/s; medians of n runs taken in turn\n\n";
    print_cases(out, of);
    print_kernels(out, of);
    print_growth(out, of);
    print_notes(out, of);
}

// ---- JSON ---------------------------------------------------------------------------------------------------

static std::string quoted(const std::string &text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

static void write_result(std::ostream &out, const result &r, const machine &on)
{
    static const char *const roles[] = {"ours", "part", "peer"};
    out << "{\"case\": " << quoted(r.name) << ", \"size\": " << quoted(r.size)
        << ", \"floor_ms\": " << r.floor(on) * 1e3 << ", \"contenders\": [";
    const char *comma = "\n";
    for (const timing &t : r.timings) {
        out << comma << "      {\"name\": " << quoted(t.name) << ", \"role\": \""
            << roles[static_cast<int>(t.as)] << "\", \"median_ms\": " << t.median() * 1e3
            << ", \"runs\": " << t.seconds.size() << ", \"min_ms\": " << t.least() * 1e3
            << ", \"nodes\": " << t.nodes << ", \"cells\": " << t.cells << ", \"aim\": " << t.aim
            << ", \"peak_growth_bytes\": " << t.memory << "}";
        comma = ",\n";
    }
    out << "]}";
}

void write_json(std::ostream &out, const report &of)
{
    const machine &on = of.on;
    out.precision(9);
    out << "{\n  \"processor\": " << quoted(on.processor) << ", \"compiler\": " << quoted(on.compiler)
        << ", \"flags\": " << quoted(on.flags) << ", \"vtk\": " << quoted(on.vtk)
        << ", \"commit\": " << quoted(on.commit) << ",\n  \"threads\": " << on.threads
        << ", \"read_bytes_per_s\": " << on.read_rate << ", \"copy_bytes_per_s\": " << on.copy_rate
        << ",\n  \"cases\": [";
    const char *comma = "\n    ";
    for (const result &r : of.results) {
        out << comma;
        write_result(out, r, on);
        comma = ",\n    ";
    }
    out << "],\n  \"growth\": [";
    comma = "\n    ";
    for (const growth &g : of.growths)
        for (size_t i = 0; i < g.results.size(); ++i) {
            out << comma << "{\"growth\": " << quoted(g.name) << ", \"elements\": " << g.elements[i]
                << ", \"result\": ";
            write_result(out, g.results[i], on);
            out << "}";
            comma = ",\n    ";
        }
    out << "]\n}\n";
}

} // namespace bench
