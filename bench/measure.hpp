// The machine's own figures, and a case's contenders run, checked and timed.
#pragma once

#include "bench.hpp"

#include <string>
#include <vector>

namespace bench {

struct machine {
    std::string processor, compiler, flags, vtk, commit;
    int threads = 1;
    double read_rate = 0, copy_rate = 0; // bytes a second of one thread; a copied byte counts once
};

// bytes: of the array that is read and copied.
machine measure_machine(size_t bytes);
void pin_to_one_processor();

struct timing {
    std::string name;
    role as = role::ours;
    double aim = 0;
    std::vector<double> seconds;
    int64_t nodes = -1, cells = -1;
    int64_t memory = -1; // peak resident bytes over what was there before
    struct deviation {
        std::string what;
        double share; // of the largest of our figures
    };
    std::vector<deviation> apart; // from ours; empty: nothing to compare

    double median() const;
    double least() const;
};

struct result {
    std::string family, name, size;
    std::vector<timing> timings; // as the case's contenders
    double read_bytes = 0, written_bytes = 0;
    bool kernel = false;
    std::string disagreement; // empty: outputs agree

    const timing &ours() const { return timings[0]; }
    // Peers, the fastest first.
    std::vector<const timing *> peers() const;
    // Seconds that the machine needs to move the bytes: what is read and written is copied, the rest read.
    double floor(const machine &on) const;
};

// Timed runs of each contender: at least so many, and more up to the most while the case has taken less than
// the seconds.
struct patience {
    int least, most;
    double seconds;
};

result run_case(const bench_case &about, const patience &with, int threads);

} // namespace bench
