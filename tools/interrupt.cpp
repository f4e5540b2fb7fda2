// Ctrl-C as a cancel request to the library.
#include "interrupt.h"

#include "progress_bar.h"

#include <csignal>

namespace lvhdr {
namespace {
volatile std::sig_atomic_t ctrl_c = 0;
void on_sigint(int) {
    ctrl_c = 1;
}
} // namespace

InterruptGuard::InterruptGuard() {
    ctrl_c = 0;
    previous_ = std::signal(SIGINT, on_sigint);
}

InterruptGuard::~InterruptGuard() {
    std::signal(SIGINT, previous_ == SIG_ERR ? SIG_DFL : previous_);
}

bool interrupted() {
    return ctrl_c != 0;
}

void progress_or_cancel(int *cancel, float value) {
    ProgressBar::callback(cancel, value);
    if (cancel && ctrl_c) *cancel = 1;
}

} // namespace lvhdr
