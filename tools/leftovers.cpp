#include "leftovers.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const char *const digits = "0123456789", *const part = ".part";

// Empty: the system does not tell.
std::string where_numbers_are_unique()
{
    char numbers[100] = "", start[100] = "";
    if (readlink("/proc/self/ns/pid", numbers, sizeof numbers - 1) <= 0) return "";
    std::ifstream("/proc/sys/kernel/random/boot_id").getline(start, sizeof start);
    if (*start == '\0') return "";
    uint32_t hash = 2166136261U; // FNV-1a
    for (const char *text : {static_cast<const char *>(numbers), static_cast<const char *>(start)})
        for (; *text != '\0'; ++text)
            hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619U;
    char name[16];
    snprintf(name, sizeof name, "-%08x", hash);
    return name;
}

// Takes digits off; false: there are none.
bool skip_number(std::string *text)
{
    const size_t end = std::min(text->find_first_not_of(digits), text->size());
    text->erase(0, end);
    return end > 0;
}

bool is_gone(const std::string &number)
{
    char *end;
    errno = 0;
    const long process = strtol(number.c_str(), &end, 10);
    return errno == 0 && process > 0 && kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH;
}

// Whether the name is one with the mark of a process that is gone, beside target or a piece of it.
bool is_leftover(const std::string &name, const fs::path &target, const std::string &where)
{
    const std::string start = "." + target.stem().string();
    std::string ending = target.extension().string();
    if (name.compare(0, start.size(), start) != 0) return false;
    std::string rest = name.substr(start.size());
    if (rest[0] == '_' && ending.compare(0, 2, ".p") == 0) { // of a piece
        rest.erase(0, 1);
        ending.erase(1, 1);
        if (!skip_number(&rest)) return false;
    }
    if (rest.compare(0, strlen(part), part) != 0) return false;
    rest.erase(0, strlen(part));
    const std::string number = rest;
    return skip_number(&rest) && rest == where + ending && is_gone(number);
}

} // namespace

std::string mark_of_process()
{
    return std::to_string(getpid()) + where_numbers_are_unique();
}

std::string name_with_mark(const std::string &path, const std::string &mark)
{
    const fs::path target(path);
    // the ending stays last: some writers go by it
    const std::string name = "." + target.stem().string() + part + mark + target.extension().string();
    return ((target.has_parent_path() ? target.parent_path() : fs::path(".")) / name).string();
}

void remove_leftovers(const std::string &path)
{
    const fs::path target(path);
    const std::string where = where_numbers_are_unique();
    if (where.empty()) return;
    std::error_code code;
    fs::directory_iterator entry(target.has_parent_path() ? target.parent_path() : fs::path("."), code);
    for (; !code && entry != fs::directory_iterator(); entry.increment(code)) {
        std::error_code not_removed; // by us: somebody may be about to
        if (is_leftover(entry->path().filename().string(), target, where))
            fs::remove(entry->path(), not_removed);
    }
}
