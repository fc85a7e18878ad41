#include "host/core/LumCaller.h"

namespace {

thread_local const LumCaller* currentCaller = nullptr;

}  // namespace

const LumCaller* LumCallerCurrent() {
    return currentCaller;
}

LumCallerScope::LumCallerScope(const LumCaller* caller) : outer_(currentCaller) {
    currentCaller = caller;
}

LumCallerScope::~LumCallerScope() {
    currentCaller = outer_;
}
