// A private temp folder for lvhdr's low-memory runs: made under TMPDIR (or /tmp), holding
// the named files the library writes, and removed with them however the command ends.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace lvhdr {

class TempFolder {
  public:
    TempFolder() = default;
    ~TempFolder();
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    // Makes PREFIX-XXXXXX and names one file in it for each of `names`. With
    // remove_on_signal, Ctrl-C and SIGTERM also remove it and then end the process; a
    // command that cancels through the library's callback instead cleans up on its way out.
    bool create(const char *prefix, std::initializer_list<const char *> names,
                bool remove_on_signal, std::string &error);
    const char *file(int i) const { return files_[size_t(i)].c_str(); }

  private:
    std::string dir_;
    std::vector<std::string> files_;
    bool on_signal_ = false;
    void (*old_int_)(int) = nullptr;
    void (*old_term_)(int) = nullptr;
};

} // namespace lvhdr
