// Glyphs once more, slowly: each output row by itself, from a request whose types are known only by their codes.
#pragma once

#include <skoklana.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace glyph_reference {

using bytes = std::vector<unsigned char>;

// Where an operation takes sizes and values from.
enum class source { same_array, own_array };

struct request {
    mesh_info *mesh = nullptr;
    std::vector<float> places; // nodes in order, rows of nspace floats
    int type = DTYPE_FLOAT, veclen = 3;
    bytes data;
    int null_flag = 0;
    bytes null_value;
    source scale_from = source::same_array, map_from = source::same_array;
    int scale_veclen = 3, map_veclen = 3;
    bytes scale_data, map_data;
    int orient = 1, by_component = 0, normalize = 0;
    double scale = 1;
    int scale_axes[3] = {1, 1, 1};
    std::vector<float> node_xform, glyph_xform; // empty: none
    int glyph_nspace = 3;
    std::vector<float> glyph_coords;
    int out_nspace = 3;

    qx_long nnodes() const { return mesh->nnodes; }
    qx_long glyph_nnodes() const { return static_cast<qx_long>(glyph_coords.size()) / glyph_nspace; }
    const void *scale_array() const
    {
        return scale_from == source::same_array ? data.data() : scale_data.data();
    }
    const void *map_array() const { return map_from == source::same_array ? data.data() : map_data.data(); }
};

// What is not written keeps 0x5A in every byte.
struct output {
    int result = -9;
    std::vector<float> coords;
    bytes data;

    explicit output(const request &r)
    {
        const size_t rows = static_cast<size_t>(r.nnodes() * r.glyph_nnodes());
        coords.resize(rows * static_cast<size_t>(r.out_nspace));
        if (!coords.empty()) memset(coords.data(), 0x5A, coords.size() * sizeof(float));
        data.assign(rows * static_cast<size_t>(DTYPEtype_size(r.type)), 0x5A);
    }
};

inline output run(const request &r)
{
    output out(r);
    const auto matrix = [](const std::vector<float> &m) { return m.empty() ? nullptr : m.data(); };
    out.result = UTILglyph_func(r.mesh, r.type, r.veclen, r.data.data(), r.null_flag,
                                r.null_flag != 0 ? r.null_value.data() : nullptr, r.scale_veclen,
                                r.map_veclen, r.scale_array(), r.map_array(), r.orient, r.by_component,
                                r.normalize, r.scale, r.scale_axes, matrix(r.node_xform), r.glyph_nnodes(),
                                r.glyph_nspace, r.glyph_coords.data(), matrix(r.glyph_xform), r.out_nspace,
                                out.coords.data(), out.data.data());
    return out;
}

struct vec {
    float at[3] = {0, 0, 0};
};

inline float dot(const vec &a, const vec &b)
{
    const float x = a.at[0] * b.at[0], y = a.at[1] * b.at[1], z = a.at[2] * b.at[2];
    return (x + y) + z;
}

inline float length(const vec &a)
{
    return static_cast<float>(std::sqrt(static_cast<double>(dot(a, a))));
}

inline vec cross(const vec &a, const vec &b)
{
    vec c;
    c.at[0] = a.at[1] * b.at[2] - a.at[2] * b.at[1];
    c.at[1] = a.at[2] * b.at[0] - a.at[0] * b.at[2];
    c.at[2] = a.at[0] * b.at[1] - a.at[1] * b.at[0];
    return c;
}

inline vec over(const vec &a, float by)
{
    vec c;
    for (int d = 0; d < 3; ++d)
        c.at[d] = a.at[d] / by;
    return c;
}

// Which branches the nodes of a run came through.
struct tally {
    int null = 0, collapsed = 0, turned = 0, not_turned = 0, along_z = 0, double_division = 0, unit_x = 0;
};

