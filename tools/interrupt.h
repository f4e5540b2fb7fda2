// Ctrl-C for lvhdr's long commands: a flag the library hears through its progress
// callback and the command checks between its steps.
#pragma once

namespace lvhdr {

// Catches SIGINT while it lives and clears the flag on construction.
class InterruptGuard {
  public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard &) = delete;
    InterruptGuard &operator=(const InterruptGuard &) = delete;

  private:
    void (*previous_)(int);
};

// True once Ctrl-C was pressed under the current guard.
bool interrupted();

// Progress callback (mode 1): feeds the current progress bar and asks the library to stop
// once Ctrl-C was pressed.
void progress_or_cancel(int *cancel, float value);

} // namespace lvhdr
