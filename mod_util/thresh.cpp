// Node thresholds: which nodes survive a test, and their new numbers.
//
// The nodes are taken a block at a time. The classifying kernel turns the values of a block into a byte each,
// 1 for a survivor, whatever the type and the test; what follows sees those bytes only and is not typed.
// Nodes are numbered without a branch, so that data without a pattern cost no more than smooth data:
//
//     flags       0 1 1 0 1     next = 7
//     numbers    -1 7 8 -1 9    (next + flags before) | (flag - 1)
//
// The wide form turns 32 flags into bits. Words without or full of survivors are done at once; of others each
// byte picks a row of a table: the flags before each of its nodes, and the places of its survivors. A sweep's
// list is made of the places of a block, which are packed in 16 bits each first: so each entry of the list is
// written once, in order and none past its end, and a list that outgrows the caches can be written around them.

#include <skoklana/cut.h>

#include "classify.hpp"
#include "dtype.hpp"
#include "thresh.hpp"

#include <algorithm>

// Nodes that are flagged before they are numbered, so that flags stay in the first-level cache. A map is written
// to memory while the values are read: short blocks keep both going. A sweep writes the map of one plane again
// and again, and its list in runs that should be long.
constexpr qx_long map_block = 512;
constexpr qx_long sweep_block = 4096;

namespace {

// The values of the block that follows, as many as the block has.
struct values_ahead {
    const char *at;
    qx_long bytes_a_node;
};

// What a node that does not survive finds in the map.
enum class dropped { minus_one, untouched };

} // namespace

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
TARGET_AVX2 FORCE_INLINE void store_four(__m128i befores, __m128i flags, qx_long next, qx_long *map)
{
    const __m256i numbers = _mm256_add_epi64(_mm256_set1_epi64x(next), _mm256_cvtepu8_epi64(befores));
    const __m256i none = _mm256_sub_epi64(_mm256_cvtepu8_epi64(flags), _mm256_set1_epi64x(1)); // -1 or 0
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(map), _mm256_or_si256(numbers, none));
}

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
        store_four(befores, some, next, map + i);
        store_four(_mm_srli_si128(befores, 4), _mm_srli_si128(some, 4), next, map + i + 4);
        next += static_cast<qx_long>(up_to >> 56);
    }
    number_flags_plain<dropped::minus_one>(flags + i, count - i, next, map + i);
}

namespace {

// By the bits of eight flags: for each the number of flags before it, beyond 127 where it is not set itself; and
// the places of those that are set, in order. What follows the last place is of no meaning.
struct bit_tables {
    alignas(64) unsigned char before[256][8], place[256][8];
};

} // namespace

static constexpr bit_tables tables_of_bits()
{
    bit_tables tables = {};
    for (int bits = 0; bits < 256; ++bits)
        for (int bit = 0, before = 0; bit < 8; ++bit) {
            const bool set = (bits >> bit & 1) != 0;
            tables.before[bits][bit] = static_cast<unsigned char>(set ? before : 128 + before);
            if (set) tables.place[bits][before++] = static_cast<unsigned char>(bit);
        }
    return tables;
}

static constexpr bit_tables by_bits = tables_of_bits();

constexpr uint32_t all_bits = 0xffffffff;

TARGET_AVX2 FORCE_INLINE uint32_t bits_of_flags(const unsigned char *flags)
{
    const __m256i some = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(flags));
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_slli_epi16(some, 7)));
}

// Four numbers, next and what before holds for each.
TARGET_AVX2 FORCE_INLINE void number_four(const unsigned char *before, __m256i next, qx_long *map)
{
    int four;
    memcpy(&four, before, sizeof four);
    const __m256i signed_before = _mm256_cvtepi8_epi64(_mm_cvtsi32_si128(four)); // negative where not set
    const __m256i numbers = _mm256_add_epi64(next, signed_before);
    // A load and a blend: masked stores are slow on some machines.
    __m256i *at = reinterpret_cast<__m256i *>(map);
    _mm256_storeu_si256(at, _mm256_blendv_epi8(numbers, _mm256_loadu_si256(at), signed_before));
}

// Count numbers from first on, count a multiple of four.
TARGET_AVX2 FORCE_INLINE void store_ascending(qx_long first, int count, qx_long *out)
{
    __m256i numbers = _mm256_add_epi64(_mm256_set1_epi64x(first), _mm256_setr_epi64x(0, 1, 2, 3));
    for (int i = 0; i < count; i += 4) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i), numbers);
        numbers = _mm256_add_epi64(numbers, _mm256_set1_epi64x(4));
    }
}

