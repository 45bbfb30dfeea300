// A line is traced in a piece with the layer of cells around it as far as its nodes lie in cells of the piece's own. A step
// from there ends in the layer, and is what it is in the whole. The node in the layer is handed over: to the piece
// that has its cell.
//
// Where cells of the layer are thin, or the mesh's parts share no nodes, a step may come to places that the piece does not
// know. Then all pieces are asked what is there. If nothing is, the mesh ends, and so does the line. If something is, the
// piece traces anew with what it was told, from the line's first node in the cell, and asks again for what lies beyond.
//
// With mpirun this goes in rounds. Places that wait are known to all processes; each looks for them in its own pieces and
// tells which it has, the first piece that has one traces on, and what is handed over waits for the next round. Pieces
// stay in memory. On one process a piece is in memory at a time: pieces take turns, and each takes of what waits what is
// its own, until nothing waits.
#include "stream_pieces.hpp"

#include "failure.hpp"
#include "join_pieces.hpp"
#include "line_tracer.hpp"
#include "packing.hpp"
#include "progress.hpp"

#include <skoklana.h>

#include <vtkDataSet.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <random>
#include <tuple>

namespace {

constexpr int no_piece = std::numeric_limits<int>::max();

// A line that waits: for the piece that has a place, or to be told what is at others.
struct waiting {
    int64_t line;
    int direction; // 1 or -1
    int hop = 0;   // segments before
    line_progress so_far = {};
    position at = {0, 0, 0};
    // With places that are asked for: the piece that asks, over all processes, and the nodes that it makes anew.
    int piece = no_piece;
    int redo = 0;
    std::vector<position> asked = {};
    std::vector<known_place> known = {};

    bool asks() const { return piece != no_piece; }
    size_t places() const { return asks() ? asked.size() : 1; }
    const position &wanted(size_t i) const { return asks() ? asked[i] : at; }
};

void pack(const waiting &one, packer *packed)
{
    packed->add(one.line);
    packed->add(one.direction);
    packed->add(one.hop);
    packed->add(one.so_far);
    packed->add(one.at);
    packed->add(one.piece);
    packed->add(one.redo);
    packed->add_list(one.asked);
    packed->add_list(one.known);
}

waiting unpacked(unpacker *from)
{
    waiting one = {from->take<int64_t>(), from->take<int>()};
    one.hop = from->take<int>();
    one.so_far = from->take<line_progress>();
    one.at = from->take<position>();
    one.piece = from->take<int>();
    one.redo = from->take<int>();
    one.asked = from->take_list<position>();
    one.known = from->take_list<known_place>();
    return one;
}

bool in_order(const waiting &a, const waiting &b)
{
    return std::make_pair(a.line, a.direction) < std::make_pair(b.line, b.direction);
}

// What a piece made of a line.
struct segment {
    int64_t line;
    int direction, hop;
    line_end ended;
    bool in_cell; // a piece has the place that it begins at
    std::vector<line_node> nodes;
    int redone = 0; // nodes before, in place of which these are
};

enum class hold : int { own = 0, copy = 1, none = 2 };

// Who has a place, and how well: the least of all is who has it.
struct claim {
    float apart = 0; // that the place lies outside of its cell
    hold how = hold::none;
    int piece = no_piece; // over all processes

