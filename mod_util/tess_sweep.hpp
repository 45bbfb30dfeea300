// Delaunay tesselation by a sweep along x, for triangles and tetrahedra.
//
// Points come in order of x. Each takes out the live cells whose circle or sphere holds it, the cavity, and is
// joined to every facet of the cavity's boundary. The first cell is one around everything; what touches its
// corners is left out of the result. A cell whose sphere the sweep has passed can't be met again and is
// finished: so few cells are live at a time, some sqrt(n) of n points in the plane and n^(2/3) in space.
//
// The order of the result is a promise. It is that of lists which are pushed at their heads: new cells in
// reverse order of the boundary, finished ones as a point comes upon them in the list of live cells. Here no list
// is kept. Each cell has a push number, rising as it would be pushed, and a finish: the first point that passes
// its sphere. The cells that no point passes come first, by falling push number; then the finished ones, by
// falling finish, those of one point by rising push number.
//
//   finding the cavity   cell_bins.hpp, then a test of each cell that it finds. The cavity is what a test of every
//                        live cell would find
//   finishing cells      once a slab of the sweep, when the bins are made anew; a cell's finish is then looked up
//                        among the slab's points by bisection
//   the boundary         facets.hpp
//   circles and spheres  all those of a point at once, in lanes
//
// Where a point makes a degenerate cell it is moved by a small step and tried again. The points that follow may
// then lie to the left of it, and the passing of spheres is no longer a matter of one side. Such a point's further
// tries, and the first of the point behind it, test every live cell instead, and finish those that are passed on
// either side.
//
// Bowyer. Computing Dirichlet tessellations. 1981
// Watson. Computing the n-dimensional Delaunay tessellation with application to Voronoi polytopes. 1981
#pragma once

#include "cell_bins.hpp"
#include "facets.hpp"
#include "report.hpp"
#include "status.hpp"
#include "sweep_order.hpp"

#include <cinttypes>
#include <limits>

enum class sweep_end { done, interrupted, no_memory };

// In space a test of a point against a sphere may be in doubt, and there is a bound on what it may err by.
template <int axes> constexpr bool has_doubt = axes == 3;

// Cells to be made from facets and one apex: their spheres, and what these are computed from.
template <int axes> struct cell_columns : sphere_columns<axes> {
    bool reach(qx_long count) { return sphere_columns<axes>::reach(count, axes * axes + 3); }

    double *corner(int k, int axis) { return this->extra(k * axes + axis); }
    double *det() { return this->extra(axes * axes); } // 0: the cell is degenerate
    // The square of the radius as computed, and its doubt: r2() is their sum.
    double *plain_r2() { return has_doubt<axes> ? this->extra(axes * axes + 1) : this->r2(); }
    double *doubt() { return this->extra(axes * axes + 2); }
};

