"""The command on one process and on several: times, bytes, memory, and whether results are the same.

Each row is a run of the whole command from start to end, by the wall's clock; the least of --repeats. A process has one
thread, so that nothing but processes makes a difference. Results of pieces are held against that of one process from one
file: lattices value by value, meshes cell by cell in any order, bit for bit, but for gradients of cells, which are sums in
another order. The program ends with 1 where results differ, and with 77 where VTK's Python modules or
mpirun are not there.
"""

import argparse
import json
import os
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import time

try:
    import numpy as np
    from vtkmodules.util.numpy_support import vtk_to_numpy
    from vtkmodules.vtkIOXML import vtkXMLGenericDataObjectReader
except ImportError as missing:
    print(f"scale: {missing}")
    sys.exit(77)

MEGA = 1e6
PROCESS_LINE = re.compile(r"process +(\d+): peak +([\d.]+) MB, read +([\d.]+) MB, sent +([\d.]+) MB")


def arguments():
    words = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    words.add_argument("--command", required=True)
    words.add_argument("--data", help="folder for inputs and results; inputs are kept; else a temporary one")
    words.add_argument("--commit", default="")
    words.add_argument("--markdown")
    words.add_argument("--json")
    words.add_argument("--quick", action="store_true", help="an eighth of the nodes along each axis")
    words.add_argument("--tiny", action="store_true", help="for the checks alone")
    words.add_argument("--size", type=int, help="nodes along each axis of the sample, instead of 512")
    words.add_argument("--cells", type=int, help="cells along each axis of the mesh in pieces, instead of 255")
    words.add_argument("--large", type=int, help="nodes along each axis of what is larger than memory, instead of 400")
    words.add_argument("--processes", help="counts of processes, instead of 1,2, and of 2,4,8,16 with --count")
    words.add_argument("--repeats", type=int, default=1)
    words.add_argument("--count", action="store_true", help="count messages between processes, and do nothing else")
    words.add_argument("--only", default="", help="commands whose name holds the text")
    return words.parse_args()


# ---- runs ------------------------------------------------------------------------------------------------------------------


def mpirun(processes):
    return ["mpirun", "--oversubscribe", "--allow-run-as-root", "-n", str(processes)]


class Run:
    """What one run took. processes: by mpirun; 0: a plain start."""

    def __init__(self, command, words, processes=0, limit=None):
        line = [command, *words, "--time"]
        if processes > 0:
            line = [*mpirun(processes), *line]
        # From a small process: the peak of one begins with that of its parent.
        line = ["/bin/sh", "-c", '"$@"; exit $?', "sh", *line]
        limited = (lambda: resource.setrlimit(resource.RLIMIT_DATA, (limit, limit))) if limit else None
        begun = time.monotonic()
        done = subprocess.run(line, capture_output=True, text=True, preexec_fn=limited, check=False)
        self.seconds = time.monotonic() - begun
        self.ok = done.returncode == 0
        self.said = done.stdout + done.stderr
        figures = PROCESS_LINE.findall(done.stdout)
        self.peak = [float(one[1]) for one in figures]
        self.read = [float(one[2]) for one in figures]
        self.sent = [float(one[3]) for one in figures]

    def require(self):
        if not self.ok:
            sys.exit("scale: a run failed\n" + self.said)
        return self


def least_of(repeats, make):
    runs = [make().require() for _ in range(repeats)]
    return min(runs, key=lambda run: run.seconds)


# ---- results in any order ----------------------------------------------------------------------------------------------------


def data_of(path):
    reader = vtkXMLGenericDataObjectReader()
    reader.SetFileName(path)
    reader.Update()
    return reader.GetOutput()


def arrays_of(attributes):
    """By name, in the order of names."""
    names = sorted(attributes.GetArrayName(i) for i in range(attributes.GetNumberOfArrays()))
    return {name: vtk_to_numpy(attributes.GetArray(name)) for name in names}


def mixed(columns, n):
    """A number of 64 bits for each row of all columns, from its bits."""
    numbers = np.full(n, 0x9E3779B97F4A7C15, dtype=np.uint64)
    for column in columns:
        rows = np.ascontiguousarray(column).reshape(n, -1)
        words = rows.view(f"u{rows.dtype.itemsize}")
        for i in range(words.shape[1]):
            numbers ^= words[:, i].astype(np.uint64)
            numbers *= np.uint64(0xD6E8FEB86659FD93)
            numbers ^= numbers >> np.uint64(32)
    return numbers