    bool is_best() const { return how == hold::own && apart == 0; }
    bool operator<(const claim &other) const
    {
        if ((how == hold::none) != (other.how == hold::none)) return other.how == hold::none;
        return std::make_tuple(apart, static_cast<int>(how), piece) <
               std::make_tuple(other.apart, static_cast<int>(other.how), other.piece);
    }
};

struct freed_exact_mesh {
    void operator()(mesh_info *mesh) const { host_free_exact_mesh(mesh); }
};

// A piece in memory, with what traces in it.
class traced_piece {
  public:
    traced_piece(int number_, input in_, const scalar_array &vectors_, const pieces::totals &whole,
                 const line_options &options)
        : number(number_), in(std::move(in_)), vectors(vectors_), tracer(*in.mesh, vectors, options)
    {
        mesh_info *mesh = in.mesh->mesh;
        double diagonal = 0;
        for (int d = 0; d < 3; ++d) {
            // Tolerances, and the blocks of the library's search, go by the whole.
            mesh->min_ext[d] = static_cast<float>(whole.box[2 * d] - in.mesh->offset[d]);
            mesh->max_ext[d] = static_cast<float>(whole.box[2 * d + 1] - in.mesh->offset[d]);
            const double length =
                static_cast<double>(mesh->max_ext[d]) - static_cast<double>(mesh->min_ext[d]);
            diagonal += length * length;
        }
        const bool curved = whole.cell_ndim < 3 && whole.box[0] != whole.box[1] &&
                            whole.box[2] != whole.box[3] && whole.box[4] != whole.box[5];
        if (options.by_library || curved) {
            if (!tracer.open_by_library()) fail();
        } else {
            locator = make_locator(1e-6 * std::sqrt(diagonal));
            if (!tracer.open_exactly(locator.get())) fail();
            tracer.is_within = [this](const float *point) { return is_within(point); };
        }
        tracer.in_pieces = true;
        if (!in.ghost_cell.empty()) tracer.is_copy = [this](qx_long cell) { return is_copy(cell); };
    }
    traced_piece(const traced_piece &) = delete;
    traced_piece &operator=(const traced_piece &) = delete;

    // Of a place, with the field there.
    claim look_at(const position &at, field_at *field)
    {
        found_place found;
        *field = tracer.look_at(at, &found);
        if (found.cell < 0) return {};
        return {found.apart, is_copy(found.cell) ? hold::copy : hold::own, number};
    }

    // Traces on. What the line leaves for others joins the queue.
    segment go_on(const waiting &from, std::vector<waiting> *queue)
    {
        segment made = {from.line, from.direction, from.hop, line_end::left_mesh, true, {}, from.redo};
        handed_over over;
        made.ended =
            tracer.trace_one_way(from.at, from.direction, from.so_far, from.known, &made.nodes, &over);
        const bool asks = made.ended != line_end::goes_on;
        if (asks && over.unknown.empty()) return made;
        waiting next = {from.line, from.direction, from.hop + 1, over.so_far, over.at};
        if (asks) {
            next.piece = number;
            next.redo = static_cast<int>(made.nodes.size() - over.node);
            next.asked = std::move(over.unknown);
            if (over.so_far.steps == from.so_far.steps) next.known = from.known;
        }
        queue->push_back(std::move(next));
        return made;
    }

  private:
    std::unique_ptr<host_locator, freed_locator> make_locator(double tolerance)
    {
        host_locator_options how = {};
        how.size = sizeof how;
        how.tolerance = tolerance;
        host_locator *made = nullptr;
        if (host_make_locator(in.mesh->field, &how, &made) != HOST_DONE) fail();
        return std::unique_ptr<host_locator, freed_locator>(made);
    }

    bool is_within(const float *point)
    {
        if (mesh_within == nullptr) {
            within = make_locator(-1); // none
            mesh_within.reset(host_exact_mesh(within.get()));
            if (mesh_within == nullptr) fail();
        }
        qx_long cell;
        float uvw[3];
        return mesh_within->methods->find_cell_func(mesh_within.get(), nullptr, point, &cell, uvw) == 1;
    }

    [[noreturn]] void fail() const
    {
        stop_if_asked();
        throw failure(in.file.path + ": tracing: " + host_error());
    }

    bool is_copy(qx_long cell) const
    {
        if (in.ghost_cell.empty()) return false;
        qx_long place = 0;
        if (in.mesh->structured()) {
            qx_long stride = 1;
            for (const qx_long dim : in.mesh->dims) {
                place += stride * std::min(cell % dim, std::max<qx_long>(dim - 2, 0));
                cell /= dim;
                stride *= std::max<qx_long>(dim - 1, 1);
            }
        } else {
            size_t set = 0;
            while (cell >= in.mesh->sets[set].ncells)
                cell -= in.mesh->sets[set++].ncells;
            place = in.mesh->vtk_cell(set, cell);
        }
        return in.ghost_cell[static_cast<size_t>(place)] != 0;
    }

