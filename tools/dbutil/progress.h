// A progress bar on standard error for commands that walk a whole file,
// drawn only when asked to (on a terminal) and at most ten times a second.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace dbutil {

class Progress {
  public:
    Progress(bool shown, std::string what, uint64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // `done` of the total so far; cheap enough to call for every record.
    void Update(uint64_t done) {
        if (shown_ && (++calls_ & 255) == 0) Draw(done);
    }
    // Clears the bar.
    void Finish();

  private:
    void Draw(uint64_t done);

    bool shown_;
    std::string what_;
    uint64_t total_;
    uint64_t calls_ = 0;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace dbutil