// Kind tells what a cell is:
//   axes, status_period, facets       the vertices of a cell's facets, in the order in which they are taken
//   circumscribe(apex, count, columns)   the circles or spheres of cells
//   step(corners, out)                what moves the apex of a degenerate cell
//   holds(vertices, p, workspace)     whether a sphere holds a point, where that is in doubt
//   turn(facet, ids)                  brings a facet into the order in which it is kept
// Id is an unsigned type for the number of each point and enclosing vertex, and of each search: narrow ones keep the
// live cells in fewer lines of memory.
template <class Kind, typename Id> class tess_sweep {
  public:
    static constexpr int axes = Kind::axes;
    static constexpr int corners = axes + 1;
    static constexpr int most_attempts = 5;

    qx_long live = 0;           // cells made and not taken out again, those around everything included
    qx_long last_made[corners]; // ids of the cell that was tried last

    // enclosing: the vertices of the first cell, numbered behind the points. false: no memory.
    bool start(qx_long count, const float *coords, int nspace, const double *enclosing)
    {
        nnodes = count;
        if (!order.reach(count + corners) || !place.reach((count + corners) * axes) ||
            !walk_x.reach(count + 1) || !exact.start() ||
            !sweep_order<axes, Id>(count, coords, nspace, order.data))
            return false;
        for (qx_long at = 0; at < count; ++at)
            for (int k = 0; k < axes; ++k)
                place[at * axes + k] = static_cast<double>(coords[id_of(at) * nspace + k]);
        for (int c = 0; c < corners; ++c)
            order[count + c] = static_cast<Id>(count + c);
        memcpy(place.data + count * axes, enclosing, sizeof(double) * axes * corners);
        set_bin_box();
        return add_first_cell();
    }

    sweep_end run()
    {
        status_cadence cadence(Kind::status_period);
        const float percent = static_cast<float>(100.0 / static_cast<double>(nnodes));
        for (qx_long at = 0; at < nnodes; ++at) {
            if (cadence.due() && interrupted(static_cast<int>(static_cast<float>(at) * percent)))
                return sweep_end::interrupted;
            if (at > 0 && same_place(at, at - 1)) continue;
            if (at >= slab_end && !next_slab(at)) return sweep_end::no_memory;
            if (!insert(at)) return sweep_end::no_memory;
        }
        return settle(true) ? sweep_end::done : sweep_end::no_memory;
    }

    // Writes the cells that are no one's neighbour outside, in order, and returns how many there are.
    // none, if no cell is live at the end: then the finished ones are not looked at either.
    qx_long hand_over(qx_long *conn)
    {
        qx_long n = 0;
        const int nactive = list_active();
        for (int i = nactive - 1; i >= 0; --i)
            n += put_row(cells[listed[i].cell].v, conn + n * corners);
        if (nactive > 0)
            for (qx_long row = nrows - 1; row >= 0; --row, ++n)
                memcpy(conn + n * corners, rows.data + row * corners, sizeof(qx_long) * corners);
        return n;
    }

    const double *place_of(qx_long at) const { return place.data + at * axes; }
    qx_long id_of(qx_long at) const { return static_cast<qx_long>(order[at]); }
    bool any_moved() const { return moved; }

  private:
    struct sure_cell {
        static constexpr double doubt = 0;
    };
    struct doubted_cell {
        double doubt;
    };
    // No cell: place is -1.
    struct tess_cell : std::conditional_t<has_doubt<axes>, doubted_cell, sure_cell> {
        double centre[axes], plain_r2;
        qx_long push;
        Id v[corners]; // in sweep order, the first cell's corners behind the points
        Id since;      // how many searches there had been when it was made
        int place;     // in the bins
    };

    struct pushed_cell {
        qx_long push;
        int cell;
    };

    struct passed_cell {
        qx_long walk;
        int cell;
    };

    qx_long nnodes = 0;
    growing_array<Id> order;     // ids by sweep order
    growing_array<double> place; // working coordinates, rows by sweep order
    bool moved = false;          // whether any point is not where the caller put it

    growing_array<tess_cell> cells;
    growing_array<int> free_cells;
    int ncells = 0, nfree = 0;
    qx_long pushes = 0;

    cell_bins<axes> bins;
    qx_long slab_end = 0;   // in sweep order
    bool one_by_one = true; // the next search looks at all live cells

    growing_array<double> walk_x; // x of each search, in order
    qx_long nwalks = 0, settled = 0;
    growing_array<qx_long> rows; // finished cells of points only, by ids, in order of finish
    qx_long nrows = 0;

    // As long as there may be live cells: what a search finds, and cells by rising push number.
    growing_array<int> found;
    growing_array<pushed_cell> listed;
    growing_array<passed_cell> passed, passed_sorted;
    growing_array<int> walk_start;
    facet_set<axes, Id> facets;
    cell_columns<axes> made;
    sphere_columns<axes> spheres; // of all live cells, while they change bins
    typename Kind::workspace exact;

    bool same_place(qx_long a, qx_long b) const
    {
        for (int k = 0; k < axes; ++k)
            if (place[a * axes + k] != place[b * axes + k]) return false;
        return true;
    }

    // The bins divide the box of the points. The caller's may be much larger.
    void set_bin_box()
    {
        double min[axes], max[axes];
        for (int k = 0; k < axes; ++k) {
            min[k] = std::numeric_limits<double>::infinity();
            max[k] = -min[k];
            for (qx_long at = 0; at < nnodes; ++at) {
                const double x = place[at * axes + k];
                const bool finite = std::fabs(x) < std::numeric_limits<double>::infinity();
                min[k] = finite && x < min[k] ? x : min[k];
                max[k] = finite && x > max[k] ? x : max[k];
            }
        }
        bins.set_box(min, max);
    }

    // ---- cells -------------------------------------------------------------------------------------------

    bool add_first_cell()
    {
        if (!bins.clear(0, 0, 0) || !made.reach(1)) return false;
        Id v[corners];
        for (int c = 0; c < corners; ++c)
            v[c] = static_cast<Id>(nnodes + c);
        note_attempt(v);
        gather_corners(v, 0);
        Kind::circumscribe(place_of(v[axes]), 1, &made);
        bins.place(1, &made);
        live = 1;
        return add_cell(v, v[axes], 0);
    }

    // A cell of a facet and an apex, its sphere in row e of made.
    bool add_cell(const Id *base, Id apex, int e)
    {
        if (nfree == 0) {
            // Both lists hold every cell at most.
            if (ncells == INT_MAX || !cells.reach(ncells + 1) || !free_cells.reach(ncells + 1) ||
                !found.reach(ncells + 1 + sphere_block<axes>::lanes) || !listed.reach(ncells + 1))
                return false;
            free_cells[nfree++] = ncells++;
        }
        const int number = free_cells[--nfree];
        tess_cell &cell = cells[number];
        for (int k = 0; k < axes; ++k)
            cell.centre[k] = made.centre(k)[e];
        cell.plain_r2 = made.plain_r2()[e];
        if constexpr (has_doubt<axes>) cell.doubt = made.doubt()[e];
        memcpy(cell.v, base, sizeof(Id) * axes);
        cell.v[axes] = apex;
        cell.push = pushes++;
        cell.since = static_cast<Id>(nwalks);
        return bins.add(number, made, e, &cell.place);
    }

    void drop_cell(int number)
    {
        const int left = cells[number].place, moved_cell = bins.remove(left);
        cells[moved_cell].place = left;
        cells[number].place = -1;
        free_cells[nfree++] = number;
    }

    // Lists the live cells in found, and returns how many.
    int find_live()
    {
        int n = 0;
        for (int number = 0; number < ncells; ++number) {
            found[n] = number;
            n += cells[number].place >= 0 ? 1 : 0;
        }
        return n;
    }

    // The live cells by rising push number, in listed.
    int list_active()
    {
        const int n = find_live();
        sort_by_push(n);
        return n;
    }

    // Puts the first n cells of found into listed.
    void sort_by_push(int n)
    {
        for (int i = 0; i < n; ++i)
            listed[i] = {cells[found[i]].push, found[i]};
        sort_distinct(listed.data, n, [](const pushed_cell &cell) { return cell.push; });
    }

    // ---- passing -----------------------------------------------------------------------------------------

    static bool has_passed(double x, const tess_cell &cell)
    {
        const double dx = x - cell.centre[0];
        return dx * dx > cell.plain_r2;
    }

    // 1 and the ids of a cell's vertices, or 0 where one is no point.
    qx_long put_row(const Id *v, qx_long *row) const
    {
        for (int c = 0; c < corners; ++c) {
            if (static_cast<qx_long>(v[c]) >= nnodes) return 0;
            row[c] = static_cast<qx_long>(order[v[c]]);
        }
        return 1;
    }

    bool append_row(const Id *v)
    {
        if (!rows.reach((nrows + 1) * corners)) return false;
        nrows += put_row(v, rows.data + nrows * corners);
        return true;
    }

    // Appends the cells of passed, count of them, of searches from settled on: by search, and those of one
    // search by falling push number.
    bool append_passed(qx_long count)
    {
        const qx_long nw = nwalks - settled;
        if (!walk_start.reach(nw + 1) || !passed_sorted.reach(count)) return false;
        std::fill_n(walk_start.data, nw + 1, 0);
        for (qx_long i = 0; i < count; ++i)
            ++walk_start[passed[i].walk - settled + 1];
        for (qx_long w = 0; w < nw; ++w)
            walk_start[w + 1] += walk_start[w];
        for (qx_long i = 0; i < count; ++i)
            passed_sorted[walk_start[passed[i].walk - settled]++] = passed[i];
        for (qx_long i = 0, end; i < count; i = end) {
            for (end = i + 1; end < count && passed_sorted[end].walk == passed_sorted[i].walk;)
                ++end;
            std::sort(passed_sorted.data + i, passed_sorted.data + end,
                      [this](const passed_cell &a, const passed_cell &b) {
                          return cells[a.cell].push > cells[b.cell].push;
                      });
            for (qx_long j = i; j < end; ++j)
                if (!append_row(cells[passed_sorted[j].cell].v)) return false;
        }
        return true;
    }

    // The first search since the last time that passed a cell which has been passed. Searches before it was made
    // may be beyond its other side.
    qx_long finish_of(int number)
    {
        const double centre = cells[number].centre[0], r2 = cells[number].plain_r2;
        qx_long first = std::max(settled, static_cast<qx_long>(cells[number].since)), n = nwalks - 1 - first;
        while (n > 0) { // the comparison moves first and n without a branch
            const qx_long half = n / 2;
            const double dx = walk_x[first + half] - centre;
            const qx_long if_not = -static_cast<qx_long>(!(dx * dx > r2)); // all bits
            first += (half + 1) & if_not;
            n = half + ((n - 2 * half - 1) & if_not);
        }
        return first;
    }

    // Finishes the cells that the searches since the last time have passed. Where tests may err, a cell stays
    // until it has been passed beyond doubt, but for the last time.
    bool settle(bool last_time)
    {
        if (nwalks == settled) return true;
        const double x = walk_x[nwalks - 1];
        qx_long count = 0;
        if (!passed.reach(bins.ncells)) return false;
        const int nlive = find_live();
        for (int i = 0; i < nlive; ++i) {
            const tess_cell &cell = cells[found[i]];
            const double dx = x - cell.centre[0];
            const double r2 = last_time ? cell.plain_r2 : cell.plain_r2 + cell.doubt;
            if (dx * dx > r2) passed[count++] = {finish_of(found[i]), found[i]};
        }
        if (!append_passed(count)) return false;
        for (qx_long i = 0; i < count; ++i)
            drop_cell(passed[i].cell);
        settled = nwalks;
        return true;
    }

    // ---- slabs -------------------------------------------------------------------------------------------

    bool next_slab(qx_long at)
    {
        constexpr int shortest = 32, cells_a_point = Kind::cells_a_point;
        if (!settle(false)) return false;
        slab_end = std::min<qx_long>(nnodes, at + std::max(shortest, bins.ncells / cells_a_point));
        double x_end = place[(slab_end - 1) * axes];
        if (!(x_end < std::numeric_limits<double>::infinity()))
            x_end = std::numeric_limits<double>::infinity();
        return rebuild(place[at * axes], x_end);
    }

    // Puts all live cells into new bins.
    bool rebuild(double x, double x_end)
    {
        const int n = find_live();
        if (!spheres.reach(n)) return false;
        for (int i = 0; i < n; ++i) {
            const tess_cell &cell = cells[found[i]];
            for (int k = 0; k < axes; ++k)
                spheres.centre(k)[i] = cell.centre[k];
            spheres.r2()[i] = cell.plain_r2 + cell.doubt;
        }
        if (!bins.clear(n, x, x_end)) return false;
        bins.place(n, &spheres);
        for (int i = 0; i < n; ++i)
            if (!bins.add(found[i], spheres, i, &cells[found[i]].place)) return false;
        return true;
    }

    // ---- points ------------------------------------------------------------------------------------------

    // Whether the sphere of a cell holds p.
    bool holds(const tess_cell &cell, const double *p)
    {
        const double dx = cell.centre[0] - p[0];
        double d2 = dx * dx;
        for (int k = 1; k < axes; ++k) {
            const double d = cell.centre[k] - p[k];
            d2 = d2 + d * d;
        }
        if constexpr (has_doubt<axes>) {
            if (!(cell.plain_r2 + cell.doubt > d2)) return false;
            if (cell.plain_r2 - cell.doubt > d2) return true;
            const double *v[corners];
            for (int c = 0; c < corners; ++c)
                v[c] = place_of(cell.v[c]);
            return Kind::holds(v, p, exact);
        } else {
            return cell.plain_r2 > d2;
        }
    }

    bool note_walk(double x)
    {
        if (!walk_x.reach(nwalks + 1)) return false;
        walk_x[nwalks++] = x;
        return true;
    }

    // Lists the cavity of p in listed, by rising push number. -1: no memory.
    int find_cavity(const double *p)
    {
        const int nnear = bins.find(p, found.data);
        int n = 0;
        for (int i = 0; i < nnear; ++i)
            if (holds(cells[found[i]], p)) found[n++] = found[i];
        sort_by_push(n);
        return n;
    }

    // The same, with every live cell looked at; those that p passes on either side are finished first. x is
    // where the sweep is.
    int find_cavity_one_by_one(const double *p, double x)
    {
        if (!settle(false) || !note_walk(x)) return -1;
        qx_long count = 0;
        if (!passed.reach(bins.ncells)) return -1;
        const int n = list_active();
        int ncavity = 0;
        for (int i = 0; i < n; ++i) {
            const int number = listed[i].cell;
            if (has_passed(p[0], cells[number]))
                passed[count++] = {nwalks - 1, number};
            else if (holds(cells[number], p))
                listed[ncavity++] = listed[i];
        }
        if (!append_passed(count)) return -1;
        for (qx_long i = 0; i < count; ++i)
            drop_cell(passed[i].cell);
        settled = nwalks;
        return ncavity;
    }

    bool find_boundary(int ncavity)
    {
        if (!facets.clear(qx_long{ncavity} * corners)) return false;
        for (int i = 0; i < ncavity; ++i) {
            const tess_cell &cell = cells[listed[i].cell];
            for (const auto &facet : Kind::facets) {
                Id v[axes];
                for (int k = 0; k < axes; ++k)
                    v[k] = cell.v[facet[k]];
                facets.toggle(v);
            }
        }
        facets.sort([this](Id *v) {
            Id ids[axes];
            for (int k = 0; k < axes; ++k)
                ids[k] = order[v[k]];
            return Kind::turn(v, ids);
        });
        return made.reach(facets.nboundary);
    }

    void gather_corners(const Id *v, int e)
    {
        for (int c = 0; c < axes; ++c)
            for (int k = 0; k < axes; ++k)
                made.corner(c, k)[e] = place_of(v[c])[k];
    }

    void note_attempt(const Id *base)
    {
        for (int c = 0; c < axes; ++c)
            last_made[c] = id_of(base[c]);
    }

    // Moves the apex of a degenerate cell, in steps, until it is one no longer.
    void move_apex(const Id *base, qx_long apex)
    {
        constexpr int most_steps = 6;
        const double *at[axes];
        double step[axes];
        for (int c = 0; c < axes; ++c)
            at[c] = place_of(base[c]);
        Kind::step(at, step);
        gather_corners(base, 0);
        for (int tries = 0; tries < most_steps; ++tries) {
            for (int k = 0; k < axes; ++k)
                place[apex * axes + k] += step[k];
            Kind::circumscribe(place_of(apex), 1, &made);
            if (made.det()[0] != 0.0) break;
        }
        moved = true;
    }

    enum class attempt { joined, degenerate, no_memory };

    // Joins a point to the boundary of the cavity that is listed.
    attempt join(qx_long at, int ncavity)
    {
        if (!find_boundary(ncavity)) return attempt::no_memory;
        const int nmade = facets.nboundary;
        for (int e = 0; e < nmade; ++e)
            gather_corners(facets[e], e);
        Kind::circumscribe(place_of(at), nmade, &made);
        int degenerate = 0;
        while (degenerate < nmade && made.det()[degenerate] != 0.0)
            ++degenerate;
        if (nmade > 0) {
            note_attempt(facets[std::min(degenerate, nmade - 1)]);
            last_made[axes] = id_of(at);
        }
        if (degenerate < nmade) {
            move_apex(facets[degenerate], at);
            for (int i = 0; i < ncavity; ++i)
                cells[listed[i].cell].push = pushes++;
            return attempt::degenerate;
        }
        for (int i = 0; i < ncavity; ++i)
            drop_cell(listed[i].cell);
        bins.place(nmade, &made);
        for (int e = nmade - 1; e >= 0; --e)
            if (!add_cell(facets[e], static_cast<Id>(at), e)) return attempt::no_memory;
        live += nmade - ncavity;
        return attempt::joined;
    }

    bool insert(qx_long at)
    {
        const double x = place[at * axes];
        if (x != x) return true; // NaN is in no sphere and passes none
        for (int tries = 0; tries < most_attempts; ++tries) {
            const double *p = place_of(at);
            int ncavity;
            if (one_by_one || tries > 0) {
                ncavity = find_cavity_one_by_one(p, x);
            } else {
                if (!note_walk(x)) return false;
                ncavity = find_cavity(p);
            }
            if (ncavity < 0) return false;
            const attempt result = join(at, ncavity);
            if (result == attempt::no_memory) return false;
            one_by_one = tries > 0 || result == attempt::degenerate;
            if (result == attempt::joined) return true;
        }
        print_error(Kind::skip_text, qx_long{axes} * id_of(at));
        return true;
    }
};

