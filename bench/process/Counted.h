// What a benchmark's loop allocates.
#pragma once

#include "process/Allocations.h"

#include <benchmark/benchmark.h>

namespace allocations {

/// Adds the figure "allocations", for one iteration, when the loop is over.
class Counted {
public:
    explicit Counted(benchmark::State& state) : m_state(state), m_before(count()) {}
    ~Counted() { m_state.counters["allocations"] = double(count() - m_before) / double(m_state.iterations()); }

private:
    benchmark::State& m_state;
    const long m_before;
};

} // namespace allocations