    int number; // over all processes
    input in;
    scalar_array vectors;
    std::unique_ptr<host_locator, freed_locator> locator,
        within; // the latter of cells as they are, once one is wanted
    std::unique_ptr<mesh_info, freed_exact_mesh> mesh_within;
    line_tracer tracer;
};

struct box {
    double low[3], high[3];
    bool holds(const position &at, const double *offset) const
    {
        for (int d = 0; d < 3; ++d) {
            const double x = static_cast<double>(at[static_cast<size_t>(d)]) + offset[d];
            if (x < low[d] || x > high[d]) return false;
        }
        return true;
    }
};

// The pieces of this process.
class piece_shelf {
  public:
    piece_shelf(pieces &parts_, int first_piece_,
                const std::function<scalar_array(const input &)> &vectors_of_, const line_options &options_)
        : first_piece(first_piece_), parts(parts_), vectors_of(vectors_of_), options(options_),
          boxes(static_cast<size_t>(parts.own_count())), empty(boxes.size(), false)
    {
    }

    int count() const { return static_cast<int>(boxes.size()); }

    // Whether the piece may have a place that is waited for; unknown until the piece was looked at.
    bool may_have(int i, const waiting &one) const
    {
        const auto at = static_cast<size_t>(i);
        bool may = !empty[at] && !boxes[at];
        for (size_t k = 0; !empty[at] && !may && k < one.places(); ++k)
            may = boxes[at]->holds(one.wanted(k), offset);
        return may;
    }

    // Null: it has no cells to trace in.
    traced_piece *get(int i)
    {
        const auto at = static_cast<size_t>(i);
        if (empty[at]) return nullptr;
        if (const auto found = loaded.find(i); found != loaded.end()) return found->second.get();
        if (!processes::several()) loaded.clear();
        input in = parts.load(i);
        if (in.mesh == nullptr || in.mesh->mesh->ncells == 0 ||
            in.mesh->cell_ndim() < parts.whole().cell_ndim) {
            empty[at] = true;
            return nullptr;
        }
        box one;
        double bounds[6];
        in.file.data->GetBounds(bounds);
        const double margin =
            0.01 * in.file.data->GetLength(); // cells of second order reach beyond their nodes
        for (int d = 0; d < 3; ++d) {
            one.low[d] = bounds[2 * d] - margin;
            one.high[d] = bounds[2 * d + 1] + margin;
            offset[d] = in.mesh->offset[d];
        }
        boxes[at] = one;
        scalar_array vectors = vectors_of(in);
        flattened = put_into_plane(parts.whole().box, &vectors) || flattened;
        name = vectors.array.name;
        veclen = vectors.array.veclen;
        return loaded
            .emplace(i, std::make_unique<traced_piece>(first_piece + i, std::move(in), vectors, parts.whole(),
                                                       options))
            .first->second.get();
    }

    const int first_piece; // over all processes
    std::string name;      // of the field, once a piece was looked at
    int veclen = 3;
    double offset[3] = {0, 0, 0};
    bool flattened = false;

