/// @file
/// The whole terminal.
#ifndef ZRK4_TOOL_SCREEN_H
#define ZRK4_TOOL_SCREEN_H

#include <string>
#include <vector>

#include "cli/output.h"

namespace bm {

struct screen_line {
    std::string text;
    tone how = tone::plain;
};

/// Takes the terminal, and gives it back as it was.
class screen {
  public:
    /// Whether there is a terminal to take.
    static bool available();

    /// @throws failure when the terminal is of a kind that cannot be drawn on
    explicit screen(bool color);
    ~screen();
    screen(const screen&) = delete;
    screen& operator=(const screen&) = delete;

    int rows() const;
    /// Lines from the top; what does not fit is cut.
    void draw(const std::vector<screen_line>& lines);
    /// A key that has been pressed; NO_KEY when there is none.
    int key();

    static constexpr int NO_KEY = -1, ENTER = '\n', ESCAPE = 27, TAB = '\t', ERASE = 127;

  private:
    bool color_;
    void* terminal_ = nullptr;
};

} // namespace bm

#endif
