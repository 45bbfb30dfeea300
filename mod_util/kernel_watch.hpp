// What a driver learns of the kernels that it calls through the slots of a set.
//
// A kernel that fails releases what it was given, or does not, and its result does not tell. The slot may also
// hold a function of the host that hands on to a kernel of this library and makes what it likes of the result.
// So a driver watches its edge table for as long as such a call takes, and the library's kernels leave a mark on the
// watch of the table that they were given, whoever called them. Watches nest, as an extraction may be called
// from inside another's kernel; each thread has its own.
#pragma once

enum class kernel_failure {
    none,
    kept,    // everything is still the caller's
    released // the table and the flags are gone
};

class kernel_watch {
  public:
    // prepared: what the driver has at hand for kernels of its own kind; may be null.
    explicit kernel_watch(const void *table, const void *prepared = nullptr);
    ~kernel_watch();
    kernel_watch(const kernel_watch &) = delete;
    kernel_watch &operator=(const kernel_watch &) = delete;

    kernel_failure seen() const { return failure; }

    // Called by kernels: the table's innermost watch, where there is one, is told.
    static void mark(const void *table, kernel_failure what);

    // What the driver that watches a table has prepared; null: nothing, or nobody does.
    static const void *prepared_for(const void *table);

  private:
    const void *const watched, *const prepared;
    kernel_failure failure = kernel_failure::none;
    kernel_watch *const outer;

    static kernel_watch *of(const void *table);
};
