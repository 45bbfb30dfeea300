// Lists from malloc with an owner.
#pragma once

#include "mod_util/fresh_pages.hpp"

#include <skoklana/types.h>

#include <cstdlib>
#include <memory>

struct list_release {
    void operator()(void *list) const { free(list); }
};
template <typename T> using list_of = std::unique_ptr<T[], list_release>;

// count elements, at least one byte, so that null always means that there is no memory; not zeroed.
template <typename T> list_of<T> allocate_list(qx_long count)
{
    size_t bytes;
    if (count < 0 || __builtin_mul_overflow(static_cast<size_t>(count), sizeof(T), &bytes)) return nullptr;
    list_of<T> list(static_cast<T *>(malloc(bytes > 0 ? bytes : 1)));
    if (list != nullptr) expect_to_fill(list.get(), static_cast<qx_long>(bytes));
    return list;
}
