// The limit is on the program's own writable memory: address space alone, which drivers and threads reserve by
// the gigabyte, costs nothing.
#include "memory_limit.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/resource.h>

// The number behind a name in a file of the system, or nothing_said.
static const size_t nothing_said = static_cast<size_t>(-1);

static size_t number_in(const char *path, const char *name)
{
    FILE *file = fopen(path, "re");
    if (file == nullptr) return nothing_said;
    char line[256];
    size_t value = nothing_said;
    while (value == nothing_said && fgets(line, sizeof line, file) != nullptr)
        if (strncmp(line, name, strlen(name)) == 0) sscanf(line + strlen(name), "%zu", &value);
    fclose(file);
    return value;
}

size_t free_memory()
{
    const size_t kilobytes = number_in("/proc/meminfo", "MemAvailable:");
    if (kilobytes == nothing_said) return 0;
    size_t bytes = kilobytes * 1024;
    // a container may have less
    const size_t most = number_in("/sys/fs/cgroup/memory.max", "");
    const size_t used = number_in("/sys/fs/cgroup/memory.current", "");
    if (most != nothing_said && used != nothing_said) bytes = std::min(bytes, most > used ? most - used : 0);
    return bytes;
}

void limit_memory()
{
    const size_t room = free_memory(), kilobytes = number_in("/proc/self/status", "VmData:");
    rlimit limit;
    if (room == 0 || kilobytes == nothing_said || getrlimit(RLIMIT_DATA, &limit) != 0) return;
    const rlim_t most = kilobytes * 1024 + room;
    if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur <= most) return;
    limit.rlim_cur = most;
    setrlimit(RLIMIT_DATA, &limit);
}
