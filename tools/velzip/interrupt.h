// Ctrl-C and SIGTERM become a flag that the commands turn into an abort.
#ifndef VELZIP_TOOL_INTERRUPT_H
#define VELZIP_TOOL_INTERRUPT_H

#include <csignal>

namespace velzip_tool {

extern volatile std::sig_atomic_t gInterrupted;
// The first signal sets gInterrupted; a second one kills at once.
void installInterruptHandler();

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_INTERRUPT_H
