/// @file
/// Which call fails, in whom, and how.
#ifndef ZRK4_CALL_FAULTS_POINTS_H
#define ZRK4_CALL_FAULTS_POINTS_H

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace call_faults {

/// One run: in `role` the `n`-th call of that name gets `error`; or, with the call "datagram", what it sends has the
/// fate `error` of all that `way` tells.
struct point {
    std::string role;
    std::string call;
    long n = 1;
    int error = 0;
    std::string way; ///< of datagrams, as ZRK4_DATAGRAMS has it

    /// "writer:semop:17:22" or "writer:datagram:drop:20:7"
    std::string text() const;
    static std::optional<point> of(const std::string& text);
    bool is_datagram() const { return call == "datagram"; }
};

/// Errors that the manual pages know for a call; empty for one that cannot fail.
const std::vector<int>& documented_errors(const std::string& call);

/// A call of a run in which nothing failed.
struct traced_call {
    std::string call;
    long n;
    bool failed;
};
std::vector<traced_call> trace_of(std::istream& lines);
std::vector<traced_call> trace_in(const std::string& path);

/// All points of a role whose run made these calls. Of the calls that fail anyway, as a search for a free key does a
/// thousand times, the first, the last and every hundredth count for all.
std::vector<point> points_of(const std::string& role, const std::vector<traced_call>& made);
/// Lost, shortened and lengthened datagrams.
std::vector<point> datagram_points();
/// About `wanted` of them, spread evenly.
std::vector<point> sample_of(const std::vector<point>& all, size_t wanted);

} // namespace call_faults

#endif
