#include "touchstone.hpp"

#include "failure.hpp"
#include "write.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

enum class number_format { real_imaginary, magnitude_angle, decibel_angle };

constexpr double pi = 3.14159265358979323846;

struct option_line {
    double hertz = 1e9; // of the unit of frequency
    number_format format = number_format::magnitude_angle;
    double resistance = 50;
};

std::string in_capitals(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

bool is_number(const std::string &text, double *value)
{
    char *end;
    *value = strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(*value);
}

class touchstone_reader {
  public:
    explicit touchstone_reader(const std::string &from) : path(from) {}

    reflection_curve read()
    {
        check_ports();
        std::ifstream file(path);
        if (!file) throw failure(path + ": cannot be read: " + strerror(errno));
        for (std::string line; std::getline(file, line);) {
            ++number;
            if (line.find('\0') != std::string::npos) fail("is no text");
            line.resize(std::min(line.size(), line.find('!')));
            take(line);
        }
        if (file.bad()) throw failure(path + ": cannot be read");
        if (curve.samples.empty())
            throw failure(path + ": has no data; a line is a frequency and two numbers");
        curve.resistance = options.resistance;
        return curve;
    }

  private:
    [[noreturn]] void fail(const std::string &what) const
    {
        throw failure(path + ", line " + std::to_string(number) + ": " + what);
    }

    // The ending tells how many ports a file is of: .s2p of two.
    void check_ports() const
    {
        const size_t dot = path.rfind('.');
        const std::string ending = dot == std::string::npos ? "" : in_capitals(path.substr(dot + 1));
        if (ending.size() < 3 || ending.front() != 'S' || ending.back() != 'P') return;
        const std::string ports = ending.substr(1, ending.size() - 2);
        if (ports.find_first_not_of("0123456789") == std::string::npos && ports != "1")
            throw failure(path + ": is of " + ports + " ports; a reflection curve is of one, a .s1p file");
    }

    void take(const std::string &line)
    {
        std::istringstream words(line);
        std::string word;
        if (!(words >> word)) return;
        if (word.front() == '[')
            fail("is of version 2 (" + word + "); files of version 1, without such words, are read");
        if (word.front() == '#')
            take_options(line.substr(line.find('#') + 1));
        else
            take_data(line);
    }

    void take_options(const std::string &text)
    {
        if (has_options) return; // only the first one counts
        has_options = true;
        std::istringstream words(in_capitals(text));
        for (std::string word; words >> word;) {
            if (word == "HZ" || word == "KHZ" || word == "MHZ" || word == "GHZ")
                options.hertz = word == "HZ" ? 1 : word == "KHZ" ? 1e3 : word == "MHZ" ? 1e6 : 1e9;
            else if (word == "Y" || word == "Z" || word == "H" || word == "G")
                fail("has " + word + " parameters; the chart is of S parameters, reflection coefficients");
            else if (word == "RI" || word == "MA" || word == "DB")
                options.format = word == "RI"   ? number_format::real_imaginary
                                 : word == "MA" ? number_format::magnitude_angle
                                                : number_format::decibel_angle;
            else if (word == "R") {
                if (!(words >> word) || !is_number(word, &options.resistance) || !(options.resistance > 0))
                    fail("R is followed by the reference resistance in ohms, a number above 0");
            } else if (word != "S")
                fail("knows no " + word + "; such a line is # HZ|KHZ|MHZ|GHZ S RI|MA|DB R ohms");
        }
    }

    void take_data(const std::string &line)
    {
        std::istringstream words(line);
        std::vector<double> row;
        for (std::string word; words >> word;) {
            double value;
            if (!is_number(word, &value)) fail(word + " is no number");
            row.push_back(value);
        }
        if (row.size() != 3)
            fail("has " + std::to_string(row.size()) +
                 " numbers; a line of one port has three: frequency and coefficient");
        reflection_sample sample = {row[0] * options.hertz, row[1], row[2]};
        if (options.format != number_format::real_imaginary) {
            const double size =
                options.format == number_format::decibel_angle ? std::pow(10, row[1] / 20) : row[1];
            sample.real = size * std::cos(row[2] * pi / 180);
            sample.imaginary = size * std::sin(row[2] * pi / 180);
        }
        if (!curve.samples.empty() && !(sample.frequency > curve.samples.back().frequency))
            fail("is of a frequency that is not above the one before");
        curve.samples.push_back(sample);
    }

    std::string path;
    size_t number = 0;
    option_line options;
    bool has_options = false;
    reflection_curve curve;
};

} // namespace

reflection_curve read_touchstone(const std::string &path)
{
    note_input(path);
    return touchstone_reader(path).read();
}
