#include "fuzz/FuzzSupport.h"

#include <cstdio>
#include <cstdlib>

// The same settings as the sanitized build's programs, so a harness run by
// hand behaves as under scripts/fuzz: an allocation too large to serve comes
// back as a null pointer, as it does without the sanitizer.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1:detect_leaks=1";
}
extern "C" const char* __ubsan_default_options() {
    return "print_stacktrace=1:halt_on_error=1";
}

void fuzzCheck(bool holds, const char* what, const std::string& seen) {
    if (holds)
        return;
    std::fprintf(stderr, "property violated: %s; seen: %s\n", what, seen.c_str());
    std::abort();
}

void fuzzCheck(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "property violated: %s\n", what);
    std::abort();
}
