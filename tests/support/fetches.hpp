// Fetch functions of a mesh that fail on demand, and otherwise pass the call on to the mesh's own.
#pragma once

#include <skoklana/mesh.h>

// From construction to the end of the scope; for one mesh at a time.
struct failing_fetches {
    int failure = 0;                      // what a failed fetch returns
    bool deliver_on_failure = false;      // a failed fetch writes its pointer all the same
    int fail_coords = 0, fail_points = 0; // so many of the next calls fail
    int fail_connect_of_set = -1;         // as long as it stands
    int coords_calls = 0, points_calls = 0, connect_calls = 0;

    explicit failing_fetches(mesh_info *mesh_) : mesh(mesh_), own(*mesh_)
    {
        current() = this;
        mesh->get_coords = get_coords;
        mesh->get_points = get_points;
        mesh->get_connect = get_connect;
    }
    failing_fetches(const failing_fetches &) = delete;
    failing_fetches &operator=(const failing_fetches &) = delete;
    ~failing_fetches()
    {
        mesh->get_coords = own.get_coords;
        mesh->get_points = own.get_points;
        mesh->get_connect = own.get_connect;
        current() = nullptr;
    }

  private:
    mesh_info *mesh;
    mesh_info own;

    static failing_fetches *&current()
    {
        static failing_fetches *now = nullptr;
        return now;
    }

    template <typename T, typename Fetch> int run(bool fail, T **out, Fetch fetch) const
    {
        if (!fail) return fetch(out);
        if (deliver_on_failure) fetch(out);
        return failure;
    }

    static int get_coords(mesh_info *m, float **out)
    {
        failing_fetches *now = current();
        ++now->coords_calls;
        return now->run(now->fail_coords-- > 0, out, [=](float **to) { return now->own.get_coords(m, to); });
    }
    static int get_points(mesh_info *m, float **out)
    {
        failing_fetches *now = current();
        ++now->points_calls;
        return now->run(now->fail_points-- > 0, out, [=](float **to) { return now->own.get_points(m, to); });
    }
    static int get_connect(mesh_info *m, int set, qx_long **out)
    {
        failing_fetches *now = current();
        ++now->connect_calls;
        return now->run(set == now->fail_connect_of_set, out,
                        [=](qx_long **to) { return now->own.get_connect(m, set, to); });
    }
};
