#include "console.hpp"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

static bool quiet;
static std::chrono::steady_clock::time_point stage_start;
static std::vector<std::pair<const char *, double>> stages; // and their seconds

void be_quiet()
{
    quiet = true;
}

void say(const char *format, ...)
{
    if (quiet) return;
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    putchar('\n');
}

void say_note(const std::string &note)
{
    if (!quiet) fprintf(stderr, "note: %s\n", note.c_str());
}

void say_notes(const std::vector<std::string> &notes)
{
    for (const std::string &note : notes)
        say_note(note);
}

void start_clock()
{
    stage_start = std::chrono::steady_clock::now();
}

void stage_done(const char *stage)
{
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - stage_start).count();
    stage_start = now;
    for (auto &[name, sum] : stages)
        if (strcmp(name, stage) == 0) {
            sum += seconds;
            return;
        }
    stages.emplace_back(stage, seconds);
}

void print_stages()
{
    for (const auto &[stage, seconds] : stages)
        printf("%-9s %8.3f s\n", stage, seconds);
}

std::string in_words(double value)
{
    char text[40];
    snprintf(text, sizeof text, "%.6g", value);
    return text;
}
