#include "cli/screen.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>

#define NCURSES_NOMACROS
#include <curses.h>
#include <unistd.h>

#include "cli/failure.h"

namespace bm {
namespace {

constexpr short NO_PAIR = 0;

short pair_of(tone how)
{
    switch (how) {
    case tone::good:
        return COLOR_GREEN;
    case tone::warning:
        return COLOR_YELLOW;
    case tone::bad:
        return COLOR_RED;
    default:
        return NO_PAIR;
    }
}

attr_t look_of(tone how)
{
    switch (how) {
    case tone::strong:
        return A_BOLD;
    case tone::faint:
        return A_DIM;
    default:
        return A_NORMAL;
    }
}

} // namespace

bool screen::available() { return isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1; }

screen::screen(bool color) : color_(color)
{
    std::setlocale(LC_ALL, "");
    SCREEN* terminal = newterm(nullptr, stdout, stdin);
    if (terminal == nullptr) {
        const char* kind = std::getenv("TERM");
        throw failure(exit_status::failed, "this terminal cannot be drawn on")
            .seen(kind == nullptr ? "TERM is not set" : std::string("TERM=") + kind)
            .needed("a terminal that its description knows")
            .help("bm stat");
    }
    terminal_ = terminal;
    set_term(terminal);
    cbreak();
    noecho();
    curs_set(0);
    keypad(stdscr, true);
    wtimeout(stdscr, 0);
    color_ = color_ && has_colors() && start_color() == OK;
    if (!color_) return;
    use_default_colors();
    for (const tone each : {tone::good, tone::warning, tone::bad}) init_pair(pair_of(each), pair_of(each), -1);
}

screen::~screen()
{
    endwin();
    delscreen(static_cast<SCREEN*>(terminal_));
}

int screen::rows() const { return getmaxy(stdscr); }

void screen::draw(const std::vector<screen_line>& lines)
{
    werase(stdscr);
    const int columns = getmaxx(stdscr);
    const int count = std::min(rows(), static_cast<int>(lines.size()));
    for (int y = 0; y < count; ++y) {
        const screen_line& line = lines[static_cast<size_t>(y)];
        wattr_set(stdscr, look_of(line.how), color_ ? pair_of(line.how) : NO_PAIR, nullptr);
        mvwaddnstr(stdscr, y, 0, line.text.c_str(), columns);
    }
    wattr_set(stdscr, A_NORMAL, 0, nullptr);
    wrefresh(stdscr);
}

int screen::key()
{
    const int got = wgetch(stdscr);
    if (got == KEY_BACKSPACE || got == '\b') return ERASE;
    if (got == KEY_ENTER || got == '\r') return ENTER;
    return got == ERR ? NO_KEY : got;
}

} // namespace bm
