#include "camera/sources/v4l2_system.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace kova::camera {

namespace {

constexpr const char kNodePrefix[] = "/dev/video";

int nodeNumber(const std::string& node) {
    return std::atoi(node.c_str() + sizeof kNodePrefix - 1);
}

class RealV4l2System : public V4l2System {
public:
    std::vector<std::string> videoNodes() override {
        std::vector<std::string> nodes;
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator("/dev", error)) {
            const std::string path = entry.path().string();
            const bool number =
                path.size() >= sizeof kNodePrefix &&
                path.find_first_not_of("0123456789", sizeof kNodePrefix - 1) == std::string::npos;
            if (path.rfind(kNodePrefix, 0) == 0 && number)
                nodes.push_back(path);
        }
        std::sort(nodes.begin(), nodes.end(), [](const std::string& a, const std::string& b) {
            return nodeNumber(a) < nodeNumber(b);
        });
        return nodes;
    }

    std::string deviceText(const std::string& node, const std::string& name) override {
        // device is the interface of a USB camera; what describes the camera lies above it.
        const std::filesystem::path device =
            "/sys/class/video4linux/" + std::filesystem::path(node).filename().string() + "/device";
        for (const auto& folder : {device / "..", device}) {
            std::ifstream file(folder / name);
            std::string text;
            if (std::getline(file, text)) {
                const std::size_t begin = text.find_first_not_of(" \t\r\n");
                const std::size_t end = text.find_last_not_of(" \t\r\n");
                if (begin != std::string::npos)
                    return text.substr(begin, end - begin + 1);
            }
        }
        return "";
    }

    int open(const std::string& node) override {
        return ::open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
    void close(int fd) override { ::close(fd); }
    int ioctl(int fd, unsigned long request, void* argument) override {
        int result;
        do result = ::ioctl(fd, request, argument);
        while (result == -1 && errno == EINTR);
        return result;
    }
    void* map(int fd, std::size_t length, std::int64_t offset) override {
        void* address = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, offset);
        return address == MAP_FAILED ? nullptr : address;
    }
    void unmap(void* address, std::size_t length) override { ::munmap(address, length); }
    int wait(int fd, int timeout_ms, bool& broken) override {
        pollfd request = {fd, POLLIN, 0};
        int result;
        do result = ::poll(&request, 1, timeout_ms);
        while (result == -1 && errno == EINTR);
        broken = result > 0 && (request.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
        return result > 0 ? 1 : result;
    }
    std::int64_t now() override {
        timespec t = {};
        ::clock_gettime(CLOCK_MONOTONIC, &t);
        return t.tv_sec * INT64_C(1000000000) + t.tv_nsec;
    }
};

}  // namespace

V4l2System& realV4l2System() {
    static RealV4l2System system;
    return system;
}

}  // namespace kova::camera
