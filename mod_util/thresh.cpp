// Node thresholds: which nodes survive a test, and their new numbers.
//
// The nodes are taken a block at a time. The classifying kernel turns the values of a block into a byte each,
// 1 for a survivor, whatever the type and the test; what follows sees those bytes only and is not typed.
// Nodes are numbered without a branch, so that data without a pattern cost no more than smooth data:
//
//     flags       0 1 1 0 1     next = 7
//     numbers    -1 7 8 -1 9    (next + flags before) | (flag - 1)
//
// The wide form numbers eight nodes a step. Their flags before are one product: eight bytes times 0x0101..01
// leave in each byte the sum of it and of those before it.

#include <skoklana/cut.h>

#include "classify.hpp"
#include "dtype.hpp"

#include <algorithm>

// Nodes that are flagged before they are numbered: flags and numbers stay in the first-level cache.
constexpr qx_long node_block = 2048;

// What a node that does not survive finds in the map.
enum class dropped { minus_one, untouched };

// ---- from flags, 0 or 1, to counts and numbers --------------------------------------------------------

KEPT_APART static qx_long count_flags_plain(const unsigned char *flags, qx_long count)
{
    int sum = 0; // of a block at most
    for (qx_long i = 0; i < count; ++i)
        sum += flags[i];
    return sum;
}

template <dropped others>
KEPT_APART static void number_flags_plain(const unsigned char *flags, qx_long count, qx_long next,
                                          qx_long *map)
{
    for (qx_long i = 0; i < count; ++i) {
        const qx_long flag = flags[i];
        if (others == dropped::minus_one)
            map[i] = next | (flag - 1);
        else if (flag != 0)
            map[i] = next;
        next += flag;
    }
}

// The survivors' node numbers, from first on. Each number is stored and the place kept if its flag is set;
// the last store is the last survivor's, so that nothing is written past the list.
KEPT_APART static void list_flags_plain(const unsigned char *flags, qx_long survivors, qx_long first,
                                        qx_long *list)
{
    for (qx_long i = 0, listed = 0; listed < survivors; ++i) {
        list[listed] = first + i;
        listed += flags[i];
    }
}

#if SKOKLANA_HAVE_AVX2_FORM

TARGET_AVX2 KEPT_APART static qx_long count_flags_wide(const unsigned char *flags, qx_long count)
{
    __m256i sums = _mm256_setzero_si256();
    qx_long i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i some = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(flags + i));
        sums = _mm256_add_epi64(sums, _mm256_sad_epu8(some, _mm256_setzero_si256()));
    }
    const __m128i half = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    return _mm_cvtsi128_si64(half) + _mm_extract_epi64(half, 1) + count_flags_plain(flags + i, count - i);
}

// Four numbers: befores and flags hold four bytes each.
template <dropped others>
TARGET_AVX2 FORCE_INLINE void store_four(__m128i befores, __m128i flags, qx_long next, qx_long *map)
{
    const __m256i numbers = _mm256_add_epi64(_mm256_set1_epi64x(next), _mm256_cvtepu8_epi64(befores));
    const __m256i none = _mm256_sub_epi64(_mm256_cvtepu8_epi64(flags), _mm256_set1_epi64x(1)); // -1 or 0
    __m256i *at = reinterpret_cast<__m256i *>(map);
    if (others == dropped::minus_one)
        _mm256_storeu_si256(at, _mm256_or_si256(numbers, none));
    else // a load and a blend: masked stores are slow on some machines
        _mm256_storeu_si256(at, _mm256_blendv_epi8(numbers, _mm256_loadu_si256(at), none));
}

template <dropped others>
TARGET_AVX2 KEPT_APART static void number_flags_wide(const unsigned char *flags, qx_long count, qx_long next,
                                                     qx_long *map)
{
    qx_long i = 0;
    for (; i + 8 <= count; i += 8) {
        uint64_t eight;
        memcpy(&eight, flags + i, sizeof eight);
        const uint64_t up_to = eight * 0x0101010101010101u;
        const __m128i befores = _mm_cvtsi64_si128(static_cast<qx_long>(up_to - eight));
        const __m128i some = _mm_cvtsi64_si128(static_cast<qx_long>(eight));
        store_four<others>(befores, some, next, map + i);
        store_four<others>(_mm_srli_si128(befores, 4), _mm_srli_si128(some, 4), next, map + i + 4);
        next += static_cast<qx_long>(up_to >> 56);
    }
    number_flags_plain<others>(flags + i, count - i, next, map + i);
}