struct tess_input {
    qx_long nnodes;
    const float *coords;
    int nspace;
    const double *enclosing;
    bool check;
};

// Points within the circles or spheres of cells, a line each on standard error, and a last line with their count.
// Only cells of the result are looked at, and the points of the cell that the sweep tried last are not.
template <class Kind, typename Id> class tess_check {
  public:
    static constexpr int axes = Kind::axes, corners = axes + 1;

    tess_check(const tess_sweep<Kind, Id> &done, qx_long nnodes_) : sweep(done), nnodes(nnodes_) {}

    // false: no memory.
    bool run(qx_long ncells, const qx_long *conn)
    {
        if (!at_of_id.reach(nnodes) || !hits.reach(nnodes) || !cell.reach(1)) return false;
        for (qx_long at = 0; at < nnodes; ++at)
            at_of_id[sweep.id_of(at)] = at;
        nsorted = nnodes;
        while (nsorted > 0 && sweep.place_of(nsorted - 1)[0] != sweep.place_of(nsorted - 1)[0])
            --nsorted;
        int bad = 0;
        for (qx_long c = 0; c < ncells; ++c)
            bad += report_points_in(conn + c * corners);
        print_error("ucd_scat_to_tet: %d bad tetras found\n", bad);
        return true;
    }

  private:
    struct hit {
        qx_long id;
        double d2;
    };

    const tess_sweep<Kind, Id> &sweep;
    qx_long nnodes, nsorted = 0; // points with an x that is a number come first
    growing_array<qx_long> at_of_id;
    growing_array<hit> hits;
    cell_columns<axes> cell;

    // The first place in the sweep that is not left of x.
    qx_long first_from(double x) const
    {
        qx_long low = 0, high = nsorted;
        while (low < high) {
            const qx_long middle = low + (high - low) / 2;
            if (sweep.place_of(middle)[0] < x)
                low = middle + 1;
            else
                high = middle;
        }
        return low;
    }

    int report_points_in(const qx_long *ids)
    {
        for (int c = 0; c < axes; ++c)
            for (int k = 0; k < axes; ++k)
                cell.corner(c, k)[0] = sweep.place_of(at_of_id[ids[c]])[k];
        Kind::circumscribe(sweep.place_of(at_of_id[ids[axes]]), 1, &cell);
        const double r2 = cell.plain_r2()[0];
        // What is further off along x alone is not in it. Points that were moved are not in order.
        qx_long first = 0, end = nnodes;
        if (!sweep.any_moved()) {
            const double centre = cell.centre(0)[0],
                         reach = std::sqrt(r2) * (1 + 1e-9) + std::fabs(centre) * 1e-9;
            first = first_from(centre - reach);
            end = std::max(first, first_from(centre + reach));
        }
        qx_long n = 0;
        for (qx_long at = first; at < end; ++at) {
            double d2 = 0;
            for (int k = 0; k < axes; ++k) {
                const double d = cell.centre(k)[0] - sweep.place_of(at)[k];
                d2 = d2 + d * d;
            }
            const qx_long id = sweep.id_of(at);
            if (1.0 - d2 / r2 > 1e-5 &&
                std::find(sweep.last_made, sweep.last_made + corners, id) == sweep.last_made + corners)
                hits[n++] = {id, d2};
        }
        std::sort(hits.data, hits.data + n, [](const hit &a, const hit &b) { return a.id < b.id; });
        for (qx_long i = 0; i < n; ++i)
            Kind::print_hit(ids, hits[i].id, static_cast<double>(static_cast<float>(r2)),
                            static_cast<double>(static_cast<float>(hits[i].d2)));
        return static_cast<int>(n);
    }
};