// 32 numbers; nodes whose bits are not set are left alone.
TARGET_AVX2 FORCE_INLINE void number_bits(uint32_t bits, qx_long next, qx_long *map)
{
    if (bits == all_bits) return store_ascending(next, 32, map);
    for (int i = 0; i < 32; i += 8, bits >>= 8) {
        const unsigned char *before = by_bits.before[bits & 255];
        const __m256i nexts = _mm256_set1_epi64x(next);
        number_four(before, nexts, map + i);
        number_four(before + 4, nexts, map + i + 4);
        next += __builtin_popcount(bits & 255);
    }
}

// Adds the places of bits, the first of them first, to those before; gives the end. Eight are stored at a time.
TARGET_AVX2 FORCE_INLINE unsigned short *add_places(uint32_t bits, qx_long first, unsigned short *end)
{
    __m128i base = _mm_set1_epi16(static_cast<short>(first));
    for (int i = 0; i < 32; i += 8, bits >>= 8) {
        const void *place = by_bits.place[bits & 255];
        const __m128i eight = _mm_cvtepu8_epi16(_mm_loadl_epi64(static_cast<const __m128i *>(place)));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(end), _mm_add_epi16(base, eight));
        base = _mm_add_epi16(base, _mm_set1_epi16(8));
        end += __builtin_popcount(bits & 255);
    }
    return end;
}

// Lists of more nodes are written around the caches: who has listed so many finds no room for them there.
constexpr qx_long cached_list = 1 << 20;

// The nodes at the places, from first on; streamed says whether around the caches.
template <bool streamed>
TARGET_AVX2 FORCE_INLINE void list_places(const unsigned short *places, qx_long count, qx_long first,
                                          qx_long *list)
{
    const __m256i base = _mm256_set1_epi64x(first);
    qx_long i = 0;
    if (streamed)
        for (; i < count && reinterpret_cast<uintptr_t>(list + i) % 64 != 0; ++i)
            list[i] = first + places[i];
    for (; i + 8 <= count; i += 8) { // a line of the cache when streamed, and never a part of one
        const __m128i eight = _mm_loadu_si128(reinterpret_cast<const __m128i *>(places + i));
        const __m256i low = _mm256_add_epi64(base, _mm256_cvtepu16_epi64(eight));
        const __m256i high = _mm256_add_epi64(base, _mm256_cvtepu16_epi64(_mm_srli_si128(eight, 8)));
        __m256i *at = reinterpret_cast<__m256i *>(list + i);
        if (streamed) {
            _mm256_stream_si256(at, low);
            _mm256_stream_si256(at + 1, high);
        } else {
            _mm256_storeu_si256(at, low);
            _mm256_storeu_si256(at + 1, high);
        }
    }
    for (; i < count; ++i)
        list[i] = first + places[i];
}

// Asks for the values of 32 nodes of the block to come: while lists are written nothing else reads them.
TARGET_AVX2 FORCE_INLINE void fetch_ahead(values_ahead ahead, qx_long node)
{
    constexpr int line = 64, second_level = 2;
    const char *values = ahead.at + node * ahead.bytes_a_node;
    for (qx_long i = 0; i < 32 * ahead.bytes_a_node; i += line)
        __builtin_prefetch(values + i, 0, second_level);
}

// Numbers the survivors of a block from next on and lists them from list[next] on. Gives the next number.
TARGET_AVX2 KEPT_APART static qx_long sweep_flags_wide(const unsigned char *flags, qx_long count,
                                                       qx_long next, qx_long first, qx_long *list,
                                                       qx_long *map, values_ahead ahead)
{
    static_assert(sweep_block <= 1 << 16, "places are of 16 bits");
    unsigned short places[sweep_block + 8], *end = places;
    qx_long number = next, i = 0;
    for (; i + 32 <= count; i += 32) {
        const uint32_t bits = bits_of_flags(flags + i);
        fetch_ahead(ahead, i);
        if (bits == 0) continue;
        number_bits(bits, number, map + i);
        end = add_places(bits, i, end);
        number += __builtin_popcount(bits);
    }
    for (; i < count; ++i) {
        if (flags[i] == 0) continue;
        map[i] = number++;
        *end++ = static_cast<unsigned short>(i);
    }
    if (next > cached_list)
        list_places<true>(places, number - next, first, list + next);
    else
        list_places<false>(places, number - next, first, list + next);
    return number;
}

