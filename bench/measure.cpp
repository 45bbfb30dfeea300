// Each contender runs twice before it is timed: once to warm up, with its output compared with ours, and once
// for its peak of memory. That peak is the kernel's own: the mark is reset and free memory handed back before
// the run, so that blocks which the allocator kept do not hide growth.
#include "measure.hpp"

#include <vtkVersion.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <malloc.h>
#include <sched.h>
#include <sstream>
#include <time.h>

namespace bench {

// Processor time, so that other programs do not count, of one thread; of more threads the time on the wall.
static double now(int threads)
{
    timespec time;
    clock_gettime(threads == 1 ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// ---- the machine --------------------------------------------------------------------------------------------

static double best_of(int n, const std::function<void()> &run)
{
    double best = INFINITY;
    for (int i = 0; i < n; ++i) {
        const double start = now(1);
        run();
        best = std::min(best, now(1) - start);
    }
    return best;
}

machine measure_machine(size_t bytes)
{
    machine found;
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; found.processor.empty() && std::getline(info, line);)
        if (line.rfind("model name", 0) == 0) found.processor = line.substr(line.find(':') + 2);
    found.compiler = "g++ " __VERSION__;
    found.flags = BENCH_FLAGS;
    found.vtk = vtkVersion::GetVTKVersion();

    const size_t n = bytes / sizeof(uint64_t) / 8 * 8;
    std::vector<uint64_t> from(n, 1), to(n, 2);
    volatile uint64_t sink = 0;
    const double read = best_of(7, [&] {
        uint64_t sum[8] = {};
        for (size_t i = 0; i < n; i += 8)
            for (size_t k = 0; k < 8; ++k)
                sum[k] += from[i + k];
        for (const uint64_t s : sum)
            sink = sink + s;
    });
    const double copy = best_of(7, [&] {
        memcpy(to.data(), from.data(), n * sizeof(uint64_t));
        sink = sink + to[n / 2];
    });
    found.read_rate = static_cast<double>(n * sizeof(uint64_t)) / read;
    found.copy_rate = static_cast<double>(n * sizeof(uint64_t)) / copy;
    return found;
}

void pin_to_one_processor()
{
    cpu_set_t allowed, one;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
    for (int cpu = CPU_SETSIZE - 1; cpu >= 0; --cpu) { // the last: the first serves most interrupts
        if (!CPU_ISSET(cpu, &allowed)) continue;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        sched_setaffinity(0, sizeof one, &one);
        return;
    }
}

static int64_t status_bytes(const char *key)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(key, 0) == 0) return std::stoll(line.substr(strlen(key) + 1)) * 1024;
    return -1;
}

// -1 where the kernel does not tell.
static int64_t peak_growth(const std::function<void()> &run)
{
    malloc_trim(0);
    std::ofstream reset("/proc/self/clear_refs");
    reset << "5" << std::flush;
    if (!reset) return -1;
    const int64_t before = status_bytes("VmRSS");
    run();
    const int64_t peak = status_bytes("VmHWM");
    return before < 0 || peak < 0 ? -1 : std::max<int64_t>(0, peak - before);
}

// ---- timings ------------------------------------------------------------------------------------------------

double timing::median() const
{
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    const size_t n = sorted.size();
    return n % 2 == 1 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
}

double timing::least() const
{
    return *std::min_element(seconds.begin(), seconds.end());
}

std::vector<const timing *> result::peers() const
{
    std::vector<const timing *> found;
    for (const timing &t : timings)
        if (t.as == role::peer) found.push_back(&t);
    std::sort(found.begin(), found.end(),
              [](const timing *a, const timing *b) { return a->median() < b->median(); });
    return found;
}

double result::floor(const machine &on) const
{
    const double copied = std::min(read_bytes, written_bytes);
    return std::max(copied, written_bytes) / on.copy_rate + (read_bytes - copied) / on.read_rate;
}

// ---- one case -----------------------------------------------------------------------------------------------

// The furthest that other's figures are from ours, over the largest of ours; infinite where one side has NaN
// or another count.
static double furthest(const std::vector<double> &ours, const std::vector<double> &other)
{
    if (ours.size() != other.size()) return INFINITY;
    double scale = 0, most = 0;
    for (size_t i = 0; i < ours.size(); ++i) {
        scale = std::max(scale, std::fabs(ours[i]));
        const double apart = std::fabs(ours[i] - other[i]);
        if (!(apart <= most)) most = std::isnan(apart) ? INFINITY : apart;
    }
    return most == 0 ? 0 : most / scale;
}

// The contender's output against ours; what does not agree is told in words.
static std::string compare(const timing &ours, const std::vector<check> &our_checks, const timing &other,
                           const std::vector<check> &checks, std::vector<timing::deviation> *apart)
{
    std::ostringstream text;
    if (other.cells >= 0 && other.cells != ours.cells)
        text << other.name << ": " << other.cells << " cells, not " << ours.cells << "; ";
    if (other.nodes >= 0 && other.nodes != ours.nodes)
        text << other.name << ": " << other.nodes << " nodes, not " << ours.nodes << "; ";
    for (size_t i = 0; i < checks.size(); ++i) {
        const double share = furthest(our_checks[i].figures, checks[i].figures);
        apart->push_back({checks[i].what, share});
        if (!(share <= our_checks[i].within))
            text << other.name << ": " << checks[i].what << " apart by " << share << "; ";
    }
    return text.str();
}

// Runs a contender to warm up and to look at its output.
static timing first_run(const contender &one, std::vector<check> *checks, double *written_bytes)
{
    timing t;
    t.name = one.name;
    t.as = one.as;
    t.aim = one.aim;
    const made output = one.run();
    t.nodes = output.nodes;
    t.cells = output.cells;
    *written_bytes = output.written_bytes;
    if (output.checks) *checks = output.checks();
    return t;
}

result run_case(const bench_case &about, const patience &with, int threads)
{
    result out;
    out.name = about.name;
    out.size = about.size;
    out.read_bytes = about.read_bytes;
    out.kernel = about.kernel;
    std::vector<check> our_checks;
    for (const contender &one : about.contenders) {
        if (one.as == role::ours) {
            out.timings.push_back(first_run(one, &our_checks, &out.written_bytes));
        } else {
            std::vector<check> checks;
            double written_bytes;
            timing t = first_run(one, &checks, &written_bytes);
            out.disagreement += compare(out.ours(), our_checks, t, checks, &t.apart);
            out.timings.push_back(t);
        }
        out.timings.back().memory = peak_growth([&] { one.run(); });
    }
    double spent = 0;
    for (int i = 0; i < with.most && (i < with.least || spent < with.seconds); ++i)
        for (size_t turn = 0; turn < about.contenders.size(); ++turn) {
            const size_t c = i % 2 == 0 ? turn : about.contenders.size() - 1 - turn;
            const double start = now(threads);
            const made output = about.contenders[c].run();
            const double took = now(threads) - start;
            out.timings[c].seconds.push_back(took);
            spent += took;
        }
    return out;
}

} // namespace bench
