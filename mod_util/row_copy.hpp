// Copies of rows by a list of row numbers. A row goes by its bytes, with the usual sizes as constants: a copy is
// then a move or two in place of a call.
#pragma once

#include <skoklana/types.h>

#include <cstddef>
#include <cstring>

template <size_t row_bytes>
void copy_listed_rows(const char *in, qx_long count, const qx_long *list, char *out)
{
    for (qx_long i = 0; i < count; ++i)
        memcpy(out + i * static_cast<qx_long>(row_bytes), in + list[i] * static_cast<qx_long>(row_bytes),
               row_bytes);
}

inline void copy_listed(qx_long row_bytes, const void *in_rows, qx_long count, const qx_long *list,
                        void *out_rows)
{
    const char *in = static_cast<const char *>(in_rows);
    char *out = static_cast<char *>(out_rows);
    switch (row_bytes) {
    case 1: return copy_listed_rows<1>(in, count, list, out);
    case 2: return copy_listed_rows<2>(in, count, list, out);
    case 3: return copy_listed_rows<3>(in, count, list, out);
    case 4: return copy_listed_rows<4>(in, count, list, out);
    case 6: return copy_listed_rows<6>(in, count, list, out);
    case 8: return copy_listed_rows<8>(in, count, list, out);
    case 12: return copy_listed_rows<12>(in, count, list, out);
    case 16: return copy_listed_rows<16>(in, count, list, out);
    case 24: return copy_listed_rows<24>(in, count, list, out);
    case 32: return copy_listed_rows<32>(in, count, list, out);
    default: break;
    }
    for (qx_long i = 0; i < count; ++i)
        memcpy(out + i * row_bytes, in + list[i] * row_bytes, static_cast<size_t>(row_bytes));
}

// Every stride-th element, side by side. A known stride lets the compiler load whole vectors and shuffle.
template <int stride, typename T> void take_every(qx_long count, const T *in, T *out)
{
    for (qx_long i = 0; i < count; ++i)
        out[i] = in[i * stride];
}

// count may be negative: nothing is copied then.
template <typename T> void copy_every(qx_long stride, qx_long count, const T *in, T *out)
{
    if (count < 1) return;
    switch (stride) {
    case 1: memmove(out, in, static_cast<size_t>(count) * sizeof(T)); break;
    case 2: take_every<2>(count, in, out); break;
    case 3: take_every<3>(count, in, out); break;
    case 4: take_every<4>(count, in, out); break;
    default:
        for (qx_long i = 0; i < count; ++i)
            out[i] = in[i * stride];
    }
}
