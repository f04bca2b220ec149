#pragma once

#include <mutex>
#include <shared_mutex>

#include "core/thread_annotations.h"

/// `std::mutex` with the annotations that clang's analysis needs.
class CMP_CAPABILITY("mutex") Mutex {
  public:
    void lock() CMP_ACQUIRE() { mutex.lock(); }
    void unlock() CMP_RELEASE() { mutex.unlock(); }

  private:
    std::mutex mutex;
};

/// Holds a `Mutex` for the length of a scope.
class CMP_SCOPED_CAPABILITY LockGuard {
  public:
    explicit LockGuard(Mutex& mutexToHold) CMP_ACQUIRE(mutexToHold) : mutex(mutexToHold) {
        mutex.lock();
    }
    ~LockGuard() CMP_RELEASE() { mutex.unlock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

  private:
    Mutex& mutex;
};

/// Reader/writer lock with annotations.
class CMP_CAPABILITY("shared mutex") SharedMutex {
  public:
    void lock() CMP_ACQUIRE() { mutex.lock(); }
    void unlock() CMP_RELEASE() { mutex.unlock(); }
    void lockShared() CMP_ACQUIRE_SHARED() { mutex.lock_shared(); }
    void unlockShared() CMP_THREAD_ANNOTATION(release_shared_capability()) {
        mutex.unlock_shared();
    }

  private:
    std::shared_mutex mutex;
};

/// Holds a `SharedMutex` for writing for the length of a scope.
class CMP_SCOPED_CAPABILITY WriteGuard {
  public:
    explicit WriteGuard(SharedMutex& mutexToHold) CMP_ACQUIRE(mutexToHold) : mutex(mutexToHold) {
        mutex.lock();
    }
    ~WriteGuard() CMP_RELEASE() { mutex.unlock(); }
    WriteGuard(const WriteGuard&) = delete;
    WriteGuard& operator=(const WriteGuard&) = delete;

  private:
    SharedMutex& mutex;
};

/// Holds a `SharedMutex` for reading for the length of a scope.
class CMP_SCOPED_CAPABILITY ReadGuard {
  public:
    explicit ReadGuard(SharedMutex& mutexToHold) CMP_ACQUIRE_SHARED(mutexToHold)
        : mutex(mutexToHold) {
        mutex.lockShared();
    }
    ~ReadGuard() CMP_RELEASE() { mutex.unlockShared(); }
    ReadGuard(const ReadGuard&) = delete;
    ReadGuard& operator=(const ReadGuard&) = delete;

  private:
    SharedMutex& mutex;
};
