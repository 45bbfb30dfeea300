// The Smith chart: which values it has, its lines by the formulas of the circles, its polylines and labels.
#include <skoklana/chart.h>

#include "support/fresh_host.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace {

struct release_chart {
    void operator()(GraticuleMeshInfo *info) const { DestroyGraticuleMeshInfo(info); }
};
using chart = std::unique_ptr<GraticuleMeshInfo, release_chart>;
using ints = std::vector<int>;
using reals = std::vector<double>;

chart make_chart(float density, float min_spacing, const ints &ticks)
{
    return chart(CreateGraticuleMeshInfo(density, min_spacing, ticks.data(), static_cast<int>(ticks.size())));
}

const ints three_runs = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 2, 4, 6, 8, 10, 5, 10};
// With a way on from each tick at which a power of ten may be left.
const ints many_runs = {1,  2, 3, 4,  5, 6,  7, 8,  9, 10, 2, 4,  6, 8,  10, 1,  2, 5,  10, 3,  4, 5,
                        10, 3, 5, 10, 4, 10, 3, 10, 5, 10, 6, 10, 7, 10, 8,  10, 9, 10, 2,  10, 1, 10};

std::vector<const graticule_level *> levels_of(const chart &info)
{
    std::vector<const graticule_level *> levels;
    for (const graticule_level *level = info->levels; level != nullptr; level = level->next)
        levels.push_back(level);
    return levels;
}

std::vector<const graticule_line *> lines_of(const graticule_level *level)
{
    std::vector<const graticule_line *> lines;
    for (const graticule_line *line = level->lines; line != nullptr; line = line->next)
        lines.push_back(line);
    return lines;
}

struct polylines {
    std::vector<float> coords;
    std::vector<qx_long> lines;

    const float *point(qx_long i) const { return &coords[static_cast<size_t>(3 * i)]; }
};

polylines points_of(const chart &info)
{
    qx_long npoints = -1, nlines = -1, again = -1;
    GetGraticuleMeshPoints(info.get(), &npoints, nullptr, &nlines, nullptr);
    polylines out;
    out.coords.assign(static_cast<size_t>(3 * npoints), 77);
    out.lines.assign(static_cast<size_t>(2 * nlines), -7);
    GetGraticuleMeshPoints(info.get(), &again, out.coords.data(), nullptr, out.lines.data());
    EXPECT_EQ(npoints, again);
    GetGraticuleMeshPoints(info.get(), nullptr, nullptr, &again, nullptr);
    EXPECT_EQ(nlines, again);
    return out;
}

struct labels {
    std::vector<float> axis, upper, lower;
    std::vector<char> bytes;
    std::vector<std::string> texts;
};

labels labels_of(const chart &info)
{
    qx_long nlabels = -1, text_size = -1;
    GetAnnotationMeshPoints(info.get(), &nlabels, nullptr, nullptr, nullptr, &text_size, nullptr);
    labels out;
    for (std::vector<float> *points : {&out.axis, &out.upper, &out.lower})
        points->assign(static_cast<size_t>(3 * nlabels), 77);
    out.bytes.assign(static_cast<size_t>(text_size), 'x');
    GetAnnotationMeshPoints(info.get(), nullptr, out.axis.data(), out.upper.data(), out.lower.data(), nullptr,
                            out.bytes.data());
    const char *text = out.bytes.data();
    for (qx_long i = 0; i < nlabels; ++i, text += strlen(text) + 1)
        out.texts.push_back(text);
    EXPECT_EQ(out.bytes.data() + text_size - 1, text);
    EXPECT_EQ('\0', out.bytes.back());
    return out;
}

// Reflection coefficient of a normalised impedance r + i x, and back.
std::pair<double, double> reflection(double r, double x)
{
    const double square = (r + 1) * (r + 1) + x * x;
    return {(r * r + x * x - 1) / square, 2 * x / square};
}

