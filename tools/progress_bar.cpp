// Terminal progress bar for lvhdr.
#include "progress_bar.h"

#include <cstdio>
#include <unistd.h>

namespace lvhdr {
namespace {
ProgressBar *current_bar = nullptr;
constexpr int bar_width = 30;
} // namespace

bool on_terminal() {
    return isatty(STDERR_FILENO) && isatty(STDOUT_FILENO);
}

ProgressBar::ProgressBar(std::string label)
    : label_(std::move(label)), enabled_(on_terminal()), previous_(current_bar) {
    current_bar = this;
    update(0.0f);
}

ProgressBar::~ProgressBar() {
    done();
    current_bar = previous_;
}

void ProgressBar::update(float fraction) {
    if (!enabled_) return;
    if (!(fraction >= 0.0f)) fraction = 0.0f;
    if (fraction > 1.0f) fraction = 1.0f;
    const int percent = int(fraction * 100.0f);
    if (percent == shown_) return; // redraw only when the figure changes
    shown_ = percent;
    const int filled = percent * bar_width / 100;
    char bar[bar_width + 1];
    for (int i = 0; i < bar_width; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[bar_width] = 0;
    std::fprintf(stderr, "\r%-12s [%s] %3d%%", label_.c_str(), bar, percent);
    std::fflush(stderr);
    drawn_ = true;
}

void ProgressBar::done() {
    if (!drawn_) return;
    std::fprintf(stderr, "\r%*s\r", int(label_.size()) + bar_width + 20, "");
    std::fflush(stderr);
    drawn_ = false;
}

void ProgressBar::callback(int *cancel, float value) {
    if (cancel) *cancel = 0;
    if (current_bar) current_bar->update(value);
}

} // namespace lvhdr
