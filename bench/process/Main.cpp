// One program for all of them, on the bus that it is given.
#include "process/BenchModule.h"

#include <VelApplication>

#include <benchmark/benchmark.h>

static BenchModule* made = nullptr;

BenchModule& theModule() {
    return *made;
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    BenchModule module;
    made = &module;
    return benchmark::RunSpecifiedBenchmarks() > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
