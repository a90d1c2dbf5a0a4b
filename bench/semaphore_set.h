/// @file
/// The semaphore set of a partition, as the references use it.
#ifndef ZRK4_BENCH_SEMAPHORE_SET_H
#define ZRK4_BENCH_SEMAPHORE_SET_H

namespace bench {

/// How a reference treats its locks.
enum class manner {
    strict, ///< given back after each step, also where the next one takes it again at once; a busy one is slept on
    best    ///< kept over steps that follow each other; a busy one is yielded for before it is slept on
};

/// Gate, count of free buffers, two that no event needs, one lock per buffer.
class semaphore_set {
  public:
    /// @param locks  whether every buffer has one @throws std::system_error
    semaphore_set(int buffers, bool locks, manner m);
    ~semaphore_set();
    semaphore_set(const semaphore_set&) = delete;
    semaphore_set& operator=(const semaphore_set&) = delete;

    void take_gate() const { take_lock(GATE); }
    void give_gate() const { give_lock(GATE); }
    void take(int buffer) const { take_lock(FIRST_LOCK + buffer); }
    void give(int buffer) const { give_lock(FIRST_LOCK + buffer); }
    /// Waits until a buffer is free, and counts it as taken.
    void wait_for_free() const { change(FREE, -1, 0); }
    /// The same where one is free for certain.
    void count_taken() const;
    void count_free() const { change(FREE, 1, 0); }

    bool keeps_locks() const { return manner_ == manner::best; }

  private:
    static constexpr int GATE = 0, FREE = 1, FIRST_LOCK = 4;
    void take_lock(int number) const;
    void give_lock(int number) const;
    bool yielded_for(int number) const;
    void change(int number, short by, short flags) const;
    bool try_change(int number, short by, short flags) const;

    int id_;
    manner manner_;
};

} // namespace bench

#endif
