// Glyphs: a copy of a small template at each node of a mesh, turned and sized by the node's data.
//
// A node's data comes down to a placement: a rotation, a factor an axis and a position, found once a node. Making
// the copies is then a matter of writing them:
//
//     out = (x R[0] + y R[1] + z R[2]) * factor + position
//
// The rows of out stand one after another, so a register of eight floats holds parts of three rows. It is made
// of eight products with x, each with the entry of R[0] for its axis, and so on: with x, y and z of each template
// node written out once for each axis, and the entries of R, factor and position repeated, nothing is shuffled.
// The pattern of axes repeats every 24 floats, which are three registers.
//
//     x of the template   x0 x0 x0 x1 x1 x1 x2 x2   x2 x3 x3 x3 x4 x4 x4 x5   x5 x5 x6 x6 x6 x7 x7 x7
//     R[0]                 a  b  c  a  b  c  a  b    c  a  b  c  a  b  c  a    b  c  a  b  c  a  b  c
//
// Placements are collected and written a batch at a time, so that a template too long to be kept whole in this
// form is prepared piece by piece, each piece for all of a batch.

#include <skoklana/glyph.h>

#include "dtype.hpp"
#include "fetch.hpp"
#include "jacobian.hpp"
#include "lattice.hpp"
#include "memory.hpp"
#include "status.hpp"

#include <algorithm>
#include <cmath>

namespace {

constexpr float smallest_magnitude = 1e-24f; // a vector shorter than this has no direction, and no size

// The arguments of an operation.
struct glyph_request {
    mesh_info *mesh;
    int veclen;
    const void *data;
    int null_flag;
    const void *null_value;
    int scale_veclen, map_veclen;
    const void *scale_data, *map_data;
    bool orient, by_component, normalize;
    double scale;
    const int *scale_axes;
    const float *node_xform;
    qx_long glyph_nnodes;
    int glyph_nspace;
    const float *glyph_coords, *glyph_xform;
    int out_nspace;
    float *out_coords;
    void *out_data;
};

// ---- where the nodes stand: next() gives one after another ----------------------------------------------------

struct explicit_places {
    qx_long nnodes;
    int nspace;
    const float *row;

    explicit explicit_places(const mesh_info *mesh)
        : nnodes(mesh->nnodes), nspace(std::min(mesh->nspace, 3)), row(mesh->coords)
    {
    }

    vec3 next()
    {
        vec3 p = {0, 0, 0, 0};
        for (int d = 0; d < nspace; ++d)
            p[d] = row[d];
        row += nspace;
        return p;
    }
};

template <typename Axes> struct compact_places {
    qx_long nnodes = 1;
    Axes axes;
    qx_long at[3] = {0, 0, 0};

    explicit compact_places(const mesh_info *mesh) : axes(mesh->ndim, mesh->dims, mesh->nspace, mesh->points)
    {
        for (int d = 0; d < axes.ndim; ++d)
            nnodes *= axes.dims[d];
    }

    vec3 next()
    {
        vec3 p = {0, 0, 0, 0};
        for (int d = 0; d < std::min(axes.nspace, 3); ++d)
            p[d] = d < axes.ndim ? axes.coordinate(d, at[d]) : axes.points[d];
        for (int d = 0; d < axes.ndim && ++at[d] == axes.dims[d]; ++d)
            at[d] = 0;
        return p;
    }
};

// ---- copies of the template --------------------------------------------------------------------------------

enum class shaping { to_a_point, sized, turned_and_sized };

// What a node's data comes down to.
struct placement {
    shaping shape;
    vec3 position;
    vec3 factor;
    vec3 rows[3]; // of the rotation
};

constexpr int lane_count = 8;
typedef float lanes8 __attribute__((vector_size(4 * lane_count)));

// The stretch after which the pattern of axes repeats, whatever their number.
constexpr int stretch_lanes = 3, stretch = stretch_lanes * lane_count;
static_assert(stretch % 2 == 0 && stretch % 3 == 0, "a stretch is whole rows of 1, 2 and 3 floats");

// Register Lane of a stretch that repeats the entries of a vector by axis. Through a pointer, like all vectors of
// this width: returned by value they would be passed differently with and without AVX.
template <int Naxes, int Lane> FORCE_INLINE void repeat(const vec3 &v, lanes8 *out)
{
#define ENTRY(k) ((Lane * lane_count + (k)) % Naxes)
    *out = __builtin_shufflevector(v, v, ENTRY(0), ENTRY(1), ENTRY(2), ENTRY(3), ENTRY(4), ENTRY(5), ENTRY(6),
                                   ENTRY(7));
#undef ENTRY
}

// Part of a template, each coordinate written out once an axis. A template that is not turned has its coordinates
// in the place of x alone, each on its axis.
constexpr int piece_nodes = 256;

struct template_piece {
    int nnodes = 0;
    alignas(32) float x[3 * piece_nodes + stretch];
    alignas(32) float y[3 * piece_nodes + stretch];
    alignas(32) float z[3 * piece_nodes + stretch];
};

} // namespace

