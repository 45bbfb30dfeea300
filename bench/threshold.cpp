// Classification of nodes: bytes a second against a plain copy of the same array.
//
// Bytes are those that must move: each value read once, each flag or map entry written once; a copy reads and
// writes its array. Values have no pattern, and about half of them pass.
#include <benchmark/benchmark.h>
#include <skoklana.h>

#include <cstring>
#include <vector>

namespace {

constexpr int64_t large = 64 << 20, cached = 128 << 10; // bytes of an array

struct type_info {
    const char *name;
    int64_t bytes;
};

constexpr type_info types[] = {{"char", 1},  {"byte", 1},   {"short", 2},  {"int", 4},
                               {"float", 4}, {"double", 8}, {"qx_long", 8}};

template <typename T> void fill(std::vector<unsigned char> *bytes)
{
    T *values = reinterpret_cast<T *>(bytes->data());
    uint32_t state = 1;
    for (size_t i = 0; i < bytes->size() / sizeof(T); ++i) {
        state = state * 1664525u + 1013904223u;
        values[i] = static_cast<T>((state >> 16) % 100);
    }
}

std::vector<unsigned char> values_of(int type, int64_t bytes)
{
    void (*const fills[])(std::vector<unsigned char> *) = {
        fill<signed char>, fill<unsigned char>, fill<short>,  fill<int>,
        fill<float>,       fill<double>,        fill<qx_long>};
    std::vector<unsigned char> values(static_cast<size_t>(bytes));
    fills[type](&values);
    return values;
}

// What the arguments of a run say: element type, null flag, bytes of data.
struct setting {
    int type, null_flag;
    int64_t count;
    std::vector<unsigned char> data;
    unsigned char null_value[8] = {}; // 0 in every type

    explicit setting(benchmark::State &state)
        : type(static_cast<int>(state.range(0))), null_flag(static_cast<int>(state.range(1))),
          count(state.range(2) / types[type].bytes), data(values_of(type, state.range(2)))
    {
        state.SetLabel(std::string(types[type].name) + (null_flag != 0 ? ", null" : ""));
    }

    void count_bytes(benchmark::State &state, int64_t written_each) const
    {
        state.SetBytesProcessed(state.iterations() * count * (types[type].bytes + written_each));
    }
};

void all_types(benchmark::internal::Benchmark *bench)
{
    for (int64_t bytes : {large, cached})
        for (int type = DTYPE_CHAR; type <= DTYPE_QX_LONG; ++type)
            for (int null_flag = 0; null_flag < 2; ++null_flag)
                bench->Args({type, null_flag, bytes});
    bench->ArgNames({"type", "null", "bytes"});
}

void plain_copy(benchmark::State &state)
{
    const std::vector<unsigned char> from = values_of(DTYPE_BYTE, state.range(0));
    std::vector<unsigned char> to(from.size());
    for (auto _ : state) {
        memcpy(to.data(), from.data(), from.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * 2 * state.range(0));
}
BENCHMARK(plain_copy)->Arg(large)->Arg(cached);

void threshold_scalar(benchmark::State &state)
{
    const setting s(state);
    std::vector<unsigned char> flags(static_cast<size_t>(s.count));
    for (auto _ : state) {
        UTILthreshold_scalar(s.count, s.data.data(), s.type, s.null_flag, s.null_value, 1, 50, 0, 1, 2,
                             flags.data());
        benchmark::ClobberMemory();
    }
    s.count_bytes(state, 1);
}
BENCHMARK(threshold_scalar)->Apply(all_types);

void node_thresh(benchmark::State &state)
{
    const setting s(state);
    std::vector<qx_long> map(static_cast<size_t>(s.count));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            UTILnode_thresh(s.count, s.type, s.data.data(), s.null_flag, s.null_value, 50, 1, map.data()));
        benchmark::ClobberMemory();
    }
    s.count_bytes(state, sizeof(qx_long));
}
BENCHMARK(node_thresh)->Apply(all_types);

// Planes of 64 Ki nodes, as a sweep takes them: the map of a plane is used again for the next.
void node_thresh_struct(benchmark::State &state)
{
    const setting s(state);
    const qx_long plane = std::min<qx_long>(s.count, 64 << 10);
    std::vector<qx_long> map(static_cast<size_t>(plane)), list(static_cast<size_t>(s.count));
    qx_long listed = 0;
    for (auto _ : state) {
        listed = 0;
        for (qx_long base = 0; base < s.count; base += plane)
            UTILnode_thresh_struct(std::min(plane, s.count - base),
                                   s.data.data() + base * types[s.type].bytes, s.type, s.null_flag,
                                   s.null_value, 50, 1, base, &listed, list.data(), map.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * (s.count * types[s.type].bytes + listed * 8));
}
BENCHMARK(node_thresh_struct)->Apply(all_types);

void count_nodes(benchmark::State &state)
{
    const setting s(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            UTILnnode_thresh_struct(1, &s.count, s.data.data(), s.type, s.null_flag, s.null_value, 50, 1));
    s.count_bytes(state, 0);
}
BENCHMARK(count_nodes)->Apply(all_types);

void clamp(benchmark::State &state)
{
    const setting s(state);
    std::vector<unsigned char> out(s.data.size());
    for (auto _ : state) {
        UTILclamp(s.count, s.data.data(), 1, 0, s.type, s.null_flag, s.null_value, 1, 20, 1, 80, out.data());
        benchmark::ClobberMemory();
    }
    s.count_bytes(state, types[s.type].bytes);
}
BENCHMARK(clamp)->Apply(all_types);

// The array against itself: values outside the bounds are replaced.
void threshold(benchmark::State &state)
{
    const setting s(state);
    std::vector<unsigned char> out(s.data.size());
    for (auto _ : state) {
        UTILthreshold(s.count, s.data.data(), 1, 0, s.type, s.null_flag, s.null_value, 1, 20, 1, 80,
                      s.data.data(), 1, s.type, 0, out.data());
        benchmark::ClobberMemory();
    }
    s.count_bytes(state, types[s.type].bytes);
}
BENCHMARK(threshold)->Apply(all_types);

} // namespace
