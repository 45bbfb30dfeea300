// The two ways in which operations report a failure. Which one an operation uses is part of its contract.
#pragma once

#include <skoklana/host/tool.h>

#include <cstdarg>
#include <cstdio>

// Through the host's error service.
inline void report_error(const char *module, const char *message)
{
    ERRerror(module, 0, 2, message);
}

// As a line on the standard error stream; the text brings its own newline.
__attribute__((format(printf, 1, 2))) inline void print_error(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
}