#endif

static qx_long count_flags(const unsigned char *flags, qx_long count)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return count_flags_wide(flags, count);
#endif
    return count_flags_plain(flags, count);
}

static void number_flags(const unsigned char *flags, qx_long count, qx_long next, qx_long *map)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return number_flags_wide(flags, count, next, map);
#endif
    number_flags_plain<dropped::minus_one>(flags, count, next, map);
}

static qx_long sweep_flags(const unsigned char *flags, qx_long count, qx_long next, qx_long first,
                           qx_long *list, qx_long *map, values_ahead ahead)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return sweep_flags_wide(flags, count, next, first, list, map, ahead);
#endif
    (void)ahead;
    const qx_long survivors = count_flags_plain(flags, count);
    number_flags_plain<dropped::untouched>(flags, count, next, map);
    list_flags_plain(flags, survivors, first, list + next);
    return next + survivors;
}

// Lists written around the caches are complete before anything that follows.
static void end_sweep(qx_long listed)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (listed > cached_list) _mm_sfence();
#else
    (void)listed;
#endif
}

// ---- from values to survivors --------------------------------------------------------------------------

namespace {

// Values, their null and a test of them.
template <typename T, typename Test> struct node_test {
    const T *data;
    Test test;
    bool has_null;
    T null_value;
};

} // namespace

// Calls use(first, count, flags) for each block of nodes.
template <qx_long block, typename T, typename Test, typename Use>
static void for_flagged_blocks(qx_long nnodes, const node_test<T, Test> &nodes, Use use)
{
    unsigned char flags[block];
    for (qx_long first = 0; first < nnodes; first += block) {
        const qx_long count = std::min(block, nnodes - first);
        classify(nodes.data + first, count, nodes.test, nodes.has_null, nodes.null_value, survivor_flags,
                 flags);
        use(first, count, flags);
    }
}

template <typename T, typename Test>
static qx_long count_survivors(qx_long nnodes, const node_test<T, Test> &nodes)
{
    qx_long survivors = 0;
    for_flagged_blocks<sweep_block>(nnodes, nodes, [&](qx_long, qx_long count, const unsigned char *flags) {
        survivors += count_flags(flags, count);
    });
    return survivors;
}

template <typename T, typename Test>
static qx_long number_survivors(qx_long nnodes, const node_test<T, Test> &nodes, qx_long *map)
{
    qx_long survivors = 0;
    for_flagged_blocks<map_block>(nnodes, nodes,
                                  [&](qx_long first, qx_long count, const unsigned char *flags) {
                                      number_flags(flags, count, survivors, map + first);
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
    for_flagged_blocks<sweep_block>(
        nnodes, nodes, [&](qx_long first, qx_long some, const unsigned char *flags) {
            const T *ahead = nodes.data + std::min(first + some, nnodes - some);
            next = sweep_flags(flags, some, next, base + first, list, map + first,
                               {reinterpret_cast<const char *>(ahead), sizeof(T)});
        });
    end_sweep(next);
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

// The same for a range.
template <typename Use>
static qx_long with_range_nodes(const char *operation, const void *data, const range_threshold &range,
                                Use use)
{
    return with_dtype(range.data_type, operation, [&](auto type) -> qx_long {
        using T = typename decltype(type)::type;
        const in_range<T> test = {truncate_to<T>(range.lo), truncate_to<T>(range.hi)};
        return use(node_test<T, in_range<T>>{static_cast<const T *>(data), test, range.null_flag != 0,
                                             null_value_of<T>(range.null_flag, range.null_value)});
    });
}

// ---- by a range, for other modules -------------------------------------------------------------------------

qx_long count_nodes_in_range(qx_long nnodes, const void *data, const range_threshold &range)
{
    return with_range_nodes("UTILnode_thresh2", data, range,
                            [&](const auto &nodes) { return count_survivors(nnodes, nodes); });
}

void sweep_nodes_in_range(qx_long nnodes, const void *data, const range_threshold &range, qx_long base,
                          qx_long *count, qx_long *list, qx_long *map)
{
    with_range_nodes("UTILnode_thresh2", data, range, [&](const auto &nodes) {
        return append_survivors(nnodes, nodes, base, count, list, map);
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
    return with_range_nodes("UTILnode_thresh2", data, {data_type, null_flag, null_value, lo, hi},
                            [&](const auto &nodes) { return number_survivors(nnodes, nodes, map); });
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
