#include "command.hpp"
#include "console.hpp"
#include "csv.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "plot.hpp"
#include "table.hpp"
#include "write.hpp"

#include <skoklana/measure.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace {

constexpr int most_degree = 20;

// A polynomial in t = (x - middle) / half, which runs from -1 to 1 over the samples.
struct fitted {
    double middle, half;
    std::vector<double> scaled; // in t, the constant term first

    double at(double x) const
    {
        const double t = (x - middle) / half;
        double value = 0;
        for (size_t k = scaled.size(); k-- > 0;)
            value = value * t + scaled[k];
        return value;
    }

    // In x: each power of t is a binomial.
    std::vector<double> coefficients() const
    {
        std::vector<double> out(scaled.size(), 0.0), power = {1};
        for (const double c : scaled) {
            for (size_t i = 0; i < power.size(); ++i)
                out[i] += c * power[i];
            std::vector<double> next(power.size() + 1, 0.0);
            for (size_t i = 0; i < power.size(); ++i) {
                next[i + 1] += power[i] / half;
                next[i] -= power[i] * middle / half;
            }
            power = next;
        }
        return out;
    }
};

class fit : public command {
  public:
    explicit fit(CLI::App &app);
    void run() override;

  private:
    std::vector<double> column(const text_table &from, const std::string &name) const;
    fitted fit_samples(const std::vector<double> &x, const std::vector<double> &y) const;
    void write(const std::vector<double> &coefs, double rms, double largest) const;

    std::string file, x_name, y_name, out, picture;
    int degree = 1;
};

fit::fit(CLI::App &app)
{
    app.add_option("FILE", file, "a table: .csv, or columns with blanks between")->required();
    app.add_option("--x", x_name, "the column of abscissae, by name or number")->required();
    app.add_option("--y", y_name, "the column of ordinates")->required();
    app.add_option("--degree,-d", degree, "of the polynomial, 0 to 20")
        ->required()
        ->check(CLI::Range(0, most_degree));
    app.add_option("--out,-o", out, "write the coefficients to this file, too: .csv or .json");
    app.add_option("--picture,-p", picture, "draw samples and curve into a .png file; needs no display");
    app.footer("Least squares, over abscissae brought to -1 to 1, in double. Coefficients are those of the "
               "powers of x.\n"
               "Rows in which one of the two is empty or no number are passed over.");
}

std::vector<double> fit::column(const text_table &from, const std::string &name) const
{
    size_t at =
        static_cast<size_t>(std::find(from.names.begin(), from.names.end(), name) - from.names.begin());
    if (at == from.names.size()) {
        char *end;
        const long number = strtol(name.c_str(), &end, 10);
        if (name.empty() || *end != '\0' || number < 1 || number > static_cast<long>(from.names.size())) {
            std::string names;
            for (const std::string &one : from.names)
                names += (names.empty() ? "" : ", ") + one;
            throw failure(file + ": has no column " + name + "; it has " + names);
        }
        at = static_cast<size_t>(number - 1);
    }
    std::vector<double> values;
    for (const auto &row : from.rows) {
        const std::string text = at < row.size() ? row[at] : "";
        char *end;
        const double value = strtod(text.c_str(), &end);
        values.push_back(text.empty() || *end != '\0' ? std::nan("") : value);
    }
    return values;
}

