// Command-line plumbing shared by lvhdr's subcommands: option parsing, one-line errors
// and step timing.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace lvhdr {

// Exit codes: 0 success, 1 a file or the work failed, 2 the command line was wrong.
constexpr int exit_ok = 0;
constexpr int exit_failed = 1;
constexpr int exit_usage = 2;

struct OptionDef {
    const char *name;  // "--brightness"
    const char *alias; // "-b" or nullptr
    bool takes_value;
};

struct ParsedArgs {
    std::map<std::string, std::string> options; // by long name; flags map to ""
    std::vector<std::string> positional;
    bool has(const std::string &name) const { return options.count(name) != 0; }
    std::string get(const std::string &name, const std::string &fallback = "") const {
        auto it = options.find(name);
        return it == options.end() ? fallback : it->second;
    }
};

// Parses argv[first..argc) against the option definitions; "--help"/"-h" is always known. Accepts
// "--name value" and "--name=value". On failure returns false with a reason.
bool parse_args(int argc, char **argv, int first, const std::vector<OptionDef> &defs,
                ParsedArgs &out, std::string &error);

// Parses a number within [lo, hi]; false with a reason naming the option otherwise.
bool parse_number(const std::string &option, const std::string &text, double lo, double hi,
                  double &value, std::string &error);

// Prints "lvhdr: <subject>: <problem>" on stderr and returns exit_failed.
int fail(const std::string &subject, const std::string &problem);
// Prints "lvhdr <command>: <problem>" and a hint to --help; returns exit_usage.
int usage_error(const std::string &command, const std::string &problem);

// Wall-clock seconds since construction or the last lap.
class Stopwatch {
  public:
    double lap() {
        const auto now = std::chrono::steady_clock::now();
        const double s = std::chrono::duration<double>(now - last_).count();
        last_ = now;
        return s;
    }

  private:
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

} // namespace lvhdr
