// Runs work on one thread of its own. The storage's write lock belongs to the
// thread that takes it, while a client's transaction spans calls that may come
// from any thread: its write transactions are therefore begun and ended here,
// and used from the calling threads in between (under the engine's mutex).
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace recman {

class Keeper {
  public:
    Keeper();
    // Runs `work` on the keeper's thread and returns when it is done.
    void Run(const std::function<void()>& work);

  private:
    void Loop();
    std::mutex mu_;
    std::condition_variable cv_;
    const std::function<void()>* work_ = nullptr;
    bool done_ = false;
};

}  // namespace recman
