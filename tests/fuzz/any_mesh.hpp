// A mesh, data on it and a level, made of arbitrary bytes: small, of any kind, with coordinates and values
// that are equal, huge, infinite or no number more often than real ones are.
#pragma once

#include <skoklana.h>
#include <skoklana_host.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace fuzz {

struct any_mesh {
    std::vector<float> coords;
    std::vector<std::vector<float>> axes;
    std::vector<std::vector<qx_long>> connect;
    host_field *field = nullptr;
    mesh_info *mesh = nullptr; // NULL where the host refuses what it was given

    any_mesh() = default;
    any_mesh(const any_mesh &) = delete;
    any_mesh &operator=(const any_mesh &) = delete;
    ~any_mesh() { host_free_field(field); }
};

inline float any_float(FuzzedDataProvider &bytes)
{
    switch (bytes.ConsumeIntegralInRange(0, 9)) {
    case 0: return std::numeric_limits<float>::quiet_NaN();
    case 1: return bytes.ConsumeBool() ? HUGE_VALF : -HUGE_VALF;
    case 2:
        return bytes.ConsumeBool() ? std::numeric_limits<float>::max()
                                   : std::numeric_limits<float>::denorm_min();
    case 3: {
        const auto pattern = bytes.ConsumeIntegral<uint32_t>();
        float value;
        std::memcpy(&value, &pattern, sizeof value);
        return value;
    }
    default: return 0.25f * static_cast<float>(bytes.ConsumeIntegralInRange(-8, 8));
    }
}

inline std::vector<float> any_floats(FuzzedDataProvider &bytes, qx_long count)
{
    std::vector<float> values(static_cast<size_t>(count));
    for (float &value : values)
        value = any_float(bytes);
    return values;
}

inline void make_structured(FuzzedDataProvider &bytes, int kind, any_mesh *out)
{
    const int ndim = bytes.ConsumeIntegralInRange(1, 3), nspace = bytes.ConsumeIntegralInRange(ndim, 3);
    qx_long dims[3] = {1, 1, 1}, nnodes = 1;
    for (int d = 0; d < ndim; ++d) {
        dims[d] = bytes.ConsumeIntegralInRange(1, ndim == 1 ? 80 : 6);
        nnodes *= dims[d];
    }
    if (kind == 0) {
        out->coords = any_floats(bytes, 2 * nspace);
        out->field = host_uniform(ndim, dims, nspace, out->coords.data());
    } else if (kind == 1) {
        const float *axes[3] = {};
        for (int d = 0; d < nspace; ++d)
            out->axes.push_back(any_floats(bytes, dims[d]));
        for (int d = 0; d < nspace; ++d)
            axes[d] = out->axes[static_cast<size_t>(d)].data();
        out->field = host_rectilinear(ndim, dims, nspace, axes);
    } else {
        out->coords = any_floats(bytes, nnodes * nspace);
        out->field = host_curvilinear(ndim, dims, nspace, out->coords.data());
    }
}

inline void make_cell_sets(FuzzedDataProvider &bytes, any_mesh *out)
{
    const int nspace = bytes.ConsumeIntegralInRange(1, 3);
    const qx_long nnodes = bytes.ConsumeIntegralInRange<qx_long>(0, 40);
    out->coords = any_floats(bytes, nnodes * nspace);
    out->field = host_cells(nnodes, nspace, out->coords.data());
    const int nsets = bytes.ConsumeIntegralInRange(0, 3);
    for (int s = 0; out->field != nullptr && s < nsets; ++s) {
        const int kind = bytes.ConsumeIntegralInRange<int>(CELL_LINE, CELL_HEX);
        const int order = bytes.ConsumeIntegralInRange(1, 2);
        const qx_long ncells = nnodes == 0 ? 0 : bytes.ConsumeIntegralInRange<qx_long>(0, 9);
        const int row = order == 1 ? cell_kinds[kind].ncorners : cell_kinds[kind].nnodes_2;
        std::vector<qx_long> connect(static_cast<size_t>(ncells * row));
        for (qx_long &node : connect)
            node = bytes.ConsumeIntegralInRange<qx_long>(0, nnodes - 1);
        out->connect.push_back(connect);
        host_add_cells(out->field, kind, order, ncells, out->connect.back().data());
    }
}

