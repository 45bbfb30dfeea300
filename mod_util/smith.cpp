// The Smith chart: values chosen in bands, their lines as arcs, arcs as polylines.
//
// The builder holds the point at which the chart has arrived: so many tens of the present scale (the decade), and
// where a power of ten was taken in their middle, the tick in the new scale that is that point (the position). A
// step makes one band: of the runs that know the position it takes the one with the closest gaps that are still wide
// enough, and where there is none it goes to the next power of ten, six times in the whole chart. The gap of two
// circles on the real axis is the difference of (v - 1) / (v + 1) at their values.
//
// A line of resistance r ends where it meets two lines of reactance, and the other way round. All circles go through
// (1, 0): the second point in which those of r and x meet is the first one mirrored in the line through their centres.
//
// Arcs are drawn without trigonometry a point: each step is the one before it turned by the same angle.
#include <skoklana/chart.h>

#include "memory.hpp"

#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

static_assert(sizeof(GraticuleMeshInfo) == 32 && offsetof(GraticuleMeshInfo, nruns) == 24);
static_assert(sizeof(tick_run) == 16);
static_assert(sizeof(graticule_level) == 56 && offsetof(graticule_level, run) == 32);
static_assert(sizeof(graticule_line) == 56 && offsetof(graticule_line, x_radius) == 24);

namespace {

// Points on arcs are counted with this number, which is a little less than pi: a quarter of a circle of an even
// density gets one step more than pi itself would give it.
constexpr double nearly_pi = 3.141592652589793;

constexpr int most_retries = 6;     // powers of ten in a whole chart
constexpr float endless = 1e10f;    // upper value of the last band
constexpr int no_position = -1;     // no tick of the run is behind us
constexpr double most_steps = 1e15; // of an arc: counts stay whole numbers

struct point2 {
    float x, y;
};

struct chart_builder {
    const tick_run *runs, *runs_end;
    double min_spacing;
    int retries;
    float scale;
    qx_long decade;
    int position; // a tick, or no_position
    int decimals;
    int band;
    float last_value; // of the levels so far
    graticule_level **level_end;
};

// The limits of the lines of a level.
struct value_band {
    float low, high;
};

} // namespace

// ---- messages ----------------------------------------------------------------------------------------------

void SCerror(int code, const char *format, ...)
{
    static const char *const texts[] = {"No error", "Out of memory", "Unable to find Quorvex object",
                                        "Unable to get length of array object", "Unable to get cell set"};
    constexpr int ntexts = sizeof texts / sizeof texts[0];
    fprintf(stderr, "Smith Chart module error: %s\n", code >= 0 && code < ntexts ? texts[code] : "");
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
    fputc('\n', stderr);
}

// ---- lines ---------------------------------------------------------------------------------------------------

// Where the circle of resistance r, of radius b, meets that of reactance x, of radius a, apart from (1, 0).
static point2 meeting_point(float a, float b)
{
    const float square = a * a + b * b;
    return {static_cast<float>(static_cast<double>(square - 2 * a * a * b) / static_cast<double>(square)),
            static_cast<float>(static_cast<double>(2 * a * b * b) / static_cast<double>(square))};
}

static float reciprocal(float value)
{
    return static_cast<float>(1.0 / static_cast<double>(value));
}

static float resistance_radius(float value)
{
    return static_cast<float>(1.0 / (static_cast<double>(value) + 1.0));
}

// Where the circle of a reactance of radius a meets the unit circle: resistance 0.
static point2 unit_circle_point(float a)
{
    const float square = a * a + 1;
    return {static_cast<float>(static_cast<double>(square - 2 * a * a) / static_cast<double>(square)),
            static_cast<float>(static_cast<double>(2 * a) / static_cast<double>(square))};
}

