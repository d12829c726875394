// Work on a file's mapped pages that a fault must not take down. The storage
// library follows every page number and offset it reads from its map; in a
// file damaged after it was checked (a disk error, a copy cut short while in
// use) that ends in SIGSEGV or SIGBUS, or in one of its assertions. Inside a
// guarded call such a fault ends the call instead, which then answers
// kGuardFault; outside one it is left to whoever handled it before.
#pragma once

#include <lmdb.h>

#include <type_traits>

namespace recman {

inline constexpr int kGuardFault = MDB_CORRUPTED;

// Runs fn(ctx) under the guard. What the work between here and a fault holds
// is left behind, so it owns nothing that needs releasing (no destructors).
int RunGuarded(int (*fn)(void*), void* ctx);

template <class F>
int Guarded(F&& f) {
    using Fn = std::remove_reference_t<F>;
    return RunGuarded([](void* c) -> int { return (*static_cast<Fn*>(c))(); }, &f);
}

// The storage library's assertion handler: inside a guarded call, a fault.
void OnStorageAssert(MDB_env* env, const char* message);

}  // namespace recman