  private:
    pieces &parts;
    const std::function<scalar_array(const input &)> &vectors_of;
    const line_options &options;
    std::vector<std::optional<box>> boxes;
    std::vector<bool> empty;
    std::map<int, std::unique_ptr<traced_piece>> loaded;
};

// A seed that no piece has.
segment without_cell(const waiting &seed)
{
    return {seed.line, seed.direction, seed.hop, line_end::left_mesh, false, {}};
}

// The best claims on the places that one line waits for, with what is there where it asks.
struct answer {
    claim from;
    field_at field;
};

std::vector<answer> no_answers(const waiting &one)
{
    return std::vector<answer>(one.places());
}

void take_better(answer *known, const answer &other)
{
    if (other.from < known->from) *known = other;
}

// What a piece has of what is waited for.
void ask(traced_piece *piece, const waiting &one, std::vector<answer> *known)
{
    for (size_t k = 0; k < known->size(); ++k) {
        answer here;
        here.from = piece->look_at(one.wanted(k), &here.field);
        take_better(&(*known)[k], here);
    }
}

// Takes the answers in. False: nothing is at any of the places, and the line ended where it seemed to.
bool is_told(waiting *one, const std::vector<answer> &answers)
{
    bool any = false;
    for (size_t k = 0; k < answers.size(); ++k) {
        one->known.push_back({one->asked[k], answers[k].field, answers[k].from.apart});
        any = any || answers[k].from.how != hold::none;
    }
    one->asked.clear();
    return any;
}

// ---- one process -------------------------------------------------------------------------------------------------------

class sweeps {
  public:
    explicit sweeps(piece_shelf &shelf_, std::vector<segment> &made_) : shelf(shelf_), made(made_) {}

    void run(const std::vector<waiting> &first)
    {
        for (const waiting &one : first)
            queue.emplace_back(one);
        for (int i = 0; !queue.empty() && shelf.count() > 0; i = (i + 1) % shelf.count()) {
            stop_if_asked();
            visit(i);
        }
        for (const queued &one : queue)
            made.push_back(without_cell(one.what));
    }

  private:
    struct queued {
        waiting what;
        int tries = 0; // pieces that were asked
        std::vector<answer> answers;
        int goes_on_in = no_piece; // once that is known
        explicit queued(waiting what_) : what(std::move(what_)), answers(no_answers(what)) {}
    };

    void visit(int i)
    {
        std::vector<queued> now = std::move(queue);
        queue.clear();
        for (size_t next = 0; next < now.size(); ++next) {
            queued one = std::move(now[next]);
            if (one.goes_on_in == no_piece && !look_in(i, &one)) continue;
            if (one.goes_on_in != i) {
                queue.push_back(std::move(one));
                continue;
            }
            std::vector<waiting> left;
            made.push_back(shelf.get(i)->go_on(one.what, &left));
            for (waiting &on : left)
                now.emplace_back(std::move(on));
        }
    }

    // Asks one more piece. False: the line is at its end.
    bool look_in(int i, queued *one)
    {
        traced_piece *piece = shelf.may_have(i, one->what) ? shelf.get(i) : nullptr;
        if (piece != nullptr) ask(piece, one->what, &one->answers);
        const bool all_asked = ++one->tries == shelf.count();
        const claim &best = one->answers[0].from;
        if (one->what.asks()) {
            if (!all_asked) return true;
            one->goes_on_in = one->what.piece;
            return is_told(&one->what, one->answers);
        }
        if (best.is_best() || all_asked) one->goes_on_in = best.piece;
        if (!all_asked || best.how != hold::none) return true;
        made.push_back(without_cell(one->what));
        return false;
    }

    piece_shelf &shelf;
    std::vector<segment> &made;
    std::vector<queued> queue;
};

// ---- several processes -------------------------------------------------------------------------------------------------

std::vector<waiting> of_all(const std::vector<waiting> &own)
{
    packer packed;
    for (const waiting &one : own)
        pack(one, &packed);
    std::vector<waiting> all;
    for (const std::string &text : processes::all_of(packed.bytes))
        for (unpacker from(text); !from.at_end();)
            all.push_back(unpacked(&from));
    std::sort(all.begin(), all.end(), in_order);
    return all;
}

class rounds {
  public:
    rounds(piece_shelf &shelf_, std::vector<segment> &made_) : shelf(shelf_), made(made_) {}

    void run(std::vector<waiting> queue)
    {
        while (!queue.empty()) {
            const std::vector<std::vector<answer>> told = answers(queue);
            std::vector<waiting> left;
            processes::agree([&] {
                stop_if_asked();
                for (size_t i = 0; i < queue.size(); ++i)
                    settle(&queue[i], told[i], &left);
            });
            queue = of_all(left);
        }
    }