static graticule_line *create_line(const value_band &limits, float value)
{
    graticule_line *line = static_cast<graticule_line *>(calloc(1, sizeof(graticule_line)));
    if (line == nullptr) return nullptr;
    const float a = reciprocal(value), b = resistance_radius(value);
    const bool whole = limits.low < value;
    const point2 r_start = meeting_point(reciprocal(limits.high), b);
    const point2 r_end = whole ? point2{1 - 2 * b, 0} : meeting_point(reciprocal(limits.low), b);
    const point2 x_start = meeting_point(a, resistance_radius(limits.high));
    const point2 x_end = whole ? unit_circle_point(a) : meeting_point(a, resistance_radius(limits.low));
    line->r_radius = b;
    line->r_start_x = r_start.x;
    line->r_start_y = r_start.y;
    line->r_end_x = r_end.x;
    line->r_end_y = r_end.y;
    line->reaches_axis = whole ? 1 : 0;
    line->x_radius = a;
    line->x_start_x = x_start.x;
    line->x_start_y = x_start.y;
    line->x_end_x = x_end.x;
    line->x_end_y = x_end.y;
    return line;
}

static graticule_line **append_line(graticule_line **end, const value_band &limits, float value)
{
    graticule_line *line = create_line(limits, value);
    if (line == nullptr) {
        SCerror(1, "In CreateGridLineListEl()");
        return end;
    }
    *end = line;
    return &line->next;
}

// ---- levels --------------------------------------------------------------------------------------------------

static float level_value(const chart_builder &builder, int tick, qx_long decade)
{
    return static_cast<float>(tick + decade * 10) * builder.scale;
}

static void add_lines(const chart_builder &builder, const value_band &limits, graticule_level *level)
{
    graticule_line **end = &level->lines;
    for (qx_long decade = 0; decade <= builder.decade; ++decade)
        for (int t = 0; t < level->run->count; ++t) {
            const float value = level_value(builder, level->run->ticks[t], decade);
            if (value < level->value) end = append_line(end, limits, value);
        }
    append_line(end, limits, level->value);
}

static void add_level(chart_builder *builder, const value_band &limits, const tick_run *run, int t)
{
    const float value = level_value(*builder, run->ticks[t], builder->decade);
    builder->last_value = value;
    graticule_level *level = static_cast<graticule_level *>(calloc(1, sizeof(graticule_level)));
    if (level == nullptr) {
        SCerror(1, "In CreateAnnotationListEl()");
        return;
    }
    const double v = static_cast<double>(value);
    const point2 edge = unit_circle_point(reciprocal(value));
    level->value = value;
    level->axis_x = static_cast<float>((v - 1.0) / (v + 1.0));
    level->edge_x = edge.x;
    level->edge_y = edge.y;
    level->decimals = builder->decimals;
    level->band = builder->band;
    level->position = t;
    level->run = run;
    *builder->level_end = level;
    builder->level_end = &level->next;
    add_lines(*builder, limits, level);
}

// ---- the choice of a run -------------------------------------------------------------------------------------

// The first tick behind the position; the run's length if it does not know it.
static int first_tick(const tick_run &run, int position)
{
    if (position == no_position) return 0;
    for (int t = 0; t < run.count; ++t)
        if (run.ticks[t] == position) return t + 1;
    return run.count;
}

// The mean gap of the levels that the run would make; below 0 if it will not do. Gaps from one value to another have
// the same sum whatever lies between: as a float it is the same, too, so that equal means are ties.
static float mean_gap(const chart_builder &builder, const tick_run &run)
{
    const float base = static_cast<float>(builder.decade * 10) * builder.scale;
    const int begin = first_tick(run, builder.position);
    double sum = 0, before = static_cast<double>(builder.last_value);
    for (int t = begin; t < run.count; ++t) {
        const double value = static_cast<double>(static_cast<float>(run.ticks[t]) * builder.scale + base);
        const double gap = (value - before) * 2.0 / ((value + 1.0) * (before + 1.0));
        if (gap < builder.min_spacing) return -1;
        sum += gap;
        before = value;
    }
    return begin < run.count ? static_cast<float>(sum / (run.count - begin)) : -1;
}

static const tick_run *choose_run(const chart_builder &builder)
{
    const tick_run *best = nullptr;
    float lowest = 0;
    for (const tick_run *run = builder.runs; run < builder.runs_end; ++run) {
        const float mean = mean_gap(builder, *run);
        if (mean < 0 || (best != nullptr && mean >= lowest)) continue;
        best = run;
        lowest = mean;
    }
    return best;
}

