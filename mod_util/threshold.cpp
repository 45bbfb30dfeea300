// Thresholds on arrays: values outside bounds replaced, and one byte a value against a level.
//
// UTILthreshold takes any of seven data types with any of seven target types. The two never meet in one
// loop: a block of values is first turned into a byte each, 1 to keep and 0 to replace, by the kernel of the
// data's type; then the rows of the target are written by those bytes, by the kernel of its type. Seven
// kernels and seven serve the 49 pairs, and the bytes in between stay in the first-level cache.
//
// UTILthreshold_scalar is the classifying kernel itself. It touches every node of every extraction and runs
// at the speed of memory.

#include <skoklana/array.h>

#include "classify.hpp"
#include "dtype.hpp"

#include <algorithm>

// Values that are tested before their rows are written: few, so that reading and writing keep close together,
// and more of the narrow ones, whose blocks would be over before they pay for their start.
template <typename T>
constexpr qx_long threshold_block = std::max<qx_long>(512, 2048 / static_cast<qx_long>(sizeof(T)));

namespace {

// The tested values of an array of rows: data[offset + i * stride].
template <typename T> struct tested_component {
    const T *data;
    qx_long stride, offset;
    not_outside<T> bounds;
    bool has_null;
    T null_value;

    // 1 for each of the count elements from first on that passes; count is a block at most.
    void flag(qx_long first, qx_long count, unsigned char *passed) const
    {
        const T *from = data + offset + first * stride;
        T gathered[threshold_block<T>];
        if (stride != 1) {
            for (qx_long i = 0; i < count; ++i)
                gathered[i] = from[i * stride];
            from = gathered;
        }
        classify(from, count, bounds, has_null, null_value, survivor_flags, passed);
    }
};

// What becomes of a row of the target, for a target of any type.
struct row_writer {
    void (*write)(const row_writer &rows, qx_long first, qx_long count, const unsigned char *passed);
    const void *target;
    int veclen;
    double fill;
    void *out; // may be target
};

} // namespace

// Each element is read whether it is kept or not: a select needs no branch.
template <typename T>
FORCE_INLINE void select_elements(qx_long count, const unsigned char *passed, const T *target, T fill, T *out)
{
#pragma GCC ivdep
    for (qx_long i = 0; i < count; ++i) {
        const T kept = target[i];
        out[i] = passed[i] != 0 ? kept : fill;
    }
}

template <typename T>
TARGET_AVX2 static void select_elements_wide(qx_long count, const unsigned char *passed, const T *target,
                                             T fill, T *out)
{
    select_elements(count, passed, target, fill, out);
}

template <typename T>
static void select_rows(qx_long count, const unsigned char *passed, const T *target, int veclen, T fill,
                        T *out)
{
    for (qx_long i = 0; i < count; ++i)
        for (int c = 0; c < veclen; ++c) {
            const T kept = target[i * veclen + c];
            out[i * veclen + c] = passed[i] != 0 ? kept : fill;
        }
}

// Bytes are moved as chars, of which GCC makes vectors where it makes none of bytes.
template <typename T>
using selected_as = std::conditional_t<std::is_same_v<T, unsigned char>, signed char, T>;

template <typename T>
static void write_target_rows(const row_writer &rows, qx_long first, qx_long count,
                              const unsigned char *passed)
{
    using S = selected_as<T>;
    const S *target = static_cast<const S *>(rows.target) + first * rows.veclen;
    S *out = static_cast<S *>(rows.out) + first * rows.veclen;
    const S fill = static_cast<S>(truncate_to<T>(rows.fill));
    if (rows.veclen != 1)
        select_rows(count, passed, target, rows.veclen, fill, out);
    else if (have_avx2())
        select_elements_wide(count, passed, target, fill, out);
    else
        select_elements(count, passed, target, fill, out);
}

template <typename T>
static int threshold_rows(qx_long count, const tested_component<T> &tested, const row_writer &rows)
{
    unsigned char passed[threshold_block<T>];
    for (qx_long first = 0; first < count; first += threshold_block<T>) {
        const qx_long some = std::min(threshold_block<T>, count - first);
        tested.flag(first, some, passed);
        rows.write(rows, first, some, passed);
    }
    return 1;
}

template <typename T>
static int classify_by_level(qx_long count, const T *data, int null_flag, T null_value, int inclusive,
                             double level, int below, int above, int null_code, unsigned char *out)
{
    const outcome_codes codes = {static_cast<unsigned char>(below), static_cast<unsigned char>(above),
                                 static_cast<unsigned char>(null_code)};
    with_level_test<T>(level, inclusive != 0, [&](const auto &test) {
        classify(data, count, test, null_flag != 0, null_value, codes, out);
    });
    return 1;
}

extern "C" {

int UTILthreshold(qx_long count, const void *data, int stride, int offset, int data_type, int null_flag,
                  const void *null_value, int min_flag, double min, int max_flag, double max,
                  const void *target, int target_veclen, int target_data_type, double fill, void *out)
{
    row_writer rows = {nullptr, target, target_veclen, fill, out};
    with_dtype_silent(target_data_type, [&](auto type) -> int {
        rows.write = write_target_rows<typename decltype(type)::type>;
        return 1;
    });
    if (rows.write == nullptr) return 0;

    return with_dtype_silent(data_type, [&](auto type) -> int {
        using T = typename decltype(type)::type;
        const not_outside<T> bounds = {min_flag != 0 ? truncate_to<T>(min) : no_lower_bound<T>(),
                                       max_flag != 0 ? truncate_to<T>(max) : no_upper_bound<T>()};
        const tested_component<T> tested = {
            static_cast<const T *>(data),           stride, offset, bounds, null_flag != 0,
            null_value_of<T>(null_flag, null_value)};
        return threshold_rows(count, tested, rows);
    });
}

int UTILthreshold_scalar(qx_long count, const void *data, int data_type, int null_flag,
                         const void *null_value, int inclusive, double level, int below, int above,
                         int null_code, unsigned char *out)
{
    return with_dtype(data_type, "UTILthreshold_scalar", [&](auto type) -> int {
        using T = typename decltype(type)::type;
        return classify_by_level(count, static_cast<const T *>(data), null_flag,
                                 null_value_of<T>(null_flag, null_value), inclusive, level, below, above,
                                 null_code, out);
    });
}

#define EXPORT_THRESHOLD_SCALAR(code, T, suffix)                                                        \
    int UTILthreshold_scalar_##suffix(qx_long count, const T *data, int null_flag, T null_value,        \
                                      int inclusive, double level, int below, int above, int null_code, \
                                      unsigned char *out)                                               \
    {                                                                                                   \
        return classify_by_level<T>(count, data, null_flag, null_value, inclusive, level, below, above, \
                                    null_code, out);                                                    \
    }
FOR_EACH_DTYPE(EXPORT_THRESHOLD_SCALAR)
#undef EXPORT_THRESHOLD_SCALAR

} // extern "C"
