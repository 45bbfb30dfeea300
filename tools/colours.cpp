#include "colours.hpp"

#include <vtkColorTransferFunction.h>

#include <algorithm>
#include <cmath>

namespace {

struct colour_map {
    const char *name;
    std::vector<double> rgb; // rows of 3 at equal distances
};

// The first is the default. It is nowhere so light that thin lines fade on white, nor so dark that shading does.
// Moreland. Diverging color maps for scientific visualization. 2009
// van der Walt, Smith. A better default colormap for matplotlib. 2015
const std::vector<colour_map> &maps()
{
    static const std::vector<colour_map> all = {
        {"even", {0.23, 0.30, 0.75, 0.13, 0.50, 0.72, 0.16, 0.59, 0.49, 0.47, 0.60,
                  0.20, 0.78, 0.53, 0.13, 0.80, 0.33, 0.13, 0.70, 0.05, 0.18}},
        {"diverging", {0.230, 0.299, 0.754, 0.58, 0.58, 0.60, 0.706, 0.016, 0.150}},
        {"viridis",
         {0.267, 0.005, 0.329, 0.231, 0.318, 0.545, 0.129, 0.569, 0.551, 0.369, 0.789, 0.383, 0.993, 0.906,
          0.144}},
        {"heat", {0.15, 0.0, 0.1, 0.65, 0.05, 0.1, 0.93, 0.42, 0.08, 0.98, 0.85, 0.35}},
        {"grey", {0.1, 0.1, 0.1, 0.75, 0.75, 0.75}},
    };
    return all;
}

const colour_map &map_of(const std::string &name)
{
    const auto &all = maps();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const colour_map &map) { return name == map.name; });
    return found == all.end() ? all.front() : *found;
}

} // namespace

std::string names_of_colours()
{
    std::string names;
    for (const colour_map &map : maps())
        names += (names.empty() ? "" : ", ") + std::string(map.name);
    return names;
}

bool is_colours(const std::string &name)
{
    return map_of(name).name == name;
}

vtkSmartPointer<vtkColorTransferFunction> colours_between(const std::string &name, double lo, double hi)
{
    const colour_map &map = map_of(name);
    auto colours = vtkSmartPointer<vtkColorTransferFunction>::New();
    colours->SetColorSpaceToLab();
    const size_t n = map.rgb.size() / 3;
    for (size_t i = 0; i < n; ++i)
        colours->AddRGBPoint(lo + (hi - lo) * static_cast<double>(i) / static_cast<double>(n - 1),
                             map.rgb[i * 3], map.rgb[i * 3 + 1], map.rgb[i * 3 + 2]);
    return colours;
}

vtkSmartPointer<vtkColorTransferFunction> stepped_colours(const std::string &name,
                                                          const std::vector<double> &limits)
{
    auto stepped = vtkSmartPointer<vtkColorTransferFunction>::New();
    const size_t nbands = limits.size() - 1;
    const auto smooth = colours_between(name, 0, static_cast<double>(std::max<size_t>(nbands - 1, 1)));
    for (size_t band = 0; band < nbands; ++band) {
        double rgb[3];
        smooth->GetColor(static_cast<double>(band), rgb);
        const double end = limits[band + 1];
        stepped->AddRGBPoint(limits[band], rgb[0], rgb[1], rgb[2]);
        // bands are half open, but for the last
        stepped->AddRGBPoint(band + 1 < nbands ? std::nextafter(end, limits[band]) : end, rgb[0], rgb[1],
                             rgb[2]);
    }
    return stepped;
}

double round_below(double value)
{
    const double power = std::pow(10, std::floor(std::log10(value) + 1e-9));
    for (const double factor : {5, 2})
        if (factor * power <= value * (1 + 1e-9)) return factor * power;
    return power;
}

std::vector<double> round_ticks(double lo, double hi, int count)
{
    double step = round_below((hi - lo) / count);
    if (!(hi > lo) || !std::isfinite(lo / step) || !std::isfinite(hi / step)) return {lo};
    while ((hi - lo) / step > 1.3 * count)
        step = round_below(step * 2.51);
    std::vector<double> ticks;
    const double first = std::ceil(lo / step - 1e-9), last = std::floor(hi / step + 1e-9);
    for (int i = 0; i <= last - first; ++i)
        ticks.push_back(first + i == 0 ? 0 : (first + i) * step);
    return ticks;
}

// In so many digits, and without an exponent where the number isn't long either way.
static std::string in_digits(double value, int digits)
{
    const double size = std::abs(value);
    if (size >= 1 && size < 1e9) digits = std::max(digits, static_cast<int>(std::log10(size)) + 1);
    char text[40];
    snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

std::vector<std::string> tick_texts(const std::vector<double> &values)
{
    std::vector<std::string> texts;
    for (int digits = 4; digits <= 15; ++digits) {
        texts.clear();
        bool apart = true;
        for (const double value : values) {
            const std::string text = in_digits(value, digits);
            apart = apart && (texts.empty() || texts.back() != text);
            // a value that was asked for is shown as it was given
            apart = apart &&
                    (digits > 6 || std::abs(strtod(text.c_str(), nullptr) - value) <= 1e-9 * std::abs(value));
            texts.push_back(text);
        }
        if (apart) break;
    }
    return texts;
}

std::vector<std::string> wrapped(const std::string &title, size_t width)
{
    std::vector<std::string> lines = {""};
    for (size_t from = 0; from < title.size();) {
        const size_t stop = title.find_first_of(" _-:/", from);
        const size_t end = stop == std::string::npos ? title.size() : stop + 1;
        const std::string word = title.substr(from, end - from);
        if (!lines.back().empty() && lines.back().size() + word.size() > width) lines.emplace_back();
        lines.back() += word;
        from = end;
    }
    return lines;
}
