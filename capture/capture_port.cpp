#include "capture/capture_port.h"

#include <system_error>
#include <thread>

void closeTogether(std::vector<std::unique_ptr<CaptureHandle>>& handles) {
    std::vector<std::thread> closers;
    for (auto& handle : handles) {
        try {
            closers.emplace_back([&handle] { handle.reset(); });
        } catch (const std::system_error&) {  // no thread to be had
            handle.reset();
        }
    }
    for (std::thread& closer : closers) {
        closer.join();
    }
}