static void next_power_of_ten(chart_builder *builder)
{
    const int tens = static_cast<int>(builder->decade % 10);
    builder->position = tens != 0 ? tens : no_position;
    builder->decade /= 10;
    builder->scale *= 10;
    if (builder->decimals > 0) --builder->decimals;
    ++builder->retries;
}

// ---- bands ---------------------------------------------------------------------------------------------------

static void build_band(chart_builder *builder, const tick_run *run)
{
    const value_band limits = {builder->last_value,
                               level_value(*builder, run->ticks[run->count - 1], builder->decade)};
    for (int t = first_tick(*run, builder->position); t < run->count; ++t)
        add_level(builder, limits, run, t);
    builder->position = no_position;
}

static void build_last_band(chart_builder *builder)
{
    const tick_run *run = builder->runs_end - 1;
    builder->scale *= 10;
    const value_band limits = {builder->last_value, endless};
    for (int t = 0; t < run->count; ++t) {
        const float value = level_value(*builder, run->ticks[t], builder->decade);
        if (2.0 / (static_cast<double>(value) + 1.0) < builder->min_spacing) break;
        if (value > builder->last_value) add_level(builder, limits, run, t);
    }
}

// False when the chart is complete.
static bool build_step(chart_builder *builder)
{
    if (builder->retries == most_retries) return false;
    ++builder->decade;
    ++builder->band;
    const tick_run *run = choose_run(*builder);
    while (run == nullptr && builder->retries < most_retries) {
        next_power_of_ten(builder);
        run = choose_run(*builder);
    }
    if (run == nullptr) {
        build_last_band(builder);
        return false;
    }
    build_band(builder, run);
    return true;
}

static chart_builder *create_builder(GraticuleMeshInfo *info)
{
    chart_builder *builder = static_cast<chart_builder *>(calloc(1, sizeof(chart_builder)));
    if (builder == nullptr) return nullptr;
    // The value whose circle is min_spacing away from that of 0 on the real axis.
    const double spacing = static_cast<double>(info->min_spacing), value = spacing / (2.0 - spacing);
    const double power = std::floor(std::log10(value));
    builder->runs = info->runs;
    builder->runs_end = info->runs + info->nruns;
    builder->min_spacing = spacing;
    builder->scale = static_cast<float>(std::pow(10.0, power));
    builder->decade = -1;
    builder->position = no_position;
    builder->decimals = power < 0 ? static_cast<int>(-power) : 0;
    builder->level_end = &info->levels;
    return builder;
}

// ---- the chart -----------------------------------------------------------------------------------------------

static int split_runs(const int *ticks, int nticks, tick_run *runs)
{
    int nruns = 0;
    for (int t = 0; t < nticks; ++t) {
        if (t == 0 || ticks[t] <= ticks[t - 1]) {
            if (runs != nullptr) runs[nruns] = {ticks + t, 0};
            ++nruns;
        }
        if (runs != nullptr) ++runs[nruns - 1].count;
    }
    return nruns;
}

// Runs and levels; false where there is no memory for what a chart cannot be without.
static bool build_chart(GraticuleMeshInfo *info, const int *ticks, int nticks)
{
    const int nruns = split_runs(ticks, nticks, nullptr);
    info->runs = static_cast<tick_run *>(calloc(static_cast<size_t>(nruns), sizeof(tick_run)));
    if (info->runs == nullptr) return false;
    info->nruns = split_runs(ticks, nticks, info->runs);
    chart_builder *builder = create_builder(info);
    if (builder == nullptr) return false;
    while (build_step(builder)) {
    }
    free(builder);
    return true;
}

GraticuleMeshInfo *CreateGraticuleMeshInfo(float density, float min_spacing, const int *ticks, int nticks)
{
    if (!(min_spacing > 0)) return nullptr;
    GraticuleMeshInfo *info = static_cast<GraticuleMeshInfo *>(calloc(1, sizeof(GraticuleMeshInfo)));
    if (info == nullptr) return nullptr;
    info->density = density;
    info->min_spacing = min_spacing > 1.0f ? 1.0f : min_spacing;
    if (ticks != nullptr && nticks > 0 && !build_chart(info, ticks, nticks)) {
        DestroyGraticuleMeshInfo(info);
        return nullptr;
    }
    return info;
}

