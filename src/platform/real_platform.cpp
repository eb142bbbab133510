// Placeholder until the Asio platform lands.
#include <chrono>
#include <ctime>

#include "trekcom/platform.h"

namespace trekcom {
namespace {
class RealPlatform : public Platform {
public:
    double Now_ms() const override {
        using namespace std::chrono;
        return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
    }
    double Seconds_Since_Midnight() const override { return 0; }
    std::unique_ptr<SerialPort> Create_Serial_Port() override { return nullptr; }

protected:
    void Wait_For_Events(double) override {}
};
}  // namespace

std::shared_ptr<Platform> Default_Platform() {
    static auto platform = std::make_shared<RealPlatform>();
    return platform;
}
}  // namespace trekcom
