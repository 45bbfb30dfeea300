// Tools: typed arrays, conversions, small matrices, the number of processors.
#include "mod_util/type_switch.hpp"

#include <skoklana/host/tool.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include <sched.h>
#include <unistd.h>

namespace {

// ---- element types -------------------------------------------------------------------------------------------

// To the nearest value of a floating type; to an integer type by cutting off the fraction, the nearest
// end of the type's range for values beyond it, and 0 for NaN.
template <typename To, typename From> To converted(From value)
{
    if constexpr (std::is_floating_point_v<To>) {
        return static_cast<To>(value);
    } else {
        constexpr To lowest = std::numeric_limits<To>::min(), highest = std::numeric_limits<To>::max();
        if constexpr (std::is_floating_point_v<From>) {
            // One past the highest is a power of two, so that it is exact where the highest may not be.
            constexpr To half_beyond = highest / 2 + 1;
            constexpr From beyond = static_cast<From>(half_beyond) * 2;
            if (value >= beyond) return highest;
            if (value <= static_cast<From>(lowest)) return lowest;
            return value == value ? static_cast<To>(value) : To{0};
        } else {
            const int64_t wide = value;
            return wide < lowest ? lowest : wide > highest ? highest : static_cast<To>(wide);
        }
    }
}

template <typename To> int to_type(int type, const void *value, To *out)
{
    return with_dtype_silent(type, [=](auto tag) {
        typename decltype(tag)::type stored;
        memcpy(&stored, value, sizeof stored);
        *out = converted<To>(stored);
        return 1;
    });
}

// ---- arrays --------------------------------------------------------------------------------------------------

// Bytes of count elements; 0: unknown type, or more than a block can have. No element still takes a byte, so
// that NULL always means failure.
size_t block_bytes(int type, qx_long count)
{
    qx_long bytes;
    const int size = DTYPEtype_size(type);
    if (size == 0 || count < 0 || __builtin_mul_overflow(count, size, &bytes)) return 0;
    return bytes > 0 ? static_cast<size_t>(bytes) : 1;
}

// ---- matrices ------------------------------------------------------------------------------------------------

// The longest row of a factor whose place its product can take.
constexpr int most_inner = 64;

// Width neighbouring elements of a product's row, each summed in the order of inner. Sums stay in registers.
template <int Width> inline void sum_columns(const float *a, const float *m, float *out, int inner, int cols)
{
    float sum[Width] = {};
    for (int k = 0; k < inner; ++k)
        for (int c = 0; c < Width; ++c)
            sum[c] += a[k] * m[k * cols + c];
    for (int c = 0; c < Width; ++c)
        out[c] = sum[c];
}

inline void row_by_mat(const float *a, const float *m, float *out, int inner, int cols)
{
    int c = 0;
    for (; c + 8 <= cols; c += 8)
        sum_columns<8>(a, m + c, out + c, inner, cols);
    for (; c + 3 <= cols; c += 3)
        sum_columns<3>(a, m + c, out + c, inner, cols);
    for (; c < cols; ++c)
        sum_columns<1>(a, m + c, out + c, inner, cols);
}

} // namespace

