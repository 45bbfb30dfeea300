// Results as Markdown tables and as JSON.
#pragma once

#include "measure.hpp"

#include <ostream>
#include <string>
#include <vector>

namespace bench {

struct growth {
    std::string name;
    std::vector<std::string> sizes;
    std::vector<double> elements;
    std::vector<result> results; // one a size
};

struct report {
    machine on;
    std::vector<result> results;
    std::vector<growth> growths;
};

void write_markdown(std::ostream &out, const report &of);
void write_json(std::ostream &out, const report &of);

} // namespace bench
