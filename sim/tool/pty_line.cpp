#include "pty_line.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace trekcom::sim {

Pty_Line::Pty_Line(std::string link_path, bool enforce_rate)
    : link_path_(std::move(link_path)), enforce_rate_(enforce_rate) {}

Pty_Line::~Pty_Line() {
    Close();
    struct stat st {};
    if (lstat(link_path_.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) unlink(link_path_.c_str());
}

void Pty_Line::Close() {
    if (master_ >= 0) close(master_);
    if (slave_ >= 0) close(slave_);
    master_ = slave_ = -1;
}

bool Pty_Line::Open(std::string& error) {
    Close();
    char name[256] = {};
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) {
        error = std::string("openpty: ") + std::strerror(errno);
        return false;
    }
    slave_name_ = name;
    // A serial line passes bytes as they are: no echo, no line editing, no CR/LF mapping.
    termios t{};
    tcgetattr(slave_, &t);
    cfmakeraw(&t);
    cfsetispeed(&t, B9600);
    cfsetospeed(&t, B9600);
    tcsetattr(slave_, TCSANOW, &t);
    fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(slave_, F_SETFD, FD_CLOEXEC);

    struct stat st {};
    if (lstat(link_path_.c_str(), &st) == 0) {
        if (!S_ISLNK(st.st_mode)) {
            error = link_path_ + " exists and is not a link";
            return false;
        }
        unlink(link_path_.c_str());
    }
    if (symlink(slave_name_.c_str(), link_path_.c_str()) != 0) {
        error = "symlink " + link_path_ + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

double Pty_Line::Now_ms() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_).count();
}

void Pty_Line::Send(const Bytes& bytes, double at_ms) {
    if (bytes.empty()) return;
    if (!out_.empty()) at_ms = std::max(at_ms, out_.back().at_ms);
    out_.push_back({at_ms, bytes});
}

bool Pty_Line::Rates_Match() const {
    if (!enforce_rate_ || unit_baud_ <= 0) return true;
    const std::int32_t host = Tty_Speed(slave_);
    return host == 0 || host == unit_baud_;
}

void Pty_Line::Flush_Due() {
    const double now = Now_ms();
    while (!out_.empty() && out_.front().at_ms <= now) {
        Chunk& c = out_.front();
        if (!Rates_Match()) {  // a host at another rate hears nothing of it
            out_.pop_front();
            continue;
        }
        const ssize_t n = write(master_, c.bytes.data(), c.bytes.size());
        if (n < 0) {
            if (errno == EAGAIN || errno == EINTR) return;
            out_.pop_front();  // EIO: nobody reads; the bytes are lost, as on a wire
            continue;
        }
        unit_bytes_ += static_cast<std::uint64_t>(n);
        c.bytes.erase(c.bytes.begin(), c.bytes.begin() + n);
        if (!c.bytes.empty()) return;
        out_.pop_front();
    }
}

void Pty_Line::Heard(Unit& unit, Bytes bytes) {
    host_bytes_ += bytes.size();
    if (!pace_host_ || unit_baud_ <= 0) {
        unit.Host_Wrote(bytes);
        return;
    }
    in_free_ms_ = std::max(Now_ms(), in_free_ms_) + static_cast<double>(bytes.size()) * 10.0 * 1000.0 / unit_baud_;
    in_.push_back({in_free_ms_, std::move(bytes)});
}

void Pty_Line::Deliver_Due(Unit& unit) {
    while (!in_.empty() && in_.front().at_ms <= Now_ms()) {
        const Bytes bytes = std::move(in_.front().bytes);
        in_.pop_front();
        unit.Host_Wrote(bytes);
    }
}

void Pty_Line::Run(Unit& unit, const volatile int& stop) {
    sigset_t none;
    sigemptyset(&none);
    Bytes buf(4096);
    while (!stop) {
        if (hang_up_) {
            hang_up_ = false;
            out_.clear();
            in_.clear();
            std::string error;
            if (!Open(error)) return;
        }
        Deliver_Due(unit);
        Flush_Due();
        // Bytes already due wait for POLLOUT, not for a timer, so a full
        // buffer with nobody reading never spins the loop.
        const double now = Now_ms();
        double next = wake_ms_;
        if (!out_.empty() && out_.front().at_ms > now)
            next = next < 0 ? out_.front().at_ms : std::min(next, out_.front().at_ms);
        if (!in_.empty()) next = next < 0 ? in_.front().at_ms : std::min(next, in_.front().at_ms);
        timespec ts{};
        timespec* timeout = nullptr;
        // Paced, the loop spins instead of sleeping (a whole core): a wake-up
        // from sleep comes tens of microseconds late, on every packet and
        // every ACK, and the line would seem slower than it is.
        if (next >= 0 || pace_host_) {
            const double wait = pace_host_ ? 0.0 : std::max(0.0, next - now);
            ts.tv_sec = static_cast<time_t>(wait / 1000);
            ts.tv_nsec = static_cast<long>(std::fmod(wait, 1000.0) * 1e6);
            timeout = &ts;
        }
        pollfd p{master_, POLLIN, 0};
        if (!out_.empty() && out_.front().at_ms <= now) p.events |= POLLOUT;
        const int r = ppoll(&p, 1, timeout, &none);
        if (r < 0 && errno != EINTR) return;
        if (r > 0 && (p.revents & POLLIN)) {
            const ssize_t n = read(master_, buf.data(), buf.size());
            if (n > 0 && Rates_Match()) Heard(unit, Bytes(buf.begin(), buf.begin() + n));
        }
        if (wake_ms_ >= 0 && Now_ms() >= wake_ms_) {
            wake_ms_ = -1;
            unit.Wake();
        }
    }
}

}  // namespace trekcom::sim
