// Runs the cases and prints one table; see bench/run.
#include "bench.hpp"

#include <CLI/CLI.hpp>

#include <vtkSMPTools.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <sstream>

namespace {

using namespace bench;
using seconds = std::chrono::duration<double>;

double now()
{
    return std::chrono::duration_cast<seconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double least(const std::vector<double> &values)
{
    return *std::min_element(values.begin(), values.end());
}

// ---- the machine ---------------------------------------------------------------------------------------------

struct machine {
    std::string processor, compiler, flags, commit;
    double read_rate = 0, copy_rate = 0; // bytes a second, one thread
};

double best_of(int n, const std::function<void()> &run)
{
    double best = 1e300;
    for (int i = 0; i < n; ++i) {
        const double start = now();
        run();
        best = std::min(best, now() - start);
    }
    return best;
}

machine measure_machine(const std::string &commit)
{
    machine found;
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);)
        if (line.rfind("model name", 0) == 0) found.processor = line.substr(line.find(':') + 2);
    found.compiler = "g++ " __VERSION__;
    found.flags = BENCH_FLAGS;
    found.commit = commit;
    const size_t n = size_t{1} << 25; // 256 MiB, well past the caches
    std::vector<uint64_t> from(n, 1), to(n, 2);
    volatile uint64_t sink = 0;
    const double read = best_of(7, [&] {
        uint64_t sum[8] = {};
        for (size_t i = 0; i < n; i += 8)
            for (size_t k = 0; k < 8; ++k)
                sum[k] ^= from[i + k];
        sink = sink + sum[0] + sum[1] + sum[2] + sum[3] + sum[4] + sum[5] + sum[6] + sum[7];
    });
    const double copy = best_of(7, [&] { memcpy(to.data(), from.data(), n * sizeof(uint64_t)); });
    found.read_rate = static_cast<double>(n * sizeof(uint64_t)) / read;
    found.copy_rate = static_cast<double>(n * sizeof(uint64_t)) / copy;
    return found;
}

// Peak resident memory of one run over what was there before, in bytes; -1 where the kernel does not tell.
int64_t status_bytes(const char *key)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(key, 0) == 0) return std::stoll(line.substr(strlen(key) + 1)) * 1024;
    return -1;
}

int64_t peak_growth(const std::function<void()> &run)
{
    std::ofstream("/proc/self/clear_refs") << "5";
    const int64_t before = status_bytes("VmRSS");
    run();
    const int64_t peak = status_bytes("VmHWM");
    return before < 0 || peak < 0 ? -1 : std::max<int64_t>(0, peak - before);
}

// ---- one case ------------------------------------------------------------------------------------------------

struct timing {
    std::string name;
    std::vector<double> times;
    int64_t nodes = -1, cells = -1, memory = -1;
    double measure = NAN;
};

struct row {
    bench_case about;
    std::vector<timing> ours, peers;
    std::string disagreement;

    const timing *best_peer() const
    {
        const timing *best = nullptr;
        for (const timing &peer : peers)
            if (best == nullptr || median(peer.times) < median(best->times)) best = &peer;
        return best;
    }
};

timing first_run(const contender &one)
{
    timing result;
    result.name = one.name;
    made output;
    result.memory = peak_growth([&] { output = one.run(); });
    result.nodes = output.nodes;
    result.cells = output.cells;
    if (output.measure) result.measure = output.measure();
    return result;
}

std::string compare(const timing &first, const timing &other, const contender &about)
{
    std::ostringstream text;
    if (about.same_cells && first.cells >= 0 && other.cells >= 0 && first.cells != other.cells)
        text << other.name << ": " << other.cells << " cells, not " << first.cells << "; ";
    if (about.measure_within > 0 && !std::isnan(first.measure) && !std::isnan(other.measure) &&
        std::fabs(other.measure - first.measure) > about.measure_within * std::fabs(first.measure))
        text << other.name << ": measure " << other.measure << ", not " << first.measure << "; ";
    return text.str();
}

row run_case(const bench_case &about, int repeats)
{
    row result;
    result.about = about;
    std::vector<std::pair<const contender *, timing *>> turns;
    for (const contender &one : about.ours)
        result.ours.push_back(first_run(one));
    for (const contender &one : about.peers)
        result.peers.push_back(first_run(one));
    for (size_t i = 0; i < about.ours.size(); ++i)
        turns.push_back({&about.ours[i], &result.ours[i]});
    for (size_t i = 0; i < about.peers.size(); ++i)
        turns.push_back({&about.peers[i], &result.peers[i]});
    for (const auto &turn : turns)
        result.disagreement += compare(result.ours[0], *turn.second, *turn.first);
    for (int i = 0; i < repeats; ++i) {
        for (const auto &turn : turns) {
            const double start = now();
            const made output = turn.first->run();
            turn.second->times.push_back(now() - start);
        }
    }
    return result;
}