// The lanes from *from, times an entry a lane.
template <int Naxes, int Lane>
static FORCE_INLINE void multiply_lanes(const float *from, const vec3 &by_axis, lanes8 *out)
{
    lanes8 loaded;
    memcpy(&loaded, from, sizeof loaded);
    repeat<Naxes, Lane>(by_axis, out);
    *out *= loaded;
}

// Register Lane of the stretch that begins at entry m of the copy.
template <shaping shape, int Naxes, int Lane>
static FORCE_INLINE void write_lanes(const template_piece &piece, int m, const placement &at, float *out)
{
    lanes8 position, g, factor, gy, gz;
    repeat<Naxes, Lane>(at.position, &position);
    m += Lane * lane_count;
    if constexpr (shape == shaping::to_a_point) {
        g = position;
    } else if constexpr (shape == shaping::sized) {
        multiply_lanes<Naxes, Lane>(piece.x + m, at.factor, &g);
        g += position;
    } else {
        multiply_lanes<Naxes, Lane>(piece.x + m, at.rows[0], &g);
        multiply_lanes<Naxes, Lane>(piece.y + m, at.rows[1], &gy);
        multiply_lanes<Naxes, Lane>(piece.z + m, at.rows[2], &gz);
        repeat<Naxes, Lane>(at.factor, &factor);
        g = (0 + g + gy + gz) * factor + position; // summed from 0, as the host's product is
    }
    memcpy(out + m, &g, sizeof g);
}

// A copy of a piece. The last stretch reaches back over the one before; of a copy shorter than a stretch the rest
// is left out.
template <shaping shape, int Naxes>
static FORCE_INLINE void write_copy(const template_piece &piece, const placement &node, float *out)
{
    const placement at = node; // a copy that no write to out can change: its registers are made once

    const auto write = [&](int m, float *to) {
        write_lanes<shape, Naxes, 0>(piece, m, at, to);
        write_lanes<shape, Naxes, 1>(piece, m, at, to);
        write_lanes<shape, Naxes, 2>(piece, m, at, to);
    };
    const int n = piece.nnodes * Naxes;
    if (n < stretch) {
        float whole[stretch];
        write(0, whole);
        memcpy(out, whole, static_cast<size_t>(n) * sizeof *out);
        return;
    }
    for (int m = 0; m <= n - stretch; m += stretch)
        write(m, out);
    if (n % stretch != 0) write(n - stretch, out);
}

// Copies of a piece for a batch of nodes, whose rows stand apart floats from each other.
template <int Naxes>
static FORCE_INLINE void write_batch(const template_piece &piece, const placement *at, int count, float *out,
                                     qx_long apart)
{
    for (int k = 0; k < count; ++k, out += apart)
        switch (at[k].shape) {
        case shaping::to_a_point: write_copy<shaping::to_a_point, Naxes>(piece, at[k], out); break;
        case shaping::sized: write_copy<shaping::sized, Naxes>(piece, at[k], out); break;
        case shaping::turned_and_sized:
            write_copy<shaping::turned_and_sized, Naxes>(piece, at[k], out);
            break;
        }
}

