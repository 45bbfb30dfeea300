// The named functions that were handed over, looked up by name.
#pragma once

// The function of a name; null: there is none.
void (*find_named_func(const char *name))(void);

// How often a table could not be taken for lack of memory.
int refused_tables();
