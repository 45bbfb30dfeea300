// Fields of the embedded host, for the tests of the host itself.
#pragma once

#include "support/meshes.hpp"

#include <gtest/gtest.h>

namespace host_fields {

// A field that is released at the end of the test.
struct held {
    host_field *field;
    explicit held(host_field *made) : field(made) {}
    held(const held &) = delete;
    held &operator=(const held &) = delete;
    ~held() { host_free_field(field); }
};

inline std::vector<float> fetched_coords(mesh_info *mesh)
{
    float *coords = nullptr;
    EXPECT_EQ(mesh->get_coords(mesh, &coords), 1);
    EXPECT_NE(coords, nullptr);
    return std::vector<float>(coords, coords + mesh->nnodes * mesh->nspace);
}

// Lattices of every number of axes, thin ones among them.
inline const std::vector<std::vector<qx_long>> &lattices()
{
    static const std::vector<std::vector<qx_long>> all = {
        {1},       {2},       {7},       {1, 1},    {3, 1},    {1, 4},   {4, 3},
        {1, 1, 1}, {2, 2, 2}, {5, 4, 3}, {3, 1, 4}, {1, 3, 2}, {4, 3, 1}};
    return all;
}

// Uniform, rectilinear and curvilinear, in this order.
inline std::vector<meshes::mesh_ptr> structured(const std::vector<qx_long> &dims, int nspace)
{
    std::vector<meshes::mesh_ptr> made;
    made.push_back(meshes::uniform(dims, nspace, {-1, 3, 10}, {2, 4, -7}));
    made.push_back(meshes::rectilinear(dims, nspace, {-1, 3, 10}, {2, 4, -7}, 5));
    made.push_back(meshes::curvilinear(dims, nspace, {-1, 3, 10}, {2, 4, -7}, 5));
    return made;
}

} // namespace host_fields
