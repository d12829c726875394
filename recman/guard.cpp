#include "recman/guard.h"

#include <setjmp.h>
#include <signal.h>

#include <cstdlib>
#include <mutex>

namespace recman {

namespace {

struct Frame {
    sigjmp_buf jb;
    Frame* prev;
};

// The innermost guarded call of each thread. Initial-exec, so that the
// signal handler reads it without allocating.
thread_local Frame* t_top __attribute__((tls_model("initial-exec"))) = nullptr;

struct sigaction g_oldSegv, g_oldBus;
std::once_flag g_installed;

[[noreturn]] void Escape(Frame* f) {
    t_top = f->prev;
    siglongjmp(f->jb, 1);
}

// A fault outside guarded work goes where it went before recman was loaded.
void Chain(int sig, siginfo_t* info, void* context) {
    const struct sigaction& old = sig == SIGBUS ? g_oldBus : g_oldSegv;
    if ((old.sa_flags & SA_SIGINFO) && old.sa_sigaction) {
        old.sa_sigaction(sig, info, context);
        return;
    }
    if (!(old.sa_flags & SA_SIGINFO) && old.sa_handler != SIG_DFL && old.sa_handler != SIG_IGN) {
        old.sa_handler(sig);
        return;
    }
    // Default action: the faulting instruction runs again and ends the process.
    signal(sig, SIG_DFL);
}

void OnFault(int sig, siginfo_t* info, void* context) {
    if (Frame* f = t_top) Escape(f);
    Chain(sig, info, context);
}

void Install() {
    struct sigaction sa {};
    sa.sa_sigaction = OnFault;
    // Not deferred: the jump out of the handler leaves the signal mask alone,
    // so the signal must not be blocked while it runs.
    sa.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGSEGV, &sa, &g_oldSegv);
    sigaction(SIGBUS, &sa, &g_oldBus);
}

}  // namespace

int RunGuarded(int (*fn)(void*), void* ctx) {
    std::call_once(g_installed, Install);
    Frame f;
    f.prev = t_top;
    if (sigsetjmp(f.jb, 0)) return kGuardFault;
    t_top = &f;
    int rc = fn(ctx);
    t_top = f.prev;
    return rc;
}

void OnStorageAssert(MDB_env*, const char*) {
    if (Frame* f = t_top) Escape(f);
    std::abort();
}

}  // namespace recman