#if SKOKLANA_HAVE_AVX2_FORM
template <int Naxes>
TARGET_AVX2 static void write_batch_avx2(const template_piece &piece, const placement *at, int count,
                                         float *out, qx_long apart)
{
    write_batch<Naxes>(piece, at, count, out, apart);
}
#endif

template <int Naxes>
static void write_batch_widest(const template_piece &piece, const placement *at, int count, float *out,
                               qx_long apart)
{
#if SKOKLANA_HAVE_AVX2_FORM
    if (have_avx2()) return write_batch_avx2<Naxes>(piece, at, count, out, apart);
#endif
    write_batch<Naxes>(piece, at, count, out, apart);
}

namespace {

// Takes the placements of nodes one after another and writes the copies.
class glyph_writer {
  public:
    // turns: the placements to come have rotations.
    glyph_writer(const glyph_request &request_, bool turns_)
        : request(request_), turns(turns_), naxes(std::min(request_.out_nspace, 3)), out(request_.out_coords)
    {
        prepare(0);
    }

    void add(const placement &at)
    {
        batch[nbatch++] = at;
        if (nbatch == most_batch) flush();
    }

    void flush()
    {
        const qx_long apart = request.glyph_nnodes * naxes;
        for (qx_long first = 0; first < request.glyph_nnodes; first += piece_nodes) {
            if (request.glyph_nnodes > piece_nodes) prepare(first);
            write_piece(out + first * naxes, apart);
        }
        out += nbatch * apart;
        nbatch = 0;
    }

  private:
    void prepare(qx_long first)
    {
        piece.nnodes = static_cast<int>(std::min<qx_long>(request.glyph_nnodes - first, piece_nodes));
        const float *row = request.glyph_coords + first * request.glyph_nspace;
        for (int g = 0, m = 0; g < piece.nnodes; ++g, row += request.glyph_nspace) {
            float p[3] = {0, 0, 0};
            std::copy_n(row, std::min(request.glyph_nspace, 3), p);
            if (request.glyph_xform != nullptr) MATvec3_mat4_multiply(p, request.glyph_xform);
            for (int a = 0; a < naxes; ++a, ++m) {
                piece.x[m] = turns ? p[0] : p[a];
                piece.y[m] = p[1];
                piece.z[m] = p[2];
            }
        }
        // What a short copy reads and does not keep.
        const int end = piece.nnodes * naxes;
        for (float *coordinate : {piece.x, piece.y, piece.z})
            std::fill_n(coordinate + end, stretch, 0.0f);
    }

    void write_piece(float *to, qx_long apart) const
    {
        if (naxes == 3) write_batch_widest<3>(piece, batch, nbatch, to, apart);
        if (naxes == 2) write_batch_widest<2>(piece, batch, nbatch, to, apart);
        if (naxes == 1) write_batch_widest<1>(piece, batch, nbatch, to, apart);
    }

    static constexpr int most_batch = 64;

