#include "plans.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fault.h"
#include "trace.h"

namespace zrk4::test {
namespace {

constexpr const char* CALLS[] = {"bind",   "geteuid", "gethostbyname_r", "getsockname", "pthread_create", "recv",
                                 "semctl", "semget",  "semop",           "sendto",      "setsockopt",     "shmat",
                                 "shmctl", "shmdt",   "shmget",          "socket"};

struct all_plans {
    plan of[std::size(CALLS)];

    all_plans()
    {
        for (size_t i = 0; i < std::size(CALLS); ++i) of[i].call = CALLS[i];
    }
};

// Made by the first call, which may come before any constructor of the program.
all_plans& plans()
{
    static all_plans* all = new all_plans;
    return *all;
}

thread_local bool in_action = false;

void set(plan& p, plan::what kind, long value, const std::function<void()>* action, int nth, int times)
{
    p.times = 0;
    p.kind = kind;
    p.value = value;
    p.action = action;
    p.fired = 0;
    p.to_pass = nth - 1;
    p.times = times;
}

void plan_one(char* text)
{
    char* rest = nullptr;
    const char* call = strtok_r(text, ":", &rest);
    const char* error = strtok_r(nullptr, ":", &rest);
    const char* nth = strtok_r(nullptr, ":", &rest);
    const char* times = strtok_r(nullptr, ":", &rest);
    if (call == nullptr || error == nullptr) return;
    set(plan_of(call), plan::FAIL, std::atol(error), nullptr, nth ? std::atoi(nth) : 1, times ? std::atoi(times) : 1);
}

__attribute__((constructor)) void plan_from_environment()
{
    const char* wanted = std::getenv("ZRK4_FAULTS");
    if (wanted == nullptr) return;
    char* copy = strdup(wanted);
    char* rest = nullptr;
    for (char* one = strtok_r(copy, ",", &rest); one != nullptr; one = strtok_r(nullptr, ",", &rest)) plan_one(one);
    std::free(copy);
}

} // namespace

plan& plan_of(const char* call)
{
    for (plan& p : plans().of) {
        if (std::strcmp(p.call, call) == 0) return p;
    }
    std::fprintf(stderr, "faults: no such call: %s\n", call);
    std::abort();
}

verdict judge(plan& p, long& value)
{
    if (in_action) return verdict::call_it;
    const long n = ++p.calls;
    if (p.times <= 0 || p.to_pass-- > 0) return verdict::call_it;
    if (p.times-- <= 0) return verdict::call_it;
    ++p.fired;
    value = p.value;
    log_met(p.call, n, value);
    if (p.kind == plan::FAIL) return verdict::fail_with_errno;
    if (p.kind == plan::RETURN) return verdict::give_value;
    in_action = true;
    (*p.action)();
    in_action = false;
    return verdict::call_it;
}

long calls_of(const char* call) { return plan_of(call).calls; }

fault fault::fails(const char* call, int error, int nth, int times)
{
    plan& p = plan_of(call);
    set(p, plan::FAIL, error, nullptr, nth, times);
    return fault(&p);
}

fault fault::returns(const char* call, long value, int nth, int times)
{
    plan& p = plan_of(call);
    set(p, plan::RETURN, value, nullptr, nth, times);
    return fault(&p);
}

fault fault::preceded(const char* call, std::function<void()> action, int nth, int times)
{
    plan& p = plan_of(call);
    fault made(&p);
    made.action_ = std::make_unique<std::function<void()>>(std::move(action));
    set(p, plan::PRECEDE, 0, made.action_.get(), nth, times);
    return made;
}

fault::~fault()
{
    if (plan_ != nullptr) static_cast<plan*>(plan_)->times = 0;
}

int fault::fired() const { return static_cast<plan*>(plan_)->fired; }

} // namespace zrk4::test
