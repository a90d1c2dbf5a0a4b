/// @file
/// Diagnostics that wait until the operation has given back its locks.
#ifndef ZRK4_IMPL_TEXT_LATER_H
#define ZRK4_IMPL_TEXT_LATER_H

#include <string>
#include <vector>

namespace zrk4::impl {

/// While one of these lives, this thread's texts are kept, in order; the outermost one writes them when it goes.
///
/// Writing can block (a full pipe, another thread in a read of a stream), so no text is written while a slot or
/// control lock is held: declare this *before* the guard, and it speaks after the guard has let go.
class text_later {
  public:
    text_later();
    ~text_later();
    text_later(const text_later&) = delete;
    text_later& operator=(const text_later&) = delete;
    /// Writes what this thread has collected so far. For texts that must come at once, so that the order stays.
    static void write_now();

  private:
    bool outermost_;
};

// An event that goes well says nothing: cold keeps what does out of its way.

/// A time-stamped line, cut at 511 characters.
__attribute__((cold, format(printf, 1, 2))) void say(const char* fmt, ...);
/// Text for standard output as it stands, cut at 511 characters.
__attribute__((cold, format(printf, 1, 2))) void say_plain(const char* fmt, ...);
/// Text for standard error, cut at 511 characters.
__attribute__((cold, format(printf, 1, 2))) void say_error(const char* fmt, ...);
/// What perror() writes, with the text of `errno` as it is now.
__attribute__((cold)) void say_perror(const char* prefix);
/// A flush of standard output / of all output, in its place among the texts.
__attribute__((cold)) void flush_stdout_later();
__attribute__((cold)) void flush_all_later();

} // namespace zrk4::impl

#endif
