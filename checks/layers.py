"""The modules form layers: what includes what has no cycle.

A module is a header and the source of the same name. It includes nothing of a room above its own,
so the host layer knows nothing of the library and the library nothing of the program; and nothing
that it includes leads back to it, or a reader who wants to understand one module has to understand
them all.

    python3 checks/layers.py [--print]

Prints a cycle, where there are any, and each include from a room into one above it; with --print
the layers, too, the lowest first. Ends with status 1 when there is something to complain about.
"""

import argparse
import graphlib
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
ROOMS = ("host", "common", "cpp")  # the lowest first
INCLUDE = re.compile(rf'^#include "((?:{"|".join(ROOMS)})/[^"]+)"', re.MULTILINE)


def module_of(path):
    return path.rsplit(".", 1)[0]


def height_of(module):
    return ROOMS.index(module.split("/", 1)[0])


def read_graph(root):
    """{module: the modules that it includes}"""
    graph = {}
    for room in ROOMS:
        for path in sorted((root / room).rglob("*")):
            if path.suffix not in (".h", ".cc"):
                continue
            module = module_of(path.relative_to(root).as_posix())
            included = {module_of(name) for name in INCLUDE.findall(path.read_text())}
            graph.setdefault(module, set()).update(included - {module})
    return graph


def layers_of(graph):
    """The modules in layers, each above those that it includes; raises a CycleError where it
    finds modules that include one another."""
    sorter = graphlib.TopologicalSorter(graph)
    sorter.prepare()
    while sorter.is_active():
        layer = sorted(sorter.get_ready())
        yield layer
        sorter.done(*layer)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--print", action="store_true", help="the layers, too")
    parser.add_argument("--root", type=pathlib.Path, default=ROOT, help=argparse.SUPPRESS)
    options = parser.parse_args()
    graph = read_graph(options.root)
    complaints = [f"{module} includes {name}" for module in sorted(graph)
                  for name in sorted(graph[module]) if height_of(name) > height_of(module)]
    layers = []
    try:
        layers += layers_of(graph)
    except graphlib.CycleError as error:
        complaints.append("these include one another: " + " ".join(error.args[1]))
    if options.print:
        for number, layer in enumerate(layers):
            print(f"{number:2}  {' '.join(layer)}")
    print("\n".join(complaints) if complaints else
          f"{len(graph)} modules in {len(layers)} layers")
    return 1 if complaints or not graph else 0


if __name__ == "__main__":
    sys.exit(main())
