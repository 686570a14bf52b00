#pragma once

#include <QString>

#include <functional>

// A benchmark prints its own figures (median, p99, throughput, memory) to standard output.
struct BenchCase
{
    const char *name;
    std::function<void()> run;
};

// Registers a benchmark at static-initialisation time; returns a dummy so it can initialise a
// file-local variable.
int registerBench(const char *name, std::function<void()> run);

#define TAVROKVM_BENCH(name, function)                                                             \
    static const int bench_registration_##function = registerBench(name, function)
