// What is answered from a cache: the proxy to a module, and the return type of its methods.
#include "process/BenchModule.h"
#include "process/Counted.h"

#include "bus/VelReturnType.h"

BenchModule& theModule(); // Main.cpp has it

namespace {

const QString self = QStringLiteral("Bench");

void callWithProxies(benchmark::State& state) {
    BenchModule& module = theModule();
    module.keepProxies(int(state.range(0)));
    const QString method = QStringLiteral("answer");
    const allocations::Counted counted(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(module.syncRemoteCall(self, method));
}
BENCHMARK(callWithProxies)->Arg(1)->Arg(100)->Arg(10000);

void lookUpProxy(benchmark::State& state) {
    BenchModule& module = theModule();
    module.keepProxies(int(state.range(0)));
    const allocations::Counted counted(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(module.proxies().value(self));
}
BENCHMARK(lookUpProxy)->Arg(1)->Arg(100)->Arg(10000);

void cachedReturnType(benchmark::State& state) {
    const QString method = QStringLiteral("echoMap");
    const QString signature = QStringLiteral("a{sv}");
    if (getReturnType(self, method, signature) != QStringLiteral("QVariant:map:QString"))
        state.SkipWithError("the module does not describe itself");
    const allocations::Counted counted(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(getReturnType(self, method, signature));
}
BENCHMARK(cachedReturnType);

} // namespace
