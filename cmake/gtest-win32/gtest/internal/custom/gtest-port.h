// GoogleTest customisation for MinGW's win32 thread model, which has no std::mutex or
// std::condition_variable. GoogleTest's own locks on Windows are critical sections; only its
// Notification (a start signal for threads it creates in its own tests) is written with the
// standard primitives, so it is provided here with an atomic flag instead. None of our tests
// start threads.
#ifndef KAVREL_GTEST_WIN32_CUSTOM_PORT_H
#define KAVREL_GTEST_WIN32_CUSTOM_PORT_H

#include <atomic>

extern "C" __declspec(dllimport) int __stdcall SwitchToThread(void);

namespace testing {
namespace internal {

class Notification {
public:
    Notification() : notified_(false) {}
    Notification(const Notification &) = delete;
    Notification &operator=(const Notification &) = delete;
    void Notify() { notified_.store(true, std::memory_order_release); }
    void WaitForNotification() {
        while (!notified_.load(std::memory_order_acquire)) SwitchToThread();
    }

private:
    std::atomic<bool> notified_;
};

} // namespace internal
} // namespace testing

#define GTEST_HAS_NOTIFICATION_ 1

#endif