  private:
    struct numbered_answer {
        size_t line, place;
        answer what;
    };

    // The best ones for each place.
    std::vector<std::vector<answer>> answers(const std::vector<waiting> &queue)
    {
        std::vector<std::vector<answer>> all;
        std::transform(queue.begin(), queue.end(), std::back_inserter(all), no_answers);
        packer packed;
        processes::agree([&] {
            for (int i = 0; i < shelf.count(); ++i)
                for (size_t q = 0; q < queue.size(); ++q) {
                    if (!shelf.may_have(i, queue[q])) continue;
                    traced_piece *piece = shelf.get(i);
                    if (piece == nullptr) break;
                    ask(piece, queue[q], &all[q]);
                }
            for (size_t q = 0; q < queue.size(); ++q)
                for (size_t k = 0; k < all[q].size(); ++k)
                    if (all[q][k].from.how != hold::none) packed.add(numbered_answer{q, k, all[q][k]});
        });
        for (const std::string &text : processes::all_of(packed.bytes))
            for (unpacker from(text); !from.at_end();) {
                const auto one = from.take<numbered_answer>();
                take_better(&all[one.line][one.place], one.what);
            }
        return all;
    }

    void settle(waiting *one, const std::vector<answer> &told, std::vector<waiting> *left)
    {
        const claim &best = told[0].from;
        int piece = best.piece;
        if (one->asks()) {
            if (!is_told(one, told)) return;
            piece = one->piece;
        } else if (best.how == hold::none) {
            if (processes::is_first()) made.push_back(without_cell(*one));
            return;
        }
        const int own = piece - shelf.first_piece;
        if (own >= 0 && own < shelf.count()) made.push_back(shelf.get(own)->go_on(*one, left));
    }

