#include "line_tracer.hpp"

#include <skoklana.h>

#include <algorithm>
#include <cmath>
#include <limits>

static constexpr int steps_a_cell = 4;

namespace {

// Notes the places that are looked for in the mesh and not found, while it stands.
class missed_places {
  public:
    // to: null for none.
    missed_places(mesh_info *mesh_, handed_over *to) : mesh(mesh_), usual(mesh->methods)
    {
        if (to == nullptr) return;
        to->nbeyond = 0;
        noted = to;
        look = usual->find_cell_func;
        watched = *usual;
        watched.find_cell_func = find_cell;
        mesh->methods = &watched;
    }
    ~missed_places()
    {
        mesh->methods = usual;
        noted = nullptr;
    }
    missed_places(const missed_places &) = delete;
    missed_places &operator=(const missed_places &) = delete;

  private:
    static int find_cell(mesh_info *in, const blk_tbl *table, const float *point, qx_long *cell, float *uvw)
    {
        const int found = look(in, table, point, cell, uvw);
        if (found != 1 && noted->nbeyond < most_places_beyond)
            std::copy_n(point, 3, noted->beyond[noted->nbeyond++]);
        return found;
    }

    static thread_local decltype(mesh_methods::find_cell_func) look;
    static thread_local handed_over *noted;
    mesh_info *const mesh;
    mesh_methods *const usual;
    mesh_methods watched;
};

thread_local decltype(mesh_methods::find_cell_func) missed_places::look;
thread_local handed_over *missed_places::noted;

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
    if (options.both) {
        line.began = trace_one_way(seed, -1, {}, &line.nodes, &nowhere);
        std::reverse(line.nodes.begin(), line.nodes.end());
        if (!line.nodes.empty()) line.nodes.pop_back(); // the seed, which the other way begins with
    }
    line.ended = trace_one_way(seed, 1, {}, &line.nodes, &nowhere);
    line.in_cell = !line.nodes.empty() || is_in_cell(seed);
    return line;
}

bool line_tracer::is_in_cell(const float *point)
{
    return cell_of(point) >= 0;
}

qx_long line_tracer::cell_of(const float *point)
{
    line_node node;
    return locate(point, &node) ? node.cell : -1;
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

line_end line_tracer::trace_one_way(const float *from, int direction, const line_progress &so_far,
                                    std::vector<line_node> *nodes, handed_over *over)
{
    const size_t before = nodes->size();
    const line_end ended = follow(from, direction, so_far, nodes, over);
    if (options.ribbon_width == 0) return ended;
    for (size_t i = before; i < nodes->size(); ++i)
        take_curl(&(*nodes)[i]);
    if (ended == line_end::goes_on) take_curl(over->at_rim ? &over->rim : &over->node);
    return ended;
}

line_end line_tracer::follow(const float *from, int direction, const line_progress &so_far,
                             std::vector<line_node> *nodes, handed_over *over)
{
    int count = 0;
    float work[3];
    const int most = static_cast<int>(room) - so_far.steps;
    const int done = UTILstream_line(mesh, table.get(), data(), type(), veclen(), vectors.null_flag,
                                     vectors.null_value(), options.order, direction, steps_a_cell,
                                     options.min_speed, from, most, &count, points.data(), rows.data(), 1,
                                     cells.data(), uvws.data(), speeds.data(), steps.data(), work);
    if (done != 1 || count == 0) return line_end::left_mesh;
    double time = so_far.time, length = so_far.length;
    int first_in_cell = 0; // of the nodes; and how long the line was there
    double length_there = length;
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
        if (i > 0 && node.cell != cells[row - 1]) {
            first_in_cell = i;
            length_there = length;
        }
        if (i + 1 == most) return line_end::max_steps;
        if (i > 0 && first_in_cell == i && is_copy && is_copy(node.cell)) {
            over->node = nodes->back();
            over->so_far = {so_far.steps + i, over->node.time, length};
            over->at_rim = false;
            nodes->pop_back();
            return line_end::goes_on;
        }
        double h = steps[row];
        float end[3] = {0, 0, 0};
        const missed_places watch(mesh, is_copy && i + 1 == count ? over : nullptr);
        const int result = repeat_step(node, direction, &h, end);
        time += h;
        if (i + 1 < count) continue;
        const line_end ended = why(result, end);
        line_node rim;
        const bool has_rim = ended == line_end::left_mesh || ended == line_end::no_value;
        if (!has_rim || !find_rim(node, h, &rim)) return ended;
        if (!add(rim, &length, nodes)) return line_end::max_length;
        if (ended != line_end::left_mesh || !is_copy) return ended;
        over->rim = nodes->back();
        over->at_the_rim = {so_far.steps + i + 1, rim.time, length};
        nodes->pop_back();
        over->at_rim = true;
        over->redo = i + 1 - first_in_cell;
        over->node = (*nodes)[nodes->size() - static_cast<size_t>(over->redo)];
        over->so_far = {so_far.steps + first_in_cell, over->node.time, length_there};
        return line_end::goes_on;
    }
    return line_end::left_mesh;
}
