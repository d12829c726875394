#include "progress.h"

#include <cstdio>

namespace dbutil {

Progress::Progress(bool shown, std::string what, uint64_t total)
    : shown_(shown), what_(std::move(what)), total_(total) {}

Progress::~Progress() {
    Finish();
}

void Progress::Draw(uint64_t done) {
    auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    drawn_ = true;
    constexpr int kWidth = 30;
    // The total is the record count when the walk began; others may add.
    uint64_t shownDone = total_ && done > total_ ? total_ : done;
    int filled = total_ ? int(shownDone * kWidth / total_) : 0;
    std::string bar(size_t(filled), '#');
    bar.resize(kWidth, '.');
    std::fprintf(stderr, "\r%s [%s] %llu/%llu", what_.c_str(), bar.c_str(),
                 static_cast<unsigned long long>(done), static_cast<unsigned long long>(total_));
    std::fflush(stderr);
}

void Progress::Finish() {
    if (!drawn_) return;
    drawn_ = false;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
}

}  // namespace dbutil
