"""What the figures depend on, but not whose machine it is."""
import os
import platform
import re
import subprocess
from pathlib import Path

LIBRARIES = {"libdbus": "dbus-1", "sd-bus": "libsystemd", "GLib": "gio-2.0", "sdbus-c++": "sdbus-c++"}


def line_of(*command):
    """The first line that a command prints; nothing when there is no such command."""
    try:
        printed = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return ""
    return printed.splitlines()[0] if printed else ""


def version(text):
    return match[0] if (match := re.search(r"\d+(\.\d+)*", text)) else "none"


def pattern_in(path, pattern):
    return match[1].strip() if (match := re.search(pattern, Path(path).read_text(), re.MULTILINE)) else "unknown"


def facts(cache):
    """By what they are about; cache is the CMakeCache.txt of the build."""
    compiler = pattern_in(cache, r"^CMAKE_CXX_COMPILER:\w+=(.*)$")
    virtual = "hypervisor" in Path("/proc/cpuinfo").read_text()
    return {
        "processor": f"{os.cpu_count()} cores{' of a virtual machine' if virtual else ''}, "
                     + pattern_in("/proc/cpuinfo", r"^model name\s*:(.*)$"),
        "load before": f"{os.getloadavg()[0]:.1f}",
        "system": f"{pattern_in('/etc/os-release', '^PRETTY_NAME=.(.*).$')}, Linux {version(platform.release())}",
        "compiler": f"{version(line_of(compiler, '-dumpfullversion'))} ({Path(compiler).name}), "
                    + pattern_in(cache, r"^CMAKE_BUILD_TYPE:\w+=(.*)$"),
        "Qt": version(line_of("pkg-config", "--modversion", "Qt5Core")),
        "dbus-daemon": version(line_of("dbus-daemon", "--version")),
        "dbus-broker": version(line_of("dbus-broker", "--version")),
        **{name: version(line_of("pkg-config", "--modversion", module)) for name, module in LIBRARIES.items()},
    }
