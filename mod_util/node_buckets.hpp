// Entries in buckets by node: what the faces and edges of a cell list are matched in.
//
// A key of several nodes goes into the bucket of its lowest one, so no hash function is needed: a bucket holds no
// more than the faces or edges around a node. Newest entries stand first. Entries are small records that hold
// their own link, in one array; those that were taken out are used again before fresh ones, so that the array
// holds at most the current boundary and stays in the caches however many cells are walked.
#pragma once

#include <skoklana/types.h>

#include <cstdint>
#include <cstdlib>

// Entry: a record with a uint32_t next. Entry 0 stands for none.
template <typename Entry> struct node_buckets {
    uint32_t *head = nullptr; // by node
    Entry *entry = nullptr;
    qx_long nnodes = 0;
    qx_long capacity = 0; // entries, 0 included
    qx_long fresh = 1;    // the next one never used
    uint32_t freed = 0;   // the one last taken out
    qx_long count = 0;    // entries in buckets

    node_buckets() = default;
    node_buckets(const node_buckets &) = delete;
    node_buckets &operator=(const node_buckets &) = delete;
    ~node_buckets()
    {
        free(head);
        free(entry);
    }

    bool open(qx_long nodes, qx_long ncells)
    {
        nnodes = nodes;
        head = static_cast<uint32_t *>(calloc(static_cast<size_t>(nodes > 0 ? nodes : 0) + 1, sizeof *head));
        return head != nullptr && resize(ncells > 100000 ? 4000 : ncells > 10000 ? 2000 : 1000);
    }

    // The link that holds the entry looked for, or the one that ends the bucket: link 0.
    template <typename Same> uint32_t *find(qx_long node, Same same)
    {
        uint32_t *link = &head[node];
        while (*link != 0 && !same(entry[*link]))
            link = &entry[*link].next;
        return link;
    }

    // A record at the front of the bucket, to be filled but for its link; null: no memory.
    Entry *add(qx_long node)
    {
        uint32_t number = freed;
        if (number != 0) {
            freed = entry[number].next;
        } else {
            if (fresh == capacity && !resize(capacity + capacity / 2)) return nullptr;
            number = static_cast<uint32_t>(fresh++);
        }
        entry[number].next = head[node];
        head[node] = number;
        ++count;
        return &entry[number];
    }

    void remove(uint32_t *link)
    {
        const uint32_t number = *link;
        *link = entry[number].next;
        entry[number].next = freed;
        freed = number;
        --count;
    }

    // Asks for what a walk over rows of node numbers will come to: the heads of a row some way ahead, and the
    // newest entries of one half as far, whose heads are there by then.
    void ask_ahead(const qx_long *connect, int stride, qx_long row, qx_long nrows) const
    {
        constexpr qx_long rows_ahead = 16;
        if (row + rows_ahead >= nrows) return;
        const qx_long *far = connect + (row + rows_ahead) * stride;
        const qx_long *near = connect + (row + rows_ahead / 2) * stride;
        for (int n = 0; n < stride; ++n) {
            __builtin_prefetch(&head[far[n]], 1);
            __builtin_prefetch(&entry[head[near[n]]], 1);
        }
    }

    // Calls body(node, entry) for all entries, by ascending node, the newest of a node first.
    template <typename Body> void for_each(Body body) const
    {
        for (qx_long node = 0; node <= nnodes; ++node)
            for (uint32_t number = head[node]; number != 0; number = entry[number].next)
                body(node, entry[number]);
    }

  private:
    bool resize(qx_long entries)
    {
        if (entries > UINT32_MAX) return false;
        void *block = realloc(entry, static_cast<size_t>(entries) * sizeof(Entry));
        if (block == nullptr) return false;
        entry = static_cast<Entry *>(block);
        capacity = entries;
        return true;
    }
};
