// A one-line progress bar on standard error: records done of the total, the
// rate and the time left. It draws only on a terminal, and only once a
// transfer has run for longer than a moment, so short transfers and piped
// output stay quiet.
#pragma once

#include <chrono>
#include <string>

namespace trekcom::tool {

class Progress {
public:
    Progress(std::string label, bool enabled);
    ~Progress();  // clears the line it drew
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Update(long done, long total);

    // The line as drawn (for tests): label, bar, counts, rate, time left.
    static std::string Line(const std::string& label, long done, long total, double seconds, int width);

private:
    using Clock = std::chrono::steady_clock;
    std::string label_;
    bool enabled_;
    bool drawn_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point last_draw_{};
};

}  // namespace trekcom::tool
