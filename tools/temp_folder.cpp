// Temp folders of lvhdr's low-memory runs.
#include "temp_folder.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace lvhdr {
namespace {

// Paths of the live folder for the signal handler, which may only make plain system calls:
// the folder first, then its files.
constexpr int kMaxFiles = 8;
char g_paths[kMaxFiles + 1][4096];
int g_count = 0;
volatile std::sig_atomic_t g_live = 0;

extern "C" void remove_temp_and_exit(int sig) {
    if (g_live) {
        for (int i = 1; i <= g_count; ++i)
            unlink(g_paths[i]);
        rmdir(g_paths[0]);
    }
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

} // namespace

bool TempFolder::create(const char *prefix, std::initializer_list<const char *> names,
                        bool remove_on_signal, std::string &error) {
    const char *base = std::getenv("TMPDIR");
    const std::string parent = base && *base ? base : "/tmp";
    std::string pattern = parent + "/" + prefix + "-XXXXXX";
    if (!mkdtemp(pattern.data())) {
        error = "cannot create a temp folder under " + parent;
        return false;
    }
    dir_ = pattern;
    for (const char *name : names)
        files_.push_back(dir_ + "/" + name);
    if (remove_on_signal && files_.size() <= size_t(kMaxFiles) &&
        dir_.size() + 32 < sizeof g_paths[0]) {
        std::snprintf(g_paths[0], sizeof g_paths[0], "%s", dir_.c_str());
        g_count = int(files_.size());
        for (int i = 0; i < g_count; ++i)
            std::snprintf(g_paths[i + 1], sizeof g_paths[0], "%s", files_[size_t(i)].c_str());
        g_live = 1;
        on_signal_ = true;
        old_int_ = std::signal(SIGINT, remove_temp_and_exit);
        old_term_ = std::signal(SIGTERM, remove_temp_and_exit);
    }
    return true;
}

TempFolder::~TempFolder() {
    if (dir_.empty()) return;
    if (on_signal_) {
        std::signal(SIGINT, old_int_);
        std::signal(SIGTERM, old_term_);
        g_live = 0;
    }
    for (const std::string &f : files_)
        std::remove(f.c_str());
    rmdir(dir_.c_str());
}

} // namespace lvhdr
