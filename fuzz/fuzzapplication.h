#pragma once

#include <cstdio>
#include <cstdlib>

// What every fuzz target needs around the code it drives: a Qt application (timers, queued
// signals, sockets want one), logging that is built but dropped, and a check that stops the run.
namespace FuzzApplication {

// Call from LLVMFuzzerInitialize. Log lines are still formatted, so the code that builds them is
// exercised, but printing them would take most of each run.
void start(const char *program);

// Lets queued signals and deferred deletions of this input run before the next input.
void settle();

} // namespace FuzzApplication

// A property that must hold for every input; libFuzzer saves the input that breaks it.
#define FUZZ_REQUIRE(condition)                                                                    \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(                                                                          \
                stderr, "%s:%d: requirement failed: %s\n", __FILE__, __LINE__, #condition);        \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)
