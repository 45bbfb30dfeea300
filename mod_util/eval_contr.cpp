// Data of the new nodes of a contour band.
//
// A new node stands where the contoured variable takes its level, on an edge between two mesh nodes, or
// between a mesh node and a new node of the first cut, which has an edge of its own. The type of the
// contoured variable decides where on the edge, the type of the carried data how rows are mixed. So the work
// is in two passes over a short block of new nodes: one, typed by the first, writes down for each new node
// whose rows it takes and in which parts; the other, typed by the second, mixes them. Seven passes of each
// kind serve all pairs of types.
//
// Formulas stand as they are rounded, all in double: a point of the first cut multiplies before it divides.
#include <skoklana/cut.h>

#include "dtype.hpp"
#include "rows.hpp"

#include <algorithm>

namespace {

enum class mix_kind {
    none,      // left as it is
    copied,    // row a
    between,   // from row a to row b
    to_point,  // from row a to the point
    from_point // from the point to row b
};

// A place between two rows: row a plus the difference times part over whole; no whole: row a itself.
struct mix_point {
    qx_long a, b;
    double part, whole;
};

struct mix {
    mix_kind kind;
    qx_long a, b;
    double t;
    mix_point point;
};

constexpr qx_long mix_block = 64;

// The new nodes and the levels they are at.
struct band_nodes {
    qx_long nnodes;
    const qx_long *edge_a, *edge_b;
    const unsigned char *level_sel;
    double level[2];

    double level_of(qx_long entry) const { return level[level_sel[entry] != 0]; }
};

// What all blocks have in common.
struct mix_request {
    int veclen;
    int null_flag;
    const void *null_value;
    qx_long data_offset;
    const void *data;
    void *out;
};

} // namespace

template <typename T> static mix_point point_of(const band_nodes &nodes, const T *contour, qx_long new_node)
{
    const qx_long entry = new_node - nodes.nnodes, a = nodes.edge_a[entry], b = nodes.edge_b[entry];
    const double from = static_cast<double>(contour[a]), to = static_cast<double>(contour[b]);
    return {a, b, nodes.level_of(entry) - from, from == to ? 0 : to - from};
}

template <typename T>
static void plan_mixes(const band_nodes &nodes, const void *contour_data, qx_long first, qx_long count,
                       mix *out)
{
    const T *contour = static_cast<const T *>(contour_data);
    for (qx_long i = 0; i < count; ++i) {
        const qx_long entry = first + i, a = nodes.edge_a[entry], b = nodes.edge_b[entry];
        const double level = nodes.level_of(entry);
        if (a < 0 || b < 0) {
            out[i].kind = mix_kind::none;
        } else if (a >= nodes.nnodes) {
            const double to = static_cast<double>(contour[b]), at = nodes.level_of(a - nodes.nnodes);
            const double whole = to - at;
            out[i] = {mix_kind::from_point, 0, b, whole == 0 ? 0 : (level - at) / whole,
                      point_of(nodes, contour, a)};
        } else if (b >= nodes.nnodes) {
            const double from = static_cast<double>(contour[a]),
                         whole = nodes.level_of(b - nodes.nnodes) - from;
            out[i] = {mix_kind::to_point, a, 0, whole == 0 ? 0 : (level - from) / whole,
                      point_of(nodes, contour, b)};
        } else {
            const double from = static_cast<double>(contour[a]), to = static_cast<double>(contour[b]);
            out[i] = {
                from == to ? mix_kind::copied : mix_kind::between, a, b, (level - from) / (to - from), {}};
        }
    }
}

// A component of a point; null where either of its rows has a null.
template <typename T, bool nulls>
static double mixed_point(const mix_point &point, T from, T to, T null_value)
{
    if (point.whole == 0) return static_cast<double>(from);
    if (nulls && (from == null_value || to == null_value)) return static_cast<double>(null_value);
    return static_cast<double>(from) +
           (static_cast<double>(to) - static_cast<double>(from)) * point.part / point.whole;
}

