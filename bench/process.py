"""What stays inside a process, by Google Benchmark: filtered log lines, the caches of proxies and of return types."""
import json
import subprocess
import sys

import frame

LINES, CALLS, LOOKUPS, TYPES = ("a log line below the level", "call to a module of one's own process",
                                "proxy looked up in the module's cache", "return type")
NUMBERS = (1, 100, 10_000)


def proxies(number):
    return f"{number:,} {'proxy' if number == 1 else 'proxies'} kept"


# The program's name of each benchmark: the work and the name of its cell.
BENCHMARKS = {
    "velLibraryLine": (LINES, "Vel, a line of the library"),
    "velPlainLine": (LINES, "Vel, the logger's own filter"),
    "qtLine": (LINES, "qCDebug, switched off"),
    "spdlogLine": (LINES, "spdlog"),
    "cachedReturnType": (TYPES, "known already"),
    **{f"callWithProxies/{number}": (CALLS, proxies(number)) for number in NUMBERS},
    **{f"lookUpProxy/{number}": (LOOKUPS, proxies(number)) for number in NUMBERS},
}

# A tree's depth is the logarithm to base 2 of its size: 100 proxies may cost 7 comparisons, 10,000 may cost 14.
# A call costs far more than its look-up, so next to nothing is seen of them there.
TARGETS = [
    frame.Target(LINES, "Vel, a line of the library", "", "ns", 10),
    frame.Target(LINES, "Vel, a line of the library", "", "allocations", 0),
    frame.Target(LINES, "Vel, the logger's own filter", "", "allocations", 0),
    frame.Target(LOOKUPS, proxies(10_000), proxies(100), "ns", 2.5),
    frame.Target(CALLS, proxies(100), proxies(1), "ns", 1.25),
    frame.Target(CALLS, proxies(10_000), proxies(1), "ns", 1.5),
]
PLOTS = [frame.Plot("proxy-cache", "A call to a module of one's own process", "proxies kept by the module", "ns",
                    {"syncRemoteCall()": [(number, CALLS, proxies(number), "ns") for number in NUMBERS]})]
NOTES = ["A round runs each of these benchmarks three times, in random order, and takes the least disturbed one. "
         "\"allocations\" counts malloc() and what ends in it, on all threads, for one iteration."]


class Runs:
    """One run of the program serves every cell of a round."""

    def __init__(self, bus):
        self.bus = bus
        self.command = [bus.session.programs / "process-bench", "--benchmark_format=json", "--benchmark_min_time=0.02",
                        "--benchmark_repetitions=3", "--benchmark_enable_random_interleaving=true"]
        self.taken = {}

    def names(self):
        listed = subprocess.run([*self.command, "--benchmark_list_tests=true"], env=self.bus.environment(), text=True,
                                stdout=subprocess.PIPE, check=True)
        return listed.stdout.split()

    def take(self, name):
        if name not in self.taken:
            run = subprocess.run(self.command, env=self.bus.environment(), text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, check=True)
            for one in json.loads(run.stdout)["benchmarks"]:
                if "error_message" in one:
                    sys.exit(f"bench: {one['name']}: {one['error_message']}")
                if one["run_type"] == "iteration":
                    self.taken.setdefault(one["name"], []).append(one)
        repeated = self.taken.pop(name)
        return {"ns": min(one["cpu_time"] for one in repeated),
                "allocations": max(one["allocations"] for one in repeated)}


def cells(session):
    runs = Runs(session.bus("process"))
    present = runs.names()
    if "spdlogLine" not in present:
        session.missing.append("spdlog")
    return [frame.Cell(*BENCHMARKS[name], lambda n=name: runs.take(n)) for name in present]