inline void make_mesh(FuzzedDataProvider &bytes, any_mesh *out)
{
    const int kind = bytes.ConsumeIntegralInRange(0, 3);
    if (kind == 3)
        make_cell_sets(bytes, out);
    else
        make_structured(bytes, kind, out);
    if (out->field != nullptr) out->mesh = host_mesh(out->field);
}

// Values of a type, count rows of veclen, and a null value among or beside them.
struct any_data {
    int type = 0, veclen = 1, null_flag = 0;
    std::vector<unsigned char> values;
    unsigned char null_value[8] = {};
    double level = 0;
};

template <typename T> void draw_values(FuzzedDataProvider &bytes, qx_long count, any_data *out)
{
    std::vector<T> values(static_cast<size_t>(count));
    for (T &value : values) {
        if (std::numeric_limits<T>::is_integer)
            value = bytes.ConsumeBool() ? static_cast<T>(bytes.ConsumeIntegralInRange(0, 5))
                                        : static_cast<T>(bytes.ConsumeIntegral<int64_t>());
        else
            value = static_cast<T>(any_float(bytes));
    }
    const T null = count > 0 && bytes.ConsumeBool() ? values[0] : static_cast<T>(3);
    std::memcpy(out->null_value, &null, sizeof null);
    out->values.resize(values.size() * sizeof(T) + 1); // never empty: NULL data is another case
    if (count > 0) std::memcpy(out->values.data(), values.data(), values.size() * sizeof(T));
}

inline any_data make_data(FuzzedDataProvider &bytes, qx_long nrows, int veclen)
{
    any_data out;
    out.type = bytes.ConsumeIntegralInRange<int>(DTYPE_CHAR, DTYPE_QX_LONG);
    out.veclen = veclen;
    out.null_flag = bytes.ConsumeBool();
    out.level = bytes.ConsumeBool() ? 0.25 * bytes.ConsumeIntegralInRange(-4, 12) : any_float(bytes);
    const qx_long count = nrows * veclen;
    switch (out.type) {
    case DTYPE_CHAR: draw_values<signed char>(bytes, count, &out); break;
    case DTYPE_BYTE: draw_values<unsigned char>(bytes, count, &out); break;
    case DTYPE_SHORT: draw_values<short>(bytes, count, &out); break;
    case DTYPE_INT: draw_values<int>(bytes, count, &out); break;
    case DTYPE_FLOAT: draw_values<float>(bytes, count, &out); break;
    case DTYPE_DOUBLE: draw_values<double>(bytes, count, &out); break;
    default: draw_values<qx_long>(bytes, count, &out);
    }
    return out;
}

// Stops the operation at the k-th status check where the bytes say so.
struct any_interruption {
    int left;
    static int on_progress(void *user, int, const char *)
    {
        auto *self = static_cast<any_interruption *>(user);
        return self->left-- == 0;
    }
    bool armed() const { return left >= 0; } // not once it has struck
    explicit any_interruption(FuzzedDataProvider &bytes)
        : left(bytes.ConsumeIntegralInRange(0, 3) == 0 ? bytes.ConsumeIntegralInRange(0, 6) : -1)
    {
        host_set_progress_handler(on_progress, this);
    }
    any_interruption(const any_interruption &) = delete;
    any_interruption &operator=(const any_interruption &) = delete;
    ~any_interruption() { host_set_progress_handler(nullptr, nullptr); }
};

// Ends the run with a message, which the fuzzer keeps the input for.
inline void insist(bool holds, const char *what)
{
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

// Reports are part of what is tried, and not worth a line each.
inline void hush()
{
    host_set_error_handler([](void *, const char *, int, const char *) {}, nullptr);
}

} // namespace fuzz
