// Files of runs that were killed.
//
// What is being written has a name of its own beside its place, with the number of the process that writes it and with
// what the system's numbers of processes are unique within: a start of a machine, or a container on it. Whoever finds
// such a file there, and no process of that number, knows that nobody goes on writing it.
#pragma once

#include <string>

// Of this process, for names of files: "4711-9a3cf012"; only the number where the rest cannot be found out.
std::string mark_of_process();

// The name of a file beside the one that the path stands for, with a mark.
std::string name_with_mark(const std::string &path, const std::string &mark);

// Removes what runs of this machine left beside the path, and beside the pieces of a list (.pvtp and so on), whose
// process is gone.
void remove_leftovers(const std::string &path);
