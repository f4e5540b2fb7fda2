// Running lvhdr as a user would, and scratch folders for its files.
#pragma once

#include <string>

namespace tooltest {

struct RunResult {
    int exit_code = -1;
    std::string out;
    std::string err;
};

// Runs "lvhdr <args>" with stdout and stderr captured (so no progress bar is drawn).
RunResult run_lvhdr(const std::string &args);

// A fresh empty folder under the build tree named after the running test.
std::string scratch_dir();

bool file_exists(const std::string &path);
// Names of the entries of a folder, "." and ".." left out.
int count_entries(const std::string &dir);
// Number of lines in a text.
int line_count(const std::string &text);

} // namespace tooltest
