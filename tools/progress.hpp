// The progress bar, Ctrl-C, and the library's reports. Safe with operations that use several threads.
#pragma once

#include <string>

// Takes over the host's reports and Ctrl-C. bar: show one where standard error is a terminal.
void start_progress(bool bar);

// Ends the program soon after the one that started it has gone, without a word: files that are being written are removed.
void end_with_parent();

// Shares out the percentages of one operation that takes several calls of the library: call i of n.
struct status_part {
    status_part(int i, int n);
    ~status_part();
};

// While one lives, Ctrl-C asks the library to stop at its next status check; otherwise it ends the program at
// once. title stands before the bar. One at a time.
class operation {
  public:
    explicit operation(const char *title);
    ~operation();

    // Throws interrupted if Ctrl-C was pressed, and failure with the library's last report if succeeded is
    // false. what: the file and what was tried.
    void check(bool succeeded, const std::string &what) const;
};

// Throws interrupted if Ctrl-C was pressed in an operation, after its last look at the flag.
void stop_if_asked();

// A file that is being written: removed with the record, and if Ctrl-C ends the program. Of one thread.
class partial_file {
  public:
    explicit partial_file(const std::string &path);
    ~partial_file();
    partial_file(const partial_file &) = delete;
    partial_file &operator=(const partial_file &) = delete;

  private:
    std::string path;
    void *place; // in the list of them all
};
