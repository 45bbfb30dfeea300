// What the host's own operations ask of progress and interruption.
#pragma once

// Reports that done of total has been worked through. True: the program asks to stop.
bool is_stopped(long long done, long long total, const char *message);

// Whether a status check of this thread has been told to stop since the last call of forget_stops: of an operation
// that has failed it tells why.
bool was_told_to_stop();
void forget_stops();