// ---- tables ---------------------------------------------------------------------------------------------------

std::string text(const char *format, double value)
{
    char buffer[64];
    snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string count(int64_t n)
{
    return n < 0 ? "" : std::to_string(n);
}
std::string megabytes(int64_t n)
{
    return n < 0 ? "" : text("%.0f", static_cast<double>(n) / 1e6);
}

const char *const columns[] = {
    "case",        "size", "ours",      "ours ms",    "min",      "peer",         "peer ms", "min",
    "peer / ours", "aim",  "our cells", "peer cells", "floor ms", "ours / floor", "our MB",  "peer MB"};

std::vector<std::string> cells_of(const row &r, const timing &ours, bool first, double read_rate)
{
    const timing *peer = r.best_peer();
    const double floor = r.about.floor_bytes / read_rate;
    std::vector<std::string> cells = {first ? r.about.name : "", first ? r.about.size : "", ours.name,
                                      text("%.2f", median(ours.times) * 1e3),
                                      text("%.2f", least(ours.times) * 1e3)};
    if (peer != nullptr) {
        cells.insert(cells.end(), {peer->name, text("%.2f", median(peer->times) * 1e3),
                                   text("%.2f", least(peer->times) * 1e3),
                                   text("%.2f", median(peer->times) / median(ours.times)),
                                   first && r.about.aim > 0 ? text("%.1f", r.about.aim) : ""});
    } else {
        cells.insert(cells.end(), {"", "", "", "", ""});
    }
    cells.insert(cells.end(), {count(ours.cells), peer != nullptr ? count(peer->cells) : "",
                               floor > 0 ? text("%.2f", floor * 1e3) : "",
                               floor > 0 ? text("%.1f", median(ours.times) / floor) : "",
                               megabytes(ours.memory), peer != nullptr ? megabytes(peer->memory) : ""});
    return cells;
}

using table = std::vector<std::vector<std::string>>;

void print_markdown(std::ostream &out, const table &rows)
{
    std::vector<size_t> width(rows[0].size(), 0);
    for (const auto &r : rows)
        for (size_t c = 0; c < r.size(); ++c)
            width[c] = std::max(width[c], r[c].size());
    for (size_t i = 0; i < rows.size(); ++i) {
        out << "|";
        for (size_t c = 0; c < rows[i].size(); ++c)
            out << " " << rows[i][c] << std::string(width[c] - rows[i][c].size(), ' ') << " |";
        out << "\n";
        if (i > 0) continue;
        out << "|";
        for (size_t c = 0; c < width.size(); ++c)
            out << std::string(width[c] + 2, '-') << "|";
        out << "\n";
    }
}

void write_json(const std::string &path, const machine &on, const std::vector<row> &rows)
{
    std::ofstream out(path);
    out << "{\n  \"processor\": \"" << on.processor << "\", \"compiler\": \"" << on.compiler
        << "\", \"flags\": \"" << on.flags << "\", \"commit\": \"" << on.commit
        << "\",\n  \"read_bytes_per_s\": " << on.read_rate << ", \"copy_bytes_per_s\": " << on.copy_rate
        << ",\n  \"cases\": [";
    const char *comma = "\n";
    for (const row &r : rows) {
        out << comma << "    {\"case\": \"" << r.about.name << "\", \"size\": \"" << r.about.size
            << "\", \"contenders\": [";
        const char *inner = "\n";
        for (const std::vector<timing> *side : {&r.ours, &r.peers}) {
            for (const timing &t : *side) {
                out << inner << "      {\"name\": \"" << t.name
                    << "\", \"ours\": " << (side == &r.ours ? "true" : "false")
                    << ", \"median_ms\": " << median(t.times) * 1e3
                    << ", \"min_ms\": " << least(t.times) * 1e3 << ", \"cells\": " << t.cells
                    << ", \"peak_growth_bytes\": " << t.memory << "}";
                inner = ",\n";
            }
        }
        out << "\n    ]}";
        comma = ",\n";
    }
    out << "\n  ]\n}\n";
}

// The slope of log time over log size, by least squares.
double exponent(const std::vector<double> &elements, const std::vector<double> &times)
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

void pin_to_one_processor()
{
    cpu_set_t allowed, one;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
    for (int cpu = CPU_SETSIZE - 1; cpu >= 0; --cpu) {
        if (!CPU_ISSET(cpu, &allowed)) continue;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        sched_setaffinity(0, sizeof one, &one);
        return;
    }
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Times our operations and the peers' on the same inputs in the same run.");
    bool quick = false, no_growth = false;
    int repeats = 0, threads = 1;
    std::string only, markdown, json, commit = "unknown";
    app.add_flag("--quick", quick, "the smaller cases, fewer repeats");
    app.add_flag("--no-growth", no_growth, "leave out the growth tables");
    app.add_option("--repeats", repeats, "timed runs of each contender (default 9, quick 7)");
    app.add_option("--threads", threads, "threads of threaded forms, ours and the peers'")
        ->check(CLI::PositiveNumber);
    app.add_option("--only", only, "cases whose name or family holds this text");
    app.add_option("--markdown", markdown, "also write the tables to this file");
    app.add_option("--json", json, "also write the figures to this file");
    app.add_option("--commit", commit, "named in the output");
    CLI11_PARSE(app, argc, argv);
    if (repeats == 0) repeats = quick ? 7 : 9;

    if (threads == 1) pin_to_one_processor();
    vtkSMPTools::Initialize(threads);
    const machine on = measure_machine(commit);

    std::ostringstream head;
    head << on.processor << "; " << on.compiler << ", " << on.flags << "; " << threads
         << (threads == 1 ? " thread, pinned" : " threads") << "; commit " << on.commit << "; read "
         << text("%.1f", on.read_rate / 1e9) << " GB/s, copy " << text("%.1f", on.copy_rate / 1e9)
         << " GB/s; medians of " << repeats << " runs taken in turn; milliseconds\n\n";
    fputs(head.str().c_str(), stdout);

    suite all;
    bench::add_isosurface(all);
    bench::add_isoline(all);
    bench::add_sampling(all);
    bench::add_threshold(all);

    std::vector<row> rows;
    table lines = {std::vector<std::string>(std::begin(columns), std::end(columns))};
    std::string notes;
    int disagreements = 0;
    for (const entry &e : all) {
        if (quick && !e.quick) continue;
        if (!only.empty() && e.name.find(only) == std::string::npos &&
            e.family.find(only) == std::string::npos)
            continue;
        fprintf(stderr, "%s\n", e.name.c_str());
        const row r = run_case(e.prepare(), repeats);
        for (size_t i = 0; i < r.ours.size(); ++i)
            lines.push_back(cells_of(r, r.ours[i], i == 0, on.read_rate));
        if (!r.disagreement.empty()) {
            notes += "- " + r.about.name + ", outputs differ: " + r.disagreement + "\n";
            ++disagreements;
        }
        const timing *peer = r.best_peer();
        if (peer != nullptr && r.about.aim > 0 && median(peer->times) / median(r.ours[0].times) < r.about.aim)
            notes += "- " + r.about.name + ", behind its aim of " + text("%.1f", r.about.aim) + ": " +
                     r.about.remark + "\n";
        rows.push_back(r);
        rows.back().about.ours.clear(); // the inputs go with the contenders
        rows.back().about.peers.clear();
    }
    std::ostringstream body;
    print_markdown(body, lines);
    if (!notes.empty()) body << "\n" << notes;

    std::vector<growth_entry> growths;
    if (!no_growth) bench::add_growth(growths);
    if (!growths.empty()) body << "\nGrowth, milliseconds by size, and the exponent of time over size:\n\n";
    table growth_lines = {{"case", "sizes", "ours ms", "exponent"}};
    for (const growth_entry &g : growths) {
        if (!only.empty() && g.name.find(only) == std::string::npos) continue;
        fprintf(stderr, "growth: %s\n", g.name.c_str());
        std::string sizes, values;
        std::vector<double> times;
        for (size_t i = 0; i < g.sizes.size(); ++i) {
            bench_case about = g.prepare(static_cast<int>(i));
            about.peers.clear();
            const row r = run_case(about, repeats);
            times.push_back(median(r.ours[0].times));
            sizes += (i > 0 ? ", " : "") + g.sizes[i];
            values += (i > 0 ? ", " : "") + text("%.2f", times.back() * 1e3);
        }
        growth_lines.push_back({g.name, sizes, values, text("%.2f", exponent(g.elements, times))});
    }
    if (growth_lines.size() > 1) print_markdown(body, growth_lines);

    fputs(body.str().c_str(), stdout);
    if (!markdown.empty()) std::ofstream(markdown) << head.str() << body.str();
    if (!json.empty()) write_json(json, on, rows);
    return disagreements == 0 ? 0 : 1;
}