double resistance_at(double u, double v)
{
    return (1 - u * u - v * v) / ((1 - u) * (1 - u) + v * v);
}

double reactance_at(double u, double v)
{
    return 2 * v / ((1 - u) * (1 - u) + v * v);
}

double gap(double from, double to)
{
    return (to - 1) / (to + 1) - (from - 1) / (from + 1);
}

class SmithChart : public FreshHost {};

} // namespace

TEST_F(SmithChart, ATickThatIsNotGreaterBeginsARun)
{
    for (const auto &[ticks, counts] : std::map<ints, ints>{{{1, 2, 5, 1, 5}, {3, 2}},
                                                            {{3, 3}, {1, 1}},
                                                            {{4}, {1}},
                                                            {{5, 4, 3}, {1, 1, 1}},
                                                            {{1, 2, 3}, {3}}}) {
        const chart info = make_chart(8, 0.5f, ticks);
        ASSERT_EQ(static_cast<int>(counts.size()), info->nruns);
        const int *next = ticks.data();
        for (size_t r = 0; r < counts.size(); ++r) {
            EXPECT_EQ(counts[r], info->runs[r].count);
            EXPECT_EQ(next, info->runs[r].ticks);
            next += counts[r];
        }
    }
}

TEST_F(SmithChart, WithoutTicksItHasTheAxisAndTheUnitCircle)
{
    const int tick = 1;
    for (const chart &info : {chart(CreateGraticuleMeshInfo(2, 0.1f, nullptr, 5)),
                              chart(CreateGraticuleMeshInfo(2, 0.1f, &tick, 0)),
                              chart(CreateGraticuleMeshInfo(2, 0.1f, &tick, -1))}) {
        ASSERT_NE(nullptr, info);
        EXPECT_EQ(0, info->nruns);
        EXPECT_EQ(nullptr, info->levels);
        const polylines out = points_of(info);
        EXPECT_EQ((std::vector<qx_long>{0, 1, 2, 10}), out.lines); // 2 steps in a quarter
        EXPECT_EQ((std::vector<float>{-1, 0, 0, 1, 0, 0, 0, 1, 0}),
                  (std::vector<float>{out.coords.begin(), out.coords.begin() + 9}));
        const labels text = labels_of(info);
        EXPECT_EQ((std::vector<char>{'0', '\0', '\0'}), text.bytes);
        for (const std::vector<float> *points : {&text.axis, &text.upper, &text.lower})
            EXPECT_EQ((std::vector<float>{-1, 0, 0}), *points);
        EXPECT_FALSE(std::signbit(text.lower[1]));
    }
}