// Which of four numbers go where in a list: row m holds the positions of the bits that are set in m, as pairs
// of 32-bit halves.
struct packing_table {
    alignas(32) int row[16][8];
};

static constexpr packing_table packing_rows()
{
    packing_table table = {};
    for (int mask = 0; mask < 16; ++mask)
        for (int bit = 0, place = 0; bit < 4; ++bit)
            if ((mask >> bit & 1) != 0) {
                table.row[mask][2 * place] = 2 * bit;
                table.row[mask][2 * place + 1] = 2 * bit + 1;
                ++place;
            }
    return table;
}

static constexpr packing_table packing = packing_rows();

TARGET_AVX2 KEPT_APART static void list_flags_wide(const unsigned char *flags, qx_long survivors,
                                                   qx_long first, qx_long *list)
{
    __m256i nodes = _mm256_add_epi64(_mm256_set1_epi64x(first), _mm256_setr_epi64x(0, 1, 2, 3));
    qx_long i = 0, listed = 0;
    // Four are stored whatever their flags, and the places kept of those that are set.
    for (; listed + 4 <= survivors; i += 4) {
        uint32_t four;
        memcpy(&four, flags + i, sizeof four);
        const uint32_t mask = four * 0x01020408u >> 24; // byte k to bit k
        const __m256i order = _mm256_load_si256(reinterpret_cast<const __m256i *>(packing.row[mask & 15]));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(list + listed),
                            _mm256_permutevar8x32_epi32(nodes, order));
        nodes = _mm256_add_epi64(nodes, _mm256_set1_epi64x(4));
        listed += __builtin_popcount(mask & 15);
    }
    list_flags_plain(flags + i, survivors - listed, first + i, list + listed);
}

#endif

static qx_long count_flags(const unsigned char *flags, qx_long count)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return count_flags_wide(flags, count);
#endif
    return count_flags_plain(flags, count);
}

template <dropped others>
static void number_flags(const unsigned char *flags, qx_long count, qx_long next, qx_long *map)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return number_flags_wide<others>(flags, count, next, map);
#endif
    number_flags_plain<others>(flags, count, next, map);
}

static void list_flags(const unsigned char *flags, qx_long survivors, qx_long first, qx_long *list)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return list_flags_wide(flags, survivors, first, list);
#endif
    list_flags_plain(flags, survivors, first, list);
}

// ---- from values to survivors --------------------------------------------------------------------------

// Values, their null and a test of them.
template <typename T, typename Test> struct node_test {
    const T *data;
    Test test;
    bool has_null;
    T null_value;
};

// Calls use(first, count, flags) for each block of nodes.
template <typename T, typename Test, typename Use>
static void for_flagged_blocks(qx_long nnodes, const node_test<T, Test> &nodes, Use use)
{
    unsigned char flags[node_block];
    for (qx_long first = 0; first < nnodes; first += node_block) {
        const qx_long count = std::min(node_block, nnodes - first);
        classify(nodes.data + first, count, nodes.test, nodes.has_null, nodes.null_value, survivor_flags,
                 flags);
        use(first, count, flags);
    }
}

template <typename T, typename Test>
static qx_long count_survivors(qx_long nnodes, const node_test<T, Test> &nodes)
{
    qx_long survivors = 0;
    for_flagged_blocks(nnodes, nodes, [&](qx_long, qx_long count, const unsigned char *flags) {
        survivors += count_flags(flags, count);
    });
    return survivors;
}

