// What a machine's processors do together of what one does: the most that threads can be worth there. Work is what the
// operations spend their time with, in its plainest form.
#include "bench.hpp"
#include "inputs.hpp"

#include <vtkFlyingEdges3D.h>
#include <vtkSMPTools.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <thread>

namespace bench {
namespace {

// Calls work(first, end) for the shares of a number of things, each in a thread of its own; one alone is done here.
template <typename Work> void by_threads(int threads, size_t things, Work work)
{
    const auto begin = [=](int k) { return things / static_cast<size_t>(threads) * static_cast<size_t>(k); };
    std::vector<std::thread> others;
    for (int k = 1; k < threads; ++k)
        others.emplace_back(work, begin(k), k + 1 == threads ? things : begin(k + 1));
    work(size_t{0}, threads == 1 ? things : begin(1));
    for (std::thread &other : others)
        other.join();
}

contender of_bytes(const std::string &name, role as, double written,
                   std::function<std::shared_ptr<void>()> run)
{
    contender c;
    c.name = name;
    c.as = as;
    c.run = [=] {
        made output;
        output.kept = run();
        output.written_bytes = written;
        return output;
    };
    return c;
}

bench_case compared(const char *name, const std::string &size, int threads, double written,
                    const std::function<std::shared_ptr<void>(int)> &run)
{
    bench_case c;
    c.name = name;
    c.size = size;
    c.contenders = {of_bytes("threads", role::ours, written, [=] { return run(threads); }),
                    of_bytes("one thread", role::peer, written, [=] { return run(1); })};
    return c;
}

std::string in_megabytes(size_t bytes)
{
    return std::to_string(bytes >> 20) + " MiB";
}

// Sums and exclusive ors of words that stay in the first cache.
bench_case arithmetic_case(size_t rounds, int threads)
{
    return compared("machine, work within the cache", std::to_string(rounds) + " rounds", threads, 0,
                    [=](int n) -> std::shared_ptr<void> {
                        by_threads(n, rounds, [](size_t first, size_t end) {
                            uint64_t words[2048] = {};
                            for (size_t round = first; round < end; ++round) {
                                for (size_t i = 0; i + 1 < std::size(words); ++i)
                                    words[i + 1] ^= words[i] + round;
                                asm volatile("" ::"r"(words) : "memory");
                            }
                        });
                        return nullptr;
                    });
}

bench_case reading_case(size_t bytes, int threads)
{
    const auto data = std::make_shared<std::vector<uint64_t>>(bytes / sizeof(uint64_t), 1);
    bench_case c = compared("machine, reading memory", in_megabytes(bytes), threads, 0,
                            [=](int n) -> std::shared_ptr<void> {
                                by_threads(n, data->size(), [&](size_t first, size_t end) {
                                    uint64_t sum = 0;
                                    for (size_t i = first; i < end; ++i)
                                        sum += (*data)[i];
                                    asm volatile("" ::"r"(sum));
                                });
                                return nullptr;
                            });
    c.read_bytes = static_cast<double>(bytes);
    return c;
}

bench_case filling_case(size_t bytes, int threads)
{
    const std::shared_ptr<char[]> block(new char[bytes]);
    return compared("machine, filling memory again", in_megabytes(bytes), threads, static_cast<double>(bytes),
                    [=](int n) -> std::shared_ptr<void> {
                        by_threads(n, bytes, [&](size_t first, size_t end) {
                            std::fill(block.get() + first, block.get() + end, 1);
                        });
                        return nullptr;
                    });
}

// As results are: memory that has been asked for a moment before.
bench_case fresh_case(size_t bytes, int threads)
{
    return compared("machine, filling fresh memory", in_megabytes(bytes), threads, static_cast<double>(bytes),
                    [=](int n) -> std::shared_ptr<void> {
                        const std::shared_ptr<char[]> block(new char[bytes]);
                        by_threads(n, bytes, [&](size_t first, size_t end) {
                            std::fill(block.get() + first, block.get() + end, 1);
                        });
                        return std::shared_ptr<void>(block, block.get());
                    });
}

bench_case flying_edges_case(int64_t n, int threads)
{
    const int64_t dims[3] = {n, n, n};
    const input_ptr in = structured_input(samples::layout::uniform, dims, "marschner-lobb");
    bench_case c =
        compared("machine, flying edges", std::to_string(n) + "^3", threads, 0,
                 [=](int nthreads) -> std::shared_ptr<void> {
                     const auto filter = std::make_shared<vtkSmartPointer<vtkFlyingEdges3D>>(
                         vtkSmartPointer<vtkFlyingEdges3D>::New());
                     vtkFlyingEdges3D *edges = *filter;
                     edges->SetInputData(in->theirs);
                     edges->SetValue(0, 0.5);
                     edges->ComputeNormalsOff();
                     edges->ComputeScalarsOff();
                     edges->ComputeGradientsOff();
                     vtkSMPTools::LocalScope(vtkSMPTools::Config(nthreads), [=] { edges->Update(); });
                     return filter;
                 });
    c.read_bytes = in->data_bytes();
    return c;
}

} // namespace

void add_yardsticks(suite *all, const sizes &of, int threads)
{
    const auto add = [&](const char *name, std::function<bench_case()> make) {
        all->cases.push_back({"threads", name, false, make});
    };
    const size_t bytes = static_cast<size_t>(of.array_bytes);
    add("machine, work within the cache", [=] { return arithmetic_case(bytes / 4096, threads); });
    add("machine, reading memory", [=] { return reading_case(4 * bytes, threads); });
    add("machine, filling memory again", [=] { return filling_case(4 * bytes, threads); });
    add("machine, filling fresh memory", [=] { return fresh_case(bytes, threads); });
    add("machine, flying edges", [=] { return flying_edges_case(of.volume, threads); });
}

} // namespace bench
