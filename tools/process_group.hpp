// The processes that mpirun started together.
//
// Without mpirun there is one process, MPI is never initialised, and all below gives at once what a group of one
// would. Under it every function marked "all" is called by every process, in the same order: the others wait.
//
// What goes wrong in one process goes wrong in all: work that may throw in one of them alone is done within agree,
// after which all throw the same or none does. A failure that escapes all the same ends the whole group at once
// (give_up), so that nobody waits for ever; so does a process that dies, by mpirun.
#pragma once

#include <vtkSmartPointer.h>

#include <bitset>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class vtkDataSet;

// Processors by their numbers. A process's share of those that it may run on, which others may run on, too: at least 1.
using processor_set = std::bitset<1024>;
int share_of_processors(const std::vector<processor_set> &allowed, size_t process);

namespace processes {

// Joins the group where mpirun started the program; first of all, before the arguments are looked at. Those that
// are not the first process print nothing from then on but through give_up.
void start(int *argc, char ***argv);
// Leaves the group; all.
void finish();

int rank(); // from 0
int size();
int processors(); // for threads of this process: its share of those that it may run on
// The mark of the first process for names of files that all know (leftovers.hpp).
const std::string &mark();
inline bool several()
{
    return size() > 1;
}
bool by_launcher(); // mpirun or the like started this process, if only one
inline bool is_first()
{
    return rank() == 0;
}

// Sums and so on over the group; all.
int64_t sum(int64_t value);
double sum(double value); // in the order of the processes, so that it is the same each time
double least(double value);
double greatest(double value);
bool any(bool value);

// What each process has, in the order of the processes; all. Texts may hold any bytes.
std::vector<std::string> all_of(const std::string &text);
// What one process has; all.
std::string text_of(int from, const std::string &text);

// Moves data sets of any kind; all. With nullptr nothing is moved, and nullptr comes.
vtkSmartPointer<vtkDataSet> move(vtkDataSet *data, int from, int to);
// Texts, for messages between two: one sends, the other receives.
void send(const std::string &text, int to);
std::string receive(int from);

// Does the work, which calls nothing marked "all" itself; all. Where it throws failure, interrupted or out of memory
// in any process, all throw that of the lowest one.
void agree(const std::function<void()> &work);

// Bytes that this process sent to others, for benchmarks.
int64_t bytes_sent();

// Ends the program with the code, and the message on standard error once for the whole group.
[[noreturn]] void give_up(const std::string &message, int code);

} // namespace processes
