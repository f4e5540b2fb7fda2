#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tooltest {

#ifdef LVHDR_EXE
namespace {
std::string slurp(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}
} // namespace
#endif

RunResult run_lvhdr(const std::string &args) {
#ifdef LVHDR_EXE
    // Test programs run in parallel under ctest: each run captures into its own files.
    static int serial = 0;
    const std::string base = std::string(LV_BINARY_DIR) + "/lvhdr-run-" + std::to_string(getpid()) +
                             "-" + std::to_string(++serial);
    const std::string cmd =
        std::string(LVHDR_EXE) + " " + args + " >" + base + ".out 2>" + base + ".err </dev/null";
    RunResult r;
    const int status = std::system(cmd.c_str());
    r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = slurp(base + ".out");
    r.err = slurp(base + ".err");
    std::remove((base + ".out").c_str());
    std::remove((base + ".err").c_str());
    return r;
#else
    (void)args;
    return {};
#endif
}

std::string scratch_dir() {
    const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string dir = std::string(LV_BINARY_DIR) + "/tool-scratch/" +
                            info->test_suite_name() + "." + info->name();
    std::system(("rm -rf '" + dir + "' && mkdir -p '" + dir + "'").c_str());
    return dir;
}

bool file_exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

int count_entries(const std::string &dir) {
    DIR *d = opendir(dir.c_str());
    if (!d) return -1;
    int n = 0;
    while (dirent *e = readdir(d)) {
        const std::string name = e->d_name;
        if (name != "." && name != "..") ++n;
    }
    closedir(d);
    return n;
}

int line_count(const std::string &text) {
    int n = 0;
    for (char c : text)
        n += c == '\n';
    if (!text.empty() && text.back() != '\n') ++n;
    return n;
}

} // namespace tooltest
