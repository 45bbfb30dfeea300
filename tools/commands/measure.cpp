#include "command.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "options.hpp"
#include "packing.hpp"
#include "progress.hpp"
#include "table.hpp"
#include "write.hpp"

#include <skoklana/array.h>
#include <skoklana/host/tool.h>
#include <skoklana/measure.h>

#include <vtkDataSet.h>

#include <algorithm>
#include <cmath>

namespace {

const char *const names[3] = {"length", "area", "volume"};

// What was found for one component of an array.
struct array_integral {
    std::string name;
    host_measure of[3];
};

// What was found in a mesh, or in a piece of one.
struct measured {
    host_measure whole[3];
    std::vector<array_integral> arrays;
};

class measure : public command {
  public:
    explicit measure(CLI::App &app);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    void by_host(const input &in, const scalar_array *array, int component, host_measure *out) const;
    void by_library(const input &in, const typed_array *array, int component, host_measure *out) const;
    std::vector<array_integral> integrals(const input &in) const;

    input_options file;
    std::string array, json;
    std::optional<double> null;
    bool library = false;
};

measure::measure(CLI::App &app) : file(app, input_options::in_pieces::yes)
{
    app.add_option("--array,-a", array, "integrate this node array only");
    app.add_option("--null", null, "the value that means: no value here; NaN always means that");
    app.add_option("--json", json, "write the figures to this file, too (.json)");
    app.add_flag("--library", library,
                 "the library's own rule: single precision; pyramids and second-order cells add nothing");
    app.footer(
        "Length, area and volume of the cells of each dimension, and integral and mean of each node array\n"
        "over them, in double and for every kind and order of cells. A cell with a node without value\n"
        "counts with its measure, and has no part in integral and mean.");
}

// 0 / 0 is NaN of either sign.
double mean_of(const host_measure &of)
{
    return of.valued > 0 ? of.integral / of.valued : std::nan("");
}

void measure::by_host(const input &in, const scalar_array *of, int component, host_measure *out) const
{
    const operation work("measure");
    host_array values = {};
    if (of != nullptr)
        values = {of->array.values, of->array.type, of->array.veclen,
                  of->null_flag != 0 ? of->null_value() : nullptr};
    const int done = host_measure_field(in.mesh->field, of != nullptr ? &values : nullptr, component, out);
    work.check(done == HOST_DONE, file.path() + ": could not be measured");
}

// The library takes scalars, and out of a cell with a null node the measure as well.
void measure::by_library(const input &in, const typed_array *of, int component, host_measure *out) const
{
    std::vector<char> scalars;
    double null_bits = 0;
    if (of != nullptr) {
        scalars.resize(static_cast<size_t>(of->count * DTYPEtype_size(of->type)) + 8);
        UTILextract_scalar(of->count, of->veclen, of->values, of->type, component, scalars.data());
        if (null) UTILdouble_to_type(of->type, *null, &null_bits);
    }
    for (int ndim = 1; ndim <= 3; ++ndim) {
        float whole = 0, integral = 0;
        UTILvol_integr(in.mesh->mesh, ndim, of != nullptr ? scalars.data() : nullptr,
                       of != nullptr ? of->type : DTYPE_FLOAT, null ? 1 : 0, &null_bits, &whole, &integral);
        host_measure &one = out[ndim - 1];
        one = {0, static_cast<double>(whole), static_cast<double>(integral), static_cast<double>(whole), 0};
        for (int set = 0; set < in.mesh->mesh->ncell_sets; ++set)
            if (in.mesh->mesh->cell_ndim[set] == ndim) one.ncells += in.mesh->mesh->cell_count[set];
    }
}

std::vector<array_integral> measure::integrals(const input &in) const
{
    std::vector<array_integral> found;
    if (!array.empty() && find_array(in.node, array) == nullptr)
        throw failure(file.path() + ": has no node array " + array + "; it has " + names_of(in.node));
    for (const typed_array &one : in.node) {
        if (!array.empty() && one.name != array) continue;
        const scalar_array rows = rows_with_null(one, null.has_value(), null.value_or(0));
        for (int c = 0; c < one.veclen; ++c) {
            found.push_back({one.veclen > 1 ? one.name + ":" + std::to_string(c) : one.name, {}});
            if (library)
                by_library(in, &one, c, found.back().of);
            else
                by_host(in, &rows, c, found.back().of);
        }
    }
    return found;
}

// A record a dimension that the mesh has cells of.
std::string as_records(const host_measure *whole, const std::vector<array_integral> &arrays)
{
    std::string records;
    for (int d = 0; d < 3; ++d) {
        if (whole[d].ncells == 0) continue;
        table one = {{"dimension", "quantity", "cells", "measure"},
                     {{int64_t{d + 1}, std::string(names[d]), whole[d].ncells, whole[d].measure}}};
        std::string record = as_json(one);
        table integrals = {{"array", "integral", "mean", "cells without value"}, {}};
        for (const array_integral &a : arrays)
            integrals.rows.push_back({a.name, a.of[d].integral, mean_of(a.of[d]), a.of[d].null_cells});
        // the one object of the array, with its integrals inside
        const size_t open = record.find('{'), end = record.rfind('}');
        std::string inner = as_json(integrals);
        while (!inner.empty() && inner.back() == '\n')
            inner.pop_back();
        records +=
            (records.empty() ? "" : ",\n") + record.substr(open, end - open) + ", \"arrays\": " + inner + "}";
    }
    return "[" + records + "]\n";
}

// Sums over pieces, in their order.
void add(host_measure *to, const host_measure *of)
{
    for (int d = 0; d < 3; ++d) {
        to[d].ncells += of[d].ncells;
        to[d].measure += of[d].measure;
        to[d].integral += of[d].integral;
        to[d].valued += of[d].valued;
        to[d].null_cells += of[d].null_cells;
    }
}

void add(measured *to, const measured &of)
{
    add(to->whole, of.whole);
    if (to->arrays.empty()) {
        to->arrays = of.arrays;
        return;
    }
    for (size_t a = 0; a < of.arrays.size(); ++a)
        add(to->arrays[a].of, of.arrays[a].of);
}

// Over the pieces of all processes.
measured over_all(const measured &own)
{
    if (!processes::several()) return own;
    packer packed;
    packed.add(own.whole);
    for (const array_integral &one : own.arrays) {
        packed.add_text(one.name);
        packed.add(one.of);
    }
    measured all = {};
    for (const std::string &text : processes::all_of(packed.bytes)) {
        unpacker from(text);
        measured one = {};
        const auto take = [&](host_measure *to) {
            for (int d = 0; d < 3; ++d)
                to[d] = from.take<host_measure>();
        };
        take(one.whole);
        while (!from.at_end()) {
            one.arrays.push_back({from.take_text(), {}});
            take(one.arrays.back().of);
        }
        if (one.arrays.empty()) // a process without pieces
            add(all.whole, one.whole);
        else
            add(&all, one);
    }
    return all;
}

void measure::run()
{
    if (!json.empty()) check_ending(json, " .json ", "a table of figures");
    pieces parts = file.split(library ? mesh_use::extract : mesh_use::locate);
    measured sums = {};
    parts.each([&](const input &in) {
        stage_done("read");
        measured one = {};
        if (library)
            by_library(in, nullptr, 0, one.whole);
        else
            by_host(in, nullptr, 0, one.whole);
        one.arrays = integrals(in);
        add(&sums, one);
        stage_done("compute");
    });
    sums = over_all(sums);
    const host_measure *whole = sums.whole;
    const std::vector<array_integral> &arrays = sums.arrays;

    table sizes = {{"quantity", "measure", "cells"}, {}};
    table found = {{"array", "over", "integral", "mean"}, {}};
    qx_long without_value = 0;
    for (int d = 2; d >= 0; --d) {
        if (whole[d].ncells == 0) continue;
        sizes.rows.push_back({std::string(names[d]), whole[d].measure, whole[d].ncells});
        for (const array_integral &a : arrays) {
            found.rows.push_back({a.name, std::string(names[d]), a.of[d].integral, mean_of(a.of[d])});
            without_value = std::max(without_value, a.of[d].null_cells);
        }
    }
    if (sizes.rows.empty()) throw failure(file.path() + ": has no cells to measure");
    say("%s", as_text(sizes).c_str());
    if (!found.rows.empty()) say("%s", as_text(found).c_str());
    if (without_value > 0)
        say_note(std::to_string(without_value) +
                 " cells with a node without value have no part in an integral");
    if (!json.empty()) {
        processes::agree([&] {
            if (processes::is_first()) write_text(json, as_records(whole, arrays));
        });
        stage_done("write");
    }
}

} // namespace

extern const command_entry measure_command{
    "measure", "Length, area, volume, and integrals and means of arrays", make_command<measure>};