extern "C" {

int DTYPEtype_size(int type)
{
    return with_dtype_silent(type,
                             [](auto tag) { return static_cast<int>(sizeof(typename decltype(tag)::type)); });
}

void *ARRalloc_f(void *, int type, qx_long count, int, const char *, int)
{
    const size_t bytes = block_bytes(type, count);
    return bytes != 0 ? malloc(bytes) : nullptr;
}

void *ARRrealloc_f(void *array, int type, qx_long count, int, const char *, int)
{
    const size_t bytes = block_bytes(type, count);
    return bytes != 0 ? realloc(array, bytes) : nullptr;
}

void ARRfree_f(void *array, const char *, int)
{
    free(array);
}

int DTYPEcvt_copy_array_list(int from_type, const void *from, int to_type, void *to, int veclen,
                             qx_long count, const qx_long *list)
{
    return with_dtype_silent(from_type, [=](auto from_tag) {
        return with_dtype_silent(to_type, [=](auto to_tag) {
            const auto *in = static_cast<const typename decltype(from_tag)::type *>(from);
            auto *out = static_cast<typename decltype(to_tag)::type *>(to);
            for (qx_long i = 0; i < count; ++i)
                for (int k = 0; k < veclen; ++k)
                    out[i * veclen + k] =
                        converted<typename decltype(to_tag)::type>(in[list[i] * veclen + k]);
            return 1;
        });
    });
}

int UTILtype_to_float(int type, const void *value, float *out)
{
    return to_type(type, value, out);
}

int UTILtype_to_double(int type, const void *value, double *out)
{
    return to_type(type, value, out);
}

int UTILdouble_to_type(int type, double value, void *out)
{
    return with_dtype_silent(type, [=](auto tag) {
        const auto stored = converted<typename decltype(tag)::type>(value);
        memcpy(out, &stored, sizeof stored);
        return 1;
    });
}

void MATvec_by_mat(const float *a, const float *m, float *out, int rows, int inner, int cols)
{
    float row[most_inner];
    for (int r = 0; r < rows; ++r) {
        const float *from = a + static_cast<qx_long>(r) * inner;
        if (out == a && inner <= most_inner)
            from = static_cast<const float *>(memcpy(row, from, static_cast<size_t>(inner) * sizeof(float)));
        row_by_mat(from, m, out + static_cast<qx_long>(r) * cols, inner, cols);
    }
}

float MATmat2_inverse(float *m)
{
    const float det = m[0] * m[3] - m[1] * m[2];
    if (det == 0) return 0;
    const float scale = 1 / det;
    const float inverse[4] = {m[3] * scale, -m[1] * scale, -m[2] * scale, m[0] * scale};
    memcpy(m, inverse, sizeof inverse);
    return det;
}

float MATmat3_inverse(float *m)
{
    const float a = m[4] * m[8] - m[5] * m[7], b = m[5] * m[6] - m[3] * m[8], c = m[3] * m[7] - m[4] * m[6];
    const float det = m[0] * a + m[1] * b + m[2] * c;
    if (det == 0) return 0;
    const float scale = 1 / det;
    const float inverse[9] = {
        a * scale, (m[2] * m[7] - m[1] * m[8]) * scale, (m[1] * m[5] - m[2] * m[4]) * scale,
        b * scale, (m[0] * m[8] - m[2] * m[6]) * scale, (m[2] * m[3] - m[0] * m[5]) * scale,
        c * scale, (m[1] * m[6] - m[0] * m[7]) * scale, (m[0] * m[4] - m[1] * m[3]) * scale};
    memcpy(m, inverse, sizeof inverse);
    return det;
}

void MATmat3_transpose(float *dst, const float *src)
{
    const float transposed[9] = {src[0], src[3], src[6], src[1], src[4], src[7], src[2], src[5], src[8]};
    memcpy(dst, transposed, sizeof transposed);
}

void MATvec3_mat4_multiply(float *vec, const float *mat)
{
    const float x = vec[0], y = vec[1], z = vec[2];
    for (int c = 0; c < 3; ++c)
        vec[c] = x * mat[c] + y * mat[4 + c] + z * mat[8 + c] + mat[12 + c];
}

void MATmat4_translate(float *mat, const float *offset)
{
    for (int i = 0; i < 16; ++i)
        mat[i] = i % 5 == 0 ? 1.0f : 0.0f;
    for (int d = 0; d < 3; ++d)
        mat[12 + d] = offset[d];
}

// Square roots are one instruction; there is nothing to prepare.
void MATbuild_sqrt_table(void) {}

int CPUget_processor_info(CPUprocessor_info *info)
{
    // The set grows until the kernel's own fits.
    for (size_t cpus = CPU_SETSIZE; cpus <= (1u << 20); cpus *= 2) {
        cpu_set_t *set = CPU_ALLOC(cpus);
        if (set == nullptr) break;
        const bool known = sched_getaffinity(0, CPU_ALLOC_SIZE(cpus), set) == 0;
        const int count = known ? CPU_COUNT_S(CPU_ALLOC_SIZE(cpus), set) : 0;
        CPU_FREE(set);
        if (known && count > 0) {
            *info = {0, count};
            return 1;
        }
    }
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    if (online < 1) return 0;
    *info = {0, static_cast<int>(online)};
    return 1;
}

} // extern "C"