    piece_shelf &shelf;
    std::vector<segment> &made;
};

// ---- lines out of segments ---------------------------------------------------------------------------------------------

// Those of all processes, at the first one.
std::vector<segment> gathered(std::vector<segment> own)
{
    if (!processes::several()) return own;
    if (!processes::is_first()) {
        packer packed;
        for (const segment &one : own) {
            packed.add(one.line);
            packed.add(one.direction);
            packed.add(one.hop);
            packed.add(one.ended);
            packed.add(one.in_cell);
            packed.add(one.redone);
            packed.add_list(one.nodes);
        }
        processes::send(packed.bytes, 0);
        return {};
    }
    for (int from = 1; from < processes::size(); ++from) {
        const std::string text = processes::receive(from);
        unpacker packed(text);
        while (!packed.at_end()) {
            segment one;
            one.line = packed.take<int64_t>();
            one.direction = packed.take<int>();
            one.hop = packed.take<int>();
            one.ended = packed.take<line_end>();
            one.in_cell = packed.take<bool>();
            one.redone = packed.take<int>();
            one.nodes = packed.take_list<line_node>();
            own.push_back(std::move(one));
        }
    }
    return own;
}

std::vector<traced_line> joined(std::vector<segment> segments, size_t nlines)
{
    std::sort(segments.begin(), segments.end(), [](const segment &a, const segment &b) {
        return std::make_tuple(a.line, a.direction, a.hop) < std::make_tuple(b.line, b.direction, b.hop);
    });
    std::vector<traced_line> lines(nlines);
    for (size_t first = 0, end; first < segments.size(); first = end) { // one way of a line
        const segment &of = segments[first];
        traced_line &line = lines[static_cast<size_t>(of.line)];
        line.in_cell = of.in_cell;
        std::vector<line_node> nodes;
        for (end = first; end < segments.size() && segments[end].line == of.line &&
                          segments[end].direction == of.direction;
             ++end) {
            nodes.resize(nodes.size() - static_cast<size_t>(segments[end].redone));
            nodes.insert(nodes.end(), segments[end].nodes.begin(), segments[end].nodes.end());
        }
        const line_end ended = segments[end - 1].ended;
        if (of.direction < 0) { // comes first
            line.began = ended;
            std::reverse(nodes.begin(), nodes.end());
            if (!nodes.empty()) nodes.pop_back(); // the seed, which the other way begins with
        } else {
            line.ended = ended;
        }
        line.nodes.insert(line.nodes.end(), nodes.begin(), nodes.end());
    }
    return lines;
}

// ---- seeds ---------------------------------------------------------------------------------------------------------------

// A cell in which a seed lies, and how its corners weigh there.
struct drawn_cell {
    int piece = -1; // of this process; below 0: of none
    qx_long
        number; // of lattices the nodes' base in the whole, by axis; else among the piece's own cells of the set
    qx_long base[3];
    int set;
    double weights[8];
};

// Kinds and orders that cells have in the file, in the order of sets.
constexpr int set_keys = 2 * CELL_KINDS;

int set_key(const input_set &set)
{
    return 2 * set.file_kind + set.file_order - 1;
}

// A piece's own cells of one kind and order.
struct cells_of_key {
    int kind = 0;                   // that they are traced in
    const input_set *set = nullptr; // of cell sets
    std::vector<qx_long> cells;     // as the set numbers them; of lattices by VTK's numbers
};

std::vector<cells_of_key> own_cells(const input &in)
{
    std::vector<cells_of_key> of_key(set_keys);
    const auto is_own = [&](vtkIdType number) {
        return in.ghost_cell.empty() || in.ghost_cell[static_cast<size_t>(number)] == 0;
    };
    if (in.mesh->structured()) {
        const int kind = in.mesh->kind_of_set(0);
        cells_of_key &all = of_key[2 * static_cast<size_t>(kind)];
        all.kind = kind;
        for (qx_long cell = 0; cell < in.mesh->mesh->ncells; ++cell)
            if (is_own(static_cast<vtkIdType>(cell))) all.cells.push_back(cell);
        return of_key;
    }
    for (const input_set &set : in.mesh->sets) {
        cells_of_key &all = of_key[static_cast<size_t>(set_key(set))];
        all.kind = set.kind;
        all.set = &set;
        for (qx_long cell = 0; cell < set.ncells; ++cell)
            if (is_own(set.vtk_cell(cell))) all.cells.push_back(cell);
    }
    return of_key;
}

void lattice_corners(const input_mesh &mesh, qx_long cell, qx_long *nodes)
{
    qx_long base = 0, stride = 1, steps[3] = {0, 0, 0};
    for (size_t d = 0; d < mesh.dims.size(); ++d) {
        const qx_long cells = std::max<qx_long>(mesh.dims[d] - 1, 1);
        base += cell % cells * stride;
        cell /= cells;
        steps[d] = stride;
        stride *= mesh.dims[d];
    }
    const qx_long around[4] = {0, steps[0], steps[0] + steps[1], steps[1]};
    for (int corner = 0; corner < 8; ++corner)
        nodes[corner] = base + around[corner & 3] + (corner > 3 ? steps[2] : 0);
}

struct placed_seed {
    int64_t number;
    double at[3];
};

} // namespace

