/// @file
/// What the library writes to standard output and standard error, as text.
#ifndef ZRK4_TEST_CAPTURED_OUTPUT_H
#define ZRK4_TEST_CAPTURED_OUTPUT_H

#include <functional>
#include <string>

namespace zrk4::test {

/// Captures file descriptors 1 and 2 for its life: printf, streams, perror, also of children forked meanwhile.
///
///     captured_output captured;
///     part.bufmode(4);
///     EXPECT_EQ(captured.out(), "C_shm::bufmode: Invalid mode 4 request\n");
///     EXPECT_EQ(captured.err(), "");
///
/// A test that fails meanwhile gets the captured text printed at the end.
class captured_output {
  public:
    captured_output();
    ~captured_output();
    captured_output(const captured_output&) = delete;
    captured_output& operator=(const captured_output&) = delete;
    /// Everything written since the start, or since forget().
    std::string out();
    std::string err();
    void forget();

  private:
    class stream {
      public:
        explicit stream(int fd);
        ~stream();
        stream(const stream&) = delete;
        stream& operator=(const stream&) = delete;
        std::string text(long from) const;
        void replay() const;
        void forget() { begin_ = size(); }
        long begin() const { return begin_; }

      private:
        long size() const;
        int fd_, saved_, file_;
        long begin_ = 0;
    };
    struct flushed {
        flushed();
    } first_; // what was written before belongs where it was going
    stream out_{1}, err_{2};
    bool failed_before_;
};

/// What `action` writes to standard output / standard error.
std::string out_of(const std::function<void()>& action);
std::string err_of(const std::function<void()>& action);

/// Puts "DATE" where a line begins with a date and time as bm_dump_message writes it, so that texts compare byte for
/// byte and a line without its date is told from one with it.
///
///     EXPECT_EQ(dates_marked(captured.out()), "DATE ev_update(): wrong id: 0 or bnum: 1\n");
std::string dates_marked(const std::string& text);
/// Takes date and blank away instead.
std::string dates_stripped(const std::string& text);

} // namespace zrk4::test

#endif
