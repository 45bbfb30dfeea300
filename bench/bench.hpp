// Cases that time our operation and the peers' on the same inputs in the same run.
//
// A contender's run() does the operation once and keeps what it made; only the call is timed, the release is
// not. Contenders of a case take turns, A B C A B C, so that a drift of the machine's speed meets all alike.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// What a run made, for checking contenders against each other before they are timed.
struct made {
    int64_t nodes = -1; // -1: does not apply
    int64_t cells = -1;
    std::shared_ptr<void> kept;      // released after the clock has stopped
    std::function<double()> measure; // area, length or sum; called once, outside the clock
};

struct contender {
    std::string name;
    std::function<made()> run;
    // What must agree with the first contender: counts exactly, the measure within this share.
    bool same_cells = true;
    double measure_within = 1e-4;
};

struct bench_case {
    std::string family, name, size;
    std::vector<contender> ours;  // the first is the one that ratios are taken of
    std::vector<contender> peers; // may be empty
    double floor_bytes = 0;       // that must move at least, counted where the case is made
    double aim = 0;               // peer's time over ours that is aimed at; 0: none
    std::string remark;           // what stands in the way where the aim is missed
};

// Makes its input when asked, so that one case's input is in memory at a time.
struct entry {
    std::string family, name;
    bool quick; // part of the quick run
    std::function<bench_case()> prepare;
};

using suite = std::vector<entry>;

void add_isosurface(suite &all);
void add_isoline(suite &all);
void add_sampling(suite &all);
void add_threshold(suite &all);

// Growth of one operation: the same case in doubling sizes.
struct growth_entry {
    std::string name;
    std::vector<std::string> sizes;
    std::function<bench_case(int)> prepare; // by position in sizes
    std::vector<double> elements;           // what the exponent is taken over
};

void add_growth(std::vector<growth_entry> &all);
void add_sampling_growth(std::vector<growth_entry> &all); // called by add_growth

} // namespace bench
