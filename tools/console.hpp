// What the user is told while a command works.
#pragma once

#include <string>
#include <vector>

// From now on only errors.
void be_quiet();

// A line on standard output, unless the user wants quiet.
__attribute__((format(printf, 1, 2))) void say(const char *format, ...);
// "note: ..." on standard error, unless the user wants quiet.
void say_note(const std::string &note);
void say_notes(const std::vector<std::string> &notes);

// The command's work is timed in stages: one ends here and the next begins.
void start_clock();
void stage_done(const char *stage);
void print_stages();

// In six digits.
std::string in_words(double value);
