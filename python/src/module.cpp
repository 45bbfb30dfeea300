// skoklana._core: the compiled part of the package. Users see the Python layer over it.
#include "core.hpp"

PYBIND11_MODULE(_core, m)
{
    m.doc() = "The compiled part of skoklana. Use the package's own functions and classes.";
    bind_meshes(m);
    bind_extractions(m);
    bind_sampling(m);
    bind_tracing(m);
    bind_scatter(m);
    bind_arrays(m);
    bind_charts(m);
    m.def("version", &host_version);
}
