#include "line_tracer.hpp"

#include <skoklana.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

static constexpr int steps_a_cell = 4;

namespace {

// A mesh that goes on beyond its cells as far as is known, while it stands: each place there is a cell of its own. Notes
// the places that are looked for and not known. A place just outside of a copy may be in a cell beyond, and is of these.
// One a thread at a time.
class mesh_beyond {
  public:
    mesh_beyond(const line_tracer &tracer_, mesh_info *mesh_, const std::vector<known_place> &known_,
                std::vector<position> *unknown_)
        : tracer(tracer_), mesh(mesh_), usual(mesh->methods), methods(*usual), known(known_),
          unknown(unknown_), first_cell(std::max(mesh->nnodes, mesh->ncells))
    {
        methods.find_cell_func = find_cell;
        methods.interp_data_func = interpolate;
        methods.cell_extent_func = extent_of_cell;
        mesh->methods = &methods;
        standing = this;
    }
    ~mesh_beyond()
    {
        mesh->methods = usual;
        standing = nullptr;
    }
    mesh_beyond(const mesh_beyond &) = delete;
    mesh_beyond &operator=(const mesh_beyond &) = delete;

    // Null: the cell is the mesh's own.
    static const field_at *field_of(qx_long cell)
    {
        if (standing == nullptr || cell < standing->first_cell) return nullptr;
        return &standing->known[static_cast<size_t>(cell - standing->first_cell)].field;
    }

  private:
    static int find_cell(mesh_info *in, const blk_tbl *table, const float *point, qx_long *cell, float *uvw)
    {
        const int found = standing->usual->find_cell_func(in, table, point, cell, uvw);
        const line_tracer &in_piece = standing->tracer;
        if (found == 1 && (!in_piece.is_within || !in_piece.is_copy || !in_piece.is_copy(*cell) ||
                           in_piece.is_within(point)))
            return 1;
        const position at = {point[0], point[1], point[2]};
        const auto is_there = [&](const known_place &one) { return one.at == at; };
        const auto &known = standing->known;
        const auto one = std::find_if(known.begin(), known.end(), is_there);
        if (one == known.end()) {
            auto &unknown = *standing->unknown;
            if (std::find(unknown.begin(), unknown.end(), at) == unknown.end()) unknown.push_back(at);
            return found;
        }
        // of cells that it is beside of, the piece's own counts
        if (one->field.what == field_at::nothing || (found == 1 && one->apart > 0)) return found;
        *cell = standing->first_cell + (one - known.begin());
        std::fill_n(uvw, 3, 0.0f);
        return 1;
    }

    static int interpolate(mesh_info *in, qx_long cell, int veclen, const void *data, int data_type,
                           int null_flag, const void *null_value, int npts, const float *uvw, float *out)
    {
        const field_at *field = field_of(cell);
        if (field == nullptr)
            return standing->usual->interp_data_func(in, cell, veclen, data, data_type, null_flag, null_value,
                                                     npts, uvw, out);
        for (int i = 0; i < npts; ++i)
            std::copy_n(field->vector, veclen, out + i * veclen);
        return field->what == field_at::a_vector ? 1 : 0;
    }

    // The size of a step that nobody takes from there.
    static int extent_of_cell(mesh_info *in, qx_long cell, float *min, float *max)
    {
        if (field_of(cell) == nullptr) return standing->usual->cell_extent_func(in, cell, min, max);
        std::fill_n(min, in->nspace, 0.0f);
        std::fill_n(max, in->nspace, 1.0f);
        return 1;
    }

    static thread_local mesh_beyond *standing;
    const line_tracer &tracer;
    mesh_info *const mesh;
    mesh_methods *const usual;
    mesh_methods methods;
    const std::vector<known_place> &known;
    std::vector<position> *const unknown;
    const qx_long first_cell;
};

thread_local mesh_beyond *mesh_beyond::standing;

} // namespace

