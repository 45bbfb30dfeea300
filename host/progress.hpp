// What the host's own operations ask of progress and interruption.
#pragma once

// Reports that done of total has been worked through. True: the program asks to stop.
bool is_stopped(long long done, long long total, const char *message);

// What became of an operation of the library that is run while this stands.
class operation_watch {
  public:
    operation_watch();
    // The result of a host call whose operation has failed: HOST_STOPPED if it was told to stop; else HOST_FAILED, with
    // the operation's report as the error's text, or want of memory where there is none.
    int failed(const char *call) const;
    // Some operations give success after a stop too.
    bool was_stopped() const;

  private:
    unsigned reports_before;
};
