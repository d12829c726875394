// CCriticalSection: the framework's critical section. Like the platform's,
// the thread that holds it may enter it again.
#pragma once

#include <mutex>

class CCriticalSection {
  public:
    void Lock() { mu_.lock(); }
    void Unlock() { mu_.unlock(); }

  private:
    std::recursive_mutex mu_;
};

// Holds a critical section for the life of the object.
class CSingleLock {
  public:
    explicit CSingleLock(CCriticalSection& cs) : cs_(cs) { cs_.Lock(); }
    ~CSingleLock() { cs_.Unlock(); }
    CSingleLock(const CSingleLock&) = delete;
    CSingleLock& operator=(const CSingleLock&) = delete;

  private:
    CCriticalSection& cs_;
};
