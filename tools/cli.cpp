// Option parsing and error lines for lvhdr.
#include "cli.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace lvhdr {

bool parse_args(int argc, char **argv, int first, const std::vector<OptionDef> &defs,
                ParsedArgs &out, std::string &error) {
    bool only_files = false;
    for (int i = first; i < argc; ++i) {
        std::string arg = argv[i];
        if (only_files || arg.size() < 2 || arg[0] != '-') {
            out.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            only_files = true;
            continue;
        }
        if (arg == "--help" || arg == "-h") {
            out.options["--help"] = "";
            continue;
        }
        std::string inline_value;
        bool has_inline = false;
        const size_t eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            inline_value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            has_inline = true;
        }
        const OptionDef *def = nullptr;
        for (const auto &s : defs)
            if (arg == s.name || (s.alias && arg == s.alias)) def = &s;
        if (!def) {
            error = "unknown option '" + arg + "'";
            return false;
        }
        if (!def->takes_value) {
            if (has_inline) {
                error = "option '" + arg + "' takes no value";
                return false;
            }
            out.options[def->name] = "";
        } else if (has_inline) {
            out.options[def->name] = inline_value;
        } else if (i + 1 < argc) {
            out.options[def->name] = argv[++i];
        } else {
            error = "option '" + arg + "' needs a value";
            return false;
        }
    }
    return true;
}

bool parse_number(const std::string &option, const std::string &text, double lo, double hi,
                  double &value, std::string &error) {
    char *end = nullptr;
    errno = 0;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != 0 || errno != 0 || !std::isfinite(v)) {
        error = "option '" + option + "' needs a number, not '" + text + "'";
        return false;
    }
    if (v < lo || v > hi) {
        char buf[160];
        std::snprintf(buf, sizeof buf, "option '%s' must lie between %g and %g", option.c_str(), lo,
                      hi);
        error = buf;
        return false;
    }
    value = v;
    return true;
}

int fail(const std::string &subject, const std::string &problem) {
    std::fprintf(stderr, "lvhdr: %s: %s\n", subject.c_str(), problem.c_str());
    return exit_failed;
}

int usage_error(const std::string &command, const std::string &problem) {
    std::fprintf(stderr, "lvhdr %s: %s (see 'lvhdr %s --help')\n", command.c_str(), problem.c_str(),
                 command.c_str());
    return exit_usage;
}

} // namespace lvhdr
