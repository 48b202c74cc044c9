#include "ProcessName.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <linux/prctl.h>
#include <sstream>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

namespace {

char* areaBegin = nullptr; // of the arguments and, behind them, the environment
char* areaEnd = nullptr;

// Tells the kernel where the arguments are. It takes all addresses together, so the others are read from it first.
bool moveArguments(char* begin, char* end) {
    std::ifstream file("/proc/self/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string::npos)
        return false;
    std::istringstream rest(line.substr(nameEnd + 1));
    const std::vector<std::string> fields{std::istream_iterator<std::string>(rest), {}};
    const auto field = [&fields](std::size_t number) { // as proc(5) counts them; the third is the first here
        return number - 3 < fields.size() ? std::strtoull(fields[number - 3].c_str(), nullptr, 10) : 0;
    };
    prctl_mm_map map{};
    map.start_code = field(26);
    map.end_code = field(27);
    map.start_stack = field(28);
    map.start_data = field(45);
    map.end_data = field(46);
    map.start_brk = field(47);
    map.brk = reinterpret_cast<std::uintptr_t>(sbrk(0));
    map.arg_start = reinterpret_cast<std::uintptr_t>(begin);
    map.arg_end = reinterpret_cast<std::uintptr_t>(end);
    map.env_start = field(50);
    map.env_end = field(51);
    map.exe_fd = static_cast<decltype(map.exe_fd)>(-1);
    return prctl(PR_SET_MM, PR_SET_MM_MAP, &map, sizeof map, 0) == 0;
}

} // namespace

void reserveProcessName(char** argv) {
    areaBegin = areaEnd = argv[0];
    const auto extend = [](char* const* texts) {
        for (; *texts; ++texts) {
            if (*texts == areaEnd)
                areaEnd += std::strlen(*texts) + 1;
        }
    };
    extend(argv);
    extend(environ);
    std::vector<char*> copies;
    for (char** variable = environ; *variable; ++variable)
        copies.push_back(strdup(*variable));
    copies.push_back(nullptr);
    environ = new char*[copies.size()]; // for the life of the process
    std::copy(copies.cbegin(), copies.cend(), environ);
}

void setProcessName(const std::vector<std::string>& arguments) {
    const std::string& path = arguments.front();
    prctl(PR_SET_NAME, path.substr(path.rfind('/') + 1).c_str());

    std::string all;
    for (const std::string& argument : arguments)
        all.append(argument).push_back('\0');
    static std::vector<char>* shown = nullptr; // for the kernel to read, whatever else has ended already
    auto* const next = new std::vector<char>(all.cbegin(), all.cend());
    const bool isMoved = moveArguments(next->data(), next->data() + next->size());
    delete (isMoved ? std::exchange(shown, next) : next);
    if (isMoved)
        return;

    const auto room = static_cast<std::size_t>(areaEnd - areaBegin);
    std::memset(areaBegin, 0, room);
    std::replace(all.begin(), all.end(), '\0', ' ');
    all.pop_back();
    std::copy_n(all.cbegin(), std::min(all.size(), room > 0 ? room - 1 : 0), areaBegin);
}
