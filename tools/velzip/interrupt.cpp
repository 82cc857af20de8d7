#include "interrupt.h"

#include <cstring>

namespace velzip_tool {

volatile std::sig_atomic_t gInterrupted = 0;

namespace {

extern "C" void onInterrupt(int) {
  gInterrupted = 1;
}

}  // namespace

void installInterruptHandler() {
  struct sigaction sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  // A second Ctrl-C kills at once, for the impatient.
  sa.sa_flags = SA_RESTART | SA_RESETHAND;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
}

}  // namespace velzip_tool