    const glyph_request &request;
    bool turns;
    int naxes;
    float *out;
    int nbatch = 0;
    placement batch[most_batch];
    template_piece piece;
};

// ---- data ----------------------------------------------------------------------------------------------------

// The data of one node after another as elements of T.
template <typename T> class glyph_values {
  public:
    explicit glyph_values(const glyph_request &request_)
        : request(request_), data(static_cast<const T *>(request_.data)),
          scale_data(static_cast<const T *>(request_.scale_data)),
          map_data(static_cast<const T *>(request_.map_data)),
          null(null_value_of<T>(request_.null_flag, request_.null_value)),
          out(static_cast<T *>(request_.out_data))
    {
    }

    // A node is null with all of its components.
    bool is_null(qx_long n) const
    {
        if (request.null_flag == 0) return false;
        const T *row = data + n * request.veclen;
        return std::all_of(row, row + request.veclen, [this](T x) { return x == null; });
    }

    vec3 vector(qx_long n) const { return padded(data + n * request.veclen, request.veclen); }
    vec3 scale_vector(qx_long n) const
    {
        return padded(scale_data + n * request.scale_veclen, request.scale_veclen);
    }

    void write_null(qx_long n) { write(map_data[n * request.map_veclen]); }

    // Of a glyph with a size. A scalar comes out as it stands.
    void write_value(qx_long n, float signed_magnitude)
    {
        if (request.map_data != request.data && request.map_veclen == 1)
            write(map_data[n]);
        else
            write_magnitude(n, signed_magnitude);
    }

    // Of a collapsed glyph too, where a scalar comes out as its absolute value.
    void write_magnitude(qx_long n, float signed_magnitude)
    {
        write(to_element(request.map_data == request.data
                             ? signed_magnitude
                             : length(padded(map_data + n * request.map_veclen, request.map_veclen))));
    }

  private:
    static vec3 padded(const T *row, int n)
    {
        vec3 v = {0, 0, 0, 0};
        for (int c = 0; c < std::min(n, 3); ++c)
            v[c] = static_cast<float>(row[c]);
        return v;
    }

    // The narrow integer types take the low bits of 64.
    static T to_element(float value)
    {
        if constexpr (sizeof(T) < sizeof(int))
            return static_cast<T>(truncate_to<qx_long>(value));
        else
            return truncate_to<T>(value);
    }

    void write(T value)
    {
        std::fill_n(out, request.glyph_nnodes, value);
        out += request.glyph_nnodes;
    }

    const glyph_request &request;
    const T *data, *scale_data, *map_data;
    T null, *out;
};

} // namespace

// ---- one node --------------------------------------------------------------------------------------------------

// The template's x axis along v. The second candidate for the normal serves where v is parallel to the z axis.
static void turn_to(const vec3 &v, float magnitude, vec3 *rows)
{
    const vec3 u = v / magnitude;
    vec3 w = cross(u, vec3{0, 0, 1, 0});
    if (length(w) < smallest_magnitude) w = cross(u, vec3{0, 1, 0, 0});
    w /= length(w);
    rows[0] = u;
    rows[1] = w;
    rows[2] = cross(u, w);
}

template <typename T>
static float uniform_size(const glyph_request &r, const glyph_values<T> &values, qx_long n,
                          float signed_magnitude)
{
    if (r.normalize) return static_cast<float>(r.scale);
    if (r.scale_data == r.data) return static_cast<float>(signed_magnitude * r.scale);
    const vec3 row = values.scale_vector(n);
    if (r.scale_veclen == 1) return static_cast<float>(row[0] * r.scale);
    return static_cast<float>(std::sqrt(static_cast<double>(dot(row, row))) * r.scale);
}

// A node's placement and value, its position given.
template <typename T>
static placement place_node(const glyph_request &r, glyph_values<T> *values, qx_long n, const vec3 &position)
{
    placement at = {};
    at.shape = shaping::to_a_point;
    at.position = position;
    if (values->is_null(n)) {
        values->write_null(n);
        return at;
    }
    vec3 v = values->vector(n);
    const float signed_magnitude = r.veclen < 2 ? v[0] : length(v);
    const float magnitude = r.veclen < 2 ? std::fabs(v[0]) : signed_magnitude;
    if (magnitude < smallest_magnitude && !r.normalize) {
        values->write_magnitude(n, signed_magnitude);
        return at;
    }
    values->write_value(n, signed_magnitude);

    float size[3];
    if (r.by_component) {
        // The rotation below divides by the magnitude once more: its first row is then not of unit length, and
        // glyphs scaled by normalized components have always been drawn so.
        if (r.normalize) v = magnitude < smallest_magnitude ? vec3{1, 0, 0, 0} : v / magnitude;
        for (int a = 0; a < 3; ++a)
            size[a] = static_cast<float>(v[a] * r.scale);
    } else {
        std::fill_n(size, 3, uniform_size(r, *values, n, signed_magnitude));
    }
    for (int a = 0; a < 3; ++a)
        at.factor[a] = r.scale_axes[a] != 0 ? size[a] : 1.0f;

    at.shape = shaping::sized;
    if (r.orient && r.veclen > 1) {
        at.shape = shaping::turned_and_sized;
        if (magnitude < smallest_magnitude) {
            at.rows[0] = vec3{1, 0, 0, 0};
            at.rows[1] = vec3{0, 1, 0, 0};
            at.rows[2] = vec3{0, 0, 1, 0};
        } else {
            turn_to(v, magnitude, at.rows);
        }
    }
    return at;
}

