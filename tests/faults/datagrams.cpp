#include "datagrams.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "trace.h"

namespace zrk4::test {
namespace {

constexpr size_t CHANGE = 8;

class way {
  public:
    way()
    {
        const char* wanted = std::getenv("ZRK4_DATAGRAMS");
        if (wanted == nullptr) return;
        const std::string text = wanted;
        const size_t first = text.find(':');
        const size_t second = text.find(':', first + 1);
        kind_ = text[0];
        number_ = std::strtoul(text.c_str() + first + 1, nullptr, 10);
        if (second != std::string::npos) random_ = std::strtoull(text.c_str() + second + 1, nullptr, 10);
    }

    fate next(const void* bytes, size_t count, std::string& instead)
    {
        if (kind_ == '\0' || number_ == 0) return fate::as_sent;
        const std::lock_guard one_at_a_time(mutex_);
        ++sent_;
        if (kind_ == 'd' ? chance() >= number_ : sent_ % number_ != 0) return fate::as_sent;
        log_met("datagram", static_cast<long>(sent_), kind_);
        if (kind_ == 'd') return fate::dropped;
        instead.assign(static_cast<const char*>(bytes), count);
        instead.resize(kind_ == 's' ? count - CHANGE : count + CHANGE);
        return fate::other_length;
    }

  private:
    uint64_t chance()
    {
        random_ = random_ * 6364136223846793005U + 1442695040888963407U;
        return (random_ >> 33U) % 100;
    }

    std::mutex mutex_;
    char kind_ = '\0';
    uint64_t number_ = 0, sent_ = 0, random_ = 1;
};

} // namespace

fate fate_of_datagram(const void* bytes, size_t count, std::string& instead)
{
    static way* const on_its_way = new way;
    return on_its_way->next(bytes, count, instead);
}

} // namespace zrk4::test