TEST_F(SmithChart, SpacingIsClippedAtOneAndMustBeAboveZero)
{
    const ints alone = {1};
    const chart clipped = make_chart(4, 7, alone), one = make_chart(4, 1, alone);
    EXPECT_EQ(1, clipped->min_spacing);
    EXPECT_EQ(4, clipped->density);
    ASSERT_EQ(1u, levels_of(one).size());
    EXPECT_EQ(1, levels_of(one)[0]->value);
    EXPECT_EQ(1u, levels_of(clipped).size());
    EXPECT_EQ(0u, levels_of(make_chart(4, 1, three_runs)).size()) << "each run has a second tick";
    for (const float spacing : {0.0f, -1.0f, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(nullptr, make_chart(4, spacing, three_runs));
    EXPECT_EQ(1, make_chart(4, std::numeric_limits<float>::infinity(), {1})->min_spacing);
    DestroyGraticuleMeshInfo(nullptr);
}

TEST_F(SmithChart, BandsTakeTheClosestRunThatIsWideEnough)
{
    const chart info = make_chart(32, 0.05f, three_runs);
    reals values;
    std::map<int, std::pair<int, reals>> bands; // run, and values
    ints decimals;
    for (const graticule_level *level : levels_of(info)) {
        const double value = std::round(static_cast<double>(level->value) * 1000) / 1000;
        EXPECT_NEAR(value, level->value, 1e-6);
        values.push_back(value);
        bands[level->band].first = static_cast<int>(level->run - info->runs);
        bands[level->band].second.push_back(value);
        decimals.push_back(level->decimals);
        EXPECT_LT(level->position, level->run->count);
    }
    const std::map<int, std::pair<int, reals>> expected = {{1, {2, {0.05, 0.1}}},
                                                           {2, {2, {0.15, 0.2}}},
                                                           {3, {2, {0.25, 0.3}}},
                                                           {4, {2, {0.35, 0.4}}},
                                                           {5, {0, {0.5, 0.6, 0.7, 0.8, 0.9, 1}}},
                                                           {6, {2, {1.5, 2}}},
                                                           {7, {2, {2.5, 3}}}};
    EXPECT_EQ(expected, bands); // no run knows the tick 3 and has gaps to go on with
    EXPECT_EQ((ints{2, 2, 2, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}), decimals);
    EXPECT_EQ(
        (std::vector<std::string>{"0", "0.05", "0.10", "0.15", "0.20", "0.25", "0.30", "0.35", "0.40", "0.5",
                                  "0.6", "0.7", "0.8", "0.9", "1.0", "1.5", "2.0", "2.5", "3.0"}),
        labels_of(info).texts);
}

TEST_F(SmithChart, OneTickMakesOneLevelATen)
{
    const chart info = make_chart(32, 0.5f, {1});
    ASSERT_EQ(1, info->nruns);
    EXPECT_EQ((std::vector<std::string>{"0", "1", "11"}), labels_of(info).texts);
    EXPECT_EQ(1, levels_of(info)[0]->band);
    EXPECT_EQ(2, levels_of(info)[1]->band);
}

TEST_F(SmithChart, OfEqualMeansTheEarlierRunIsTaken)
{
    // Both runs make one level of the same value.
    const chart info = make_chart(32, 0.5f, {1, 1});
    for (const graticule_level *level : levels_of(info))
        EXPECT_EQ(info->runs, level->run);
}

TEST_F(SmithChart, RunsOfOneLengthAndEndAreTies)
{
    for (const float spacing : {0.02f, 0.05f}) {
        const chart info = make_chart(2, spacing, {5, 10, 4, 10, 6, 10, 5, 10, 7, 10});
        size_t fresh = 0;
        int band = 0;
        for (const graticule_level *level : levels_of(info)) {
            if (level->band != band && level->position == 0 && level->value < 0.3f) {
                ++fresh;
                EXPECT_EQ(info->runs, level->run) << level->value;
            }
            band = level->band;
        }
        EXPECT_GT(fresh, 0u);
    }
}

TEST_F(SmithChart, AfterSixPowersOfTenTheLastBandGoesOnToInfinity)
{
    // Neighbouring ticks that are too close at every scale.
    const chart info = make_chart(8, 1e-6f, {500000, 500001});
    const auto levels = levels_of(info);
    ASSERT_EQ(2u, levels.size());
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_NEAR(500000.0 + static_cast<double>(i), levels[i]->value, 0.5);
        EXPECT_EQ(1, levels[i]->band);
        EXPECT_EQ(1, levels[i]->decimals);
        EXPECT_EQ(i + 1, lines_of(levels[i]).size());
        for (const graticule_line *line : lines_of(levels[i])) {
            EXPECT_EQ(1, line->reaches_axis);
            EXPECT_GT(line->r_start_y, 0);
            EXPECT_LT(line->r_start_y, 1e-9);
        }
    }
    // The gap that is left decides where it ends.
    EXPECT_EQ(0u, levels_of(make_chart(8, 0.9f, {5, 6})).size());
}

TEST_F(SmithChart, LevelsIncreaseAndKeepTheirDistance)
{
    int nlevels = 0, ncharts = 0;
    for (const ints &ticks : {three_runs, many_runs, ints{1, 2, 5, 1, 5}, ints{10}, ints{2, 7, 3, 10, 1, 4}})
        for (float spacing = 0.003f; spacing < 1.2f; spacing *= 1.37f) {
            const chart info = make_chart(2, spacing, ticks);
            const auto levels = levels_of(info);
            ++ncharts;
            double before = 0;
            std::set<std::string> texts;
            for (const std::string &text : labels_of(info).texts)
                EXPECT_TRUE(texts.insert(text).second) << text;
            for (const graticule_level *level : levels) {
                ++nlevels;
                const double v = level->value;
                EXPECT_GT(v, before);
                EXPECT_GE(gap(before, v), static_cast<double>(info->min_spacing) * 0.99999)
                    << before << " " << v;
                before = v;
                EXPECT_NEAR((v - 1) / (v + 1), level->axis_x, 1e-6);
                const auto [u, w] = reflection(0, v);
                EXPECT_NEAR(u, level->edge_x, 1e-6);
                EXPECT_NEAR(w, level->edge_y, 1e-6);
                EXPECT_GE(level->run, info->runs);
                EXPECT_LT(level->run, info->runs + info->nruns);
            }
            for (size_t i = 1; i < levels.size(); ++i)
                EXPECT_LE(levels[i - 1]->band, levels[i]->band);
        }
    EXPECT_GT(nlevels, 1000);
    EXPECT_GT(ncharts, 50);
}

TEST_F(SmithChart, TheWholeAxisIsCoveredWhereThereIsARunFromEachTick)
{
    for (const float spacing : {0.02f, 0.05f, 0.1f, 0.2f}) {
        const auto info = make_chart(2, spacing, many_runs);
        EXPECT_LT(gap(levels_of(info).back()->value, 1e30), 6 * static_cast<double>(spacing)) << spacing;
    }
}

TEST_F(SmithChart, LinesEndWhereCirclesMeet)
{
    size_t whole = 0, parts = 0;
    for (const float spacing : {0.03f, 0.07f, 0.2f})
        for (const ints &ticks : {three_runs, many_runs, ints{1, 2, 5, 1, 5}}) {
            const chart info = make_chart(2, spacing, ticks);
            const auto levels = levels_of(info);
            std::map<int, std::pair<double, double>> limits;
            for (size_t i = 0; i < levels.size(); ++i) {
                const double v = levels[i]->value;
                if (limits.count(levels[i]->band) == 0)
                    limits[levels[i]->band] = {i > 0 ? static_cast<double>(levels[i - 1]->value) : 0, v};
                limits[levels[i]->band].second = v;
            }
            for (const graticule_level *level : levels) {
                const auto [low, high] = limits[level->band];
                double before = 0;
                const auto lines = lines_of(level);
                for (const graticule_line *line : lines) {
                    const double value = 1 / static_cast<double>(line->r_radius) - 1;
                    EXPECT_NEAR(1 / value, line->x_radius, 1e-4 / value);
                    EXPECT_GT(value, before * 0.99999);
                    before = value;
                    const bool reaches = line == lines.back() || value > low * 1.00001;
                    EXPECT_EQ(reaches, line->reaches_axis != 0) << value << " " << low;
                    const auto at = [](std::pair<double, double> expected, float u, float v) {
                        EXPECT_NEAR(expected.first, u, 2e-6);
                        EXPECT_NEAR(expected.second, v, 2e-6);
                    };
                    at(reflection(value, high), line->r_start_x, line->r_start_y);
                    at(reflection(high, value), line->x_start_x, line->x_start_y);
                    at(reflection(value, reaches ? 0 : low), line->r_end_x, line->r_end_y);
                    at(reflection(reaches ? 0 : low, value), line->x_end_x, line->x_end_y);
                    ++(reaches ? whole : parts);
                }
                EXPECT_NEAR(level->value, before, 1e-4 * before) << "its own line is the last";
            }
        }
    EXPECT_GT(whole, 100u);
    EXPECT_GT(parts, 100u);
}

TEST_F(SmithChart, EveryLowerTickOfTheRunHasALine)
{
    const chart info = make_chart(2, 0.05f, three_runs);
    const auto levels = levels_of(info);
    // In the third ten of 5, 10 there are 0.05 to 0.20 below the level 0.25.
    EXPECT_EQ(5u, lines_of(levels[4]).size());
    // 0.1 to 0.4 and 0.5 itself.
    EXPECT_EQ(5u, lines_of(levels[8]).size());
    EXPECT_EQ(10u, lines_of(levels[13]).size());
    EXPECT_EQ(3u, lines_of(levels[14]).size()); // 0.5, 1, 1.5
}

TEST_F(SmithChart, PolylinesFollowTheCircles)
{
    for (const float density : {0.0f, 3.0f, 24.5f}) {
        const chart info = make_chart(density, 0.1f, many_runs);
        const polylines out = points_of(info);
        const auto arc_steps = [&](double angle, double radius) {
            return std::max(1.0, std::ceil(std::sqrt(radius) * density * angle / 3.141592652589793));
        };
        size_t at = 0;
        qx_long next = 0;
        const auto take = [&](double steps) {
            EXPECT_LT(2 * at + 1, out.lines.size());
            const std::pair<qx_long, qx_long> line = {out.lines[2 * at], out.lines[2 * at + 1]};
            ++at;
            EXPECT_EQ(next, line.first) << "polylines own all points between";
            EXPECT_EQ(steps, static_cast<double>(line.second - line.first));
            next = line.second + 1;
            return line;
        };
        const auto expect_mirrored = [&](std::pair<qx_long, qx_long> upper,
                                         std::pair<qx_long, qx_long> lower) {
            for (qx_long i = 0; i <= upper.second - upper.first; ++i) {
                EXPECT_EQ(out.point(upper.first + i)[0], out.point(lower.second - i)[0]);
                EXPECT_EQ(out.point(upper.first + i)[1], -out.point(lower.second - i)[1]);
            }
        };
        take(1);
        const auto circle = take(4 * arc_steps(std::asin(std::sqrt(0.5)) * 2, 1));
        for (int d = 0; d < 3; ++d)
            EXPECT_EQ(out.point(circle.first)[d], out.point(circle.second)[d]);
        for (qx_long i = circle.first; i <= circle.second; ++i) {
            EXPECT_NEAR(1, std::hypot(out.point(i)[0], out.point(i)[1]), 1e-6);
            if (i == circle.first) continue;
            const float *a = out.point(i - 1), *b = out.point(i);
            EXPECT_LT(static_cast<double>(a[0]) * b[1] - static_cast<double>(a[1]) * b[0], 0) << "clockwise";
        }
        const auto angle_of = [](float ax, float ay, float bx, float by, float radius) {
            const double chord = std::hypot(static_cast<double>(bx) - ax, static_cast<double>(by) - ay);
            return 2 * std::asin(std::min(1.0, chord / 2 / radius));
        };
        for (const graticule_level *level : levels_of(info))
            for (const graticule_line *line : lines_of(level)) {
                const double r_angle =
                    angle_of(line->r_start_x, line->r_start_y, line->r_end_x, line->r_end_y, line->r_radius);
                const double x_angle =
                    angle_of(line->x_start_x, line->x_start_y, line->x_end_x, line->x_end_y, line->x_radius);
                const double n = arc_steps(r_angle, line->r_radius), m = arc_steps(x_angle, line->x_radius);
                const double value = 1 / static_cast<double>(line->r_radius) - 1;
                const qx_long begin = next;
                if (line->reaches_axis != 0) {
                    const auto both = take(2 * n);
                    expect_mirrored(both, both);
                } else {
                    const auto upper = take(n);
                    expect_mirrored(upper, take(n));
                }
                EXPECT_EQ(line->r_start_x, out.point(begin)[0]);
                EXPECT_EQ(line->r_end_x, out.point(begin + static_cast<qx_long>(n))[0]);
                EXPECT_EQ(line->r_end_y, out.point(begin + static_cast<qx_long>(n))[1]);
                for (qx_long i = begin; i < next; ++i)
                    EXPECT_NEAR(line->r_radius,
                                std::hypot(out.point(i)[0] - 1.0 + static_cast<double>(line->r_radius),
                                           static_cast<double>(out.point(i)[1])),
                                1e-6);
                const qx_long middle = begin + static_cast<qx_long>(n) / 2;
                if (n > 1) {
                    EXPECT_NEAR(value, resistance_at(out.point(middle)[0], out.point(middle)[1]),
                                1e-3 * (1 + value));
                }
                const auto upper = take(m);
                expect_mirrored(upper, take(m));
                EXPECT_EQ(line->x_end_x, out.point(upper.second)[0]);
                for (qx_long i = upper.first; i <= upper.second; ++i) {
                    const double v = out.point(i)[1];
                    EXPECT_NEAR(line->x_radius, std::hypot(out.point(i)[0] - 1.0, v - line->x_radius), 1e-5);
                }
                const qx_long half = upper.first + static_cast<qx_long>(m) / 2;
                if (m > 1) {
                    EXPECT_NEAR(value, reactance_at(out.point(half)[0], out.point(half)[1]),
                                1e-3 * (1 + value));
                }
            }
        EXPECT_EQ(out.lines.size(), 2 * at);
        EXPECT_EQ(out.coords.size(), static_cast<size_t>(3 * next));
        for (qx_long i = 0; i < next; ++i) {
            EXPECT_LE(std::hypot(out.point(i)[0], out.point(i)[1]), 1 + 1e-6);
            EXPECT_EQ(0, out.point(i)[2]);
        }
    }
}

TEST_F(SmithChart, StepsOfAnArcAreOfOneLength)
{
    const chart info = make_chart(40, 0.1f, many_runs);
    const polylines out = points_of(info);
    EXPECT_EQ(2 + 4 * 21, out.lines[3]); // half the density in a quarter, and one more
    size_t compared = 0;
    for (size_t line = 1; 2 * line < out.lines.size(); ++line) {
        const qx_long first = out.lines[2 * line], last = out.lines[2 * line + 1];
        double length = 0;
        for (qx_long i = first; i < last; ++i, ++compared) {
            const float *a = out.point(i), *b = out.point(i + 1);
            const double step =
                std::hypot(static_cast<double>(b[0]) - a[0], static_cast<double>(b[1]) - a[1]);
            if (i > first) {
                EXPECT_NEAR(length, step, 1e-3 * length) << line << " " << i;
            }
            length = step;
        }
    }
    EXPECT_GT(compared, 500u);
}

TEST_F(SmithChart, LabelsStandAtDifferentPlaces)
{
    const chart info = make_chart(2, 0.03f, many_runs);
    const labels text = labels_of(info);
    const auto levels = levels_of(info);
    ASSERT_EQ(levels.size() + 1, text.texts.size());
    std::set<float> along, across;
    for (size_t i = 0; i < text.texts.size(); ++i) {
        EXPECT_TRUE(along.insert(text.axis[3 * i]).second);
        EXPECT_TRUE(across.insert(text.upper[3 * i]).second);
        EXPECT_EQ(text.upper[3 * i], text.lower[3 * i]);
        EXPECT_EQ(text.upper[3 * i + 1], -text.lower[3 * i + 1]);
        EXPECT_EQ(0, text.axis[3 * i + 1]);
        for (const std::vector<float> *points : {&text.axis, &text.upper, &text.lower})
            EXPECT_EQ(0, (*points)[3 * i + 2]);
        if (i == 0) continue;
        EXPECT_EQ(levels[i - 1]->axis_x, text.axis[3 * i]);
        EXPECT_EQ(levels[i - 1]->edge_y, text.upper[3 * i + 1]);
        EXPECT_NEAR(levels[i - 1]->value, std::stod(text.texts[i]), 1e-5 * (1 + levels[i - 1]->value));
    }
}

TEST_F(SmithChart, ARecordOfTheCallersOwnIsRead)
{
    graticule_line line = {0.5f, 0.6f, 0.4f, 0, 0, 1, 1, 0.5f, 0.25f, 0, 1, nullptr};
    graticule_level level = {12.5f, 0.85f, 0.9f, 0.2f, 3, 1, 0, nullptr, &line, nullptr};
    GraticuleMeshInfo info = {0.1f, 4, &level, nullptr, 0};
    qx_long npoints = 0, nlines = 0, text_size = 0;
    char text[16];
    GetGraticuleMeshPoints(&info, &npoints, nullptr, &nlines, nullptr);
    EXPECT_EQ(2 + 3, nlines);
    GetAnnotationMeshPoints(&info, nullptr, nullptr, nullptr, nullptr, &text_size, text);
    EXPECT_EQ(10, text_size);
    EXPECT_EQ(std::string("0\00012.500\0\0", 10), std::string(text, 10));
    EXPECT_EQ(56u, sizeof level);
}

TEST_F(SmithChart, ErrorsAreTwoLines)
{
    const auto printed = [](auto call) {
        testing::internal::CaptureStderr();
        call();
        return testing::internal::GetCapturedStderr();
    };
    const char *const texts[] = {"No error", "Out of memory", "Unable to find Quorvex object",
                                 "Unable to get length of array object", "Unable to get cell set"};
    for (int code = 0; code < 5; ++code)
        EXPECT_EQ(std::string("Smith Chart module error: ") + texts[code] + "\nat 7 of x\n",
                  printed([&] { SCerror(code, "at %d of %s", 7, "x"); }));
    for (const int code : {-1, 5, 1000000})
        EXPECT_EQ("Smith Chart module error: \n\n", printed([&] { SCerror(code, "%s", ""); }));
}

TEST_F(SmithChart, WhatHasNoMemoryIsLeftOut)
{
    const ints &ticks = many_runs;
    const size_t all = levels_of(make_chart(8, 0.2f, ticks)).size();
    ASSERT_GT(all, 3u);
    int nulls = 0, fewer_levels = 0, fewer_lines = 0;
    const auto count_lines = [](const chart &info) {
        size_t n = 0;
        for (const graticule_level *level : levels_of(info))
            n += lines_of(level).size();
        return n;
    };
    const size_t all_lines = count_lines(make_chart(8, 0.2f, ticks));
    for (int k = 0;; ++k) {
        testing::internal::CaptureStderr();
        const host_calls::watch watch;
        host_calls::fail_allocation(k);
        chart info = make_chart(8, 0.2f, ticks);
        const bool refused = host_calls::allocation_was_refused();
        host_calls::reset();
        const std::string told = testing::internal::GetCapturedStderr();
        if (!refused) {
            EXPECT_EQ("", told);
            break;
        }
        if (info == nullptr) {
            ++nulls;
            EXPECT_EQ("", told);
        } else if (levels_of(info).size() < all) {
            ++fewer_levels;
            EXPECT_EQ(all - 1, levels_of(info).size());
            EXPECT_EQ("Smith Chart module error: Out of memory\nIn CreateAnnotationListEl()\n", told);
        } else {
            ++fewer_lines;
            EXPECT_EQ(all_lines - 1, count_lines(info));
            EXPECT_EQ("Smith Chart module error: Out of memory\nIn CreateGridLineListEl()\n", told);
        }
        info.reset();
        EXPECT_EQ(0, watch.live_blocks()) << k;
    }
    EXPECT_EQ(3, nulls); // the chart, its runs, the state of the work
    EXPECT_EQ(static_cast<int>(all), fewer_levels);
    EXPECT_EQ(static_cast<int>(all_lines), fewer_lines);
}
