"""What stays inside a process: filtered log lines, the proxy cache and the cache of return types, by Google Benchmark."""
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

# A tree's depth is the logarithm to base 2 of its size: 100 proxies may cost what 7 comparisons cost, 10,000 what 14 do.
# A call costs far more than its look-up, so there is next to nothing to be seen of them there.
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
NOTES = ["Each round runs all of these benchmarks once, in random order. \"allocations\" counts malloc() and what ends in "
         "it, on all threads, for one iteration."]


class Runs:
    """One run of the program serves every cell of a round."""

    def __init__(self, bus):
        self.bus = bus
        self.command = [bus.session.programs / "process-bench", "--benchmark_format=json", "--benchmark_min_time=0.1",
                        "--benchmark_enable_random_interleaving=true"]
        self.taken = {}

    def names(self):
        listed = subprocess.run([*self.command, "--benchmark_list_tests=true"], env=self.bus.environment(), text=True,
                                stdout=subprocess.PIPE, check=True)
        return listed.stdout.split()

    def take(self, name):
        if name not in self.taken:
            run = subprocess.run(self.command, env=self.bus.environment(), text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, check=True)
            self.taken = {one["name"]: one for one in json.loads(run.stdout)["benchmarks"]}
        one = self.taken.pop(name)
        if "error_message" in one:
            sys.exit(f"bench: {name}: {one['error_message']}")
        return {"ns": one["cpu_time"], "allocations": one["allocations"]}


def cells(session):
    runs = Runs(session.bus("process"))
    present = runs.names()
    if "spdlogLine" not in present:
        session.missing.append("spdlog")
    return [frame.Cell(*BENCHMARKS[name], lambda n=name: runs.take(n)) for name in present]
