#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace trekcom::tool {

namespace {
// A transfer shorter than this draws nothing.
constexpr auto kQuiet_For = std::chrono::milliseconds(700);
constexpr auto kRedraw_Every = std::chrono::milliseconds(100);
constexpr int kBar_Width = 24;
}  // namespace

Progress::Progress(std::string label, bool enabled)
    : label_(std::move(label)), enabled_(enabled && isatty(STDERR_FILENO)) {}

Progress::~Progress() {
    if (drawn_) std::fprintf(stderr, "\r\033[K");
}

std::string Progress::Line(const std::string& label, long done, long total, double seconds, int width) {
    const double fraction = total > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0) : 0;
    const int filled = static_cast<int>(fraction * width);
    std::string bar = "[" + std::string(static_cast<std::size_t>(filled), '#') +
                      std::string(static_cast<std::size_t>(width - filled), '.') + "]";
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    char text[160];
    if (rate > 0 && total > done) {
        const long left = static_cast<long>(static_cast<double>(total - done) / rate + 0.5);
        std::snprintf(text, sizeof text, "%-10s %s %ld/%ld  %.0f/s  %ld:%02ld left", label.c_str(), bar.c_str(), done,
                      total, rate, left / 60, left % 60);
    } else {
        std::snprintf(text, sizeof text, "%-10s %s %ld/%ld  %.0f/s", label.c_str(), bar.c_str(), done, total, rate);
    }
    return text;
}

void Progress::Update(long done, long total) {
    if (!enabled_) return;
    const auto now = Clock::now();
    if (now - start_ < kQuiet_For || now - last_draw_ < kRedraw_Every) return;
    last_draw_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    std::fprintf(stderr, "\r%s\033[K", Line(label_, done, total, seconds, kBar_Width).c_str());
    std::fflush(stderr);
    drawn_ = true;
}

}  // namespace trekcom::tool
