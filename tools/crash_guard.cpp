// Some of VTK's readers, and the libraries under them, follow the numbers in a damaged file out of their arrays,
// divide by a zero from it, or call exit. Nothing can be saved then, but the user should learn which file it was.
#include "crash_guard.hpp"

#include "failure.hpp"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static const int crashes[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

static char message[1024];
static volatile sig_atomic_t guarding;

static void give_up()
{
    if (guarding == 0) return;
    guarding = 0;
    if (write(STDERR_FILENO, message, strlen(message)) < 0) _exit(exit_failed); // nowhere to tell it
    _exit(exit_failed);
}

static void on_crash(int number)
{
    give_up();
    signal(number, SIG_DFL); // a crash of our own
    raise(number);
}

crash_guard::crash_guard(const std::string &path)
{
    static const int registered = atexit(give_up);
    (void)registered;
    const std::string text =
        "skoklana: " + path.substr(0, 800) + ": is damaged: its reader crashed on what it holds\n";
    memcpy(message, text.c_str(), text.size() + 1);
    guarding = 1;
    for (const int number : crashes)
        signal(number, on_crash);
}

crash_guard::~crash_guard()
{
    guarding = 0;
    for (const int number : crashes)
        signal(number, SIG_DFL);
}