void DestroyGraticuleMeshInfo(GraticuleMeshInfo *info)
{
    if (info == nullptr) return;
    for (graticule_level *level = info->levels; level != nullptr;) {
        for (graticule_line *line = level->lines; line != nullptr;) {
            graticule_line *next = line->next;
            free(line);
            line = next;
        }
        graticule_level *next = level->next;
        free(level);
        level = next;
    }
    free(info->runs);
    free(info);
}

// ---- polylines -----------------------------------------------------------------------------------------------

static void put_point(float *out, qx_long i, float x, float y)
{
    out[3 * i] = x;
    out[3 * i + 1] = y;
    out[3 * i + 2] = 0;
}

// The angle of an arc of less than half a circle, by its chord.
static double arc_angle(point2 start, point2 end, float radius)
{
    const double dx = static_cast<double>(end.x) - static_cast<double>(start.x);
    const double dy = static_cast<double>(end.y) - static_cast<double>(start.y);
    const double chord = std::sqrt(dx * dx + dy * dy);
    const double sine = chord * 0.5 / static_cast<double>(radius);
    return std::asin(sine < 1 ? sine : 1) * 2.0;
}

// A polyline on a circle, the short way from start to end, at least one step; out may be NULL. Returns its points.
static qx_long arc_points(point2 start, point2 end, point2 centre, float radius, float density, float *out)
{
    const double angle = arc_angle(start, end, radius);
    const double steps =
        std::ceil(std::sqrt(static_cast<double>(radius)) * static_cast<double>(density) * angle / nearly_pi);
    const qx_long n = steps > 1 ? static_cast<qx_long>(steps < most_steps ? steps : most_steps) : 1;
    if (out == nullptr) return n + 1;

    const double rx = static_cast<double>(start.x) - static_cast<double>(centre.x);
    const double ry = static_cast<double>(start.y) - static_cast<double>(centre.y);
    const double ex = static_cast<double>(end.x) - static_cast<double>(centre.x);
    const double ey = static_cast<double>(end.y) - static_cast<double>(centre.y);
    const double turn = rx * ey - ry * ex < 0 ? -1 : 1; // against the clock where positive
    const double d = angle / static_cast<double>(2 * n), c = std::cos(d), s = turn * std::sin(d);
    const double c2 = c * c - s * s, s2 = 2 * s * c;
    // A chord of the angle 2 d is 2 sin d long and stands d past the normal of the radius at its start.
    double step_x = 2 * s * (-ry * c - rx * s), step_y = 2 * s * (rx * c - ry * s);
    double x = static_cast<double>(start.x), y = static_cast<double>(start.y);
    put_point(out, 0, start.x, start.y);
    for (qx_long i = 1; i < n; ++i) {
        x += step_x;
        y += step_y;
        put_point(out, i, static_cast<float>(x), static_cast<float>(y));
        const double turned = step_x * c2 - step_y * s2;
        step_y = step_x * s2 + step_y * c2;
        step_x = turned;
    }
    put_point(out, n, end.x, end.y);
    return n + 1;
}

// A closed circle, clockwise from its top; out may be NULL. Returns its points.
static qx_long full_circle(point2 centre, float radius, float density, float *out)
{
    const point2 top = {centre.x, centre.y + radius}, right = {centre.x + radius, centre.y};
    const qx_long n = arc_points(top, right, centre, radius, density, out) - 1;
    if (out == nullptr) return 4 * n + 1;
    const auto mirrored = [&](qx_long of, float fx, float fy, qx_long to) {
        const float x = centre.x + fx * (out[3 * of] - centre.x);
        const float y = centre.y + fy * (out[3 * of + 1] - centre.y);
        put_point(out, to, x, y);
    };
    for (qx_long i = 1; i <= n; ++i) {
        mirrored(n - i, 1, -1, n + i);
        mirrored(i, -1, -1, 2 * n + i);
        mirrored(n - i, -1, 1, 3 * n + i);
    }
    return 4 * n + 1;
}