stream_lines trace_lines_in_pieces(pieces &parts,
                                   const std::function<scalar_array(const input &)> &vectors_of,
                                   const std::vector<double> &seeds, const line_options &options)
{
    int first_piece = 0, process = 0;
    for (const std::string &count : processes::all_of(std::to_string(parts.own_count())))
        if (process++ < processes::rank()) first_piece += std::stoi(count);
    piece_shelf shelf(parts, first_piece, vectors_of, options);
    const auto nseeds = static_cast<int64_t>(seeds.size()) / 3;
    // The shift of coordinates is that of all pieces, and known once one is there.
    processes::agree([&] {
        for (int i = 0; i < shelf.count() && shelf.name.empty(); ++i)
            shelf.get(i);
    });
    packer about;
    if (!shelf.name.empty()) {
        about.add_text(shelf.name);
        about.add(shelf.veclen);
        for (const double along : shelf.offset)
            about.add(along);
    }
    const std::string known = agreed(about.bytes);
    if (known.empty()) throw failure(parts.path() + ": has no cells to trace lines in");
    unpacker from(known);
    const std::string name = from.take_text();
    const int veclen = from.take<int>();
    double offset[3];
    for (double &along : offset)
        along = from.take<double>();
    std::copy_n(offset, 3, shelf.offset);

    std::vector<waiting> queue;
    for (int64_t i = 0; i < nseeds; ++i)
        for (const int direction : {-1, 1}) {
            if (direction < 0 && !options.both) continue;
            waiting seed = {i, direction};
            for (int d = 0; d < 3; ++d)
                seed.at[static_cast<size_t>(d)] =
                    static_cast<float>(seeds[static_cast<size_t>(3 * i + d)] - offset[d]);
            queue.push_back(seed);
        }
    std::vector<segment> made;
    if (processes::several())
        rounds(shelf, made).run(queue);
    else
        sweeps(shelf, made).run(queue);
    parts.tell_of_loaded();
    const bool flattened = processes::any(shelf.flattened);
    made = gathered(std::move(made));
    if (!processes::is_first()) return {};
    stream_lines result =
        collect_lines(offset, name, veclen, options, joined(std::move(made), static_cast<size_t>(nseeds)));
    result.flattened = flattened;
    return result;
}

