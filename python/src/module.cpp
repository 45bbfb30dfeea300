// skoklana._core: the compiled part of the package. Users see the Python layer over it.
#include "core.hpp"

PYBIND11_MODULE(_core, m)
{
    m.doc() = "The compiled part of skoklana. Use the package's own functions and classes.";
    bind_meshes(m);
    bind_parts(m);
    bind_levels(m);
    bind_chains(m);
    bind_cuts(m);
    bind_pieces(m);
    bind_carrying(m);
    bind_sampling(m);
    bind_tracing(m);
    bind_scatter(m);
    bind_arrays(m);
    bind_charts(m);
    m.def("version", &host_version);
}