template <typename T, typename Test>
static qx_long number_survivors(qx_long nnodes, const node_test<T, Test> &nodes, qx_long *map)
{
    qx_long survivors = 0;
    for_flagged_blocks(nnodes, nodes, [&](qx_long first, qx_long count, const unsigned char *flags) {
        number_flags<dropped::minus_one>(flags, count, survivors, map + first);
        survivors += count_flags(flags, count);
    });
    return survivors;
}

// Adds the survivors of a plane whose first node is base to those that earlier planes left.
template <typename T, typename Test>
static qx_long append_survivors(qx_long nnodes, const node_test<T, Test> &nodes, qx_long base, qx_long *count,
                                qx_long *list, qx_long *map)
{
    const qx_long before = *count;
    qx_long next = before;
    for_flagged_blocks(nnodes, nodes, [&](qx_long first, qx_long some, const unsigned char *flags) {
        const qx_long survivors = count_flags(flags, some);
        number_flags<dropped::untouched>(flags, some, next, map + first);
        list_flags(flags, survivors, base + first, list + next);
        next += survivors;
    });
    *count = next;
    return next - before;
}

// Calls use with the nodes of any type and their test against a level; what use returns is the result.
template <typename Use>
static qx_long with_level_nodes(const char *operation, const void *data, int data_type, int null_flag,
                                const void *null_value, double level, int direction, Use use)
{
    return with_dtype(data_type, operation, [&](auto type) -> qx_long {
        using T = typename decltype(type)::type;
        return with_widened_level_test<T>(level, direction, [&](auto test) {
            return use(node_test<T, decltype(test)>{static_cast<const T *>(data), test, null_flag != 0,
                                                    null_value_of<T>(null_flag, null_value)});
        });
    });
}

// ---- exported ----------------------------------------------------------------------------------------------

extern "C" {

qx_long UTILnode_thresh(qx_long nnodes, int data_type, const void *data, int null_flag,
                        const void *null_value, double level, int direction, qx_long *map)
{
    return with_level_nodes("UTILnode_thresh", data, data_type, null_flag, null_value, level, direction,
                            [&](const auto &nodes) { return number_survivors(nnodes, nodes, map); });
}

qx_long UTILnode_thresh2(qx_long nnodes, int data_type, const void *data, int null_flag,
                         const void *null_value, double lo, double hi, qx_long *map)
{
    return with_dtype(data_type, "UTILnode_thresh2", [&](auto type) -> qx_long {
        using T = typename decltype(type)::type;
        const in_range<T> test = {truncate_to<T>(lo), truncate_to<T>(hi)};
        const node_test<T, in_range<T>> nodes = {static_cast<const T *>(data), test, null_flag != 0,
                                                 null_value_of<T>(null_flag, null_value)};
        return number_survivors(nnodes, nodes, map);
    });
}

qx_long UTILnnode_thresh_struct(int ndim, const qx_long *dims, const void *data, int data_type, int null_flag,
                                const void *null_value, double level, int direction)
{
    qx_long nnodes = ndim > 0 ? 1 : 0;
    for (int d = 0; d < ndim; ++d)
        nnodes *= dims[d];
    return with_level_nodes("UTILnnode_thresh_struct", data, data_type, null_flag, null_value, level,
                            direction, [&](const auto &nodes) { return count_survivors(nnodes, nodes); });
}

qx_long UTILnode_thresh_struct(qx_long nnodes, const void *data, int data_type, int null_flag,
                               const void *null_value, double level, int direction, qx_long base,
                               qx_long *count, qx_long *list, qx_long *map)
{
    return with_level_nodes(
        "UTILnode_thresh_struct", data, data_type, null_flag, null_value, level, direction,
        [&](const auto &nodes) { return append_survivors(nnodes, nodes, base, count, list, map); });
}

qx_long UTILnode_thresh_null(qx_long nnodes, int data_type, const void *data, const void *null_value,
                             qx_long *map)
{
    return with_dtype(data_type, "UTILnode_thresh_null", [&](auto type) -> qx_long {
        using T = typename decltype(type)::type;
        const node_test<T, anything<T>> nodes = {
            static_cast<const T *>(data), {}, true, null_value_of<T>(1, null_value)};
        return number_survivors(nnodes, nodes, map);
    });
}

} // extern "C"