// ---- all nodes -------------------------------------------------------------------------------------------------

template <typename T, typename Places> static int place_glyphs(const glyph_request &r, Places places)
{
    const qx_long total = places.nnodes;
    const float percent_a_node = static_cast<float>(100.0 / static_cast<double>(total));
    status_cadence cadence(256);
    const qx_long rows = total * r.glyph_nnodes;
    expect_to_fill(r.out_coords, rows * std::min(r.out_nspace, 3) * static_cast<qx_long>(sizeof(float)));
    expect_to_fill(r.out_data, rows * static_cast<qx_long>(sizeof(T)));
    glyph_writer writer(r, r.orient && r.veclen > 1);
    glyph_values<T> values(r);
    for (qx_long n = 0; n < total; ++n) {
        if (cadence.due()) {
            writer.flush();
            if (interrupted(static_cast<int>(static_cast<float>(n) * percent_a_node))) return 0;
        }
        vec3 position = places.next();
        if (r.node_xform != nullptr) {
            float p[3] = {position[0], position[1], position[2]};
            MATvec3_mat4_multiply(p, r.node_xform);
            position = vec3_at(p);
        }
        writer.add(place_node<T>(r, &values, n, position));
    }
    writer.flush();
    return 1;
}

#define GLYPH_PARAMETERS                                                                                 \
    mesh_info *mesh, int data_type, int veclen, const void *data, int null_flag, const void *null_value, \
        int scale_veclen, int map_veclen, const void *scale_data, const void *map_data, int orient_flag, \
        int component_flag, int normalize_flag, double scale, const int *scale_axes,                     \
        const float *node_xform, qx_long glyph_nnodes, int glyph_nspace, const float *glyph_coords,      \
        const float *glyph_xform, int out_nspace, float *out_coords, void *out_data

#define GLYPH_REQUEST                                                                                  \
    {                                                                                                  \
        mesh, veclen, data, null_flag, null_value, scale_veclen, map_veclen, scale_data, map_data,     \
            orient_flag != 0, component_flag != 0, normalize_flag != 0, scale, scale_axes, node_xform, \
            glyph_nnodes, glyph_nspace, glyph_coords, glyph_xform, out_nspace, out_coords, out_data    \
    }

template <typename Places>
static int place_any_type(const char *operation, int data_type, bool (*fetch)(mesh_info *),
                          const glyph_request &request)
{
    return with_dtype(data_type, operation, [&](auto tag) {
        if (!fetch(request.mesh)) return 0;
        return place_glyphs<typename decltype(tag)::type>(request, Places(request.mesh));
    });
}

int UTILglyph(GLYPH_PARAMETERS)
{
    return place_any_type<explicit_places>("UTILglyph", data_type, fetch_coords, GLYPH_REQUEST);
}

int UTILglyph_unif(GLYPH_PARAMETERS)
{
    return place_any_type<compact_places<uniform_axes>>("UTILglyph_unif", data_type, fetch_points,
                                                        GLYPH_REQUEST);
}

int UTILglyph_rect(GLYPH_PARAMETERS)
{
    return place_any_type<compact_places<rectilinear_axes>>("UTILglyph_rect", data_type, fetch_points,
                                                            GLYPH_REQUEST);
}
