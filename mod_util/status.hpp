// Progress and interruption: the cadence of status checks and paired ranges.
#pragma once

#include <skoklana/host/om.h>

#include <skoklana/types.h>

#include <algorithm>

// Loops over cells and points check before item 256 and before every 257th from there.
constexpr int items_between_checks = 257;

// Says when a loop's status check is due. The counter is tested before it moves: with a period of 256 the
// checks come in the passes 256, 513, 770 and so on, every 257th.
struct status_cadence {
    int period;
    int counter = 0;

    explicit status_cadence(int checks_every) : period(checks_every) {}

    bool due()
    {
        if (counter == period) {
            counter = 0;
            return true;
        }
        ++counter;
        return false;
    }
};

// The item before which a loop over count items checks next, done of them being done; count: before none.
inline qx_long next_status_check(qx_long done, qx_long count)
{
    return std::min(count, done + (done == 0 ? 256 : items_between_checks));
}

// One status check; true: the user has asked to stop.
inline bool interrupted(int percent, const char *message = nullptr)
{
    int stop = 0;
    OMstatus_check(percent, message, &stop);
    return stop != 0;
}

// A status range from construction to the end of the scope.
struct status_range {
    status_range(int low, int high) { OMpush_status_range(low, high); }
    status_range(const status_range &) = delete;
    status_range &operator=(const status_range &) = delete;
    ~status_range() { OMpop_status_range(); }
};
