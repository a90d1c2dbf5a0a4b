#include "outlet.h"

#include <stdexcept>

namespace demo {

void outlet::join(const char* partition, int buffer_bytes)
{
    configure(bm_, run_.how);
    if (bm_.init()) throw std::runtime_error("writer: no slot partitions");
    const std::string name = partition_name(run_, partition);
    if (bm_.add(name.c_str())) throw std::runtime_error("writer: no partition " + name);
    partition_ = std::stoi(bm_.find_by_name(name.c_str())->getStat("shmid"));
    buffer_bytes_ = buffer_bytes;
}

void outlet::subscribe(ZRK4_EVTYPE type, std::list<std::string> blocks)
{
    zrk4_client parameters{};
    if (bm_.subscribe(type, CLI_T_WRITER, &parameters, &blocks) < 1) throw std::runtime_error("writer: no client slot");
    types_.push_back(type);
}

void outlet::leave()
{
    for (const ZRK4_EVTYPE type : types_) bm_.unsubscribe(type, CLI_T_WRITER);
    bm_.all_clean_up();
}

// The partition's id goes in: without it the pool would also hand out a free event slot as a buffer.
char* outlet::take_buffer(int& number)
{
    while (true) {
        if (char* at = bm_.get_buffer_from_pool(BM_NO_WAIT, buffer_bytes_, &partition_, &number)) return at;
        ++counts_.waits;
        if (line_.hear(1) != line_end::NOTHING) return nullptr;
    }
}

// Refused, the buffer may already belong to somebody else: it is not given back here, and the balance will tell.
bool outlet::enter(ZRK4_EVTYPE type, int number)
{
    const bool refused = bm_.ev_update(type, partition_, number);
    if (refused) ++counts_.refused;
    return !refused;
}

} // namespace demo
