// Ctrl-C comes at any time. In an operation of the library the handler only raises the host's flag, and the
// operation gives up at its next status check and cleans up. Elsewhere, in VTK's readers, writers and renderer,
// nothing looks at a flag: the handler removes the file that is being written and ends the program. mpirun takes Ctrl-C
// itself and ends its processes by SIGTERM, without a word: the first of them has it.
#include "progress.hpp"

#include "crash_guard.hpp"
#include "failure.hpp"
#include "process_group.hpp"

#include <skoklana/host/om.h>
#include <skoklana_host.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <unistd.h>

// Handlers of signals look at these; any thread may be the one that runs them.
static std::atomic<bool> in_operation, stop_asked;

// Files that are being written, of which the handler removes those whose name is set. Entries stay for good and are
// used again.
namespace {

struct partial_entry {
    std::atomic<const char *> path;
    partial_entry *next;
};

} // namespace

static std::atomic<partial_entry *> partial_entries;

static void remove_partial_files()
{
    for (partial_entry *entry = partial_entries; entry != nullptr; entry = entry->next)
        if (const char *path = entry->path.exchange(nullptr)) unlink(path);
}

// Status checks may come from several threads.
static std::mutex bar_mutex; // of all below
static const char *bar_title;
static int bar_percent = -1; // shown now; -1: no bar on the screen
static bool bar_wanted;

static void on_signal(int number)
{
    if (number == SIGINT && in_operation && !stop_asked.exchange(true)) {
        host_interrupt();
        return;
    }
    remove_partial_files();
    static const char message[] = "skoklana: stopped\n";
    if (processes::is_first() && write(crash_guard::user_stream(), message, sizeof message - 1) > 0 &&
        processes::by_launcher()) {
        const timespec moment = {0, 200000000}; // mpirun passes nothing on once all have ended
        nanosleep(&moment, nullptr);
    }
    _exit(128 + number);
}

static int show_progress(void *, int percent, const char *)
{
    const std::lock_guard<std::mutex> lock(bar_mutex);
    if (!bar_wanted || bar_title == nullptr || percent == bar_percent) return 0;
    const int width = 30, done = percent * width / 100;
    fprintf(stderr, "\r%s [%.*s%.*s] %3d %%", bar_title, done, "##############################", width - done,
            "                              ", percent);
    fflush(stderr);
    bar_percent = percent;
    return 0;
}

static void keep_report(void *, const char *, int, const char *) {} // host_last_report keeps them

void start_progress(bool bar)
{
    {
        const std::lock_guard<std::mutex> lock(bar_mutex);
        bar_wanted = bar && isatty(STDERR_FILENO) != 0;
    }
    host_set_error_handler(keep_report, nullptr);
    host_set_progress_handler(show_progress, nullptr);
    struct sigaction action = {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGQUIT, SIGPIPE})
        sigaction(number, &action, nullptr);
    struct sigaction before; // nohup has it ignored
    if (sigaction(SIGHUP, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
        sigaction(SIGHUP, &action, nullptr);
    signal(SIGXFSZ, SIG_IGN); // a limit on file sizes is then an error of the write
}

// Whoever ends the program by exit, as MPI does where it has lost mpirun, is not told of the files.
void end_with_parent()
{
    constexpr auto pause = std::chrono::milliseconds(50);
    atexit(remove_partial_files);
    sigset_t all, before; // signals are for the other threads
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread([parent = getppid(), pause] {
            while (getppid() == parent)
                std::this_thread::sleep_for(pause);
            remove_partial_files();
            _exit(exit_failed);
        }).detach();
    } catch (const std::system_error &) { // no thread to be had: MPI ends the process, later
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

status_part::status_part(int i, int n)
{
    OMpush_status_range(100 * i / n, 100 * (i + 1) / n);
}

status_part::~status_part()
{
    OMpop_status_range();
}

void stop_if_asked()
{
    if (stop_asked) throw interrupted();
}

static void set_bar(const char *title)
{
    const std::lock_guard<std::mutex> lock(bar_mutex);
    if (bar_percent >= 0) fputs("\r\033[K", stderr);
    bar_percent = -1;
    bar_title = title;
}

operation::operation(const char *title)
{
    set_bar(title);
    host_clear_reports();
    errno = 0;
    in_operation = true;
}

operation::~operation()
{
    in_operation = false;
    set_bar(nullptr);
}

void operation::check(bool succeeded, const std::string &what) const
{
    stop_if_asked();
    if (succeeded) return;
    const bool no_memory = errno == ENOMEM;
    const char *module, *message;
    if (host_last_report(0, &module, &message) != 0) {
        // "realloc for cell list failed" and so on
        if (strstr(message, "alloc") != nullptr) throw std::bad_alloc();
        throw failure(what + " failed: " + module + ": " + message);
    }
    if (no_memory) throw std::bad_alloc();
    throw failure(what + " failed without a report");
}

partial_file::partial_file(const std::string &path_) : path(path_)
{
    partial_entry *entry = partial_entries;
    while (entry != nullptr && entry->path != nullptr)
        entry = entry->next;
    if (entry == nullptr) {
        entry = new partial_entry{{nullptr}, partial_entries};
        partial_entries = entry;
    }
    entry->path = path.c_str();
    place = entry;
}

partial_file::~partial_file()
{
    if (static_cast<partial_entry *>(place)->path.exchange(nullptr) != nullptr) unlink(path.c_str());
}
