// Holds a mutex for as long as it lives; a null one is not held.
#pragma once

#include <pthread.h>

namespace korvex {

class MutexLock final {
  public:
    explicit MutexLock(pthread_mutex_t *mutex) : mutex_(mutex) {
        if (mutex_ != nullptr)
            pthread_mutex_lock(mutex_);
    }
    ~MutexLock() {
        if (mutex_ != nullptr)
            pthread_mutex_unlock(mutex_);
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

  private:
    pthread_mutex_t *mutex_;
};

}  // namespace korvex
