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

DatabaseScope::DatabaseScope(const LumRoutine& routine, Durability durability)
    : durability_(durability), locked_(LockDatabase(routine)), connection_(DatabasePool) {}

DatabaseScope::~DatabaseScope() {
    Unlock();
}

void DatabaseScope::Unlock() {
    if (locked_) {
        locked_ = false;
        DatabaseMutex.Unlock();
    }
    if (durability_ == Durability::kScope && !DatabaseMutex.IsHeldByThisThread()) {
        DBAwaitDurable();  // an action asks for the outcome when it ends; others have the error line
    }
}
