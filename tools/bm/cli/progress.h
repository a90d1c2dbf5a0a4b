/// @file
/// How far a long command is.
#ifndef ZRK4_TOOL_PROGRESS_H
#define ZRK4_TOOL_PROGRESS_H

#include <chrono>
#include <string>

namespace bm {

/// A line on standard error that is written over and over, ten times a second at most; nothing where that is no terminal.
class progress {
  public:
    progress();
    ~progress();
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    /// @param part  0 to 1; below 0: there is no known end
    void show(double part, const std::string& text);

  private:
    bool wanted_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point next_;
};

/// "[#####.....]", of `width` characters inside.
std::string bar_text(double part, int width);

} // namespace bm

#endif
