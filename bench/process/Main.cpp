// One program for all of them, on the bus that it is given.
#include "BenchModule.h"

#include <VelApplication>

#include <benchmark/benchmark.h>

namespace {

BenchModule* theModule = nullptr;

} // namespace

BenchModule& benchModule() {
    return *theModule;
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    BenchModule module;
    theModule = &module;
    return benchmark::RunSpecifiedBenchmarks() > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
