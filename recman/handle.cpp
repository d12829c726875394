#include "recman/handle.h"

#include <algorithm>

namespace recman {

Handle::~Handle() {
    ReleaseAllLocks();
    CloseCursors();
}

bool Handle::Holds(uint32_t address) const {
    return std::find(locks.begin(), locks.end(), address) != locks.end();
}

void Handle::ReleaseLock(uint32_t address) {
    auto it = std::find(locks.begin(), locks.end(), address);
    if (it == locks.end()) return;
    lock.Unlock(kRecordLockBase + address);
    locks.erase(it);
    if (locks.empty()) lockKind = LockKind::None;
}

void Handle::ReleaseAllLocks() {
    if (lock.IsOpen())
        for (uint32_t a : locks)
            lock.Unlock(kRecordLockBase + a);
    locks.clear();
    lockKind = LockKind::None;
}

void Handle::CloseCursors() {
    idxCursor.Close();
    recCursor.Close();
    idxAtCurrency = recAtCurrency = false;
}

void Handle::Abandon() {
    lock.Abandon();
    locks.clear();
    idxCursor.Abandon();
    recCursor.Abandon();
}

}  // namespace recman