template <typename T, bool nulls, int constant>
static void mix_rows(const mix *mixes, qx_long count, int veclen_, const T *data, T null_value, T *out)
{
    const int veclen = constant != 0 ? constant : veclen_;
    const auto row_of = [=](qx_long node) { return data + node * veclen; };
    for (qx_long i = 0; i < count; ++i) {
        const mix &m = mixes[i];
        T *row = out + i * veclen;
        switch (m.kind) {
        case mix_kind::none: break;
        case mix_kind::copied: std::copy_n(row_of(m.a), veclen, row); break;
        case mix_kind::between: {
            const T *a = row_of(m.a), *b = row_of(m.b);
            for (int k = 0; k < veclen; ++k) {
                const double from = static_cast<double>(a[k]);
                row[k] = nulls && (a[k] == null_value || b[k] == null_value)
                             ? null_value
                             : truncate_to<T>(from + (static_cast<double>(b[k]) - from) * m.t);
            }
            break;
        }
        case mix_kind::to_point:
        case mix_kind::from_point: {
            const bool leads_to = m.kind == mix_kind::to_point;
            const T *near = row_of(leads_to ? m.a : m.b), *a = row_of(m.point.a), *b = row_of(m.point.b);
            for (int k = 0; k < veclen; ++k) {
                const double end = static_cast<double>(near[k]);
                const double point = mixed_point<T, nulls>(m.point, a[k], b[k], null_value);
                row[k] =
                    nulls && near[k] == null_value
                        ? null_value
                        : truncate_to<T>(leads_to ? end + (point - end) * m.t : point + (end - point) * m.t);
            }
            break;
        }
        }
    }
}

// Rows first to first + count - 1 of the output.
template <typename T>
static void mix_block_of(const mix_request &request, const mix *mixes, qx_long first, qx_long count)
{
    const T *data = static_cast<const T *>(request.data) - request.data_offset;
    const T null_value = null_value_of<T>(request.null_flag, request.null_value);
    T *out = static_cast<T *>(request.out) + first * request.veclen;
    for (qx_long i = 0; i < count; ++i)
        if (mixes[i].kind != mix_kind::none) {
            const size_t row_bytes = sizeof(T) * static_cast<size_t>(request.veclen);
            ask_for_row(data, row_bytes, mixes[i].a);
            ask_for_row(data, row_bytes, mixes[i].b);
        }
    with_constant<int, 1, 3>(request.veclen, [&](auto constant) {
        if (request.null_flag != 0)
            mix_rows<T, true, constant()>(mixes, count, request.veclen, data, null_value, out);
        else
            mix_rows<T, false, constant()>(mixes, count, request.veclen, data, null_value, out);
    });
}

// The contoured variable itself: its value at a new node is the level.
template <typename T>
static void write_levels(const band_nodes &nodes, qx_long first, qx_long count, void *out)
{
    const T level[2] = {truncate_to<T>(nodes.level[0]), truncate_to<T>(nodes.level[1])};
    for (qx_long i = 0; i < count; ++i)
        static_cast<T *>(out)[i] = level[nodes.level_sel[first + i] != 0];
}

int UTILeval_contour(qx_long nnodes, qx_long n_new, qx_long first, int contour_type, const void *contour_data,
                     double level_lo, double level_hi, const qx_long *edge_a, const qx_long *edge_b,
                     const unsigned char *level_sel, int veclen, int data_type, int null_flag,
                     const void *null_value, qx_long data_offset, const void *data, void *out)
{
    using plan_func = void (*)(const band_nodes &, const void *, qx_long, qx_long, mix *);
    using mix_func = void (*)(const mix_request &, const mix *, qx_long, qx_long);
    using level_func = void (*)(const band_nodes &, qx_long, qx_long, void *);
    struct carrier {
        mix_func mix = nullptr;
        level_func levels = nullptr;
    };
    constexpr const char *name = "UTILeval_contour";
    const plan_func plan = with_dtype(
        contour_type, name, [](auto c) -> plan_func { return plan_mixes<typename decltype(c)::type>; });
    if (plan == nullptr) return 0;
    const carrier carry = with_dtype(data_type, name, [](auto d) -> carrier {
        using T = typename decltype(d)::type;
        return {mix_block_of<T>, write_levels<T>};
    });
    if (carry.mix == nullptr) return 0;

    const band_nodes nodes = {nnodes, edge_a, edge_b, level_sel, {level_lo, level_hi}};
    if (contour_data == data) {
        carry.levels(nodes, first, n_new, out);
        return 1;
    }
    const mix_request request = {veclen, null_flag, null_value, data_offset, data, out};
    mix mixes[mix_block];
    for (qx_long done = 0; done < n_new; done += mix_block) {
        const qx_long count = std::min(mix_block, n_new - done);
        plan(nodes, contour_data, first + done, count, mixes);
        carry.mix(request, mixes, done, count);
    }
    return 1;
}
