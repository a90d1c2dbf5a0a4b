/// @file
/// What the commands print on standard output.
#ifndef ZRK4_TOOL_OUTPUT_H
#define ZRK4_TOOL_OUTPUT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace bm {

/// Ordered, so that a document reads as it was built.
using json = nlohmann::ordered_json;

/// Version of every document's form. It changes when a member goes or changes its meaning; members may be added.
inline constexpr int SCHEMA_VERSION = 1;

/// A document of the command: begins with its schema's name and version.
json document(const char* command);
/// Prints a document. Names from shared memory may hold any bytes: what is not UTF-8 is replaced.
void print_document(const json& document);
/// The same as a line, for commands that print a document per moment.
std::string document_line(const json& document);
/// Prints text and flushes it.
void print(std::string_view text);

/// A text from shared memory for a terminal: control characters become \xNN.
std::string printable(std::string_view text);

/// Bytes with a unit, three digits: "42.3 MB".
std::string size_text(uint64_t bytes);
/// A span of time, two units at most: "3.2 s", "2 min 10 s", "5 h 12 min".
std::string span_text(double seconds);
/// Name of a user, or its number.
std::string user_text(unsigned uid);

/// How a text is marked where colours are allowed.
enum class tone { plain, strong, good, warning, bad, faint };
std::string toned(std::string_view text, tone how, bool color);

/// Columns under headings, as wide as they need to be.
class table {
  public:
    enum align { left, right };
    struct column {
        std::string heading;
        align how = left;
    };
    explicit table(std::vector<column> columns) : columns_(std::move(columns)) {}

    /// A row; cells that are missing at its end stay empty. `how` tones the whole row.
    void row(std::vector<std::string> cells, tone how = tone::plain);
    bool empty() const { return rows_.empty(); }
    std::string text(bool color) const;

  private:
    struct line {
        std::vector<std::string> cells;
        tone how;
    };
    std::vector<size_t> widths() const;

    std::vector<column> columns_;
    std::vector<line> rows_;
};

} // namespace bm

#endif