std::vector<double> random_seeds_in_pieces(pieces &parts, int64_t count)
{
    // What there is, in the order of the pieces.
    const int npieces = parts.own_count();
    packer packed;
    bool all_lattices = true;
    std::vector<int> kinds(set_keys, 0);
    processes::agree([&] {
        for (int i = 0; i < npieces; ++i) {
            const input in = parts.load(i);
            std::vector<qx_long> counts(set_keys, 0);
            const bool has_cells = in.mesh != nullptr && in.mesh->mesh->ncells > 0 &&
                                   in.mesh->cell_ndim() == parts.whole().cell_ndim;
            if (has_cells) {
                all_lattices = all_lattices && in.mesh->structured();
                const auto of_key = own_cells(in);
                for (size_t key = 0; key < of_key.size(); ++key) {
                    counts[key] = static_cast<qx_long>(of_key[key].cells.size());
                    kinds[key] = std::max(kinds[key], of_key[key].kind);
                }
            }
            packed.add_list(counts);
        }
    });
    const bool lattice = !processes::any(!all_lattices);
    std::vector<std::vector<qx_long>> counts; // by piece of all processes
    int first_piece = 0, rank = 0;
    for (const std::string &text : processes::all_of(packed.bytes)) {
        if (rank++ == processes::rank()) first_piece = static_cast<int>(counts.size());
        for (unpacker from(text); !from.at_end();)
            counts.push_back(from.take_list<qx_long>());
    }
    packer own_kinds;
    own_kinds.add_list(kinds);
    for (const std::string &text : processes::all_of(own_kinds.bytes)) {
        unpacker from(text);
        const std::vector<int> of_process = from.take_list<int>();
        std::transform(kinds.begin(), kinds.end(), of_process.begin(), kinds.begin(),
                       [](int a, int b) { return std::max(a, b); });
    }
    qx_long ncells = 0;
    for (const auto &one : counts)
        for (const qx_long n : one)
            ncells += n;
    if (ncells == 0) throw failure(parts.path() + ": has no cells to trace lines in");

    // The draws are those of random_seeds.
    const int *extent = parts.whole().extent;
    std::vector<int> axes; // of more than one node
    for (int d = 0; d < 3; ++d)
        if (extent[2 * d + 1] > extent[2 * d]) axes.push_back(d);
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> share(0, 1);
    const auto below = [&](qx_long n) { return std::uniform_int_distribution<qx_long>(0, n - 1)(random); };
    std::vector<drawn_cell> drawn(static_cast<size_t>(count));
    for (drawn_cell &one : drawn) {
        if (lattice) {
            double t[3] = {0, 0, 0};
            for (size_t a = 0; a < axes.size(); ++a) {
                one.base[a] = below(extent[2 * axes[a] + 1] - extent[2 * axes[a]]) + extent[2 * axes[a]];
                t[a] = share(random);
            }
            for (int corner = 0; corner < 8; ++corner) {
                one.weights[corner] = 1;
                for (size_t a = 0; a < 3; ++a)
                    one.weights[corner] *= (corner >> a & 1) != 0 ? t[a] : 1 - t[a];
            }
            continue;
        }
        qx_long cell = below(ncells);
        for (int set = 0; set < set_keys; ++set)
            for (size_t piece = 0; piece < counts.size() && one.piece == -1; ++piece) {
                const qx_long n = counts[piece][static_cast<size_t>(set)];
                if (cell < n) {
                    one.piece = static_cast<int>(piece) - first_piece;
                    if (one.piece < 0) one.piece = npieces; // another process's
                    one.set = set;
                    one.number = cell;
                }
                cell -= n;
            }
        const int ncorners = cell_kinds[kinds[static_cast<size_t>(one.set)]].ncorners;
        double sum = 0;
        for (int k = 0; k < ncorners; ++k)
            sum += one.weights[k] = -std::log(1 - share(random)); // evenly over a simplex
        for (int k = 0; k < ncorners; ++k)
            one.weights[k] /= sum;
    }

    packer places;
    processes::agree([&] {
        for (int i = 0; i < npieces; ++i) {
            const input in = parts.load(i);
            if (in.mesh == nullptr) continue;
            const auto of_key = own_cells(in);
            int own[6];
            if (lattice) extent_of(in.file.data, own);
            for (size_t s = 0; s < drawn.size(); ++s) {
                const drawn_cell &one = drawn[s];
                qx_long corners[20];
                int ncorners = 8;
                if (lattice) {
                    qx_long node = 0, stride = 1, cell = 0, cell_stride = 1, steps[3] = {0, 0, 0};
                    bool inside = true;
                    for (size_t a = 0; a < axes.size(); ++a) {
                        const qx_long lo = own[2 * axes[a]], hi = own[2 * axes[a] + 1];
                        inside = inside && one.base[a] >= lo && one.base[a] < hi;
                        node += (one.base[a] - lo) * stride;
                        cell += (one.base[a] - lo) * cell_stride;
                        steps[a] = stride;
                        stride *= hi - lo + 1;
                        cell_stride *= hi - lo;
                    }
                    if (!inside || (!in.ghost_cell.empty() && in.ghost_cell[static_cast<size_t>(cell)] != 0))
                        continue;
                    for (int corner = 0; corner < 8; ++corner)
                        corners[corner] = node + (corner & 1) * steps[0] + (corner >> 1 & 1) * steps[1] +
                                          (corner >> 2) * steps[2];
                } else {
                    if (one.piece != i) continue;
                    const cells_of_key &all = of_key[static_cast<size_t>(one.set)];
                    const qx_long local = all.cells[static_cast<size_t>(one.number)];
                    ncorners = cell_kinds[all.kind].ncorners;
                    if (in.mesh->structured())
                        lattice_corners(*in.mesh, local, corners);
                    else
                        std::copy_n(all.set->connect +
                                        local *
                                            (all.set->order == 1 ? ncorners : cell_kinds[all.kind].nnodes_2),
                                    ncorners, corners);
                }
                placed_seed seed = {static_cast<int64_t>(s), {0, 0, 0}};
                for (int k = 0; k < ncorners; ++k) {
                    if (!(one.weights[k] > 0)) continue;
                    double at[3];
                    in.file.data->GetPoint(static_cast<vtkIdType>(corners[k]), at);
                    for (int d = 0; d < 3; ++d)
                        seed.at[d] += one.weights[k] * at[d];
                }
                places.add(seed);
            }
        }
    });
    std::vector<double> seeds(3 * static_cast<size_t>(count));
    for (const std::string &text : processes::all_of(places.bytes))
        for (unpacker from(text); !from.at_end();) {
            const auto seed = from.take<placed_seed>();
            std::copy_n(seed.at, 3, &seeds[3 * static_cast<size_t>(seed.number)]);
        }
    return seeds;
}
