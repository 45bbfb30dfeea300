// Vectors split into the part along a direction and the part across it, in single precision throughout.
#include <skoklana/array.h>

#include "dtype.hpp"
#include "report.hpp"

#include <algorithm>

namespace {

enum projection { axial = 0, tangential = 1 };

} // namespace

// ncomp: components of a vector that take part; further ones of a row are passed over.
template <int ncomp, int mode, typename T>
static void project_rows(qx_long count, qx_long veclen, const T *in, const float *dir, float *out)
{
    for (qx_long i = 0; i < count; ++i, in += veclen, out += veclen) {
        float v[3] = {0, 0, 0};
        for (int c = 0; c < ncomp; ++c)
            v[c] = static_cast<float>(in[c]);
        const float dot = v[0] * dir[0] + v[1] * dir[1] + v[2] * dir[2];
        for (int c = 0; c < ncomp; ++c)
            out[c] = mode == axial ? dot * dir[c] : v[c] - dot * dir[c];
    }
}

template <int mode, typename T>
static void project(qx_long count, int veclen, const T *in, const float *dir, float *out)
{
    const float d[3] = {dir[0], dir[1], dir[2]};
    switch (std::min(veclen, 3)) {
    case 1: return project_rows<1, mode>(count, veclen, in, d, out);
    case 2: return project_rows<2, mode>(count, veclen, in, d, out);
    default: return project_rows<3, mode>(count, veclen, in, d, out);
    }
}

int UTILproj_vec(qx_long count, int veclen, int dtype, const void *in, int mode, const float *dir, float *out)
{
    const auto unknown_type = [] {
        report_error("UTILproj_vec", "Illegal data type.");
        return 0;
    };
    return with_dtype_or(dtype, unknown_type, [&](auto type) -> int {
        using T = typename decltype(type)::type;
        if (count < 1 || veclen < 1) return 1; // also with a wrong mode
        if (mode == axial) {
            project<axial>(count, veclen, static_cast<const T *>(in), dir, out);
        } else if (mode == tangential) {
            project<tangential>(count, veclen, static_cast<const T *>(in), dir, out);
        } else {
            report_error("UTILproj_vec", "Illegal mode. 0:Axial, 1:Tangential.");
            return 0;
        }
        return 1;
    });
}
