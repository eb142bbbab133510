// Pseudo-terminal pairs (see pty.h).
#include "pty.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#if defined(__APPLE__) || defined(__FreeBSD__) || defined(__OpenBSD__) || defined(__NetBSD__)
#include <util.h>
#else
#include <pty.h>
#endif

namespace trekcom::platform {
namespace {

bool Make_Raw(int fd) {
    termios tio{};
    if (::tcgetattr(fd, &tio) != 0) return false;
    ::cfmakeraw(&tio);
    tio.c_cflag |= CLOCAL | CREAD;
    return ::tcsetattr(fd, TCSANOW, &tio) == 0;
}

void Close_Fd(int& fd) {
    if (fd >= 0) ::close(std::exchange(fd, -1));
}

}  // namespace

std::optional<Pty> Pty::Open(std::string& error) {
    Pty pty;
    char name[256] = {};
    if (::openpty(&pty.master_, &pty.slave_, name, nullptr, nullptr) != 0) {
        error = "cannot open a pty pair: " + std::system_category().message(errno);
        return std::nullopt;
    }
    (void)::fcntl(pty.master_, F_SETFD, FD_CLOEXEC);
    (void)::fcntl(pty.slave_, F_SETFD, FD_CLOEXEC);
    pty.slave_path_ = name;
    // A fresh slave is a cooked terminal that would echo and translate what
    // the device sends. On Linux the master's termios calls reach the slave
    // too; elsewhere each end has its own.
    if (!Make_Raw(pty.slave_) || !Make_Raw(pty.master_)) {
        error = "cannot set the pty pair to raw mode: " + std::system_category().message(errno);
        return std::nullopt;
    }
    return pty;
}

Pty::~Pty() { Close_All(); }

Pty::Pty(Pty&& other) noexcept
    : master_(std::exchange(other.master_, -1)),
      slave_(std::exchange(other.slave_, -1)),
      slave_path_(std::move(other.slave_path_)) {}

Pty& Pty::operator=(Pty&& other) noexcept {
    if (this != &other) {
        Close_All();
        master_ = std::exchange(other.master_, -1);
        slave_ = std::exchange(other.slave_, -1);
        slave_path_ = std::move(other.slave_path_);
    }
    return *this;
}

void Pty::Close_Master() { Close_Fd(master_); }

void Pty::Close_All() {
    Close_Fd(master_);
    Close_Fd(slave_);
}

}  // namespace trekcom::platform
