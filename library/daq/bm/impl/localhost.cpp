// The address of "localhost", where every notification goes.
#include <atomic>
#include <cstring>
#include <mutex>

#include <netdb.h>
#include <netinet/in.h>

#include "BM.h"
#include "bm_core.h"
#include "text_later.h"

int resolvehost(const char* hostname, char* hostent_buff, int hostent_buff_len, hostent** p_hp)
{
    static hostent entry;
    *p_hp = nullptr;
    int resolver_error = 0;
    const int error =
        gethostbyname_r(hostname, &entry, hostent_buff, static_cast<size_t>(hostent_buff_len), p_hp, &resolver_error);
    if (error == 0 && *p_hp != nullptr) return 0;
    *p_hp = nullptr;
    zrk4::impl::say_error("gethostbyname_r() failed to resolve hostname [%s]", hostname);
    return error != 0 ? error : resolver_error;
}

namespace zrk4::impl {
namespace {

std::mutex one_at_a_time;
std::atomic<bool> known{false};
uint32_t kept = 0; // the address, not the entry: that one belongs to whoever has called resolvehost last

bool resolve_localhost()
{
    const std::lock_guard guard(one_at_a_time);
    if (known) return true;
    static char buffer[4096];
    std::memset(buffer, 0, sizeof buffer);
    hostent* entry = nullptr;
    const int error = resolvehost("localhost", buffer, sizeof buffer, &entry);
    if (error != 0) {
        say_perror("gethostbyname");
        say_plain("Failed to get 'localhost' address error: %d\n", error);
        flush_all_later();
        return false;
    }
    std::memcpy(&kept, entry->h_addr_list[0], sizeof kept);
    known = true;
    return true;
}

} // namespace

// Asked for every datagram: once it is known, without a lock.
bool localhost_address(uint32_t& address)
{
    if (!known && !resolve_localhost()) return false;
    address = kept;
    return true;
}

} // namespace zrk4::impl
