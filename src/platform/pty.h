// A pseudo-terminal pair: a serial line without hardware, for tests, the demo
// and the tools. A SerialPort opens the slave (Port_Name = Slave_Path()); the
// program playing the device reads and writes the master.
#pragma once

#include <optional>
#include <string>

namespace trekcom::platform {

class Pty {
public:
    // Opens a pair, both ends in raw mode. On failure: nothing, and why in error.
    static std::optional<Pty> Open(std::string& error);

    ~Pty();
    Pty(Pty&& other) noexcept;
    Pty& operator=(Pty&& other) noexcept;
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    // The device's end (blocking, close-on-exec); -1 once closed.
    int Master_Fd() const { return master_; }
    // The path a port opens, e.g. "/dev/pts/7".
    const std::string& Slave_Path() const { return slave_path_; }
    // Closes the device's end: a port open on the slave sees its line hang up.
    void Close_Master();

private:
    Pty() = default;
    void Close_All();

    int master_ = -1;
    // Held open so the line persists while the port under test closes and
    // reopens (without it the master reports EIO whenever no one has the slave).
    int slave_ = -1;
    std::string slave_path_;
};

}  // namespace trekcom::platform