// The normal equations, solved and then once more for what is left of the residual.
fitted fit::fit_samples(const std::vector<double> &x, const std::vector<double> &y) const
{
    const auto [low, high] = std::minmax_element(x.begin(), x.end());
    fitted found = {*low + (*high - *low) / 2, (*high - *low) / 2, {}};
    if (!(found.half > 0)) found.half = 1; // all in one place: only a constant can be had
    const auto n = static_cast<size_t>(degree) + 1;
    found.scaled.assign(n, 0.0);
    for (int round = 0; round < 3; ++round) {
        std::vector<double> moments(2 * n, 0.0), a(n * n), b(n, 0.0), solution(n);
        std::vector<qx_long> perm(n);
        for (size_t i = 0; i < x.size(); ++i) {
            const double t = (x[i] - found.middle) / found.half, left = y[i] - found.at(x[i]);
            double power = 1;
            for (size_t k = 0; k < 2 * n; ++k, power *= t) {
                moments[k] += power;
                if (k < n) b[k] += left * power;
            }
        }
        const double count = static_cast<double>(x.size());
        for (size_t i = 0; i < n; ++i) {
            b[i] /= count;
            for (size_t j = 0; j < n; ++j)
                a[i * n + j] = moments[i + j] / count;
        }
        if (UTILgauss_solve(a.data(), b.data(), perm.data(), solution.data(), degree + 1, 1e-13) != 1)
            throw failure(file + ": these samples do not determine a polynomial of degree " +
                          std::to_string(degree) + "; give a lower one, or samples at more places");
        for (size_t i = 0; i < n; ++i)
            found.scaled[static_cast<size_t>(perm[i])] += solution[i];
    }
    return found;
}

void fit::write(const std::vector<double> &coefs, double rms, double largest) const
{
    if (out.empty()) return;
    table rows = {{"power", "coefficient"}, {}};
    for (size_t k = 0; k < coefs.size(); ++k)
        rows.rows.push_back({static_cast<int64_t>(k), coefs[k]});
    if (std::filesystem::path(out).extension() == ".csv") {
        write_text(out, as_csv(rows));
    } else {
        std::string list = as_json(rows);
        while (!list.empty() && list.back() == '\n')
            list.pop_back();
        const auto number = [](double v) { return std::isfinite(v) ? csv_number(v) : "null"; };
        write_text(out, "{\"degree\": " + std::to_string(degree) + ", \"rms\": " + number(rms) +
                            ", \"largest\": " + number(largest) + ", \"coefficients\": " + list + "}\n");
    }
    stage_done("write");
}

void fit::run()
{
    if (!out.empty()) check_ending(out, " .csv .json ", "a list of coefficients");
    if (!picture.empty()) check_ending(picture, " .png ", "a picture");
    const text_table from = read_text_table(file);
    std::vector<double> x = column(from, x_name), y = column(from, y_name);
    size_t kept = 0;
    for (size_t i = 0; i < x.size(); ++i)
        if (std::isfinite(x[i]) && std::isfinite(y[i])) {
            x[kept] = x[i];
            y[kept++] = y[i];
        }
    if (kept < x.size()) say_note(std::to_string(x.size() - kept) + " rows without a number passed over");
    x.resize(kept);
    y.resize(kept);
    if (kept == 0) throw failure(file + ": no row has a number in both columns");
    stage_done("read");

    const fitted found = fit_samples(x, y);
    double square = 0, largest = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        const double left = y[i] - found.at(x[i]);
        square += left * left;
        largest = std::max(largest, std::fabs(left));
    }
    const double rms = std::sqrt(square / static_cast<double>(x.size()));
    const std::vector<double> coefs = found.coefficients();
    stage_done("compute");

    table shown = {{"power", "coefficient"}, {}};
    for (size_t k = 0; k < coefs.size(); ++k)
        shown.rows.push_back({static_cast<int64_t>(k), coefs[k]});
    say("%s", as_text(shown).c_str());
    say("%zu samples; residual %s (root of the mean square), %s at most", x.size(), in_words(rms).c_str(),
        in_words(largest).c_str());
    write(coefs, rms, largest);
    if (picture.empty()) return;
    plot what = {x_name, y_name, x, y, {}, {}};
    const auto [low, high] = std::minmax_element(x.begin(), x.end());
    for (int i = 0; i <= 400; ++i) {
        what.curve_x.push_back(*low + (*high - *low) * i / 400);
        what.curve_y.push_back(found.at(what.curve_x.back()));
    }
    write_plot(picture, what);
    stage_done("picture");
}

} // namespace

extern const command_entry fit_command{"fit", "Fits a polynomial to two columns of a table",
                                       make_command<fit>};
