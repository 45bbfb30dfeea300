// Some of VTK's readers, and the libraries under them, follow the numbers in a damaged file out of their arrays,
// divide by a zero from it, or call exit. Nothing can be saved then, but the user should learn which file it was,
// and nothing of what they print themselves on the way.
#include "crash_guard.hpp"

#include "failure.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

static const int crashes[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

static char message[1024];
static volatile sig_atomic_t guarding;
static volatile sig_atomic_t standard_error = -1; // while the readers' own goes nowhere

static void give_up()
{
    if (guarding == 0) return;
    guarding = 0;
    if (write(standard_error, message, strlen(message)) < 0) _exit(exit_failed); // nowhere to tell it
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
    fflush(stderr);
    standard_error = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0 && standard_error >= 0) dup2(nowhere, STDERR_FILENO);
    if (nowhere >= 0) close(nowhere);
    guarding = 1;
    for (const int number : crashes)
        signal(number, on_crash);
}

crash_guard::~crash_guard()
{
    guarding = 0;
    for (const int number : crashes)
        signal(number, SIG_DFL);
    fflush(stderr);
    const int kept = standard_error;
    if (kept < 0) return;
    dup2(kept, STDERR_FILENO);
    standard_error = -1; // from here on a handler of signals has no use for it
    close(kept);
}

int crash_guard::user_stream()
{
    const int kept = standard_error;
    return kept >= 0 ? kept : STDERR_FILENO;
}
