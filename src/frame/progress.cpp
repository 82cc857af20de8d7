#include "frame/progress.h"

namespace velzip {

ZLibCallbackAction defaultCallback(ZLibCBData*) {
  return kZLibContinue;
}

}  // namespace velzip
