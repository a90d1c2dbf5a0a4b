/// @file
/// The real command, run as an operator runs it, in the namespace of the test.
#ifndef ZRK4_TOOL_TEST_RUN_BM_H
#define ZRK4_TOOL_TEST_RUN_BM_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace bm::test {

struct outcome {
    int status = -1; ///< exit status; 128 + n when signal n ended it
    std::string out;
    std::string err;
    double processor_s = 0; ///< time of the processor that it took

    /// Standard output as a document; the test fails, and an empty one comes, when it is none.
    nlohmann::json document() const;
};

/// Runs the command with these arguments and waits for its end.
/// @param environment  "NAME=value", added to the test's own
outcome run_bm(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {});

/// The same with another program, found in PATH.
outcome run_program(const std::string& program, const std::vector<std::string>& arguments,
                    const std::vector<std::string>& environment = {});

/// The text with every run of blanks as one: columns move with the numbers in them.
std::string words_of(const std::string& text);

/// Path of the command.
const char* bm_command();

} // namespace bm::test

#endif
