#include "store/DatabaseScope.h"

#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "model/ModuleLog.h"

namespace {

bool LockDatabase(const LumRoutine& routine) LUM_NO_THREAD_SAFETY_ANALYSIS {
    if (DatabaseMutex.Lock()) {
        return true;
    }
    routine.Error("Failed to lock database");
    return false;
}

}  // namespace

DatabaseScope::HeldLock::HeldLock(const LumRoutine& routine) : held_(LockDatabase(routine)) {}

void DatabaseScope::HeldLock::GiveBack() {
    if (held_) {
        held_ = false;
        DatabaseMutex.Unlock();
    }
}

DatabaseScope::DatabaseScope(const LumRoutine& routine, Durability durability)
    : durability_(durability), lock_(routine), connection_(DatabasePool) {}

DatabaseScope::~DatabaseScope() {
    Unlock();
}

void DatabaseScope::Unlock() {
    lock_.GiveBack();
    if (durability_ == Durability::kScope && !DatabaseMutex.IsHeldByThisThread()) {
        DBAwaitDurable();  // an action asks for the outcome when it ends; others have the error line
    }
}
