// Every set of real data through every command: figures.txt has what came out when it was last looked at.
#include "support.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// A line of figures.txt: arguments, "=>" and what the command tells of the result, without the file's name. FILE
// stands for a set of real data where it is the first argument but the command; OUT.x for a result.
struct figure {
    std::string file;
    std::vector<std::string> arguments;
    std::string told;
};

figure figure_of(const std::string &line)
{
    figure out;
    const size_t arrow = line.find(" => ");
    std::istringstream words(line.substr(0, arrow));
    out.told = line.substr(arrow + 4);
    for (std::string word; words >> word;) {
        for (char &c : word)
            if (c == '~') c = ' '; // in names of arrays
        out.arguments.push_back(word.compare(0, 4, "OUT.") == 0 ? scratch("figure" + word.substr(3)) : word);
    }
    out.file = out.arguments[1];
    return out;
}

TEST(Figures, OfRealDataAreWhatTheyWere)
{
    int seen = 0;
    for (const std::string &line : figures()) {
        figure one = figure_of(line);
        const std::string path = real_data(one.file);
        if (path.empty()) continue;
        ++seen;
        one.arguments[1] = path;
        const ran result = run(one.arguments);
        EXPECT_EQ(result.code, 0) << line << "\n" << shown(result);
        const std::string told = result.out.substr(0, result.out.find('\n'));
        const size_t name = told.find(": ");
        EXPECT_EQ(name == std::string::npos ? told : told.substr(name + 2), one.told) << line;
    }
    if (seen == 0) GTEST_SKIP() << "no real data is here";
}

} // namespace