// Of the first nodes, all for a negative number.
inline output slow(const request &r, tally *seen, qx_long first_nodes = -1)
{
    const float T = 1e-24f;
    const size_t size = static_cast<size_t>(DTYPEtype_size(r.type));
    output out(r);
    const auto element = [&](const void *array, qx_long i) {
        return static_cast<const char *>(array) + i * static_cast<qx_long>(size);
    };
    const auto padded = [&](const void *array, qx_long n, int veclen) {
        vec v;
        for (int c = 0; c < veclen; ++c)
            UTILtype_to_float(r.type, element(array, n * veclen + c), &v.at[c]);
        return v;
    };
    qx_long row = 0;
    const auto put = [&](const vec &place, const void *value) {
        std::copy_n(place.at, r.out_nspace, out.coords.begin() + row * r.out_nspace);
        memcpy(out.data.data() + static_cast<size_t>(row) * size, value, size);
        ++row;
    };
    // A computed value as an element.
    const auto converted = [&](float value, void *to) {
        const int64_t whole =
            r.type == DTYPE_FLOAT || r.type == DTYPE_DOUBLE ? 0 : static_cast<int64_t>(value);
        const double wide = static_cast<double>(value);
        switch (r.type) {
        case DTYPE_FLOAT: memcpy(to, &value, sizeof value); break;
        case DTYPE_DOUBLE: memcpy(to, &wide, sizeof wide); break;
        default: memcpy(to, &whole, size); // the low bytes
        }
    };

    const qx_long end = first_nodes < 0 ? r.nnodes() : first_nodes;
    for (qx_long n = 0; n < end; ++n) {
        vec P;
        std::copy_n(r.places.begin() + n * r.mesh->nspace, r.mesh->nspace, P.at);
        if (!r.node_xform.empty()) MATvec3_mat4_multiply(P.at, r.node_xform.data());

        bool null = r.null_flag != 0;
        for (int c = 0; c < r.veclen && null; ++c) {
            double value, null_number;
            int64_t whole, null_whole;
            if (r.type == DTYPE_QX_LONG) {
                memcpy(&whole, element(r.data.data(), n * r.veclen + c), sizeof whole);
                memcpy(&null_whole, r.null_value.data(), sizeof null_whole);
                null = whole == null_whole;
            } else {
                UTILtype_to_double(r.type, element(r.data.data(), n * r.veclen + c), &value);
                UTILtype_to_double(r.type, r.null_value.data(), &null_number);
                null = value == null_number;
            }
        }
        if (null) {
            ++seen->null;
            for (qx_long g = 0; g < r.glyph_nnodes(); ++g)
                put(P, element(r.map_array(), n * r.map_veclen));
            continue;
        }

        vec V = padded(r.data.data(), n, r.veclen);
        float mag, signed_mag;
        if (r.veclen < 2) {
            mag = std::fabs(V.at[0]);
            signed_mag = V.at[0];
        } else {
            mag = signed_mag = length(V);
        }
        unsigned char value[8];
        if (r.map_from == source::same_array)
            converted(signed_mag, value);
        else if (r.map_veclen == 1 && !(mag < T && r.normalize == 0))
            memcpy(value, element(r.map_array(), n), size);
        else
            converted(length(padded(r.map_array(), n, r.map_veclen)), value);
        if (mag < T && r.normalize == 0) {
            ++seen->collapsed;
            for (qx_long g = 0; g < r.glyph_nnodes(); ++g)
                put(P, value);
            continue;
        }

        float factor[3];
        if (r.by_component == 0) {
            float s;
            if (r.normalize != 0) {
                s = static_cast<float>(r.scale);
            } else if (r.scale_from == source::same_array) {
                s = static_cast<float>(static_cast<double>(signed_mag) * r.scale);
            } else if (r.scale_veclen == 1) {
                s = static_cast<float>(static_cast<double>(padded(r.scale_array(), n, 1).at[0]) * r.scale);
            } else {
                const vec R = padded(r.scale_array(), n, r.scale_veclen);
                s = static_cast<float>(std::sqrt(static_cast<double>(dot(R, R))) * r.scale);
            }
            factor[0] = factor[1] = factor[2] = s;
        } else {
            if (r.normalize != 0) {
                if (mag < T) {
                    V.at[0] = 1;
                    V.at[1] = V.at[2] = 0;
                    ++seen->unit_x;
                } else {
                    V = over(V, mag);
                }
            }
            for (int a = 0; a < 3; ++a)
                factor[a] = static_cast<float>(static_cast<double>(V.at[a]) * r.scale);
        }

        float R[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        const bool turns = r.orient != 0 && r.veclen > 1;
        if (turns && !(mag < T)) {
            const vec u = over(V, mag);
            vec z, y;
            z.at[2] = 1;
            y.at[1] = 1;
            vec w = cross(u, z);
            if (length(w) < T) {
                w = cross(u, y);
                ++seen->along_z;
            }
            w = over(w, length(w));
            const vec t = cross(u, w);
            std::copy_n(u.at, 3, R);
            std::copy_n(w.at, 3, R + 3);
            std::copy_n(t.at, 3, R + 6);
            seen->double_division += r.by_component != 0 && r.normalize != 0;
        }
        ++(turns ? seen->turned : seen->not_turned);
        for (qx_long g = 0; g < r.glyph_nnodes(); ++g) {
            vec G;
            std::copy_n(r.glyph_coords.begin() + g * r.glyph_nspace, r.glyph_nspace, G.at);
            if (!r.glyph_xform.empty()) MATvec3_mat4_multiply(G.at, r.glyph_xform.data());
            if (turns) MATvec_by_mat(G.at, R, G.at, 1, 3, 3);
            for (int a = 0; a < 3; ++a) {
                if (r.scale_axes[a] != 0) G.at[a] = G.at[a] * factor[a];
                G.at[a] = G.at[a] + P.at[a];
            }
            put(G, value);
        }
    }
    out.result = first_nodes < 0 ? 1 : 0;
    return out;
}

// NaN agrees with NaN whatever its bits.
inline bool same(const output &a, const output &b)
{
    if (a.result != b.result || a.data != b.data || a.coords.size() != b.coords.size()) return false;
    for (size_t i = 0; i < a.coords.size(); ++i)
        if (!(std::isnan(a.coords[i]) && std::isnan(b.coords[i])) &&
            memcmp(&a.coords[i], &b.coords[i], sizeof(float)) != 0)
            return false;
    return true;
}

} // namespace glyph_reference
