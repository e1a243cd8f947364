#pragma once

namespace kova::tools {

/// From its construction on, Ctrl-C and a polite kill set a flag instead of ending the process, so
/// that what is being written can be closed properly. A second one ends it at once.
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    static bool requested();
};

}  // namespace kova::tools
