/// @file
/// The raw record of a run: where it was made, and a line per round and figure.
#ifndef ZRK4_BENCH_RAW_RECORD_H
#define ZRK4_BENCH_RAW_RECORD_H

#include <iosfwd>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace bench {

struct figure_line {
    int round = 0; ///< from 1; 0: counted once, the same in every round
    std::string scenario;
    std::string subject;
    std::string figure;
    double value = 0;
};

/// One line of text, without its newline: round, scenario, subject, figure and value, a tabulator between them.
std::string to_text(const figure_line& line);

class record {
  public:
    /// Adds what stands in a file; lines "machine" describe where and how. @throws std::runtime_error  of a broken line
    void read(std::istream& in);
    void add(const figure_line& line);

    /// @return nothing where there is no such figure; one of round 0 stands for all rounds.
    std::optional<double> value(int round, const std::string& scenario, const std::string& subject,
                                const std::string& figure) const;
    /// Numbers N of the scenarios `prefix`N.
    std::vector<int> sizes(const std::string& prefix) const;
    /// Rounds in which that figure was taken.
    std::vector<int> rounds(const std::string& scenario, const std::string& subject, const std::string& figure) const;
    const std::vector<std::string>& machines() const { return machines_; }
    const std::vector<figure_line>& lines() const { return lines_; }

  private:
    using key = std::tuple<std::string, std::string, std::string>;

    std::vector<std::string> machines_;
    std::vector<figure_line> lines_;
    std::map<key, std::map<int, double>> values_;
};

} // namespace bench

#endif
