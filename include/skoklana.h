/* skoklana: mesh and field algorithms for scientific visualisation.
 *
 * This header includes the whole public interface of the library, one header a subsystem. What the
 * library expects of the program that hosts it stands in skoklana/host/; skoklana_host.h is the host
 * that comes with it. */
#ifndef SKOKLANA_H
#define SKOKLANA_H

#include <skoklana/array.h>
#include <skoklana/boundary.h>
#include <skoklana/cell.h>
#include <skoklana/cell_faces.h>
#include <skoklana/cell_nodes.h>
#include <skoklana/chart.h>
#include <skoklana/containers.h>
#include <skoklana/cut.h>
#include <skoklana/deriv.h>
#include <skoklana/glyph.h>
#include <skoklana/iso.h>
#include <skoklana/locate.h>
#include <skoklana/measure.h>
#include <skoklana/mesh.h>
#include <skoklana/scatter.h>
#include <skoklana/tables.h>
#include <skoklana/thread.h>
#include <skoklana/trace.h>
#include <skoklana/types.h>

#endif
