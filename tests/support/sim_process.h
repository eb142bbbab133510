// The trekcom-sim tool in a child process, serving one unit on a pty link
// ("<dir>/gps") until Stop or the end of the test. Needs TREKCOM_SIM_TOOL.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace trekcom::testing {

class Sim_Process {
public:
    // options: further command-line options, such as {"--profile", "d110"}.
    Sim_Process(const std::filesystem::path& dir, std::vector<std::string> options = {})
        : link_((dir / "gps").string()) {
        options.insert(options.begin(), {TREKCOM_SIM_TOOL, "--link", link_});
        int out[2];
        if (pipe(out) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            close(out[0]);
            close(out[1]);
            std::vector<char*> argv;
            for (auto& o : options) argv.push_back(o.data());
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        pollfd p{out[0], POLLIN, 0};
        std::string line;
        char c;
        while (line.find('\n') == std::string::npos && poll(&p, 1, 5000) > 0 && read(out[0], &c, 1) == 1) line += c;
        close(out[0]);
        ready_ = line.rfind("trekcom-sim: ready on ", 0) == 0;
    }
    ~Sim_Process() { Stop(); }
    bool Ready() const { return ready_; }
    const std::string& Link() const { return link_; }
    // The exit status, -1 when it did not exit normally.
    int Stop() {
        if (pid_ <= 0) return status_;
        kill(pid_, SIGTERM);
        int st = 0;
        waitpid(pid_, &st, 0);
        pid_ = -1;
        status_ = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
        return status_;
    }

private:
    std::string link_;
    pid_t pid_ = -1;
    bool ready_ = false;
    int status_ = -1;
};

}  // namespace trekcom::testing