def cells_of(data):
    """Of a mesh that is no lattice: types, nodes in a row, and where each cell begins in it; one for each kind of cells."""
    if data.IsA("vtkPolyData"):
        lists = [(None, data.GetVerts()), (None, data.GetLines()), (None, data.GetPolys())]
    else:
        lists = [(data.GetCellTypesArray(), data.GetCells())]
    at = 0
    for types, cells in lists:
        n = cells.GetNumberOfCells()
        if n > 0:
            yield (vtk_to_numpy(types) if types else np.zeros(n, dtype=np.uint8), vtk_to_numpy(cells.GetConnectivityArray()),
                   vtk_to_numpy(cells.GetOffsetsArray()), at)
        at += n


class Result:
    """A mesh as numbers: of nodes by place and values, of cells by those of their nodes. near: a node array that is left out
    and kept."""

    def __init__(self, path, near=None):
        data = data_of(path)
        n = data.GetNumberOfPoints()
        values = arrays_of(data.GetPointData())
        self.near = values.pop(near) if near else None
        self.lattice = None
        if data.IsA("vtkImageData"):
            self.lattice = (data.GetExtent(), data.GetOrigin(), data.GetSpacing(), values)
            return
        self.nodes = mixed([vtk_to_numpy(data.GetPoints().GetData()), *values.values()] if n > 0 else [], n)
        of_cells = mixed(arrays_of(data.GetCellData()).values(), data.GetNumberOfCells())
        all_cells = []
        for types, nodes, offsets, at in cells_of(data):
            sizes = np.diff(offsets)
            for size in np.unique(sizes):
                which = np.flatnonzero(sizes == size)
                rows = self.nodes[nodes[offsets[which][:, None] + np.arange(size)]]
                if data.IsA("vtkPolyData") and size in (3, 4):  # from the least on, in their own direction
                    first = np.argmin(rows, axis=1)
                    rows = rows[np.arange(len(rows))[:, None], (first[:, None] + np.arange(size)) % size]
                elif size == 2:
                    rows = np.sort(rows, axis=1)
                all_cells.append(mixed([types[which], of_cells[at + which], rows], len(which)))
        self.cells = np.sort(np.concatenate(all_cells)) if all_cells else np.zeros(0, dtype=np.uint64)

    def compared(self, other):
        """In a word; None where other is another mesh."""
        if self.lattice is not None:
            *place, values = self.lattice
            *other_place, other_values = other.lattice
            same = place == other_place and values.keys() == other_values.keys() and all(
                np.array_equal(one.view(np.uint8), other_values[name].view(np.uint8)) for name, one in values.items())
            return "same" if same else None
        # Nodes on seams are in each of the pieces.
        mine, first = np.unique(self.nodes, return_index=True)
        theirs, of_theirs = np.unique(other.nodes, return_inverse=True)
        if not np.array_equal(self.cells, other.cells) or not np.array_equal(mine, theirs):
            return None
        if self.near is None or np.array_equal(self.near[first][of_theirs], other.near):
            return "same"
        apart = np.abs(self.near[first][of_theirs] - other.near).max() / np.abs(self.near).max()
        return f"within {apart:.0e}" if apart < 1e-6 else None


# ---- inputs ----------------------------------------------------------------------------------------------------------------


