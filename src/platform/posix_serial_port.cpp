// The POSIX serial port. The Asio loop only watches the descriptor: when it
// turns readable, a handler reads what is there into the port's buffer and
// watches again. Host callbacks (OnComm) are raised by the shared loop after
// the wait returns, never from here.
#include "posix_serial_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <asio.hpp>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <system_error>

#include "line_rate.h"
#include "trekcom/platform.h"

namespace trekcom::platform {
namespace {

constexpr std::size_t kReadChunk = 4096;
// Reads per wake-up before giving the rest of the loop a turn.
constexpr int kReadsPerTurn = 16;
// How long a write may wait for a full output queue to drain.
constexpr auto kWriteWait = std::chrono::seconds(1);
// A driver that rounds a rate to what its clock can make stays within what
// a UART receiver tolerates; anything further off is a different rate.
constexpr std::uint32_t kRateTolerance_percent = 3;

std::string Os_Message(int error) { return std::system_category().message(error); }

// The termios code of a rate the table has, or nothing.
std::optional<speed_t> Table_Speed(std::int32_t baud) {
#if defined(__linux__)
    switch (baud) {
        case 1200: return B1200;
        case 2400: return B2400;
        case 4800: return B4800;
        case 9600: return B9600;
        case 19200: return B19200;
        case 38400: return B38400;
        case 57600: return B57600;
        case 115200: return B115200;
        case 230400: return B230400;
        case 460800: return B460800;
        case 921600: return B921600;
        default: return std::nullopt;
    }
#else
    // BSD and macOS number their speeds by the rate itself.
    return static_cast<speed_t>(baud);
#endif
}

class PosixSerialPort final : public SerialPort {
public:
    PosixSerialPort(Platform& platform, asio::io_context& io) : SerialPort(platform), io_(io) {}

    ~PosixSerialPort() override {
        if (descriptor_) Close_Device();
    }

protected:
    bool Open_Device(std::string& error) override;
    void Close_Device() override;
    bool Apply_Line(std::string& error) override;
    void Write_Device(const std::string& bytes) override;
    void Collect() override {
        if (descriptor_ && !hung_up_) Read_Available();
    }

private:
    int Fd() { return descriptor_->native_handle(); }
    void Watch();
    void On_Readable();
    // Reads what the device has; true when the line may have more.
    bool Read_Available();
    void Hang_Up(const std::string& why);
    bool Set_Modem_Line(int line, bool on, const char* name, std::string& error);

    asio::io_context& io_;
    std::optional<asio::posix::stream_descriptor> descriptor_;
    // Completion handlers hold this weakly: one that runs after the port
    // closed (or was destroyed) sees it expired and touches nothing.
    std::shared_ptr<int> session_;
    bool hung_up_ = false;
};

bool PosixSerialPort::Open_Device(std::string& error) {
    const std::string path = Device_Name();
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        error = "cannot open " + path + ": " + Os_Message(errno);
        return false;
    }
    if (!::isatty(fd)) {
        ::close(fd);
        error = "cannot open " + path + ": not a serial device";
        return false;
    }
    // Another program opening the same line while we use it would steal
    // bytes; refuse it as Windows does. Ptys and some drivers ignore this.
    (void)::ioctl(fd, TIOCEXCL);
    // Whatever sat in the driver from before the open belongs to no one.
    (void)::tcflush(fd, TCIOFLUSH);

