// A debug line below the level of another logging library.
#include "process/Counted.h"

#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

namespace {

void spdlogLine(benchmark::State& state) {
    const auto log = spdlog::null_logger_mt("bench");
    log->set_level(spdlog::level::warn);
    {
        const allocations::Counted counted(state);
        for (auto _ : state)
            log->debug("the text is {}", "text");
    }
    spdlog::drop("bench");
}
BENCHMARK(spdlogLine);

} // namespace