static double distance(const float *a, const float *b)
{
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

line_tracer::line_tracer(const input_mesh &mesh_, const scalar_array &vectors_, const line_options &options_)
    : cell_ndim(mesh_.cell_ndim()), mesh(mesh_.mesh), vectors(vectors_), options(options_),
      room(static_cast<size_t>(options.max_steps) + 1), points(3 * room),
      rows(static_cast<size_t>(vectors.array.veclen) * room), uvws(3 * room), speeds(room), steps(room),
      cells(room)
{
}

bool line_tracer::open_by_library()
{
    blk_tbl *made = nullptr;
    if (mesh->methods->interp_init_func(mesh, &made) != 1) return false;
    table.reset(made);
    return true;
}

bool line_tracer::open_exactly(const host_locator *locator)
{
    exact.reset(host_exact_mesh(locator));
    mesh = exact.get();
    return mesh != nullptr;
}

traced_line line_tracer::trace(const float *seed)
{
    traced_line line;
    handed_over nowhere;
    const position from = {seed[0], seed[1], seed[2]};
    if (options.both) {
        line.began = trace_one_way(from, -1, {}, {}, &line.nodes, &nowhere);
        std::reverse(line.nodes.begin(), line.nodes.end());
        if (!line.nodes.empty()) line.nodes.pop_back(); // the seed, which the other way begins with
    }
    line.ended = trace_one_way(from, 1, {}, {}, &line.nodes, &nowhere);
    line.in_cell = !line.nodes.empty() || is_in_cell(from);
    return line;
}

bool line_tracer::is_in_cell(const position &at)
{
    line_node node;
    return locate(at.data(), &node);
}

field_at line_tracer::look_at(const position &at, found_place *found)
{
    field_at field;
    line_node node;
    if (!locate(at.data(), &node)) return field;
    *found = {node.cell, !is_within || is_within(node.at) ? 0 : apart(node)};
    field.what = sample(&node) ? field_at::a_vector : field_at::no_value;
    if (options.ribbon_width > 0) take_curl(&node);
    std::copy_n(node.vector, 3, field.vector);
    std::copy_n(node.curl, 3, field.curl);
    return field;
}

// Parameters are those of the nearest place in the cell.
float line_tracer::apart(const line_node &node) const
{
    float there[3] = {0, 0, 0}, high[3];
    if (mesh->coords != nullptr)
        mesh->methods->interp_data_func(mesh, node.cell, mesh->nspace, mesh->coords, DTYPE_FLOAT, 0, nullptr,
                                        1, node.uvw, there);
    else if (mesh->methods->cell_extent_func(mesh, node.cell, there, high) == 1)
        for (int d = 0; d < 3; ++d)
            there[d] = std::min(std::max(node.at[d], there[d]), high[d]);
    return std::max(static_cast<float>(distance(node.at, there)), std::numeric_limits<float>::min());
}

bool line_tracer::is_elsewhere(qx_long cell)
{
    return mesh_beyond::field_of(cell) != nullptr || (is_copy && is_copy(cell));
}

bool line_tracer::locate(const float *point, line_node *node)
{
    std::copy_n(point, 3, node->at);
    return mesh->methods->find_cell_func(mesh, table.get(), point, &node->cell, node->uvw) == 1;
}

bool line_tracer::sample(line_node *node)
{
    std::fill_n(node->vector, 3, 0.0f);
    if (mesh->methods->interp_data_func(mesh, node->cell, veclen(), data(), type(), vectors.null_flag,
                                        vectors.null_value(), 1, node->uvw, node->vector) != 1)
        return false;
    node->speed = std::hypot(node->vector[0], node->vector[1], node->vector[2]);
    return true;
}

// A field in a surface turns about its normal, and so never about a line in it; the library's derivatives are no use for
// vectors on surfaces.
void line_tracer::take_curl(line_node *node)
{
    if (const field_at *known = mesh_beyond::field_of(node->cell)) {
        std::copy_n(known->curl, 3, node->curl);
        return;
    }
    std::fill_n(node->curl, 3, cell_ndim == 2 ? 0.0f : std::numeric_limits<float>::quiet_NaN());
    float slopes[9]; // of each component along each axis
    if (cell_ndim < 3 || UTILderiv_3d(mesh, node->cell, veclen(), data(), type(), vectors.null_flag,
                                      vectors.null_value(), node->uvw, slopes) != 1)
        return;
    const auto slope = [&](int axis, int component) {
        return component < veclen() ? slopes[axis * veclen() + component] : 0;
    };
    node->curl[0] = slope(1, 2) - slope(2, 1);
    node->curl[1] = slope(2, 0) - slope(0, 2);
    node->curl[2] = slope(0, 1) - slope(1, 0);
}

float line_tracer::cell_size(qx_long cell)
{
    float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    mesh->methods->cell_extent_func(mesh, cell, lo, hi);
    float size = hi[0] - lo[0] == 0 ? 1e10f : hi[0] - lo[0];
    for (int d = 1; d < mesh->nspace; ++d)
        if (hi[d] - lo[d] != 0) size = std::min(size, hi[d] - lo[d]);
    return size;
}

// Takes a step as the library took it: from what was chosen, shortened as often as it is too fast.
int line_tracer::repeat_step(const line_node &node, int direction, double *h, float *end)
{
    float blended[3], limit = node.speed, over = node.speed;
    int result = -1;
    for (int attempt = 0; attempt < 100; ++attempt) {
        result = UTILintegrate(mesh, table.get(), node.cell, data(), type(), veclen(), vectors.null_flag,
                               vectors.null_value(), *h, options.order, node.at, end, node.vector, blended,
                               limit, &over);
        if (result != -1) break;
        limit = over;
        *h = direction * 0.7 * cell_size(node.cell) / (static_cast<double>(steps_a_cell) * over);
    }
    return result;
}

// Why no node follows the last one, from whose step this is.
line_end line_tracer::why(int result, const float *end)
{
    if (result == -1) return line_end::too_fast;
    line_node node;
    if (!locate(end, &node)) return line_end::left_mesh;
    if (result == 0 || !sample(&node)) return line_end::no_value;
    return node.speed < options.min_speed || node.speed == 0 ? line_end::slow : line_end::left_mesh;
}

// A step goes out of the mesh, or to where there is no value: the end of as much of it as does not, found by
// halving; false: none of it.
bool line_tracer::find_rim(const line_node &from, double h, line_node *rim)
{
    bool found = false;
    double inside = 0, outside = 1;
    for (int i = 0; i < 16; ++i) {
        const double middle = (inside + outside) / 2;
        float end[3] = {0, 0, 0}, blended[3], over;
        line_node node;
        if (UTILintegrate(mesh, table.get(), from.cell, data(), type(), veclen(), vectors.null_flag,
                          vectors.null_value(), middle * h, options.order, from.at, end, from.vector, blended,
                          std::numeric_limits<float>::max(), &over) == 1 &&
            locate(end, &node) && sample(&node) && node.speed > 0) {
            *rim = node;
            rim->time = from.time + middle * h;
            found = true;
            inside = middle;
        } else {
            outside = middle;
        }
    }
    return found;
}

// Ends the line between a and the node that follows it.
line_node line_tracer::between(const line_node &a, const line_node &b, double t)
{
    line_node node;
    float at[3];
    for (int d = 0; d < 3; ++d)
        at[d] = static_cast<float>(a.at[d] + t * (static_cast<double>(b.at[d]) - a.at[d]));
    if (!locate(at, &node) || !sample(&node)) {
        node = a;
        std::copy_n(at, 3, node.at);
    }
    node.time = a.time + t * (b.time - a.time);
    return node;
}

// Adds a node that follows the last one, or the place on the way there at which the line has its length; false
// for the latter.
bool line_tracer::add(const line_node &node, double *length, std::vector<line_node> *nodes)
{
    const line_node last = nodes->back();
    const double step = distance(last.at, node.at), rest = options.max_length - *length;
    const bool goes_on = options.max_length == 0 || step < rest;
    nodes->push_back(goes_on ? node : between(last, node, step > 0 ? rest / step : 0));
    *length += step;
    return goes_on;
}

line_end line_tracer::trace_one_way(const position &from, int direction, const line_progress &so_far,
                                    const std::vector<known_place> &known, std::vector<line_node> *nodes,
                                    handed_over *over)
{
    over->unknown.clear();
    std::optional<mesh_beyond> beyond;
    // the library's own search is faster as it is
    if (!known.empty() || is_within) beyond.emplace(*this, mesh, known, &over->unknown);
    const size_t before = nodes->size();
    const int most = static_cast<int>(room) - so_far.steps;
    int count = 0;
    float work[3];
    const int done = UTILstream_line(mesh, table.get(), data(), type(), veclen(), vectors.null_flag,
                                     vectors.null_value(), options.order, direction, steps_a_cell,
                                     options.min_speed, from.data(), most, &count, points.data(), rows.data(),
                                     1, cells.data(), uvws.data(), speeds.data(), steps.data(), work);
    if (done != 1) return line_end::left_mesh;
    if (in_pieces && !beyond) beyond.emplace(*this, mesh, known, &over->unknown);
    const line_end ended = follow(count, most, direction, so_far, nodes, over);
    for (size_t i = before; i < nodes->size() && options.ribbon_width > 0; ++i)
        take_curl(&(*nodes)[i]);
    return ended;
}

// The line that was traced, with times, as far as it counts; and what lies behind its last node.
line_end line_tracer::follow(int count, int most, int direction, const line_progress &so_far,
                             std::vector<line_node> *nodes, handed_over *over)
{
    double time = so_far.time, length = so_far.length;
    for (int i = 0; i < count; ++i) {
        line_node node;
        const auto row = static_cast<size_t>(i);
        std::copy_n(&points[3 * row], 3, node.at);
        std::fill_n(node.vector, 3, 0.0f);
        std::copy_n(&rows[static_cast<size_t>(veclen()) * row], veclen(), node.vector);
        std::copy_n(&uvws[3 * row], 3, node.uvw);
        node.cell = cells[row];
        node.speed = speeds[row];
        node.time = time;
        if (i == 0)
            nodes->push_back(node);
        else if (!add(node, &length, nodes))
            return line_end::max_length;
        const bool is_first = i == 0 || node.cell != cells[row - 1];
        if (is_first) {
            std::copy_n(node.at, 3, over->at.begin());
            over->so_far = {so_far.steps + i, time, length};
            over->node = nodes->size() - 1;
        }
        if (i + 1 == most) return line_end::max_steps;
        if (i > 0 && is_first && is_elsewhere(node.cell)) {
            nodes->pop_back();
            return line_end::goes_on;
        }
        double h = steps[row];
        float end[3] = {0, 0, 0};
        const int result = repeat_step(node, direction, &h, end);
        time += h;
        if (i + 1 < count) continue;
        const line_end ended = why(result, end);
        line_node rim;
        const bool has_rim = ended == line_end::left_mesh || ended == line_end::no_value;
        if (!has_rim || !find_rim(node, h, &rim)) return ended;
        return add(rim, &length, nodes) ? ended : line_end::max_length;
    }
    return line_end::left_mesh;
}
