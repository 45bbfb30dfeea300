/* Every public header compiles on its own words in C; the same text is compiled as C++ beside it. */
#include <skoklana.h>
#include <skoklana/host/fld.h>
#include <skoklana/host/om.h>
#include <skoklana/host/tool.h>
#include <skoklana_host.h>

int main(void)
{
    return sizeof(mesh_info) == 200 ? 0 : 1;
}
