// A one-line progress bar on the terminal, fed by the library's progress callback.
#pragma once

#include <lumivantor/frame.h>

#include <string>

namespace lvhdr {

// Draws "label [#####.....]  50%" on stderr while it lives. It draws nothing when stderr
// or stdout is not a terminal, so logs and pipes stay clean. One bar is current at a time;
// `callback` feeds that one and never asks the library to cancel.
class ProgressBar {
  public:
    explicit ProgressBar(std::string label);
    ~ProgressBar();
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    void update(float fraction);
    // Clears the line; called by the destructor too.
    void done();

    // The LvProgressCallback (mode 1) that forwards to the current bar.
    static void callback(int *cancel, float value);

  private:
    std::string label_;
    bool enabled_;
    bool drawn_ = false;
    int shown_ = -1;
    ProgressBar *previous_;
};

// Checked by the tool; false once stdout or stderr is redirected.
bool on_terminal();

} // namespace lvhdr