class Inputs:
    def __init__(self, options, folder):
        self.command, self.folder = options.command, folder
        os.makedirs(self.folder, exist_ok=True)
        small = 20 if options.tiny else 8 if options.quick else 1
        self.size = options.size or 512 // small
        self.cells = options.cells or (256 // small) - 1
        self.large = options.large or 400 // small

    def path(self, name):
        return os.path.join(self.folder, name)

    def made(self, name, *words):
        path = self.path(name)
        if not os.path.exists(path):
            Run(self.command, [*words, "-o", path]).require()
        return path

    def lattice(self):
        return self.made(f"sample{self.size}.vti", "sample", "marschner-lobb", "--size", str(self.size))

    def mesh(self):
        """Hexahedra in 16 pieces, and the same in one file."""
        n = self.cells + 1
        whole = self.made(f"nodes{n}.vti", "sample", "marschner-lobb", "--size", str(n))
        name = array_of(whole)
        pieces = self.made(f"cells{n}.pvtu", "threshold", whole, "--array", name, "--min", "-1e30", "--pieces", "16")
        return self.made(f"cells{n}.vtu", "threshold", whole, "--array", name, "--min", "-1e30"), pieces

    def beyond_memory(self):
        return self.made(f"large{self.large}.vti", "sample", "marschner-lobb", "--size", str(self.large))


def array_of(path):
    """The name of the first node array, from the head of the file."""
    with open(path, "rb") as file:
        head = file.read(4000).decode("latin-1")
    return re.search(r'<DataArray[^>]*Name="([^"]+)"', head[head.index("<PointData"):]).group(1)


# ---- tables ----------------------------------------------------------------------------------------------------------------


def table(title, heads, rows):
    widths = [max(len(str(row[i])) for row in [heads, *rows]) for i in range(len(heads))]
    lines = ["| " + " | ".join(str(one).ljust(width) for one, width in zip(row, widths)) + " |" for row in [heads, *rows]]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join([f"### {title}", "", *lines, ""])


def listed(figures):
    return ", ".join(f"{one:.1f}" if one < 100 else f"{one:.0f}" for one in figures) or "-"


# ---- cases -----------------------------------------------------------------------------------------------------------------


def strong_scaling(options, inputs, figures):
    """The same work on 1, 2, ... processes, and results against those of one process from one file."""
    counts = [int(one) for one in (options.processes or "1,2").split(",")]
    lattice = inputs.lattice()
    whole, pieces = inputs.mesh()
    array, of_mesh = array_of(lattice), array_of(whole)
    points = ["--line", "-0.9,-0.8,-0.7", "0.9,0.7,0.8", str(max(1000, inputs.size * 2000))]
    cases = []
    for title, plain, split, name, ending in [
            (f"{inputs.size}^3 nodes", lattice, lattice, array, ".vti"),
            (f"{inputs.cells ** 3} cells in 16 pieces", whole, pieces, of_mesh, ".vtu")]:
        near = f"gradient({name})" if ending == ".vtu" else None
        cases += [("iso", title, plain, split, ["--array", name, "--level", "0.5"], ".vtp", None),
                  ("cut", title, plain, split, ["--array", name, "--level", "0.99"], ".vtu", None),
                  ("gradient", title, plain, split, ["--array", name], ending, near),
                  ("probe", title, plain, split, points, ".vtp", None)]
    rows, wrong = [], []
    for command, title, plain, split, words, ending, near in cases:
        if options.only not in command:
            continue
        words = [*words, "--threads", "1"]
        one_file = inputs.path("result" + ending)
        base = least_of(options.repeats, lambda: Run(options.command, [command, plain, *words, "-o", one_file]))
        expected = Result(one_file, near)
        # A list of files has as many pieces, whoever works on it; of a lattice each process has one.
        to = inputs.path("result.p" + ending[1:]) if command != "probe" else inputs.path("result_of_pieces" + ending)
        if split != plain:
            add_row(rows, figures, command, title, "1, one file", base, None, "")
        first = None
        for n in counts:
            if n == 1 and split == plain:
                run, same = base, "same"
            else:
                line = [command, split, *words, *(["--pieces", "16"] if split != plain else []), "-o", to]
                run = least_of(options.repeats, lambda: Run(options.command, line, n if n > 1 else 0))
                same = expected.compared(Result(to, near))
            first = first or run.seconds
            if same is None:
                wrong.append(f"{command} of {title} on {n} processes")
            add_row(rows, figures, command, title, n, run, first, same or "OTHER")
        remove_results(inputs.folder)
    heads = ["command", "data", "processes", "s", "times as fast", "MB read by each", "kB sent by each", "peak MB of each",
             "result"]
    return table("On several processes", heads, rows), wrong


def add_row(rows, figures, command, title, processes, run, first, result):
    rows.append([command, title, processes, f"{run.seconds:.2f}", f"{first / run.seconds:.2f}" if first else "",
                 listed(run.read), listed([1000 * one for one in run.sent]), listed(run.peak), result])
    figures.append({"case": command, "data": title, "processes": processes, "seconds": run.seconds, "read": run.read,
                    "sent": run.sent, "peak": run.peak, "result": result})


def remove_results(folder):
    for name in os.listdir(folder):
        if name.startswith(("result", "small", "part")):
            os.remove(os.path.join(folder, name))


def beyond_memory(options, inputs, figures):
    """--pieces 64 within a limit that is less than the data."""
    path = inputs.beyond_memory()
    name = array_of(path)
    bytes_of_data = 4 * inputs.large ** 3
    # Of what a process writes to, libraries' own data among it; of small data that would be all.
    limit = bytes_of_data * 4 // 5 if bytes_of_data > 2e8 else None
    rows, wrong = [], []
    for command, words, ending in [("iso", ["--level", "0.5"], ".vtp"), ("gradient", [], ".vti")]:
        if options.only not in command:
            continue
        line = [command, path, "--array", name, *words]
        to, whole_to = inputs.path("part.p" + ending[1:]), inputs.path("result" + ending)
        run = Run(options.command, [*line, "--pieces", "64", "-o", to], limit=limit).require()
        limited = Run(options.command, [*line, "-o", whole_to], limit=limit)
        if limited.ok and limit is not None:
            wrong.append(f"{command} of a whole within a limit on memory that was none")
        if not limited.ok:
            Run(options.command, [*line, "-o", whole_to]).require()
        same = Result(whole_to).compared(Result(to))
        if same is None:
            wrong.append(f"{command} with --pieces 64")
        rows.append([command, f"{bytes_of_data / MEGA:.0f}", "none" if limit is None else f"{limit / MEGA:.0f}",
                     "done" if limited.ok else "out of memory", f"{run.seconds:.1f}", listed(run.peak), listed(run.read),
                     same or "OTHER"])
        figures.append({"case": command, "data_bytes": bytes_of_data, "limit": limit, "whole": limited.ok,
                        "seconds": run.seconds, "peak": run.peak, "read": run.read, "result": same})
        remove_results(inputs.folder)
    heads = ["command", "MB of values", "limit, MB", "in one piece", "64 pieces, s", "peak MB", "MB read", "result"]
    return table("Data larger than memory", heads, rows), wrong


def counted(options, inputs, figures):
    """Messages and bytes between processes, from Open MPI's own monitoring."""
    lattice = inputs.lattice()
    name = array_of(lattice)
    flow = inputs.made(f"flow{inputs.size}.vti", "gradient", lattice, "--array", name)
    seeds = ["--vectors", f"gradient({name})", "--seeds-random", "100", "--max-steps", "500"]
    points = ["--line", "-0.9,-0.8,-0.7", "0.9,0.7,0.8", "100000"]
    cases = [("iso", lattice, ["--array", name, "--level", "0.5"], ".pvtp"),
             ("iso --gather", lattice, ["--array", name, "--level", "0.5", "--gather"], ".vtp"),
             ("gradient", lattice, ["--array", name], ".pvti"),
             ("gradient --gather", lattice, ["--array", name, "--gather"], ".vti"),
             ("measure", lattice, ["--array", name], None),
             ("probe", lattice, points, ".vtp"),
             ("stream", flow, seeds, ".vtp")]
    rows = []
    report = inputs.path("messages")
    for title, path, words, ending in cases:
        if options.only not in title:
            continue
        for n in [int(one) for one in (options.processes or "2,4,8,16").split(",")]:
            line = [*mpirun(n), "--mca", "pml_monitoring_enable", "1",
                    "--mca", "pml_monitoring_enable_output", "3", "--mca", "pml_monitoring_filename", report,
                    options.command, title.split()[0], path, *words, "--quiet"]
            if ending is not None:
                line += ["-o", inputs.path("result" + ending)]
            done = subprocess.run(line, capture_output=True, text=True, check=False)
            if done.returncode != 0:
                sys.exit("scale: a run failed\n" + done.stdout + done.stderr)
            sent = []  # of each process: messages and bytes
            received = [0] * n
            for rank in range(n):
                messages = size = 0
                with open(f"{report}.{rank}.prof", encoding="utf-8") as file:
                    for to, one_size, count in re.findall(r"^E\t\d+\t(\d+)\t(\d+) bytes\t(\d+) msgs", file.read(), re.M):
                        messages += int(count)
                        size += int(one_size)
                        received[int(to)] += int(one_size)
                sent.append((messages, size))
                os.remove(f"{report}.{rank}.prof")
            rows.append([title, n, sent[0][0], max(one[0] for one in sent), sum(one[0] for one in sent),
                         f"{sum(one[1] for one in sent) / 1000:.1f}", f"{max(one[1] for one in sent) / 1000:.1f}",
                         f"{received[0] / 1000:.1f}"])
            figures.append({"case": title, "processes": n, "messages_and_bytes": sent, "received_by_first": received[0]})
    heads = ["command", "processes", "messages of the first", "most messages of one", "all messages", "kB in all",
             "kB sent by one at most", "kB received by the first"]
    return table(f"Messages, {inputs.size}^3 nodes", heads, rows)


def main():
    options = arguments()
    options.command = os.path.abspath(options.command)
    if shutil.which("mpirun") is None:
        print("scale: mpirun is not there")
        return 77
    with tempfile.TemporaryDirectory(prefix="skoklana_scale") as own:
        os.environ["OMPI_MCA_orte_tmpdir_base"] = own  # groups that share it get in each other's way
        return measured(options, Inputs(options, options.data or own))


def measured(options, inputs):
    begun = time.monotonic()
    figures = []
    wrong, also = [], []
    if options.count:
        text = counted(options, inputs, figures)
    else:
        text, wrong = strong_scaling(options, inputs, figures)
        more, also = beyond_memory(options, inputs, figures)
        text += "\n" + more
    text = f"commit {options.commit}, {os.cpu_count()} processors\n\n{text}"
    print(text)
    print(f"in all {time.monotonic() - begun:.0f} s")
    if options.markdown:
        with open(options.markdown, "w", encoding="utf-8") as file:
            file.write(text)
    if options.json:
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump({"commit": options.commit, "runs": figures}, file, indent=1)
    remove_results(inputs.folder)
    for one in wrong + also:
        print("scale: not as on one process: " + one, file=sys.stderr)
    return 1 if wrong + also else 0


if __name__ == "__main__":
    sys.exit(main())
