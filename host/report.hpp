// What was wrong with a host_ call, kept a thread for host_error.
#pragma once

// Records the text of a failure. Returns 0, so that a failing call can return it.
__attribute__((format(printf, 1, 2))) int host_fail(const char *format, ...);

// A report of an operation: kept, and handed to whom it goes to.
void take_report(const char *module, int severity, const char *message);