    asio::error_code ec;
    descriptor_.emplace(io_);
    descriptor_->assign(fd, ec);
    if (ec) {
        descriptor_.reset();
        (void)::ioctl(fd, TIOCNXCL);
        ::close(fd);
        error = "cannot watch " + path + ": " + ec.message();
        return false;
    }
    hung_up_ = false;
    session_ = std::make_shared<int>(0);
    Watch();
    return true;
}

void PosixSerialPort::Close_Device() {
    if (!descriptor_) return;
    session_.reset();
    asio::error_code ec;
    descriptor_->cancel(ec);
    (void)::ioctl(Fd(), TIOCNXCL);  // the exclusive flag outlives us while others hold the line
    descriptor_->close(ec);
    descriptor_.reset();
    hung_up_ = false;
}

void PosixSerialPort::Watch() {
    descriptor_->async_wait(asio::posix::stream_descriptor::wait_read,
                            [this, session = std::weak_ptr<int>(session_)](const asio::error_code& ec) {
                                if (!ec && !session.expired()) On_Readable();
                            });
}

void PosixSerialPort::On_Readable() {
    if (hung_up_) return;  // no more watching until the port reopens
    if (!Read_Available()) {
        if (!hung_up_) Watch();
        return;
    }
    // A flood: read on at the next turn of the loop rather than waiting for
    // another edge, which bytes already queued would not raise.
    asio::post(io_, [this, session = std::weak_ptr<int>(session_)] {
        if (!session.expired()) On_Readable();
    });
}

bool PosixSerialPort::Read_Available() {
    char buffer[kReadChunk];
    for (int i = 0; i < kReadsPerTurn; ++i) {
        const ssize_t n = ::read(Fd(), buffer, sizeof buffer);
        if (n > 0) {
            Received(std::string(buffer, static_cast<std::size_t>(n)));
            if (static_cast<std::size_t>(n) < sizeof buffer) return false;  // drained
            continue;
        }
        if (n == 0) {
            // A terminal read ends only when the line hung up: with VMIN 1
            // an empty line reports EAGAIN instead.
            Hang_Up("the line hung up");
            return false;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return false;
        Hang_Up(Os_Message(errno));  // EIO: a pty whose other end closed, a USB adapter pulled out
        return false;
    }
    return true;
}

void PosixSerialPort::Hang_Up(const std::string& why) {
    if (hung_up_) return;
    // Report once and stop reading: a hung-up descriptor stays readable
    // forever, and reading it again would only spin. Reopening the port
    // starts afresh.
    hung_up_ = true;
    Record_Error(Device_Name() + ": " + why);
    Line_Error(comEventFrame);
}

bool PosixSerialPort::Set_Modem_Line(int line, bool on, const char* name, std::string& error) {
    int bits = line;
    if (::ioctl(Fd(), on ? TIOCMBIS : TIOCMBIC, &bits) == 0) return true;
    // Ptys and some adapters have no modem lines; there is nothing to set.
    if (errno == ENOTTY || errno == EINVAL) return true;
    error = std::string("cannot set ") + name + " on " + Device_Name() + ": " + Os_Message(errno);
    return false;
}

bool PosixSerialPort::Apply_Line(std::string& error) {
    Line_Settings line;
    if (!Parse_Settings(Settings(), line)) {
        error = "invalid port settings \"" + Settings() + "\"";
        return false;
    }
    const std::string device = Device_Name();
    termios tio{};
    if (::tcgetattr(Fd(), &tio) != 0) {
        error = "cannot read the line settings of " + device + ": " + Os_Message(errno);
        return false;
    }

    // Raw bytes both ways: no echo, no signals, no CR/LF translation, every
    // byte value passes (DLE-framed packets carry all 256).
    ::cfmakeraw(&tio);
    tio.c_iflag &= ~(IXON | IXOFF | IXANY | INPCK);
    tio.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
#ifdef CMSPAR
    tio.c_cflag &= ~CMSPAR;
#endif
    tio.c_cflag |= CLOCAL | CREAD;
    // With O_NONBLOCK, VMIN 1 makes an empty line report EAGAIN; VMIN 0
    // would make it look like end of file.
    tio.c_cc[VMIN] = 1;
    tio.c_cc[VTIME] = 0;

    switch (line.data_bits) {
        case 5: tio.c_cflag |= CS5; break;
        case 6: tio.c_cflag |= CS6; break;
        case 7: tio.c_cflag |= CS7; break;
        default: tio.c_cflag |= CS8; break;
    }
    switch (line.parity) {
        case 'E': tio.c_cflag |= PARENB; break;
        case 'O': tio.c_cflag |= PARENB | PARODD; break;
        case 'M':
        case 'S':
#ifdef CMSPAR
            tio.c_cflag |= PARENB | CMSPAR | (line.parity == 'M' ? PARODD : 0);
            break;
#else
            error = "mark and space parity are not supported on this system";
            return false;
#endif
        default: break;
    }
    if (line.stop_bits == 15) {
        error = "1.5 stop bits are not supported on this system";
        return false;
    }
    if (line.stop_bits == 2) tio.c_cflag |= CSTOPB;

    const Handshaking_Values hs = Handshaking();
    if (hs == Handshaking_Values::comRTS || hs == Handshaking_Values::comRTSXOnXOff) tio.c_cflag |= CRTSCTS;
    if (hs == Handshaking_Values::comXOnXoff || hs == Handshaking_Values::comRTSXOnXOff) {
        tio.c_iflag |= IXON | IXOFF;
        tio.c_cc[VSTART] = 0x11;
        tio.c_cc[VSTOP] = 0x13;
    }

    const auto table_speed = Table_Speed(line.baud);
    if (table_speed) {
#ifdef CIBAUD
        // An input speed of its own (left by an earlier unusual rate) would
        // survive cfsetispeed; none means "same as output".
        tio.c_cflag &= ~CIBAUD;
#endif
        if (::cfsetispeed(&tio, *table_speed) != 0 || ::cfsetospeed(&tio, *table_speed) != 0) {
            error = "line speed " + std::to_string(line.baud) + " is not supported on this system";
            return false;
        }
    }
    // Without a table code the current speed bits stay, and the rate is set
    // just below.
    if (::tcsetattr(Fd(), TCSANOW, &tio) != 0) {
        error = "cannot set the line of " + device + " to \"" + Settings() + "\": " + Os_Message(errno);
        return false;
    }
    const auto wanted = static_cast<std::uint32_t>(line.baud);
    if (!table_speed) {
        if (const int e = Set_Line_Rate(Fd(), wanted); e != 0) {
            error = "cannot set line speed " + std::to_string(line.baud) + " on " + device + ": " +
                    (e == ENOTSUP ? std::string("not supported on this system") : Os_Message(e));
            return false;
        }
    }
    // Drivers may round a rate, or keep the old one without a word. A wrong
    // rate loses every byte, so check what the line really runs at.
    std::uint32_t out_baud = 0, in_baud = 0;
    int e = Get_Line_Rate(Fd(), out_baud, in_baud);
    if (e == ENOTSUP) {
        // Without termios2 the speed codes are the rates themselves (BSD, macOS).
        termios now{};
        e = ::tcgetattr(Fd(), &now) == 0 ? 0 : errno;
        out_baud = static_cast<std::uint32_t>(::cfgetospeed(&now));
        in_baud = static_cast<std::uint32_t>(::cfgetispeed(&now));
    }
    if (e != 0) {
        error = "cannot read back the line speed of " + device + ": " + Os_Message(e);
        return false;
    }
    auto off = [wanted](std::uint32_t got) {
        const std::uint32_t diff = got > wanted ? got - wanted : wanted - got;
        return std::uint64_t{diff} * 100 > std::uint64_t{wanted} * kRateTolerance_percent;
    };
    if (off(out_baud) || off(in_baud)) {
        error = "line speed " + std::to_string(line.baud) + " cannot be set on " + device +
                ": the device runs at " + std::to_string(out_baud) +
                (in_baud != out_baud ? " out, " + std::to_string(in_baud) + " in" : std::string());
        return false;
    }

    return Set_Modem_Line(TIOCM_RTS, RTSEnable(), "RTS", error) &&
           Set_Modem_Line(TIOCM_DTR, DTREnable(), "DTR", error);
}

void PosixSerialPort::Write_Device(const std::string& bytes) {
    if (!descriptor_) return;
    const char* next = bytes.data();
    std::size_t left = bytes.size();
    const auto deadline = std::chrono::steady_clock::now() + kWriteWait;
    while (left > 0) {
        const ssize_t n = ::write(Fd(), next, left);
        if (n > 0) {
            next += n;
            left -= static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            const int failure = errno;
            Record_Error("write to " + Device_Name() + " failed: " + Os_Message(failure));
            if (failure == EIO) Hang_Up(Os_Message(failure));
            return;
        }
        // The output queue is full (a slow line, or flow control holding it):
        // wait briefly for room instead of spinning on write.
        const auto remaining = deadline - std::chrono::steady_clock::now();
        if (remaining <= std::chrono::steady_clock::duration::zero()) {
            Record_Error("write to " + Device_Name() + " timed out: " +
                         std::to_string(bytes.size() - left) + " of " + std::to_string(bytes.size()) +
                         " bytes written");
            return;
        }
        pollfd pfd{Fd(), POLLOUT, 0};
        const auto wait_ms = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
        (void)::poll(&pfd, 1, static_cast<int>(wait_ms));
    }
}

}  // namespace

std::unique_ptr<SerialPort> Make_Posix_Serial_Port(Platform& platform, asio::io_context& io) {
    return std::make_unique<PosixSerialPort>(platform, io);
}

}  // namespace trekcom::platform