// The whole of a tesselation once the box is known to have an inside.
template <class Kind, typename Id> int tesselate_by(const tess_input &input, qx_long *count, qx_long **conn)
{
    tess_sweep<Kind, Id> sweep;
    const auto fail = [=] {
        *count = 0;
        *conn = nullptr;
        return 0;
    };
    if (!sweep.start(input.nnodes, input.coords, input.nspace, input.enclosing)) return fail();
    const sweep_end end = sweep.run();
    if (end == sweep_end::no_memory) return fail();
    if (end == sweep_end::interrupted) {
        *count = sweep.live;
        return 0;
    }
    qx_long *cells = alloc_numbers(sweep.live * (Kind::axes + 1), Kind::source, __LINE__);
    if (cells == nullptr) return fail();
    expect_to_fill(cells, sweep.live * (Kind::axes + 1) * static_cast<qx_long>(sizeof(qx_long)));
    const qx_long ncells = sweep.hand_over(cells);
    if (input.check && !tess_check<Kind, Id>(sweep, input.nnodes).run(ncells, cells)) {
        ARRfree_f(cells, Kind::source, __LINE__);
        return fail();
    }
    *count = ncells;
    *conn = cells;
    return 1;
}

template <class Kind> int tesselate(const tess_input &input, qx_long *count, qx_long **conn)
{
    constexpr qx_long searches_a_point = 8; // more than there can be
    if (input.nnodes < UINT32_MAX / searches_a_point) return tesselate_by<Kind, uint32_t>(input, count, conn);
    return tesselate_by<Kind, uint64_t>(input, count, conn);
}
