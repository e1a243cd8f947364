#include "tools/interrupt.h"

#include <csignal>

namespace kova::tools {

namespace {

volatile std::sig_atomic_t g_requested = 0;

void request(int signal_number) {
    g_requested = 1;
    std::signal(signal_number, SIG_DFL);
}

}  // namespace

Interrupt::Interrupt() {
    g_requested = 0;
    std::signal(SIGINT, request);
    std::signal(SIGTERM, request);
}

Interrupt::~Interrupt() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

bool Interrupt::requested() {
    return g_requested != 0;
}

}  // namespace kova::tools
