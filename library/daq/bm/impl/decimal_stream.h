/// @file
/// The format in which reports print.
#ifndef ZRK4_IMPL_DECIMAL_STREAM_H
#define ZRK4_IMPL_DECIMAL_STREAM_H

#include <locale>
#include <ostream>

namespace zrk4::impl {

/// Plain decimal numbers to the right of their columns, whatever the stream was set to; gives it its format back.
class decimal_stream {
  public:
    explicit decimal_stream(std::ostream& os)
        : os_(os),
          flags_(os.flags(std::ios::dec | std::ios::right)),
          fill_(os.fill(' ')),
          locale_(os.imbue(std::locale::classic()))
    {
    }
    ~decimal_stream()
    {
        os_.flags(flags_);
        os_.fill(fill_);
        os_.imbue(locale_);
    }
    decimal_stream(const decimal_stream&) = delete;
    decimal_stream& operator=(const decimal_stream&) = delete;

  private:
    std::ostream& os_;
    std::ios::fmtflags flags_;
    char fill_;
    std::locale locale_; // one that groups digits would break the columns
};

} // namespace zrk4::impl

#endif
