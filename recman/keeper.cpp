#include "recman/keeper.h"

namespace recman {

Keeper::Keeper() {
    // Detached and never stopped: it sleeps when idle and may be needed until exit.
    std::thread([this] { Loop(); }).detach();
}

void Keeper::Run(const std::function<void()>& work) {
    std::unique_lock<std::mutex> lk(mu_);
    work_ = &work;
    done_ = false;
    cv_.notify_all();
    cv_.wait(lk, [this] { return done_; });
}

void Keeper::Loop() {
    std::unique_lock<std::mutex> lk(mu_);
    for (;;) {
        cv_.wait(lk, [this] { return work_ != nullptr; });
        (*work_)();
        work_ = nullptr;
        done_ = true;
        cv_.notify_all();
    }
}

}  // namespace recman
