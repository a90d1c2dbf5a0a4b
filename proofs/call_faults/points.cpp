#include "points.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>

#include <netdb.h>

#include "fields.h"

namespace call_faults {

std::string point::text() const
{
    if (is_datagram()) return role + ":datagram:" + way;
    return role + ":" + call + ":" + std::to_string(n) + ":" + std::to_string(error);
}

std::optional<point> point::of(const std::string& text)
{
    std::istringstream in(text);
    point made;
    if (!std::getline(in, made.role, ':') || !std::getline(in, made.call, ':')) return std::nullopt;
    if (made.role != "master" && made.role != "writer" && made.role != "reader") return std::nullopt;
    if (made.is_datagram()) {
        std::getline(in, made.way);
        return made.way.empty() ? std::nullopt : std::optional(made);
    }
    char colon = 0;
    if (!(in >> made.n >> colon >> made.error) || colon != ':') return std::nullopt;
    return made;
}

const std::vector<int>& documented_errors(const std::string& call)
{
    static const std::map<std::string, std::vector<int>> known{
        {"shmget", {EACCES, EEXIST, EINVAL, ENFILE, ENOENT, ENOMEM, ENOSPC, EPERM}},
        {"shmat", {EACCES, EIDRM, EINVAL, ENOMEM}},
        {"shmdt", {EINVAL}},
        {"shmctl", {EACCES, EFAULT, EIDRM, EINVAL, ENOMEM, EOVERFLOW, EPERM}},
        {"semget", {EACCES, EEXIST, EINVAL, ENOENT, ENOMEM, ENOSPC}},
        {"semctl", {EACCES, EFAULT, EIDRM, EINVAL, EPERM, ERANGE}},
        {"semop", {E2BIG, EACCES, EAGAIN, EFAULT, EFBIG, EIDRM, EINTR, EINVAL, ENOMEM, ERANGE}},
        {"socket", {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT}},
        {"setsockopt", {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}},
        {"bind", {EACCES, EADDRINUSE, EADDRNOTAVAIL, EBADF, EFAULT, EINVAL, ENOTSOCK}},
        {"getsockname", {EBADF, EFAULT, EINVAL, ENOBUFS, ENOTSOCK}},
        {"sendto",
         {EACCES, EAGAIN, EALREADY, EBADF, ECONNRESET, EDESTADDRREQ, EFAULT, EINTR, EINVAL, EISCONN, EMSGSIZE, ENOBUFS,
          ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP, EPIPE}},
        {"recv", {EAGAIN, EBADF, ECONNREFUSED, EFAULT, EINTR, EINVAL, ENOMEM, ENOTCONN, ENOTSOCK}},
        {"pthread_create", {EAGAIN, EINVAL, EPERM}},
        {"gethostbyname_r", {ERANGE, EAGAIN, ENOENT}},
    };
    static const std::vector<int> none;
    const auto at = known.find(call);
    return at == known.end() ? none : at->second;
}

std::vector<traced_call> trace_of(std::istream& lines)
{
    std::vector<traced_call> made;
    for (std::string line; std::getline(lines, line);) {
        const proof::record_line one("traced " + line);
        made.push_back({one.text("call"), static_cast<long>(one.number("n")), one.text("result") == "-1"});
    }
    return made;
}

std::vector<traced_call> trace_in(const std::string& path)
{
    std::ifstream in(path);
    return trace_of(in);
}

namespace {

// Said of a segment that is there it is an answer, and a wrong one: no kernel gives it.
bool is_no_failure(const traced_call& made, int error)
{
    return made.call == "shmget" && error == ENOENT && !made.failed;
}

} // namespace

std::vector<point> points_of(const std::string& role, const std::vector<traced_call>& made)
{
    constexpr long EVERY = 100;
    std::map<std::string, long> failed;
    std::map<std::string, long> last_failed;
    for (const traced_call& one : made) {
        if (one.failed) last_failed[one.call] = one.n;
    }
    std::vector<point> all;
    for (const traced_call& one : made) {
        const bool counts = !one.failed || failed[one.call]++ % EVERY == 0 || one.n == last_failed[one.call];
        if (!counts) continue;
        for (const int error : documented_errors(one.call)) {
            if (!is_no_failure(one, error)) all.push_back({role, one.call, one.n, error, ""});
        }
    }
    return all;
}

std::vector<point> datagram_points()
{
    std::vector<point> all;
    for (const char* role : {"writer", "reader"}) {
        for (const int percent : {1, 2, 5, 10, 20}) {
            for (const int seed : {1, 2, 3})
                all.push_back({role, "datagram", 0, 0, "drop:" + std::to_string(percent) + ":" + std::to_string(seed)});
        }
        for (const char* way : {"short:1", "short:2", "short:7", "long:1", "long:2", "long:7"})
            all.push_back({role, "datagram", 0, 0, way});
    }
    return all;
}

std::vector<point> sample_of(const std::vector<point>& all, size_t wanted)
{
    if (wanted == 0 || all.size() <= wanted) return all;
    std::vector<point> some;
    for (size_t i = 0; i < wanted; ++i) some.push_back(all[i * all.size() / wanted]);
    return some;
}

} // namespace call_faults
