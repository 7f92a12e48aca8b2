#pragma once

#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "sim/phone.h"

// The fuzzer's phone, created at the first call in a folder of its own that is removed at exit.
inline sim::Phone& fuzzPhone() {
    static std::string& folder = *new std::string;
    if (!folder.empty()) return sim::Phone::get();
    folder = std::filesystem::temp_directory_path() / "pelto-fuzz-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) abort();
    const auto removeFolder = [] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    };
    atexit(removeFolder);
    at_quick_exit(removeFolder);
    return sim::Phone::create(folder);
}

// Aborts, which the fuzzing engine reports as a finding, unless the condition holds.
inline void require(bool condition, const std::string& what) {
    if (condition) return;
    fprintf(stderr, "not so: %s\n", what.c_str());
    abort();
}