namespace {

// Polylines as they come; with no arrays they are counted.
struct polyline_list {
    float *coords;
    qx_long *lines;
    qx_long npoints = 0, nlines = 0;

    float *room() const { return coords != nullptr ? coords + 3 * npoints : nullptr; }

    // The next count points are in place: they are a polyline.
    void close(qx_long count)
    {
        if (lines != nullptr) {
            lines[2 * nlines] = npoints;
            lines[2 * nlines + 1] = npoints + count - 1;
        }
        npoints += count;
        ++nlines;
    }

    // The last count points at from, upside down and in reverse order, after those in place.
    void mirror(qx_long from, qx_long count, qx_long to) const
    {
        if (coords == nullptr) return;
        for (qx_long i = 0; i < count; ++i) {
            const float *point = coords + 3 * (from + count - 1 - i);
            put_point(coords, to + i, point[0], -point[1]);
        }
    }
};

} // namespace

static void add_arcs(polyline_list *list, const graticule_line &line, float density)
{
    const qx_long first = list->npoints;
    const qx_long n = arc_points({line.r_start_x, line.r_start_y}, {line.r_end_x, line.r_end_y},
                                 {1 - line.r_radius, 0}, line.r_radius, density, list->room());
    if (line.reaches_axis != 0) {
        list->mirror(first, n - 1, first + n); // the point on the axis is its own mirror image
        list->close(2 * n - 1);
    } else {
        list->mirror(first, n, first + n);
        list->close(n);
        list->close(n);
    }
    const qx_long second = list->npoints;
    const qx_long m = arc_points({line.x_start_x, line.x_start_y}, {line.x_end_x, line.x_end_y},
                                 {1, line.x_radius}, line.x_radius, density, list->room());
    list->mirror(second, m, second + m);
    list->close(m);
    list->close(m);
}

void GetGraticuleMeshPoints(const GraticuleMeshInfo *info, qx_long *npoints, float *coords, qx_long *nlines,
                            qx_long *lines)
{
    polyline_list list = {coords, lines};
    if (coords != nullptr) {
        put_point(coords, 0, -1, 0);
        put_point(coords, 1, 1, 0);
    }
    list.close(2);
    list.close(full_circle({0, 0}, 1, info->density, list.room()));
    for (const graticule_level *level = info->levels; level != nullptr; level = level->next)
        for (const graticule_line *line = level->lines; line != nullptr; line = line->next)
            add_arcs(&list, *line, info->density);
    if (npoints != nullptr) *npoints = list.npoints;
    if (nlines != nullptr) *nlines = list.nlines;
}

// ---- labels --------------------------------------------------------------------------------------------------

namespace {

struct label_list {
    float *axis, *upper, *lower;
    char *text;
    qx_long nlabels = 0, text_size = 0;

    void add(float axis_x, float edge_x, float edge_y, int decimals, double value)
    {
        if (axis != nullptr) put_point(axis, nlabels, axis_x, 0);
        if (upper != nullptr) put_point(upper, nlabels, edge_x, edge_y);
        if (lower != nullptr) put_point(lower, nlabels, edge_x, 0 - edge_y); // 0 stays without a sign
        const size_t length = static_cast<size_t>(snprintf(nullptr, 0, "%1.*f", decimals, value));
        if (text != nullptr) snprintf(text + text_size, length + 1, "%1.*f", decimals, value);
        text_size += static_cast<qx_long>(length) + 1;
        ++nlabels;
    }
};

} // namespace

void GetAnnotationMeshPoints(const GraticuleMeshInfo *info, qx_long *nlabels, float *axis_pts,
                             float *upper_pts, float *lower_pts, qx_long *text_size, char *text)
{
    label_list list = {axis_pts, upper_pts, lower_pts, text};
    list.add(-1, -1, 0, 0, 0);
    for (const graticule_level *level = info->levels; level != nullptr; level = level->next)
        list.add(level->axis_x, level->edge_x, level->edge_y, level->decimals,
                 static_cast<double>(level->value));
    if (text != nullptr) text[list.text_size] = '\0';
    if (nlabels != nullptr) *nlabels = list.nlabels;
    if (text_size != nullptr) *text_size = list.text_size + 1;
}
